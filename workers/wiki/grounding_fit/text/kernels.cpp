#include "text/kernels.hpp"

#include <array>

#include "text/copy_units.hpp"

namespace grounding_fit {
namespace {

struct runnable_kernels {
  std::array<text_kernel, 3> kernels{};
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

std::span<const text_kernel> text_kernels() noexcept {
  return {k_runnable.kernels.data(), k_runnable.count};
}

std::size_t escape_growth(text_view text) noexcept {
  const text_kernel& best = k_runnable.kernels[0];
  switch (text.width()) {
    case 1: return best.growth_1(static_cast<const std::uint8_t*>(text.units()), text.length());
    case 2: return best.growth_2(static_cast<const std::uint16_t*>(text.units()), text.length());
    default: return best.growth_4(static_cast<const std::uint32_t*>(text.units()), text.length());
  }
}

namespace {

template <class To>
void copy_each(void* to, text_view from) {
  from.with_units([&](const auto* units) {
    std::transform(units, units + from.length(), static_cast<To*>(to),
                   [](auto unit) { return static_cast<To>(unit); });
  });
}

}  // namespace

void copy_units(void* to, unsigned width, text_view from) noexcept {
  if (from.empty()) return;
  if (width == from.width()) {
    std::memcpy(to, from.units(), from.bytes());
  } else if (width == 2 && from.width() == 1) {
    k_runnable.kernels[0].widen(static_cast<std::uint16_t*>(to),
                                static_cast<const std::uint8_t*>(from.units()), from.length());
  } else if (width == 1) {
    copy_each<std::uint8_t>(to, from);
  } else if (width == 2) {
    copy_each<std::uint16_t>(to, from);
  } else {
    copy_each<std::uint32_t>(to, from);
  }
}

}  // namespace grounding_fit
