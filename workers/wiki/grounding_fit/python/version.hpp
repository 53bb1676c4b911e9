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

namespace grounding_fit::py::version {

// Without Python's lock, another thread may change a list or dict between any two steps.
#ifdef Py_GIL_DISABLED
inline constexpr bool k_free_threaded = true;
#else
inline constexpr bool k_free_threaded = false;
#endif

// Up to 3.11 a text made by the oldest C API has no final form yet. False with Python's error set.
inline bool make_ready([[maybe_unused]] PyObject* text) {
#if PY_VERSION_HEX < 0x030C0000
  return PyUnicode_READY(text) == 0;
#else
  return true;
#endif
}

// The value of an integer of at most one of Python's digits, as nearly all are; false for others.
inline bool small_integer(PyObject* integer, std::int64_t& value) {
  const auto* digits = reinterpret_cast<const PyLongObject*>(integer);
#if PY_VERSION_HEX < 0x030C0000
  const Py_ssize_t size = Py_SIZE(integer);
  if (size < -1 || size > 1) return false;
  value = size == 0 ? 0 : size * static_cast<std::int64_t>(digits->ob_digit[0]);  // 0 may have none
  return true;
#else
  if (!PyUnstable_Long_IsCompact(digits)) return false;
  value = PyUnstable_Long_CompactValue(digits);
  return true;
#endif
}

// An item of a list, or null beyond its end: a new reference where threads run freely, else a
// borrowed one.
inline PyObject* list_item(PyObject* list, Py_ssize_t i) {
#ifdef Py_GIL_DISABLED
  PyObject* item = PyList_GetItemRef(list, i);
  if (item == nullptr) PyErr_Clear();
  return item;
#else
  return i < PyList_GET_SIZE(list) ? PyList_GET_ITEM(list, i) : nullptr;
#endif
}

// The same of a tuple, and of an item that is there.
inline PyObject* tuple_item(PyObject* tuple, Py_ssize_t i) {
  PyObject* item = PyTuple_GET_ITEM(tuple, i);
#ifdef Py_GIL_DISABLED
  Py_INCREF(item);
#endif
  return item;
}

// The two items of a list or tuple of two, referenced in the same way; false if the list has
// shrunk.
inline bool two_items(PyObject* array, PyObject* (&both)[2]) {
#ifdef Py_GIL_DISABLED
  const bool is_list = PyList_Check(array);
  both[0] = is_list ? list_item(array, 0) : tuple_item(array, 0);
  both[1] = is_list ? list_item(array, 1) : tuple_item(array, 1);
  if (both[0] != nullptr && both[1] != nullptr) return true;
  Py_XDECREF(both[0]);
  Py_XDECREF(both[1]);
  return false;
#else
  PyObject* const* items = PySequence_Fast_ITEMS(array);
  both[0] = items[0];
  both[1] = items[1];
  return true;
#endif
}

// A new reference to the value under a key. Null when there is none, or with Python's error set.
inline PyObject* dict_item(PyObject* dict, PyObject* key) {
#if PY_VERSION_HEX >= 0x030D0000
  PyObject* value = nullptr;
  PyDict_GetItemRef(dict, key, &value);
  return value;
#else
  PyObject* value = PyDict_GetItemWithError(dict, key);
  if (value != nullptr) Py_INCREF(value);
  return value;
#endif
}

// From 3.11 on an error can have notes, which are shown below it. False with Python's error set.
inline bool add_note([[maybe_unused]] PyObject* error, [[maybe_unused]] const char* note) {
#if PY_VERSION_HEX >= 0x030B0000
  PyObject* added = PyObject_CallMethod(error, "add_note", "s", note);
  Py_XDECREF(added);
  return added != nullptr;
#else
  return true;
#endif
}

// Keeps other threads from changing a container, until one of our steps waits for something.
class critical_section {
 public:
#ifdef Py_GIL_DISABLED
  explicit critical_section(PyObject* of) { PyCriticalSection_Begin(&section_, of); }
  ~critical_section() { PyCriticalSection_End(&section_); }
  critical_section(const critical_section&) = delete;

 private:
  PyCriticalSection section_;
#else
  explicit critical_section(PyObject*) {}
#endif
};

// From 3.15 on there is a dict that cannot be changed, which is not derived from dict.
inline bool is_frozen_dict([[maybe_unused]] PyObject* value) {
#if PY_VERSION_HEX >= 0x030F0000
  return PyFrozenDict_Check(value);
#else
  return false;
#endif
}

// How a module runs when it is imported, plus the slots that newer CPythons require.
inline auto module_slots(int (*execute)(PyObject*)) {
  std::array<PyModuleDef_Slot, 4> slots{};  // the one after the last is the end mark
  std::size_t count = 0;
  slots[count++] = {Py_mod_exec, reinterpret_cast<void*>(execute)};
#if PY_VERSION_HEX >= 0x030C0000
  slots[count++] = {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED};
#endif
#if PY_VERSION_HEX >= 0x030D0000
  // What is needed to run without the lock is written, but never ran.
  slots[count++] = {Py_mod_gil, Py_MOD_GIL_USED};
#endif
  return slots;
}

}  // namespace grounding_fit::py::version
