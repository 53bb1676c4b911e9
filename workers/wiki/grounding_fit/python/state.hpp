// What the module keeps as long as it is loaded: the keys that it reads and writes, the host's
// utilities, and objects of its own.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "python/container.hpp"

namespace grounding_fit::py {

// The keys of objects that the module reads or writes. One list gives the enumerators and their
// texts, so that the two cannot differ. Those of a symbol record stand together, from fqn to
// has_tests.
#define GROUNDING_FIT_KEYS(key)                                                                \
  key(path) key(line_start) key(line_end) key(fqn) key(kind) key(file) key(line) key(end_line) \
      key(signature) key(parameters) key(docstring) key(fan_in) key(inside_refs)               \
          key(neighbour_refs) key(snippet) key(snippet_cut) key(body_digest) key(callees)      \
              key(usage_example) key(related) key(has_tests) key(name) key(type) key(page_id)  \
                  key(prior_markdown) key(grounding) key(symbols) key(citation_seeds)          \
                      key(truncated)

enum class key : std::size_t {
#define GROUNDING_FIT_ENUMERATOR(name) name,
  GROUNDING_FIT_KEYS(GROUNDING_FIT_ENUMERATOR)
#undef GROUNDING_FIT_ENUMERATOR
      count
};

inline constexpr std::array k_key_texts = {
#define GROUNDING_FIT_TEXT(name) std::string_view(#name),
    GROUNDING_FIT_KEYS(GROUNDING_FIT_TEXT)
#undef GROUNDING_FIT_TEXT
};
constexpr std::string_view name_of(key which) {
  return k_key_texts[static_cast<std::size_t>(which)];
}
// The step to the value under a key, for place() and within().
constexpr step step_to(key which) { return step::key(name_of(which)); }
inline void prepend_to(bad_value& error, key which) { error.prepend(step_to(which)); }

// What the host defines for the module.
enum class utility : std::size_t {
  estimate_tokens,
  truncate_to_tokens,
  norm,
  file_cards_heading,
  requested_context_heading,
  count
};

// Objects that are made once, when the module is loaded.
enum class module_object : std::size_t {
  fact_block_type,
  grounding_parts_type,
  section_budget_type,
  default_policy,
  getting_started_policy,
  decisions_policy,
  code_floor,
  count
};

// References that the collector's slots go through in one loop. Python gives the memory, all zeros,
// and runs no constructor.
class module_state {
 public:
  handle operator[](key which) const { return refs_[at(which)]; }
  handle operator[](utility which) const { return refs_[at(which)]; }
  handle operator[](module_object which) const { return refs_[at(which)]; }
  // The key whose very object a text is, if it is one.
  std::optional<key> key_of(handle text) const {
    const auto found = static_cast<key>(key_at_[slot_of(text)]);
    return refs_[at(found)] == text.get() ? std::optional(found) : std::nullopt;
  }
  template <class Name>
  void keep(Name which, owned value) {
    PyObject*& ref = refs_[at(which)];
    const owned before = owned::steal_or_null(std::exchange(ref, value.release()));
  }

  void keep_keys();  // the text of every key
  void set_ready() { ready_ = true; }
  int traverse(visitproc visit, void* arg) const noexcept {
    for (PyObject* ref : refs_) Py_VISIT(ref);
    return 0;
  }
  void clear() noexcept {
    ready_ = false;
    for (PyObject*& ref : refs_) Py_CLEAR(ref);
  }

 private:
  friend const module_state& loaded(const void* state);

  static constexpr std::size_t k_utilities_at = static_cast<std::size_t>(key::count);
  static constexpr std::size_t k_objects_at =
      k_utilities_at + static_cast<std::size_t>(utility::count);
  static constexpr std::size_t k_refs =
      k_objects_at + static_cast<std::size_t>(module_object::count);

  static constexpr std::size_t at(key which) { return static_cast<std::size_t>(which); }
  static constexpr std::size_t at(utility which) {
    return k_utilities_at + static_cast<std::size_t>(which);
  }
  static constexpr std::size_t at(module_object which) {
    return k_objects_at + static_cast<std::size_t>(which);
  }

  // A perfect hash of the keys' addresses: a factor that gives each a slot of its own.
  static constexpr int k_slot_bits = 7;
  std::size_t slot_of(handle text) const {
    return reinterpret_cast<std::uintptr_t>(text.get()) * slot_factor_ >> (64 - k_slot_bits);
  }
  bool give_slots();

  std::uint64_t slot_factor_;
  std::uint8_t key_at_[1 << k_slot_bits];
  PyObject* refs_[k_refs];
  bool ready_;  // nothing may be called before all of them are there, nor once they are let go
};

// The state at that address; ImportError when the module is not loaded (yet), as when a module of
// the host that it imports calls it.
inline const module_state& loaded(const void* state) {
  const auto* found = static_cast<const module_state*>(state);
  if (found != nullptr && found->ready_) return *found;
  raise_error(PyExc_ImportError, "grounding_fit is not loaded: its import is going on or failed");
}

// The value under a key of an object, or an empty handle.
inline owned read(const module_state& state, dict object, key which) {
  return object.get(state[which]);
}

inline void add_to_module(handle module, const char* name, handle value) {
  if (PyModule_AddObjectRef(module.get(), name, value.get()) < 0) throw python_error_set{};
}

}  // namespace grounding_fit::py
