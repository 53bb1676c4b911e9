// The symbol blocks of a page, as far as an answer may show them.
#pragma once

#include <optional>

#include "answer_capping/answer_pieces.hpp"
#include "token_fitting/token_fitting.hpp"

namespace grounding_fit {

// How many symbol blocks, best first, an answer shows with their body, and how many of the next
// ones by a line.
struct shown_code {
  std::size_t bodies = 0, listed = 0;
  friend bool operator==(const shown_code&, const shown_code&) = default;
};

// Each value of a record is read and sized once, when an answer first shows it, so that an error
// comes when the rules would raise it. Asks the host's _norm once for each text.
class page_symbols {
 public:
  // `within_tokens` are the bodies that the token budget allows.
  page_symbols(const host::module_state& state, std::vector<symbol_block> blocks,
               std::size_t within_tokens);

  std::size_t count() const { return count_; }  // shown or not
  std::size_t within_tokens() const { return within_tokens_; }
  // So many bodies, and as many lines as may be listed after them.
  shown_code with_window(std::size_t bodies) const {
    return {bodies, listing_window(count_, bodies)};
  }

  // What the code adds to an answer, or the least that it can add. Both read what it shows, in the
  // order of the rules; only the first counts the bodies.
  const answer_size& size(shown_code code);
  answer_size_to<extent::least> least(shown_code code);

  // The pieces of symbol i, once read.
  whole_text body(std::size_t i) {
    return {host::view_of(symbols_[i].block.text), &symbols_[i].body_size};
  }
  bool has_name(std::size_t i) const { return bool(symbols_[i].name); }
  sized_value name(std::size_t i) const { return {symbols_[i].name, symbols_[i].name_size}; }
  bool has_seed(std::size_t i) const { return symbols_[i].lines.citable(); }
  symbol_seed seed(std::size_t i) { return {state_, symbols_[i].lines, &symbols_[i].seed_size}; }
  sized_line line(std::size_t i) const { return {symbols_[i].line, symbols_[i].line_size}; }

 private:
  struct symbol {
    symbol_block block;
    host::owned name;  // empty when it has none
    std::int64_t name_size = 0;
    listed_line line;
    symbol_lines lines;
    std::int64_t line_size = -1, body_size = -1, seed_size = -1;  // below 0 while not known
  };

  void read(shown_code code);
  void read_line_of(std::size_t i);

  const host::module_state& state_;
  std::size_t count_, within_tokens_;
  path_names norm_;
  std::vector<symbol> symbols_;
  std::size_t names_read_ = 0, lines_read_ = 0;
  std::vector<answer_size> bodies_{{}};  // what the first n bodies add, at index n
  std::optional<shown_code> sized_;      // the code that size_ is of
  answer_size size_;
};

}  // namespace grounding_fit
