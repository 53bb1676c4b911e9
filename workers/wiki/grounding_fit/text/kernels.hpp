// What the kernels share. Each has a file of its own: a class template over the width of a unit.
//
// Every kernel counts and none searches: real text has a line feed in most vectors, so a branch on
// "nothing to escape here" is mispredicted more often than it saves work.
#pragma once

#include "text/escape_growth.hpp"

namespace grounding_fit {

// Fills what a last, short step does not read: no escape, and above every code point that has one.
inline constexpr unsigned k_neutral = 0x7f;

// A lane of one byte takes up to 5 a step, so this many steps cannot overflow it.
inline constexpr std::size_t k_steps_per_flush = 255 / 5;

template <template <class> class Kernel>
constexpr escape_kernel kernel_of(const char* name) {
  return {name, Kernel<std::uint8_t>::growth, Kernel<std::uint16_t>::growth,
          Kernel<std::uint32_t>::growth};
}

extern const escape_kernel k_portable_kernel;  // 16-byte vectors of the compiler, everywhere
#if defined(__x86_64__)
extern const escape_kernel k_avx2_kernel;    // 32 units a step
extern const escape_kernel k_avx512_kernel;  // 64 units a step, every weight one look-up
#endif

}  // namespace grounding_fit
