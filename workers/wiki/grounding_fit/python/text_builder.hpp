// The pieces of a text, before it is made.
//
//     text_builder line;
//     line.add("L");
//     line.add_number(number);
//     line.text();   // the text, made once at its final width
#pragma once

#include <array>
#include <memory_resource>
#include <vector>

#include "python/integer.hpp"
#include "python/make.hpp"

namespace grounding_fit {

class text_builder {
 public:
  text_builder() {
    views_.reserve(k_views);
    held_.reserve(k_held);
  }
  text_builder(const text_builder&) = delete;

  // Makes room for so many at once: growing step by step would take three times as much.
  void expect(std::size_t count) { views_.reserve(count); }

  // A literal, or a text that the caller keeps alive as long as the builder.
  void add(text_view text) {
    if (!text.empty()) views_.push_back(text);
  }
  // The text form of a value, which is kept alive here.
  void add_value(py::owned value);
  // A string and nothing else, kept alive here.
  void add_string(py::owned value);
  // Keeps alive a text that a piece is a part of.
  void keep(py::owned text) { held_.push_back(std::move(text)); }
  void add_number(const py::integer& number);
  void add_number(__int128 number);

  std::span<const text_view> views() const { return views_; }
  bool empty() const { return views_.empty(); }
  py::owned text() const { return py::new_text(views_); }

 private:
  // Few texts have more pieces, so that most are put together without asking for memory.
  static constexpr std::size_t k_views = 96;
  static constexpr std::size_t k_held = 32;

  std::array<std::byte, k_views * sizeof(text_view) + k_held * sizeof(py::owned) + 512> room_;
  std::pmr::monotonic_buffer_resource pool_{room_.data(), room_.size()};
  std::pmr::vector<text_view> views_{&pool_};
  std::pmr::vector<py::owned> held_{&pool_};
};

}  // namespace grounding_fit
