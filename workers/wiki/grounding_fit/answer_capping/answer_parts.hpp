// What a rebuilt answer is made of: a `part` for each fact, each body and each listed line.
//
// An answer that is tried is measured and not built: its size is a sum over its parts, and building
// is a walk over the same parts. Each value is read and sized once, when an answer first shows it,
// so that an error comes when the rules would raise it.
#pragma once

#include <optional>

#include "answer_capping/json_measure.hpp"
#include "token_fitting/token_fitting.hpp"

namespace grounding_fit {

inline constexpr literal k_blank_line = "\n\n";  // between the texts of a grounding

// What some parts take in the rebuilt fields: a sum for each of k_fitted_fields.
struct part_sizes {
  tally texts, names, seeds;

  part_sizes& operator+=(const part_sizes& more) {
    texts += more.texts;
    names += more.names;
    seeds += more.seeds;
    return *this;
  }
  // Of the three fields, when there is nothing else in them.
  std::int64_t total() const {
    return 2 + texts.joined(k_blank_line.size()) + names.bracketed() + seeds.bracketed();
  }
};

struct sized_seed {
  host::owned value;
  std::int64_t size : 63 = -1;  // below 0 while it is not known
  bool citable : 1 = false;
};

// What one block adds to an answer, and what that takes.
struct part {
  text_view text;                     // after a blank line, or
  const listed_line* line = nullptr;  // after a line feed
  host::handle name;                  // none for a fact
  std::span<const sized_seed> seeds;  // of which only the citable ones are shown
  part_sizes sizes;
};

// Counts a text once, when its exact size is first asked for; `known` is below 0 until then.
inline std::int64_t size_of_text(text_view text, precision how, std::int64_t& known) {
  if (known >= 0) return known;
  const std::int64_t size = inner_size(text, how);
  if (how == precision::exact) known = size;
  return size;
}

// The rebuilt fields, put together part by part.
class fitted_values {
 public:
  fitted_values(std::size_t blocks, std::size_t lines) {
    text_.expect(2 * blocks + (listed_line::k_most_pieces + 1) * lines);
  }
  void add(const part& each);
  std::array<host::owned, 3> take();  // in the order of k_fitted_fields

 private:
  pieces text_;
  bool any_text_ = false;
  std::vector<host::owned> names_, seeds_;
};

// ---- facts --------------------------------------------------------------------------------------

// What a fact block would take by itself, in JSON characters: its text as one string and all its
// seeds, citable or not, as one array.
struct fact_cost {
  std::int64_t text = 0, seeds = 0;
  std::int64_t total() const { return text + seeds; }
};

class page_fact {
 public:
  page_fact(fact_block block, std::size_t position, json_meter& meter)
      : block_(block), meter_(&meter), position_(position) {}

  const fact_block& block() const { return block_; }
  // Reads all that the rules read, and refuses all that they refuse, at any limit.
  fact_cost cost(size_limit limit);
  // Reads which seeds can be cited, before an answer shows them.
  void read_seeds(const host::module_state& state);
  // Its text, unless it is empty, and the seeds that can be cited.
  part as_part(precision how);
  // Lets go of the seeds: only a block that stays is asked for them again.
  void leave_out() { std::vector<sized_seed>().swap(seeds_); }

 private:
  void hold_seeds();
  std::int64_t size_of_seed(std::size_t i);

  fact_block block_;
  json_meter* meter_;
  std::vector<sized_seed> seeds_;
  std::int64_t text_size_ = -1;  // below 0 while it is not known
  std::optional<tally> citable_;
  std::size_t position_ : 62, seeds_held_ : 1 = 0, seeds_read_ : 1 = 0;
};
std::vector<page_fact> page_facts_of(const fact_blocks& prose, json_meter& meter);

// ---- symbols ------------------------------------------------------------------------------------

// How many symbol blocks, best first, an answer shows with their body, and how many of the next
// ones by a line.
struct code_amount {
  std::size_t bodies = 0, listed = 0;
  friend bool operator==(const code_amount&, const code_amount&) = default;
};

// The symbol blocks of a page, as far as an answer may show them. Asks the host's _norm once for
// each text.
class page_symbols {
 public:
  // `within_tokens` are the bodies that the token budget allows.
  page_symbols(const host::module_state& state, std::vector<symbol_block> blocks,
               std::size_t within_tokens);

  std::size_t count() const { return count_; }  // shown or not
  std::size_t within_tokens() const { return within_tokens_; }
  // So many bodies, and as many lines as may be listed after them.
  code_amount with_lines(std::size_t bodies) const {
    return {bodies, listing_window(count_, bodies)};
  }

  // Reads what an answer with that code shows, in the order of the rules.
  void read(code_amount code);

  // Parts of what was read, in here since every answer that is tried asks for them.
  // A symbol with its body: the whole block, empty or not, its name and its seed.
  part body(std::size_t i, precision how) {
    symbol& of = symbols_[i];
    part made = named(of);
    made.text = host::view_of(of.block.text);
    made.sizes.texts.add(size_of_text(made.text, how, of.body_size));
    made.seeds = {&of.seed, 1};
    if (of.seed.citable) made.sizes.seeds.add(of.seed.size);
    return made;
  }
  static part heading() {
    part made;
    made.text = k_listed_heading.text();
    made.sizes.texts.add(k_listed_heading.size());
    return made;
  }
  // A symbol by its line: no seed.
  part line(std::size_t i) const {
    const symbol& of = symbols_[i];
    part made = named(of);
    made.line = &of.line;
    made.sizes.texts.size = k_line_feed.size() + of.line_size;
    return made;
  }
  // Makes the seeds of so many bodies, which are measured without being made.
  void make_seeds(std::size_t bodies);

 private:
  struct symbol {
    symbol_block block;
    host::owned name;  // empty when it has none
    std::int64_t name_size = 0;
    listed_line line;
    symbol_lines lines;
    sized_seed seed;                              // its value is made last
    std::int64_t line_size = -1, body_size = -1;  // below 0 while not known
  };

  static part named(const symbol& of) {
    part made;
    made.name = of.name;
    if (of.name) made.sizes.names.add(of.name_size);
    return made;
  }
  void read_line_of(std::size_t i);

  const host::module_state& state_;
  std::size_t count_, within_tokens_;
  path_names norm_;
  std::vector<symbol> symbols_;
  std::size_t names_read_ = 0, lines_read_ = 0;
};

}  // namespace grounding_fit
