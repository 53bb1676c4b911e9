// The `truncated` note: what was cut, by name as far as it has room, the rest by number.
#pragma once

#include "host/host.hpp"

namespace grounding_fit {

constexpr std::int64_t k_answer_max_chars = 40000;
constexpr std::size_t k_note_items = 6;           // items left out that a note names
constexpr std::size_t k_placeholder_chars = 600;  // stand in for the note in a candidate

enum class note_end {
  plain,            // after the items
  ask,              // asks the agent to fetch what it needs
  ask_and_say_over  // and says that what must stay is over the cap by itself
};

// `named` are the first of so many `items`, at most k_note_items of them.
host::owned cap_note(std::span<const text_view> named, std::size_t items, note_end end);

// The item that counts the symbol blocks left without their body; empty when none is.
host::owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total);

// The item that says how to read the prior markdown.
host::owned prior_item(std::size_t characters, host::owned page_id);

}  // namespace grounding_fit
