#include "grounding_model/policies.hpp"

#include "grounding_model/records.hpp"

namespace grounding_fit {

using host::handle;
using host::kept;
using host::module_state;
using host::owned;

namespace {

constexpr std::string_view k_readme_first[] = {k_readme};
constexpr std::string_view k_document_first[] = {k_document};
constexpr kind_share k_digest_quarter[] = {{k_digest, 0.25}};

constexpr page_policy k_default_policy{};
constexpr page_policy k_page_policies[] = {
    // A guide keeps its README before the digests of other pages.
    {.page_type = "getting-started",
     .readme_chars = 28000,
     .first = k_readme_first,
     .shares = k_digest_quarter},
    // A decisions page keeps its own documents first.
    {.page_type = "decisions", .first = k_document_first, .document_chars = 24000}};

owned record_of(const module_state& state, const page_policy& policy) {
  std::vector<owned> first;
  for (const std::string_view key : policy.first) first.push_back(host::new_text(key));
  const owned shares = host::new_dict();
  for (const kind_share& each : policy.shares) {
    host::set_item(shares, host::new_text(each.key), host::new_real(each.share));
  }
  std::vector<owned> fields;
  fields.push_back(host::new_integer(policy.readme_chars));
  fields.push_back(host::new_tuple(std::move(first)));
  fields.push_back(host::share(shares));
  fields.push_back(host::new_integer(policy.document_chars));
  return host::make_record(state, k_section_budget, std::move(fields));
}

}  // namespace

owned find_policy(const module_state& state, handle page_type) {
  const owned text = host::plain_text(host::share(page_type));
  owned found = host::dict(state[kept::page_policies]).get(text);
  return found ? std::move(found) : host::share(state[kept::default_policy]);
}

void keep_policies(module_state& state) {
  state.keep(kept::default_policy, record_of(state, k_default_policy));
  owned table = host::new_dict();
  for (const page_policy& each : k_page_policies) {
    host::set_item(table, host::new_text(each.page_type), record_of(state, each));
  }
  state.keep(kept::page_policies, std::move(table));
}

}  // namespace grounding_fit
