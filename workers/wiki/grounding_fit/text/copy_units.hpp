// Copying a text to units of another width.
#pragma once

#include "text/text_view.hpp"

namespace grounding_fit {

// `to` has room for the text in units of `width` bytes, which hold its every code point. A part of
// a text may be narrower than the text it is a part of, so units go both ways.
void copy_other_units(void* to, unsigned width, text_view from) noexcept;

// A vector of units, each widened to two bytes.
template <class Narrow, class Wide>
void widen_vector(std::uint16_t* to, const std::uint8_t* from) noexcept {
  Narrow units;
  std::memcpy(&units, from, sizeof units);
  const Wide widened = __builtin_convertvector(units, Wide);
  std::memcpy(to, &widened, sizeof widened);
}
typedef std::uint8_t narrow_4 __attribute__((vector_size(4)));
typedef std::uint8_t narrow_8 __attribute__((vector_size(8)));
typedef std::uint16_t wide_4 __attribute__((vector_size(8)));
typedef std::uint16_t wide_8 __attribute__((vector_size(16)));

// Short texts in here, as two copies of one size that may overlap.
inline void copy_units(void* to, unsigned width, text_view from) noexcept {
  const std::size_t length = from.length();
  if (width != 2 || from.width() != 1 || length > 16) return copy_other_units(to, width, from);
  auto* wide = static_cast<std::uint16_t*>(to);
  const auto* narrow = static_cast<const std::uint8_t*>(from.units());
  if (length >= 8) {
    widen_vector<narrow_8, wide_8>(wide, narrow);
    widen_vector<narrow_8, wide_8>(wide + length - 8, narrow + length - 8);
  } else if (length >= 4) {
    widen_vector<narrow_4, wide_4>(wide, narrow);
    widen_vector<narrow_4, wide_4>(wide + length - 4, narrow + length - 4);
  } else {
    for (std::size_t i = 0; i < length; ++i) wide[i] = narrow[i];
  }
}

}  // namespace grounding_fit
