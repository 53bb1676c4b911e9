#include "token_fitting/grounding_assembly.hpp"

namespace grounding_fit {

using py::object_builder;
using py::owned;

namespace {

owned code_report(const assembled_grounding& made) {
  const std::size_t bodies = made.bodies.count;
  object_builder report = symbols_report(made.symbol_count, bodies, bodies, made.listed);
  if (bodies == made.symbol_count) {
    report.add("stopped_by", "nothing");
  } else {
    add_token_stop(report, made.split, made.bodies);
  }
  return report.build();
}

}  // namespace

object_builder symbols_report(std::size_t total, std::size_t within_tokens, std::size_t bodies,
                              std::size_t listed) {
  object_builder report;
  report.add("total", total)
      .add("within_tokens", within_tokens)
      .add("bodies", bodies)
      .add("listed", listed)
      .add("not_shown", total - bodies - listed);
  return report;
}

void add_token_stop(object_builder& report, const token_split& split, const whole_blocks& kept) {
  report.add("stopped_by", "tokens").add("short_by_tokens", kept.used + kept.next - split.code);
}

owned report_of(const py::module_state& state, const assembled_grounding& made,
                std::int64_t budget) {
  const std::int64_t kept = estimate_tokens(state, made.facts);
  const std::int64_t size = estimate_tokens(state, made.text);
  return object_builder()
      .add("budget", budget)
      .add("size", size)
      .add("floor", made.split.floor)
      .add("share", made.split.code)
      .add("used", made.bodies.used)
      .add("code", made.code)
      .add("facts", object_builder()
                        .add("whole", made.split.facts)
                        .add("room", made.room)
                        .add("kept", kept)
                        .build())
      .add("symbols", code_report(made))
      .add("over", std::max<__int128>(0, __int128(size) - budget))
      .build();
}

}  // namespace grounding_fit
