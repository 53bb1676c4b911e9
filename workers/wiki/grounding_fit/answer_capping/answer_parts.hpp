// A rebuilt answer, and what it is made of: a `part` for each fact, each body and each listed line.
//
// An answer that is tried is measured and not built: its size is a sum over its parts, and building
// is a walk over the same parts. Each value is read and sized once, when an answer first needs it,
// so that an error comes when the rules would raise it.
#pragma once

#include <array>
#include <optional>
#include <span>

#include "answer_capping/original_answer.hpp"
#include "token_fitting/grounding_assembly.hpp"

namespace grounding_fit {

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
    return 2 + texts.joined(k_blank_line.json_size()) + names.bracketed() + seeds.bracketed();
  }
};

struct sized_seed {
  py::owned value;
  std::int64_t size : 63 = -1;  // below 0 while it is not known
  bool citable : 1 = false;
};

// What one block adds to an answer, and what that takes.
struct part {
  std::optional<text_view> text;      // after a blank line; none for a line or an empty fact
  const listed_line* line = nullptr;  // after a line feed, under the heading
  py::handle name;                    // none for a fact
  std::span<const sized_seed> seeds;  // an answer shows the citable ones alone
  part_sizes sizes;
};

// The rebuilt fields, put together part by part.
class fitted_values {
 public:
  // Has space for so many texts, and for lines of so many code points.
  fitted_values(std::size_t texts, std::size_t line_chars) : texts_(texts + 1) {
    listing_.reserve(line_chars);
  }
  void add(const part& each);
  std::array<py::owned, 3> build();  // in the order of k_fitted_fields

 private:
  joined_texts texts_;
  text_builder listing_{text_range::basic};  // for the dash of its lines
  std::vector<py::owned> names_, seeds_;
};

// ---- facts --------------------------------------------------------------------------------------

// What a fact block would take by itself, in JSON characters: its text as one string and all its
// seeds, citable or not, as one array.
struct fact_cost {
  std::int64_t text = 0, seeds = 0;
  std::int64_t total() const { return text + seeds; }
};

// The fact blocks of a page, in reading order.
class page_facts {
 public:
  page_facts(const py::module_state& state, const fact_blocks& prose, json_meter& meter);

  std::size_t count() const { return facts_.size(); }
  fact_block block(std::size_t i) const { return prose_[i]; }
  // The limit only decides whether the text is scanned; the same values are refused at every limit.
  fact_cost cost(std::size_t i, size_limit limit);
  // Refuses what its cost refuses, and scans no text.
  void validate(std::size_t i) { cost(i, 0); }
  // Reads which seeds can be cited.
  void read_seeds(std::size_t i);
  // Its text, unless it is empty, and the seeds that can be cited.
  part as_part(std::size_t i, precision how);
  // Of a block that was left out, which no part is asked of again.
  void release_seeds(std::size_t i) { std::vector<sized_seed>().swap(facts_[i].seeds); }

 private:
  struct fact {
    std::vector<sized_seed> seeds;
    tally citable{0, -1};  // what the citable ones add; the count is below 0 until it is known
    std::int64_t text_size = -1;  // below 0 while it is not known
    bool seeds_held = false, seeds_read = false;
  };

  fact& with_seeds(std::size_t i);
  std::int64_t size_of_seed(std::size_t i, std::size_t j);

