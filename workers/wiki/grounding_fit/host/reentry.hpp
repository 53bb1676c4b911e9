// Calls of the host that lead back into the module, which takes them again, and so on without end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace grounding_fit::host {

// Most bytes of the stack between the outermost entry of a thread and the innermost one. A level
// takes kilobytes of it, so that a stack of the usual 8 megabytes is full long before the host
// meets a limit of its own, and what the host keeps below the outermost entry needs room as well.
inline constexpr std::size_t k_most_stack = 1 << 20;

// The stack of this thread where it entered the module; 0 while it is outside. A thread that ends
// within a call leaves it, which nobody sees.
inline constinit thread_local std::uintptr_t outermost_entry = 0;

// One entry into the module, for as long as it lasts.
class entered {
 public:
  entered() noexcept
      : here_(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))),
        outermost_(outermost_entry) {
    // Stacks grow down: an outermost entry below this one belongs to a stack that is gone.
    if (here_ > outermost_ || outermost_ == 0) outermost_entry = outermost_ = here_;
  }
  ~entered() {
    if (outermost_ == here_) outermost_entry = 0;
  }
  entered(const entered&) = delete;

  bool too_deep() const noexcept { return outermost_ - here_ > k_most_stack; }

 private:
  std::uintptr_t here_, outermost_;
};

}  // namespace grounding_fit::host
