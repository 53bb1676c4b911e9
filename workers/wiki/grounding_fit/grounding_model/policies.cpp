#include "grounding_model/policies.hpp"

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::module_object;
using py::module_state;
using py::owned;

namespace {

constexpr std::string_view k_readme_first[] = {k_readme};
constexpr std::string_view k_document_first[] = {k_document};
constexpr kind_share k_digest_quarter[] = {{k_digest, 0.25}};

constexpr page_policy k_policies[] = {
    // For every page type without a policy of its own.
    {.page_type = "", .record = module_object::default_policy},
    // A guide keeps its README before the digests of other pages.
    {.page_type = "getting-started",
     .record = module_object::getting_started_policy,
     .readme_chars = 28000,
     .first = k_readme_first,
     .shares = k_digest_quarter},
    // A decisions page keeps its own documents first.
    {.page_type = "decisions",
     .record = module_object::decisions_policy,
     .first = k_document_first,
     .document_chars = 24000}};
constexpr const page_policy& k_default_policy = k_policies[0];
constexpr std::span k_page_policies = std::span(k_policies).subspan(1);

owned record_of(const module_state& state, const page_policy& policy) {
  std::vector<owned> first;
  for (const std::string_view key : policy.first) first.push_back(py::new_text(key));
  const owned shares = py::new_dict();
  for (const kind_share& each : policy.shares) {
    py::set_item(shares, py::new_text(each.key), py::new_real(each.share));
  }
  std::vector<owned> fields;
  fields.push_back(py::new_integer(policy.readme_chars));
  fields.push_back(py::new_tuple(std::move(first)));
  fields.push_back(py::read_only_view(shares));
  fields.push_back(py::new_integer(policy.document_chars));
  return py::make_record(state, k_section_budget, std::move(fields));
}

const page_policy* shared_policy(const module_state& state, section_budget budget) {
  for (const page_policy& each : k_policies) {
    if (budget.record.is(state[each.record])) return &each;
  }
  return nullptr;
}

}  // namespace

handle find_policy(const module_state& state, handle page_type) {
  if (py::kind_of(page_type) == py::kind::text) {
    const text_view wanted = py::view_of(page_type);
    for (const page_policy& each : k_page_policies) {
      if (wanted == each.page_type) return state[each.record];
    }
  }
  return state[k_default_policy.record];
}

owned policies_by_page_type(const module_state& state) {
  owned table = py::new_dict();
  for (const page_policy& each : k_page_policies) {
    py::set_item(table, py::new_text(each.page_type), state[each.record]);
  }
  return table;
}

void keep_policies(module_state& state) {
  for (const page_policy& each : k_policies) state.keep(each.record, record_of(state, each));
}

policy_rules::policy_rules(const module_state& state, section_budget record)
    : shared_(shared_policy(state, record)), first_(record.first()), shares_(record.shares()) {
  if (shared_ != nullptr) return;
  for (std::size_t i = 0; i < first_.size(); ++i) {
    py::within(py::place("parts.budget.first", i), [&] { py::expect_text(first_[i]); });
  }
}

std::optional<double> policy_rules::shared_share_of(text_view key) const {
  for (const kind_share& each : shared_->shares) {
    if (key == each.key) return each.share;
  }
  return std::nullopt;
}

double policy_rules::number_of(handle share, handle key) {
  try {
    return py::expect_number(share);
  } catch (py::bad_value& error) {
    error.prepend_key(py::view_of(key));
    error.prepend("parts.budget.shares");
    throw;
  }
}

}  // namespace grounding_fit
