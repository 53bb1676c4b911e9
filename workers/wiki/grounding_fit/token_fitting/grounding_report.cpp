#include "token_fitting/grounding_report.hpp"

namespace grounding_fit {

using host::new_object;
using host::owned;

namespace {

owned symbols_report(const assembled_grounding& made) {
  const std::size_t bodies = made.bodies.count;
  new_object report = new_symbols_report(made.candidates, bodies, bodies, made.listed);
  if (bodies == made.candidates) {
    report.add("stopped_by", "nothing");
  } else {
    add_token_stop(report, made.split, made.bodies);
  }
  return report.take();
}

}  // namespace

new_object new_symbols_report(std::size_t total, std::size_t within_tokens, std::size_t bodies,
                              std::size_t listed) {
  new_object report;
  report.add("total", total)
      .add("within_tokens", within_tokens)
      .add("bodies", bodies)
      .add("listed", listed)
      .add("not_shown", total - bodies - listed);
  return report;
}

void add_token_stop(new_object& report, const code_budget& split, const whole_blocks& kept) {
  report.add("stopped_by", "tokens").add("short_by_tokens", kept.used + kept.next - split.share);
}

owned report_of(const host::module_state& state, const assembled_grounding& made,
                std::int64_t budget) {
  const std::int64_t kept = estimate_tokens(state, made.facts);
  const std::int64_t size = estimate_tokens(state, made.text);
  return new_object()
      .add("budget", budget)
      .add("size", size)
      .add("floor", made.split.floor)
      .add("share", made.split.share)
      .add("used", made.bodies.used)
      .add("code", made.code)
      .add("facts", new_object()
                        .add("whole", made.split.facts)
                        .add("room", made.room)
                        .add("kept", kept)
                        .take())
      .add("symbols", symbols_report(made))
      .add("over", std::max<__int128>(0, __int128(size) - budget))
      .take();
}

}  // namespace grounding_fit
