#include "python/text_builder.hpp"

#include <cstring>
#include <vector>

#include "python/value.hpp"

namespace grounding_fit {

using py::handle;
using py::kind;
using py::owned;

void text_builder::add_value(handle value) {
  switch (py::kind_of(value)) {
    case kind::text: return add(py::view_of(value));
    case kind::integer: return add_number(py::integer::of(py::new_ref(value)));
    default: {
      const owned form = py::text_form(py::new_ref(value));
      add(py::view_of(form));
    }
  }
}

void text_builder::add_string(handle value) { add(py::expect_text(value)); }

void text_builder::add_number(const py::integer& number) {
  if (const auto small = number.small()) return add_number(__int128(*small));
  const owned digits = py::text_form(number.object());
  add(py::view_of(digits));
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
  add(std::string_view(first, static_cast<std::size_t>(end - first)));
}

void text_builder::widen(text_range range) {
  const unsigned before = width();
  range_ = range;
  if (width() == before) return;
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
