#include "answer_capping/answer_parts.hpp"

namespace grounding_fit {

namespace {

std::int64_t size_of_seed(const symbol_lines& lines) {
  struct {
    tally members;
    void operator()(host::key which, const host::owned& text) {
      add(which, json_string_size(host::view_of(text)));
    }
    void operator()(host::key which, const host::integer& number) {
      add(which, static_cast<std::int64_t>(number.length()));
    }
    void add(host::key which, std::int64_t value) {
      members.add(member_size(host::name_of(which), value));
    }
  } seed;
  lines.describe_seed(seed);
  return seed.members.bracketed();
}

}  // namespace

void fitted_values::add(const part& each) {
  if (each.line != nullptr) {
    k_line_feed.write(text_);
    each.line->write(text_);
  } else if (each.sizes.texts.count > 0) {
    if (std::exchange(any_text_, true)) k_blank_line.write(text_);
    text_.add(each.text);
  }
  if (each.name) names_.push_back(host::share(each.name));
  for (const sized_seed& seed : each.seeds) {
    if (seed.citable) seeds_.push_back(host::share(seed.value));
  }
}

std::array<host::owned, 3> fitted_values::take() {
  return {text_.text(), host::new_list(std::move(names_)), host::new_list(std::move(seeds_))};
}

// ---- facts --------------------------------------------------------------------------------------

std::vector<page_fact> page_facts_of(const fact_blocks& prose, json_meter& meter) {
  std::vector<page_fact> facts;
  facts.reserve(prose.size());
  for (std::size_t i = 0; i < prose.size(); ++i) facts.emplace_back(prose[i], i, meter);
  return facts;
}

void page_fact::hold_seeds() {
  if (seeds_held_) return;
  seeds_held_ = 1;
  const host::handle seeds = block_.seeds();
  seeds_.resize(host::size_of_array(seeds));
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].value = host::share(host::array_item(seeds, i));
  }
}

void page_fact::read_seeds(const host::module_state& state) {
  if (seeds_read_) return;
  hold_seeds();
  for (std::size_t i = 0; i < seeds_.size(); ++i) {
    seeds_[i].citable =
        host::within(seed_place(position_, i), [&] { return is_citable(state, seeds_[i].value); });
  }
  seeds_read_ = 1;
}

std::int64_t page_fact::size_of_seed(std::size_t i) {
  sized_seed& seed = seeds_[i];
  if (seed.size < 0) {
    seed.size = host::within(seed_place(position_, i), [&] { return meter_->size_of(seed.value); });
  }
  return seed.size;
}

fact_cost page_fact::cost(size_limit limit) {
  hold_seeds();
  tally seeds;
  for (std::size_t i = 0; i < seeds_.size(); ++i) seeds.add(size_of_seed(i));
  const std::int64_t other = 2 + seeds.bracketed();
  const text_view text = host::view_of(block_.text());
  const std::int64_t inner =
      size_up_to(limit - other, [&](precision how) { return size_of_text(text, how, text_size_); });
  return {2 + inner, seeds.bracketed()};
}

part page_fact::as_part(precision how) {
  if (!citable_) {
    tally citable;
    for (std::size_t i = 0; i < seeds_.size(); ++i) {
      if (seeds_[i].citable) citable.add(size_of_seed(i));
    }
    citable_ = citable;
  }
  part made;
  made.text = host::view_of(block_.text());
  if (!made.text.empty()) made.sizes.texts.add(size_of_text(made.text, how, text_size_));
  made.seeds = seeds_;
  made.sizes.seeds = *citable_;
  return made;
}

// ---- symbols ------------------------------------------------------------------------------------

page_symbols::page_symbols(const host::module_state& state, std::vector<symbol_block> blocks,
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
    if (each.seed.citable && !each.seed.value) each.seed.value = each.lines.seed(state_);
  }
}

// Each step may call the host or refuse a value, so they keep the order of the rules: the lines
// listed, the names shown, the seeds of the bodies, and only then sizes.
void page_symbols::read(code_amount code) {
  const std::size_t shown = code.bodies + code.listed;
  for (std::size_t i = code.bodies; i < shown; ++i) read_line_of(i);
  for (; names_read_ < shown; ++names_read_) {
    symbol& each = symbols_[names_read_];
    each.name = host::within(record_place(names_read_),
                             [&] { return read_symbol_name(state_, each.block.record); });
    if (each.name) each.name_size = json_string_size(host::view_of(each.name));
  }
  const std::size_t sized = lines_read_;
  for (; lines_read_ < code.bodies; ++lines_read_) {
    symbol& each = symbols_[lines_read_];
    each.lines = host::within(record_place(lines_read_),
                              [&] { return read_symbol_lines(state_, each.block.record, norm_); });
    each.seed.citable = each.lines.citable();
  }
  for (std::size_t i = sized; i < lines_read_; ++i) {
    if (symbols_[i].seed.citable) symbols_[i].seed.size = size_of_seed(symbols_[i].lines);
  }
}

void page_symbols::read_line_of(std::size_t i) {
  symbol& each = symbols_[i];
  if (each.line_size >= 0) return;
  each.line =
      host::within(record_place(i), [&] { return listed_line(state_, each.block.record, norm_); });
  each.line_size = each.line.escaped_length();
}

}  // namespace grounding_fit
