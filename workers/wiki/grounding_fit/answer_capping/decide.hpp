// The agent path: a page_context answer under its cap, and every decision that made it. All sizes
// are in JSON characters.
#pragma once

#include <optional>

#include "answer_capping/answer_parts.hpp"
#include "answer_capping/note.hpp"

namespace grounding_fit {

// Whether a lower bound may decide before a text is scanned, or every size is exact, as a report
// needs it. The decisions are the same.
enum class measuring { as_needed, all };

// ---- which facts stay ---------------------------------------------------------------------------

// Why a fact block stays or goes.
enum class fact_verdict : std::uint8_t {
  undecided,
  always_kept,  // stays: the file cards or the requested context
  kept_first,   // stays: the policy of the page keeps its kind first
  fits,         // stays: within the share of its kind, and beside the room reserved for code
  over_share,   // goes: the blocks of its kind would cost more than their share of the room
  over_cap      // goes: beside the room reserved for code, the answer would pass its cap
};
constexpr bool stays(fact_verdict what) {
  using enum fact_verdict;
  return what == always_kept || what == kept_first || what == fits;
}

// What became of one fact block, and the numbers that decided it.
struct fact_decision {
  fact_verdict verdict = fact_verdict::undecided;
  std::optional<double> share;  // what its kind may cost at the most, where there is a limit
  std::int64_t share_used = 0;  // of that, by blocks before it
  std::int64_t tried = 0;  // the answer with it and no body, or a bound that is above the limit
};

// The room of an answer, and what of it is reserved for code. A floor may be of any size: a host
// may give any fraction.
struct answer_room {
  // The answer with the blocks that always stay, no body, and the lines that stand in their place.
  __int128 base = 0;
  __int128 room = 0;       // what the cap leaves beside the base
  double exact_floor = 0;  // code_floor times the room
  __int128 floor = 0;      // the exact floor, truncated
  // By how much the base grows when the bodies that the tokens allow take the place of their lines:
  // below 0 where they are shorter.
  __int128 all_bodies = 0;
  __int128 reserve = 0;  // the smaller of floor and all_bodies: kept free while facts are chosen
};

struct fact_choice {
  answer_room room;
  std::vector<fact_decision> facts;  // one a fact block, in reading order
};

// Steps 4 and 5 of docs/fitting.md.
fact_choice choose_facts(const py::module_state& state, grounding_parts parts, page_facts& facts,
                         candidate& answer, measuring how);

// ---- the whole answer ---------------------------------------------------------------------------

enum class fit_outcome {
  fits,                // the host's answer goes back as it is
  fits_without_prior,  // it fits once the prior markdown is null
  rebuilt,             // its grounding is rebuilt from whole blocks
  over_cap             // rebuilt, and over the cap with nothing left to take off
};

// What kept the next symbol from having its body.
enum class body_stop {
  nothing,  // every symbol has its body
  tokens,   // the token budget
  cap,      // the cap, while the note was a placeholder
  note      // the cap, once the real note was there
};

struct code_decision {
  code_amount amount;
  body_stop stopped_by = body_stop::nothing;
  std::int64_t with_next = 0;  // the answer with one body more, where the cap or the note stopped
};

struct note_decision {
  py::owned text;
  std::int64_t chars = 0;                     // that the note takes inside a JSON string
  std::size_t bodies_off = 0, lines_off = 0;  // what came off so that it fits
};

// What only a report tells of a fact block.
struct fact_details {
  py::owned label, key;
  fact_cost cost;
  std::optional<std::int64_t> citable_seeds;  // that it adds to the answer; none if unreadable
};

// Fields of steps that this outcome never reaches stay empty.
struct page_fit {
  py::owned answer;
  fit_outcome outcome = fit_outcome::fits;
  std::int64_t original_size = 0, size = 0;  // of the host's answer and of this one
  note_decision note;

  token_split tokens;       // of the budget, between code and facts
  whole_blocks token_fit;   // the bodies that the code's tokens hold
  std::size_t symbols = 0;  // in all
  fact_choice chosen;
  std::vector<fact_details> details;  // one a fact block, where all is measured
  code_decision code;
};

// The answer itself when it fits, else one under the cap with its note. Asks the host's _norm once
// for each text.
page_fit fit_page_context(const py::module_state& state, py::handle result, grounding_parts parts,
                          std::int64_t budget, measuring how);

// What a fit tells of its decisions: a plain object that can be logged as JSON, all sizes in JSON
// characters. For a fit that was made with measuring::all.
py::owned report_of(const page_fit& fit);
std::vector<fact_details> details_of(page_facts& facts,
                                     const std::vector<fact_decision>& decisions);

// The largest count up to `high` for which `fits` holds, by bisection: `fits` should turn false
// once and stay so. 0 is taken to fit, and never tested; `high` below it gives 0.
template <class Fits>
std::int64_t most(std::int64_t high, Fits&& fits) {
  std::int64_t low = 0;
  while (low < high) {
    const std::int64_t span = high - low;  // a sum of the two could overflow
    const std::int64_t mid = low + span / 2 + span % 2;
    if (fits(mid)) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return low;
}

}  // namespace grounding_fit
