// What a host expects of a record as a value, for any shape. Used by the slots of its type.
#pragma once

#include "host/record_type.hpp"

namespace grounding_fit::host {

// A new record, its arguments checked.
owned build_record(PyTypeObject* type, const record_shape& shape, PyObject* args,
                   PyObject* keywords);
owned fields_tuple(const record_shape& shape, handle record);
owned representation(const record_shape& shape, handle record);
bool equal_records(const record_shape& shape, handle a, handle b);
// An index or slice of a positional record.
owned subscript(const record_shape& shape, handle record, handle key);
// The constructor call that makes an equal record.
owned reduced(const record_shape& shape, handle record);

// The state of the module that made the type: exact, since no record type can be derived from.
inline const module_state& state_of(PyTypeObject* type) {
  return loaded(PyType_GetModuleState(type));
}

}  // namespace grounding_fit::host
