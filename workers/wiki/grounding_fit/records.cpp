#include "records.hpp"

#include <string>

#include "pieces.hpp"

#if PY_VERSION_HEX < 0x030C0000
#include <structmember.h>
#define Py_T_OBJECT_EX T_OBJECT_EX
#define Py_READONLY READONLY
#endif

namespace grounding_fit::records {
namespace {

using host::fault;
using host::handle;
using host::known;
using host::owned;
using host::service;

PyObject** fields_of(PyObject* self) { return reinterpret_cast<PyObject**>(self + 1); }

PyTypeObject* type_of(const service& svc, const layout& shape) {
  return reinterpret_cast<PyTypeObject*>(svc[shape.type].get());
}

// Exact, since no record type can be derived from.
const service& service_of(PyTypeObject* type) { return host::loaded(PyType_GetModuleState(type)); }

// ---- building -----------------------------------------------------------------------------------

void check_field(const service& svc, field_kind kind, handle value) {
  const auto expect = [&](bool right, const char* expected) {
    if (!right) host::refuse(fault::type, expected, value);
  };
  PyObject* p = value.get();
  switch (kind) {
    case field_kind::text: return expect(PyUnicode_Check(p), "a string");
    case field_kind::sequence:
      return expect(PyList_Check(p) || PyTuple_Check(p), "a list or tuple");
    case field_kind::text_set: return expect(PyAnySet_Check(p), "a set or frozenset");
    case field_kind::mapping: return expect(PyDict_Check(p), "a dict");
    case field_kind::integer: return expect(PyLong_Check(p), "an integer");
    case field_kind::number:
      return expect(PyFloat_Check(p) || PyLong_Check(p), "a float or integer");
    case field_kind::budget: return records::expect(svc, section_budget::shape, value);
  }
}

owned default_of(const service& svc, const field& of) {
  switch (of.missing) {
    case otherwise::empty_text: return host::empty_text();
    case otherwise::empty_tuple: return host::new_tuple({});
    case otherwise::fresh_dict: return host::new_dict();
    case otherwise::integer: return host::new_integer(of.integer);
    case otherwise::floor: return host::share(svc[known::floor]);
    case otherwise::default_budget: return host::share(svc[known::default_budget]);
    case otherwise::required: break;
  }
  return {};
}

owned allocate(PyTypeObject* type, std::vector<owned> values) {
  owned self = owned::steal(type->tp_alloc(type, 0));
  for (std::size_t i = 0; i < values.size(); ++i) {
    fields_of(self.get())[i] = values[i].release();
  }
  return self;
}

owned build(const service& svc, PyTypeObject* type, const layout& shape, PyObject* args,
            PyObject* keywords) {
  const char* names[host::arguments::k_most];
  std::size_t required = 0;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    names[i] = shape.fields[i].name;
    required += shape.fields[i].missing == otherwise::required;
  }
  const host::arguments given({names, shape.fields.size()}, required, args, keywords);
  std::vector<owned> values;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    const field& f = shape.fields[i];
    if (given[i]) host::within(f.name, [&] { check_field(svc, f.kind, given[i]); });
    values.push_back(host::share(given[i]));
  }
  // Defaults come after: making one may run the collector, and so host code.
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!values[i]) values[i] = default_of(svc, shape.fields[i]);
  }
  return allocate(type, std::move(values));
}

// ---- what a host expects of a value -------------------------------------------------------------

owned fields_tuple(const layout& shape, PyObject* self) {
  std::vector<owned> values;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    values.push_back(host::share(fields_of(self)[i]));
  }
  return host::new_tuple(std::move(values));
}

owned representation(const layout& shape, PyObject* self) {
  pieces text;
  text.add(shape.name);
  text.add("(");
  const int entered = Py_ReprEnter(self);
  if (entered < 0) throw host::raised{};
  if (entered > 0) {
    text.add("...");
  } else {
    struct leave {
      PyObject* self;
      ~leave() { Py_ReprLeave(self); }
    } const guard{self};
    for (std::size_t i = 0; i < shape.fields.size(); ++i) {
      text.add(i == 0 ? "" : ", ");
      text.add(shape.fields[i].name);
      text.add("=");
      text.add_string(owned::steal(PyObject_Repr(fields_of(self)[i])));
    }
  }
  text.add(")");
  return text.text();
}

bool equal(const layout& shape, PyObject* a, PyObject* b) {
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    const int same = PyObject_RichCompareBool(fields_of(a)[i], fields_of(b)[i], Py_EQ);
    if (same < 0) throw host::raised{};
    if (same == 0) return false;
  }
  return true;
}

