#include "answer_capping/page_fit.hpp"

#include "answer_capping/rebuilt_answer.hpp"
#include "answer_capping/search.hpp"

namespace grounding_fit {

using host::handle;
using host::module_state;
using host::owned;

namespace {

constexpr bool fits(std::int64_t size) { return size <= k_answer_max_chars; }

// The items that the note of a rebuilt answer names: the prior markdown, the code, the fact blocks.
class left_out {
 public:
  left_out(const owned& prior, const fact_blocks& prose, const std::vector<fact_decision>& facts)
      : prior_(prior) {
    for (std::size_t i = 0; i < facts.size(); ++i) {
      if (stays(facts[i].outcome)) continue;
      if (++facts_ <= k_note_items) labels_.push_back(prose[i].label());
    }
  }

  owned note(shown_code code, std::size_t symbols, note_end end) const {
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
    return cap_note(named, items, end);
  }

 private:
  const owned& prior_;
  std::size_t facts_ = 0;
  std::vector<owned> labels_;
};

page_symbols take_symbols(const module_state& state, std::vector<symbol_block> blocks,
                          const fact_blocks& prose, std::int64_t budget, page_fit& fit) {
  const owned text = fact_text(prose);  // as large as all facts together, so not kept
  fit.tokens = code_budget_of(state, text, budget);
  fit.within_tokens = keep_whole(state, blocks, fit.tokens.share);
  fit.symbols = blocks.size();
  return page_symbols(state, std::move(blocks), fit.within_tokens.count);
}

// Most bodies first, and where there is room for none, most lines.
template <sizing Sizing>
code_decision most_code(rebuilt_answer& answer, const rebuilt_answer::shown& facts,
                        const page_symbols& symbols) {
  code_decision code;
  const auto within_tokens = static_cast<std::int64_t>(symbols.within_tokens());
  const std::int64_t count = most(within_tokens, [&](std::int64_t n) {
    const shown_code tried = symbols.with_window(static_cast<std::size_t>(n));
    if (Sizing == sizing::needed && !fits(answer.least(facts, tried))) return false;
    const std::int64_t size = answer.size(facts, tried);
    if (!fits(size)) code.refused_at = size;  // the last one refused has one body more
    return fits(size);
  });
  code.shown = symbols.with_window(static_cast<std::size_t>(count));
  if (count < within_tokens) {
    code.stopped_by = body_stop::cap;
  } else if (code.shown.bodies < symbols.count()) {
    code.stopped_by = body_stop::tokens;
  }
  if (code.shown.bodies > 0) return code;
  const auto window = static_cast<std::int64_t>(code.shown.listed);
  code.shown.listed = static_cast<std::size_t>(most(window, [&](std::int64_t n) {
    return fits(answer.size(facts, {0, static_cast<std::size_t>(n)}));
  }));
  return code;
}

// The candidates had a placeholder for a note. Where the real one is longer, what is lowest ranked
// comes off until it fits: bodies first, each of which then heads the listing, and then lines.
void make_room(page_fit& fit, const left_out& items, rebuilt_answer& answer,
               const rebuilt_answer::shown& facts, const page_symbols& symbols) {
  shown_code& shown = fit.code.shown;
  for (;;) {
    fit.note.text = items.note(shown, symbols.count(), note_end::ask);
    fit.note.chars = escaped_length(host::view_of(fit.note.text));
    fit.size = answer.size(facts, shown, fit.note.chars);
    if (fits(fit.size) || shown == shown_code{}) return;
    if (shown.bodies > 0) {
      fit.code.stopped_by = body_stop::note;
      fit.code.refused_at = fit.size;
      shown = symbols.with_window(shown.bodies - 1);
      ++fit.note.bodies_off;
    } else {
      --shown.listed;
      ++fit.note.lines_off;
    }
  }
}

std::vector<fact_details> details_of(const module_state& state, const fact_blocks& prose,
                                     std::vector<page_fact>& facts,
                                     const std::vector<fact_decision>& decisions) {
  std::vector<fact_details> details(facts.size());
  tally shown;  // seeds of the blocks that stay so far
  for (std::size_t i = 0; i < facts.size(); ++i) {
    details[i].label = prose[i].label();
    details[i].key = host::share(prose[i].key());
    if (!host::succeeds([&] { facts[i].read_seeds(state); })) continue;
    tally with = shown;
    for (std::size_t seed = 0; seed < facts[i].seeds(); ++seed) {
      if (facts[i].is_citable(seed)) with.add(facts[i].seed_at(seed).size());
    }
    details[i].citable_seeds = with.bracketed() - shown.bracketed();
    if (stays(decisions[i].outcome)) shown = with;
  }
  return details;
}

// What a call has been given, and what is known of it before its grounding is rebuilt.
struct page_call {
  const module_state& state;
  const given_answer& given;
  json_meter& meter;
  grounding_parts parts;
  std::int64_t budget;
  owned prior;  // what the note says of a prior markdown that is cut
};

template <sizing Sizing>
void rebuild(page_fit& fit, const page_call& call) {
  const module_state& state = call.state;
  std::vector<symbol_block> blocks = take_symbol_blocks(call.parts);
  const fact_blocks prose(state, call.parts);
  page_symbols symbols = take_symbols(state, std::move(blocks), prose, call.budget, fit);
  rebuilt_answer answer(state, call.given, prose, symbols, call.meter);
  auto chosen = choose_facts<Sizing>(fact_policy(state, call.parts), answer.facts(), answer);
  const left_out items(call.prior, prose, chosen.decisions);
  fit.code = most_code<Sizing>(answer, chosen.kept, symbols);
  make_room(fit, items, answer, chosen.kept, symbols);
  fit.outcome = fit_outcome::rebuilt;
  if (!fits(fit.size)) {
    fit.outcome = fit_outcome::over_cap;
    fit.note.text = items.note(fit.code.shown, symbols.count(), note_end::ask_and_say_over);
    fit.size -= std::exchange(fit.note.chars, escaped_length(host::view_of(fit.note.text)));
    fit.size += fit.note.chars;
  }
  fit.answer = answer.build(chosen.decisions, fit.code.shown, fit.note.text);
  if (Sizing == sizing::all) {
    fit.details = details_of(state, prose, answer.facts(), chosen.decisions);
  }
  fit.room = chosen.room;
  fit.facts = std::move(chosen.decisions);
}

// Tells whether an answer made of the given members fits. Least sizes are enough to say no; before
// a yes, or for a report, every member is counted.
template <sizing Sizing, class Size>
bool given_fits(given_answer& given, std::int64_t& size, Size&& measure) {
  if (Sizing == sizing::all) given.take_exact_sizes();
  size = measure();
  if (!fits(size)) return false;
  given.take_exact_sizes();
  size = measure();
  return fits(size);
}

// The answer as it was given but for its prior markdown: the page is one read away, its grounding
// is not.
template <sizing Sizing>
bool fits_without_prior(page_fit& fit, const module_state& state, given_answer& given,
                        const owned& prior) {
  const text_view items[] = {host::view_of(prior)};
  fit.note.text = cap_note(items, 1, note_end::plain);
  fit.note.chars = escaped_length(host::view_of(fit.note.text));
  const bool fitting = given_fits<Sizing>(given, fit.size, [&] {
    new_answer_size size(fit.note.chars);
    describe_members(size, given, fitted_fields::as_given);
    describe_new_note(size, given);
    return size.total();
  });
  if (!fitting) return false;
  new_answer whole(state, fit.note.text);
  describe_members(whole, given, fitted_fields::as_given);
  describe_new_note(whole, given);
  fit.answer = whole.take();
  fit.outcome = fit_outcome::fits_without_prior;
  return true;
}

}  // namespace

template <sizing Sizing>
page_fit fit_page_context(const module_state& state, handle result, grounding_parts parts,
                          std::int64_t budget) {
  page_fit fit;
  json_meter meter;
  given_answer given(state, result, meter);
  const bool fitting = given_fits<Sizing>(given, fit.given, [&] { return given.size(); });
  fit.size = fit.given;
  if (fitting) {
    fit.answer = host::share(result);
    return fit;
  }
  page_call call = {state, given, meter, parts, budget, {}};
  if (given.has_prior()) {
    owned page_id = given.page_id();
    call.prior = prior_item(given.prior().length(), std::move(page_id));
    if (fits_without_prior<Sizing>(fit, state, given, call.prior)) return fit;
  }
  rebuild<Sizing>(fit, call);
  return fit;
}

template page_fit fit_page_context<sizing::needed>(const module_state&, handle, grounding_parts,
                                                   std::int64_t);
template page_fit fit_page_context<sizing::all>(const module_state&, handle, grounding_parts,
                                                std::int64_t);

}  // namespace grounding_fit
