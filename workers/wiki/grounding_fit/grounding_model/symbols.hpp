// Symbols: the pairs of a page's symbol blocks, what their records say of name and file, and the
// host's names of files.
#pragma once

#include <span>
#include <vector>

#include "grounding_model/records.hpp"
#include "python/call.hpp"

namespace grounding_fit {

// One symbol of a page: its rendered text, and the record that the text was rendered from.
struct symbol_block {
  py::owned text;    // a string
  py::owned record;  // an object, or refused when it is first read
};
// The blocks of a page as they stand now.
std::vector<symbol_block> symbol_blocks_of(grounding_parts parts);

// Where an error says that the record of a symbol stands.
struct record_place {
  const char* list;  // "symbols", or "parts.blocks", whose items are pairs of a text and a record
  std::size_t at;
  bool in_pair;

  void prepend_to(py::bad_value& error) const {
    if (in_pair) error.prepend(std::size_t{1});
    py::place(list, at).prepend_to(error);
  }
};
inline record_place place_of_block(std::size_t i) { return {"parts.blocks", i, true}; }

// The records of some symbols, borrowed.
class symbol_records {
 public:
  // Of a page's blocks, from the one at `first` on.
  explicit symbol_records(std::span<const symbol_block> blocks, std::size_t first = 0)
      : blocks_(blocks.subspan(first)), place_(place_of_block(first)) {}
  // Of an argument of that name: the records alone, and no text beside them.
  symbol_records(std::span<const symbol_block> records, const char* name)
      : blocks_(records), place_{name, 0, false} {}

  std::size_t size() const { return blocks_.size(); }
  py::handle operator[](std::size_t i) const { return blocks_[i].record; }
  record_place place_of(std::size_t i) const {
    return {place_.list, place_.at + i, place_.in_pair};
  }

 private:
  std::span<const symbol_block> blocks_;
  record_place place_;  // of the first
};

// The host's normalised paths: asked for every time, or once for each text.
class path_names {
 public:
  enum class asking { every_time, once_per_text };
  path_names(const py::module_state& state, asking how);
  // `path` is a string; the result is whatever the host gave.
  py::owned operator()(py::owned path) {
    if (known_) return asked_once(std::move(path));
    return py::call(state_[py::utility::norm], path);
  }

 private:
  py::owned asked_once(py::owned path);  // asks the host for a new text, and remembers the result

  const py::module_state& state_;
  py::owned known_;
};

// The qualified name of a symbol as text; empty when it counts as missing.
inline py::owned read_symbol_name(const py::module_state& state, py::handle record) {
  py::owned fqn = py::read(state, py::expect_dict(record), py::key::fqn);
  if (py::missing(fqn)) return {};
  return py::within(py::key::fqn, [&] { return py::text_form(std::move(fqn)); });
}

}  // namespace grounding_fit
