// The three records that a host hands over, and typed looks at what they hold.
#pragma once

#include "host/host.hpp"

namespace grounding_fit {

extern const host::record_shape k_fact_block;
extern const host::record_shape k_grounding_parts;
extern const host::record_shape k_section_budget;

// The share of the room, or of a token budget, that code can count on where a page says nothing.
inline constexpr double k_code_floor = 0.35;

// Makes the three types and puts them into the module and its state.
void add_record_types(host::module_state& state, host::handle module);

// The typed looks are borrowed: whoever takes one keeps the record alive.

struct fact_block {
  host::handle record;

  enum field : std::size_t { text_at, seeds_at, name_at, key_at };
  host::handle text() const { return host::field_of(record, text_at); }
  host::handle seeds() const { return host::field_of(record, seeds_at); }
  host::handle name() const { return host::field_of(record, name_at); }
  host::handle key() const { return host::field_of(record, key_at); }
  // How a note names the block.
  host::owned label() const;
};

struct section_budget {
  host::handle record;

  enum field : std::size_t { readme_chars_at, first_at, shares_at, document_chars_at };
  host::handle first() const { return host::field_of(record, first_at); }
  host::handle shares() const { return host::field_of(record, shares_at); }
};

struct grounding_parts {
  host::handle record;

  enum field : std::size_t { prose_at, blocks_at, files_at, code_floor_at, budget_at };
  host::handle prose() const { return host::field_of(record, prose_at); }
  host::handle blocks() const { return host::field_of(record, blocks_at); }
  host::handle files() const { return host::field_of(record, files_at); }
  host::handle code_floor() const { return host::field_of(record, code_floor_at); }
  section_budget budget() const { return {host::field_of(record, budget_at)}; }
};

// The fact blocks of a grounding as they stood when taken.
class fact_blocks {
 public:
  fact_blocks(const host::module_state& state, grounding_parts parts);
  std::size_t size() const { return items_.size(); }
  fact_block operator[](std::size_t i) const { return {items_[i]}; }

 private:
  host::items items_;
};

host::owned joined_by_blank_lines(std::span<const text_view> texts);
// The text of every fact block that has one, joined so.
host::owned fact_text(const fact_blocks& prose);

}  // namespace grounding_fit
