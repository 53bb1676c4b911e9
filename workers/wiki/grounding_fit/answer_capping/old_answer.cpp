#include "answer_capping/old_answer.hpp"

#include <algorithm>

#include "answer_capping/note.hpp"

namespace grounding_fit {

using host::handle;
using host::key;
using host::owned;

namespace {

using role = old_answer::role;

bool is_carried(const old_answer::member& each) { return each.is == role::carried; }
bool is_other_text(const old_answer::member& each) {
  return !is_carried(each) && host::kind_of(each.value) == host::kind::text;
}
bool is_other(const old_answer::member& each) { return !is_carried(each) && !is_other_text(each); }
bool is_bound(const old_answer::member& each) { return each.measured == precision::bound; }

}  // namespace

old_answer::old_answer(const host::module_state& state, handle result, json_meter& meter)
    : state_(state), meter_(meter) {
  members_.reserve(host::size_of_dict(result));
  host::for_each_member(result, [&](owned key, owned value) {
    members_.push_back({std::move(key), std::move(value)});
  });
  for (member& each : members_) each.is = role_of(each.key, each.value);
  measure(precision::exact, is_carried);
  measure(precision::bound, is_other_text);
  // The bound of a text is at hand, that of a list takes a walk, which may as well count.
  measure(sum() > k_answer_max_chars ? precision::bound : precision::exact, is_other);
}

void old_answer::measure(precision how, bool (*which)(const member&)) {
  host::within("result", [&] {
    for (std::size_t i = 0; i < members_.size(); ++i) {
      member& each = members_[i];
      if (!which(each)) continue;
      each.size = meter_.size_of_member(i, each.key, each.value, how);
      each.measured = how;
    }
  });
}

std::int64_t old_answer::sum() const {
  tally all;
  for (const member& each : members_) all.add(each.size);
  return all.bracketed();
}

std::int64_t old_answer::size(size_limit limit) {
  return size_up_to(limit, [&](precision how) {
    if (how == precision::exact) count_all();
    return sum();
  });
}

void old_answer::count_all() { measure(precision::exact, is_bound); }

// Keys of derived types can share a text, and then the first of them has the role.
old_answer::role old_answer::role_of(handle name, handle value) {
  if (host::kind_of(name) != host::kind::text) return role::carried;  // and refused when measured
  const text_view text = host::view_of(name);
  const auto is = [&](key which) { return text == host::name_of(which); };
  if (std::ranges::any_of(k_fitted_fields, is)) return role::fitted;
  if (is(key::truncated) && !std::exchange(has_note_, true)) return role::note;
  if (!is(key::prior_markdown) || std::exchange(prior_seen_, true) || host::missing(value)) {
    return role::carried;
  }
  prior_ = value;
  return role::prior;
}

text_view old_answer::prior() const {
  return host::within(host::place("result", host::step_to(key::prior_markdown)),
                      [&] { return host::expect_text(prior_); });
}

owned old_answer::page_id() const {
  for (const member& each : members_) {
    if (host::view_of(each.key) != host::name_of(key::page_id)) continue;
    return host::within(host::place("result", host::step_to(key::page_id)),
                        [&] { return host::text_form(host::share(each.value)); });
  }
  host::raise_missing_key(state_[key::page_id]);
}

// ---- a new answer -------------------------------------------------------------------------------

new_answer::new_answer(const host::module_state& state, const old_answer& given,
                       fitted_fields how) {
  members_.reserve(given.members().size() + std::size(k_fitted_fields) + 1);
  for (const old_answer::member& each : given.members()) {
    switch (each.is) {
      case role::fitted:
        if (how == fitted_fields::rebuilt) break;
        [[fallthrough]];
      case role::carried: add(each.key, host::share(each.value), each.size); break;
      case role::prior: add(each.key, host::null(), member_size(host::view_of(each.key), 4)); break;
      case role::note: add_note(each.key); break;
    }
  }
  if (how == fitted_fields::rebuilt) {
    for (const key each : k_fitted_fields) {
      add(state[each], {}, member_size(host::name_of(each), 0));
    }
  }
  if (!given.has_note()) add_note(state[key::truncated]);
}

void new_answer::add(handle key, owned value, std::int64_t size) {
  members_.push_back({key, std::move(value)});
  sizes_.add(size);
}

void new_answer::add_note(handle key) {
  note_at_ = members_.size();
  add(key, {}, member_size(host::view_of(key), 2));
}

owned new_answer::build(handle note, std::span<const owned> fitted) const {
  owned made = host::new_dict();
  std::size_t next = 0;
  for (std::size_t i = 0; i < members_.size(); ++i) {
    const member& each = members_[i];
    const bool made_anew = !each.value && i != note_at_;
    const handle old = i == note_at_ ? note : handle(each.value);
    host::set_item(made, each.key, made_anew ? handle(fitted[next++]) : old);
  }
  return made;
}

}  // namespace grounding_fit
