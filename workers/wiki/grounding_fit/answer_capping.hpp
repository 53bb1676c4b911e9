// The agent path: a page_context answer under its cap, and the note of what was cut. Every size
// here is in characters of JSON.
//
// A candidate answer is measured, never built: each of its pieces is sized once, when the rules
// first need it (so that an error comes exactly when they would raise it), and a candidate is a
// sum.
#pragma once

#include "grounding_model.hpp"
#include "json_measure.hpp"

namespace grounding_fit {

constexpr std::int64_t k_answer_max_chars = 40000;
constexpr std::size_t k_note_items = 6;  // items left out that a note names
constexpr std::size_t k_placeholder_chars =
    600;  // stand in for the note while candidates are sized

// The `truncated` note: the first items left out by name, the rest counted. `item(i)` is read for
// the first k_note_items only.
template <class Item>
host::owned cap_note(std::size_t items, Item&& item, bool ask, text_view closing = {}) {
  pieces named;
  for (std::size_t i = 0; i < std::min(items, k_note_items); ++i) {
    if (i > 0) named.add("; ");
    named.add(item(i));
  }
  if (items > k_note_items) {
    named.add("; ");
    named.add_number(__int128(items - k_note_items));
    named.add(" more blocks");
  }
  pieces note;
  note.add("answer capped at ");
  note.add_number(__int128(k_answer_max_chars));
  note.add(" characters; left out: ");
  if (named.empty()) named.add("nothing that can be left out");
  for (const text_view& view : named.views()) note.add(view);
  note.add(".");
  if (ask) {
    note.add(
        " Ask for code with query=\"<file path or symbol>, ...\"; "
        "read another page with wiki(action=\"read\", page_id=...).");
  }
  note.add(closing);
  return note.text();
}

// The item that counts the symbol blocks left without their body; empty when none is.
host::owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total);

// The largest count up to `high` for which `fits` holds, by bisection; 0 is never tested.
template <class Fits>
std::int64_t most(std::int64_t high, Fits&& fits) {
  std::int64_t low = 0;
  while (low < high) {
    const std::int64_t span = high - low;
    const std::int64_t mid = low + span / 2 + span % 2;
    if (fits(mid)) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return low;
}

// The sizes of one fact block, each taken when it is first asked for.
class sized_fact {
 public:
  sized_fact(fact_block block, std::size_t position, json_meter& meter)
      : block_(block), position_(position), meter_(&meter) {}

  const fact_block& block() const { return block_; }
  // What the text adds to the pieces of a grounding: nothing when it is empty.
  tally text();
  // Reads which seeds can be cited.
  void read_seeds(const host::service& svc);
  // What those seeds add to an array of seeds; read_seeds comes first.
  tally citable_seeds();
  // The whole block: its text as one string, all its seeds as one array.
  std::int64_t cost();
  void add_citable(std::vector<host::owned>& seeds) const;
  // Lets go of what only a block that is kept is asked for.
  void forget_seeds() { std::vector<sized_seed>().swap(seeds_); }

 private:
  struct sized_seed {
    host::owned seed;
    std::int64_t size = -1;
    bool citable = false;
  };

  void take_seeds();
  std::int64_t size_of(std::size_t seed);
  std::int64_t text_size();

  fact_block block_;
  std::size_t position_;
  json_meter* meter_;
  std::vector<sized_seed> seeds_;
  std::int64_t text_size_ = -1;
  bool seeds_taken_ = false;
  bool seeds_read_ = false;
};

std::vector<sized_fact> sized_facts(const fact_blocks& prose, json_meter& meter);

// Which fact blocks a capped answer keeps, by position, and which it leaves out.
struct chosen_facts {
  std::vector<std::size_t> kept, left_out;
};

// Measures the candidates that the choice of fact blocks asks for, always without listing more than
// the window after the bodies.
class candidate_measure {
 public:
  virtual ~candidate_measure() = default;
  // With these fact blocks, and as many bodies as the answer may show, or none.
  virtual __int128 size_of(const std::vector<std::size_t>& facts, bool bodies) = 0;
  // With the blocks kept so far and one more, without bodies.
  virtual __int128 size_with(const std::vector<std::size_t>& kept, std::size_t fact) = 0;
  virtual void keep(std::size_t fact) = 0;
};

chosen_facts choose_facts(const host::service& svc, host::handle parts,
                          std::vector<sized_fact>& facts, candidate_measure& measure);

// The answer itself when it fits, else one under the cap with its note. Asks the host's _norm once
// for each text.
host::owned fit_page_context(const host::service& svc, host::handle result, host::handle parts,
                             std::int64_t budget);

}  // namespace grounding_fit
