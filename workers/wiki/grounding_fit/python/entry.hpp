// The entry points of the module: where Python calls in, and where C++ exceptions become its
// errors.
#pragma once

#include <algorithm>

#include "python/error.hpp"

namespace grounding_fit::py {

// What the message of an error names first: a function, or the module's import.
struct origin {
  const char* name;
  const char* mark;  // stands between the name and a colon
  constexpr origin(const char* function) : name(function), mark("()") {}
  static constexpr origin of_import() { return {"import of grounding_fit", ""}; }

 private:
  constexpr origin(const char* words, const char* its_mark) : name(words), mark(its_mark) {}
};

// What a thread has entered of the module, by addresses on its stack.
struct entered_stack {
  std::uintptr_t outermost;  // entry; 0 while the thread is outside of the module
  std::size_t most;          // bytes that entries below that one may take
  std::uintptr_t end;        // of the stack; 0 while it was not asked for
};

// One entry into the module, for as long as it lasts. The host may call back into the module, which
// calls the host again, and so on without end: each level takes kilobytes of the stack, which ends
// long before Python meets a limit of its own.
class entry_guard {
 public:
  entry_guard() noexcept : here_(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))) {
    entered_stack& stack = current_stack;
    // Stacks grow down: an outermost entry below this one belongs to a stack that is gone.
    if (here_ > stack.outermost || stack.outermost == 0) {
      stack.outermost = here_;
      stack.most = std::min(k_most_stack, stack_below(here_) / 2);
    }
    outermost_ = stack.outermost;
    too_deep_ = outermost_ - here_ > stack.most;
  }
  ~entry_guard() {
    if (outermost_ == here_) current_stack.outermost = 0;
  }
  entry_guard(const entry_guard&) = delete;

  bool too_deep() const noexcept { return too_deep_; }

 private:
  // Python's own frames below the outermost entry need room too, so this is far from 8 megabytes.
  static constexpr std::size_t k_most_stack = 1 << 20;

  static inline constinit thread_local entered_stack current_stack = {};

  // Bytes of this thread's stack below an address.
  static std::size_t stack_below(std::uintptr_t here) noexcept {
    if (current_stack.end == 0) current_stack.end = find_stack_end();
    return here > current_stack.end ? here - current_stack.end : k_most_stack;
  }
  static std::uintptr_t find_stack_end() noexcept;  // 1 where nothing tells it

  std::uintptr_t here_, outermost_;
  bool too_deep_;
};

[[noreturn, gnu::cold]] void refuse_reentry();
// Sets Python's error for the C++ exception in flight.
[[gnu::cold]] void set_error_of_exception(origin where) noexcept;

// Runs `body` and gives its value, or `failed` with Python's error set.
template <class Body, class Result>
Result slot_entry(origin where, Result failed, Body&& body) noexcept {
  try {
    const entry_guard here;
    if (here.too_deep()) refuse_reentry();
    return body();
  } catch (...) {
    set_error_of_exception(where);
    return failed;
  }
}

// The same for the usual case, a function that makes a value.
template <class Body>
PyObject* call_entry(origin where, Body&& body) noexcept {
  return slot_entry(where, static_cast<PyObject*>(nullptr), [&] { return body().release(); });
}

}  // namespace grounding_fit::py
