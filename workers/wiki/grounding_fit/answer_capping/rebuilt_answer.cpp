#include "answer_capping/answer_parts.hpp"

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::owned;

rebuilt_answer::rebuilt_answer(const py::module_state& state, const original_answer& original,
                               page_facts& facts, page_symbols& symbols)
    : around_(state, original, new_answer::fitted_fields::rebuilt),
      facts_(facts),
      symbols_(symbols) {}

// ---- a sum over parts ---------------------------------------------------------------------------

std::int64_t rebuilt_answer::size_of(positions facts, bodies show, size_limit limit) {
  symbols_.read(code_of(bodies::none));  // a bad record is refused before a bad seed
  for (const std::size_t fact : facts) facts_.read_seeds(fact);
  part_sizes sum;
  for (const std::size_t fact : facts) sum += facts_.as_part(fact, precision::exact).sizes;
  return size_up_to(limit, [&](precision how) {
    return total(sum, code_of(show), k_placeholder_chars, how, facts);
  });
}

std::int64_t rebuilt_answer::size_with(std::size_t fact, size_limit limit) {
  kept_.push_back(fact);  // for as long as it is measured
  const std::int64_t size = size_up_to(limit, [&](precision how) {
    part_sizes sum = kept_sizes_;
    sum += facts_.as_part(fact, how).sizes;
    return total(sum, code_of(bodies::none), k_placeholder_chars, how, kept_);
  });
  kept_.pop_back();
  return size;
}

void rebuilt_answer::keep(std::size_t fact) {
  kept_.push_back(fact);
  kept_sizes_ += facts_.as_part(fact, precision::exact).sizes;
}

std::int64_t rebuilt_answer::size(code_amount code, std::int64_t note_chars, size_limit limit) {
  return size_up_to(
      limit, [&](precision how) { return total(kept_sizes_, code, note_chars, how, kept_); });
}

part_sizes rebuilt_answer::sizes_of(code_amount code, precision how) {
  if (sized_ == code) return code_sizes_;
  symbols_.read(code);
  while (how == precision::exact && size_of_first_.size() <= code.bodies) {
    part_sizes next = size_of_first_.back();
    next += symbols_.body(size_of_first_.size() - 1, how).sizes;
    size_of_first_.push_back(next);
  }
  const std::size_t counted = std::min(size_of_first_.size() - 1, code.bodies);
  part_sizes sum = size_of_first_[counted];
  for (std::size_t i = counted; i < code.bodies; ++i) sum += symbols_.body(i, how).sizes;
  if (code.listed > 0) sum += symbols_.heading().sizes;
  for (std::size_t i = 0; i < code.listed; ++i) sum += symbols_.line(code.bodies + i).sizes;
  if (how == precision::exact) {
    sized_ = code;
    code_sizes_ = sum;
  }
  return sum;
}

std::int64_t rebuilt_answer::total(part_sizes sum, code_amount code, std::int64_t note_chars,
                                   precision how, [[maybe_unused]] positions facts) {
  sum += sizes_of(code, how);
  const std::int64_t size = around_.size() + sum.total() + note_chars;
#ifdef GROUNDING_FIT_CHECK_SIZES
  // The sum must be the size of what is built of the same parts. A host that changes a record in
  // the middle of the call can make them differ, so that is an error of the call and no crash.
  const std::string note(static_cast<std::size_t>(note_chars), 'x');
  const owned text = py::new_text(std::string_view(note));
  const std::int64_t built = json_meter().size_of(build_of(facts, code, text));
  if (how == precision::exact ? size != built : size > built) {
    py::raise_size_mismatch(size, built);
  }
#endif
  return size;
}

// ---- a walk over the same parts -----------------------------------------------------------------

owned rebuilt_answer::build_of(positions facts, code_amount code, handle note) {
  std::int64_t line_chars = 0;  // at least those of the listed lines
  for (std::size_t i = 0; i < code.listed; ++i) {
    line_chars += symbols_.line(code.bodies + i).sizes.texts.size;
  }
  fitted_values values(facts.size() + code.bodies + 1, static_cast<std::size_t>(line_chars));
  symbols_.make_seeds(code.bodies);
  for (const std::size_t fact : facts) values.add(facts_.as_part(fact, precision::exact));
  for (std::size_t i = 0; i < code.bodies; ++i) values.add(symbols_.body(i, precision::exact));
  if (code.listed > 0) values.add(symbols_.heading());
  for (std::size_t i = 0; i < code.listed; ++i) values.add(symbols_.line(code.bodies + i));
  return around_.build(note, values.build());
}

}  // namespace grounding_fit
