// Reading many values of one object.
#pragma once

#include "python/make.hpp"
#include "python/state.hpp"

namespace grounding_fit::py {

// The values of an object under the keys from First to Last, in the order of the enumeration. They
// are read in one walk over its members: a step of it takes a third of the time of a look-up.
template <key First, key Last>
class object_values {
 public:
  object_values(const module_state& state, dict object)
      : state_(state), object_(object), by_walk_(object.size() <= 2 * k_count) {}

  // The value under a key, or an empty handle. It lives until code of the host's may run, or the
  // next one is asked for.
  handle operator[](key which) {
    if (!read_) read_all();
    return by_walk_ ? handle(values_[at(which)]) : look_up(which);
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
  // Whether no code of the host's ran when a value was asked for: only look-ups may run some.
  bool read_by_walk() const { return by_walk_; }

 private:
  static constexpr std::size_t at(key which) {
    return static_cast<std::size_t>(which) - static_cast<std::size_t>(First);
  }
  static constexpr std::size_t k_count = at(Last) + 1;

  [[gnu::noinline]] handle look_up(key which) {
    looked_up_ = read(state_, object_, which);
    return looked_up_;
  }

  [[gnu::noinline]] void read_all() {
    read_ = true;
    if (!by_walk_) return;
    values_ = {};
    dict_walk members(object_);
    for (handle name, value; members.next(name, value);) {
      if (const auto which = state_.key_of(name)) {
        if (First <= *which && *which <= Last) values_[at(*which)] = item_ref_to(value);
      } else if (!is_interned(name)) {  // so it may be equal to one of the keys
        by_walk_ = false;
        return;
      }
    }
  }

  const module_state& state_;
  dict object_;
  std::array<item_ref, k_count> values_;
  owned looked_up_;
  bool read_ = false;
  bool by_walk_;  // else by look-ups: it has many more members, or keys that are no interned texts
};

}  // namespace grounding_fit::py
