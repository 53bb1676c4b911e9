#include "binding/constants.hpp"

#include "answer_capping/answer_capping.hpp"
#include "grounding_model/grounding_model.hpp"
#include "symbol_rendering/symbol_rendering.hpp"

namespace grounding_fit {

using host::handle;
using host::kept;
using host::module_state;
using host::owned;
using host::utility;

namespace {

owned fitted_fields_tuple(const module_state& state) {
  std::vector<owned> values;
  for (const host::key field : k_fitted_fields) values.push_back(host::share(state[field]));
  return host::new_tuple(std::move(values));
}

owned placeholder() {
  const std::string note(k_placeholder_chars, 'x');
  return host::new_text(std::string_view(note));
}

}  // namespace

void add_constants(const module_state& state, handle module, std::vector<const char*>& names) {
  const std::pair<const char*, owned> constants[] = {
      {"README", host::new_text(k_readme)},
      {"DIGEST", host::new_text(k_digest)},
      {"DOCUMENT", host::new_text(k_document)},
      {"_SYM_BUDGET_FLOOR", host::share(state[kept::code_floor])},
      {"_ALWAYS_KEPT", host::tuple_of(host::share(state[utility::file_cards_heading]),
                                      host::share(state[utility::requested_context_heading]))},
      {"_DEFAULT_BUDGET", host::share(state[kept::default_policy])},
      {"_BUDGETS", host::read_only_view(policies_by_page_type(state))},
      {"_SKELETON_LINES", host::new_integer(k_skeleton_lines)},
      {"_LISTED_CHARS", host::new_integer(k_listed_chars)},
      {"_LISTED_HEADING", host::new_text(k_listed_heading.text())},
      {"_LISTED_MAX", host::new_integer(k_listed_max)},
      {"_PAGE_CONTEXT_MAX_CHARS", host::new_integer(k_answer_max_chars)},
      {"_NOTE_ITEMS", host::new_integer(k_note_items)},
      {"_FITTED_FIELDS", fitted_fields_tuple(state)},
      {"_NOTE_PLACEHOLDER", placeholder()}};
  for (const auto& [name, value] : constants) {
    host::add_to_module(module, name, value);
    names.push_back(name);
  }
}

}  // namespace grounding_fit
