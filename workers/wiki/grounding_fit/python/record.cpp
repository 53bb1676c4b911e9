#include "python/record.hpp"

#include <algorithm>
#include <stdexcept>

#include "python/entry.hpp"
#include "python/make.hpp"
#include "python/text_builder.hpp"

namespace grounding_fit::py {
namespace {

// ---- what a type tells of its records -----------------------------------------------------------

// These need no module state: a record may outlive the clearing of the module that made it.

std::span<PyObject*> fields_of(handle record) noexcept {
  const auto bytes = static_cast<std::size_t>(Py_TYPE(record.get())->tp_basicsize);
  return {reinterpret_cast<PyObject**>(record.get() + 1),
          (bytes - sizeof(PyObject)) / sizeof(PyObject*)};
}

// The type's name without its module, as "FactBlock".
const char* name_of(handle record) noexcept {
  const std::string_view full_name = Py_TYPE(record.get())->tp_name;
  return full_name.substr(full_name.rfind('.') + 1).data();
}

const char* field_name(handle record, std::size_t i) noexcept {
  return Py_TYPE(record.get())->tp_members[i].name;
}

// The state of the module that made the type: exact, since no record type can be derived from.
const module_state& state_of(PyTypeObject* type) { return loaded(PyType_GetModuleState(type)); }

owned allocate(PyTypeObject* type, std::vector<owned> values) {
  owned self = owned::steal(type->tp_alloc(type, 0));
  PyObject** field = fields_of(self).data();
  for (owned& value : values) *field++ = value.release();
  return self;
}

owned fields_tuple(handle record) {
  std::vector<owned> values;
  for (PyObject* field : fields_of(record)) values.push_back(new_ref(field));
  return new_tuple(std::move(values));
}

// A field as an argument of the constructor call that makes an equal record: a read-only view as
// the dict it shows, since Python can neither pickle a view nor read its repr back.
owned argument_of(handle field) {
  return is_read_only_view(field) ? mapping(field).copy() : new_ref(field);
}

// ---- slots --------------------------------------------------------------------------------------

void dealloc(PyObject* self) noexcept {
  PyTypeObject* type = Py_TYPE(self);
  PyObject_GC_UnTrack(self);
  for (PyObject* field : fields_of(self)) Py_XDECREF(field);
  type->tp_free(self);
  Py_DECREF(type);
}

// No clear beside it: fields never change, so a cycle goes through a container that has one.
int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
  for (PyObject* field : fields_of(self)) Py_VISIT(field);
  Py_VISIT(Py_TYPE(self));
  return 0;
}

// By itself, so that the room of the text is not in the frame of every level of nested records.
[[gnu::noinline]] owned constructor_call(handle record, std::vector<owned> arguments) {
  text_builder text;
  text.add(name_of(record));
  text.add("(");
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    text.add(i == 0 ? "" : ", ");
    text.add(field_name(record, i));
    text.add("=");
    text.add_string(arguments[i]);
  }
  text.add(arguments.empty() ? "...)" : ")");
  return text.text();
}

PyObject* repr(PyObject* self) noexcept {
  return call_entry(name_of(self), [&] {
    const int inside = Py_ReprEnter(self);
    if (inside < 0) throw python_error_set{};
    std::vector<owned> arguments;
    if (inside == 0) {
      struct leave {
        PyObject* record;
        ~leave() { Py_ReprLeave(record); }
      } const guard{self};
      for (PyObject* field : fields_of(self)) {
        arguments.push_back(owned::steal(PyObject_Repr(argument_of(field).get())));
      }
    }
    return constructor_call(self, std::move(arguments));
  });
}

Py_hash_t hash(PyObject* self) noexcept {
  return slot_entry(name_of(self), Py_hash_t{-1},
                    [&] { return PyObject_Hash(fields_tuple(self).get()); });
}

PyObject* compare(PyObject* self, PyObject* other, int how) noexcept {
  if (Py_TYPE(self) != Py_TYPE(other) || (how != Py_EQ && how != Py_NE)) Py_RETURN_NOTIMPLEMENTED;
  return call_entry(name_of(self), [&] {
    const owned mine = fields_tuple(self);
    return owned::steal(PyObject_RichCompare(mine.get(), fields_tuple(other).get(), how));
  });
}

