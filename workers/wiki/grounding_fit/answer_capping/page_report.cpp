#include "answer_capping/decide.hpp"

#include <cmath>

#include "python/integer.hpp"

namespace grounding_fit {

using py::object_builder;
using py::owned;

namespace {

std::string_view name_of(fit_outcome outcome) {
  switch (outcome) {
    case fit_outcome::fits: return "fits";
    case fit_outcome::fits_without_prior: return "fits without prior_markdown";
    case fit_outcome::rebuilt: return "rebuilt";
    default: return "over the cap";
  }
}

std::string_view name_of(fact_verdict verdict) {
  switch (verdict) {
    case fact_verdict::always_kept: return "always kept";
    case fact_verdict::kept_first: return "kept first";
    case fact_verdict::fits: return "fits";
    case fact_verdict::over_share: return "over its share";
    default: return "over the cap";
  }
}

// By how much a share was too small for an integer sum, rounded up: null where it is infinite or
// beyond what a double tells apart.
owned short_of_share(__int128 sum, double share) {
  constexpr double k_exact = 0x1p53;
  if (!std::isfinite(share) || std::abs(share) > 2 * k_exact) return py::null();
  const __int128 missing = sum - static_cast<__int128>(std::floor(share));
  return missing > static_cast<__int128>(k_exact) ? py::null() : py::new_wide_integer(missing);
}

owned short_by(const fact_decision& fact, const fact_cost& cost, const answer_room& room) {
  switch (fact.verdict) {
    case fact_verdict::over_share:
      return short_of_share(__int128(fact.share_used) + cost.total(), *fact.share);
    case fact_verdict::over_cap:
      return py::new_wide_integer(fact.tried + room.reserve - k_answer_max_chars);
    default: return py::new_integer(0);
  }
}

owned fact_report(const fact_decision& fact, const fact_details& details, const answer_room& room) {
  object_builder report;
  report.add("label", py::new_ref(details.label))
      .add("key", py::new_ref(details.key))
      .add("verdict", name_of(fact.verdict))
      .add("kept", stays(fact.verdict))
      .add("text", details.cost.text)
      .add("seeds", details.cost.seeds)
      .add("citable_seeds",
           details.citable_seeds ? py::new_integer(*details.citable_seeds) : py::null());
  if (fact.share) {
    report.add("share", std::isfinite(*fact.share) ? py::new_real(*fact.share) : py::null())
        .add("share_used", fact.share_used);
  }
  return report.add("short_by", short_by(fact, details.cost, room)).build();
}

owned code_report(const page_fit& fit) {
  const code_decision& code = fit.code;
  object_builder report =
      symbols_report(fit.symbols, fit.token_fit.count, code.amount.bodies, code.amount.listed);
  switch (code.stopped_by) {
    case body_stop::nothing: report.add("stopped_by", "nothing"); break;
    case body_stop::tokens: add_token_stop(report, fit.tokens, fit.token_fit); break;
    case body_stop::cap:
    case body_stop::note:
      report.add("stopped_by", code.stopped_by == body_stop::cap ? "cap" : "note")
          .add("short_by_characters", code.with_next - k_answer_max_chars);
  }
  return report.build();
}

// The floor is told as the rules have it, however far it is beyond any size.
owned floor_report(const answer_room& room) { return py::integer::of(room.exact_floor).object(); }

owned note_report(const note_decision& note) {
  return object_builder()
      .add("size", note.chars)
      .add("bodies_taken_off", note.bodies_off)
      .add("lines_taken_off", note.lines_off)
      .build();
}

}  // namespace

std::vector<fact_details> details_of(page_facts& facts,
                                     const std::vector<fact_decision>& decisions) {
  std::vector<fact_details> details(facts.count());
  tally shown;  // seeds of the blocks that stay so far
  for (std::size_t i = 0; i < facts.count(); ++i) {
    details[i].label = facts.block(i).label();
    details[i].key = py::new_ref(facts.block(i).key());
    details[i].cost = facts.cost(i, k_no_limit);
    if (!py::try_discarding_error([&] { facts.read_seeds(i); })) continue;
    tally with = shown;
    with += facts.as_part(i, precision::exact).sizes.seeds;
    details[i].citable_seeds = with.bracketed() - shown.bracketed();
    if (stays(decisions[i].verdict)) shown = with;
  }
  return details;
}

owned report_of(const page_fit& fit) {
  object_builder report;
  report.add("outcome", name_of(fit.outcome))
      .add("cap", k_answer_max_chars)
      .add("given", fit.original_size)
      .add("size", fit.size);
  if (fit.outcome == fit_outcome::fits) return report.build();
  if (fit.outcome != fit_outcome::fits_without_prior) {
    std::vector<owned> facts;
    facts.reserve(fit.chosen.facts.size());
    for (std::size_t i = 0; i < fit.chosen.facts.size(); ++i) {
      facts.push_back(fact_report(fit.chosen.facts[i], fit.details[i], fit.chosen.room));
    }
    const answer_room& room = fit.chosen.room;
    report.add("base", room.base)
        .add("room", room.room)
        .add("floor", floor_report(room))
        .add("all_bodies", room.all_bodies)
        .add("reserve",
             room.floor == room.reserve ? floor_report(room) : py::new_wide_integer(room.reserve))
        .add("facts", py::new_list(std::move(facts)))
        .add("symbols", code_report(fit));
  }
  return report.add("note", note_report(fit.note)).build();
}

}  // namespace grounding_fit
