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

// A text of the module's own, sized by the compiler.
class json_literal {
 public:
  consteval json_literal(const char* ascii) : text_(ascii) {
    for (; *ascii != 0; ++ascii) size_ += 1 + growth_of(static_cast<unsigned char>(*ascii));
  }
  consteval json_literal(const char16_t* wide) : text_(std::u16string_view(wide)) {
    for (; *wide != 0; ++wide) size_ += 1 + growth_of(*wide);
  }
  constexpr std::int64_t json_size() const { return size_; }  // inside a JSON string
  constexpr std::size_t length() const { return text_.length(); }
  constexpr operator text_view() const { return text_; }

 private:
  text_view text_;
  std::int64_t size_ = 0;
};

}  // namespace grounding_fit
