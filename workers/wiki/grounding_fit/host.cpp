#include "host.hpp"

#include <cmath>
#include <new>
#include <stdexcept>

namespace grounding_fit::host {
namespace {

// Most levels of containers a walk goes into, whatever limit the host has set for itself.
constexpr int k_deepest = 1000;
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
  const text_view start = text.slice(0, k_shown);
  const owned copy = new_text({&start, 1});
  const owned quoted = owned::steal(PyUnicode_Type.tp_repr(copy.get()));
  append(out, view_of(quoted));
  if (text.length() > k_shown) append(out, "...");
}

// What a value is, in a few words. Runs no host code: the value of a plain type, else the type.
void describe(std::u32string& out, handle value) {
  switch (kind_of(value)) {
    case kind::text: return append_quoted(out, view_of(value));
    case kind::null:
    case kind::boolean:
    case kind::real: return append(out, view_of(text_form(value)));
    case kind::integer:
      if (const auto small = integer::of(value).small()) {
        return append(out, std::string_view(std::to_string(*small)));
      }
      return append(out, "an integer beyond 64 bits");
    default: {
      const char* name = Py_TYPE(value.get())->tp_name;
      const owned decoded = owned::steal(
          PyUnicode_DecodeUTF8(name, static_cast<Py_ssize_t>(std::strlen(name)), "replace"));
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

// Takes the host's error, so that another can be set with it as its cause.
owned take_error() {
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  Py_XDECREF(type);
  Py_XDECREF(traceback);
  return owned::steal(value);
}

void set_error(const char* function, bad_value& error) {
  std::u32string message;
  append(message, function);
  append(message, "(): ");
  if (!error.place.empty()) message += error.place + U": ";
  message += error.what;
  const owned text = text_of(message);
  PyErr_SetObject(error_type(error.kind), text.get());
  if (error.cause) {
    owned now = take_error();
    PyException_SetCause(now.get(), error.cause.release());
    PyErr_SetObject(error_type(error.kind), now.get());
  }
}

// A part of a text may be narrower than the text it is a part of, so units go both ways.
template <class To>
void copy_units(void* to, text_view from) {
  from.with_units([&](const auto* units) {
    std::transform(units, units + from.length(), static_cast<To*>(to),
                   [](auto unit) { return static_cast<To>(unit); });
  });
}

void copy_units(void* to, unsigned width, text_view from) {
  if (width == from.width()) {
    if (!from.empty()) std::memcpy(to, from.units(), from.bytes());
    return;
  }
  switch (width) {
    case 1: return copy_units<std::uint8_t>(to, from);
    case 2: return copy_units<std::uint16_t>(to, from);
    default: return copy_units<std::uint32_t>(to, from);
  }
}

bool integer_is_zero(handle value) {
  int overflow = 0;
  return PyLong_AsLongLongAndOverflow(value.get(), &overflow) == 0 && overflow == 0;
}

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

// ---- failures -----------------------------------------------------------------------------------

void bad_value::prepend(step here) {
  if (kind == fault::recursion) return;  // its place would be as long as it is deep
  std::u32string text;
  switch (here.form) {
    case step::form::name: append(text, here.text); break;
    case step::form::index:
      append(text, "[");
      append(text, std::string_view(std::to_string(here.index)));
      append(text, "]");
      break;
    case step::form::key: return prepend_key(here.text);
  }
  place = text + place;
}

void bad_value::prepend_key(text_view key) {
  if (kind == fault::recursion) return;
  std::u32string text;
  append(text, "[");
  append_quoted(text, key);
  append(text, "]");
  place = text + place;
}

void refuse(fault kind, const char* expected, handle got) {
  std::u32string what;
  append(what, "expected ");
  append(what, expected);
  append(what, ", got ");
  describe(what, got);
  throw bad_value{kind, std::move(what), {}, {}};
}

void refuse(fault kind, const char* what) {
  std::u32string text;
  append(text, what);
  throw bad_value{kind, std::move(text), {}, {}};
}

void raise_missing_key(handle key) {
  PyErr_SetObject(PyExc_KeyError, key.get());
  throw raised{};
}

void raise_size_mismatch(std::int64_t measured, std::int64_t built) {
  PyErr_Format(PyExc_AssertionError, "a candidate measured as %lld characters takes %lld",
               static_cast<long long>(measured), static_cast<long long>(built));
  throw raised{};
}

void set_error_of_exception(const char* function) noexcept {
  try {
    try {
      throw;
    } catch (const raised&) {
    } catch (bad_value& error) {
      set_error(function, error);
    } catch (const std::length_error&) {
      PyErr_NoMemory();
    }
  } catch (const raised&) {  // the error's own text could not be made
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_Format(PyExc_SystemError, "%s(): %s", function, error.what());
  }
}

// ---- reading plain values -----------------------------------------------------------------------

bool missing(handle value) {
  if (!value) return true;
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

void expect_integer(handle value) {
  if (!PyLong_Check(value.get())) refuse(fault::type, "an integer", value);
}

std::int64_t expect_int64(handle value) {
  expect_integer(value);
  const auto small = integer::of(value).small();
  if (!small) refuse(fault::overflow, "an integer of at most 64 bits", value);
  return *small;
}

double expect_number(handle value) {
  if (kind_of(value) == kind::real) return value_of_real(value);
  if (!PyLong_Check(value.get())) refuse(fault::type, "a float or integer", value);
  const double number = PyLong_AsDouble(value.get());
  if (number != -1.0 || PyErr_Occurred() == nullptr) return number;
  PyErr_Clear();
  return integer::of(value) > 0 ? HUGE_VAL : -HUGE_VAL;
}

void expect_callable(handle value) {
  if (!PyCallable_Check(value.get())) refuse(fault::type, "a callable", value);
}

void expect_iterable(handle value) {
  if (Py_TYPE(value.get())->tp_iter == nullptr && !PySequence_Check(value.get())) {
    refuse(fault::type, "an iterable", value);
  }
}

bool truth(handle value) {
  const int result = PyObject_IsTrue(value.get());
  if (result < 0) throw raised{};
  return result != 0;
}

owned text_form(handle value) {
  switch (kind_of(value)) {
    case kind::text: return share(value);
    case kind::integer: {
      // A plain one first: newer hosts work out the digits of a huge integer by its own methods.
      const owned plain = integer::of(value).object();
      return owned::steal(PyLong_Type.tp_repr(plain.get()));
    }
    case kind::real: return owned::steal(PyFloat_Type.tp_repr(value.get()));
    case kind::boolean: return owned::steal(PyBool_Type.tp_repr(value.get()));
    case kind::null: return owned::steal(PyUnicode_FromString("None"));
    default: refuse(fault::type, "a string or number", value);
  }
}

owned plain_text(owned text) {
  if (PyUnicode_CheckExact(text.get())) return text;
  return owned::steal(PyUnicode_FromObject(text.get()));
}

items::items(handle array) : size_(size_of_array(array)) {
  if (PyTuple_Check(array.get())) {
    tuple_ = share(array);
    return;
  }
  copies_.reserve(size_);
  for (std::size_t i = 0; i < size_; ++i) copies_.push_back(share(array_item(array, i)));
}

std::pair<handle, handle> expect_pair(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a pair (tuple or list of two)", value);
  if (size_of_array(value) != 2) {
    std::string what = "expected a pair (tuple or list of two), got ";
    what += std::to_string(size_of_array(value)) + " items";
    refuse(fault::type, what.c_str());
  }
  return {array_item(value, 0), array_item(value, 1)};
}

owned dict::get(handle key) const {
  PyObject* found = PyDict_GetItemWithError(object_.get(), key.get());
  if (found == nullptr && PyErr_Occurred() != nullptr) throw raised{};
  return share(found);
}

std::vector<owned> items_of_set(handle set) {
  // The set's own iterator, whatever a derived type says of iterating.
  const owned iterator = owned::steal(PySet_Type.tp_iter(set.get()));
  std::vector<owned> result;
  while (PyObject* item = PyIter_Next(iterator.get())) result.push_back(owned::steal(item));
  if (PyErr_Occurred() != nullptr) throw raised{};
  return result;
}

std::size_t integer_length(handle value) {
  int overflow = 0;
  const long long small = PyLong_AsLongLongAndOverflow(value.get(), &overflow);
  return overflow == 0 ? decimal_length(small) : integer::of(value).length();
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

// ---- integers -----------------------------------------------------------------------------------

integer integer::of(handle value) {
  int overflow = 0;
  integer result(PyLong_AsLongLongAndOverflow(value.get(), &overflow));
  if (overflow == 0) {
    if (PyLong_CheckExact(value.get())) result.object_ = owned::share(value);
    return result;
  }
  result.small_ = overflow;
  result.big_ = true;
  // An int of a derived type becomes a plain one; a plain one is shared.
  result.object_ = owned::steal(PyLong_Type.tp_as_number->nb_int(value.get()));
  return result;
}

integer integer::of(double finite) {
  if (std::abs(finite) < 0x1p63) return integer(static_cast<std::int64_t>(finite));
  return of(owned::steal(PyLong_FromDouble(finite)));
}

integer integer::of_text(handle text) {
  const owned plain = plain_text(share(text));  // the host's error would show it by its own repr
  PyObject* value = PyLong_FromUnicodeObject(plain.get(), 10);
  if (value != nullptr) return of(owned::steal(value));
  if (!PyErr_ExceptionMatches(PyExc_ValueError)) throw raised{};
  owned cause = take_error();
  try {
    refuse(fault::value, "an integer", text);
  } catch (bad_value& error) {
    error.cause = std::move(cause);
    throw;
  }
}

bool integer::operator>(const integer& other) const {
  if (!big_ && !other.big_) return small_ > other.small_;
  if (!big_) return other.small_ < 0;
  if (!other.big_ || small_ != other.small_) return small_ > 0;
  const int greater = PyObject_RichCompareBool(object_.get(), other.object_.get(), Py_GT);
  if (greater < 0) throw raised{};
  return greater != 0;
}

std::size_t integer::length() const {
  if (!big_) return decimal_length(small_);
  return view_of(owned::steal(PyLong_Type.tp_repr(object_.get()))).length();
}

void integer::expect_writable() const {
  if (big_) length();
}

owned integer::object() const { return object_ ? share(object_) : new_integer(small_); }

// ---- making values ------------------------------------------------------------------------------

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

owned new_list(std::vector<owned> values) {
  owned list = owned::steal(PyList_New(static_cast<Py_ssize_t>(values.size())));
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), values[i].release());
  }
  return list;
}

owned new_integer(std::int64_t value) { return owned::steal(PyLong_FromLongLong(value)); }
owned new_unsigned(std::uint64_t value) { return owned::steal(PyLong_FromUnsignedLongLong(value)); }
owned new_real(double value) { return owned::steal(PyFloat_FromDouble(value)); }
owned new_dict() { return owned::steal(PyDict_New()); }

void set_item(handle dict, handle key, handle value) {
  if (PyDict_SetItem(dict.get(), key.get(), value.get()) < 0) throw raised{};
}

owned new_tuple(std::vector<owned> values) {
  owned tuple = owned::steal(PyTuple_New(static_cast<Py_ssize_t>(values.size())));
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), values[i].release());
  }
  return tuple;
}

