#include "text/kernels.hpp"

namespace grounding_fit {
namespace {

// Wider ones would fall back to scalar code where the processor has no wider registers.
template <class Unit>
struct portable {
  typedef Unit lanes __attribute__((vector_size(16)));
  static constexpr std::size_t step = 16 / sizeof(Unit);

  static lanes weights(const Unit* units) noexcept {
    lanes c;
    std::memcpy(&c, units, sizeof c);
    const lanes quoted = (lanes)((c == '"') | (c == '\\'));
    const lanes control = (lanes)(c < 0x20);
    const lanes named = (lanes)((c >= 0x08) & (c <= 0x0d) & (c != 0x0b));
    return (quoted & 1) + (control & 5) - (named & 4);
  }

  static std::size_t growth(const Unit* units, std::size_t length) noexcept {
    std::size_t total = 0;
    while (length >= step) {
      lanes sums{};
      for (std::size_t n = std::min(length / step, k_steps_per_flush); n > 0; --n) {
        sums += weights(units);
        units += step;
        length -= step;
      }
      for (std::size_t lane = 0; lane < step; ++lane) total += sums[lane];
    }
    for (; length > 0; --length) total += growth_of(*units++);
    return total;
  }

  static constexpr auto widen = widen_plainly;
};

}  // namespace

constinit const text_kernel k_portable_kernel = kernel_of<portable>("portable");

}  // namespace grounding_fit
