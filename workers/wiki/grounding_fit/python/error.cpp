#include "python/error.hpp"

#include "python/integer.hpp"
#include "python/make.hpp"
#include "python/value.hpp"

namespace grounding_fit::py {
namespace {

// Most code points of a refused text that its error quotes.
constexpr std::size_t k_quoted_chars = 40;

void append(std::u32string& out, text_view text) {
  text.with_units([&](const auto* units) { out.append(units, units + text.length()); });
}

// The text in quotes, as Python writes it, its end left out when it is long.
void append_quoted(std::u32string& out, text_view text) {
  const owned start = new_text(text.slice(0, k_quoted_chars));
  const owned quoted = owned::steal(PyUnicode_Type.tp_repr(start.get()));
  append(out, view_of(quoted));
  if (text.length() > k_quoted_chars) append(out, "...");
}

// What a value is, in a few words: the value of a plain type, else the type.
void describe(std::u32string& out, handle value) {
  switch (kind_of(value)) {
    case kind::text: return append_quoted(out, view_of(value));
    case kind::null:
    case kind::boolean:
    case kind::real: return append(out, view_of(text_form(new_ref(value))));
    case kind::integer:
      if (const auto small = int64_of(value)) {
        return append(out, std::string_view(std::to_string(*small)));
      }
      return append(out, "an integer beyond 64 bits");
    default: {
      const std::string_view name = Py_TYPE(value.get())->tp_name;
      const owned decoded = owned::steal(
          PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "replace"));
      return append(out, view_of(decoded));
    }
  }
}

}  // namespace

// ---- values that are refused --------------------------------------------------------------------

void bad_value::prepend(step here) {
  if (kind == fault::recursion) return;  // its place would be as long as it is deep
  if (here.form == step::form::key) return prepend_key(here.text);
  std::u32string text;
  if (here.form == step::form::index) {
    append(text, "[");
    append(text, std::string_view(std::to_string(here.index)));
    append(text, "]");
  } else {
    append(text, here.text);
  }
  lead(std::move(text));
}

void bad_value::prepend_key(text_view key) {
  if (kind == fault::recursion) return;
  std::u32string text;
  append(text, "[");
  append_quoted(text, key);
  append(text, "]");
  lead(std::move(text));
}

// An index, a key or a dotted name is a part of what stands before it; other words are not.
void bad_value::lead(std::u32string here) {
  const bool a_part = place.empty() || place[0] == U'[' || place[0] == U'.' || here.back() == U'.';
  place = std::move(here) + (a_part ? U"" : U": ") + place;
}

owned bad_value::message(std::string_view led_by) const {
  std::u32string text;
  append(text, led_by);
  append(text, ": ");
  if (!place.empty()) text += place + U": ";
  text += what;
  return owned::steal(PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, text.data(),
                                                static_cast<Py_ssize_t>(text.size())));
}

void refuse(fault kind, std::string_view expected, handle got, std::string_view remedy) {
  std::u32string what;
  append(what, "expected ");
  append(what, expected);
  append(what, ", got ");
  describe(what, got);
  if (!remedy.empty()) append(what, "; pass ");
  append(what, remedy);
  throw bad_value{kind, std::move(what), {}, {}};
}

void refuse(fault kind, std::string_view what) {
  std::u32string text;
  append(text, what);
  throw bad_value{kind, std::move(text), {}, {}};
}

void refuse_name(fault kind, std::string_view what, text_view name) {
  std::u32string text;
  append(text, what);
  append(text, " ");
  append_quoted(text, name);
  throw bad_value{kind, std::move(text), {}, {}};
}

// ---- Python's own errors ------------------------------------------------------------------------

void raise_missing_key(handle key) {
  PyErr_SetObject(PyExc_KeyError, key.get());
  throw python_error_set{};
}

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
