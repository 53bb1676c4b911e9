// Reads from the top as `_fit_page_context` and `_fit_prose` of tests/plain_model.py do; the steps
// are those of docs/fitting.md.
#include "answer_capping/decide.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "answer_capping/page_report.hpp"
#include "answer_capping/rebuilt_answer.hpp"

namespace grounding_fit {

using host::handle;
using host::module_state;
using host::owned;
using host::utility;

namespace {

constexpr bool fits(__int128 size) { return size <= k_answer_max_chars; }

// A report needs every size to the character.
constexpr size_limit up_to(size_limit limit, counting how) {
  return how == counting::all ? k_no_limit : limit;
}

// ---- 1. An answer that fits goes back -----------------------------------------------------------

bool fits_as_it_is(page_fit& fit, handle result, old_answer& old, counting how) {
  fit.given = fit.size = old.size(up_to(k_answer_max_chars, how));
  if (!fits(fit.size)) return false;
  fit.answer = host::share(result);
  return true;
}

// ---- 2. The prior markdown goes first -----------------------------------------------------------

bool fits_without_prior(page_fit& fit, const module_state& state, old_answer& old,
                        const owned& prior) {
  using enum new_answer::fitted_fields;
  const text_view items[] = {host::view_of(prior)};
  fit.note.text = cap_note(items, 1, note_end::plain);
  fit.note.chars = escaped_length(host::view_of(fit.note.text));
  fit.size = new_answer(state, old, carried_over).size() + fit.note.chars;
  if (!fits(fit.size)) return false;
  old.count_all();
  const new_answer whole(state, old, carried_over);
  fit.size = whole.size() + fit.note.chars;
  if (!fits(fit.size)) return false;
  fit.answer = whole.build(fit.note.text);
  fit.outcome = fit_outcome::fits_without_prior;
  return true;
}

// ---- 3. How many bodies the tokens allow --------------------------------------------------------

page_symbols symbols_of(page_fit& fit, const module_state& state, std::vector<symbol_block> blocks,
                        const fact_blocks& prose, std::int64_t budget) {
  const owned text = fact_text(prose);  // as large as all facts together, so not kept
  fit.tokens = code_budget_of(state, text, budget);
  fit.within_tokens = keep_whole(state, blocks, fit.tokens.share);
  fit.symbols = blocks.size();
  return page_symbols(state, std::move(blocks), fit.within_tokens.count);
}

// ---- 4. Base, room, floor and reserve -----------------------------------------------------------

verdict of_always_kept(const module_state& state, const policy_rules& rules,
                       const fact_block& block) {
  const text_view text = host::view_of(block.text());
  if (text.starts_with(host::view_of(state[utility::file_cards_heading])) ||
      text.starts_with(host::view_of(state[utility::requested_context_heading]))) {
    return verdict::always_kept;
  }
  const text_view key = host::view_of(block.key());
  return !key.empty() && rules.keeps_first(key) ? verdict::kept_first : verdict::undecided;
}

// A double cut to an integer, and clamped to 2^100 either way, which no sum of sizes reaches. For
// no number at all it is the least.
__int128 truncated(double number) {
  constexpr double far = 0x1p100;
  return std::isnan(number) ? __int128(-far) : __int128(std::clamp(number, -far, far));
}

double floor_of(handle code_floor, __int128 room) {
  const double floor = host::expect_number(code_floor) * static_cast<double>(room);
  if (!std::isfinite(floor)) {
    host::within("parts.code_floor", [&] {
      host::refuse(host::fault::value, "a number whose product with the room is finite",
                   code_floor);
    });
  }
  return floor;
}

answer_room room_of(grounding_parts parts, const std::vector<fact_decision>& facts,
                    candidate& answer, counting how) {
  std::vector<std::size_t> always;
  for (std::size_t i = 0; i < facts.size(); ++i) {
    if (stays(facts[i].outcome)) always.push_back(i);
  }
  answer_room room;
  room.base = answer.size_of(always, bodies::none, k_no_limit);
  room.room = std::max<__int128>(0, k_answer_max_chars - room.base);
  room.floor_share = floor_of(parts.code_floor(), room.room);
  room.floor = truncated(room.floor_share);
  const size_limit enough = up_to(room.base + room.floor, how);
  room.all_bodies = answer.size_of(always, bodies::within_tokens, enough) - room.base;
  room.reserve = std::min(room.floor, room.all_bodies);
  return room;
}

// ---- 5. The facts, in reading order -------------------------------------------------------------

// Decides one block, given what is decided before it. The cap is not asked of a block that is over
// its share: asking reads the block's seeds.
verdict decide_fact(fact_decision& now, page_fact& fact, std::size_t at, const answer_room& room,
                    candidate& answer, counting how) {
  if (stays(now.outcome)) return now.outcome;
  if (now.share) {
    const __int128 left = truncated(std::floor(*now.share)) - now.share_used;
    now.cost = fact.cost(up_to(left, how));
    if (now.cost.total() > left) return verdict::over_share;
  }
  const __int128 cap = k_answer_max_chars - room.reserve;
  now.tried = answer.size_with(at, up_to(cap, how));
  return now.tried > cap ? verdict::over_cap : verdict::fits;
}

}  // namespace

fact_choice choose_facts(const module_state& state, grounding_parts parts,
                         std::vector<page_fact>& facts, candidate& answer, counting how) {
  const policy_rules rules(state, parts.budget());
  fact_choice made;
  made.facts.resize(facts.size());
  for (std::size_t i = 0; i < facts.size(); ++i) {
    made.facts[i].outcome = of_always_kept(state, rules, facts[i].block());
  }
  made.room = room_of(parts, made.facts, answer, how);
  std::map<text_view, std::int64_t> used;  // by block key, as far as shares ask for it
  for (std::size_t i = 0; i < facts.size(); ++i) {
    fact_decision& now = made.facts[i];
    now.cost = facts[i].cost(up_to(0, how));  // refuses what the rules refuse, counted or not
    const handle key = facts[i].block().key();
    now.share = rules.share_of(key);
    if (now.share) {
      *now.share *= static_cast<double>(made.room.room);
      now.share_used = used[host::view_of(key)];
    }
    now.outcome = decide_fact(now, facts[i], i, made.room, answer, how);
    if (stays(now.outcome)) {
      answer.keep(i);
      if (now.share) used[host::view_of(key)] += facts[i].cost(k_no_limit).total();
    } else if (how == counting::as_needed) {
      facts[i].leave_out();  // and the next one is tried
    }
  }
  return made;
}

namespace {

// ---- 6. Bodies by bisection, then lines ---------------------------------------------------------

code_decision most_code(rebuilt_answer& answer, const page_symbols& symbols, counting how) {
  const size_limit cap = up_to(k_answer_max_chars, how);
  code_decision code;
  const auto within_tokens = static_cast<std::int64_t>(symbols.within_tokens());
  const std::int64_t count = most(within_tokens, [&](std::int64_t n) {
    const code_amount tried = symbols.with_lines(static_cast<std::size_t>(n));
    const std::int64_t size = answer.size(tried, k_placeholder_chars, cap);
    if (!fits(size)) code.refused_at = size;  // the last one refused has one body more
    return fits(size);
  });
  code.shown = symbols.with_lines(static_cast<std::size_t>(count));
  if (count < within_tokens) {
    code.stopped_by = body_stop::cap;
  } else if (code.shown.bodies < symbols.count()) {
    code.stopped_by = body_stop::tokens;
  }
  if (code.shown.bodies > 0) return code;
  const auto window = static_cast<std::int64_t>(code.shown.listed);
  code.shown.listed = static_cast<std::size_t>(most(window, [&](std::int64_t n) {
    return fits(answer.size({0, static_cast<std::size_t>(n)}, k_placeholder_chars, cap));
  }));
  return code;
}

// ---- 7. The real note ---------------------------------------------------------------------------

// The items that the note names: the prior markdown, the code, the fact blocks.
class left_out {
 public:
  left_out(const owned& prior, const fact_blocks& prose, const std::vector<fact_decision>& facts)
      : prior_(prior) {
    for (std::size_t i = 0; i < facts.size(); ++i) {
      if (stays(facts[i].outcome)) continue;
      if (++facts_ <= k_note_items) labels_.push_back(prose[i].label());
    }
  }

