// How a function is bound, and how its arguments are read.
//
// A function is a docstring that begins with its signature, and a body. The compiler reads the
// signature, so that the names of a function and of its parameters are written once, where help()
// and inspect.signature find them.
#pragma once

#include "grounding_model/symbols.hpp"
#include "python/arguments.hpp"
#include "python/entry.hpp"

namespace grounding_fit {

struct function {
  const char* doc;  // "seed($module, /, path, start, end=0)\n--\n\n..."
  py::owned (*body)(const py::module_state& state, const py::arguments& args);
};

struct signature {
  std::array<char, 40> name{};
  std::array<std::string_view, py::k_most_parameters> parameters{};
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
    return py::call_entry(k_signature.name.data(), [&] {
      const py::module_state& state = py::loaded(PyModule_GetState(module));
      return Called.body(state, {{k_signature.parameters.data(), k_signature.count},
                                 k_signature.required,
                                 args,
                                 static_cast<std::size_t>(count),
                                 keywords});
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

// Keeps each utility from the first of the host's modules that defines it. ImportError names what
// none defines.
void import_utilities(py::module_state& state);

// ---- readers of arguments -----------------------------------------------------------------------

inline grounding_parts expect_parts(const py::module_state& state, py::handle parts) {
  py::within("parts", [&] { py::expect_record(state, k_grounding_parts, parts); });
  return {parts};
}

inline std::int64_t expect_int64(const char* name, py::handle value) {
  return py::within(name, [&] { return py::expect_int64(value); });
}

inline py::items expect_items(const char* name, py::handle value) {
  py::within(name, [&] { py::expect_array(value); });
  return py::items(value);
}

// The records of an array argument: symbols without a text.
inline std::vector<symbol_block> expect_records(const char* name, py::handle value) {
  const py::items items = expect_items(name, value);
  std::vector<symbol_block> records;
  records.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) records.push_back({{}, py::new_ref(items[i])});
  return records;
}

// An item that must be a string.
inline py::handle expect_text_at(const char* name, const py::items& items, std::size_t i) {
  py::within(py::place(name, i), [&] { py::expect_text(items[i]); });
  return items[i];
}

}  // namespace grounding_fit
