// The answers that a page's fact and symbol blocks can make: their sizes, and the one that is
// built.
#pragma once

#include "answer_capping/answer_description.hpp"
#include "answer_capping/fact_choice.hpp"

namespace grounding_fit {

#ifdef GROUNDING_FIT_CHECK_SIZES
inline constexpr bool k_check_sizes = true;
#else
inline constexpr bool k_check_sizes = false;
#endif

class rebuilt_answer {
 public:
  // What some fact blocks come to (see fact_measure).
  struct shown {
    answer_size size;
    // Which they are, where every size is checked.
    struct nothing {
      void push_back(std::size_t) {}
    };
    [[no_unique_address]] std::conditional_t<k_check_sizes, std::vector<std::size_t>, nothing>
        facts{};
  };

  rebuilt_answer(const host::module_state& state, const given_answer& given,
                 const fact_blocks& prose, page_symbols& symbols, json_meter& meter);

  std::vector<page_fact>& facts() { return facts_; }

  // ---- fact_measure: answers that show no body, or as many as the token budget keeps ----
  shown of(std::span<const std::size_t> facts);
  shown with(shown facts, std::size_t fact);
  std::int64_t size(const shown& facts, bodies show) { return size(facts, code_of(show)); }
  std::int64_t least(const shown& facts, bodies show) { return least(facts, code_of(show)); }
  // The least size of the answer without bodies, with one fact more.
  std::int64_t least_with(const shown& facts, std::size_t fact);

  // With a note of that many characters, as JSON.
  std::int64_t size(const shown& facts, shown_code code,
                    std::int64_t note_chars = k_placeholder_chars);
  // At least that large, whatever the bodies hold; with the placeholder for a note.
  std::int64_t least(const shown& facts, shown_code code);
  host::owned build(const std::vector<fact_decision>& facts, shown_code code, host::handle note);

 private:
  shown_code code_of(bodies show) const {
    return symbols_.with_window(show == bodies::none ? 0 : symbols_.within_tokens());
  }
  template <extent Extent>
  std::int64_t total(const answer_size_to<Extent>& blocks, std::int64_t note_chars) const {
    new_answer_size answer = carried_;
    describe_fields(answer, blocks);
    return answer.total() + note_chars;
  }
  host::owned build_of(const std::vector<std::size_t>& facts, shown_code code, host::handle note);
  void check(std::int64_t measured, const shown& facts, shown_code code, std::int64_t note_chars);

  const host::module_state& state_;
  const given_answer& given_;
  std::vector<page_fact> facts_;
  page_symbols& symbols_;
  new_answer_size carried_{0};  // with a note of no characters
};

}  // namespace grounding_fit
