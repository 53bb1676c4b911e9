// The host's answer, and the new one that takes its place: its size, or itself.
#pragma once

#include "answer_capping/answer_pieces.hpp"
#include "answer_capping/note.hpp"

namespace grounding_fit {

// The fields that a capped answer rebuilds, in their order.
inline constexpr host::key k_fitted_fields[] = {host::key::grounding, host::key::symbols,
                                                host::key::citation_seeds};

// The members of the host's answer as they stood when the call began.
//
// A rebuilt answer needs the sizes of what it carries over. The other members, the largest by far,
// need only be counted when the answer may fit: at first they have their least size.
class given_answer {
 public:
  enum class role {
    carried,
    fitted,  // one of k_fitted_fields
    prior,   // a prior markdown that is not empty
    note
  };
  struct member {
    host::owned key, value;
    std::int64_t size = 0;  // of both, and the ": " between them
    extent measured = extent::least;
    role is = role::carried;
  };

  given_answer(const host::module_state& state, host::handle result, json_meter& meter);

  // Of the whole answer, as far as its members are measured.
  std::int64_t size() const;
  // Measures every member to the character.
  void take_exact_sizes();
  const std::vector<member>& members() const { return members_; }
  bool has_prior() const { return bool(prior_); }
  bool has_note() const { return has_note_; }
  host::handle note_key() const { return state_[host::key::truncated]; }

  text_view prior() const;      // TypeError when it is no string
  host::owned page_id() const;  // as text; KeyError when the host gave none

 private:
  role role_of(host::handle name, host::handle value);
  template <extent Extent, class Which>
  void measure(Which&& which);

  const host::module_state& state_;
  json_meter& meter_;
  std::vector<member> members_;
  host::handle prior_;
  bool has_note_ = false, prior_seen_ = false;
};

// ---- a new answer -------------------------------------------------------------------------------

// How large it is, a note of that many characters in it.
class new_answer_size {
 public:
  explicit new_answer_size(std::int64_t note_chars) : note_chars_(note_chars) {}
  void add_member(const given_answer::member& each) { members_.add(each.size); }
  void add_null(host::handle key) { add(host::view_of(key), 4); }
  void add_note(host::handle key) { add(host::view_of(key), 2 + note_chars_); }
  void add_field(host::key key, std::int64_t size) { add(host::name_of(key), size); }
  std::int64_t total() const { return members_.bracketed(); }

 private:
  void add(text_view key, std::int64_t value) { members_.add(member_size(key, value)); }

  tally members_;
  std::int64_t note_chars_;
};

// The answer itself.
class new_answer {
 public:
  new_answer(const host::module_state& state, host::handle note) : state_(state), note_(note) {}
  void add_member(const given_answer::member& each) { add(each.key, each.value); }
  void add_null(host::handle key) { add(key, host::null()); }
  void add_note(host::handle key) { add(key, note_); }
  void add_field(host::key key, host::owned value) { add(state_[key], value); }
  host::owned take() { return std::move(made_); }

 private:
  void add(host::handle key, host::handle value) { host::set_item(made_, key, value); }

  const host::module_state& state_;
  host::handle note_;
  host::owned made_ = host::new_dict();
};

}  // namespace grounding_fit
