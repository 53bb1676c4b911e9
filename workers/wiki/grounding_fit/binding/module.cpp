// The extension module: its docstring, what its import does, and its state.

#include "answer_capping/note.hpp"
#include "answer_capping/original_answer.hpp"
#include "binding/binding.hpp"
#include "grounding_model/policies.hpp"
#include "python/make.hpp"
#include "symbol_rendering/listing.hpp"
#include "symbol_rendering/render_symbol.hpp"

namespace grounding_fit {
namespace {

using py::handle;
using py::module_object;
using py::module_state;
using py::owned;
using py::utility;

constexpr char k_module_doc[] = R"(Fit the grounding of a wiki page to what its writer can be given.

A page's grounding is its fact blocks, each with citation seeds, and its rendered code symbols,
best first (GroundingParts). There is seldom room for all of it. Two paths decide what stays:

- API path, in tokens: _assemble_grounding(parts, budget) keeps whole symbol blocks, lists the
  next ones by a line each, and cuts the fact text to what is left of the token budget.
- Agent path, in JSON characters: _fit_page_context(result, parts, budget) keeps an answer within
  _PAGE_CONTEXT_MAX_CHARS and says in `truncated` what it left out.

On both, code blocks stay whole, of what loses its body up to 30 symbols are listed, and no seed
is added that names no real line. Calls share nothing and change none of their arguments.

Objects are dicts with string keys; wherever an array is read, a list or a tuple will do. A value
counts as missing when its key is absent or it is None, False, 0, 0.0 or empty. A value of the
wrong type raises TypeError, a line number that cannot be read ValueError, a count beyond 64 bits
OverflowError; what the host's own utilities raise passes through.)";

// Python keeps the table by address, for as long as the process lives.
PyMethodDef* method_table() {
  static methods table = [] {
    methods made;
    add_grounding_model(made);
    add_symbol_rendering(made);
    add_token_fitting(made);
    add_answer_capping(made);
    made.push_back({nullptr, nullptr, 0, nullptr});
    return made;
  }();
  return table.data();
}

owned fitted_fields_tuple(const module_state& state) {
  std::vector<owned> values;
  for (const py::key field : k_fitted_fields) values.push_back(py::new_ref(state[field]));
  return py::new_tuple(std::move(values));
}

owned placeholder() {
  const std::string note(k_placeholder_chars, 'x');
  return py::new_text(std::string_view(note));
}

// The limits, texts and shared policies, each added to `names`.
void add_constants(const module_state& state, handle module, std::vector<const char*>& names) {
  const std::pair<const char*, owned> constants[] = {
      {"README", py::new_text(k_readme)},
      {"DIGEST", py::new_text(k_digest)},
      {"DOCUMENT", py::new_text(k_document)},
      {"_SYM_BUDGET_FLOOR", py::new_ref(state[module_object::code_floor])},
      {"_ALWAYS_KEPT", py::tuple_of(py::new_ref(state[utility::file_cards_heading]),
                                    py::new_ref(state[utility::requested_context_heading]))},
      {"_DEFAULT_BUDGET", py::new_ref(state[module_object::default_policy])},
      {"_BUDGETS", py::read_only_view(policies_by_page_type(state))},
      {"_SKELETON_LINES", py::new_integer(k_skeleton_lines)},
      {"_LISTED_CHARS", py::new_integer(k_listed_chars)},
      {"_LISTED_HEADING", py::new_text(k_listed_heading)},
      {"_LISTED_MAX", py::new_integer(k_listed_max)},
      {"_PAGE_CONTEXT_MAX_CHARS", py::new_integer(k_answer_max_chars)},
      {"_NOTE_ITEMS", py::new_integer(k_note_items)},
      {"_FITTED_FIELDS", fitted_fields_tuple(state)},
      {"_NOTE_PLACEHOLDER", placeholder()}};
  for (const auto& [name, value] : constants) {
    py::add_to_module(module, name, value);
    names.push_back(name);
  }
}

// Every public name, the underscored ones too: they are the interface to the host, and help()
// leaves out what is not listed.
void add_all(handle module, const std::vector<const char*>& names) {
  std::vector<owned> texts;
  texts.reserve(names.size());
  for (const char* name : names) texts.push_back(py::new_text(name));
  py::add_to_module(module, "__all__", py::new_list(std::move(texts)));
  py::add_to_module(module, "__version__", py::new_text(GROUNDING_FIT_VERSION));
}

module_state& state_of(PyObject* module) {
  return *static_cast<module_state*>(PyModule_GetState(module));
}

int execute(PyObject* module) noexcept {
  return py::slot_entry(py::origin::of_import(), -1, [&] {
    module_state& state = state_of(module);
    state.keep_keys();
    import_utilities(state);
    state.keep(module_object::code_floor, py::new_real(k_code_floor));
    add_record_types(state, module);
    keep_policies(state);
    std::vector<const char*> names;
    for (const PyMethodDef* each = method_table(); each->ml_name != nullptr; ++each) {
      names.push_back(each->ml_name);
    }
    for (const auto* shape : {&k_fact_block, &k_grounding_parts, &k_section_budget}) {
      names.push_back(shape->name());
    }
    add_constants(state, module, names);
    add_all(module, names);
    state.set_ready();
    return 0;
  });
}

int traverse(PyObject* module, visitproc visit, void* arg) noexcept {
  return state_of(module).traverse(visit, arg);
}

int clear(PyObject* module) noexcept {
  state_of(module).clear();
  return 0;
}

void release(void* module) noexcept { clear(static_cast<PyObject*>(module)); }

PyModuleDef* definition() {
  static auto slots = py::version::module_slots(execute);
  static PyModuleDef made = {PyModuleDef_HEAD_INIT,
                             "grounding_fit",
                             k_module_doc,
                             sizeof(module_state),
                             method_table(),
                             slots.data(),
                             traverse,
                             clear,
                             release};
  return &made;
}

}  // namespace
}  // namespace grounding_fit

PyMODINIT_FUNC PyInit_grounding_fit() { return PyModuleDef_Init(grounding_fit::definition()); }