// ---- calling the host ---------------------------------------------------------------------------

iteration::iteration(handle iterable) : iterator_(owned::steal(PyObject_GetIter(iterable.get()))) {}

owned iteration::next() {
  PyObject* item = PyIter_Next(iterator_.get());
  if (item != nullptr) return owned::steal(item);
  if (PyErr_Occurred() != nullptr) throw raised{};
  return {};
}

text_set::text_set() : set_(owned::steal(PySet_New(nullptr))) {}

void text_set::add(handle text) {
  if (PySet_Add(set_.get(), text.get()) < 0) throw raised{};
}

std::int64_t estimate_tokens(const service& svc, handle text) {
  const owned tokens = call(svc[known::estimate_tokens], text);
  return within("result of estimate_tokens", [&] { return expect_int64(tokens); });
}

const service& loaded(const void* state) {
  const auto* svc = static_cast<const service*>(state);
  if (svc != nullptr && svc->ready) return *svc;
  PyErr_SetString(PyExc_ImportError,
                  "grounding_fit is not loaded: its import is going on or failed");
  throw raised{};
}

void add_to_module(handle module, const char* name, handle value) {
  if (PyModule_AddObjectRef(module.get(), name, value.get()) < 0) throw raised{};
}

// ---- arguments ----------------------------------------------------------------------------------

