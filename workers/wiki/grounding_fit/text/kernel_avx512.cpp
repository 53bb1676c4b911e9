#include "text/kernels.hpp"

#if defined(__x86_64__)
#include <immintrin.h>

#include <array>

namespace grounding_fit {
namespace {

// Every unit becomes a byte first: one above 0x7f costs nothing, so it may as well be 0x7f.
//
// The plain forms of some intrinsics make g++ 12 warn of its own header; those that zero what they
// do not write, given a full mask, are the same instructions.

alignas(64) constexpr auto k_weights = [] {
  std::array<std::uint8_t, k_neutral + 1> table{};
  for (unsigned c = 0; c < table.size(); ++c) table[c] = static_cast<std::uint8_t>(growth_of(c));
  return table;
}();

#define GROUNDING_FIT_AVX512 [[gnu::target("avx512f,avx512bw,avx512vbmi,bmi2,popcnt")]]

template <class Unit>
struct avx512 {
  static constexpr std::size_t step = 64;
  static constexpr std::size_t k_worth_aligning = 16 * step;

  // `present` has a bit for each of the 64 units; the others are not read. A vector without any is
  // not loaded at all: where it would lie in a page that is not there, suppressing the fault costs
  // more than a hundred times the load.
  GROUNDING_FIT_AVX512 static __m512i load(const Unit* units, std::uint64_t present) noexcept {
    if constexpr (sizeof(Unit) == 1) {
      const __m512i top = _mm512_set1_epi8(k_neutral);
      return _mm512_min_epu8(_mm512_mask_loadu_epi8(top, present, units), top);
    }
    if constexpr (sizeof(Unit) == 2) {
      return _mm512_packus_epi16(low_16(units, 0, present), low_16(units, 32, present));
    }
    if constexpr (sizeof(Unit) == 4) {
      return _mm512_packus_epi16(
          _mm512_packus_epi32(low_32(units, 0, present), low_32(units, 16, present)),
          _mm512_packus_epi32(low_32(units, 32, present), low_32(units, 48, present)));
    }
  }

  GROUNDING_FIT_AVX512 static __m512i low_16(const Unit* units, std::size_t from,
                                             std::uint64_t present) noexcept {
    const __m512i top = _mm512_set1_epi16(k_neutral);
    const auto lanes = static_cast<__mmask32>(present >> from);
    if (lanes == 0) return top;
    return _mm512_min_epu16(_mm512_mask_loadu_epi16(top, lanes, units + from), top);
  }

  GROUNDING_FIT_AVX512 static __m512i low_32(const Unit* units, std::size_t from,
                                             std::uint64_t present) noexcept {
    const __m512i top = _mm512_set1_epi32(k_neutral);
    const auto lanes = static_cast<__mmask16>(present >> from);
    if (lanes == 0) return top;
    return _mm512_maskz_min_epu32(0xffff, _mm512_mask_loadu_epi32(top, lanes, units + from), top);
  }

  GROUNDING_FIT_AVX512 static __m512i weights(__m512i c) noexcept {
    return _mm512_permutex2var_epi8(_mm512_load_si512(k_weights.data()), c,
                                    _mm512_load_si512(k_weights.data() + 64));
  }

  // The sum of weights that are 0, 1 or 5: most texts are one such step, and counting two bits is
  // done sooner than adding up lanes.
  GROUNDING_FIT_AVX512 static std::size_t sum_of_step(__m512i w) noexcept {
    const std::uint64_t any = _mm512_test_epi8_mask(w, _mm512_set1_epi8(1));
    const std::uint64_t five = _mm512_test_epi8_mask(w, _mm512_set1_epi8(4));
    return static_cast<std::size_t>(_mm_popcnt_u64(any) + 4 * _mm_popcnt_u64(five));
  }

  GROUNDING_FIT_AVX512 static std::size_t sum_of_lanes(__m512i totals) noexcept {
    const __m256i half = _mm256_add_epi64(_mm512_maskz_extracti64x4_epi64(0xf, totals, 0),
                                          _mm512_maskz_extracti64x4_epi64(0xf, totals, 1));
    const __m128i quarter =
        _mm_add_epi64(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    return static_cast<std::size_t>(
        _mm_cvtsi128_si64(_mm_add_epi64(quarter, _mm_unpackhi_epi64(quarter, quarter))));
  }

  GROUNDING_FIT_AVX512 static std::size_t growth(const Unit* units, std::size_t length) noexcept {
    std::size_t total = 0;
    if (length >= k_worth_aligning) {
      // Up to a cache line's start: a vector that lies across two lines costs two loads.
      const std::size_t head = -reinterpret_cast<std::uintptr_t>(units) % 64 / sizeof(Unit);
      total = sum_of_step(weights(load(units, _bzhi_u64(~0ull, static_cast<unsigned>(head)))));
      units += head;
      length -= head;
    }
    if (length >= step) {
      const __m512i zero = _mm512_setzero_si512();
      __m512i totals = zero;
      do {
        __m512i sums = zero;
        for (std::size_t n = std::min(length / step, k_steps_per_flush); n > 0; --n) {
          sums = _mm512_add_epi8(sums, weights(load(units, ~0ull)));
          units += step;
          length -= step;
        }
        totals = _mm512_add_epi64(totals, _mm512_sad_epu8(sums, zero));
      } while (length >= step);
      total += sum_of_lanes(totals);
    }
    if (length > 0) {
      const std::uint64_t present = _bzhi_u64(~0ull, static_cast<unsigned>(length));
      total += sum_of_step(weights(load(units, present)));
    }
    return total;
  }

  GROUNDING_FIT_AVX512 static void widen(std::uint16_t* to, const std::uint8_t* from,
                                         std::size_t length) noexcept {
    constexpr std::size_t half = step / 2;
    for (; length >= half; length -= half) {
      const __m256i units = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
      _mm512_storeu_si512(to, _mm512_maskz_cvtepu8_epi16(~__mmask32(0), units));
      from += half;
      to += half;
    }
    widen_plainly(to, from, length);
  }
};

#undef GROUNDING_FIT_AVX512

}  // namespace

constinit const text_kernel k_avx512_kernel = kernel_of<avx512>("avx512");

}  // namespace grounding_fit
#endif
