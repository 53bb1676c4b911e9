#include "host/record_value.hpp"

#include <stdexcept>

#include "host/pieces.hpp"

namespace grounding_fit::host {
namespace {

owned allocate(PyTypeObject* type, std::vector<owned> fields) {
  owned self = owned::steal(type->tp_alloc(type, 0));
  auto** slots = reinterpret_cast<PyObject**>(self.get() + 1);
  for (owned& field : fields) *slots++ = field.release();
  return self;
}

// The field as an argument of the constructor call that makes an equal record: a read-only view as
// the dict it shows, since the host can neither pickle a view nor read its repr back.
owned argument_of(handle record, std::size_t i) {
  const handle value = field_of(record, i);
  return is_read_only_view(value) ? mapping(value).copy() : share(value);
}

// By itself, so that the room of the pieces is not in the frame of every level of nested records.
[[gnu::noinline]] owned constructor_call(const record_shape& shape, std::vector<owned> values) {
  pieces text;
  text.add(shape.name());
  text.add("(");
  for (std::size_t i = 0; i < values.size(); ++i) {
    text.add(i == 0 ? "" : ", ");
    text.add(shape.fields[i].name);
    text.add("=");
    text.add_string(std::move(values[i]));
  }
  text.add(values.empty() ? "...)" : ")");
  return text.text();
}

}  // namespace

owned make_record(const module_state& state, const record_shape& shape, std::vector<owned> fields) {
  if (fields.size() != shape.fields.size()) throw std::logic_error("a record lacks a field");
  return allocate(reinterpret_cast<PyTypeObject*>(state[shape.type].get()), std::move(fields));
}

void expect_record(const module_state& state, const record_shape& shape, handle value) {
  if (is_record(state, shape, value)) return;
  if (std::string_view(Py_TYPE(value.get())->tp_name) == shape.full_name) {
    const std::string what =
        std::string("expected a ") + shape.name() +
        " of this module, which was imported twice, under two names: got one of";
    const owned home = dict(Py_TYPE(value.get())->tp_dict).get(new_text("__module__"));
    refuse_name(fault::type, what, expect_text(home));
  }
  refuse(fault::type, std::string("a ") + shape.name() + " of this module", value);
}

owned build_record(PyTypeObject* type, const record_shape& shape, PyObject* args,
                   PyObject* keywords) {
  const module_state& state = state_of(type);
  std::array<std::string_view, k_most_parameters> names;
  std::size_t required = 0;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    names[i] = shape.fields[i].name;
    required += shape.fields[i].make_default == nullptr;
  }
  const arguments given({names.data(), shape.fields.size()}, required, args, keywords);
  std::vector<owned> values;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    const field& each = shape.fields[i];
    if (given[i]) within(each.name, [&] { each.check(state, given[i]); });
    values.push_back(share(given[i]));
  }
  // Defaults come after: making one may run the collector, and so host code.
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!values[i]) values[i] = shape.fields[i].make_default(state);
  }
  return allocate(type, std::move(values));
}

owned fields_tuple(const record_shape& shape, handle record) {
  std::vector<owned> values;
  for (std::size_t i = 0; i < shape.fields.size(); ++i)
    values.push_back(share(field_of(record, i)));
  return new_tuple(std::move(values));
}

owned representation(const record_shape& shape, handle record) {
  const int entered = Py_ReprEnter(record.get());
  if (entered < 0) throw raised{};
  std::vector<owned> values;
  if (entered == 0) {
    struct leave {
      handle record;
      ~leave() { Py_ReprLeave(record.get()); }
    } const guard{record};
    for (std::size_t i = 0; i < shape.fields.size(); ++i) {
      values.push_back(owned::steal(PyObject_Repr(argument_of(record, i).get())));
    }
  }
  return constructor_call(shape, std::move(values));
}

bool equal_records(const record_shape& shape, handle a, handle b) {
  for (std::size_t i = 0; i < shape.fields.size(); ++i) {
    const int same = PyObject_RichCompareBool(field_of(a, i).get(), field_of(b, i).get(), Py_EQ);
    if (same < 0) throw raised{};
    if (same == 0) return false;
  }
  return true;
}

owned subscript(const record_shape& shape, handle record, handle key) {
  const owned fields = fields_tuple(shape, record);
  if (PySlice_Check(key.get())) return owned::steal(PyObject_GetItem(fields.get(), key.get()));
  const Py_ssize_t index = PyNumber_AsSsize_t(key.get(), PyExc_IndexError);
  if (index == -1 && PyErr_Occurred() != nullptr) throw raised{};
  const auto size = static_cast<Py_ssize_t>(shape.fields.size());
  const Py_ssize_t at = index < 0 ? index + size : index;
  if (at < 0 || at >= size) {
    raise_error(PyExc_IndexError, "%s index out of range: %zd of %zd", shape.name(), index, size);
  }
  return share(field_of(record, static_cast<std::size_t>(at)));
}

owned reduced(const record_shape& shape, handle record) {
  std::vector<owned> values;
  for (std::size_t i = 0; i < shape.fields.size(); ++i) values.push_back(argument_of(record, i));
  return tuple_of(share(reinterpret_cast<PyObject*>(Py_TYPE(record.get()))),
                  new_tuple(std::move(values)));
}

void add_to_module(handle module, const char* name, handle value) {
  if (PyModule_AddObjectRef(module.get(), name, value.get()) < 0) throw raised{};
}

}  // namespace grounding_fit::host
