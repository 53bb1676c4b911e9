// Immutable records: one native type for each table of fields.
//
// A record is checked field by field when it is built and never changes; its fields stay the
// caller's own objects. Whatever else Python's users expect of a value (equality, hash, repr,
// pattern matching, copying, pickling, collection) is the same code for every record. What a record
// holds is its owner's business: the tables stand in the grounding model.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "python/arguments.hpp"
#include "python/state.hpp"

namespace grounding_fit::py {

struct field {
  const char* name;
  // Refuses a value that the field cannot hold.
  void (*check)(const module_state& state, handle value);
  // What stands in for a missing argument; null where there must be one.
  owned (*make_default)(const module_state& state);
  const char* doc;
};

// A value worked out from the fields at every reading: a method without arguments, or an attribute.
struct computed {
  const char* name;
  const char* function;  // how errors name it: "FactBlock.label"
  bool attribute;
  const char* doc;
  owned (*value)(const module_state& state, handle record);
};

struct record_shape {
  const char* full_name;  // "grounding_fit.FactBlock"
  const char* doc;        // led by its text signature
  module_object type;     // where the module's state keeps the type
  bool positional;        // also a sequence of its fields
  std::span<const field> fields;
  const computed* extra;                                         // or null
  std::array<std::string_view, k_most_parameters> parameters{};  // of the constructor
  std::size_t required = 0;

  // Does not compile for more fields than a constructor can take.
  consteval record_shape(const char* its_full_name, const char* its_doc, module_object its_type,
                         bool is_positional, std::span<const field> its_fields,
                         const computed* its_extra)
      : full_name(its_full_name),
        doc(its_doc),
        type(its_type),
        positional(is_positional),
        fields(its_fields),
        extra(its_extra) {
    if (fields.size() > k_most_parameters) throw "raise k_most_parameters";
    for (std::size_t i = 0; i < fields.size(); ++i) {
      parameters[i] = fields[i].name;
      required += fields[i].make_default == nullptr;
    }
  }

  // "FactBlock"
  constexpr const char* name() const {
    return full_name + std::string_view(full_name).rfind('.') + 1;
  }
};

owned make_record(const module_state& state, const record_shape& shape, std::vector<owned> fields);

inline bool is_record(const module_state& state, const record_shape& shape, handle value) {
  return reinterpret_cast<PyObject*>(Py_TYPE(value.get())) == state[shape.type].get();
}
// TypeError for anything but a record of that shape, made by this very module.
void expect_record(const module_state& state, const record_shape& shape, handle value);

// The field at a position, of a record that is known to have it; lives as long as the record.
inline handle field_of(handle record, std::size_t position) noexcept {
  return reinterpret_cast<PyObject**>(record.get() + 1)[position];
}

// ---- the making of a type -----------------------------------------------------------------------

// The functions of a type that know its shape.
PyObject* build_record(const record_shape& shape, PyTypeObject* type, PyObject* args,
                       PyObject* keywords) noexcept;
PyObject* compute(const record_shape& shape, PyObject* record) noexcept;

// What Python keeps of a type by address: it belongs to the shape and not to one import of the
// module.
struct record_tables {
  newfunc make;
  PyMethodDef methods[3];
  PyGetSetDef attributes[2];
};

template <const record_shape& Shape>
constexpr record_tables tables_of() {
  record_tables made{};
  made.make = [](PyTypeObject* type, PyObject* args, PyObject* keywords) noexcept {
    return build_record(Shape, type, args, keywords);
  };
  if (Shape.extra != nullptr && Shape.extra->attribute) {
    const auto get = [](PyObject* self, void*) noexcept { return compute(Shape, self); };
    made.attributes[0] = {Shape.extra->name, get, nullptr, Shape.extra->doc, nullptr};
  } else if (Shape.extra != nullptr) {
    const auto call = [](PyObject* self, PyObject*) noexcept { return compute(Shape, self); };
    made.methods[1] = {Shape.extra->name, call, METH_NOARGS, Shape.extra->doc};
  }
  return made;
}

void add_record_type(module_state& state, handle module, const record_shape& shape,
                     record_tables& tables);
// Makes the type of a shape, and puts it into the module and its state.
template <const record_shape& Shape>
void add_record_type(module_state& state, handle module) {
  static record_tables tables = tables_of<Shape>();
  add_record_type(state, module, Shape, tables);
}

}  // namespace grounding_fit::py
