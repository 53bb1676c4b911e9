#include "symbol_rendering/listing.hpp"

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::key;
using py::module_state;
using py::owned;

namespace {

text_view stripped(text_view text) {
  std::size_t start = 0;
  std::size_t end = text.length();
  while (start < end && py::is_space(text[start])) ++start;
  while (end > start && py::is_space(text[end - 1])) --end;
  return text.slice(start, end - start);
}

// The text form of the value under a key, an empty text when the key is absent.
owned read_text_form(const module_state& state, py::dict symbol, key which) {
  owned value = py::read(state, symbol, which);
  if (!value) return py::empty_text();
  return py::within(which, [&] { return py::text_form(std::move(value)); });
}

// The signature, or else the documentation, whose first line says what the symbol is.
owned description(const module_state& state, py::dict symbol) {
  for (const key which : {key::signature, key::docstring}) {
    owned value = py::read(state, symbol, which);
    if (py::missing(value)) continue;
    return py::within(which, [&] { return py::text_form(std::move(value)); });
  }
  return {};
}

}  // namespace

// Half of a record's keys are read, which look-ups find sooner than a walk over all.
listed_line::listed_line(const module_state& state, handle record, path_names& norm) {
  const py::dict symbol = py::expect_dict(record);
  start_ = read_line(state, symbol, key::line);
  end_ = read_line(state, symbol, key::end_line);
  start_.expect_writable();
  if (end_ > start_) end_.expect_writable();
  described_ = description(state, symbol);
  if (described_) {
    what_ = stripped(py::view_of(described_));
    what_ = what_.slice(0, what_.find('\n'));
  }
  name_ = read_text_form(state, symbol, key::fqn);
  kind_ = read_text_form(state, symbol, key::kind);
  owned file = read_text_form(state, symbol, key::file);
  py::within(key::file, [&] {
    owned name = norm(std::move(file));
    py::within("result of _norm", [&] { file_ = py::text_form(std::move(name)); });
  });
}

template <class Out>
void listed_line::describe(Out&& out) const {
  static constexpr json_literal k_open = "- `", k_kind = "` (", k_line = ":L", k_last = "-L",
                                k_what = ": ", k_more = "...", k_before_file = k_dash;
  out(k_open);
  out(py::view_of(name_));
  out(k_kind);
  out(py::view_of(kind_));
  out(k_before_file);
  out(py::view_of(file_));
  out(k_line);
  out(start_);
  if (end_ > start_) {
    out(k_last);
    out(end_);
  }
  if (what_.empty()) return;
  out(k_what);
  const bool cut = what_.length() > k_listed_chars;
  out(cut ? what_.slice(0, k_listed_chars - k_more.length()) : what_);
  if (cut) out(k_more);
}

void listed_line::write(text_builder& to) const {
  struct {
    text_builder& to;
    void operator()(text_view text) { to.add(text); }
    void operator()(const py::integer& number) { to.add_number(number); }
  } out{to};
  describe(out);
}

std::int64_t listed_line::escaped_length() const {
  struct {
    std::int64_t size = 0;
    void operator()(const json_literal& text) { size += text.json_size(); }
    void operator()(text_view text) { size += grounding_fit::escaped_length(text); }
    void operator()(const py::integer& number) {
      size += static_cast<std::int64_t>(number.length());
    }
  } out;
  describe(out);
  return out.size;
}

owned make_listing(const module_state& state, const symbol_records& records, std::size_t count) {
  path_names norm(state, path_names::asking::every_time);
  std::vector<listed_line> lines;
  lines.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    py::within(records.place_of(i), [&] { lines.emplace_back(state, records[i], norm); });
  }
  text_builder listing;
  if (count > 0) listing.add(k_listed_heading);
  for (const listed_line& line : lines) line.write_in_listing(listing);
  return listing.text();
}

}  // namespace grounding_fit
