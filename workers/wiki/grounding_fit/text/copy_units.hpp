// Copying a text to units of another width.
#pragma once

#include <bit>

#include "text/text_view.hpp"

namespace grounding_fit {

// `to` has room for the text in units of `width` bytes, which hold its every code point. They may
// be narrower than the text's own: a slice keeps the width of the text that it was cut from.
void copy_units(void* to, unsigned width, text_view from) noexcept;

// Eight units, each widened to two bytes.
inline void widen_8(std::uint16_t* to, const std::uint8_t* from) noexcept {
  typedef std::uint8_t lanes __attribute__((vector_size(16)));
  constexpr lanes zero{};
  lanes units{};
  std::memcpy(&units, from, 8);
  if constexpr (std::endian::native == std::endian::little) {
    units = __builtin_shufflevector(units, zero, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7,
                                    23);
  } else {
    units = __builtin_shufflevector(zero, units, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7,
                                    23);
  }
  std::memcpy(to, &units, sizeof units);
}

// Four units, each widened to two bytes.
inline void widen_4(std::uint16_t* to, const std::uint8_t* from) noexcept {
  std::uint32_t units;
  std::memcpy(&units, from, sizeof units);
  std::uint64_t wide = (units | std::uint64_t{units} << 16) & 0x0000ffff0000ffff;
  wide = (wide | wide << 8) & 0x00ff00ff00ff00ff;
  std::memcpy(to, &wide, sizeof wide);
}

void widen_long(std::uint16_t* to, const std::uint8_t* from, std::size_t length) noexcept;
// So many units. Short ones in here, by copies of one size that may overlap, since most pieces of a
// text are short.
inline void widen(std::uint16_t* to, const std::uint8_t* from, std::size_t length) noexcept {
  if (length > 32) {
    widen_long(to, from, length);
  } else if (length >= 8) {
    widen_8(to, from);
    if (length > 16) {
      widen_8(to + 8, from + 8);
      widen_8(to + length - 16, from + length - 16);
    }
    widen_8(to + length - 8, from + length - 8);
  } else if (length >= 4) {
    widen_4(to, from);
    widen_4(to + length - 4, from + length - 4);
  } else {
    for (std::size_t i = 0; i < length; ++i) to[i] = from[i];
  }
}

}  // namespace grounding_fit
