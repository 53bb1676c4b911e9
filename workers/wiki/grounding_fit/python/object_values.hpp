// The values under some keys of an object, read in one walk over its members: a step of it takes a
// third of the time of a look-up.
#pragma once

#include "python/make.hpp"
#include "python/state.hpp"

namespace grounding_fit::py {

// Of the keys from First to Last.
template <key First, key Last>
class object_values {
 public:
  object_values(const module_state& state, dict object)
      : state_(state), object_(object), plain_(object.size() <= 2 * k_count) {}

  // The value under a key, or an empty handle. It lives until code of the host's may run, or the
  // next one is asked for.
  handle operator[](key which) {
    if (!read_) read_all();
    return plain_ ? handle(values_[at(which)]) : look_up(which);
  }
  // Its text form, an empty text when the key is absent.
  owned text_form(key which) {
    const handle value = (*this)[which];
    if (!value) return empty_text();
    reread_after(value);
    return within(which, [&] { return py::text_form(new_ref(value)); });
  }

  // Code of the host's may have run, so what is asked for next is read anew.
  void reread() { read_ = false; }
  // To be called before the text form of a value is made: that of a container runs any code.
  void reread_after(handle value) {
    if (!is_plain_text(value) && !is_plain_integer(value)) reread();
  }
  // Whether the values were read by a walk over plain texts, so that no code of the host's ran.
  bool plain() const { return plain_; }

 private:
  static constexpr std::size_t at(key which) {
    return static_cast<std::size_t>(which) - static_cast<std::size_t>(First);
  }
  static constexpr key key_at(std::size_t i) {
    return static_cast<key>(static_cast<std::size_t>(First) + i);
  }
  static constexpr std::size_t k_count = at(Last) + 1;

  [[gnu::noinline]] handle look_up(key which) {
    looked_up_ = read(state_, object_, which);
    return looked_up_;
  }

  [[gnu::noinline]] void read_all() {
    read_ = true;
    if (!plain_) return;
    values_ = {};
    dict_walk members(object_);
    for (handle name, value; members.next(name, value);) {
      if (const auto which = state_.key_of(name)) {
        if (First <= *which && *which <= Last) values_[at(*which)] = item_ref_to(value);
      } else if (!is_interned(name)) {  // so it may be equal to one of the keys
        plain_ = false;
        return;
      }
    }
  }

  const module_state& state_;
  dict object_;
  std::array<item_ref, k_count> values_;
  owned looked_up_;
  bool read_ = false, plain_;
};

}  // namespace grounding_fit::py
