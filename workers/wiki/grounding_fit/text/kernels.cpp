#include "text/kernels.hpp"

namespace grounding_fit {

runnable_kernels::runnable_kernels() noexcept {
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("bmi2") &&
      __builtin_cpu_supports("popcnt")) {
    kernels_.at(count_++) = k_avx512_kernel;
  }
  if (__builtin_cpu_supports("avx2")) kernels_.at(count_++) = k_avx2_kernel;
#elif defined(__aarch64__)
  kernels_.at(count_++) = k_neon_kernel;
#endif
  kernels_.at(count_++) = k_portable_kernel;
}

const runnable_kernels k_runnable_kernels;

}  // namespace grounding_fit
