#include "answer_capping/given_answer.hpp"

#include <algorithm>

namespace grounding_fit {

using host::handle;
using host::key;
using host::owned;

given_answer::given_answer(const host::module_state& state, handle result, json_meter& meter)
    : state_(state), meter_(meter) {
  members_.reserve(host::size_of_dict(result));
  host::for_each_member(result, [&](owned key, owned value) {
    members_.push_back({std::move(key), std::move(value)});
  });
  const auto is_text = [](const member& each) {
    return host::kind_of(each.value) == host::kind::text;
  };
  for (member& each : members_) each.is = role_of(each.key, each.value);
  measure<extent::exact>([](const member& each) { return each.is == role::carried; });
  measure<extent::least>(
      [&](const member& each) { return each.is != role::carried && is_text(each); });
  // The least size of a text is at hand, that of a list takes a walk, which may as well count.
  const auto is_rest = [&](const member& each) {
    return each.is != role::carried && !is_text(each);
  };
  if (size() > k_answer_max_chars) {
    measure<extent::least>(is_rest);
  } else {
    measure<extent::exact>(is_rest);
  }
}

template <extent Extent, class Which>
void given_answer::measure(Which&& which) {
  host::within("result", [&] {
    for (std::size_t i = 0; i < members_.size(); ++i) {
      member& each = members_[i];
      if (!which(each)) continue;
      each.size = meter_.size_of_member<Extent>(i, each.key, each.value);
      each.measured = Extent;
    }
  });
}

std::int64_t given_answer::size() const {
  tally all;
  for (const member& each : members_) all.add(each.size);
  return all.bracketed();
}

void given_answer::take_exact_sizes() {
  measure<extent::exact>([](const member& each) { return each.measured != extent::exact; });
}

// Keys of derived types can share a text, and then the first of them has the role.
given_answer::role given_answer::role_of(handle name, handle value) {
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

text_view given_answer::prior() const {
  return host::within(host::place("result", host::step_to(key::prior_markdown)),
                      [&] { return host::expect_text(prior_); });
}

owned given_answer::page_id() const {
  for (const member& each : members_) {
    if (host::view_of(each.key) != host::name_of(key::page_id)) continue;
    return host::within(host::place("result", host::step_to(key::page_id)),
                        [&] { return host::text_form(host::share(each.value)); });
  }
  host::raise_missing_key(state_[key::page_id]);
}

}  // namespace grounding_fit
