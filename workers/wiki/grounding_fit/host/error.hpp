// Failures inside the module, and the one place that turns them into the host's errors.
//
// Failure is a C++ exception: `raised` when the host's error is already set, `bad_value` for a
// value that the rules refuse. guarded() is the only place that catches either for good.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "host/handle.hpp"
#include "host/reentry.hpp"
#include "text/text.hpp"

namespace grounding_fit::host {

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

// A value that the rules refuse. Where it stands is put together on the way out, by within().
struct bad_value {
  fault kind;
  std::u32string what;   // "expected a string, got 3"
  std::u32string place;  // "parts.blocks[17][1]['line']"
  owned cause;           // the host's own error, when there is one

  void prepend(step here);
  void prepend_key(text_view key);

 private:
  void lead(std::u32string here);
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

template <class... Steps, class Body>
decltype(auto) within(const place<Steps...>& here, Body&& body) {
  try {
    return body();
  } catch (bad_value& error) {
    here.prepend_to(error);
    throw;
  }
}
template <class Body>
decltype(auto) within(step here, Body&& body) {
  return within(place(here), std::forward<Body>(body));
}

// Throws a bad_value: "expected EXPECTED, got (the value, or its type)". Runs no host code. The
// remedy, where there is one, is the word that makes the value right: "set(files)".
[[noreturn]] void refuse(fault kind, std::string_view expected, handle got,
                         std::string_view remedy = {});
// Throws a bad_value with a text of the module's own.
[[noreturn]] void refuse(fault kind, std::string_view what);
// The same with a text of the host's between two of its own: "unexpected argument 'wrong'".
[[noreturn]] void refuse_name(fault kind, std::string_view what, text_view name);
// The same for calls of the host that lead into the module again and again.
[[noreturn]] void refuse_reentry();
// Sets KeyError(key).
[[noreturn]] void raise_missing_key(handle key);
// Sets AssertionError: the sizes of a candidate, measured and built, that must be the same.
[[noreturn]] void raise_size_mismatch(std::int64_t measured, std::int64_t built);

// Sets an error of the host's with a text in the host's own format. (The host's function for this
// loses a MemoryError that comes of making the text, up to 3.10.)
template <class... Arguments>
[[noreturn]] void raise_error(handle type, const char* format, Arguments... arguments) {
  const owned text = owned::steal(PyUnicode_FromFormat(format, arguments...));
  PyErr_SetObject(type.get(), text.get());
  throw raised{};
}

// Forgets the host's error when it is an ordinary one; false for what no caller may swallow, such
// as a lack of memory.
bool forget_error() noexcept;

// Runs what only a report wants to know: false when a value is refused or host code fails.
template <class Body>
bool succeeds(Body&& body) {
  try {
    body();
    return true;
  } catch (const bad_value&) {
    return false;
  } catch (const raised&) {
    if (!forget_error()) throw;
    return false;
  }
}

// The host's error, taken so that host code can run, or another error be set in its place. Making
// its value may fail, and then it is the error of that.
class taken_error {
 public:
  taken_error();
  bool is_a(handle type) const noexcept;
  handle value() const { return value_; }
  void restore() noexcept;  // sets it again

 private:
  owned type_, value_, traceback_;
};

// What the message of an error names first: a function, or the module's import.
struct origin {
  const char* name;
  const char* mark;  // stands between the name and a colon
  constexpr origin(const char* function) : name(function), mark("()") {}
  static constexpr origin of_import() { return {"import of grounding_fit", ""}; }

 private:
  constexpr origin(const char* words, const char* its_mark) : name(words), mark(its_mark) {}
};

// Sets the host's error for the C++ exception in flight.
void set_error_of_exception(origin where) noexcept;

// Runs `body` and gives its value, or `failed` with the host's error set. Every entry into the
// module is one of these.
template <class Body, class Result>
Result guarded(origin where, Result failed, Body&& body) noexcept {
  try {
    const entered here;
    if (here.too_deep()) refuse_reentry();
    return body();
  } catch (...) {
    set_error_of_exception(where);
    return failed;
  }
}

// The same for the usual case, a function that makes a value.
template <class Body>
PyObject* boundary(origin where, Body&& body) noexcept {
  return guarded(where, static_cast<PyObject*>(nullptr), [&] { return body().release(); });
}

}  // namespace grounding_fit::host