int refuse_change(PyObject* self, PyObject* name, PyObject* value) noexcept {
  return slot_entry(name_of(self), -1, [&]() -> int {
    if (!PyUnicode_Check(name)) {
      raise_error(PyExc_TypeError, "attribute name must be string, not '%.200s'",
                  Py_TYPE(name)->tp_name);
    }
    raise_error(PyExc_AttributeError, "%s is immutable: cannot %s '%U'", name_of(self),
                value == nullptr ? "delete" : "set", name);
  });
}

// The constructor call that makes an equal record.
PyObject* reduce(PyObject* self, PyObject*) noexcept {
  return call_entry(name_of(self), [&] {
    std::vector<owned> arguments;
    for (PyObject* field : fields_of(self)) arguments.push_back(argument_of(field));
    return tuple_of(new_ref(reinterpret_cast<PyObject*>(Py_TYPE(self))),
                    new_tuple(std::move(arguments)));
  });
}

// ---- slots of a positional record ---------------------------------------------------------------

Py_ssize_t length(PyObject* self) noexcept {
  return static_cast<Py_ssize_t>(fields_of(self).size());
}

PyObject* item(PyObject* self, Py_ssize_t i) noexcept {
  return call_entry(name_of(self), [&] {
    if (i < 0 || i >= length(self)) {
      raise_error(PyExc_IndexError, "%s index out of range", name_of(self));
    }
    return new_ref(field_of(self, static_cast<std::size_t>(i)));
  });
}

PyObject* iterate(PyObject* self) noexcept {
  return call_entry(name_of(self),
                    [&] { return owned::steal(PyObject_GetIter(fields_tuple(self).get())); });
}

// The field or fields of an index or a slice.
PyObject* subscript(PyObject* self, PyObject* key) noexcept {
  return call_entry(name_of(self), [&] {
    if (PySlice_Check(key)) return owned::steal(PyObject_GetItem(fields_tuple(self).get(), key));
    const Py_ssize_t index = PyNumber_AsSsize_t(key, PyExc_IndexError);
    if (index == -1 && PyErr_Occurred() != nullptr) throw python_error_set{};
    const Py_ssize_t size = length(self);
    const Py_ssize_t at = index < 0 ? index + size : index;
    if (at < 0 || at >= size) {
      raise_error(PyExc_IndexError, "%s index out of range: %zd of %zd", name_of(self), index,
                  size);
    }
    return new_ref(field_of(self, static_cast<std::size_t>(at)));
  });
}

// ---- the making of a type -----------------------------------------------------------------------

std::vector<PyType_Slot> slots_of(const record_shape& shape, record_tables& tables,
                                  PyMemberDef* members) {
  const auto slot = [](int id, auto* function) {
    return PyType_Slot{id, reinterpret_cast<void*>(function)};
  };
  std::vector<PyType_Slot> slots = {slot(Py_tp_new, tables.make),
                                    slot(Py_tp_dealloc, dealloc),
                                    slot(Py_tp_traverse, traverse),
                                    slot(Py_tp_repr, repr),
                                    slot(Py_tp_hash, hash),
                                    slot(Py_tp_richcompare, compare),
                                    slot(Py_tp_setattro, refuse_change),
                                    {Py_tp_doc, const_cast<char*>(shape.doc)},
                                    {Py_tp_members, members},
                                    {Py_tp_methods, tables.methods},
                                    {Py_tp_getset, tables.attributes}};
  if (shape.positional) {
    slots.insert(slots.end(),
                 {slot(Py_tp_iter, iterate), slot(Py_sq_length, length), slot(Py_sq_item, item),
                  slot(Py_mp_length, length), slot(Py_mp_subscript, subscript)});
  }
  slots.push_back({0, nullptr});
  return slots;
}

