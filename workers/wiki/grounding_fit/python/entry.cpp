#include "python/entry.hpp"

#include <pthread.h>

#include <new>
#include <stdexcept>

namespace grounding_fit::py {
namespace {

PyObject* error_type(fault kind) {
  switch (kind) {
    case fault::type: return PyExc_TypeError;
    case fault::value: return PyExc_ValueError;
    case fault::recursion: return PyExc_RecursionError;
    default: return PyExc_OverflowError;
  }
}

void set_error(origin where, bad_value& error) {
  const owned message = error.message(std::string(where.name) + where.mark);
  PyErr_SetObject(error_type(error.kind), message.get());
  if (!error.cause) return;
  saved_error made;
  if (made.is_a(error_type(error.kind))) {  // else memory ran out
    PyException_SetCause(made.value().get(), error.cause.release());
  }
  made.restore();
}

void set_error(origin where, const missing_key& error) {
  PyErr_SetObject(PyExc_KeyError, error.key.get());
  saved_error made;
  if (made.is_a(PyExc_KeyError)) {  // else memory ran out
    const std::string note = std::string(where.name) + where.mark + ": " + error.expected;
    if (!version::add_note(made.value().get(), note.c_str())) return;
  }
  made.restore();
}

}  // namespace

std::uintptr_t entry_guard::find_stack_end() noexcept {
  std::uintptr_t end = 1;
#ifdef __linux__
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return end;
  void* lowest = nullptr;
  std::size_t size = 0;
  if (pthread_attr_getstack(&attributes, &lowest, &size) == 0 && lowest != nullptr) {
    end = reinterpret_cast<std::uintptr_t>(lowest);
  }
  pthread_attr_destroy(&attributes);
#endif
  return end;
}

void refuse_reentry() {
  refuse(fault::recursion, "called from within its own calls of the host, too deep for the stack");
}

void set_error_of_exception(origin where) noexcept {
  try {
    try {
      throw;
    } catch (const python_error_set&) {
      // Python sets no error where it has no memory for the name of a type.
      if (PyErr_Occurred() == nullptr) PyErr_NoMemory();
    } catch (bad_value& error) {
      set_error(where, error);
    } catch (const missing_key& error) {
      set_error(where, error);
    }
  } catch (const python_error_set&) {  // the error's own text could not be made
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_Format(PyExc_SystemError, "%s%s: %s", where.name, where.mark, error.what());
  }
}

}  // namespace grounding_fit::py
