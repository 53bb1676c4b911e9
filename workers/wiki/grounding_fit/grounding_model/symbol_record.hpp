// Symbol records: where they stand, what they are called, and the host's names of their files.
#pragma once

#include <concepts>
#include <span>
#include <vector>

#include "grounding_model/records.hpp"

namespace grounding_fit {

// One symbol of a page: its rendered text, and the record that the text was rendered from.
struct symbol_block {
  host::owned text;    // a string
  host::owned record;  // an object, or refused when it is first read
};
std::vector<symbol_block> take_symbol_blocks(grounding_parts parts);

// Where the record of symbol block i stands.
inline auto record_place(std::size_t i) { return host::place("parts.blocks", i, std::size_t{1}); }

// Some symbol records, and the place that an error names for each.
template <class R>
concept symbol_records = requires(const R& records, std::size_t i) {
  { records.size() } -> std::convertible_to<std::size_t>;
  { records[i] } -> std::convertible_to<host::handle>;
  records.place_of(i);
};

// The records of a page's symbol blocks, from the one at `first` on.
class block_records {
 public:
  block_records(std::span<const symbol_block> blocks, std::size_t first = 0)
      : blocks_(blocks), first_(first) {}
  std::size_t size() const { return blocks_.size() - first_; }
  host::handle operator[](std::size_t i) const { return blocks_[first_ + i].record; }
  auto place_of(std::size_t i) const { return record_place(first_ + i); }

 private:
  std::span<const symbol_block> blocks_;
  std::size_t first_;
};

// The host's normalised paths: asked for as often as the rules say, or once for each text.
class path_names {
 public:
  enum class asking { every_time, once_per_text };
  path_names(const host::module_state& state, asking how);
  // `path` is a string; the result is whatever the host gave.
  host::owned operator()(host::owned path) {
    if (known_) return asked_once(std::move(path));
    return host::call(state_[host::utility::norm], path);
  }

 private:
  host::owned asked_once(host::owned path);  // the name that the host gave for this text before

  const host::module_state& state_;
  host::owned known_;
};

// The qualified name of a symbol as text; empty when it counts as missing.
inline host::owned read_symbol_name(const host::module_state& state, host::handle record) {
  host::owned fqn = host::read(state, host::expect_dict(record), host::key::fqn);
  if (host::missing(fqn)) return {};
  return host::within(host::step_to(host::key::fqn),
                      [&] { return host::text_form(std::move(fqn)); });
}
// The text form of the value under a key, an empty text when the key is absent.
host::owned read_text_form(const host::module_state& state, host::dict symbol, host::key which);
// The text form of a symbol's file, as the host normalises it: whatever the host gives.
host::owned read_file_name(const host::module_state& state, host::dict symbol, path_names& norm);

}  // namespace grounding_fit
