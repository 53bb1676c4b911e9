#include "symbol_rendering/listing.hpp"

namespace grounding_fit {

using host::handle;
using host::key;
using host::module_state;
using host::owned;

namespace {

text_view stripped(text_view text) {
  std::size_t start = 0;
  std::size_t end = text.length();
  while (start < end && host::is_space(text[start])) ++start;
  while (end > start && host::is_space(text[end - 1])) --end;
  return text.slice(start, end - start);
}

// The signature, or else the documentation, whose first line says what the symbol is.
owned description(const module_state& state, host::dict symbol) {
  for (const key which : {key::signature, key::docstring}) {
    owned value = host::read(state, symbol, which);
    if (host::missing(value)) continue;
    return host::within(host::step_to(which), [&] { return host::text_form(std::move(value)); });
  }
  return {};
}

}  // namespace

listed_line::listed_line(const module_state& state, handle record, path_names& norm) {
  const host::dict symbol = host::expect_dict(record);
  start_ = read_line(state, symbol, key::line);
  end_ = read_line(state, symbol, key::end_line);
  start_.expect_writable();
  if (end_ > start_) end_.expect_writable();
  described_ = description(state, symbol);
  if (described_) {
    what_ = stripped(host::view_of(described_));
    what_ = what_.slice(0, what_.find('\n'));
  }
  name_ = read_text_form(state, symbol, key::fqn);
  kind_ = read_text_form(state, symbol, key::kind);
  owned file = read_file_name(state, symbol, norm);
  host::within(host::place(host::step_to(key::file), "result of _norm"),
               [&] { file_ = host::text_form(std::move(file)); });
}

template <class Out>
void listed_line::describe(Out&& out) const {
  static constexpr literal k_open = "- `", k_kind = "` (", k_line = ":L", k_last = "-L",
                           k_what = ": ", k_more = "...";
  out(k_open);
  out(host::view_of(name_));
  out(k_kind);
  out(host::view_of(kind_));
  out(k_dash);
  out(host::view_of(file_));
  out(k_line);
  out(start_);
  if (end_ > start_) {
    out(k_last);
    out(end_);
  }
  if (what_.empty()) return;
  out(k_what);
  const bool cut = what_.length() > k_listed_chars;
  out(cut ? what_.slice(0, k_listed_chars - k_more.text().length()) : what_);
  if (cut) out(k_more);
}

void listed_line::write(pieces& to) const {
  struct {
    pieces& to;
    void operator()(const literal& text) { text.write(to); }
    void operator()(text_view text) { to.add(text); }
    void operator()(const host::integer& number) { to.add_number(number); }
  } out{to};
  describe(out);
}

std::int64_t listed_line::escaped_length() const {
  struct {
    std::int64_t size = 0;
    void operator()(const literal& text) { size += text.size(); }
    void operator()(text_view text) { size += grounding_fit::escaped_length(text); }
    void operator()(const host::integer& number) {
      size += static_cast<std::int64_t>(number.length());
    }
  } out;
  describe(out);
  return out.size;
}

}  // namespace grounding_fit
