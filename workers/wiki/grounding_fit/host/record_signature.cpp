#include "host/record_signature.hpp"

#include "host/call.hpp"
#include "host/make.hpp"
#include "host/record_value.hpp"

namespace grounding_fit::host {
namespace {

struct signature_attribute {
  PyObject_HEAD;
  const record_shape* shape;
  newfunc maker;  // of the one type that it is an attribute of; no other has the same
};

owned attribute(handle value, const char* name) {
  return owned::steal(PyObject_GetAttrString(value.get(), name));
}

owned make_signature(const module_state& state, const record_shape& shape) {
  const owned inspect = owned::steal(PyImport_ImportModule("inspect"));
  const owned parameter = attribute(inspect, "Parameter");
  const owned kind = attribute(parameter, "POSITIONAL_OR_KEYWORD");
  std::vector<owned> parameters;
  for (const field& each : shape.fields) {
    const owned options = new_dict();
    if (each.make_default != nullptr) {
      set_item(options, new_text("default"), each.make_default(state));
    }
    const owned given = tuple_of(new_text(each.name), share(kind));
    parameters.push_back(owned::steal(PyObject_Call(parameter.get(), given.get(), options.get())));
  }
  return call(attribute(inspect, "Signature"), new_list(std::move(parameters)));
}

PyObject* get(PyObject* object, PyObject*, PyObject* owner) noexcept {
  const auto& self = *reinterpret_cast<signature_attribute*>(object);
  return boundary(self.shape->name(), [&] {
    auto* type = reinterpret_cast<PyTypeObject*>(owner);
    if (owner == nullptr || !PyType_Check(owner) || type->tp_new != self.maker) {
      refuse(fault::type, "__signature__ is an attribute of the type alone");
    }
    return make_signature(state_of(type), *self.shape);
  });
}

void dealloc(PyObject* self) noexcept {
  PyTypeObject* type = Py_TYPE(self);
  type->tp_free(self);
  Py_DECREF(type);
}

}  // namespace

owned new_signature_attribute(const record_shape& shape, const PyTypeObject* record_type) {
  PyType_Slot slots[] = {{Py_tp_descr_get, reinterpret_cast<void*>(get)},
                         {Py_tp_dealloc, reinterpret_cast<void*>(dealloc)},
                         {0, nullptr}};
  PyType_Spec description = {
      "grounding_fit.record_signature", sizeof(signature_attribute), 0,
      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_IMMUTABLETYPE | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
  const owned type = owned::steal(PyType_FromSpec(&description));
  auto* made = reinterpret_cast<PyTypeObject*>(type.get());
  owned self = owned::steal(made->tp_alloc(made, 0));
  auto& attribute = *reinterpret_cast<signature_attribute*>(self.get());
  attribute.shape = &shape;
  attribute.maker = record_type->tp_new;
  return self;
}

}  // namespace grounding_fit::host
