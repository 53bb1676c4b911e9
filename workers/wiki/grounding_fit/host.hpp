// The host's values as the module reads and makes them: the one header that knows CPython.
//
// Two handle types, each a pointer wide: `handle` borrows (somebody else keeps the value alive),
// `owned` keeps a share of its own. A result `owned` is a new share; copying one is always spelled
// share(). Values are read as their plain type whatever subclass they are of, so reading runs no
// host code, save what a dict itself runs to find a key that is no plain string.
//
// Failure is a C++ exception: `raised` when the host's error is already set, `bad_value` for a
// value that the rules refuse. guarded() is the one place that turns either into the host's error.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "text.hpp"

namespace grounding_fit::host {

// ---- handles ------------------------------------------------------------------------------------

class handle {
 public:
  constexpr handle() = default;
  constexpr handle(PyObject* p) : p_(p) {}
  PyObject* get() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }
  bool is(handle other) const { return p_ == other.p_; }

 protected:
  PyObject* p_ = nullptr;
};

struct raised {};  // thrown when the host's error is set

class owned : public handle {
 public:
  constexpr owned() = default;
  owned(owned&& other) noexcept : handle(std::exchange(other.p_, nullptr)) {}
  owned& operator=(owned&& other) noexcept {
    owned(std::move(other)).swap(*this);
    return *this;
  }
  ~owned() { Py_XDECREF(p_); }

  // Takes over a new reference that a host call returned; null means that it failed.
  static owned steal(PyObject* p) {
    if (p == nullptr) throw raised{};
    return owned(p);
  }
  static owned steal_or_null(PyObject* p) noexcept { return owned(p); }
  static owned share(handle h) noexcept {
    Py_XINCREF(h.get());
    return owned(h.get());
  }
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(p_, nullptr); }
  void swap(owned& other) noexcept { std::swap(p_, other.p_); }

 private:
  constexpr explicit owned(PyObject* p) : handle(p) {}
};

inline owned share(handle h) noexcept { return owned::share(h); }

// ---- failures -----------------------------------------------------------------------------------

enum class fault { type, value, overflow, recursion };

// One step of the way from an argument to a value inside it: a name, an index, or a key.
struct step {
  enum class form { name, index, key } form;
  const char* text = "";
  std::size_t index = 0;
  constexpr step(const char* name) : form(form::name), text(name) {}
  constexpr step(std::size_t position) : form(form::index), index(position) {}
  static constexpr step key(const char* key) {
    step made(key);
    made.form = form::key;
    return made;
  }
};

// A value that the rules refuse. Where it stands is put together on the way out, by within().
struct bad_value {
  fault kind;
  std::u32string what;   // "expected a string, got 3"
  std::u32string place;  // "parts.blocks[17][1]['line']"
  owned cause;           // the host's own error, when there is one

  void prepend(step here);
  void prepend_key(text_view key);
};

template <class Body>
decltype(auto) within(step here, Body&& body) {
  try {
    return body();
  } catch (bad_value& error) {
    error.prepend(here);
    throw;
  }
}

// Throws a bad_value: "expected EXPECTED, got (the value, or its type)". Runs no host code.
[[noreturn]] void refuse(fault kind, const char* expected, handle got);
// Throws a bad_value with a text of the module's own.
[[noreturn]] void refuse(fault kind, const char* what);
// Sets KeyError(key).
[[noreturn]] void raise_missing_key(handle key);
// Sets AssertionError: the sizes of a candidate, measured and built, that must be the same.
[[noreturn]] void raise_size_mismatch(std::int64_t measured, std::int64_t built);

// Sets the host's error for the C++ exception in flight, its message led by the function's name.
void set_error_of_exception(const char* function) noexcept;

// Runs `body` and gives its value, or `failed` with the host's error set.
template <class Body, class Result>
Result guarded(const char* function, Result failed, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    set_error_of_exception(function);
    return failed;
  }
}

