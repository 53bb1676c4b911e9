// The length of a value's JSON text, in code points, without writing it.
//
// The text form is fixed: ", " and ": " as separators, members in insertion order, nothing but the
// double quote, the backslash and the control characters escaped. Every size of the agent path is
// one of these, or a sum of them.
#pragma once

#include "host/host.hpp"

namespace grounding_fit {

// How closely a size is taken: to the character, or as a lower bound for which no text and no digit
// is read, since a text takes at least its own length. Both refuse the same values.
enum class extent { exact, least };

template <extent Extent>
std::int64_t inner_size(text_view text) {
  return Extent == extent::exact ? escaped_length(text) : static_cast<std::int64_t>(text.length());
}
template <extent Extent = extent::exact>
std::int64_t json_string_size(text_view text) {
  return 2 + inner_size<Extent>(text);
}
// A member of an object, the ": " between key and value included.
inline std::int64_t member_size(text_view key, std::int64_t value) {
  return json_string_size(key) + 2 + value;
}

// Measures any number of values. The caller keeps each alive while it is measured.
class json_meter {
 public:
  // TypeError for what JSON has no form for, keys that are no strings among it; RecursionError for
  // containers nested too deep or in a cycle.
  template <extent Extent = extent::exact>
  std::int64_t size_of(host::handle value);
  // A member of an object, the ": " between key and value included.
  template <extent Extent = extent::exact>
  std::int64_t size_of_member(std::size_t position, host::handle key, host::handle value);

 private:
  template <extent Extent>
  std::int64_t size_of_array(host::owned array);
  template <extent Extent>
  std::int64_t size_of_object(host::owned object);
  std::int64_t size_of_key(std::size_t position, host::handle key) {
    const sized_key& last = keys_[position % std::size(keys_)];
    return last.key.is(key) ? last.size : size_of_new_key(position, key);
  }
  std::int64_t size_of_new_key(std::size_t position, host::handle key);

  // Objects of one kind have the same keys in the same order, so the last key of each position is
  // remembered by address, and kept alive.
  struct sized_key {
    host::owned key;
    std::int64_t size;
  };
  sized_key keys_[8] = {};
  int levels_left_ = host::deepest_nesting();
};

// Sizes that have been added up, and how many there were: what an array or a joined text takes.
struct tally {
  std::int64_t size = 0;
  std::int64_t count = 0;

  void add(std::int64_t one) {
    size += one;
    ++count;
  }
  friend tally operator+(tally a, tally b) { return {a.size + b.size, a.count + b.count}; }
  // With a separator of that size between each two.
  std::int64_t joined(std::int64_t separator) const {
    return size + separator * (count > 0 ? count - 1 : 0);
  }
  // As the items of an array or the members of an object.
  std::int64_t bracketed() const { return 2 + joined(2); }
};

}  // namespace grounding_fit
