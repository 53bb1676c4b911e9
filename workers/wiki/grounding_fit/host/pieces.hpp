// A text in pieces, before it is made.
//
//     pieces line;
//     line.add("L");
//     line.add_number(number);
//     line.text();   // the text, made once at its final width
#pragma once

#include <array>
#include <memory_resource>
#include <vector>

#include "host/integer.hpp"
#include "host/make.hpp"

namespace grounding_fit {

class pieces {
 public:
  pieces() {
    views_.reserve(k_views);
    held_.reserve(k_held);
  }
  pieces(const pieces&) = delete;

  // Makes room for so many at once: growing step by step would take three times as much.
  void expect(std::size_t count) { views_.reserve(count); }

  // Literals, and texts that the caller keeps alive as long as the pieces.
  void add(text_view text) {
    if (!text.empty()) views_.push_back(text);
  }
  // The text form of a value, which is kept alive here.
  void add_value(host::owned value);
  // A string and nothing else, kept alive here.
  void add_string(host::owned value);
  // Keeps alive a text that a piece is a part of.
  void keep(host::owned text) { held_.push_back(std::move(text)); }
  void add_number(const host::integer& number);
  void add_number(__int128 number);

  std::span<const text_view> views() const { return views_; }
  bool empty() const { return views_.empty(); }
  host::owned text() const { return host::new_text(views_); }

 private:
  // Few texts have more pieces, so that most are put together without asking for memory.
  static constexpr std::size_t k_views = 96;
  static constexpr std::size_t k_held = 32;

  std::array<std::byte, k_views * sizeof(text_view) + k_held * sizeof(host::owned) + 512> room_;
  std::pmr::monotonic_buffer_resource pool_{room_.data(), room_.size()};
  std::pmr::vector<text_view> views_{&pool_};
  std::pmr::vector<host::owned> held_{&pool_};
};

// A text of the module's own, sized by the compiler.
class literal {
 public:
  consteval literal(const char* ascii) : text_(ascii) {
    for (; *ascii != 0; ++ascii) size_ += 1 + growth_of(static_cast<unsigned char>(*ascii));
  }
  consteval literal(const char16_t* wide) : text_(std::u16string_view(wide)) {
    for (; *wide != 0; ++wide) size_ += 1 + growth_of(*wide);
  }
  constexpr std::int64_t size() const { return size_; }  // inside a JSON string
  constexpr text_view text() const { return text_; }
  void write(pieces& to) const { to.add(text_); }

 private:
  text_view text_;
  std::int64_t size_ = 0;
};

}  // namespace grounding_fit