// The same for the usual case, a function that makes a value.
template <class Body>
PyObject* boundary(const char* function, Body&& body) noexcept {
  return guarded(function, static_cast<PyObject*>(nullptr), [&] { return body().release(); });
}

// ---- reading plain values -----------------------------------------------------------------------

enum class kind { null, boolean, integer, real, text, array, object, other };

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
  if (PyUnicode_Check(p)) return kind::text;
  if (PyLong_Check(p)) return kind::integer;
  if (PyDict_Check(p)) return kind::object;
  if (PyList_Check(p) || PyTuple_Check(p)) return kind::array;
  return PyFloat_Check(p) ? kind::real : kind::other;
}

// The value of a text that kind_of has recognised. The view lives as long as the text.
inline text_view view_of(handle text) {
#if PY_VERSION_HEX < 0x030C0000
  if (PyUnicode_READY(text.get()) < 0) throw raised{};  // made by the old C API, not final yet
#endif
  const unsigned width = PyUnicode_KIND(text.get());
  const text_range range = PyUnicode_IS_ASCII(text.get()) ? text_range::ascii
                           : width == 1                   ? text_range::latin_1
                           : width == 2                   ? text_range::basic
                                                          : text_range::full;
  return {PyUnicode_DATA(text.get()), static_cast<std::size_t>(PyUnicode_GET_LENGTH(text.get())),
          width, range};
}

inline bool truth_of(handle boolean) noexcept { return boolean.get() == Py_True; }
inline double value_of_real(handle real) noexcept { return PyFloat_AS_DOUBLE(real.get()); }

// True for null, false, 0, 0.0, and an empty text, array or object; and for an absent value (null
// handle). Everything else counts as present. O(1).
bool missing(handle value);

// These refuse a value of another type.
inline text_view expect_text(handle value) {
  if (kind_of(value) != kind::text) refuse(fault::type, "a string", value);
  return view_of(value);
}
std::int64_t expect_int64(handle value);  // OverflowError beyond 64 bits
double expect_number(handle value);       // an integer beyond a double's range reads as infinite
void expect_integer(handle value);        // of any size
void expect_callable(handle value);
void expect_iterable(handle value);
bool truth(handle value);  // what the host takes for true; may run host code

// The value as it is written into a text: a new or shared string. TypeError for what has no text.
owned text_form(handle value);
inline bool is_plain_text(handle value) noexcept { return PyUnicode_CheckExact(value.get()); }
// The same text as a plain string: shared, or copied from a derived type.
owned plain_text(owned text);
// White space as the host's str.strip sees it.
inline bool is_space(char32_t c) noexcept { return Py_UNICODE_ISSPACE(c); }
inline owned null() noexcept { return share(Py_None); }

// The items of a list as they stood, or of a tuple: each kept alive, so that nothing that runs
// later can free, add or remove one.
class items {
 public:
  explicit items(handle array);  // a list or tuple (or of a type derived from one), nothing else
  std::size_t size() const { return size_; }
  handle operator[](std::size_t i) const {
    return tuple_ ? handle(PyTuple_GET_ITEM(tuple_.get(), i)) : handle(copies_[i]);
  }

 private:
  std::size_t size_ = 0;
  owned tuple_;
  std::vector<owned> copies_;
};

inline items expect_items(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a list or tuple", value);
  return items(value);
}
// A borrowed look at a list or tuple as it is now; whoever makes one keeps it alive.
class array {
 public:
  explicit array(handle value) : value_(value) {}
  // Item i, or an empty handle when there are not as many (any more).
  owned operator[](std::size_t i) const;

 private:
  handle value_;
};

inline array expect_array(handle value) {
  if (kind_of(value) != kind::array) refuse(fault::type, "a list or tuple", value);
  return array(value);
}
// The two items of a pair; TypeError for anything but a list or tuple of two.
std::pair<handle, handle> expect_pair(handle value);

