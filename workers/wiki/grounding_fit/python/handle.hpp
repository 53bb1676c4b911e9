// The two handle types, each a pointer wide: `handle` is a borrowed reference, `owned` a strong
// one.
//
// A parameter `handle` says that the caller keeps the value alive; a result `owned` is a new
// reference. A reference is only ever copied by new_ref().
#pragma once

#include <type_traits>
#include <utility>

#include "python/version.hpp"

namespace grounding_fit::py {

class handle {
 public:
  constexpr handle() = default;
  constexpr handle(PyObject* p) : p_(p) {}
  PyObject* get() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }
  bool is(handle other) const { return p_ == other.p_; }

 protected:
  PyObject* p_ = nullptr;
};

struct python_error_set {};  // thrown when Python's error is set

class owned : public handle {
 public:
  constexpr owned() = default;
  owned(owned&& other) noexcept : handle(std::exchange(other.p_, nullptr)) {}
  owned& operator=(owned&& other) noexcept {
    owned(std::move(other)).swap(*this);
    return *this;
  }
  ~owned() { Py_XDECREF(p_); }

  // Takes over the new reference that a function of Python's returned; null means that it failed.
  static owned steal(PyObject* p) {
    if (p == nullptr) throw python_error_set{};
    return owned(p);
  }
  static owned steal_or_null(PyObject* p) noexcept { return owned(p); }
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(p_, nullptr); }
  void swap(owned& other) noexcept { std::swap(p_, other.p_); }

 private:
  constexpr explicit owned(PyObject* p) : handle(p) {}
};

inline owned new_ref(handle h) noexcept {
  Py_XINCREF(h.get());
  return owned::steal_or_null(h.get());
}

// A reference of either kind; one of type `owned` takes over a new reference.
template <class Reference>
Reference refer_to(PyObject* p) noexcept {
  if constexpr (std::is_same_v<Reference, owned>) {
    return owned::steal_or_null(p);
  } else {
    return p;
  }
}

}  // namespace grounding_fit::py
