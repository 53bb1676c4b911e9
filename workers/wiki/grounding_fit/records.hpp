// Immutable records of the host's: one native type machinery, driven by a table of fields.
//
// A record is checked field by field when it is built and never changes; its fields stay the
// caller's own objects. Everything else a host expects of a value (equality, hash, repr, pattern
// matching, copying, pickling, collection) is the same code for every record.
#pragma once

#include "host.hpp"

namespace grounding_fit::records {

enum class field_kind { text, sequence, text_set, mapping, integer, number, budget };
// What stands in for a field that is not given; `required` has nothing.
enum class otherwise {
  required,
  empty_text,
  empty_tuple,
  fresh_dict,
  integer,
  floor,
  default_budget
};

struct field {
  const char* name;
  field_kind kind;
  otherwise missing;
  const char* doc;
  std::int64_t integer = 0;  // what stands in for an integer
};

// A value worked out from the fields at every reading: a method without arguments, or an attribute.
struct computed {
  const char* name;
  const char* function;  // how errors name it: "FactBlock.label"
  bool attribute;
  const char* doc;
  host::owned (*value)(const host::service& svc, host::handle record);
};

struct layout {
  const char* name;  // "FactBlock"
  const char* doc;   // led by its text signature
  host::known type;  // where the module's state keeps the type
  bool positional;   // also a sequence of its fields
  std::span<const field> fields;
  const computed* extra;  // or null
};

// Fields by position, in the order of the constructor. The shapes are the grounding model's to
// define: what a record holds is its business, how it holds it is ours.
namespace fact_block {
enum : std::size_t { text, seeds, name, key };
extern const layout shape;
}  // namespace fact_block
namespace grounding_parts {
enum : std::size_t { prose, blocks, files, code_floor, budget };
extern const layout shape;
}  // namespace grounding_parts
namespace section_budget {
enum : std::size_t { readme_chars, first, shares, document_chars };
extern const layout shape;
}  // namespace section_budget

inline constexpr const layout* k_shapes[] = {&fact_block::shape, &grounding_parts::shape,
                                             &section_budget::shape};

// Makes the three types and puts them into the module and its state.
void add_types(host::service& svc, host::handle module);

host::owned make(const host::service& svc, const layout& shape, std::vector<host::owned> fields);

inline bool is(const host::service& svc, const layout& shape, host::handle value) {
  return reinterpret_cast<PyObject*>(Py_TYPE(value.get())) == svc[shape.type].get();
}
// TypeError for anything but a record of that shape, made by this very module.
void expect(const host::service& svc, const layout& shape, host::handle value);

// A field of a record that is known to have it; lives as long as the record.
host::handle get(host::handle record, std::size_t field) noexcept;

}  // namespace grounding_fit::records
