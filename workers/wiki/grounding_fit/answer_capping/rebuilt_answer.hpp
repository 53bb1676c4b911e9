// The answers that a page's fact and symbol blocks can make: their sizes, and the one that is
// built.
#pragma once

#include <optional>

#include "answer_capping/answer_parts.hpp"
#include "answer_capping/decide.hpp"
#include "answer_capping/original_answer.hpp"

namespace grounding_fit {

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
    std::vector<part_sizes>{{}}.swap(bodies_);  // the answer can have their memory
    return build_of(kept_, code, note);
  }

 private:
  using positions = std::span<const std::size_t>;

  code_amount code_of(bodies show) const {
    return symbols_.with_lines(show == bodies::none ? 0 : symbols_.within_tokens());
  }
  // What the bodies and lines of some code add, which is read from the host when it is new.
  part_sizes sizes_of(code_amount code, precision how);
  // The size of an answer with these facts and that code. `which` names the facts, for the check of
  // sizes alone.
  std::int64_t total(part_sizes facts, code_amount code, std::int64_t note_chars, precision how,
                     positions which);
  py::owned build_of(positions facts, code_amount code, py::handle note);

  new_answer around_;  // what is carried over
  page_facts& facts_;
  page_symbols& symbols_;
  std::vector<std::size_t> kept_;
  part_sizes kept_sizes_;
  std::vector<part_sizes> bodies_{{}};  // what the first n bodies add, at index n
  std::optional<code_amount> sized_;    // the code that code_sizes_ is of
  part_sizes code_sizes_;
};

}  // namespace grounding_fit
