// Failures inside the module, and the one place that turns them into the host's errors.
//
// Failure is a C++ exception: `raised` when the host's error is already set, `bad_value` for a
// value that the rules refuse. guarded() is the only place that catches either for good.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "host/handle.hpp"
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

// Throws a bad_value: "expected EXPECTED, got (the value, or its type)". Runs no host code.
[[noreturn]] void refuse(fault kind, std::string_view expected, handle got);
// Throws a bad_value with a text of the module's own.
[[noreturn]] void refuse(fault kind, std::string_view what);
// The same with a text of the host's between two of its own: "unexpected argument 'wrong'".
[[noreturn]] void refuse_name(fault kind, std::string_view what, text_view name);
// Sets KeyError(key).
[[noreturn]] void raise_missing_key(handle key);
// Sets AssertionError: the sizes of a candidate, measured and built, that must be the same.
[[noreturn]] void raise_size_mismatch(std::int64_t measured, std::int64_t built);

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

// The host's error as a value, with its class set right, so that another can be set in its place.
owned take_error();

// Sets the host's error for the C++ exception in flight, its message led by the function's name.
void set_error_of_exception(std::string_view function) noexcept;

// Runs `body` and gives its value, or `failed` with the host's error set.
template <class Body, class Result>
Result guarded(std::string_view function, Result failed, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    set_error_of_exception(function);
    return failed;
  }
}

// The same for the usual case, a function that makes a value.
template <class Body>
PyObject* boundary(std::string_view function, Body&& body) noexcept {
  return guarded(function, static_cast<PyObject*>(nullptr), [&] { return body().release(); });
}

}  // namespace grounding_fit::host
