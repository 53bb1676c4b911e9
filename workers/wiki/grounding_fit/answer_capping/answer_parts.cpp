#include "answer_capping/answer_parts.hpp"

#include "python/make.hpp"

namespace grounding_fit {

namespace {

std::int64_t size_of_seed(const symbol_lines& lines) {
  const std::int64_t values[] = {json_string_size(py::view_of(lines.path)),
                                 static_cast<std::int64_t>(lines.start.length()),
                                 static_cast<std::int64_t>(lines.last().length())};
  tally members;
  for (std::size_t i = 0; i < std::size(values); ++i) {
    members.add(member_size(py::name_of(k_seed_keys[i]), values[i]));
  }
  return members.bracketed();
}

}  // namespace

void fitted_values::add(const part& each) {
  if (each.text) texts_.add(*each.text);
  if (each.line != nullptr) each.line->write_in_listing(listing_);
  if (each.name) names_.push_back(py::new_ref(each.name));
  for (const sized_seed& seed : each.seeds) {
    if (seed.citable) seeds_.push_back(py::new_ref(seed.value));
  }
}

std::array<py::owned, 3> fitted_values::build() {
  if (!listing_.empty()) texts_.add_to_last(listing_.view());
  return {texts_.text(), py::new_list(std::move(names_)), py::new_list(std::move(seeds_))};
}

// ---- facts --------------------------------------------------------------------------------------

page_facts::page_facts(const py::module_state& state, const fact_blocks& prose, json_meter& meter)
    : state_(state), prose_(prose), meter_(meter), facts_(prose.size()) {}

page_facts::fact& page_facts::with_seeds(std::size_t i) {
  fact& known = facts_[i];
  if (std::exchange(known.seeds_held, true)) return known;
  const py::handle seeds = block(i).seeds();
  known.seeds.reserve(py::size_of_array(seeds));
  for (std::size_t j = 0; const py::item_ref seed = py::array_item(seeds, j); ++j) {
    known.seeds.push_back({py::new_ref(seed)});
  }
  return known;
}

void page_facts::read_seeds(std::size_t i) {
  fact& known = with_seeds(i);
  if (known.seeds_read) return;
  for (std::size_t j = 0; j < known.seeds.size(); ++j) {
    sized_seed& seed = known.seeds[j];
    seed.citable = py::within(seed_place(i, j), [&] { return is_citable(state_, seed.value); });
  }
  known.seeds_read = true;
}

std::int64_t page_facts::size_of_seed(std::size_t i, std::size_t j) {
  sized_seed& seed = facts_[i].seeds[j];
  if (seed.size < 0) {
    seed.size = py::within(seed_place(i, j), [&] { return meter_.size_of(seed.value); });
  }
  return seed.size;
}

fact_cost page_facts::cost(std::size_t i, size_limit limit) {
  fact& known = with_seeds(i);
  tally seeds;
  for (std::size_t j = 0; j < known.seeds.size(); ++j) seeds.add(size_of_seed(i, j));
  const text_view text = py::view_of(block(i).text());
  const std::int64_t inner = size_up_to(limit - 2 - seeds.bracketed(), [&](precision how) {
    return inner_size_once(text, how, known.text_size);
  });
  return {2 + inner, seeds.bracketed()};
}

part page_facts::as_part(std::size_t i, precision how) {
  fact& known = facts_[i];
  if (!known.seeds_read) read_seeds(i);
  if (known.citable.count < 0) {
    tally citable;
    for (std::size_t j = 0; j < known.seeds.size(); ++j) {
      if (known.seeds[j].citable) citable.add(size_of_seed(i, j));
    }
    known.citable = citable;
  }
  part made;
  if (const text_view text = py::view_of(block(i).text()); !text.empty()) {
    made.text = text;
    made.sizes.texts.add(inner_size_once(text, how, known.text_size));
  }
  made.seeds = known.seeds;
  made.sizes.seeds = known.citable;
  return made;
}

// ---- symbols ------------------------------------------------------------------------------------

page_symbols::page_symbols(const py::module_state& state, std::vector<symbol_block> blocks,
                           std::size_t within_tokens)
    : state_(state),
      count_(blocks.size()),
      within_tokens_(within_tokens),
      norm_(state, path_names::asking::once_per_text) {
  const code_amount most = with_lines(within_tokens);  // no answer shows more than these
  symbols_.resize(most.bodies + most.listed);
  for (std::size_t i = 0; i < symbols_.size(); ++i) symbols_[i].block = std::move(blocks[i]);
}

void page_symbols::make_seeds(std::size_t bodies) {
  for (std::size_t i = 0; i < bodies; ++i) {
    symbol& each = symbols_[i];
    if (each.seed.citable && !each.seed.value) each.seed.value = each.cited.seed(state_);
  }
}

// Each step may call the host or refuse a value, so they keep the order of the rules: the lines
// listed, the names shown, the seeds of the bodies, and only then sizes.
void page_symbols::read(code_amount code) {
  const std::size_t shown = code.bodies + code.listed;
  for (std::size_t i = code.bodies; i < shown; ++i) read_listed_line(i);
  for (; names_read_ < shown; ++names_read_) {
    symbol& each = symbols_[names_read_];
    each.name = py::within(place_of_block(names_read_),
                           [&] { return read_symbol_name(state_, each.block.record); });
    if (each.name) each.name_size = json_string_size(py::view_of(each.name));
  }
  const std::size_t sized = cited_read_;
  for (; cited_read_ < code.bodies; ++cited_read_) {
    symbol& each = symbols_[cited_read_];
    each.cited = py::within(place_of_block(cited_read_),
                            [&] { return read_symbol_lines(state_, each.block.record, norm_); });
    each.seed.citable = each.cited.citable();
  }
  for (std::size_t i = sized; i < cited_read_; ++i) {
    if (symbols_[i].seed.citable) symbols_[i].seed.size = size_of_seed(symbols_[i].cited);
  }
}

void page_symbols::read_listed_line(std::size_t i) {
  symbol& each = symbols_[i];
  if (each.line_size >= 0) return;
  each.line =
      py::within(place_of_block(i), [&] { return listed_line(state_, each.block.record, norm_); });
  each.line_size = each.line.size_in_listing();
}

}  // namespace grounding_fit
