#include "python/text_builder.hpp"

#include <charconv>
#include <cstring>
#include <vector>

#include "python/value.hpp"

namespace grounding_fit {

using py::handle;
using py::kind;
using py::owned;

void text_builder::add_any(text_view piece) {
  if (piece.range() > range_) widen(piece.range());
  reserve(piece.length());
  copy_units(end_, width_, piece);
  const std::size_t bytes = piece.length() * width_;
  end_ += bytes;
  room_ -= bytes;
}

inline bool text_builder::add_plain(handle value) {
  if (!py::is_plain_text(value)) return false;
  const std::uint8_t* ascii = py::ascii_units_of(value);
  return ascii != nullptr && add_short(ascii, py::length_of(value));
}

void text_builder::add_string(handle value) {
  if (!add_plain(value)) add_any(py::expect_text(value));
}

void text_builder::add_value(handle value) {
  if (!add_plain(value)) add_any_value(value);
}

void text_builder::add_any_value(handle value) {
  switch (py::kind_of(value)) {
    case kind::text: return add(py::view_of(value));
    case kind::integer:
      if (const auto small = py::small_integer(value)) return add_number(*small);
      return add_number(py::integer::of(py::new_ref(value)));
    default: {
      const owned form = py::text_form(py::new_ref(value));
      add(py::view_of(form));
    }
  }
}

void text_builder::add_number(const py::integer& number) {
  if (const auto small = number.small()) return add_number(*small);
  const owned digits = py::text_form(number.object());
  add(py::view_of(digits));
}

void text_builder::add_number(std::int64_t number) {
  char digits[20];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void text_builder::add_wide_number(__int128 number) {
  const auto small = static_cast<std::int64_t>(number);
  if (small == number) return add_number(small);
  add_number(py::integer::of(py::new_wide_integer(number)));
}

void text_builder::widen(text_range range) {
  const unsigned before = std::exchange(width_, unit_width(range));
  range_ = range;
  if (width_ == before) return;
  const std::size_t length = used() / before;
  const std::vector<std::byte> narrow(start_, end_);
  room_ += used();
  end_ = start_;
  add(text_view(narrow.data(), length, before, text_range::ascii));
}

void text_builder::grow(std::size_t bytes) {
  const std::size_t size = std::max(2 * (used() + room_), used() + bytes);
  auto room = std::make_unique_for_overwrite<std::byte[]>(size);
  std::memcpy(room.get(), start_, used());
  room_ = size - used();
  end_ = room.get() + used();
  more_ = std::move(room);
  start_ = more_.get();
}

}  // namespace grounding_fit
