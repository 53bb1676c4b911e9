#include "text/copy_units.hpp"

#include "text/kernels.hpp"

namespace grounding_fit {
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
    k_runnable_kernels.best().widen(static_cast<std::uint16_t*>(to),
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
