#include "python/make.hpp"

#include <algorithm>

#include "text/copy_units.hpp"

namespace grounding_fit::py {

owned new_text(std::span<const text_view> pieces) {
  std::size_t length = 0;
  text_range range = text_range::ascii;
  for (const text_view& piece : pieces) {
    length += piece.length();
    range = std::max(range, piece.range());
  }
  constexpr Py_UCS4 largest[] = {0x7f, 0xff, 0xffff, 0x10ffff};
  owned text = owned::steal(
      PyUnicode_New(static_cast<Py_ssize_t>(length), largest[static_cast<std::size_t>(range)]));
  const unsigned width = PyUnicode_KIND(text.get());
  auto* to = static_cast<std::byte*>(PyUnicode_DATA(text.get()));
  for (const text_view& piece : pieces) {
    copy_units(to, width, piece);
    to += piece.length() * width;
  }
  return text;
}

owned empty_text() { return owned::steal(PyUnicode_New(0, 0)); }

owned new_list(std::vector<owned> values, std::vector<owned> more) {
  owned list = owned::steal(PyList_New(static_cast<Py_ssize_t>(values.size() + more.size())));
  PyObject** to = reinterpret_cast<PyListObject*>(list.get())->ob_item;
  for (owned& value : values) *to++ = value.release();
  for (owned& value : more) *to++ = value.release();
  return list;
}

owned new_tuple(std::vector<owned> values) {
  owned tuple = owned::steal(PyTuple_New(static_cast<Py_ssize_t>(values.size())));
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), values[i].release());
  }
  return tuple;
}

owned new_integer(std::int64_t value) { return owned::steal(PyLong_FromLongLong(value)); }
owned new_wide_integer(__int128 value) {
  const auto low = static_cast<std::int64_t>(value);
  if (low == value) return new_integer(low);
  const owned high = new_integer(static_cast<std::int64_t>(value >> 64));
  const owned shifted = owned::steal(PyNumber_Lshift(high.get(), new_integer(64).get()));
  const owned rest = new_unsigned(static_cast<std::uint64_t>(value));
  return owned::steal(PyNumber_Or(shifted.get(), rest.get()));
}
owned new_boolean(bool value) { return new_ref(value ? Py_True : Py_False); }
owned new_unsigned(std::uint64_t value) { return owned::steal(PyLong_FromUnsignedLongLong(value)); }
owned new_real(double value) { return owned::steal(PyFloat_FromDouble(value)); }
owned new_dict() { return owned::steal(PyDict_New()); }

owned read_only_view(handle dict) { return owned::steal(PyDictProxy_New(dict.get())); }

void set_item(handle dict, handle key, handle value) {
  if (PyDict_SetItem(dict.get(), key.get(), value.get()) < 0) throw python_error_set{};
}

}  // namespace grounding_fit::py
