// Texts as the host keeps them: an address, a length in code points and 1, 2 or 4 bytes for each.
//
//     text_view line = view.slice(0, view.find('\n'));
//
// A view owns nothing: whoever makes one keeps the text alive. Nothing here knows of the host.
#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace grounding_fit {

class text_view {
 public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  constexpr text_view() = default;
  constexpr text_view(const void* units, std::size_t length, unsigned width, char32_t max_char)
      : units_(units), length_(length), max_char_(max_char), width_(width) {}
  // Literals of the module's own: ASCII, and the few that hold a dash.
  constexpr text_view(std::string_view ascii) : text_view(ascii.data(), ascii.size(), 1, 0x7f) {}
  constexpr text_view(const char* ascii) : text_view(std::string_view(ascii)) {}
  constexpr text_view(std::u16string_view wide) : text_view(wide.data(), wide.size(), 2, 0xffff) {}

  const void* units() const { return units_; }
  std::size_t length() const { return length_; }
  bool empty() const { return length_ == 0; }
  unsigned width() const { return width_; }
  std::size_t bytes() const { return length_ * width_; }
  // The largest code point of the narrowest form the text fits: 0x7f, 0xff, 0xffff or 0x10ffff.
  char32_t max_char() const { return max_char_; }

  char32_t operator[](std::size_t i) const {
    switch (width_) {
      case 1: return static_cast<const std::uint8_t*>(units_)[i];
      case 2: return static_cast<const std::uint16_t*>(units_)[i];
      default: return static_cast<const std::uint32_t*>(units_)[i];
    }
  }

  // Calls `body` with a typed pointer to the units.
  template <class Body>
  decltype(auto) with_units(Body&& body) const {
    switch (width_) {
      case 1: return body(static_cast<const std::uint8_t*>(units_));
      case 2: return body(static_cast<const std::uint16_t*>(units_));
      default: return body(static_cast<const std::uint32_t*>(units_));
    }
  }

  // Position of the first `wanted` at or after `from`, or npos. Reads at most the whole text.
  std::size_t find(char32_t wanted, std::size_t from = 0) const {
    return with_units([&](const auto* units) {
      const auto* found = std::find(units + std::min(from, length_), units + length_, wanted);
      return found == units + length_ ? npos : static_cast<std::size_t>(found - units);
    });
  }

  // `length` code points from `from` on (both cut to the text). Reads them, to know their range.
  text_view slice(std::size_t from, std::size_t length = npos) const {
    from = std::min(from, length_);
    length = std::min(length, length_ - from);
    if (length == length_) return *this;
    return with_units([&](const auto* units) {
      char32_t seen = 0;
      for (std::size_t i = from; i < from + length; ++i) seen |= units[i];
      return text_view(units + from, length, width_, narrowest(seen));
    });
  }

  bool starts_with(text_view prefix) const {
    return length_ >= prefix.length_ && compare_units(prefix, prefix.length_) == 0;
  }

  friend bool operator==(text_view a, text_view b) {
    return a.length_ == b.length_ && a.compare_units(b, b.length_) == 0;
  }

  // Order by code point, as the host sorts its texts.
  friend std::strong_ordering operator<=>(text_view a, text_view b) {
    const int order = a.compare_units(b, std::min(a.length_, b.length_));
    return order != 0 ? order <=> 0 : a.length_ <=> b.length_;
  }

 private:
  static constexpr char32_t narrowest(char32_t seen) {
    return seen < 0x80 ? 0x7f : seen < 0x100 ? 0xff : seen < 0x10000 ? 0xffff : 0x10ffff;
  }

  int compare_units(text_view other, std::size_t count) const {
    if (width_ == 1 && other.width_ == 1) {
      return count == 0 ? 0 : std::memcmp(units_, other.units_, count);
    }
    return with_units([&](const auto* a) {
      return other.with_units([&](const auto* b) {
        for (std::size_t i = 0; i < count; ++i) {
          if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
        }
        return 0;
      });
    });
  }

  const void* units_ = nullptr;
  std::size_t length_ = 0;
  char32_t max_char_ = 0x7f;
  unsigned width_ = 1;
};

}  // namespace grounding_fit
