// Immutable records of the host's: one native type machinery, driven by a table of fields.
//
// A record is checked field by field when it is built and never changes; its fields stay the
// caller's own objects. Everything else a host expects of a value (equality, hash, repr, pattern
// matching, copying, pickling, collection) is the same code for every record. What a record holds
// is its owner's business: the tables stand in the grounding model.
#pragma once

#include <vector>

#include "host/arguments.hpp"
#include "host/state.hpp"

namespace grounding_fit::host {

struct field {
  const char* name;
  // Refuses a value that the field cannot hold.
  void (*check)(const module_state& state, handle value);
  // What stands in for a value that is not given; null where one must be given.
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
  const char* full_name;  // "grounding_fit.FactBlock", as the host wants a type named
  const char* doc;        // led by its text signature
  kept type;              // where the module's state keeps the type
  bool positional;        // also a sequence of its fields
  std::span<const field> fields;
  const computed* extra;  // or null

  // Does not compile for more fields than a constructor can take.
  consteval record_shape(const char* its_full_name, const char* its_doc, kept its_type,
                         bool is_positional, std::span<const field> its_fields,
                         const computed* its_extra)
      : full_name(its_full_name),
        doc(its_doc),
        type(its_type),
        positional(is_positional),
        fields(its_fields),
        extra(its_extra) {
    if (fields.size() > k_most_parameters) throw "raise k_most_parameters";
  }

  // "FactBlock"
  constexpr const char* name() const {
    return full_name + std::string_view(full_name).rfind('.') + 1;
  }
};

// Makes the type of a shape, and puts it into the module and its state.
template <const record_shape& Shape>
void add_record_type(module_state& state, handle module);

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

void add_to_module(handle module, const char* name, handle value);

}  // namespace grounding_fit::host