// An index or slice of a positional record.
owned subscript(const layout& shape, PyObject* self, PyObject* key) {
  const owned fields = fields_tuple(shape, self);
  if (PySlice_Check(key)) return owned::steal(PyObject_GetItem(fields.get(), key));
  const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
  if (index == -1 && PyErr_Occurred() != nullptr) throw host::raised{};
  const auto size = static_cast<Py_ssize_t>(shape.fields.size());
  const Py_ssize_t at = index < 0 ? index + size : index;
  if (at < 0 || at >= size) {
    PyErr_Format(PyExc_IndexError, "%s index out of range: %zd of %zd", shape.name, index, size);
    throw host::raised{};
  }
  return host::share(fields_of(self)[at]);
}

// ---- slots: the same for every shape ------------------------------------------------------------

template <const layout& Shape>
struct slots {
  static PyObject* make(PyTypeObject* type, PyObject* args, PyObject* keywords) noexcept {
    return host::boundary(Shape.name,
                          [&] { return build(service_of(type), type, Shape, args, keywords); });
  }

  static void dealloc(PyObject* self) noexcept {
    PyTypeObject* type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    for (std::size_t i = 0; i < Shape.fields.size(); ++i) Py_XDECREF(fields_of(self)[i]);
    type->tp_free(self);
    Py_DECREF(type);
  }

  // No clear beside it: fields never change, so a cycle goes through a container that has one.
  static int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    for (std::size_t i = 0; i < Shape.fields.size(); ++i) Py_VISIT(fields_of(self)[i]);
    Py_VISIT(Py_TYPE(self));
    return 0;
  }

  static PyObject* repr(PyObject* self) noexcept {
    return host::boundary(Shape.name, [&] { return representation(Shape, self); });
  }

  static Py_hash_t hash(PyObject* self) noexcept {
    return host::guarded(Shape.name, Py_hash_t{-1},
                         [&] { return PyObject_Hash(fields_tuple(Shape, self).get()); });
  }

  static PyObject* compare(PyObject* self, PyObject* other, int how) noexcept {
    if (Py_TYPE(self) != Py_TYPE(other) || (how != Py_EQ && how != Py_NE)) Py_RETURN_NOTIMPLEMENTED;
    return host::boundary(Shape.name, [&] {
      return host::share(equal(Shape, self, other) == (how == Py_EQ) ? Py_True : Py_False);
    });
  }

  static int refuse_change(PyObject*, PyObject* name, PyObject* value) noexcept {
    PyErr_Format(PyExc_AttributeError, "%s is immutable: cannot %s %R", Shape.name,
                 value == nullptr ? "delete" : "set", name);
    return -1;
  }

  static PyObject* reduce(PyObject* self, PyObject*) noexcept {
    return host::boundary(Shape.name, [&] {
      std::vector<owned> call;
      call.push_back(host::share(reinterpret_cast<PyObject*>(Py_TYPE(self))));
      call.push_back(fields_tuple(Shape, self));
      return host::new_tuple(std::move(call));
    });
  }

  static PyObject* extra(PyObject* self, void*) noexcept {
    return host::boundary(Shape.extra->function,
                          [&] { return Shape.extra->value(service_of(Py_TYPE(self)), self); });
  }
  static PyObject* extra_method(PyObject* self, PyObject*) noexcept { return extra(self, nullptr); }

  static Py_ssize_t length(PyObject*) noexcept {
    return static_cast<Py_ssize_t>(Shape.fields.size());
  }
  static PyObject* item(PyObject* self, Py_ssize_t i) noexcept {
    if (i < 0 || i >= length(self)) {
      PyErr_Format(PyExc_IndexError, "%s index out of range", Shape.name);
      return nullptr;
    }
    return host::share(fields_of(self)[i]).release();
  }
  static PyObject* iterate(PyObject* self) noexcept {
    return host::boundary(Shape.name, [&] {
      return owned::steal(PyObject_GetIter(fields_tuple(Shape, self).get()));
    });
  }
  static PyObject* subscript_slot(PyObject* self, PyObject* key) noexcept {
    return host::boundary(Shape.name, [&] { return subscript(Shape, self, key); });
  }
};

template <class Function>
void* slot_of(Function* function) {
  return reinterpret_cast<void*>(function);
}

