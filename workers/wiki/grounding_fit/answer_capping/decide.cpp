// Reads from the top as `_fit_page_context` and `_fit_prose` of tests/plain_model.py do, which tell
// the rules in plain Python; the steps are those of docs/fitting.md.
#include "answer_capping/decide.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "grounding_model/policies.hpp"

namespace grounding_fit {

using py::handle;
using py::module_state;
using py::owned;
using py::utility;

namespace {

constexpr bool fits(__int128 size) { return size <= k_answer_max_chars; }

// A report needs every size to the character.
constexpr size_limit up_to(size_limit limit, measuring how) {
  return how == measuring::all ? k_no_limit : limit;
}

// ---- 1. An answer that fits goes back -----------------------------------------------------------

bool fits_as_it_is(page_fit& fit, handle result, original_answer& original, measuring how) {
  fit.original_size = fit.size = original.size(up_to(k_answer_max_chars, how));
  if (!fits(fit.size)) return false;
  fit.answer = py::new_ref(result);
  return true;
}

// ---- 2. The prior markdown goes first -----------------------------------------------------------

bool fits_without_prior(page_fit& fit, const module_state& state, original_answer& original,
                        const owned& prior) {
  using enum new_answer::fitted_fields;
  const left_out items(prior, 0);
  fit.note.chars = items.note_size({}, note_end::plain);
  fit.size = new_answer(state, original, carried_over).size() + fit.note.chars;
  if (!fits(fit.size)) return false;  // by a lower bound
  original.measure_all();
  const new_answer whole(state, original, carried_over);
  fit.size = whole.size() + fit.note.chars;
  if (!fits(fit.size)) return false;
  fit.note.text = items.note({}, note_end::plain);
  fit.answer = whole.build(fit.note.text);
  fit.outcome = fit_outcome::fits_without_prior;
  return true;
}

// ---- 3. How many bodies the tokens allow --------------------------------------------------------

page_symbols symbols_of(page_fit& fit, const module_state& state, std::vector<symbol_block> blocks,
                        const fact_blocks& prose, std::int64_t budget) {
  const owned text = fact_text(prose);  // as large as all facts together, so released here
  fit.tokens = split_tokens(state, text, budget);
  fit.token_fit = keep_whole(state, blocks, fit.tokens.code);
  fit.symbols = blocks.size();
  return page_symbols(state, std::move(blocks), fit.token_fit.count);
}

// ---- 4. Base, room, floor and reserve -----------------------------------------------------------

// always_kept or kept_first; undecided for every other block.
fact_verdict standing_of(const module_state& state, const policy_rules& rules,
                         const fact_block& block) {
  const text_view text = py::view_of(block.text());
  if (text.starts_with(py::view_of(state[utility::file_cards_heading])) ||
      text.starts_with(py::view_of(state[utility::requested_context_heading]))) {
    return fact_verdict::always_kept;
  }
  const text_view key = py::view_of(block.key());
  return !key.empty() && rules.keeps_first(key) ? fact_verdict::kept_first
                                                : fact_verdict::undecided;
}

// A double cut to an integer, and clamped to 2^100 either way, which no sum of sizes reaches. For
// no number at all it is the least.
__int128 truncated(double number) {
  constexpr double far = 0x1p100;
  return std::isnan(number) ? __int128(-far) : __int128(std::clamp(number, -far, far));
}

double floor_of(handle code_floor, __int128 room) {
  const double floor = py::expect_number(code_floor) * static_cast<double>(room);
  if (!std::isfinite(floor)) {
    py::within("parts.code_floor", [&] {
      py::refuse(py::fault::value, "a number whose product with the room is finite", code_floor);
    });
  }
  return floor;
}

answer_room room_of(grounding_parts parts, const std::vector<fact_decision>& facts,
                    candidate& answer, measuring how) {
  std::vector<std::size_t> always;
  for (std::size_t i = 0; i < facts.size(); ++i) {
    if (stays(facts[i].verdict)) always.push_back(i);
  }
  answer_room room;
  room.base = answer.size_of(always, bodies::none, k_no_limit);
  room.room = std::max<__int128>(0, k_answer_max_chars - room.base);
  room.exact_floor = floor_of(parts.code_floor(), room.room);
  room.floor = truncated(room.exact_floor);
  // If a lower bound already passes the floor, the reserve is the floor.
  const size_limit enough = up_to(room.base + room.floor, how);
  room.all_bodies = answer.size_of(always, bodies::within_tokens, enough) - room.base;
  room.reserve = std::min(room.floor, room.all_bodies);
  return room;
}

// ---- 5. The facts, in reading order -------------------------------------------------------------

// Decides one block, given what is decided before it. The cap is not asked of a block that is over
// its share: asking reads which of the block's seeds can be cited.
fact_verdict decide_fact(fact_decision& now, page_facts& facts, std::size_t at,
                         const answer_room& room, candidate& answer, measuring how) {
  if (stays(now.verdict)) return now.verdict;
  if (now.share) {
    const __int128 left = truncated(std::floor(*now.share)) - now.share_used;
    if (facts.cost(at, up_to(left, how)).total() > left) return fact_verdict::over_share;
  }
  const __int128 beside_code = k_answer_max_chars - room.reserve;
  now.tried = answer.size_with(at, up_to(beside_code, how));
  return now.tried > beside_code ? fact_verdict::over_cap : fact_verdict::fits;
}

}  // namespace

fact_choice choose_facts(const module_state& state, grounding_parts parts, page_facts& facts,
                         candidate& answer, measuring how) {
  const policy_rules rules(state, parts.budget());
  fact_choice made;
  made.facts.resize(facts.count());
  for (std::size_t i = 0; i < facts.count(); ++i) {
    made.facts[i].verdict = standing_of(state, rules, facts.block(i));
  }
  made.room = room_of(parts, made.facts, answer, how);
  std::map<text_view, std::int64_t> used_by;  // key of a block that has a share
  for (std::size_t i = 0; i < facts.count(); ++i) {
    fact_decision& now = made.facts[i];
    facts.validate(i);
    const handle key = facts.block(i).key();
    if (const auto fraction = rules.share_of(key)) {
      now.share = *fraction * static_cast<double>(made.room.room);
      now.share_used = used_by[py::view_of(key)];
    }
    now.verdict = decide_fact(now, facts, i, made.room, answer, how);
    if (stays(now.verdict)) {
      answer.keep(i);
      if (now.share) used_by[py::view_of(key)] += facts.cost(i, k_no_limit).total();
    } else if (how == measuring::as_needed) {
      facts.release_seeds(i);  // and the next one is tried
    }
  }
  return made;
}

namespace {

// ---- 6. Bodies by bisection, then lines ---------------------------------------------------------

code_decision most_code(rebuilt_answer& answer, const page_symbols& symbols, measuring how) {
  const size_limit limit = up_to(k_answer_max_chars, how);
  code_decision code;
  const auto within_tokens = static_cast<std::int64_t>(symbols.within_tokens());
  const std::int64_t count = most(within_tokens, [&](std::int64_t n) {
    const code_amount tried = symbols.with_lines(static_cast<std::size_t>(n));
    const std::int64_t size = answer.size(tried, k_placeholder_chars, limit);
    if (!fits(size)) code.with_next = size;  // the last that does not fit has one body too many
    return fits(size);
  });
  code.amount = symbols.with_lines(static_cast<std::size_t>(count));
  if (count < within_tokens) {
    code.stopped_by = body_stop::cap;
  } else if (code.amount.bodies < symbols.count()) {
    code.stopped_by = body_stop::tokens;
  }
  if (code.amount.bodies > 0) return code;
  const auto window = static_cast<std::int64_t>(code.amount.listed);
  code.amount.listed = static_cast<std::size_t>(most(window, [&](std::int64_t n) {
    return fits(answer.size({0, static_cast<std::size_t>(n)}, k_placeholder_chars, limit));
  }));
  return code;
}

// ---- 7. The real note ---------------------------------------------------------------------------

// Where the answer with its real note passes the cap, as a note longer than its placeholder can
// make it, the lowest ranked comes off until the answer fits: bodies, each of which then heads the
// listing, and then lines.
void shrink_for_note(page_fit& fit, const left_out& items, rebuilt_answer& answer,
                     const page_symbols& symbols) {
  code_amount& amount = fit.code.amount;
  for (;;) {
    fit.note.chars = items.note_size(amount, note_end::ask);
    fit.size = answer.size(amount, fit.note.chars, k_no_limit);
    if (fits(fit.size) || amount == code_amount{}) return;
    if (amount.bodies > 0) {
      fit.code.stopped_by = body_stop::note;
      fit.code.with_next = fit.size;
      amount = symbols.with_lines(amount.bodies - 1);
      ++fit.note.bodies_off;
    } else {
      --amount.listed;
      ++fit.note.lines_off;
    }
  }
}

// ---- 8. Over the cap ----------------------------------------------------------------------------

// Whether the note must say that the answer is over the cap although nothing more can come off.
note_end end_of_note(page_fit& fit, const left_out& items) {
  if (fits(fit.size)) return note_end::ask;
  fit.outcome = fit_outcome::over_cap;
  fit.size -= fit.note.chars;
  fit.note.chars = items.note_size(fit.code.amount, note_end::ask_and_say_over);
  fit.size += fit.note.chars;
  return note_end::ask_and_say_over;
}

}  // namespace

page_fit fit_page_context(const module_state& state, handle result, grounding_parts parts,
                          std::int64_t budget, measuring how) {
  page_fit fit;
  json_meter meter;
  original_answer original(state, result, meter);
  if (fits_as_it_is(fit, result, original, how)) return fit;
  owned prior;  // what the note says of it
  if (original.has_prior()) {
    owned page_id = original.page_id();
    prior = prior_item(original.prior().length(), std::move(page_id));
    if (fits_without_prior(fit, state, original, prior)) return fit;
  }
  std::vector<symbol_block> blocks = symbol_blocks_of(parts);
  const fact_blocks prose(state, parts);
  page_symbols symbols = symbols_of(fit, state, std::move(blocks), prose, budget);
  page_facts facts(state, prose, meter);
  rebuilt_answer answer(state, original, facts, symbols);
  fit.chosen = choose_facts(state, parts, facts, answer, how);
  fit.code = most_code(answer, symbols, how);
  fit.outcome = fit_outcome::rebuilt;
  left_out items(prior, symbols.count());
  for (std::size_t i = 0; i < facts.count(); ++i) {
    if (!stays(fit.chosen.facts[i].verdict)) items.add(facts.block(i));
  }
  shrink_for_note(fit, items, answer, symbols);
  const note_end end = end_of_note(fit, items);
  fit.note.text = items.note(fit.code.amount, end);
  fit.answer = answer.build(fit.code.amount, fit.note.text);
  if (how == measuring::all) fit.details = details_of(facts, fit.chosen.facts);
  return fit;
}

}  // namespace grounding_fit
