#include "answer_capping/page_symbols.hpp"

#include "answer_capping/answer_description.hpp"

namespace grounding_fit {

page_symbols::page_symbols(const host::module_state& state, std::vector<symbol_block> blocks,
                           std::size_t within_tokens)
    : state_(state),
      count_(blocks.size()),
      within_tokens_(within_tokens),
      norm_(state, path_names::asking::once_per_text) {
  const shown_code most = with_window(within_tokens);  // no answer shows more than these
  symbols_.resize(most.bodies + most.listed);
  for (std::size_t i = 0; i < symbols_.size(); ++i) symbols_[i].block = std::move(blocks[i]);
}

const answer_size& page_symbols::size(shown_code code) {
  if (sized_ == code) return size_;
  read(code);
  while (bodies_.size() <= code.bodies) {
    answer_size next = bodies_.back();
    describe_body(next, *this, bodies_.size() - 1);
    bodies_.push_back(next);
  }
  size_ = bodies_[code.bodies];
  describe_listed(size_, *this, code);
  sized_ = code;
  return size_;
}

answer_size_to<extent::least> page_symbols::least(shown_code code) {
  if (sized_ == code) return size_;
  read(code);
  const std::size_t counted = std::min(bodies_.size() - 1, code.bodies);
  answer_size_to<extent::least> least = bodies_[counted];
  for (std::size_t i = counted; i < code.bodies; ++i) describe_body(least, *this, i);
  describe_listed(least, *this, code);
  return least;
}

// Each step may call the host or refuse a value, so they keep the order of the rules: the lines
// listed, the names shown, the seeds of the bodies, and only then sizes.
void page_symbols::read(shown_code code) {
  const std::size_t shown = code.bodies + code.listed;
  for (std::size_t i = code.bodies; i < shown; ++i) read_line_of(i);
  for (; names_read_ < shown; ++names_read_) {
    symbol& each = symbols_[names_read_];
    each.name = host::within(record_place(names_read_),
                             [&] { return read_symbol_name(state_, each.block.record); });
    if (each.name) each.name_size = json_string_size(host::view_of(each.name));
  }
  for (; lines_read_ < code.bodies; ++lines_read_) {
    symbol& each = symbols_[lines_read_];
    each.lines = host::within(record_place(lines_read_),
                              [&] { return read_symbol_lines(state_, each.block.record, norm_); });
  }
}

void page_symbols::read_line_of(std::size_t i) {
  symbol& each = symbols_[i];
  if (each.line_size >= 0) return;
  each.line =
      host::within(record_place(i), [&] { return listed_line(state_, each.block.record, norm_); });
  each.line_size = each.line.escaped_length();
}

}  // namespace grounding_fit
