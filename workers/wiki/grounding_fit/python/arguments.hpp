// The arguments of one call, in the order of a function's parameters.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "python/error.hpp"

namespace grounding_fit::py {

// Most parameters that a function or a record's constructor has.
inline constexpr std::size_t k_most_parameters = 5;

// The arguments of a call by position. Making it throws a TypeError for too many or too few of
// them, one that is given twice, and an unknown name.
class arguments {
 public:
  // `args` are the positional arguments and then the values of `keywords`, a tuple or null.
  arguments(std::span<const std::string_view> names, std::size_t required, PyObject* const* args,
            std::size_t positional, PyObject* keywords);
  // The same for a constructor: a tuple, and an object or null.
  arguments(std::span<const std::string_view> names, std::size_t required, PyObject* args,
            PyObject* keywords);
  // Empty when the argument is absent.
  handle operator[](std::size_t i) const { return values_[i]; }

 private:
  void set_positional(std::size_t i, handle value);
  void set_keyword(handle name, handle value);
  void check(std::size_t required) const;

  std::span<const std::string_view> names_;
  std::array<handle, k_most_parameters> values_;
};

}  // namespace grounding_fit::py
