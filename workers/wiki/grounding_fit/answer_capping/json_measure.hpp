// The length of a value's JSON text, in code points, without writing it.
//
// The text form is fixed: ", " and ": " as separators, members in insertion order, nothing but the
// double quote, the backslash and the control characters escaped. Every size of the agent path is
// one of these, or a sum of them.
#pragma once

#include "python/container.hpp"
#include "text/escape_growth.hpp"

namespace grounding_fit {

// An exact size, or a lower bound that reads no text and no digits, since a text takes at least its
// own length. Both refuse the same values.
enum class precision { exact, bound };

// Of a text as a JSON string.
inline std::int64_t json_string_size(text_view text) { return 2 + escaped_length(text); }
inline std::int64_t json_string_size(py::handle text, precision how) {
  if (how == precision::bound) return 2 + static_cast<std::int64_t>(py::length_of(text));
  return json_string_size(py::view_of(text));
}
// Between its quotes, measured exactly only once; `known` is below 0 until then.
inline std::int64_t inner_size_once(text_view text, precision how, std::int64_t& known) {
  if (known >= 0) return known;
  if (how == precision::bound) return static_cast<std::int64_t>(text.length());
  return known = escaped_length(text);
}
// A member of an object, the ": " between key and value included.
inline std::int64_t member_size(text_view key, std::int64_t value) {
  return json_string_size(key) + 2 + value;
}

// A size at or below the limit is exact. Above it, any lower bound that is also above the limit
// will do, so that a size can say no before a text is read.
using size_limit = __int128;
constexpr size_limit k_no_limit = size_limit(1) << 126;
template <class Size>
std::int64_t size_up_to(size_limit limit, Size&& size) {
  if (limit < k_no_limit) {
    if (const std::int64_t bound = size(precision::bound); bound > limit) return bound;
  }
  return size(precision::exact);
}

// Measures any number of values. The caller keeps each alive while it is measured.
class json_meter {
 public:
  // TypeError for what JSON has no form for, keys that are no strings among it; RecursionError for
  // containers nested too deep or in a cycle.
  std::int64_t size_of(py::handle value, precision how = precision::exact);
  // A member of an object, the ": " between key and value included.
  std::int64_t size_of_member(std::size_t position, py::handle key, py::handle value,
                              precision how);

 private:
  std::int64_t size_of_item(py::handle value, precision how);
  std::int64_t size_of_array(py::owned array, precision how);
  std::int64_t size_of_object(py::owned object, precision how);
  std::int64_t size_of_key(std::size_t position, py::handle key) {
    const sized_key& last = keys_[position % std::size(keys_)];
    return last.key.is(key) ? last.size : size_of_new_key(position, key);
  }
  std::int64_t size_of_new_key(std::size_t position, py::handle key);

  // Objects of one kind have the same keys in the same order, so the last key of each position is
  // remembered by address, and kept alive.
  struct sized_key {
    py::owned key;
    std::int64_t size;
  };
  sized_key keys_[8] = {};
  int levels_left_ = py::deepest_nesting();
};

// Sizes that have been added up, and how many there were: what an array or a joined text takes.
struct tally {
  std::int64_t size = 0;
  std::int64_t count = 0;

  void add(std::int64_t one) {
    size += one;
    ++count;
  }
  tally& operator+=(tally more) {
    size += more.size;
    count += more.count;
    return *this;
  }
  // With a separator of that size between each two.
  std::int64_t joined(std::int64_t separator) const {
    return size + separator * (count > 0 ? count - 1 : 0);
  }
  // As the items of an array or the members of an object.
  std::int64_t bracketed() const { return 2 + joined(2); }
};

}  // namespace grounding_fit
