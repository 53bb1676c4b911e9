// What a fit under a token budget tells of itself: plain objects that a host can log as JSON.
#pragma once

#include "token_fitting/grounding_assembly.hpp"

namespace grounding_fit {

// The part of a report that counts symbols, the same on both paths.
host::new_object new_symbols_report(std::size_t total, std::size_t within_tokens,
                                    std::size_t bodies, std::size_t listed);
// Adds that the token budget kept the next body out, and by how many tokens.
void add_token_stop(host::new_object& report, const code_budget& split, const whole_blocks& kept);

// All sizes in tokens. Asks the host for two estimates more: of the cut fact text, and of the whole
// text.
host::owned report_of(const host::module_state& state, const assembled_grounding& made,
                      std::int64_t budget);

}  // namespace grounding_fit
