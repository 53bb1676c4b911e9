#include "text_scan.hpp"

#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

// Every kernel counts, none searches: real text has a line feed in most vectors, so a branch on
// "nothing to escape here" is mispredicted more often than it saves work.

namespace grounding_fit {
namespace {

// Fills what a last, short step does not read: no escape, and above every code point that has one.
constexpr unsigned k_neutral = 0x7f;

// A byte lane takes up to 5 a step, so this many steps cannot overflow it.
constexpr std::size_t k_steps_per_flush = 255 / 5;

// The last units of a text, padded to a whole step.
template <class Unit, std::size_t Step>
struct padded_step {
  alignas(64) Unit units[Step];

  padded_step(const Unit* rest, std::size_t length) noexcept {
    std::fill_n(units, Step, Unit(k_neutral));
    std::memcpy(units, rest, length * sizeof(Unit));
  }
};

// ---- portable: 16-byte vectors of the compiler, on every processor ------------------------------

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
};

template <template <class> class Kernel>
constexpr scan_kernel kernel_of(const char* name) {
  return {name, Kernel<std::uint8_t>::growth, Kernel<std::uint16_t>::growth,
          Kernel<std::uint32_t>::growth};
}

#if defined(__x86_64__)

// Wide vectors narrow every unit to a byte first: a unit above 0x7f costs nothing, so it may as
// well be 0x7f, and one byte kernel then serves the three widths at a full vector of units a step.
// Which lane a unit ends in does not matter to a sum.

// ---- AVX2: 32 units a step ----------------------------------------------------------------------

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

  GROUNDING_FIT_AVX2 static __m256i weights(__m256i c) noexcept {
    const __m256i quoted =
        _mm256_or_si256(_mm256_cmpeq_epi8(c, all('"')), _mm256_cmpeq_epi8(c, all('\\')));
    const __m256i control = _mm256_cmpeq_epi8(_mm256_min_epu8(c, all(0x1f)), c);
    const __m256i from_8 = _mm256_sub_epi8(c, all(0x08));
    const __m256i named =
        _mm256_andnot_si256(_mm256_cmpeq_epi8(c, all(0x0b)),
                            _mm256_cmpeq_epi8(_mm256_min_epu8(from_8, all(5)), from_8));
    return _mm256_sub_epi8(
        _mm256_add_epi8(_mm256_and_si256(quoted, all(1)), _mm256_and_si256(control, all(5))),
        _mm256_and_si256(named, all(4)));
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
};

#undef GROUNDING_FIT_AVX2

// ---- AVX-512 with byte permutes: 64 units a step, every weight one look-up ----------------------

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
      total +=
          avx2<Unit>::sum_64(_mm256_add_epi64(_mm512_maskz_extracti64x4_epi64(0xf, totals, 0),
                                              _mm512_maskz_extracti64x4_epi64(0xf, totals, 1)));
    }
    if (length > 0) {
      const std::uint64_t present = _bzhi_u64(~0ull, static_cast<unsigned>(length));
      total += sum_of_step(weights(load(units, present)));
    }
    return total;
  }
};

#undef GROUNDING_FIT_AVX512

struct runnable_kernels {
  std::array<scan_kernel, 3> kernels{};
  std::size_t count = 0;

  runnable_kernels() noexcept {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("bmi2") &&
        __builtin_cpu_supports("popcnt")) {
      kernels[count++] = kernel_of<avx512>("avx512");
    }
    if (__builtin_cpu_supports("avx2")) kernels[count++] = kernel_of<avx2>("avx2");
    kernels[count++] = kernel_of<portable>("portable");
  }
};

#else

struct runnable_kernels {
  std::array<scan_kernel, 1> kernels{kernel_of<portable>("portable")};
  std::size_t count = 1;
};

#endif

const runnable_kernels k_runnable;

}  // namespace

std::span<const scan_kernel> scan_kernels() noexcept {
  return {k_runnable.kernels.data(), k_runnable.count};
}

std::size_t escape_growth(text_view text) noexcept {
  const scan_kernel& best = k_runnable.kernels[0];
  switch (text.width()) {
    case 1: return best.of_1(static_cast<const std::uint8_t*>(text.units()), text.length());
    case 2: return best.of_2(static_cast<const std::uint16_t*>(text.units()), text.length());
    default: return best.of_4(static_cast<const std::uint32_t*>(text.units()), text.length());
  }
}

}  // namespace grounding_fit