// The type's own attributes. Written into its dictionary, since the type itself is immutable.
void set_type_attributes(PyTypeObject* type, const record_shape& shape, handle module) {
  std::vector<owned> names;
  for (const field& each : shape.fields) names.push_back(new_text(each.name));
  const handle attributes = type->tp_dict;
  set_item(attributes, new_text("__match_args__"), new_tuple(std::move(names)));
  // Records pickle by the name that this module was imported under.
  const owned home = owned::steal(PyModule_GetNameObject(module.get()));
  set_item(attributes, new_text("__module__"), home);
  PyType_Modified(type);
}

// The name under which the module that made a type was imported; empty when no module made it.
owned home_of(PyTypeObject* type) {
  PyObject* module = PyType_GetModule(type);
  owned name = owned::steal_or_null(module == nullptr ? nullptr : PyModule_GetNameObject(module));
  if (!name && !discard_error()) throw python_error_set{};
  return name;
}

}  // namespace

PyObject* build_record(const record_shape& shape, PyTypeObject* type, PyObject* args,
                       PyObject* keywords) noexcept {
  return call_entry(shape.name(), [&] {
    const module_state& state = state_of(type);
    const auto required = std::ranges::count(shape.fields, nullptr, &field::make_default);
    const arguments passed({shape.parameters.data(), shape.fields.size()},
                           static_cast<std::size_t>(required), args, keywords);
    std::vector<owned> values;
    for (std::size_t i = 0; i < shape.fields.size(); ++i) {
      const field& each = shape.fields[i];
      if (passed[i]) within(each.name, [&] { each.check(state, passed[i]); });
      values.push_back(new_ref(passed[i]));
    }
    // Defaults come after: making one may run the collector, and so code of the host's.
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!values[i]) values[i] = shape.fields[i].make_default(state);
    }
    return allocate(type, std::move(values));
  });
}

PyObject* compute(const record_shape& shape, PyObject* record) noexcept {
  return call_entry(shape.extra->function,
                    [&] { return shape.extra->value(state_of(Py_TYPE(record)), record); });
}

owned make_record(const module_state& state, const record_shape& shape, std::vector<owned> fields) {
  if (fields.size() != shape.fields.size()) throw std::logic_error("a record lacks a field");
  return allocate(reinterpret_cast<PyTypeObject*>(state[shape.type].get()), std::move(fields));
}

void expect_record(const module_state& state, const record_shape& shape, handle value) {
  if (is_record(state, shape, value)) return;
  const owned held = new_ref(value);
  if (std::string_view(Py_TYPE(value.get())->tp_name) == shape.full_name) {
    const std::string what =
        std::string("expected a ") + shape.name() +
        " of this module, which was imported twice, under two names: got one of";
    const owned home = home_of(Py_TYPE(value.get()));
    if (home) refuse_name(fault::type, what, expect_text(home));
  }
  refuse(fault::type, std::string("a ") + shape.name() + " of this module", held);
}

void add_record_type(module_state& state, handle module, const record_shape& shape,
                     record_tables& tables) {
  tables.methods[0] = {
      "__reduce__", reduce, METH_NOARGS,
      "__reduce__($self, /)\n--\n\nReturn the constructor call that makes an equal record."};
  std::vector<PyMemberDef> members;
  auto offset = static_cast<Py_ssize_t>(sizeof(PyObject));
  for (const field& each : shape.fields) {
    members.push_back({each.name, Py_T_OBJECT_EX, offset, Py_READONLY, each.doc});
    offset += static_cast<Py_ssize_t>(sizeof(PyObject*));
  }
  members.push_back({nullptr, 0, 0, 0, nullptr});
  std::vector<PyType_Slot> slots = slots_of(shape, tables, members.data());
  // Python keeps the name by address, up to 3.10.
  PyType_Spec description = {shape.full_name, static_cast<int>(offset), 0,
                             Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_IMMUTABLETYPE,
                             slots.data()};
  const owned type = owned::steal(PyType_FromModuleAndSpec(module.get(), &description, nullptr));
  set_type_attributes(reinterpret_cast<PyTypeObject*>(type.get()), shape, module);
  add_to_module(module, shape.name(), type);
  state.keep(shape.type, new_ref(type));
}

}  // namespace grounding_fit::py
