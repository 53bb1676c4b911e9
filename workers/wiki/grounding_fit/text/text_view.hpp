// A text in memory: an address, a length in code points, and 1, 2 or 4 bytes for each.
//
//     text_view line = view.slice(0, view.find('\n'));
//
// A view owns nothing: whoever makes one keeps the text alive.
#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace grounding_fit {

// What a text's code points go up to: 0x7f, 0xff, 0xffff or 0x10ffff.
enum class text_range : std::uint64_t { ascii, latin_1, basic, full };

// Bytes of a unit that holds every code point of a range.
constexpr unsigned unit_width(text_range range) {
  return range <= text_range::latin_1 ? 1 : range == text_range::basic ? 2 : 4;
}

// Two words, so that it travels in registers.
class text_view {
 public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  constexpr text_view() : text_view(nullptr, 0, 1, text_range::ascii) {}
  // A part of a text may stay within a narrower range than the width of its units tells.
  constexpr text_view(const void* units, std::size_t length, unsigned width, text_range range)
      : units_(units),
        length_(length),
        width_log_(width / 2),
        range_(static_cast<std::uint64_t>(range)) {}
  // Literals of the module's own: ASCII, and the few that hold a dash.
  constexpr text_view(std::string_view ascii)
      : text_view(ascii.data(), ascii.size(), 1, text_range::ascii) {}
  constexpr text_view(const char* ascii) : text_view(std::string_view(ascii)) {}
  constexpr text_view(std::u16string_view wide)
      : text_view(wide.data(), wide.size(), 2, text_range::basic) {}

  const void* units() const { return units_; }
  constexpr std::size_t length() const { return length_; }
  bool empty() const { return length_ == 0; }
  unsigned width() const { return 1u << width_log_; }
  std::size_t bytes() const { return length() << width_log_; }
  text_range range() const { return static_cast<text_range>(range_); }

  char32_t operator[](std::size_t i) const {
    switch (width()) {
      case 1: return static_cast<const std::uint8_t*>(units_)[i];
      case 2: return static_cast<const std::uint16_t*>(units_)[i];
      default: return static_cast<const std::uint32_t*>(units_)[i];
    }
  }

  // Calls `body` with a typed pointer to the units.
  template <class Body>
  decltype(auto) with_units(Body&& body) const {
    switch (width()) {
      case 1: return body(static_cast<const std::uint8_t*>(units_));
      case 2: return body(static_cast<const std::uint16_t*>(units_));
      default: return body(static_cast<const std::uint32_t*>(units_));
    }
  }

  // Position of the first `wanted` at or after `from`, or npos. Reads at most the whole text.
  std::size_t find(char32_t wanted, std::size_t from = 0) const {
    return with_units([&](const auto* units) {
      const auto* found = std::find(units + std::min(from, length()), units + length(), wanted);
      return found == units + length() ? npos : static_cast<std::size_t>(found - units);
    });
  }

  // `count` code points from `from` on (both cut to the text). Reads them, to know their range.
  text_view slice(std::size_t from, std::size_t count = npos) const {
    from = std::min(from, length());
    count = std::min(count, length() - from);
    if (count == length()) return *this;
    return with_units([&](const auto* units) {
      char32_t seen = 0;
      for (std::size_t i = from; i < from + count; ++i) seen |= units[i];
      return text_view(units + from, count, width(), range_of(seen));
    });
  }

  bool starts_with(text_view prefix) const {
    return length() >= prefix.length() && compare_units(prefix, prefix.length()) == 0;
  }

  friend bool operator==(text_view a, text_view b) {
    return a.length() == b.length() && a.compare_units(b, b.length()) == 0;
  }

  // Order by code point, as Python sorts texts.
  friend std::strong_ordering operator<=>(text_view a, text_view b) {
    const int order = a.compare_units(b, std::min(a.length(), b.length()));
    return order != 0 ? order <=> 0 : a.length() <=> b.length();
  }

 private:
  static constexpr text_range range_of(char32_t seen) {
    return seen < 0x80      ? text_range::ascii
           : seen < 0x100   ? text_range::latin_1
           : seen < 0x10000 ? text_range::basic
                            : text_range::full;
  }

  int compare_units(text_view other, std::size_t count) const {
    if (width() == 1 && other.width() == 1) {
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

  const void* units_;
  std::uint64_t length_ : 60, width_log_ : 2, range_ : 2;
};

}  // namespace grounding_fit
