// The API path: whole symbol blocks under a token budget, the next ones listed, the fact text cut
// to what they leave. Every size here is in tokens, as the host estimates them.
#pragma once

#include "python/make.hpp"
#include "symbol_rendering/listing.hpp"

namespace grounding_fit {

std::int64_t estimate_tokens(const py::module_state& state, py::handle text);

// How a token budget is split between code and facts.
struct token_split {
  std::int64_t floor = 0;  // that the code gets at the least
  std::int64_t facts = 0;  // that the whole fact text takes, before it is cut
  __int128 code = 0;       // the floor, or what the facts leave when that is more
};
token_split split_tokens(const py::module_state& state, py::handle fact_text, std::int64_t budget);

// The blocks, from the first on, that a number of tokens keeps whole.
struct whole_blocks {
  std::size_t count = 0;
  __int128 used = 0;      // by those blocks; a sum of 64-bit counts, however many
  std::int64_t next = 0;  // what the block after them costs, where there is one
};

// The first block is always among them. Asks the host for the tokens of each block up to the first
// that does not fit. `text_of(i)` is a string.
template <class TextOf>
whole_blocks keep_whole(const py::module_state& state, std::size_t blocks, __int128 budget,
                        TextOf&& text_of) {
  whole_blocks kept;
  for (; kept.count < blocks; ++kept.count) {
    kept.next = estimate_tokens(state, text_of(kept.count));
    if (kept.count > 0 && kept.used + kept.next > budget) break;
    kept.used += kept.next;
  }
  return kept;
}
whole_blocks keep_whole(const py::module_state& state, std::span<const symbol_block> blocks,
                        __int128 budget);

// How many symbols may be listed after so many that have their body.
inline std::size_t listing_window(std::size_t symbols, std::size_t bodies) {
  return std::min(k_listed_max, symbols - bodies);
}

// A grounding under its budget: what every symbol names, shown or not, and the decisions that made
// the text.
struct assembled_grounding {
  py::owned text, symbols, files, seeds;

  py::owned facts;               // the fact text as it was cut
  std::size_t symbol_count = 0;  // shown or not
  token_split split;
  whole_blocks bodies;
  std::size_t listed = 0;
  std::int64_t code = 0;  // of bodies and listing together
  __int128 room = 0;      // that they leave to the facts, never below 0
};
assembled_grounding assemble_grounding(const py::module_state& state, grounding_parts parts,
                                       std::int64_t budget);

// ---- what it tells of its decisions: plain objects that can be logged as JSON -------------------

// All sizes in tokens. Asks the host for two estimates more: of the cut fact text, and of the whole
// text.
py::owned report_of(const py::module_state& state, const assembled_grounding& made,
                    std::int64_t budget);
// The part of a report that counts symbols, the same on both paths.
py::object_builder symbols_report(std::size_t total, std::size_t within_tokens, std::size_t bodies,
                                  std::size_t listed);
// Adds that the token budget left the next body out, and by how many tokens.
void add_token_stop(py::object_builder& report, const token_split& split, const whole_blocks& kept);

}  // namespace grounding_fit
