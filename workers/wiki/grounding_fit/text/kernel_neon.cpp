#include "text/kernels.hpp"

#if defined(__aarch64__)
#include <arm_neon.h>

namespace grounding_fit {
namespace {

// Every unit is narrowed to a byte first, and one above 0xff to 0xff, which costs as little. Which
// lane a unit ends in does not matter to a sum.
template <class Unit>
struct neon {
  static constexpr std::size_t step = 16;

  static uint8x16_t load(const Unit* units) noexcept {
    if constexpr (sizeof(Unit) == 1) return vld1q_u8(units);
    if constexpr (sizeof(Unit) == 2) return narrow(vld1q_u16(units), vld1q_u16(units + 8));
    if constexpr (sizeof(Unit) == 4) return narrow(load_8(units), load_8(units + 8));
  }

  static uint16x8_t load_8(const std::uint32_t* units) noexcept {
    return vqmovn_high_u32(vqmovn_u32(vld1q_u32(units)), vld1q_u32(units + 4));
  }

  static uint8x16_t narrow(uint16x8_t low, uint16x8_t high) noexcept {
    return vqmovn_high_u16(vqmovn_u16(low), high);
  }

  // A look-up beyond its table gives 0.
  static uint8x16_t weights(uint8x16x2_t of_control, uint8x16_t c) noexcept {
    const uint8x16_t control = vqtbl2q_u8(of_control, c);
    const uint8x16_t quoted = vorrq_u8(vceqq_u8(c, vdupq_n_u8('"')), vceqq_u8(c, vdupq_n_u8('\\')));
    return vsubq_u8(control, quoted);  // a mask is -1
  }

  static std::size_t growth(const Unit* units, std::size_t length) noexcept {
    static constexpr std::uint8_t table[32] = {
        5, 5, 5, 5, 5, 5, 5, 5, 1, 1, 1, 5, 1, 1, 5, 5,  // \b \t \n \f \r have a short form
        5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5};
    const uint8x16x2_t of_control = vld1q_u8_x2(table);
    std::size_t total = 0;
    while (length >= step) {
      uint8x16_t sums = vdupq_n_u8(0);
      for (std::size_t n = std::min(length / step, k_steps_per_flush); n > 0; --n) {
        sums = vaddq_u8(sums, weights(of_control, load(units)));
        units += step;
        length -= step;
      }
      total += vaddlvq_u8(sums);
    }
    for (; length > 0; --length) total += growth_of(*units++);
    return total;
  }

  static constexpr auto widen = widen_plainly;  // the compiler makes vectors of it
};

}  // namespace

constinit const text_kernel k_neon_kernel = kernel_of<neon>("neon");

}  // namespace grounding_fit
#endif
