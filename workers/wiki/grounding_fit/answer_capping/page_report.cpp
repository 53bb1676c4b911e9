#include "answer_capping/page_report.hpp"

#include <cmath>

#include "token_fitting/token_fitting.hpp"

namespace grounding_fit {

using host::new_object;
using host::owned;

namespace {

std::string_view name_of(fit_outcome outcome) {
  switch (outcome) {
    case fit_outcome::fits: return "fits";
    case fit_outcome::fits_without_prior: return "fits without prior_markdown";
    case fit_outcome::rebuilt: return "rebuilt";
    default: return "over the cap";
  }
}

std::string_view name_of(verdict outcome) {
  switch (outcome) {
    case verdict::always_kept: return "always kept";
    case verdict::kept_first: return "kept first";
    case verdict::fits: return "fits";
    case verdict::over_share: return "over its share";
    default: return "over the cap";
  }
}

// By how much a share was too small for an integer sum, rounded up: null where it is infinite or
// beyond what a double tells apart.
owned short_of_share(__int128 sum, double share) {
  constexpr double k_exact = 0x1p53;
  if (!std::isfinite(share) || std::abs(share) > 2 * k_exact) return host::null();
  const __int128 missing = sum - static_cast<__int128>(std::floor(share));
  return missing > static_cast<__int128>(k_exact) ? host::null() : host::new_wide_integer(missing);
}

owned short_by(const fact_decision& fact, const answer_room& room) {
  switch (fact.outcome) {
    case verdict::over_share:
      return short_of_share(__int128(fact.share_used) + fact.cost.total(), *fact.share);
    case verdict::over_cap:
      return host::new_wide_integer(fact.tried + room.reserve - k_answer_max_chars);
    default: return host::new_integer(0);
  }
}

owned fact_report(const fact_decision& fact, const fact_details& details, const answer_room& room) {
  new_object report;
  report.add("label", host::share(details.label))
      .add("key", host::share(details.key))
      .add("verdict", name_of(fact.outcome))
      .add("kept", stays(fact.outcome))
      .add("text", fact.cost.text)
      .add("seeds", fact.cost.seeds)
      .add("citable_seeds",
           details.citable_seeds ? host::new_integer(*details.citable_seeds) : host::null());
  if (fact.share) {
    report.add("share", std::isfinite(*fact.share) ? host::new_real(*fact.share) : host::null())
        .add("share_used", fact.share_used);
  }
  return report.add("short_by", short_by(fact, room)).take();
}

owned symbols_report(const page_fit& fit) {
  const code_decision& code = fit.code;
  new_object report = new_symbols_report(fit.symbols, fit.within_tokens.count, code.shown.bodies,
                                         code.shown.listed);
  switch (code.stopped_by) {
    case body_stop::nothing: report.add("stopped_by", "nothing"); break;
    case body_stop::tokens: add_token_stop(report, fit.tokens, fit.within_tokens); break;
    case body_stop::cap:
    case body_stop::note:
      report.add("stopped_by", code.stopped_by == body_stop::cap ? "cap" : "note")
          .add("short_by_characters", code.refused_at - k_answer_max_chars);
  }
  return report.take();
}

owned note_report(const note_decision& note) {
  return new_object()
      .add("size", note.chars)
      .add("bodies_taken_off", note.bodies_off)
      .add("lines_taken_off", note.lines_off)
      .take();
}

}  // namespace

std::vector<fact_details> details_of(const host::module_state& state, std::vector<page_fact>& facts,
                                     const std::vector<fact_decision>& decisions) {
  std::vector<fact_details> details(facts.size());
  tally shown;  // seeds of the blocks that stay so far
  for (std::size_t i = 0; i < facts.size(); ++i) {
    details[i].label = facts[i].block().label();
    details[i].key = host::share(facts[i].block().key());
    if (!host::succeeds([&] { facts[i].read_seeds(state); })) continue;
    tally with = shown;
    with += facts[i].as_part(precision::exact).sizes.seeds;
    details[i].citable_seeds = with.bracketed() - shown.bracketed();
    if (stays(decisions[i].outcome)) shown = with;
  }
  return details;
}

owned report_of(const page_fit& fit) {
  new_object report;
  report.add("outcome", name_of(fit.outcome))
      .add("cap", k_answer_max_chars)
      .add("given", fit.given)
      .add("size", fit.size);
  if (fit.outcome == fit_outcome::fits) return report.take();
  if (fit.outcome != fit_outcome::fits_without_prior) {
    std::vector<owned> facts;
    facts.reserve(fit.chosen.facts.size());
    for (std::size_t i = 0; i < fit.chosen.facts.size(); ++i) {
      facts.push_back(fact_report(fit.chosen.facts[i], fit.details[i], fit.chosen.room));
    }
    report.add("base", fit.chosen.room.base)
        .add("room", fit.chosen.room.room)
        .add("floor", host::integer::of(fit.chosen.room.floor_share).object())
        .add("all_bodies", fit.chosen.room.all_bodies)
        .add("reserve", fit.chosen.room.reserve)
        .add("facts", host::new_list(std::move(facts)))
        .add("symbols", symbols_report(fit));
  }
  return report.add("note", note_report(fit.note)).take();
}

}  // namespace grounding_fit
