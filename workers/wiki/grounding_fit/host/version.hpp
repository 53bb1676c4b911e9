// What differs between the CPythons that the module is built for, and the one place that knows.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <array>
#include <cstdint>

#if PY_VERSION_HEX < 0x030C0000
#include <structmember.h>
#define Py_T_OBJECT_EX T_OBJECT_EX
#define Py_READONLY READONLY
#endif

namespace grounding_fit::host::version {

// Up to 3.11 a text made by the oldest C API has no final form yet. False with the host's error
// set.
inline bool make_ready([[maybe_unused]] PyObject* text) {
#if PY_VERSION_HEX < 0x030C0000
  return PyUnicode_READY(text) == 0;
#else
  return true;
#endif
}

// The value of an integer of one digit of the host's, as nearly all are; false for a larger one.
inline bool small_integer(PyObject* integer, std::int64_t& value) {
  const auto* digits = reinterpret_cast<const PyLongObject*>(integer);
#if PY_VERSION_HEX < 0x030C0000
  const Py_ssize_t size = Py_SIZE(integer);
  if (size < -1 || size > 1) return false;
  value = size * static_cast<std::int64_t>(digits->ob_digit[0]);
  return true;
#else
  if (!PyUnstable_Long_IsCompact(digits)) return false;
  value = PyUnstable_Long_CompactValue(digits);
  return true;
#endif
}

// How a module runs when it is imported, and what newer hosts ask of it beside.
inline auto module_slots(int (*execute)(PyObject*)) {
  std::array<PyModuleDef_Slot, 4> slots{};  // the one after the last is the end mark
  std::size_t count = 0;
  slots[count++] = {Py_mod_exec, reinterpret_cast<void*>(execute)};
#if PY_VERSION_HEX >= 0x030C0000
  slots[count++] = {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED};
#endif
#if PY_VERSION_HEX >= 0x030D0000
  // Lists and dicts are read in place, which another thread could change without the lock.
  slots[count++] = {Py_mod_gil, Py_MOD_GIL_USED};
#endif
  return slots;
}

}  // namespace grounding_fit::host::version
