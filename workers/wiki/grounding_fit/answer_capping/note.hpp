// The `truncated` note: what was left out, six items by name, the rest by number.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "answer_capping/answer_parts.hpp"
#include "text/escape_growth.hpp"

namespace grounding_fit {

inline constexpr std::size_t k_note_items = 6;  // items left out that a note names

enum class note_end {
  plain,            // after the items
  ask,              // asks the agent to fetch what it needs
  ask_and_say_over  // and says that the answer is over the cap nevertheless
};

// The name of something left out, and what it takes inside a JSON string.
struct note_item {
  text_view text;
  std::int64_t size;

  explicit note_item(text_view name) : text(name), size(escaped_length(name)) {}
};

// `named` are the first of so many `items`, at most k_note_items of them.
py::owned cap_note(std::span<const note_item> named, std::size_t items, note_end end);

// The item that counts the symbol blocks left without their body; empty when none is.
py::owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total);

// The item that says how to read the prior markdown, of so many code points.
py::owned prior_item(std::size_t code_points, py::owned page_id);

// What an answer leaves out: its prior markdown, the bodies of some of its `symbols` blocks, and
// some fact blocks. Only the item of the code changes with the code that is shown, so the others
// are sized once.
class left_out {
 public:
  // `prior` is empty where the answer had none.
  left_out(const py::owned& prior, std::size_t symbols);
  void add(fact_block block);

  py::owned note(code_amount code, note_end end) const;
  // What that note takes inside a JSON string; the note itself is not built.
  std::int64_t note_size(code_amount code, note_end end) const;

 private:
  template <class Made>
  Made with_items(code_amount code, Made (*make)(std::span<const note_item>, std::size_t, note_end),
                  note_end end) const;

  std::size_t symbols_;
  std::size_t facts_ = 0;
  std::optional<note_item> prior_;
  std::vector<py::owned> labels_;
  std::vector<note_item> named_facts_;
};

}  // namespace grounding_fit
