#include "answer_capping/given_answer.hpp"

#include <algorithm>

namespace grounding_fit {

using host::handle;
using host::key;
using host::owned;

given_answer::given_answer(const host::module_state& state, handle result, json_meter& meter)
    : state_(state) {
  members_.reserve(host::size_of_dict(result));
  host::dict_cursor cursor(result);
  for (handle key, value; cursor.next(key, value);) {
    members_.push_back({owned::share(key), owned::share(value)});
  }
  host::within("result", [&] {
    for (std::size_t i = 0; i < members_.size(); ++i) {
      member& each = members_[i];
      each.size = meter.size_of_member(i, each.key, each.value);
      all_.add(each.size);
      each.is = role_of(host::view_of(each.key), each.value);
    }
  });
}

// Keys of derived types can share a text, and then the first of them has the role.
given_answer::role given_answer::role_of(text_view name, handle value) {
  const auto is = [&](key which) { return name == host::name_of(which); };
  if (std::ranges::any_of(k_fitted_fields, is)) return role::fitted;
  if (is(key::truncated) && !std::exchange(has_note_, true)) return role::note;
  if (!is(key::prior_markdown) || std::exchange(prior_seen_, true) || host::missing(value)) {
    return role::carried;
  }
  prior_ = value;
  return role::prior;
}

text_view given_answer::prior() const {
  return host::within(host::place("result", host::step_to(key::prior_markdown)),
                      [&] { return host::expect_text(prior_); });
}

owned given_answer::page_id() const {
  for (const member& each : members_) {
    if (host::view_of(each.key) != host::name_of(key::page_id)) continue;
    return host::within(host::place("result", host::step_to(key::page_id)),
                        [&] { return host::text_form(each.value); });
  }
  host::raise_missing_key(state_[key::page_id]);
}

}  // namespace grounding_fit
