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

// How far a thread has entered the module, as addresses on its stack.
struct entered_stack {
  std::uintptr_t outermost;  // address of its outermost entry; 0 while it is outside of the module
  std::size_t most;          // bytes that entries below that one may take
  std::uintptr_t end;        // of the stack; 0 while it was not asked for
};

// One entry into the module, for as long as it lasts. The host may call back into the module, which
// calls the host again, and so on without end: each level takes kilobytes of the stack, which ends
// long before Python meets a limit of its own.
class entry_guard {
 public:
  entry_guard() noexcept
      : stack_(current_stack), here_(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))) {
    // Stacks grow down: an entry at a higher address than the outermost one is not inside of it, so
    // there is none, or the thread runs on another stack.
    if (here_ <= stack_.outermost) return;
    if (stack_.end == 0) stack_.end = find_stack_end();
    const std::size_t left = here_ > stack_.end ? here_ - stack_.end : k_most_stack;
    stack_.outermost = here_;
    stack_.most = std::min(k_most_stack, left / 2);
  }
  ~entry_guard() {
    if (stack_.outermost == here_) stack_.outermost = 0;
  }
  entry_guard(const entry_guard&) = delete;

  bool too_deep() const noexcept { return stack_.outermost - here_ > stack_.most; }

 private:
  // Python's own frames below the outermost entry need room too, so this is far from 8 megabytes.
  static constexpr std::size_t k_most_stack = 1 << 20;

  static inline constinit thread_local entered_stack current_stack = {};

  static std::uintptr_t find_stack_end() noexcept;  // 1 where nothing tells it

  entered_stack& stack_;
  std::uintptr_t here_;
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
