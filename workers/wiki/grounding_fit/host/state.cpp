#include "host/state.hpp"

namespace grounding_fit::host {

int module_state::traverse(visitproc visit, void* arg) const noexcept {
  for (PyObject* ref : refs_) Py_VISIT(ref);
  return 0;
}

void module_state::clear() noexcept {
  ready_ = false;
  for (PyObject*& ref : refs_) Py_CLEAR(ref);
}

const module_state& loaded(const void* state) {
  const auto* found = static_cast<const module_state*>(state);
  if (found != nullptr && found->ready_) return *found;
  raise_error(PyExc_ImportError, "grounding_fit is not loaded: its import is going on or failed");
}

void keep_keys(module_state& state) {
  for (std::size_t i = 0; i < k_key_texts.size(); ++i) {
    state.keep(static_cast<key>(i),
               owned::steal(PyUnicode_InternFromString(k_key_texts[i].data())));
  }
}

}  // namespace grounding_fit::host
