#include "answer_capping/note.hpp"

namespace grounding_fit {

using host::owned;

owned cap_note(std::span<const text_view> named, std::size_t items, note_end end) {
  pieces what;
  for (std::size_t i = 0; i < named.size(); ++i) {
    if (i > 0) what.add("; ");
    what.add(named[i]);
  }
  if (items > k_note_items) {
    what.add("; ");
    what.add_number(__int128(items - k_note_items));
    what.add(" more blocks");
  }
  if (what.empty()) what.add("nothing that can be left out");

  pieces note;
  note.add("answer capped at ");
  note.add_number(__int128(k_answer_max_chars));
  note.add(" characters; left out: ");
  for (const text_view& view : what.views()) note.add(view);
  note.add(".");
  if (end != note_end::plain) {
    note.add(
        " Ask for code with query=\"<file path or symbol>, ...\"; "
        "read another page with wiki(action=\"read\", page_id=...).");
  }
  if (end == note_end::ask_and_say_over) {
    note.add(" The file cards and the other fields alone exceed it.");
  }
  return note.text();
}

owned code_cut(std::int64_t kept, std::int64_t listed, std::int64_t total) {
  if (kept >= total) return {};
  const __int128 cut = __int128(total) - kept;
  pieces item;
  item.add("the bodies of ");
  item.add_number(cut);
  item.add(" of ");
  item.add_number(__int128(total));
  item.add(" symbol blocks (the lowest ranked; ");
  item.add_number(__int128(listed));
  item.add(" of them listed by lines and signature, ");
  item.add_number(cut - listed);
  item.add(" not at all)");
  return item.text();
}

owned prior_item(std::size_t characters, owned page_id) {
  pieces item;
  item.add("prior_markdown (");
  item.add_number(__int128(characters));
  item.add(" characters; read the page with wiki(action=\"read\", page_id=\"");
  item.add_value(std::move(page_id));
  item.add("\") before you edit it)");
  return item.text();
}

}  // namespace grounding_fit
