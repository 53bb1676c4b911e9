// Line numbers, and citation seeds over them. A line 0 cannot be cited, so every list of seeds that
// leaves the module holds only seeds from line 1 on.
#pragma once

#include "grounding_model/records.hpp"
#include "grounding_model/symbol_record.hpp"

namespace grounding_fit {

// The line number under `which`: 0 when it counts as missing, ValueError when it cannot be read.
host::integer read_as_line(host::handle value, host::key which);  // where it is no plain integer
inline host::integer read_line(const host::module_state& state, host::dict object,
                               host::key which) {
  host::owned value = host::read(state, object, which);
  if (value && host::is_plain_integer(value)) return host::integer::of(std::move(value));
  return read_as_line(value, which);
}

bool is_citable(const host::module_state& state, host::handle seed);

// {path, line_start, line_end}, as given.
host::owned make_seed(const host::module_state& state, host::handle path, host::handle start,
                      host::handle end);

// The lines of a symbol as they are cited; no path when its file counts as missing.
struct symbol_lines {
  host::owned path;
  host::integer start, end;

  bool citable() const { return path && start > 0; }
  const host::integer& last() const { return end > start ? end : start; }
  // The members of its citation seed, in their order: `member(key, text or integer)`.
  template <class Member>
  void describe_seed(Member&& member) const {
    member(host::key::path, path);
    member(host::key::line_start, start);
    member(host::key::line_end, last());
  }
  host::owned seed(const host::module_state& state) const;
};
// Both paths read the lines of every symbol: calling this for each costs the API path a hundredth.
[[gnu::always_inline]] inline symbol_lines read_symbol_lines(const host::module_state& state,
                                                             host::handle record,
                                                             path_names& norm) {
  const host::dict symbol = host::expect_dict(record);
  host::owned file = host::read(state, symbol, host::key::file);
  if (host::missing(file)) return {};
  host::owned path = host::within(host::step_to(host::key::file), [&] {
    host::owned name = norm(host::text_form(std::move(file)));
    if (host::kind_of(name) != host::kind::text) {
      host::within("result of _norm", [&] { host::expect_text(name); });
    }
    return name;
  });
  return {std::move(path), read_line(state, symbol, host::key::line),
          read_line(state, symbol, host::key::end_line)};
}

// Calls `each` with the lines of every symbol record that can be cited, in order.
template <symbol_records Records, class Each>
void for_each_cited(const host::module_state& state, const Records& records, Each&& each) {
  path_names norm(state, path_names::asking::every_time);
  for (std::size_t i = 0; i < records.size(); ++i) {
    symbol_lines lines = host::within(records.place_of(i),
                                      [&] { return read_symbol_lines(state, records[i], norm); });
    if (lines.citable()) each(lines);
  }
}

// Where seed j of fact block i stands.
inline auto seed_place(std::size_t i, std::size_t j) {
  return host::place("parts.prose", i, ".seeds", j);
}
// The seeds of all fact blocks that can be cited, added to `seeds` in order.
void add_citable(const host::module_state& state, const fact_blocks& prose,
                 std::vector<host::owned>& seeds);

}  // namespace grounding_fit
