#include "python/integer.hpp"

#include <cmath>

#include "python/make.hpp"
#include "python/value.hpp"

namespace grounding_fit::py {
namespace {

std::size_t decimal_length(std::int64_t value) {
  auto magnitude =
      value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  std::size_t length = value < 0 ? 2 : 1;
  while (magnitude >= 10) {
    magnitude /= 10;
    ++length;
  }
  return length;
}

}  // namespace

std::optional<std::int64_t> int64_of(handle value) noexcept {
  int overflow = 0;
  const long long small = PyLong_AsLongLongAndOverflow(value.get(), &overflow);
  return overflow == 0 ? std::optional<std::int64_t>(small) : std::nullopt;
}

integer integer::of_large(handle value) {
  int overflow = 0;
  integer result(PyLong_AsLongLongAndOverflow(value.get(), &overflow));
  if (overflow != 0) result.small_ = overflow < 0 ? limits::min() : limits::max();
  if (result.big()) {
    // An int of a derived type becomes a plain one; a plain one stays itself.
    result.object_ = owned::steal(PyLong_Type.tp_as_number->nb_int(value.get()));
  } else if (PyLong_CheckExact(value.get())) {
    result.object_ = new_ref(value);
  }
  return result;
}

integer integer::of(double finite) {
  if (std::abs(finite) < 0x1p63) return integer(static_cast<std::int64_t>(finite));
  return of(owned::steal(PyLong_FromDouble(finite)));
}

integer integer::of_text(handle text) {
  const owned plain = plain_text(new_ref(text));  // Python's error would show it by its own repr
  PyObject* value = PyLong_FromUnicodeObject(plain.get(), 10);
  if (value != nullptr) return of(owned::steal(value));
  if (!PyErr_ExceptionMatches(PyExc_ValueError)) throw python_error_set{};
  saved_error cause;
  if (!cause.is_a(PyExc_ValueError)) {
    cause.restore();
    throw python_error_set{};
  }
  try {
    refuse(fault::value, "an integer", text);
  } catch (bad_value& error) {
    error.cause = new_ref(cause.value());
    throw;
  }
}

bool integer::is_greater(const integer& other) const {
  const int greater = PyObject_RichCompareBool(object_.get(), other.object_.get(), Py_GT);
  if (greater < 0) throw python_error_set{};
  return greater != 0;
}

std::size_t integer::length() const {
  if (!big()) return decimal_length(small_);
  return view_of(owned::steal(PyLong_Type.tp_repr(object_.get()))).length();
}

void integer::expect_writable() const {
  if (big()) length();
}

owned integer::new_object() const { return new_integer(small_); }

std::size_t integer_length(handle value) {
  if (const auto small = small_integer(value)) return decimal_length(*small);
  if (const auto small = int64_of(value)) return decimal_length(*small);
  return integer::of(new_ref(value)).length();
}

}  // namespace grounding_fit::py
