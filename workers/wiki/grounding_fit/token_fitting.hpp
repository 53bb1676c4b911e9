// The API path: whole symbol blocks under a token budget, the next ones listed, the fact text cut
// to what they leave. Every size here is in tokens, as the host estimates them.
#pragma once

#include "grounding_model.hpp"

namespace grounding_fit {

constexpr double k_symbol_floor = 0.35;  // share of a token budget that the code is guaranteed

// How many blocks, from the first on, a budget keeps whole: the first always. Asks the host for the
// tokens of each block up to the first that does not fit. `text_of(i)` is a string.
template <class TextOf>
std::size_t count_kept(const host::service& svc, std::size_t blocks, __int128 budget,
                       TextOf&& text_of) {
  __int128 used = 0;  // sums of 64-bit counts, however many
  for (std::size_t i = 0; i < blocks; ++i) {
    const std::int64_t cost = host::estimate_tokens(svc, text_of(i));
    if (i > 0 && used + cost > budget) return i;
    used += cost;
  }
  return blocks;
}

// The code's share of a token budget: its floor, or what the fact text leaves when that is more.
__int128 symbol_budget(const host::service& svc, host::handle fact_text, std::int64_t budget);

// How many symbol blocks that share keeps whole.
std::size_t count_kept(const host::service& svc, const std::vector<symbol_block>& blocks,
                       __int128 budget);

// (grounding, symbols, files, seeds): the text under the budget, and what every candidate names.
host::owned assemble_grounding(const host::service& svc, host::handle parts, std::int64_t budget);

}  // namespace grounding_fit
