// New Python values.
#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <vector>

#include "python/handle.hpp"
#include "text/text_view.hpp"

namespace grounding_fit::py {

owned new_text(std::span<const text_view> pieces);  // joined at their common width
owned new_text(text_view text);
owned empty_text();
owned new_list(std::vector<owned> values, std::vector<owned> more = {});
owned new_tuple(std::vector<owned> values);
owned new_integer(std::int64_t value);
owned new_wide_integer(__int128 value);
owned new_unsigned(std::uint64_t value);
owned new_real(double value);
owned new_dict();
inline void set_item(handle dict, handle key, handle value) {
  if (PyDict_SetItem(dict.get(), key.get(), value.get()) < 0) throw python_error_set{};
}
owned read_only_view(handle dict);  // a caller can still reach the dict through it
inline owned null() noexcept { return new_ref(Py_None); }

owned new_boolean(bool value);

// An object made member by member, as reports are: object_builder().add("kept", true).add("size",
// 3).
class object_builder {
 public:
  template <class Value>
  object_builder& add(std::string_view key, Value value) {
    set_item(made_, new_text(key), of(std::move(value)));
    return *this;
  }
  owned build() { return std::move(made_); }

 private:
  static owned of(owned value) { return value; }
  static owned of(std::same_as<bool> auto value) { return new_boolean(value); }
  static owned of(std::string_view text) { return new_text(text); }
  static owned of(__int128 value) { return new_wide_integer(value); }

  owned made_ = new_dict();
};

// A tuple of values that were made for it: tuple_of(new_integer(1), new_text("a")).
template <class... Values>
owned tuple_of(Values... values) {
  std::vector<owned> all;
  all.reserve(sizeof...(values));
  (all.push_back(std::move(values)), ...);
  return new_tuple(std::move(all));
}

}  // namespace grounding_fit::py