// The type's own attributes. Written into its dictionary, since the type itself is immutable.
void set_type_attributes(PyTypeObject* type, const layout& shape, handle module) {
  std::vector<owned> names;
  for (const field& f : shape.fields) names.push_back(owned::steal(PyUnicode_FromString(f.name)));
  const owned match_args = host::new_tuple(std::move(names));
  // Records pickle by the name that this module was imported under.
  const owned home = owned::steal(PyModule_GetNameObject(module.get()));
  if (PyDict_SetItemString(type->tp_dict, "__match_args__", match_args.get()) < 0 ||
      PyDict_SetItemString(type->tp_dict, "__module__", home.get()) < 0) {
    throw host::raised{};
  }
  PyType_Modified(type);
}

template <const layout& Shape>
void add_type(service& svc, handle module) {
  using own = slots<Shape>;
  // The host keeps both tables by address, and copies the members.
  static PyMethodDef methods[] = {
      {"__reduce__", own::reduce, METH_NOARGS,
       "__reduce__($self, /)\n--\n\nReturn the constructor call that makes an equal record."},
      {nullptr, nullptr, 0, nullptr},
      {nullptr, nullptr, 0, nullptr}};
  static PyGetSetDef attributes[] = {{nullptr, nullptr, nullptr, nullptr, nullptr},
                                     {nullptr, nullptr, nullptr, nullptr, nullptr}};
  static const bool filled = [] {
    if (Shape.extra == nullptr) return true;
    if (Shape.extra->attribute) {
      attributes[0] = {Shape.extra->name, own::extra, nullptr, Shape.extra->doc, nullptr};
    } else {
      methods[1] = {Shape.extra->name, own::extra_method, METH_NOARGS, Shape.extra->doc};
    }
    return true;
  }();
  static_cast<void>(filled);

  std::vector<PyMemberDef> members;
  for (const field& f : Shape.fields) {
    const auto offset =
        static_cast<Py_ssize_t>(sizeof(PyObject) + members.size() * sizeof(PyObject*));
    members.push_back({f.name, Py_T_OBJECT_EX, offset, Py_READONLY, f.doc});
  }
  members.push_back({nullptr, 0, 0, 0, nullptr});

  std::vector<PyType_Slot> table = {{Py_tp_doc, const_cast<char*>(Shape.doc)},
                                    {Py_tp_new, slot_of(own::make)},
                                    {Py_tp_dealloc, slot_of(own::dealloc)},
                                    {Py_tp_traverse, slot_of(own::traverse)},
                                    {Py_tp_repr, slot_of(own::repr)},
                                    {Py_tp_hash, slot_of(own::hash)},
                                    {Py_tp_richcompare, slot_of(own::compare)},
                                    {Py_tp_setattro, slot_of(own::refuse_change)},
                                    {Py_tp_members, members.data()},
                                    {Py_tp_methods, methods},
                                    {Py_tp_getset, attributes}};
  if (Shape.positional) {
    table.push_back({Py_tp_iter, slot_of(own::iterate)});
    table.push_back({Py_sq_length, slot_of(own::length)});
    table.push_back({Py_sq_item, slot_of(own::item)});
    table.push_back({Py_mp_length, slot_of(own::length)});
    table.push_back({Py_mp_subscript, slot_of(own::subscript_slot)});
  }
  table.push_back({0, nullptr});

  static const std::string name = std::string("grounding_fit.") + Shape.name;
  PyType_Spec description = {
      name.c_str(), static_cast<int>(sizeof(PyObject) + Shape.fields.size() * sizeof(PyObject*)), 0,
      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_IMMUTABLETYPE, table.data()};
  owned type = owned::steal(PyType_FromModuleAndSpec(module.get(), &description, nullptr));
  set_type_attributes(reinterpret_cast<PyTypeObject*>(type.get()), Shape, module);
  host::add_to_module(module, Shape.name, type);
  svc.keep(Shape.type, std::move(type));
}

}  // namespace

void add_types(service& svc, handle module) {
  add_type<fact_block::shape>(svc, module);
  add_type<grounding_parts::shape>(svc, module);
  add_type<section_budget::shape>(svc, module);
}

owned make(const service& svc, const layout& shape, std::vector<owned> fields) {
  return allocate(type_of(svc, shape), std::move(fields));
}

void expect(const service& svc, const layout& shape, handle value) {
  if (is(svc, shape, value)) return;
  const std::string expected = std::string("a ") + shape.name + " of this module";
  host::refuse(fault::type, expected.c_str(), value);
}

handle get(handle record, std::size_t field) noexcept { return fields_of(record.get())[field]; }

}  // namespace grounding_fit::records
