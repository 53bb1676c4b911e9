#include "host/value.hpp"

#include <cmath>

#include "host/container.hpp"
#include "host/integer.hpp"
#include "host/make.hpp"

namespace grounding_fit::host {
namespace {

// Most levels of containers a walk goes into, whatever limit the host has set for itself.
constexpr int k_deepest = 1000;

// Looked up in the types themselves, since asking for an attribute could run host code.
bool is_path(handle value) {
  const owned name = new_text("__fspath__");
  const handle bases = Py_TYPE(value.get())->tp_mro;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(bases.get()); ++i) {
    auto* base = reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(bases.get(), i));
    // Newer hosts keep the names of their own static types elsewhere.
    if (base->tp_dict != nullptr && dict(base->tp_dict).get(name)) return true;
  }
  return false;
}

// A larger integer than a small one is not zero.
bool integer_is_zero(handle value) { return small_integer(value) == 0; }

}  // namespace

bool other_is_missing(handle value) {
  switch (kind_of(value)) {
    case kind::null: return true;
    case kind::boolean: return !truth_of(value);
    case kind::integer: return integer_is_zero(value);
    case kind::real: return value_of_real(value) == 0.0;
    case kind::text: return view_of(value).empty();
    case kind::array: return size_of_array(value) == 0;
    case kind::object: return size_of_dict(value) == 0;
    default: return false;
  }
}

void refuse_as_text(handle value) {
  refuse(fault::type, "a string", value, is_path(value) ? "str(path)" : "");
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
  return integer::of(share(value)) > 0 ? HUGE_VAL : -HUGE_VAL;
}

owned text_form_of_other(handle value) {
  switch (kind_of(value)) {
    case kind::text: return share(value);
    case kind::integer: {
      // A plain one first: newer hosts work out the digits of a huge integer by its own methods.
      const owned plain = integer::of(share(value)).object();
      return owned::steal(PyLong_Type.tp_repr(plain.get()));
    }
    case kind::real: return owned::steal(PyFloat_Type.tp_repr(value.get()));
    case kind::boolean: return owned::steal(PyBool_Type.tp_repr(value.get()));
    case kind::null: return new_text("None");
    case kind::array:
    case kind::object: return owned::steal(PyObject_Str(value.get()));
    default: refuse(fault::type, "a JSON value", value);
  }
}

owned plain_text(owned text) {
  if (PyUnicode_CheckExact(text.get())) return text;
  return owned::steal(PyUnicode_FromObject(text.get()));
}

std::size_t real_length(handle real) {
  const double value = value_of_real(real);
  if (std::isnan(value)) return std::string_view("NaN").size();
  if (std::isinf(value)) return std::string_view(value > 0 ? "Infinity" : "-Infinity").size();
  char* digits = PyOS_double_to_string(value, 'r', 0, Py_DTSF_ADD_DOT_0, nullptr);
  if (digits == nullptr) throw raised{};
  const std::size_t length = std::strlen(digits);
  PyMem_Free(digits);
  return length;
}

int deepest_nesting() noexcept { return std::min(Py_GetRecursionLimit(), k_deepest); }

}  // namespace grounding_fit::host
