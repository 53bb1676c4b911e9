#include "text/escape_growth.hpp"

#include <array>

#include "text/kernels.hpp"

namespace grounding_fit {
namespace {

struct runnable_kernels {
  std::array<escape_kernel, 3> kernels{};
  std::size_t count = 0;

  runnable_kernels() noexcept {
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("bmi2") &&
        __builtin_cpu_supports("popcnt")) {
      kernels[count++] = k_avx512_kernel;
    }
    if (__builtin_cpu_supports("avx2")) kernels[count++] = k_avx2_kernel;
#endif
    kernels[count++] = k_portable_kernel;
  }
};

const runnable_kernels k_runnable;

}  // namespace

std::span<const escape_kernel> escape_kernels() noexcept {
  return {k_runnable.kernels.data(), k_runnable.count};
}

std::size_t escape_growth(text_view text) noexcept {
  const escape_kernel& best = k_runnable.kernels[0];
  switch (text.width()) {
    case 1: return best.of_1(static_cast<const std::uint8_t*>(text.units()), text.length());
    case 2: return best.of_2(static_cast<const std::uint16_t*>(text.units()), text.length());
    default: return best.of_4(static_cast<const std::uint32_t*>(text.units()), text.length());
  }
}

}  // namespace grounding_fit
