// The extension module: its docstring, what its import does, and its state.

#include "binding/constants.hpp"
#include "binding/function.hpp"
#include "binding/host_utilities.hpp"

namespace grounding_fit {
namespace {

using host::handle;
using host::kept;
using host::module_state;
using host::owned;

constexpr char k_module_doc[] = R"(Fit the grounding of a wiki page to what its writer can be given.

A page's grounding is its fact blocks, each with citation seeds, and its rendered code symbols,
best first (GroundingParts). There is never room for all of it. Two paths decide what stays:

- API path, in tokens: _assemble_grounding(parts, budget) keeps whole symbol blocks, lists the
  next ones by a line each, and cuts the fact text to what is left of the token budget.
- Agent path, in JSON characters: _fit_page_context(result, parts, budget) keeps an answer within
  _PAGE_CONTEXT_MAX_CHARS and says in `truncated` what it left out.

On both, code blocks stay whole, what loses its body is listed while there is room, and every
seed handed out names real lines. Calls share nothing and change none of their arguments.

Objects are dicts with string keys; wherever an array is read, a list or a tuple will do. A value
counts as missing when its key is absent or it is None, False, 0, 0.0 or empty. A value of the
wrong type raises TypeError, a line number that cannot be read ValueError, a count beyond 64 bits
OverflowError; what the host's own utilities raise passes through.)";

// The host keeps the table by address, for as long as the process lives.
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

// Every public name, the underscored ones too: they are the host's interface, and help() leaves out
// what is not listed.
void add_all(handle module, const std::vector<const char*>& names) {
  std::vector<owned> texts;
  texts.reserve(names.size());
  for (const char* name : names) texts.push_back(host::new_text(name));
  host::add_to_module(module, "__all__", host::new_list(std::move(texts)));
  host::add_to_module(module, "__version__", host::new_text(GROUNDING_FIT_VERSION));
}

module_state& state_of(PyObject* module) {
  return *static_cast<module_state*>(PyModule_GetState(module));
}

int execute(PyObject* module) noexcept {
  return host::guarded(host::origin::of_import(), -1, [&] {
    module_state& state = state_of(module);
    host::keep_keys(state);
    take_utilities(state);
    state.keep(kept::code_floor, host::new_real(k_code_floor));
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
  static auto slots = host::version::module_slots(execute);
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
