// Failures inside the module: a C++ exception each.
//
// `python_error_set` says that Python's error is set already; `bad_value` is a value that the rules
// refuse. Both end in an entry point (python/entry.hpp), which makes either an error of Python's.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "python/handle.hpp"
#include "text/text_view.hpp"

namespace grounding_fit::py {

enum class fault { type, value, overflow, recursion };

// One step of the way from an argument to a value inside it: a name, an index, or a key.
struct step {
  enum class form { name, index, key } form;
  std::string_view text;
  std::size_t index = 0;
  constexpr step(const char* name) : form(form::name), text(name) {}
  constexpr step(std::string_view name) : form(form::name), text(name) {}
  constexpr step(std::size_t position) : form(form::index), index(position) {}
  static constexpr step key(std::string_view key) {
    step made(key);
    made.form = form::key;
    return made;
  }
};

// A value that the rules refuse. within() adds where it stands, on the way out.
struct bad_value {
  fault kind;
  std::string what;   // "expected a string, got 3"
  std::string place;  // "parts.blocks[17][1]['line']"
  owned cause;        // Python's own error, when there is one

  void prepend(step here);
  void prepend_key(text_view key);
  // "_most(): fits: expected a callable, got None", led by what comes before the first colon.
  owned message(std::string_view led_by) const;
};

// A key that is not there. Its KeyError holds the key alone, as Python's own do, so where errors
// can have notes one says where the key was expected and for what.
struct missing_key {
  handle key;
  const char* expected;  // "result: expected a 'page_id', ..."
};

// The way from an argument to a value: place("parts.prose", 3, ".seeds", 0). The steps become a
// text only when an error comes by.
template <class... Steps>
class place {
 public:
  constexpr explicit place(Steps... steps) : steps_(steps...) {}
  void prepend_to(bad_value& error) const {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      (error.prepend(step(std::get<sizeof...(I) - 1 - I>(steps_))), ...);
    }
    (std::index_sequence_for<Steps...>());
  }

 private:
  std::tuple<Steps...> steps_;
};

// Accepts a place, or anything that a step can be made from, which is made only when an error
// passes.
template <class Where>
void prepend_to(bad_value& error, const Where& here) {
  if constexpr (requires { here.prepend_to(error); }) {
    here.prepend_to(error);
  } else {
    error.prepend(step(here));
  }
}

// Prepends a place to any bad_value that `body` throws.
template <class Where, class Body>
decltype(auto) within(const Where& here, Body&& body) {
  try {
    return body();
  } catch (bad_value& error) {
    prepend_to(error, here);
    throw;
  }
}

// Throws a bad_value: "expected EXPECTED, got (the value, or its type)". Runs no code of the
// host's. The remedy, where there is one, is the word that makes the value right: "set(files)".
[[noreturn, gnu::cold]] void refuse(fault kind, std::string_view expected, handle got,
                                    std::string_view remedy = {});
// Throws a bad_value with a text of the module's own.
[[noreturn, gnu::cold]] void refuse(fault kind, std::string_view what);
// The same with a text of the caller's at its end: "unexpected argument 'wrong'".
[[noreturn, gnu::cold]] void refuse_name(fault kind, std::string_view what, text_view name);
// Sets AssertionError: the sizes of a candidate, measured and built, that must be the same.
[[noreturn, gnu::cold]] void raise_size_mismatch(std::int64_t measured, std::int64_t built);

// Sets an error of Python's with a text in Python's own format. (PyErr_Format loses a MemoryError
// that comes of making the text, up to 3.10.)
template <class... Arguments>
[[noreturn, gnu::cold]] void raise_error(handle type, const char* format, Arguments... arguments) {
  const owned text = owned::steal(PyUnicode_FromFormat(format, arguments...));
  PyErr_SetObject(type.get(), text.get());
  throw python_error_set{};
}

// Clears Python's error when it is an ordinary one; false for what no caller may swallow, such as a
// lack of memory.
bool discard_error() noexcept;

// Runs what only a report wants to know: false when a value is refused or code of the host's fails.
template <class Body>
bool try_discarding_error(Body&& body) {
  try {
    body();
    return true;
  } catch (const bad_value&) {
    return false;
  } catch (const python_error_set&) {
    if (!discard_error()) throw;
    return false;
  }
}

// Python's error, put aside so that code of the host's can run, or another error be set in its
// place. Making its value may fail, and then it is the error of that.
class saved_error {
 public:
  saved_error();
  bool is_a(handle type) const noexcept;
  handle value() const { return value_; }
  void restore() noexcept;  // sets it again

 private:
  owned type_, value_, traceback_;
};

}  // namespace grounding_fit::py
