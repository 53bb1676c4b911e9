#include "answer_capping/note.hpp"

#include <algorithm>
#include <iterator>
#include <string>

#include "answer_capping/json_measure.hpp"
#include "python/text_builder.hpp"

namespace grounding_fit {

using py::owned;

namespace {

// What a note says, in order: `out` takes literals, items and numbers.
template <class Out>
void describe_note(Out&& out, std::span<const note_item> named, std::size_t items, note_end end) {
  static constexpr json_literal k_start = "answer capped at ",
                                k_unit = " characters; left out: ", k_separator = "; ",
                                k_more = " more blocks", k_stop = ".",
                                k_nothing = "nothing that can be left out";
  static constexpr json_literal k_ask =
      " Ask for code with query=\"<file path or symbol>, ...\"; "
      "read another page with wiki(action=\"read\", page_id=...).";
  static constexpr json_literal k_over = " The file cards and the other fields alone exceed it.";
  out(k_start);
  out(k_answer_max_chars);
  out(k_unit);
  for (std::size_t i = 0; i < named.size(); ++i) {
    if (i > 0) out(k_separator);
    out(named[i]);
  }
  if (items > k_note_items) {
    out(k_separator);
    out(static_cast<std::int64_t>(items - k_note_items));
    out(k_more);
  }
  if (items == 0 || (items == 1 && named[0].text.empty())) out(k_nothing);
  out(k_stop);
  if (end != note_end::plain) out(k_ask);
  if (end == note_end::ask_and_say_over) out(k_over);
}

std::int64_t cap_note_size(std::span<const note_item> named, std::size_t items, note_end end) {
  struct {
    std::int64_t size = 0;
    void operator()(const json_literal& text) { size += text.json_size(); }
    void operator()(const note_item& item) { size += item.size; }
    void operator()(std::int64_t number) {
      size += static_cast<std::int64_t>(std::to_string(number).size());
    }
  } out;
  describe_note(out, named, items, end);
  return out.size;
}

}  // namespace

owned cap_note(std::span<const note_item> named, std::size_t items, note_end end) {
  struct {
    text_builder note;
    void operator()(text_view text) { note.add(text); }
    void operator()(const note_item& item) { note.add(item.text); }
    void operator()(std::int64_t number) { note.add_number(number); }
  } out;
  out.note.reserve(static_cast<std::size_t>(cap_note_size(named, items, end)));
  describe_note(out, named, items, end);
  return out.note.text();
}

owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total) {
  if (kept >= total) return {};
  const __int128 cut = __int128(total) - kept;
  text_builder item;
  item.add("the bodies of ");
  item.add_wide_number(cut);
  item.add(" of ");
  item.add_number(total);
  item.add(" symbol blocks (the lowest ranked; ");
  item.add_number(listed);
  item.add(" of them listed by lines and signature, ");
  item.add_wide_number(cut - listed);
  item.add(" not at all)");
  return item.text();
}

owned prior_item(std::size_t code_points, owned page_id) {
  text_builder item;
  item.add("prior_markdown (");
  item.add_number(static_cast<std::int64_t>(code_points));
  item.add(" characters; read the page with wiki(action=\"read\", page_id=\"");
  item.add_value(page_id);
  item.add("\") before you edit it)");
  return item.text();
}

left_out::left_out(const owned& prior, std::size_t symbols) : symbols_(symbols) {
  if (prior) prior_.emplace(py::view_of(prior));
  labels_.reserve(k_note_items);
  named_facts_.reserve(k_note_items);
}

void left_out::add(fact_block block) {
  if (++facts_ > k_note_items) return;
  labels_.push_back(block.label());
  named_facts_.emplace_back(py::view_of(labels_.back()));
}

template <class Made>
Made left_out::with_items(code_amount code,
                          Made (*make)(std::span<const note_item>, std::size_t, note_end),
                          note_end end) const {
  const owned cut =
      code_cut(static_cast<std::int64_t>(code.bodies), static_cast<std::int64_t>(code.listed),
               static_cast<std::int64_t>(symbols_));
  std::vector<note_item> named;
  named.reserve(k_note_items);
  if (prior_) named.push_back(*prior_);
  if (cut) named.emplace_back(py::view_of(cut));
  const std::size_t items = named.size() + facts_;
  const std::size_t room = std::min(k_note_items - named.size(), named_facts_.size());
  std::copy_n(named_facts_.begin(), room, std::back_inserter(named));
  return make(named, items, end);
}

owned left_out::note(code_amount code, note_end end) const {
  return with_items(code, cap_note, end);
}

std::int64_t left_out::note_size(code_amount code, note_end end) const {
  return with_items(code, cap_note_size, end);
}

}  // namespace grounding_fit
