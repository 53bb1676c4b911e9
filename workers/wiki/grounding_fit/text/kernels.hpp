// The kernels that read texts at the speed of memory, each in a file of its own: a class template
// over the width of a unit.
//
// Every kernel counts and none searches: real text has a line feed in most vectors, so a branch on
// "nothing to escape here" is mispredicted more often than it saves work.
#pragma once

#include <array>
#include <span>

#include "text/escape_growth.hpp"

namespace grounding_fit {

// Fills what a last, short step does not read: no escape, and above every code point that has one.
inline constexpr unsigned k_neutral = 0x7f;

// A lane of one byte takes up to 5 a step, so this many steps cannot overflow it.
inline constexpr std::size_t k_steps_per_flush = 255 / 5;

struct text_kernel {
  const char* name;
  // Characters that escaping adds to so many units.
  std::size_t (*growth_1)(const std::uint8_t* units, std::size_t length) noexcept;
  std::size_t (*growth_2)(const std::uint16_t* units, std::size_t length) noexcept;
  std::size_t (*growth_4)(const std::uint32_t* units, std::size_t length) noexcept;
  // Copies units of one byte to units of two.
  void (*widen)(std::uint16_t* to, const std::uint8_t* from, std::size_t length) noexcept;
};

template <template <class> class Kernel>
constexpr text_kernel kernel_of(const char* name) {
  return {name, Kernel<std::uint8_t>::growth, Kernel<std::uint16_t>::growth,
          Kernel<std::uint32_t>::growth, Kernel<std::uint8_t>::widen};
}

// The kernels that this processor can run, best first. Found once, when the module is loaded.
class runnable_kernels {
 public:
  runnable_kernels() noexcept;
  const text_kernel& best() const { return kernels_[0]; }
  std::span<const text_kernel> all() const { return {kernels_.data(), count_}; }

 private:
  std::array<text_kernel, 3> kernels_{};
  std::size_t count_ = 0;
};
[[gnu::visibility("hidden")]] extern const runnable_kernels k_runnable_kernels;

inline void widen_plainly(std::uint16_t* to, const std::uint8_t* from,
                          std::size_t length) noexcept {
  for (std::size_t i = 0; i < length; ++i) to[i] = from[i];
}

extern const text_kernel k_portable_kernel;  // 16-byte vectors of the compiler, everywhere
#if defined(__x86_64__)
extern const text_kernel k_avx2_kernel;    // 32 units a step
extern const text_kernel k_avx512_kernel;  // 64 units a step, every weight one look-up
#elif defined(__aarch64__)
extern const text_kernel k_neon_kernel;  // 16 units a step; every such processor has it
#endif

}  // namespace grounding_fit