  const py::module_state& state_;
  const fact_blocks& prose_;
  json_meter& meter_;
  std::vector<fact> facts_;
};

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
  page_symbols(const py::module_state& state, std::vector<symbol_block> blocks,
               std::size_t within_tokens);

  std::size_t count() const { return count_; }  // shown or not
  std::size_t within_tokens() const { return within_tokens_; }
  // So many bodies, and as many lines as may be listed after them.
  code_amount with_lines(std::size_t bodies) const {
    return {bodies, listing_window(count_, bodies)};
  }

  // Reads what an answer with that code shows, in the order of the rules.
  void read(code_amount code);

  // Parts of what was read; in the header, since every answer that is tried asks for them.
  // A symbol with its body: the whole block, empty or not, its name and its seed.
  part body(std::size_t i, precision how) {
    symbol& shown = symbols_[i];
    part made = named(shown);
    made.text = py::view_of(shown.block.text);
    made.sizes.texts.add(inner_size_once(*made.text, how, shown.body_size));
    made.seeds = {&shown.seed, 1};
    if (shown.seed.citable) made.sizes.seeds.add(shown.seed.size);
    return made;
  }
  static part heading() {
    part made;
    made.text = k_listed_heading;
    made.sizes.texts.add(k_listed_heading.json_size());
    return made;
  }
  // A symbol by its line: no seed, and no text of its own.
  part line(std::size_t i) const {
    const symbol& listed = symbols_[i];
    part made = named(listed);
    made.line = &listed.line;
    made.sizes.texts.size = listed.line_size;  // with its line feed
    return made;
  }
  // Makes the seeds of so many bodies, which are measured without being made.
  void make_seeds(std::size_t bodies);

 private:
  struct symbol {
    symbol_block block;
    py::owned name;  // empty when it has none
    std::int64_t name_size = 0;
    listed_line line;
    symbol_lines cited;
    sized_seed seed;                              // its value is made last
    std::int64_t line_size = -1, body_size = -1;  // below 0 while not known
  };

  static part named(const symbol& shown) {
    part made;
    made.name = shown.name;
    if (shown.name) made.sizes.names.add(shown.name_size);
    return made;
  }
  void read_listed_line(std::size_t i);

  const py::module_state& state_;
  std::size_t count_, within_tokens_;
  path_names norm_;
  std::vector<symbol> symbols_;
  std::size_t names_read_ = 0, cited_read_ = 0;
};

// ---- answers that are tried ---------------------------------------------------------------------

inline constexpr std::size_t k_placeholder_chars = 600;  // stand in for the note meanwhile

enum class bodies { none, within_tokens };

// An answer that is put together fact by fact: measured here, or by the `size` that a caller hands
// to _fit_prose. A size above its limit may be a lower bound.
class candidate {
 public:
  // The size with these facts and no others, beside the bodies that the tokens allow or none, and
  // the lines of the symbols after them.
  virtual std::int64_t size_of(std::span<const std::size_t> facts, bodies show,
                               size_limit limit) = 0;
  // The size with the facts kept so far, one more, lines, and no body.
  virtual std::int64_t size_with(std::size_t fact, size_limit limit) = 0;
  virtual void keep(std::size_t fact) = 0;

 protected:
  ~candidate() = default;
};

// The answers that a page's fact and symbol blocks can make: their sizes, and the one that is
// built.
class rebuilt_answer final : public candidate {
 public:
  rebuilt_answer(const py::module_state& state, const original_answer& original, page_facts& facts,
                 page_symbols& symbols);

  std::int64_t size_of(std::span<const std::size_t> facts, bodies show, size_limit limit) override;
  std::int64_t size_with(std::size_t fact, size_limit limit) override;
  void keep(std::size_t fact) override;

  // With the facts kept, and a note of that many characters, as JSON.
  std::int64_t size(code_amount code, std::int64_t note_chars, size_limit limit);
  py::owned build(code_amount code, py::handle note) {
    std::vector<part_sizes>{{}}.swap(size_of_first_);  // the answer can have their memory
    return build_of(kept_, code, note);
  }

 private:
  using positions = std::span<const std::size_t>;

  code_amount code_of(bodies show) const {
    return symbols_.with_lines(show == bodies::none ? 0 : symbols_.within_tokens());
  }
  // What the bodies and lines of some code add, which is read from the host when it is new.
  part_sizes sizes_of(code_amount code, precision how);
  // The size of an answer with that code and facts that take `sum`. Only the check of sizes needs
  // to know which facts they are.
  std::int64_t total(part_sizes sum, code_amount code, std::int64_t note_chars, precision how,
                     positions facts);
  py::owned build_of(positions facts, code_amount code, py::handle note);

  new_answer around_;  // what is carried over
  page_facts& facts_;
  page_symbols& symbols_;
  std::vector<std::size_t> kept_;
  part_sizes kept_sizes_;
  std::vector<part_sizes> size_of_first_{{}};  // what the first n bodies add, at index n
  std::optional<code_amount> sized_;           // the code that code_sizes_ is of
  part_sizes code_sizes_;
};

}  // namespace grounding_fit
