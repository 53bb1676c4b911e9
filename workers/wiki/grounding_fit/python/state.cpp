#include "python/state.hpp"

#include <algorithm>

namespace grounding_fit::py {

void module_state::keep_keys() {
  for (std::size_t i = 0; i < k_key_texts.size(); ++i) {
    keep(static_cast<key>(i), owned::steal(PyUnicode_InternFromString(k_key_texts[i].data())));
  }
  // Some thirty factors are tried before one gives each key a slot of its own.
  constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;
  for (slot_factor_ = odd; !give_slots(); slot_factor_ += 2 * odd) {
  }
}

bool module_state::give_slots() {
  bool taken[1 << k_slot_bits] = {};
  for (std::size_t i = 0; i < k_key_texts.size(); ++i) {
    const std::size_t slot = slot_of(refs_[i]);
    if (std::exchange(taken[slot], true)) return false;
    key_at_[slot] = static_cast<std::uint8_t>(i);
  }
  return true;
}

}  // namespace grounding_fit::py
