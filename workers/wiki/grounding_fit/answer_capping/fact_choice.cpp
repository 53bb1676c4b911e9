#include "answer_capping/fact_choice.hpp"

#include <algorithm>
#include <cmath>

namespace grounding_fit {

using host::module_state;
using host::utility;

__int128 truncated(double finite) {
  constexpr double far = 0x1p100;
  return static_cast<__int128>(std::clamp(finite, -far, far));
}

bool at_most(__int128 sum, double bound) {
  return !std::isnan(bound) && sum <= truncated(std::floor(bound));
}

fact_policy::fact_policy(const module_state& state, grounding_parts parts)
    : state_(state), code_floor_(parts.code_floor()), rules_(state, parts.budget()) {}

verdict fact_policy::of(const fact_block& block) const {
  const text_view text = host::view_of(block.text());
  if (text.starts_with(host::view_of(state_[utility::file_cards_heading])) ||
      text.starts_with(host::view_of(state_[utility::requested_context_heading]))) {
    return verdict::always_kept;
  }
  const text_view key = host::view_of(block.key());
  return !key.empty() && rules_.keeps_first(key) ? verdict::kept_first : verdict::undecided;
}

std::optional<double> fact_policy::share_of(const fact_block& block, double room) const {
  const std::optional<double> share = rules_.share_of(block.key());
  return share ? std::optional(*share * room) : std::nullopt;
}

double fact_policy::floor_of(double room) const {
  const double share = host::expect_number(code_floor_) * room;
  if (!std::isfinite(share)) {
    host::within("parts.code_floor", [&] {
      host::refuse(host::fault::value, "a number whose product with the room is finite",
                   code_floor_);
    });
  }
  return share;
}

}  // namespace grounding_fit
