#include "answer_capping/original_answer.hpp"

#include <algorithm>

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::key;
using py::owned;

namespace {

using role = original_answer::role;

bool is_carried(const original_answer::member& each) { return each.is == role::carried; }
bool is_other_text(const original_answer::member& each) {
  return !is_carried(each) && py::kind_of(each.value) == py::kind::text;
}
bool is_other(const original_answer::member& each) {
  return !is_carried(each) && !is_other_text(each);
}
bool is_bound(const original_answer::member& each) { return each.measured == precision::bound; }

}  // namespace

original_answer::original_answer(const py::module_state& state, handle result, json_meter& meter)
    : state_(state), meter_(meter) {
  const py::dict original = py::expect_dict(result);
  members_.reserve(original.size());
  py::for_each_member(original, [&](owned key, owned value) {
    members_.push_back({std::move(key), std::move(value)});
  });
  for (member& each : members_) each.is = role_of(each.key, each.value);
  measure(precision::exact, is_carried);
  measure(precision::bound, is_other_text);
  // The bound of a text is its length; that of a list takes a walk, which may as well measure
  // exactly.
  measure(sum() > k_answer_max_chars ? precision::bound : precision::exact, is_other);
}

void original_answer::measure(precision how, bool (*which)(const member&)) {
  py::within("result", [&] {
    for (std::size_t i = 0; i < members_.size(); ++i) {
      member& each = members_[i];
      if (!which(each)) continue;
      each.size = meter_.size_of_member(i, each.key, each.value, how);
      each.measured = how;
    }
  });
}

std::int64_t original_answer::sum() const {
  tally all;
  for (const member& each : members_) all.add(each.size);
  return all.bracketed();
}

std::int64_t original_answer::size(size_limit limit) {
  return size_up_to(limit, [&](precision how) {
    if (how == precision::exact) measure_all();
    return sum();
  });
}

void original_answer::measure_all() { measure(precision::exact, is_bound); }

// Keys of derived types can share a text, and then the first of them has the role.
original_answer::role original_answer::role_of(handle name, handle value) {
  if (py::kind_of(name) != py::kind::text) return role::carried;  // and refused when measured
  const text_view text = py::view_of(name);
  const auto is = [&](key which) { return text == py::name_of(which); };
  if (std::ranges::any_of(k_fitted_fields, is)) return role::fitted;
  if (is(key::truncated) && !std::exchange(has_note_, true)) return role::note;
  if (!is(key::prior_markdown) || std::exchange(prior_seen_, true) || py::missing(value)) {
    return role::carried;
  }
  prior_ = value;
  return role::prior;
}

text_view original_answer::prior() const {
  return py::within(py::place("result", py::step_to(key::prior_markdown)),
                    [&] { return py::expect_text(prior_); });
}

owned original_answer::page_id() const {
  for (const member& each : members_) {
    if (py::view_of(each.key) != py::name_of(key::page_id)) continue;
    return py::within(py::place("result", py::step_to(key::page_id)),
                      [&] { return py::text_form(py::new_ref(each.value)); });
  }
  throw py::missing_key{state_[key::page_id],
                        "result: expected a 'page_id', by which the note says how to read the "
                        "prior_markdown that is left out"};
}

// ---- a new answer -------------------------------------------------------------------------------

new_answer::new_answer(const py::module_state& state, const original_answer& original,
                       fitted_fields how) {
  members_.reserve(original.members().size() + std::size(k_fitted_fields) + 1);
  for (const original_answer::member& each : original.members()) {
    switch (each.is) {
      case role::fitted:
        if (how == fitted_fields::rebuilt) break;
        [[fallthrough]];
      case role::carried: add(each.key, py::new_ref(each.value), each.size); break;
      case role::prior: add(each.key, py::null(), member_size(py::view_of(each.key), 4)); break;
      case role::note: add_note(each.key); break;
    }
  }
  if (how == fitted_fields::rebuilt) {
    for (const key each : k_fitted_fields) {
      add(state[each], {}, member_size(py::name_of(each), 0));
    }
  }
  if (!original.has_note()) add_note(state[key::truncated]);
}

void new_answer::add(handle key, owned value, std::int64_t size) {
  members_.push_back({key, std::move(value)});
  sizes_.add(size);
}

void new_answer::add_note(handle key) {
  note_at_ = members_.size();
  add(key, {}, member_size(py::view_of(key), 2));
}

owned new_answer::build(handle note, std::span<const owned> fitted) const {
  owned made = py::new_dict();
  std::size_t next = 0;
  for (std::size_t i = 0; i < members_.size(); ++i) {
    const member& each = members_[i];
    const bool made_anew = !each.value && i != note_at_;
    const handle old = i == note_at_ ? note : handle(each.value);
    py::set_item(made, each.key, made_anew ? handle(fitted[next++]) : old);
  }
  return made;
}

}  // namespace grounding_fit
