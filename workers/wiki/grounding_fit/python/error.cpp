#include "python/error.hpp"

#include "python/integer.hpp"
#include "python/make.hpp"
#include "python/value.hpp"

namespace grounding_fit::py {
namespace {

// Most code points of a refused text that its error quotes.
constexpr std::size_t k_quoted_chars = 40;

// The text in quotes, as Python writes it, its end left out when it is long.
std::string quoted(text_view text) {
  const owned start = new_text(text.slice(0, k_quoted_chars));
  const owned repr = owned::steal(PyUnicode_Type.tp_repr(start.get()));
  const owned utf8 = owned::steal(PyUnicode_AsUTF8String(repr.get()));
  return PyBytes_AS_STRING(utf8.get()) + std::string(text.length() > k_quoted_chars ? "..." : "");
}

// What a value is, in a few words: the value of a plain type, else the type.
std::string description(handle value) {
  switch (kind_of(value)) {
    case kind::text: return quoted(view_of(value));
    case kind::null: return "None";
    case kind::boolean: return truth_of(value) ? "True" : "False";
    case kind::real: return real_digits(value_of_real(value));
    case kind::integer: {
      const auto small = int64_of(value);
      return small ? std::to_string(*small) : "an integer beyond 64 bits";
    }
    default: return Py_TYPE(value.get())->tp_name;
  }
}

}  // namespace

// ---- values that are refused --------------------------------------------------------------------

void bad_value::prepend(step here) {
  if (kind == fault::recursion) return;  // its place would be as long as it is deep
  if (here.form == step::form::key) return prepend_key(here.text);
  const bool is_index = here.form == step::form::index;
  std::string first(is_index ? "[" : here.text);
  if (is_index) first.append(std::to_string(here.index)).append("]");
  // An index, a key or a dotted name is a part of what stands before it; other words are not.
  const bool a_part = place.empty() || place[0] == '[' || place[0] == '.' || first.back() == '.';
  place = first + (a_part ? "" : ": ") + place;
}

void bad_value::prepend_key(text_view key) {
  if (kind == fault::recursion) return;
  std::string here = "[";
  here.append(quoted(key)).append("]");
  prepend(std::string_view(here));
}

owned bad_value::message(std::string_view led_by) const {
  std::string text(led_by);
  text.append(": ").append(place).append(place.empty() ? "" : ": ").append(what);
  return owned::steal(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

void refuse(fault kind, std::string_view expected, handle got, std::string_view remedy) {
  std::string what = "expected " + std::string(expected) + ", got " + description(got);
  if (!remedy.empty()) what += "; pass " + std::string(remedy);
  refuse(kind, what);
}

void refuse(fault kind, std::string_view what) { throw bad_value{kind, std::string(what), {}, {}}; }

void refuse_name(fault kind, std::string_view what, text_view name) {
  refuse(kind, std::string(what) + " " + quoted(name));
}

// ---- Python's own errors ------------------------------------------------------------------------

void raise_size_mismatch(std::int64_t measured, std::int64_t built) {
  raise_error(PyExc_AssertionError, "a candidate measured as %lld characters takes %lld",
              static_cast<long long>(measured), static_cast<long long>(built));
}

bool discard_error() noexcept {
  if (!PyErr_ExceptionMatches(PyExc_Exception) || PyErr_ExceptionMatches(PyExc_MemoryError)) {
    return false;
  }
  PyErr_Clear();
  return true;
}

saved_error::saved_error() {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  type_ = owned::steal_or_null(type);
  value_ = owned::steal_or_null(value);
  traceback_ = owned::steal_or_null(traceback);
}

bool saved_error::is_a(handle type) const noexcept {
  return PyErr_GivenExceptionMatches(type_.get(), type.get()) != 0;
}

void saved_error::restore() noexcept {
  PyErr_Restore(type_.release(), value_.release(), traceback_.release());
}

}  // namespace grounding_fit::py
