// The slots of a record's type, one set of functions a shape, and the making of the type.
#pragma once

#include "host/record_value.hpp"

namespace grounding_fit::host {

template <const record_shape& Shape>
struct record_slots {
  static PyObject* make(PyTypeObject* type, PyObject* args, PyObject* keywords) noexcept {
    return boundary(Shape.name(), [&] { return build_record(type, Shape, args, keywords); });
  }

  static void dealloc(PyObject* self) noexcept {
    PyTypeObject* type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    for (std::size_t i = 0; i < Shape.fields.size(); ++i) Py_XDECREF(field_of(self, i).get());
    type->tp_free(self);
    Py_DECREF(type);
  }

  // No clear beside it: fields never change, so a cycle goes through a container that has one.
  static int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    for (std::size_t i = 0; i < Shape.fields.size(); ++i) Py_VISIT(field_of(self, i).get());
    Py_VISIT(Py_TYPE(self));
    return 0;
  }

  static PyObject* repr(PyObject* self) noexcept {
    return boundary(Shape.name(), [&] { return representation(Shape, self); });
  }

  static Py_hash_t hash(PyObject* self) noexcept {
    return guarded(Shape.name(), Py_hash_t{-1},
                   [&] { return PyObject_Hash(fields_tuple(Shape, self).get()); });
  }

  static PyObject* compare(PyObject* self, PyObject* other, int how) noexcept {
    if (Py_TYPE(self) != Py_TYPE(other) || (how != Py_EQ && how != Py_NE)) Py_RETURN_NOTIMPLEMENTED;
    return boundary(Shape.name(), [&] {
      return share(equal_records(Shape, self, other) == (how == Py_EQ) ? Py_True : Py_False);
    });
  }

  static int refuse_change(PyObject*, PyObject* name, PyObject* value) noexcept {
    return guarded(Shape.name(), -1, [&]() -> int {
      raise_error(PyExc_AttributeError, "%s is immutable: cannot %s '%U'", Shape.name(),
                  value == nullptr ? "delete" : "set", name);
    });
  }

  static PyObject* reduce(PyObject* self, PyObject*) noexcept {
    return boundary(Shape.name(), [&] { return reduced(Shape, self); });
  }

  static PyObject* extra(PyObject* self, void*) noexcept {
    return boundary(Shape.extra->function,
                    [&] { return Shape.extra->value(state_of(Py_TYPE(self)), self); });
  }
  static PyObject* extra_method(PyObject* self, PyObject*) noexcept { return extra(self, nullptr); }

  static Py_ssize_t length(PyObject*) noexcept {
    return static_cast<Py_ssize_t>(Shape.fields.size());
  }
  static PyObject* item(PyObject* self, Py_ssize_t i) noexcept {
    return boundary(Shape.name(), [&] {
      if (i < 0 || i >= length(self))
        raise_error(PyExc_IndexError, "%s index out of range", Shape.name());
      return share(field_of(self, static_cast<std::size_t>(i)));
    });
  }
  static PyObject* iterate(PyObject* self) noexcept {
    return boundary(Shape.name(), [&] {
      return owned::steal(PyObject_GetIter(fields_tuple(Shape, self).get()));
    });
  }
  static PyObject* at_key(PyObject* self, PyObject* key) noexcept {
    return boundary(Shape.name(), [&] { return subscript(Shape, self, key); });
  }
};

// The tables that a type is made of. The host keeps methods and attributes by address, so these
// belong to the shape and not to one import of the module.
struct record_tables {
  PyMethodDef methods[3];
  PyGetSetDef attributes[2];
};

template <const record_shape& Shape>
record_tables make_record_tables() {
  using slots = record_slots<Shape>;
  record_tables made{};
  made.methods[0] = {
      "__reduce__", slots::reduce, METH_NOARGS,
      "__reduce__($self, /)\n--\n\nReturn the constructor call that makes an equal record."};
  if (Shape.extra == nullptr) return made;
  if (Shape.extra->attribute) {
    made.attributes[0] = {Shape.extra->name, slots::extra, nullptr, Shape.extra->doc, nullptr};
  } else {
    made.methods[1] = {Shape.extra->name, slots::extra_method, METH_NOARGS, Shape.extra->doc};
  }
  return made;
}

// Makes the type out of its slots, and puts it into the module and its state.
void add_type_of(module_state& state, handle module, const record_shape& shape,
                 record_tables& tables, std::vector<PyType_Slot> slots);

template <const record_shape& Shape>
void add_record_type(module_state& state, handle module) {
  using slots = record_slots<Shape>;
  static record_tables tables = make_record_tables<Shape>();
  const auto slot = [](int id, auto* function) {
    return PyType_Slot{id, reinterpret_cast<void*>(function)};
  };
  std::vector<PyType_Slot> table = {slot(Py_tp_new, slots::make),
                                    slot(Py_tp_dealloc, slots::dealloc),
                                    slot(Py_tp_traverse, slots::traverse),
                                    slot(Py_tp_repr, slots::repr),
                                    slot(Py_tp_hash, slots::hash),
                                    slot(Py_tp_richcompare, slots::compare),
                                    slot(Py_tp_setattro, slots::refuse_change)};
  if (Shape.positional) {
    table.insert(table.end(), {slot(Py_tp_iter, slots::iterate), slot(Py_sq_length, slots::length),
                               slot(Py_sq_item, slots::item), slot(Py_mp_length, slots::length),
                               slot(Py_mp_subscript, slots::at_key)});
  }
  add_type_of(state, module, Shape, tables, std::move(table));
}

}  // namespace grounding_fit::host
