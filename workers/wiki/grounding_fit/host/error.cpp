#include "host/error.hpp"

#include <new>
#include <stdexcept>

#include "host/integer.hpp"
#include "host/make.hpp"
#include "host/value.hpp"

namespace grounding_fit::host {
namespace {

// Most code points of a refused text that its error shows.
constexpr std::size_t k_shown = 40;

void append(std::u32string& out, text_view text) {
  text.with_units([&](const auto* units) { out.append(units, units + text.length()); });
}

owned text_of(const std::u32string& text) {
  return owned::steal(PyUnicode_FromKindAndData(PyUnicode_4BYTE_KIND, text.data(),
                                                static_cast<Py_ssize_t>(text.size())));
}

// The text in quotes, as the host shows it, its end left out when it is long.
void append_quoted(std::u32string& out, text_view text) {
  const owned start = new_text(text.slice(0, k_shown));
  const owned quoted = owned::steal(PyUnicode_Type.tp_repr(start.get()));
  append(out, view_of(quoted));
  if (text.length() > k_shown) append(out, "...");
}

// What a value is, in a few words. Runs no host code: the value of a plain type, else the type.
void describe(std::u32string& out, handle value) {
  switch (kind_of(value)) {
    case kind::text: return append_quoted(out, view_of(value));
    case kind::null:
    case kind::boolean:
    case kind::real: return append(out, view_of(text_form(share(value))));
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

PyObject* error_type(fault kind) {
  switch (kind) {
    case fault::type: return PyExc_TypeError;
    case fault::value: return PyExc_ValueError;
    case fault::recursion: return PyExc_RecursionError;
    default: return PyExc_OverflowError;
  }
}

void set_error(origin where, bad_value& error) {
  std::u32string message;
  append(message, where.name);
  append(message, where.mark);
  append(message, ": ");
  if (!error.place.empty()) message += error.place + U": ";
  message += error.what;
  const owned text = text_of(message);
  PyErr_SetObject(error_type(error.kind), text.get());
  if (!error.cause) return;
  taken_error made;
  if (made.is_a(error_type(error.kind))) {  // else memory ran out
    PyException_SetCause(made.value().get(), error.cause.release());
  }
  made.restore();
}

}  // namespace

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

void refuse_reentry() {
  refuse(fault::recursion, "called from within its own calls of the host, too deep for the stack");
}

void raise_missing_key(handle key) {
  PyErr_SetObject(PyExc_KeyError, key.get());
  throw raised{};
}

void raise_size_mismatch(std::int64_t measured, std::int64_t built) {
  raise_error(PyExc_AssertionError, "a candidate measured as %lld characters takes %lld",
              static_cast<long long>(measured), static_cast<long long>(built));
}

bool forget_error() noexcept {
  if (!PyErr_ExceptionMatches(PyExc_Exception) || PyErr_ExceptionMatches(PyExc_MemoryError)) {
    return false;
  }
  PyErr_Clear();
  return true;
}

taken_error::taken_error() {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  type_ = owned::steal_or_null(type);
  value_ = owned::steal_or_null(value);
  traceback_ = owned::steal_or_null(traceback);
}

bool taken_error::is_a(handle type) const noexcept {
  return PyErr_GivenExceptionMatches(type_.get(), type.get()) != 0;
}

void taken_error::restore() noexcept {
  PyErr_Restore(type_.release(), value_.release(), traceback_.release());
}

void set_error_of_exception(origin where) noexcept {
  try {
    try {
      throw;
    } catch (const raised&) {
      // The host says nothing where it has no memory for the name of a type.
      if (PyErr_Occurred() == nullptr) PyErr_NoMemory();
    } catch (bad_value& error) {
      set_error(where, error);
    } catch (const std::length_error&) {
      PyErr_NoMemory();
    }
  } catch (const raised&) {  // the error's own text could not be made
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_Format(PyExc_SystemError, "%s%s: %s", where.name, where.mark, error.what());
  }
}

}  // namespace grounding_fit::host