arguments::arguments(std::span<const char* const> names, std::size_t required,
                     PyObject* const* args, std::size_t positional, PyObject* keywords)
    : names_(names) {
  for (std::size_t i = 0; i < positional; ++i) take_positional(i, args[i]);
  const std::size_t named = keywords == nullptr ? 0 : size_of_array(keywords);
  for (std::size_t i = 0; i < named; ++i) {
    take_keyword(array_item(keywords, i), args[positional + i]);
  }
  check(required);
}

arguments::arguments(std::span<const char* const> names, std::size_t required, PyObject* args,
                     PyObject* keywords)
    : names_(names) {
  for (std::size_t i = 0; i < size_of_array(args); ++i) take_positional(i, array_item(args, i));
  if (keywords != nullptr) {
    dict_cursor cursor(keywords);
    for (handle name, value; cursor.next(name, value);) take_keyword(name, value);
  }
  check(required);
}

void arguments::take_positional(std::size_t i, handle value) {
  if (i >= names_.size()) {
    const std::string what = "expected at most " + std::to_string(names_.size());
    refuse(fault::type, (what + " arguments, got more").c_str());
  }
  values_[i] = value;
}

void arguments::take_keyword(handle name, handle value) {
  const text_view wanted = expect_text(name);
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (!(wanted == text_view(names_[i]))) continue;
    if (values_[i]) refuse(fault::type, (std::string(names_[i]) + ": given twice").c_str());
    values_[i] = value;
    return;
  }
  bad_value unknown{fault::type, {}, {}, {}};
  append(unknown.what, "unexpected argument ");
  append_quoted(unknown.what, wanted);
  throw std::move(unknown);
}

void arguments::check(std::size_t required) const {
  for (std::size_t i = 0; i < required; ++i) {
    if (!values_[i]) refuse(fault::type, (std::string(names_[i]) + ": missing argument").c_str());
  }
}

}  // namespace grounding_fit::host