// A borrowed look at an object; whoever makes one keeps the object alive.
class dict {
 public:
  explicit dict(handle object) : object_(object) {}
  // The value under `key`, or an empty handle. May run the equality of keys that are no plain text.
  owned get(handle key) const;

 private:
  handle object_;
};

inline dict expect_dict(handle value) {
  if (kind_of(value) != kind::object) refuse(fault::type, "an object (dict)", value);
  return dict(value);
}

// Goes through an object in insertion order. Runs no host code. Should host code that runs between
// two steps change the object, the walk stays safe but may skip or repeat members.
class dict_cursor {
 public:
  explicit dict_cursor(handle object) : object_(object) {}
  bool next(handle& key, handle& value) noexcept {
    PyObject *next_key, *next_value;
    if (!PyDict_Next(object_.get(), &position_, &next_key, &next_value)) return false;
    key = next_key;
    value = next_value;
    return true;
  }

 private:
  handle object_;
  Py_ssize_t position_ = 0;
};

inline std::size_t size_of_dict(handle object) noexcept {
  return static_cast<std::size_t>(PyDict_GET_SIZE(object.get()));
}
inline std::size_t size_of_array(handle array) noexcept {
  return static_cast<std::size_t>(Py_SIZE(array.get()));
}
// Item i of an array, or an empty handle when it has become shorter.
inline handle array_item(handle array, std::size_t i) noexcept {
  if (i >= size_of_array(array)) return {};
  PyObject* p = array.get();
  const auto at = static_cast<Py_ssize_t>(i);
  return PyList_Check(p) ? PyList_GET_ITEM(p, at) : PyTuple_GET_ITEM(p, at);
}
inline owned array::operator[](std::size_t i) const { return share(array_item(value_, i)); }
std::vector<owned> items_of_set(handle set);

// Length of a number in JSON. JSON and text form of a finite number are the same.
std::size_t integer_length(handle integer);  // ValueError beyond the host's digit limit
std::size_t real_length(handle real);

// How many levels of containers a walk may go into: the host's recursion limit or the module's own,
// which keeps the C stack whole whatever the host has set.
int deepest_nesting() noexcept;

// An integer of any size. One that fits 64 bits, as nearly all do, is reckoned with as such; the
// host's own object, where there is one, is kept to be given back.
class integer {
 public:
  integer(std::int64_t value = 0) : small_(value) {}
  static integer of(handle integer_or_boolean);
  static integer of(double finite);     // truncated toward zero
  static integer of_text(handle text);  // as the host's int(text); ValueError for anything else

  bool operator>(const integer& other) const;
  std::size_t length() const;  // of its decimal digits and sign
  owned object() const;
  void expect_writable() const;  // ValueError beyond the host's digit limit
  std::optional<std::int64_t> small() const { return big_ ? std::nullopt : std::optional(small_); }

 private:
  std::int64_t small_ = 0;  // only the sign of a big one
  bool big_ = false;
  owned object_;
};

// ---- making values ------------------------------------------------------------------------------

owned new_text(std::span<const text_view> pieces);  // joined at their common width
inline owned new_text(text_view text) { return new_text({&text, 1}); }
owned empty_text();
owned new_list(std::vector<owned> values);
owned new_integer(std::int64_t value);
owned new_unsigned(std::uint64_t value);
owned new_real(double value);
owned new_dict();
void set_item(handle dict, handle key, handle value);
owned new_tuple(std::vector<owned> values);

// ---- calling the host ---------------------------------------------------------------------------

