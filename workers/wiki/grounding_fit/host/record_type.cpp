#include "host/record_type.hpp"

#include "host/make.hpp"
#include "host/record_signature.hpp"
#include "host/record_slots.hpp"

namespace grounding_fit::host {
namespace {

// The type's own attributes. Written into its dictionary, since the type itself is immutable.
void set_type_attributes(PyTypeObject* type, const record_shape& shape, handle module) {
  std::vector<owned> names;
  for (const field& each : shape.fields) names.push_back(new_text(each.name));
  const owned match_args = new_tuple(std::move(names));
  // Records pickle by the name that this module was imported under.
  const owned home = owned::steal(PyModule_GetNameObject(module.get()));
  const handle attributes = type->tp_dict;
  set_item(attributes, new_text("__match_args__"), match_args);
  set_item(attributes, new_text("__module__"), home);
  set_item(attributes, new_text("__signature__"), new_signature_attribute(shape, type));
  PyType_Modified(type);
}

}  // namespace

void add_type_of(module_state& state, handle module, const record_shape& shape,
                 record_tables& tables, std::vector<PyType_Slot> slots) {
  std::vector<PyMemberDef> members;
  auto offset = static_cast<Py_ssize_t>(sizeof(PyObject));
  for (const field& each : shape.fields) {
    members.push_back({each.name, Py_T_OBJECT_EX, offset, Py_READONLY, each.doc});
    offset += static_cast<Py_ssize_t>(sizeof(PyObject*));
  }
  members.push_back({nullptr, 0, 0, 0, nullptr});
  slots.insert(slots.end(), {{Py_tp_doc, const_cast<char*>(shape.doc)},
                             {Py_tp_members, members.data()},
                             {Py_tp_methods, tables.methods},
                             {Py_tp_getset, tables.attributes},
                             {0, nullptr}});
  // The host keeps the name by address, up to 3.10.
  PyType_Spec description = {shape.full_name, static_cast<int>(offset), 0,
                             Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_IMMUTABLETYPE,
                             slots.data()};
  const owned type = owned::steal(PyType_FromModuleAndSpec(module.get(), &description, nullptr));
  set_type_attributes(reinterpret_cast<PyTypeObject*>(type.get()), shape, module);
  add_to_module(module, shape.name(), type);
  state.keep(shape.type, share(type));
}

}  // namespace grounding_fit::host
