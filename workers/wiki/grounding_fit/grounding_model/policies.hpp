// How each page type spends the room of its grounding.
#pragma once

#include <algorithm>
#include <optional>
#include <span>

#include "grounding_model/records.hpp"

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
  py::module_object record;  // where the module's state keeps the record that callers share
  std::int64_t readme_chars = k_readme_chars;
  std::span<const std::string_view> first = {};
  std::span<const kind_share> shares = {};
  std::int64_t document_chars = 0;
};

// The record of a page type's policy; of the default one for any value that names no other.
py::handle find_policy(const py::module_state& state, py::handle page_type);
// The records by page type, without the default one: a new dict at every call.
py::owned policies_by_page_type(const py::module_state& state);
// Puts the shared records into the module's state.
void keep_policies(py::module_state& state);

// What the fitting reads of a policy. For a record that all callers share it is read in the table
// of the module, not in the record: a caller can get at the dict behind its shares, and so would
// change the pages of all others.
class policy_rules {
 public:
  policy_rules(const py::module_state& state, section_budget record);
  bool keeps_first(text_view key) const {
    if (shared_ != nullptr) return std::ranges::find(shared_->first, key) != shared_->first.end();
    for (std::size_t i = 0; i < first_.size(); ++i) {
      if (py::view_of(first_[i]) == key) return true;
    }
    return false;
  }
  // What part of the room all blocks of that key may cost, if there is a limit.
  std::optional<double> share_of(py::handle key) const {
    if (shared_ != nullptr) return shared_share_of(py::view_of(key));
    const py::owned share = shares_.get(key);
    return share ? std::optional(number_of(share, key)) : std::nullopt;
  }

 private:
  std::optional<double> shared_share_of(text_view key) const;
  static double number_of(py::handle share, py::handle key);

  const page_policy* shared_;  // null for a record of the caller's own
  py::items first_;
  py::mapping shares_;
};

}  // namespace grounding_fit