// Calls a callable of the host, which may do anything. The arguments are kept alive by the caller.
template <class... Arguments>
owned call(handle callable, const Arguments&... arguments) {
  const owned held = share(callable);
  PyObject* slots[] = {nullptr, arguments.get()...};
  return owned::steal(PyObject_Vectorcall(
      held.get(), slots + 1, sizeof...(arguments) | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
}

// Goes through any iterable of the host's. May run host code at every step.
class iteration {
 public:
  explicit iteration(handle iterable);
  owned next();  // empty at the end

 private:
  owned iterator_;
};

// A set of texts without duplicates, as the host tells them apart.
class text_set {
 public:
  text_set();
  void add(handle text);
  std::vector<owned> texts() const { return items_of_set(set_); }

 private:
  owned set_;
};

// ---- arguments ----------------------------------------------------------------------------------

// Puts the arguments of one call in the order of a function's parameters; TypeError for too many,
// too few, twice the same or an unknown one.
class arguments {
 public:
  static constexpr std::size_t k_most = 5;
  // `args` are the positional arguments and then the values of `keywords`, a tuple or null.
  arguments(std::span<const char* const> names, std::size_t required, PyObject* const* args,
            std::size_t positional, PyObject* keywords);
  // The same for a constructor: a tuple, and an object or null.
  arguments(std::span<const char* const> names, std::size_t required, PyObject* args,
            PyObject* keywords);
  // Empty when the argument is not given.
  handle operator[](std::size_t i) const { return values_[i]; }

 private:
  void take_positional(std::size_t i, handle value);
  void take_keyword(handle name, handle value);
  void check(std::size_t required) const;

  std::span<const char* const> names_;
  handle values_[k_most];
};

// ---- what the module keeps ----------------------------------------------------------------------

// Every object that the module's state holds, by name: the keys of the host's objects first.
enum class known : unsigned {
  path,
  line_start,
  line_end,
  fqn,
  kind,
  file,
  line,
  end_line,
  signature,
  parameters,
  docstring,
  fan_in,
  inside_refs,
  neighbour_refs,
  snippet,
  snippet_cut,
  body_digest,
  callees,
  usage_example,
  related,
  has_tests,
  name,
  type,
  page_id,
  prior_markdown,
  grounding,
  symbols,
  citation_seeds,
  truncated,
  // the host's utilities
  estimate_tokens,
  truncate_to_tokens,
  norm,
  file_cards_heading,
  requested_context_heading,
  // records and constants
  fact_block,
  grounding_parts,
  section_budget,
  default_budget,
  budgets,
  floor,
  count
};
constexpr std::size_t k_keys = static_cast<std::size_t>(known::estimate_tokens);
constexpr const char* k_key_names[] = {
    "path",           "line_start",     "line_end",      "fqn",
    "kind",           "file",           "line",          "end_line",
    "signature",      "parameters",     "docstring",     "fan_in",
    "inside_refs",    "neighbour_refs", "snippet",       "snippet_cut",
    "body_digest",    "callees",        "usage_example", "related",
    "has_tests",      "name",           "type",          "page_id",
    "prior_markdown", "grounding",      "symbols",       "citation_seeds",
    "truncated"};
static_assert(std::size(k_key_names) == k_keys);

// The module's state: references that its collector slots go through in one loop.
struct service {
  PyObject* refs[static_cast<std::size_t>(known::count)];
  bool ready;  // nothing may be called before all of them are there, nor once they are let go

  handle operator[](known which) const { return refs[static_cast<std::size_t>(which)]; }
  void keep(known which, owned value) {
    const owned before =
        owned::steal_or_null(std::exchange(refs[static_cast<std::size_t>(which)], value.release()));
  }
};

// The state at that address; ImportError when the module is not loaded (yet), as when a module of
// the host that it imports calls it.
const service& loaded(const void* state);

void add_to_module(handle module, const char* name, handle value);

// The value under a key of a host's object, or an empty handle.
inline owned read(const service& svc, dict object, known key) { return object.get(svc[key]); }
// The step to that value, for within().
inline step step_of(known key) { return step::key(k_key_names[static_cast<std::size_t>(key)]); }

std::int64_t estimate_tokens(const service& svc, handle text);

}  // namespace grounding_fit::host
