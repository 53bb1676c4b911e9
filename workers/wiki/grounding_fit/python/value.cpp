#include "python/value.hpp"

#include <cmath>
#include <memory>

#include "python/container.hpp"
#include "python/integer.hpp"
#include "python/make.hpp"

namespace grounding_fit::py {

kind kind_of_unusual(handle value) noexcept {
  PyObject* p = value.get();
  if (PyUnicode_Check(p)) return kind::text;
  if (PyLong_Check(p)) return kind::integer;
  if (PyDict_Check(p)) return kind::object;
  if (PyList_Check(p) || PyTuple_Check(p)) return kind::array;
  if (PyFloat_Check(p)) return kind::real;
  return dict_of(value) ? kind::object : kind::other;
}

bool unusual_is_missing(handle value) {
  switch (kind_of(value)) {
    case kind::boolean: return !truth_of(value);
    case kind::integer: return small_integer(value) == 0;  // zero is a small one
    case kind::real: return value_of_real(value) == 0.0;
    case kind::text: return text_is_empty(value);
    case kind::array: return size_of_array(value) == 0;
    case kind::object: return dict(dict_of(value)).size() == 0;
    default: return false;
  }
}

// Whether it is a path is told by its type's name: looking for its methods could run code.
void refuse_as_text(handle value) {
  const bool is_path = std::string_view(Py_TYPE(value.get())->tp_name).ends_with("Path");
  refuse(fault::type, "a string", value, is_path ? "str(path)" : "");
}

void expect_integer(handle value) {
  if (!PyLong_Check(value.get())) refuse(fault::type, "an integer", value);
}

std::int64_t expect_int64(handle value) {
  expect_integer(value);
  const auto small = int64_of(value);
  if (!small) refuse(fault::overflow, "an integer of at most 64 bits", value);
  return *small;
}

double expect_number(handle value) {
  if (kind_of(value) == kind::real) return value_of_real(value);
  if (!PyLong_Check(value.get())) refuse(fault::type, "a float or integer", value);
  const double number = PyLong_AsDouble(value.get());
  if (number != -1.0 || PyErr_Occurred() == nullptr) return number;
  PyErr_Clear();
  return integer::of(new_ref(value)) > 0 ? HUGE_VAL : -HUGE_VAL;
}

owned text_form_of_other(handle value) {
  switch (kind_of(value)) {
    case kind::text: return new_ref(value);
    case kind::integer: {
      // A plain one first: newer CPythons work out the digits of a huge integer by its own methods.
      const owned plain = integer::of(new_ref(value)).object();
      return owned::steal(PyLong_Type.tp_repr(plain.get()));
    }
    case kind::real: return owned::steal(PyFloat_Type.tp_repr(value.get()));
    case kind::boolean: return owned::steal(PyBool_Type.tp_repr(value.get()));
    case kind::null: return new_text("None");
    case kind::array: return owned::steal(PyObject_Str(value.get()));
    case kind::object:
      if (PyDict_Check(value.get())) return owned::steal(PyObject_Str(value.get()));
      return owned::steal(PyObject_Str(mapping(value).copy().get()));  // whatever shows it
    default: refuse(fault::type, "a JSON value", value);
  }
}

owned plain_text(owned text) {
  if (is_plain_text(text)) return text;
  return owned::steal(PyUnicode_FromObject(text.get()));
}

std::string real_digits(double value) {
  char* digits = PyOS_double_to_string(value, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (digits == nullptr) throw python_error_set{};
  const std::unique_ptr<char, void (*)(void*)> held(digits, PyMem_Free);
  return digits;
}

std::size_t json_real_length(double value) {
  if (std::isnan(value)) return std::string_view("NaN").size();
  if (std::isinf(value)) return std::string_view(value > 0 ? "Infinity" : "-Infinity").size();
  return real_digits(value).size();
}

int deepest_nesting() noexcept {
  constexpr int k_deepest = 1000;
  return std::min(Py_GetRecursionLimit(), k_deepest);
}

}  // namespace grounding_fit::py
