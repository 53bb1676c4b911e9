#include "text/kernels.hpp"

#if defined(__x86_64__)
#include <immintrin.h>

namespace grounding_fit {
namespace {

// The last units of a text, padded to a whole step.
template <class Unit, std::size_t Step>
struct padded_step {
  alignas(64) Unit units[Step];

  padded_step(const Unit* rest, std::size_t length) noexcept {
    std::fill_n(units, Step, Unit(k_neutral));
    std::memcpy(units, rest, length * sizeof(Unit));
  }
};

// Every unit is narrowed to a byte first, all above 0x7f to 0x7f, which escaping makes no longer
// either. So one byte kernel serves the three widths, and takes a full vector of units a step.
// Narrowing moves units to other lanes, which does not matter to a sum.

#define GROUNDING_FIT_AVX2 [[gnu::target("avx2")]]

template <class Unit>
struct avx2 {
  static constexpr std::size_t step = 32;

  GROUNDING_FIT_AVX2 static __m256i all(int byte) noexcept {
    return _mm256_set1_epi8(static_cast<char>(byte));
  }

  GROUNDING_FIT_AVX2 static __m256i load(const Unit* units) noexcept {
    const auto* at = reinterpret_cast<const __m256i*>(units);
    if constexpr (sizeof(Unit) == 1) return _mm256_loadu_si256(at);
    if constexpr (sizeof(Unit) == 2) return _mm256_packus_epi16(low_16(at), low_16(at + 1));
    if constexpr (sizeof(Unit) == 4) {
      return _mm256_packus_epi16(_mm256_packus_epi32(low_32(at), low_32(at + 1)),
                                 _mm256_packus_epi32(low_32(at + 2), low_32(at + 3)));
    }
  }

  GROUNDING_FIT_AVX2 static __m256i low_16(const __m256i* at) noexcept {
    return _mm256_min_epu16(_mm256_loadu_si256(at), _mm256_set1_epi16(k_neutral));
  }

  GROUNDING_FIT_AVX2 static __m256i low_32(const __m256i* at) noexcept {
    return _mm256_min_epu32(_mm256_loadu_si256(at), _mm256_set1_epi32(k_neutral));
  }

  // Of a control character by its code point, where all from 0x0f on have the same.
  GROUNDING_FIT_AVX2 static __m256i weights(__m256i c) noexcept {
    const __m256i of_control = _mm256_setr_epi8(5, 5, 5, 5, 5, 5, 5, 5, 1, 1, 1, 5, 1, 1, 5,
                                                5,  // \b \t \n \f \r have a short form
                                                5, 5, 5, 5, 5, 5, 5, 5, 1, 1, 1, 5, 1, 1, 5, 5);
    const __m256i control = _mm256_cmpeq_epi8(_mm256_min_epu8(c, all(0x1f)), c);
    const __m256i weight = _mm256_shuffle_epi8(of_control, _mm256_min_epu8(c, all(0x0f)));
    const __m256i quoted =
        _mm256_or_si256(_mm256_cmpeq_epi8(c, all('"')), _mm256_cmpeq_epi8(c, all('\\')));
    return _mm256_sub_epi8(_mm256_and_si256(weight, control), quoted);  // a mask is -1
  }

  GROUNDING_FIT_AVX2 static std::size_t sum_64(__m256i sums) noexcept {
    const __m128i half =
        _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    const __m128i one = _mm_add_epi64(half, _mm_unpackhi_epi64(half, half));
    return static_cast<std::size_t>(_mm_cvtsi128_si64(one));
  }

  GROUNDING_FIT_AVX2 static std::size_t growth(const Unit* units, std::size_t length) noexcept {
    const __m256i zero = _mm256_setzero_si256();
    __m256i totals = zero;
    while (length >= step) {
      __m256i sums = zero;
      for (std::size_t n = std::min(length / step, k_steps_per_flush); n > 0; --n) {
        sums = _mm256_add_epi8(sums, weights(load(units)));
        units += step;
        length -= step;
      }
      totals = _mm256_add_epi64(totals, _mm256_sad_epu8(sums, zero));
    }
    if (length > 0) {
      const padded_step<Unit, step> rest(units, length);
      totals = _mm256_add_epi64(totals, _mm256_sad_epu8(weights(load(rest.units)), zero));
    }
    return sum_64(totals);
  }

  GROUNDING_FIT_AVX2 static void widen(std::uint16_t* to, const std::uint8_t* from,
                                       std::size_t length) noexcept {
    constexpr std::size_t vectors = 4, units = 16;
    if (length < units) return widen_plainly(to, from, length);
    std::size_t at = 0;
    for (; at + vectors * units <= length; at += vectors * units) {
      for (std::size_t i = 0; i < vectors; ++i)
        widen_16(to + at + i * units, from + at + i * units);
    }
    for (; at + units <= length; at += units) widen_16(to + at, from + at);
    widen_16(to + length - units, from + length - units);  // what is left, and some once more
  }

  GROUNDING_FIT_AVX2 static void widen_16(std::uint16_t* to, const std::uint8_t* from) noexcept {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_cvtepu8_epi16(units));
  }
};

#undef GROUNDING_FIT_AVX2

}  // namespace

constinit const text_kernel k_avx2_kernel = kernel_of<avx2>("avx2");

}  // namespace grounding_fit
#endif
