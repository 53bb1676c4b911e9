// How many characters JSON escaping adds to a text, counted at the speed of memory.
//
//     length of the JSON string == 2 + escaped_length(text)
//
// The tests hold every kernel against growth_of, which is the definition.
#pragma once

#include "text/text_view.hpp"

namespace grounding_fit {

// Characters that escaping adds to one code point: a backslash, or the five more of \u00XX.
constexpr unsigned growth_of(char32_t c) {
  if (c == U'"' || c == U'\\') return 1;
  if (c >= 0x20) return 0;
  return c >= 0x08 && c <= 0x0d && c != 0x0b ? 1 : 5;  // \b \t \n \f \r have a short form
}

// Characters that escaping adds to the whole text. Reads it once.
std::size_t escape_growth(text_view text) noexcept;

// Characters that the text takes inside a JSON string, the quotes not counted.
inline std::int64_t escaped_length(text_view text) noexcept {
  return static_cast<std::int64_t>(text.length() + escape_growth(text));
}

}  // namespace grounding_fit
