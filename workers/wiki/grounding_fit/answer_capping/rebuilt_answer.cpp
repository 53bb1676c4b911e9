#include "answer_capping/rebuilt_answer.hpp"

namespace grounding_fit {

using host::handle;
using host::module_state;
using host::owned;

static_assert(fact_measure<rebuilt_answer>);

rebuilt_answer::rebuilt_answer(const module_state& state, const given_answer& given,
                               const fact_blocks& prose, page_symbols& symbols, json_meter& meter)
    : state_(state), given_(given), facts_(take_page_facts(prose, meter)), symbols_(symbols) {
  describe_members(carried_, given_, fitted_fields::rebuilt);
  describe_new_note(carried_, given_);
}

rebuilt_answer::shown rebuilt_answer::of(std::span<const std::size_t> facts) {
  symbols_.size(symbols_.with_window(0));  // the rules read what is listed before any seed
  for (const std::size_t fact : facts) facts_[fact].read_seeds(state_);
  shown these;
  for (const std::size_t fact : facts) {
    describe_fact(these.size, facts_[fact]);
    these.facts.push_back(fact);
  }
  return these;
}

rebuilt_answer::shown rebuilt_answer::with(shown facts, std::size_t fact) {
  facts_[fact].read_seeds(state_);
  describe_fact(facts.size, facts_[fact]);
  facts.facts.push_back(fact);
  return facts;
}

std::int64_t rebuilt_answer::size(const shown& facts, shown_code code, std::int64_t note_chars) {
  const std::int64_t measured = total(facts.size + symbols_.size(code), note_chars);
#ifdef GROUNDING_FIT_CHECK_SIZES
  check(measured, facts, code, note_chars);
#endif
  return measured;
}

std::int64_t rebuilt_answer::least(const shown& facts, shown_code code) {
  const answer_size_to<extent::least> of_facts = facts.size;
  const std::int64_t bound = total(of_facts + symbols_.least(code), k_placeholder_chars);
#ifdef GROUNDING_FIT_CHECK_SIZES
  if (const std::int64_t exact = size(facts, code); bound > exact) {
    host::raise_size_mismatch(bound, exact);
  }
#endif
  return bound;
}

std::int64_t rebuilt_answer::least_with(const shown& facts, std::size_t fact) {
  facts_[fact].read_seeds(state_);
  answer_size_to<extent::least> with = facts.size;
  describe_fact(with, facts_[fact]);
  return total(with + symbols_.least(code_of(bodies::none)), k_placeholder_chars);
}

owned rebuilt_answer::build(const std::vector<fact_decision>& facts, shown_code code, handle note) {
  std::vector<std::size_t> kept;
  for (std::size_t i = 0; i < facts.size(); ++i) {
    if (stays(facts[i].outcome)) kept.push_back(i);
  }
  return build_of(kept, code, note);
}

owned rebuilt_answer::build_of(const std::vector<std::size_t>& facts, shown_code code,
                               handle note) {
  answer_values blocks(facts.size() + code.bodies + 1, code.listed);
  describe_blocks(blocks, facts_, facts, symbols_, code);
  new_answer answer(state_, note);
  describe_members(answer, given_, fitted_fields::rebuilt);
  describe_fields(answer, blocks);
  describe_new_note(answer, given_);
  return answer.take();
}

#ifdef GROUNDING_FIT_CHECK_SIZES
// A host that changes a record in the middle of the call makes the two differ, so that is an error
// of the call, not a crash.
void rebuilt_answer::check(std::int64_t measured, const shown& facts, shown_code code,
                           std::int64_t note_chars) {
  const std::string note(static_cast<std::size_t>(note_chars), 'x');
  const owned text = host::new_text(std::string_view(note));
  const std::int64_t built = json_meter().size_of(build_of(facts.facts, code, text));
  if (built != measured) host::raise_size_mismatch(measured, built);
}
#endif

}  // namespace grounding_fit
