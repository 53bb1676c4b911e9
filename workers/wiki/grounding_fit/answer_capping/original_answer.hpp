// The host's answer, and the members of the new one that takes its place.
#pragma once

#include <span>

#include "answer_capping/json_measure.hpp"
#include "python/state.hpp"

namespace grounding_fit {

inline constexpr std::int64_t k_answer_max_chars = 40000;  // the cap of an answer, as JSON

// The fields that a capped answer rebuilds, in their order.
inline constexpr py::key k_fitted_fields[] = {py::key::grounding, py::key::symbols,
                                              py::key::citation_seeds};

// The members of the host's answer as they stood when the call began.
//
// A rebuilt answer needs the exact sizes of what it carries over. The other members, the largest by
// far, start with a lower bound and are measured exactly only if the answer might fit.
class original_answer {
 public:
  enum class role {
    carried,
    fitted,  // one of k_fitted_fields
    prior,   // a prior markdown that is not empty
    note
  };
  struct member {
    py::owned key, value;
    std::int64_t size = 0;  // of both, and the ": " between them
    precision measured = precision::bound;
    role is = role::carried;
  };

  original_answer(const py::module_state& state, py::handle result, json_meter& meter);

  std::int64_t size(size_limit limit);
  void measure_all();  // exactly
  const std::vector<member>& members() const { return members_; }
  bool has_prior() const { return bool(prior_); }
  bool has_note() const { return has_note_; }

  text_view prior() const;    // TypeError when it is no string
  py::owned page_id() const;  // as text; KeyError when the host gave none

 private:
  role role_of(py::handle name, py::handle value);
  void measure(precision how, bool (*which)(const member&));
  std::int64_t sum() const;

  const py::module_state& state_;
  json_meter& meter_;
  std::vector<member> members_;
  py::handle prior_;
  bool has_note_ = false, prior_seen_ = false;
};

// The members of a new answer, in their order. The prior markdown becomes null; the note replaces
// an older one, or comes last. The original answer outlives it.
class new_answer {
 public:
  enum class fitted_fields { carried_over, rebuilt };
  new_answer(const py::module_state& state, const original_answer& original, fitted_fields how);

  // With an empty note and without the values of the rebuilt fields, from the members' sizes when
  // it was made.
  std::int64_t size() const { return sizes_.bracketed(); }
  // `fitted` are the rebuilt fields, where there are any.
  py::owned build(py::handle note, std::span<const py::owned> fitted = {}) const;

 private:
  struct member {
    py::handle key;
    py::owned value;  // none for a rebuilt field and for the note
  };
  void add(py::handle key, py::owned value, std::int64_t size);
  void add_note(py::handle key);

  std::vector<member> members_;
  std::size_t note_at_ = 0;
  tally sizes_;
};

}  // namespace grounding_fit
