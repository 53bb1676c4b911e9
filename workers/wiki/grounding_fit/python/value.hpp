// Readers for Python's built-in values. A value of a derived type is read as its built-in base, so
// that none of its own methods runs. *Plain* is a value of a built-in type itself.
#pragma once

#include "python/error.hpp"

namespace grounding_fit::py {

enum class kind { null, boolean, integer, real, text, array, object, other };

kind kind_of_unusual(handle value) noexcept;  // of a type that is none of the plain ones
inline kind kind_of(handle h) noexcept {
  PyObject* p = h.get();
  PyTypeObject* type = Py_TYPE(p);
  if (type == &PyUnicode_Type) return kind::text;
  if (type == &PyLong_Type) return kind::integer;
  if (type == &PyDict_Type) return kind::object;
  if (type == &PyList_Type || type == &PyTuple_Type) return kind::array;
  if (p == Py_None) return kind::null;
  if (type == &PyBool_Type) return kind::boolean;
  if (type == &PyFloat_Type) return kind::real;
  return kind_of_unusual(h);
}

inline bool is_plain_integer(handle value) noexcept { return PyLong_CheckExact(value.get()); }
inline bool is_plain_text(handle value) noexcept { return PyUnicode_CheckExact(value.get()); }
// Whether it is the one plain text of its characters that Python shares, as keys in code are.
inline bool is_interned(handle value) noexcept {
  return is_plain_text(value) && PyUnicode_CHECK_INTERNED(value.get()) != 0;
}

// The value of a text that kind_of has recognised. The view lives as long as the text.
inline text_view view_of(handle text) {
  if (!version::make_ready(text.get())) throw python_error_set{};
  const unsigned width = PyUnicode_KIND(text.get());
  const text_range range = PyUnicode_IS_ASCII(text.get()) ? text_range::ascii
                           : width == 1                   ? text_range::latin_1
                           : width == 2                   ? text_range::basic
                                                          : text_range::full;
  return {PyUnicode_DATA(text.get()), static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get())),
          width, range};
}

// The units of a text that is ASCII, in the form in which Python keeps nearly all; else null.
inline const std::uint8_t* ascii_units_of(handle text) noexcept {
  return PyUnicode_IS_COMPACT_ASCII(text.get()) ? PyUnicode_1BYTE_DATA(text.get()) : nullptr;
}

// In code points.
inline std::size_t length_of(handle text) {
  if (!version::make_ready(text.get())) throw python_error_set{};
  return static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get()));
}
inline bool text_is_empty(handle text) { return length_of(text) == 0; }

inline bool truth_of(handle boolean) noexcept { return boolean.get() == Py_True; }
inline double value_of_real(handle real) noexcept { return PyFloat_AS_DOUBLE(real.get()); }
inline std::size_t size_of_array(handle array) noexcept {
  return static_cast<std::size_t>(Py_SIZE(array.get()));
}

bool unusual_is_missing(handle value);  // neither null nor what is told apart below
// True for null, false, 0, 0.0, and an empty text, array or object; and for an absent value (null
// handle). Everything else counts as present. O(1).
inline bool missing(handle value) {
  if (!value) return true;
  if (is_plain_text(value)) return text_is_empty(value);
  if (value.is(Py_None)) return true;
  std::int64_t integer = 0;
  if (is_plain_integer(value) && version::small_integer(value.get(), integer)) return integer == 0;
  return unusual_is_missing(value);
}

// These refuse a value of another type.
[[noreturn, gnu::cold]] void refuse_as_text(handle value);
inline text_view expect_text(handle value) {
  if (kind_of(value) != kind::text) refuse_as_text(value);
  return view_of(value);
}
std::int64_t expect_int64(handle value);  // OverflowError beyond 64 bits
double expect_number(handle value);       // an integer beyond a double's range reads as infinite
void expect_integer(handle value);        // of any size

// The value as it is written into a text: the same string or a new one. TypeError for what has no
// text. An array or object is written by Python's str(), which may run any code of its items.
owned text_form_of_other(handle value);
inline owned text_form(owned value) {
  if (is_plain_text(value)) return value;
  return text_form_of_other(value);
}
// The same text as a plain string: itself, or a copy of one of a derived type.
owned plain_text(owned text);
// White space as str.strip() sees it.
inline bool is_space(char32_t c) noexcept { return Py_UNICODE_ISSPACE(c); }

// A float as Python writes it: the shortest digits that read back as the same number.
std::string real_digits(double value);
std::size_t json_real_length(double value);

// How many levels of containers a walk may go into: Python's recursion limit or the module's own,
// so that no limit that the host sets lets a walk pass the end of the stack.
int deepest_nesting() noexcept;

}  // namespace grounding_fit::py
