// The largest count that fits, by bisection.
#pragma once

#include <cstdint>

namespace grounding_fit {

// The largest count up to `high` for which `fits` holds, which holds for every smaller one as well.
// 0 is never tested.
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
