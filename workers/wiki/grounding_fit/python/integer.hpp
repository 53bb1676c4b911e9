// Integers of any size, and the length of their digits.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "python/error.hpp"

namespace grounding_fit::py {

// Two are compared as 64 bits unless both lie at the same end of them, or beyond. object() gives
// the plain integer back that one was read from.
class integer {
 public:
  integer(std::int64_t value = 0) : small_(value) {}  // neither end of 64 bits
  static integer of(owned integer_or_boolean) {
    std::int64_t value = 0;
    if (!version::small_integer(integer_or_boolean.get(), value)) {
      return of_large(integer_or_boolean);
    }
    integer result(value);
    if (PyLong_CheckExact(integer_or_boolean.get())) result.object_ = std::move(integer_or_boolean);
    return result;
  }
  static integer of(double finite);     // truncated toward zero
  static integer of_text(handle text);  // as Python's int(text); ValueError for anything else

  bool operator>(const integer& other) const {
    if (small_ == other.small_ && big()) return is_greater(other);
    return small_ > other.small_;
  }
  std::size_t length() const;  // of its decimal digits and sign
  owned object() const { return object_ ? new_ref(object_) : new_object(); }
  void expect_writable() const;  // ValueError beyond Python's digit limit
  std::optional<std::int64_t> small() const { return big() ? std::nullopt : std::optional(small_); }

 private:
  owned new_object() const;
  static integer of_large(handle integer_or_boolean);
  using limits = std::numeric_limits<std::int64_t>;
  bool big() const { return small_ == limits::min() || small_ == limits::max(); }
  bool is_greater(const integer& other) const;  // of two big ones on the same side

  std::int64_t small_;  // the least and the greatest also stand for all beyond them
  owned object_;        // a big one has it
};

// The value of an integer, or of a boolean, that is small, as nearly all are.
inline std::optional<std::int64_t> small_integer(handle integer) noexcept {
  std::int64_t value = 0;
  return version::small_integer(integer.get(), value) ? std::optional(value) : std::nullopt;
}

// The value of an integer that fits 64 bits.
std::optional<std::int64_t> int64_of(handle integer) noexcept;

// Length of an integer's digits and sign, the same in JSON and in a text.
std::size_t integer_length(handle integer);  // ValueError beyond Python's digit limit

}  // namespace grounding_fit::py
