// Calls into code of the host's, which may do anything: nothing held across one is borrowed.
#pragma once

#include "python/error.hpp"

namespace grounding_fit::py {

// The arguments are kept alive by the caller, the callable by the call itself.
template <class... Arguments>
owned call(handle callable, const Arguments&... arguments) {
  const owned held = new_ref(callable);
  PyObject* slots[] = {nullptr, arguments.get()...};
  return owned::steal(PyObject_Vectorcall(
      held.get(), slots + 1, sizeof...(arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// What Python takes for true.
inline bool truth(handle value) {
  const int result = PyObject_IsTrue(value.get());
  if (result < 0) throw python_error_set{};
  return result != 0;
}

inline void expect_callable(handle value) {
  if (!PyCallable_Check(value.get())) refuse(fault::type, "a callable", value);
}

}  // namespace grounding_fit::py
