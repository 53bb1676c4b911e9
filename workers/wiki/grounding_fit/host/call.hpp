// Calls into host code, which may do anything: nothing held across one is borrowed.
#pragma once

#include <vector>

#include "host/error.hpp"

namespace grounding_fit::host {

// The arguments are kept alive by the caller, the callable by the call itself.
template <class... Arguments>
owned call(handle callable, const Arguments&... arguments) {
  const owned held = share(callable);
  PyObject* slots[] = {nullptr, arguments.get()...};
  return owned::steal(PyObject_Vectorcall(
      held.get(), slots + 1, sizeof...(arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

bool truth(handle value);  // what the host takes for true
void expect_callable(handle value);
void expect_iterable(handle value);

// Goes through any iterable of the host's.
class iteration {
 public:
  explicit iteration(handle iterable);
  owned next();  // empty at the end

 private:
  owned iterator_;
};

inline bool is_set(handle value) noexcept { return PyAnySet_Check(value.get()); }
// The items of a set, as its own iterator gives them, whatever a derived type says of iterating.
std::vector<owned> items_of_set(handle set);

// A set of texts without duplicates, as the host tells them apart.
class text_set {
 public:
  text_set();
  void add(handle text);
  const std::vector<owned>& texts() const { return texts_; }  // in the order in which they came

 private:
  owned set_;
  std::vector<owned> texts_;
};

}  // namespace grounding_fit::host
