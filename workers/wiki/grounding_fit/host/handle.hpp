// The two handle types, each a pointer wide: `handle` borrows, `owned` keeps a share of its own.
//
// A parameter `handle` says that the caller keeps the value alive; a result `owned` is a new share.
// A copy of a share is always spelled share().
#pragma once

#include <utility>

#include "host/version.hpp"

namespace grounding_fit::host {

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

struct raised {};  // thrown when the host's error is set

class owned : public handle {
 public:
  constexpr owned() = default;
  owned(owned&& other) noexcept : handle(std::exchange(other.p_, nullptr)) {}
  owned& operator=(owned&& other) noexcept {
    owned(std::move(other)).swap(*this);
    return *this;
  }
  ~owned() { Py_XDECREF(p_); }

  // Takes over a new reference that a host call returned; null means that it failed.
  static owned steal(PyObject* p) {
    if (p == nullptr) throw raised{};
    return owned(p);
  }
  static owned steal_or_null(PyObject* p) noexcept { return owned(p); }
  static owned share(handle h) noexcept {
    Py_XINCREF(h.get());
    return owned(h.get());
  }
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(p_, nullptr); }
  void swap(owned& other) noexcept { std::swap(p_, other.p_); }

 private:
  constexpr explicit owned(PyObject* p) : handle(p) {}
};

inline owned share(handle h) noexcept { return owned::share(h); }

}  // namespace grounding_fit::host
