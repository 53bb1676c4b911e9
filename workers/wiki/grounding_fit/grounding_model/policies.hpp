// How each page type spends the room of its grounding.
#pragma once

#include <span>

#include "host/host.hpp"

namespace grounding_fit {

// The keys of fact blocks that policies name.
inline constexpr std::string_view k_readme = "readme";      // the README
inline constexpr std::string_view k_digest = "digest";      // a digest of another page
inline constexpr std::string_view k_document = "document";  // one of the page's own documents

// Code points of the README that the host quotes where a policy says nothing else.
inline constexpr std::int64_t k_readme_chars = 4000;

struct kind_share {
  std::string_view key;
  double share;
};

struct page_policy {
  std::string_view page_type;
  std::int64_t readme_chars = k_readme_chars;
  std::span<const std::string_view> first = {};
  std::span<const kind_share> shares = {};
  std::int64_t document_chars = 0;
};

// The policy of a page type, or the default one: the shared record itself.
host::owned find_policy(const host::module_state& state, host::handle page_type);
// Puts the default policy and the table of the others into the module's state.
void keep_policies(host::module_state& state);

}  // namespace grounding_fit
