// Every kernel that this processor runs, against the definition: every code unit, every length from
// 0 to 80 at every alignment, and the lengths around a flush of the byte sums; and the copying of
// narrow texts to wider units, by every kernel and by what is done without one.

#include <cstdio>
#include <vector>

#include "text/copy_units.hpp"
#include "text/kernels.hpp"

using namespace grounding_fit;

namespace {

int failures = 0;

template <class Unit>
std::size_t plain(const Unit* units, std::size_t length) {
  std::size_t total = 0;
  for (std::size_t i = 0; i < length; ++i) total += growth_of(units[i]);
  return total;
}

template <class Unit>
void expect_same(const text_kernel& kernel,
                 std::size_t (*growth)(const Unit*, std::size_t) noexcept, const Unit* units,
                 std::size_t length, const char* what) {
  const std::size_t want = plain(units, length);
  const std::size_t got = growth(units, length);
  if (want == got) return;
  std::printf("%s, %zu-byte units, %s, length %zu: %zu, not %zu\n", kernel.name, sizeof(Unit), what,
              length, got, want);
  ++failures;
}

template <class Unit>
void test(const text_kernel& kernel, std::size_t (*growth)(const Unit*, std::size_t) noexcept) {
  // Each unit alone in each lane of a step, among units that cost nothing.
  const std::size_t units = sizeof(Unit) == 1 ? 0x100 : 0x10000 + 0x200;
  std::vector<Unit> text(64, Unit('a'));
  for (std::size_t unit = 0; unit < units; ++unit) {
    // Beyond 16 bits: what a careless narrowing would take for a control character or a quote.
    const auto value = static_cast<Unit>(unit < 0x10000 ? unit : 0x100000 | (unit & 0x1ff));
    const std::size_t lanes = unit < 0x200 ? 64 : 1;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      const std::size_t at = (lane + unit) % 64;
      text[at] = value;
      expect_same(kernel, growth, text.data(), text.size(), "one unit");
      text[at] = Unit('a');
    }
  }
  std::vector<Unit> mixed;
  for (std::size_t i = 0; i < 100000; ++i) mixed.push_back(static_cast<Unit>(i * 2654435761u >> 9));
  std::vector<Unit> costly(mixed.size(), Unit(1));
  for (std::size_t start = 0; start < 64; ++start) {
    for (std::size_t length = 0; length <= 80; ++length) {
      // A copy of its own: reading past its end is a fault under the sanitizers.
      const std::vector<Unit> exact(mixed.begin() + static_cast<long>(start),
                                    mixed.begin() + static_cast<long>(start + length));
      expect_same(kernel, growth, exact.data(), length, "exact buffer");
      expect_same(kernel, growth, mixed.data() + start, length, "alignment");
    }
  }
  for (const std::size_t length :
       {51 * 16 - 1, 51 * 32 - 1, 51 * 64 - 1, 51 * 64, 51 * 64 + 65, 99999}) {
    expect_same(kernel, growth, costly.data() + 1, length, "all costly");
    expect_same(kernel, growth, mixed.data() + 1, length, "long");
  }
}

using widening = void (*)(std::uint16_t*, const std::uint8_t*, std::size_t) noexcept;

void test_widening(const char* name, widening widen) {
  for (std::size_t length = 0; length <= 300; ++length) {
    // A copy of its own, and a mark behind what is written: no more is read, nor written.
    std::vector<std::uint8_t> from(length);
    for (std::size_t i = 0; i < length; ++i) from[i] = static_cast<std::uint8_t>(255 - i);
    std::vector<std::uint16_t> want(from.begin(), from.end()), got(length + 1, 0xabcd);
    want.push_back(0xabcd);
    widen(got.data(), from.data(), length);
    if (got == want) continue;
    std::printf("%s: widening %zu units\n", name, length);
    ++failures;
  }
}

}  // namespace

int main() {
  for (const text_kernel& kernel : k_runnable_kernels.all()) {
    test(kernel, kernel.growth_1);
    test(kernel, kernel.growth_2);
    test(kernel, kernel.growth_4);
    test_widening(kernel.name, kernel.widen);
    std::printf("%s: tested\n", kernel.name);
  }
  test_widening("best", widen);
  return failures == 0 ? 0 : 1;
}
