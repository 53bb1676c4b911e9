#include "token_fitting/grounding_assembly.hpp"

#include <algorithm>

#include "python/call.hpp"
#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::module_state;
using py::owned;
using py::utility;

namespace {

owned truncated(const module_state& state, handle text, __int128 room) {
  const owned tokens = py::new_unsigned(static_cast<std::uint64_t>(room));
  owned cut = py::call(state[utility::truncate_to_tokens], text, tokens);
  py::within("result of _truncate_to_tokens", [&] { py::expect_text(cut); });
  return cut;
}

// A path beside its text, so that sorting many need not look into each again and again.
struct file_name {
  text_view view;
  handle text;
  friend bool operator<(const file_name& a, const file_name& b) { return a.view < b.view; }
};

// The files of the fact blocks and those that are there already, each once, sorted by code points.
owned sorted_files(grounding_parts parts, py::text_set& files) {
  for (const owned& file : py::items_of_set(parts.files())) {
    py::within("parts.files", [&] { py::expect_text(file); });
    files.add(file);
  }
  std::vector<file_name> order;
  order.reserve(files.texts().size());
  for (const owned& text : files.texts()) order.push_back({py::view_of(text), text});
  std::sort(order.begin(), order.end());
  std::vector<owned> sorted;
  sorted.reserve(order.size());
  for (const file_name& each : order) sorted.push_back(py::new_ref(each.text));
  return py::new_list(std::move(sorted));
}

owned symbol_names(const module_state& state, const symbol_records& records) {
  std::vector<owned> names;
  names.reserve(records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    owned name =
        py::within(records.place_of(i), [&] { return read_symbol_name(state, records[i]); });
    if (name) names.push_back(std::move(name));
  }
  return py::new_list(std::move(names));
}

// What every symbol names, shown or not: seeds, files and names, in the order of the rules.
void add_what_all_name(const module_state& state, grounding_parts parts, const fact_blocks& prose,
                       const symbol_records& records, assembled_grounding& made) {
  std::vector<owned> found;
  found.reserve(records.size());
  py::text_set files;
  for_each_cited(state, records, [&](const symbol_lines& lines) {
    found.push_back(lines.seed(state));
    files.add(lines.path);
  });
  made.files = sorted_files(parts, files);
  made.symbols = symbol_names(state, records);
  std::vector<owned> seeds;
  add_citable(state, prose, seeds);
  made.seeds = py::new_list(std::move(seeds), std::move(found));
}

}  // namespace

std::int64_t estimate_tokens(const module_state& state, handle text) {
  const owned tokens = py::call(state[utility::estimate_tokens], text);
  return py::within("result of estimate_tokens", [&] { return py::expect_int64(tokens); });
}

token_split split_tokens(const module_state& state, handle fact_text, std::int64_t budget) {
  token_split split;
  split.floor = static_cast<std::int64_t>(static_cast<double>(budget) * k_code_floor);
  split.facts = estimate_tokens(state, fact_text);
  split.code = std::max(__int128(split.floor), __int128(budget) - split.facts);
  return split;
}

whole_blocks keep_whole(const module_state& state, std::span<const symbol_block> blocks,
                        __int128 budget) {
  return keep_whole(state, blocks.size(), budget,
                    [&](std::size_t i) { return handle(blocks[i].text); });
}

assembled_grounding assemble_grounding(const module_state& state, grounding_parts parts,
                                       std::int64_t budget) {
  assembled_grounding made;
  const fact_blocks prose(state, parts);
  const owned facts = fact_text(prose);
  made.split = split_tokens(state, facts, budget);
  const std::vector<symbol_block> blocks = symbol_blocks_of(parts);
  made.bodies = keep_whole(state, blocks, made.split.code);
  made.symbol_count = blocks.size();
  made.listed = listing_window(blocks.size(), made.bodies.count);
  const owned listing = make_listing(state, symbol_records(blocks, made.bodies.count), made.listed);

  joined_texts code(made.bodies.count + 1);
  for (std::size_t i = 0; i < made.bodies.count; ++i) code.add(py::view_of(blocks[i].text));
  if (made.listed > 0) code.add(py::view_of(listing));
  made.code = estimate_tokens(state, code.text());
  made.room = std::max<__int128>(0, __int128(budget) - made.code);
  made.facts = truncated(state, facts, made.room);

  // The host is asked to estimate every block kept; only those with a text go into the grounding.
  joined_texts grounding(made.bodies.count + 2);
  const auto add = [&](handle text) {
    if (!py::text_is_empty(text)) grounding.add(py::view_of(text));
  };
  add(made.facts);
  for (std::size_t i = 0; i < made.bodies.count; ++i) add(blocks[i].text);
  add(listing);
  made.text = grounding.text();
  add_what_all_name(state, parts, prose, symbol_records(blocks), made);
  return made;
}

}  // namespace grounding_fit
