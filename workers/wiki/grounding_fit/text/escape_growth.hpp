// How many characters JSON escaping adds to a text, counted at the speed of memory.
//
//     length of the JSON string == 2 + escaped_length(text)
//
// Several kernels give the same count. The best that the processor runs is chosen once, when the
// module is loaded. The tests hold every kernel against growth_of, which is the definition.
#pragma once

#include <cstdint>
#include <span>

#include "text/text_view.hpp"

namespace grounding_fit {

// Characters that escaping adds to one code point: a backslash, or the five more of \u00XX.
constexpr unsigned growth_of(char32_t c) {
  if (c == U'"' || c == U'\\') return 1;
  if (c >= 0x20) return 0;
  return c >= 0x08 && c <= 0x0d && c != 0x0b ? 1 : 5;  // \b \t \n \f \r have a short form
}

struct escape_kernel {
  const char* name;
  std::size_t (*of_1)(const std::uint8_t* units, std::size_t length) noexcept;
  std::size_t (*of_2)(const std::uint16_t* units, std::size_t length) noexcept;
  std::size_t (*of_4)(const std::uint32_t* units, std::size_t length) noexcept;
};

// The kernels that this processor runs, best first.
std::span<const escape_kernel> escape_kernels() noexcept;

// Characters that escaping adds to the whole text. Reads it once.
std::size_t escape_growth(text_view text) noexcept;

// Characters that the text takes inside a JSON string, the quotes not counted.
inline std::int64_t escaped_length(text_view text) noexcept {
  return static_cast<std::int64_t>(text.length() + escape_growth(text));
}

}  // namespace grounding_fit
