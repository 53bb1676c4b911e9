#include "text/escape_growth.hpp"

#include "text/kernels.hpp"

namespace grounding_fit {

std::size_t escape_growth(text_view text) noexcept {
  const text_kernel& best = k_runnable_kernels.best();
  switch (text.width()) {
    case 1: return best.growth_1(static_cast<const std::uint8_t*>(text.units()), text.length());
    case 2: return best.growth_2(static_cast<const std::uint16_t*>(text.units()), text.length());
    default: return best.growth_4(static_cast<const std::uint32_t*>(text.units()), text.length());
  }
}

}  // namespace grounding_fit
