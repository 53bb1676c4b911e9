// The three records that a host hands over, and typed access to what they hold.
#pragma once

#include "python/container.hpp"
#include "python/make.hpp"
#include "python/record.hpp"
#include "text/escape_growth.hpp"

namespace grounding_fit {

extern const py::record_shape k_fact_block;
extern const py::record_shape k_grounding_parts;
extern const py::record_shape k_section_budget;

// The fraction that is code's by default: of a token budget, and of a capped answer's room.
inline constexpr double k_code_floor = 0.35;

// Makes the three types and puts them into the module and its state.
void add_record_types(py::module_state& state, py::handle module);

// Each of these borrows its record, which whoever makes one keeps alive.

struct fact_block {
  py::handle record;

  enum field : std::size_t { text_at, seeds_at, name_at, key_at };
  py::handle text() const { return py::field_of(record, text_at); }
  py::handle seeds() const { return py::field_of(record, seeds_at); }
  py::handle name() const { return py::field_of(record, name_at); }
  py::handle key() const { return py::field_of(record, key_at); }
  // How a note names the block.
  py::owned label() const;
};

struct section_budget {
  py::handle record;

  enum field : std::size_t { readme_chars_at, first_at, shares_at, document_chars_at };
  py::handle first() const { return py::field_of(record, first_at); }
  py::handle shares() const { return py::field_of(record, shares_at); }
};

struct grounding_parts {
  py::handle record;

  enum field : std::size_t { prose_at, blocks_at, files_at, code_floor_at, budget_at };
  py::handle prose() const { return py::field_of(record, prose_at); }
  py::handle blocks() const { return py::field_of(record, blocks_at); }
  py::handle files() const { return py::field_of(record, files_at); }
  py::handle code_floor() const { return py::field_of(record, code_floor_at); }
  section_budget budget() const { return {py::field_of(record, budget_at)}; }
};

// The fact blocks of a grounding as they stood when taken.
class fact_blocks {
 public:
  fact_blocks(const py::module_state& state, grounding_parts parts);
  std::size_t size() const { return items_.size(); }
  fact_block operator[](std::size_t i) const { return {items_[i]}; }

 private:
  py::items items_;
};

// Between the texts of a grounding.
inline constexpr json_literal k_blank_line = "\n\n";

// Texts joined by blank lines: borrowed, and copied once, when all are there.
class joined_texts {
 public:
  explicit joined_texts(std::size_t count) { pieces_.reserve(2 * count); }
  void add(text_view text) {
    if (!pieces_.empty()) pieces_.push_back(k_blank_line);
    pieces_.push_back(text);
  }
  void add_to_last(text_view more) { pieces_.push_back(more); }
  py::owned text() const { return py::new_text(pieces_); }

 private:
  std::vector<text_view> pieces_;
};
// The text of every fact block that has one, joined so.
py::owned fact_text(const fact_blocks& prose);

}  // namespace grounding_fit
