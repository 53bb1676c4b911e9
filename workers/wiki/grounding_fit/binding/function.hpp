// A function as the host calls it: a docstring that begins with its signature, and a body.
//
// The signature is read by the compiler, so that the names of a function and of its parameters are
// written once, where help() and inspect.signature find them.
#pragma once

#include "grounding_model/grounding_model.hpp"
#include "host/host.hpp"

namespace grounding_fit {

struct function {
  const char* doc;  // "seed($module, /, path, start, end=0)\n--\n\n..."
  host::owned (*body)(const host::module_state& state, const host::arguments& given);
};

struct signature {
  std::array<char, 40> name{};
  std::array<std::string_view, host::k_most_parameters> parameters{};
  std::size_t count = 0, required = 0;

  consteval explicit signature(std::string_view doc) {
    const std::string_view lead = "($module, /";
    const std::size_t open = doc.find(lead);
    doc.copy(name.data(), open);
    std::string_view rest = doc.substr(open + lead.size());
    while (rest.starts_with(", ")) {
      rest.remove_prefix(2);
      const std::string_view one = rest.substr(0, rest.find_first_of(",)"));
      parameters.at(count++) = one.substr(0, one.find('='));
      if (one.find('=') == one.npos) required = count;
      rest.remove_prefix(one.size());
    }
    if (!rest.starts_with(")\n--\n\n")) throw "not a text signature";
  }
};

template <const function& Called>
struct entry {
  static constexpr signature k_signature{Called.doc};

  static PyObject* run(PyObject* module, PyObject* const* args, Py_ssize_t count,
                       PyObject* keywords) noexcept {
    return host::boundary(k_signature.name.data(), [&] {
      const host::module_state& state = host::loaded(PyModule_GetState(module));
      const host::arguments given({k_signature.parameters.data(), k_signature.count},
                                  k_signature.required, args, static_cast<std::size_t>(count),
                                  keywords);
      return Called.body(state, given);
    });
  }

  static PyMethodDef method() {
    return {k_signature.name.data(),
            reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(run)),
            METH_FASTCALL | METH_KEYWORDS, Called.doc};
  }
};

using methods = std::vector<PyMethodDef>;

// The functions of each subsystem, added to a module's table.
void add_grounding_model(methods& table);
void add_symbol_rendering(methods& table);
void add_token_fitting(methods& table);
void add_answer_capping(methods& table);

// ---- readers of arguments -----------------------------------------------------------------------

grounding_parts expect_parts(const host::module_state& state, host::handle parts);
std::int64_t expect_int64(const char* name, host::handle value);

// The records of an array argument.
class array_records {
 public:
  array_records(const char* name, host::handle value);
  std::size_t size() const { return items_.size(); }
  host::handle operator[](std::size_t i) const { return items_[i]; }
  auto place_of(std::size_t i) const { return host::place(name_, i); }

 private:
  const char* name_;
  host::items items_;
};

// The texts of an array argument; each is refused unless it is a string.
class array_texts {
 public:
  array_texts(const char* name, host::handle value) : items_(name, value) {}
  std::size_t size() const { return items_.size(); }
  host::handle operator[](std::size_t i) const {
    host::within(items_.place_of(i), [&] { host::expect_text(items_[i]); });
    return items_[i];
  }

 private:
  array_records items_;
};

}  // namespace grounding_fit
