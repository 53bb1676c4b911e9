// The fact blocks of a page, as far as an answer may show them.
#pragma once

#include "answer_capping/answer_pieces.hpp"

namespace grounding_fit {

// What a fact block would take by itself, in JSON characters: its text as one string and all its
// seeds, citable or not, as one array.
struct fact_cost {
  std::int64_t text = 0, seeds = 0;
  std::int64_t total() const { return text + seeds; }
};

// One fact block. Each of its values is read and sized once, when it is first asked for.
class page_fact {
 public:
  page_fact(fact_block block, std::size_t position, json_meter& meter)
      : block_(block), meter_(&meter), position_(position), seeds_taken_(0), seeds_read_(0) {}

  const fact_block& block() const { return block_; }
  // With the text's least size, it reads all that the rules read, and refuses all that they refuse.
  template <extent Extent>
  fact_cost cost();
  // Reads which seeds can be cited, before an answer shows them.
  void read_seeds(const host::module_state& state);
  // Lets go of the seeds: only a block that stays is asked for them again.
  void leave_out() { std::vector<seed>().swap(seeds_); }

  whole_text text() { return {host::view_of(block_.text()), &text_size_}; }
  std::size_t seeds() const { return seeds_.size(); }
  bool is_citable(std::size_t i) const { return seeds_[i].citable; }
  sized_value seed_at(std::size_t i);

 private:
  // A page may have hundreds of both, which stay while its answer is made: they are packed.
  struct seed {
    host::owned value;
    std::int64_t json_size : 63 = -1;
    bool citable : 1 = false;
  };

  void take_seeds();

  fact_block block_;
  json_meter* meter_;
  std::vector<seed> seeds_;
  std::int64_t text_size_ = -1;
  std::size_t position_ : 62, seeds_taken_ : 1, seeds_read_ : 1;
};

std::vector<page_fact> take_page_facts(const fact_blocks& prose, json_meter& meter);

}  // namespace grounding_fit