  note_decision& write(note_decision& note, code_amount code, std::size_t symbols,
                       note_end end) const {
    const owned cut =
        code_cut(static_cast<std::int64_t>(code.bodies), static_cast<std::int64_t>(code.listed),
                 static_cast<std::int64_t>(symbols));
    std::vector<text_view> named;
    if (prior_) named.push_back(host::view_of(prior_));
    if (cut) named.push_back(host::view_of(cut));
    const std::size_t items = named.size() + facts_;
    for (const owned& label : labels_) {
      if (named.size() < k_note_items) named.push_back(host::view_of(label));
    }
    note.text = cap_note(named, items, end);
    note.chars = escaped_length(host::view_of(note.text));
    return note;
  }

 private:
  const owned& prior_;
  std::size_t facts_ = 0;
  std::vector<owned> labels_;
};

// Where the real note is longer than its placeholder, what is lowest ranked comes off until it
// fits: bodies first, each of which then heads the listing, and then lines.
void make_room_for_note(page_fit& fit, const left_out& items, rebuilt_answer& answer,
                        const page_symbols& symbols) {
  code_amount& shown = fit.code.shown;
  for (;;) {
    items.write(fit.note, shown, symbols.count(), note_end::ask);
    fit.size = answer.size(shown, fit.note.chars, k_no_limit);
    if (fits(fit.size) || shown == code_amount{}) return;
    if (shown.bodies > 0) {
      fit.code.stopped_by = body_stop::note;
      fit.code.refused_at = fit.size;
      shown = symbols.with_lines(shown.bodies - 1);
      ++fit.note.bodies_off;
    } else {
      --shown.listed;
      ++fit.note.lines_off;
    }
  }
}

// ---- 8. Over the cap ----------------------------------------------------------------------------

void say_over(page_fit& fit, const left_out& items) {
  fit.outcome = fit_outcome::over_cap;
  fit.size -= fit.note.chars;
  fit.size += items.write(fit.note, fit.code.shown, fit.symbols, note_end::ask_and_say_over).chars;
}

}  // namespace

page_fit fit_page_context(const module_state& state, handle result, grounding_parts parts,
                          std::int64_t budget, counting how) {
  page_fit fit;
  json_meter meter;
  old_answer old(state, result, meter);
  if (fits_as_it_is(fit, result, old, how)) return fit;
  owned prior;  // what the note says of it
  if (old.has_prior()) {
    owned page_id = old.page_id();
    prior = prior_item(old.prior().length(), std::move(page_id));
    if (fits_without_prior(fit, state, old, prior)) return fit;
  }
  std::vector<symbol_block> blocks = take_symbol_blocks(parts);
  const fact_blocks prose(state, parts);
  page_symbols symbols = symbols_of(fit, state, std::move(blocks), prose, budget);
  std::vector<page_fact> facts = page_facts_of(prose, meter);
  rebuilt_answer answer(state, old, facts, symbols);
  fit.chosen = choose_facts(state, parts, facts, answer, how);
  const left_out items(prior, prose, fit.chosen.facts);
  fit.code = most_code(answer, symbols, how);
  fit.outcome = fit_outcome::rebuilt;
  make_room_for_note(fit, items, answer, symbols);
  if (!fits(fit.size)) say_over(fit, items);
  fit.answer = answer.build(fit.code.shown, fit.note.text);
  if (how == counting::all) fit.details = details_of(state, facts, fit.chosen.facts);
  return fit;
}

}  // namespace grounding_fit
