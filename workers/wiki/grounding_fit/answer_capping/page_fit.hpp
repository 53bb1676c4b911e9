// A page_context answer under its cap, and every decision that made it.
#pragma once

#include "answer_capping/fact_choice.hpp"
#include "answer_capping/page_symbols.hpp"

namespace grounding_fit {

enum class fit_outcome {
  fits,                // the host's answer went back as it is
  fits_without_prior,  // it fits once the prior markdown is cut
  rebuilt,             // its grounding was rebuilt from whole blocks
  over_cap             // what must stay is over the cap by itself
};

// What kept the next symbol from having its body.
enum class body_stop {
  nothing,  // every symbol has its body
  tokens,   // the token budget
  cap,      // the cap, while the note was a placeholder
  note      // the cap, once the real note was there
};

struct code_decision {
  shown_code shown;
  body_stop stopped_by = body_stop::nothing;
  std::int64_t refused_at = 0;  // the answer with one body more, where the cap or the note stopped
};

struct note_decision {
  host::owned text;
  std::int64_t chars = 0;                     // that the note takes inside a JSON string
  std::size_t bodies_off = 0, lines_off = 0;  // what came off to make room for it
};

// What only a report tells of a fact block.
struct fact_details {
  host::owned label, key;
  std::optional<std::int64_t> citable_seeds;  // that it adds to the answer; none if unreadable
};

// Decisions stand in the order in which they are made; those after the outcome's are empty.
struct page_fit {
  host::owned answer;
  fit_outcome outcome = fit_outcome::fits;
  std::int64_t given = 0, size = 0;  // of the host's answer and of this one
  note_decision note;

  code_budget tokens;          // of the bodies, by the token budget
  whole_blocks within_tokens;  // that it keeps
  std::size_t symbols = 0;     // in all
  answer_room room;
  std::vector<fact_decision> facts;
  std::vector<fact_details> details;  // one a fact block, where all sizes are taken
  code_decision code;
};

// The answer itself when it fits, else one under the cap with its note. Asks the host's _norm once
// for each text.
template <sizing Sizing>
page_fit fit_page_context(const host::module_state& state, host::handle result,
                          grounding_parts parts, std::int64_t budget);

}  // namespace grounding_fit
