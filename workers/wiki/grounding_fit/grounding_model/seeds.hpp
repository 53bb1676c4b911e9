// Line numbers, and citation seeds over them. A line 0 cannot be cited, so every list of seeds that
// the module makes holds only seeds from line 1 on.
#pragma once

#include "grounding_model/symbols.hpp"
#include "python/integer.hpp"

namespace grounding_fit {

// The line number under `which`: 0 when it counts as missing, ValueError when it cannot be read.
py::integer unusual_line(py::handle value, py::key which);  // no plain integer
inline py::integer read_line(const py::module_state& state, py::dict object, py::key which) {
  py::owned value = py::read(state, object, which);
  if (value && py::is_plain_integer(value)) return py::integer::of(std::move(value));
  return unusual_line(value, which);
}

bool is_citable(const py::module_state& state, py::handle seed);

// The keys of a citation seed, in their order.
inline constexpr py::key k_seed_keys[] = {py::key::path, py::key::line_start, py::key::line_end};
// A seed of these values.
py::owned make_seed(const py::module_state& state, py::handle path, py::handle start,
                    py::handle end);

// The lines of a symbol as they are cited; no path when its file counts as missing.
struct symbol_lines {
  py::owned path;
  py::integer start, end;

  bool citable() const { return path && start > 0; }
  const py::integer& last() const { return end > start ? end : start; }
  py::owned seed(const py::module_state& state) const {
    return make_seed(state, path, start.object(), last().object());
  }
};
// Both paths read the lines of every symbol: calling this for each costs the API path a hundredth.
[[gnu::always_inline]] inline symbol_lines read_symbol_lines(const py::module_state& state,
                                                             py::handle record, path_names& norm) {
  const py::dict symbol = py::expect_dict(record);
  py::owned file = py::read(state, symbol, py::key::file);
  if (py::missing(file)) return {};
  py::owned path = py::within(py::key::file, [&] {
    py::owned name = norm(py::text_form(std::move(file)));
    if (py::kind_of(name) != py::kind::text) {
      py::within("result of _norm", [&] { py::expect_text(name); });
    }
    return name;
  });
  return {std::move(path), read_line(state, symbol, py::key::line),
          read_line(state, symbol, py::key::end_line)};
}

// Calls `each` with the lines of every symbol record that can be cited, in order.
template <class Each>
void for_each_cited(const py::module_state& state, const symbol_records& records, Each&& each) {
  path_names norm(state, path_names::asking::every_time);
  for (std::size_t i = 0; i < records.size(); ++i) {
    symbol_lines lines =
        py::within(records.place_of(i), [&] { return read_symbol_lines(state, records[i], norm); });
    if (lines.citable()) each(lines);
  }
}

// Where seed j of fact block i stands.
inline auto seed_place(std::size_t i, std::size_t j) {
  return py::place("parts.prose", i, ".seeds", j);
}
// The seeds of all fact blocks that can be cited, added to `seeds` in order.
void add_citable(const py::module_state& state, const fact_blocks& prose,
                 std::vector<py::owned>& seeds);

}  // namespace grounding_fit
