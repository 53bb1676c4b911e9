#include "binding/binding.hpp"
#include "python/call.hpp"
#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::module_state;
using py::owned;
using py::utility;

namespace {

struct wanted_utility {
  utility name;
  const char* attribute;
  bool callable;  // else a heading: a string that is not empty
};

constexpr wanted_utility k_utilities[] = {
    {utility::estimate_tokens, "estimate_tokens", true},
    {utility::truncate_to_tokens, "_truncate_to_tokens", true},
    {utility::norm, "_norm", true},
    {utility::file_cards_heading, "FILE_CARDS_HEADING", false},
    {utility::requested_context_heading, "REQUESTED_CONTEXT_HEADING", false}};

static_assert(std::size(k_utilities) == static_cast<std::size_t>(utility::count));

constexpr const char* k_host_modules[] = {"workers.context_builder", "workers.wiki.repo_facts",
                                          "workers.wiki_types"};

// Whether `value` is `dotted` or a package above it: "a" or "a.b" for "a.b".
bool names_part_of(handle value, std::string_view dotted) {
  if (py::kind_of(value) != py::kind::text) return false;
  const text_view whole = dotted;
  const text_view part = py::view_of(value);
  if (!whole.starts_with(part)) return false;
  return part.length() == whole.length() || whole[part.length()] == '.';
}

// An attribute of a module, or an empty handle when the module does not define it.
owned attribute_of(handle module, const char* name) {
  PyObject* value = PyObject_GetAttrString(module.get(), name);
  if (value != nullptr) return owned::steal(value);
  if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw py::python_error_set{};
  PyErr_Clear();
  return {};
}

// As `from NAME import ...` imports it: by its full name, whether or not the packages above it are
// known, and through the __import__ that is in force.
owned import_as_from(const char* name) {
  const handle builtins = PyEval_GetBuiltins();
  const owned import = py::dict(builtins).get(py::new_text("__import__"));
  if (!import) py::refuse(py::fault::value, "builtins without __import__");
  const owned always_there = py::tuple_of(py::new_text("__name__"));
  return py::call(import, py::new_text(name), py::null(), py::null(), always_there,
                  py::new_integer(0));
}

// A module of the host, or an empty handle when it does not exist. Any other failure to import it
// is the caller's to see, also the absence of a module that it imports itself.
owned import_if_there(const char* name) {
  try {
    return import_as_from(name);
  } catch (const py::python_error_set&) {
    if (!PyErr_ExceptionMatches(PyExc_ModuleNotFoundError)) throw;
  }
  py::saved_error error;
  const owned missing = attribute_of(error.value(), "name");
  if (missing && names_part_of(missing, name)) return {};
  error.restore();
  throw py::python_error_set{};
}

void import_utility(module_state& state, const wanted_utility& wanted, handle module,
                    const char* home) {
  if (state[wanted.name]) return;
  owned value = attribute_of(module, wanted.attribute);
  if (!value) return;
  py::within(py::place(home, ".", wanted.attribute), [&] {
    if (wanted.callable) {
      py::expect_callable(value);
    } else if (py::expect_text(value).empty()) {
      py::refuse(py::fault::value, "a heading that is not empty", value);
    }
  });
  state.keep(wanted.name, std::move(value));
}

bool complete(const module_state& state) {
  for (const wanted_utility& wanted : k_utilities) {
    if (!state[wanted.name]) return false;
  }
  return true;
}

}  // namespace

void import_utilities(module_state& state) {
  std::string looked_in;
  for (const char* home : k_host_modules) {
    if (complete(state)) return;
    const owned module = import_if_there(home);
    looked_in += std::string(looked_in.empty() ? "" : ", ") + home + (module ? "" : " (not there)");
    if (!module) continue;
    for (const wanted_utility& wanted : k_utilities) import_utility(state, wanted, module, home);
  }
  for (const wanted_utility& wanted : k_utilities) {
    if (state[wanted.name]) continue;
    py::raise_error(PyExc_ImportError,
                    "grounding_fit needs %s of its host; looked in %s. A module that is still "
                    "being imported, because it imports grounding_fit itself, has not defined it "
                    "yet",
                    wanted.attribute, looked_in.c_str());
  }
}

}  // namespace grounding_fit
