// A text put together piece by piece, in the width that its widest piece so far needs.
//
//     text_builder line;
//     line.add("L");
//     line.add_number(number);
//     line.text();   // a str
//
// A piece is copied when it is added, so it need not be kept alive. Large texts are better joined
// by new_text(), which copies their pieces once.
#pragma once

#include <memory>

#include "python/integer.hpp"
#include "python/make.hpp"
#include "text/copy_units.hpp"

namespace grounding_fit {

class text_builder {
 public:
  // `least` is a range that some piece will need, so that nothing is widened on the way.
  explicit text_builder(text_range least = text_range::ascii)
      : width_(unit_width(least)), range_(least) {}
  text_builder(const text_builder&) = delete;

  void add(text_view piece) {
    const auto* units = static_cast<const std::uint8_t*>(piece.units());
    if (piece.width() != 1 || !add_narrow(units, piece.length())) add_any(piece);
  }
  // A text of the module's own, in the width of most that are built.
  template <std::size_t Size>
  void add(const char16_t (&literal)[Size]) {
    constexpr std::size_t bytes = 2 * (Size - 1);  // without the mark of its end
    if (width_ != 2 || bytes > room_) return add_any(std::u16string_view(literal, Size - 1));
    std::memcpy(end_, literal, bytes);
    end_ += bytes;
    room_ -= bytes;
  }
  // The text form of a value.
  void add_value(py::handle value);
  // A string and nothing else.
  void add_string(py::handle value);
  void add_number(const py::integer& number);
  void add_number(std::int64_t number);
  void add_wide_number(__int128 number);

  // Makes room for so many code points at once.
  void reserve(std::size_t length) {
    if (length * width_ > room_) grow(length * width_);
  }
  bool empty() const { return end_ == start_; }
  // What was added so far; lives until more is.
  text_view view() const { return {start_, used() / width_, width_, range_}; }
  py::owned text() const { return py::new_text(view()); }

 private:
  // Bytes inside of the object: most texts fit, and need no memory of their own before text().
  static constexpr std::size_t k_first_room = 4096;

  // Adds what most pieces are, units of one byte to a text of two bytes, where that has room.
  bool add_narrow(const std::uint8_t* units, std::size_t length) {
    const std::size_t bytes = 2 * length;
    if (width_ != 2 || bytes > room_) return false;
    grounding_fit::widen(reinterpret_cast<std::uint16_t*>(end_), units, length);
    end_ += bytes;
    room_ -= bytes;
    return true;
  }
  bool add_plain(py::handle value);
  [[gnu::noinline]] void add_any(text_view piece);
  [[gnu::noinline]] void add_any_value(py::handle value);
  std::size_t used() const { return static_cast<std::size_t>(end_ - start_); }
  void widen(text_range range);
  void grow(std::size_t bytes);

  alignas(std::uint32_t) std::byte first_[k_first_room];
  std::unique_ptr<std::byte[]> more_;  // in place of the first room, once that is full
  std::byte* start_ = first_;
  std::byte* end_ = first_;
  std::size_t room_ = k_first_room;  // bytes left after the end
  unsigned width_;                   // bytes of a unit
  text_range range_;
};

}  // namespace grounding_fit
