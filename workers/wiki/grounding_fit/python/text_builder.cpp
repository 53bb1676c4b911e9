#include "python/text_builder.hpp"

#include <cstring>

#include "python/value.hpp"

namespace grounding_fit {

using py::kind;
using py::owned;

void text_builder::add_value(owned value) {
  switch (py::kind_of(value)) {
    case kind::text: break;
    case kind::integer: return add_number(py::integer::of(py::new_ref(value)));
    default: value = py::text_form(std::move(value));
  }
  add(py::view_of(value));
  held_.push_back(std::move(value));
}

void text_builder::add_string(owned value) {
  add(py::expect_text(value));
  held_.push_back(std::move(value));
}

void text_builder::add_number(const py::integer& number) {
  if (const auto small = number.small()) return add_number(__int128(*small));
  add_value(py::text_form(number.object()));
}

void text_builder::add_number(__int128 number) {
  constexpr std::size_t longest = 40;  // digits and sign of 128 bits
  char digits[longest];
  char* const end = digits + longest;
  char* first = end;
  auto wide = number < 0 ? 0 - static_cast<unsigned __int128>(number)
                         : static_cast<unsigned __int128>(number);
  for (; wide >> 64 != 0; wide /= 10) {
    *--first = static_cast<char>('0' + static_cast<int>(wide % 10));
  }
  auto narrow = static_cast<std::uint64_t>(wide);  // nearly every number, and divided much faster
  do {
    *--first = static_cast<char>('0' + narrow % 10);
    narrow /= 10;
  } while (narrow != 0);
  if (number < 0) *--first = '-';
  const auto length = static_cast<std::size_t>(end - first);
  auto* kept = static_cast<char*>(std::memcpy(pool_.allocate(length, 1), first, length));
  add(std::string_view(kept, length));
}

}  // namespace grounding_fit
