#include "symbol_rendering.hpp"

namespace grounding_fit {

using host::dict;
using host::handle;
using host::integer;
using host::known;
using host::owned;
using host::service;

namespace {

constexpr std::u16string_view k_dash = u") \u2014 ";

// Adds the text form of a value, `otherwise` when its key is absent.
void add_field(const service& svc, dict symbol, known key, text_view otherwise, pieces& out) {
  owned value = read(svc, symbol, key);
  if (!value) return out.add(otherwise);
  host::within(step_of(key), [&] { out.add_value(std::move(value)); });
}

// The text form of the record's file, as the host normalises it: whatever the host gives.
owned file_name(const service& svc, dict symbol, path_names& norm) {
  owned file = read(svc, symbol, known::file);
  return host::within(step_of(known::file),
                      [&] { return norm(file ? host::text_form(file) : host::empty_text()); });
}

// ---- the lines of a block -----------------------------------------------------------------------

// A line that is there when its value is: what comes before and after the value's text form.
struct plain_line {
  known key;
  std::string_view before, after;
};

class block {
 public:
  block(const service& svc, handle record, pieces& out)
      : svc_(svc), symbol_(host::expect_dict(record)), out_(out) {}

  void head() {
    path_names norm(svc_, path_names::asking::every_time);
    owned file = file_name(svc_, symbol_, norm);
    out_.add("### ");
    add_field(svc_, symbol_, known::fqn, "", out_);
    out_.add(" (");
    add_field(svc_, symbol_, known::kind, "", out_);
    out_.add(k_dash);
    host::within("result of _norm", [&] { out_.add_value(std::move(file)); });
    out_.add(":L");
    add_field(svc_, symbol_, known::line, "0", out_);
  }

  void line(const plain_line& shape) {
    owned value = read(svc_, symbol_, shape.key);
    if (!host::missing(value)) add_line(shape, std::move(value));
  }

  // "params: name: type, name"; no line when no entry has a name.
  void parameters() {
    list(known::parameters, "\nparams: ", [&](handle entry, std::string_view separator) {
      const dict parameter = host::expect_dict(entry);
      owned name = read(svc_, parameter, known::name);
      if (host::missing(name)) return false;
      out_.add(separator);
      host::within(step_of(known::name), [&] { out_.add_string(std::move(name)); });
      owned type = read(svc_, parameter, known::type);
      if (host::missing(type)) return true;
      out_.add(": ");
      host::within(step_of(known::type), [&] { out_.add_value(std::move(type)); });
      return true;
    });
  }

  // The body, or the logic skeleton that stands in for one that is not given.
  void body() {
    owned snippet = read(svc_, symbol_, known::snippet);
    if (host::missing(snippet)) return skeleton();
    add_line({known::snippet, "```\n", "\n```"}, std::move(snippet));
    owned cut = read(svc_, symbol_, known::snippet_cut);
    if (host::missing(cut)) return;
    add_line({known::snippet_cut, "body cut: ", " more lines, to L"}, std::move(cut));
    add_field(svc_, symbol_, known::end_line, "0", out_);
  }

  void callees() {
    list(known::callees, "\ncalls (static): ", [&](handle entry, std::string_view separator) {
      out_.add(separator);
      out_.add_string(host::share(entry));
      return true;
    });
  }

  void related() {
    list(known::related, "\nrelated: ", [&](handle entry, std::string_view separator) {
      owned fqn = read(svc_, host::expect_dict(entry), known::fqn);
      if (host::missing(fqn)) return false;
      out_.add(separator);
      host::within(step_of(known::fqn), [&] { out_.add_string(std::move(fqn)); });
      return true;
    });
  }

  void has_tests() {
    if (!host::missing(read(svc_, symbol_, known::has_tests))) out_.add("\nhas_tests: yes");
  }

 private:
  void add_line(const plain_line& shape, owned value) {
    out_.add("\n");
    out_.add(shape.before);
    host::within(step_of(shape.key), [&] { out_.add_value(std::move(value)); });
    out_.add(shape.after);
  }

  // The entries of an array in one line. `add` adds one after its separator, or says that it has
  // nothing to add; a line without entries is left out.
  template <class Add>
  void list(known key, std::string_view title, Add&& add) {
    const owned value = read(svc_, symbol_, key);
    if (host::missing(value)) return;
    host::within(step_of(key), [&] {
      const host::array entries = host::expect_array(value);
      bool any = false;
      std::size_t i = 0;
      for (owned entry = entries[i]; entry; entry = entries[++i]) {
        host::within(i, [&] { any |= add(entry, any ? ", " : title); });
      }
    });
  }

  // The first lines of the digest, and how many it leaves out.
  void skeleton() {
    owned value = read(svc_, symbol_, known::body_digest);
    if (host::missing(value)) return;
    owned text = host::within(step_of(known::body_digest), [&] { return host::text_form(value); });
    const text_view digest = host::view_of(text);
    std::size_t lines = 1;
    std::size_t shown = digest.length();
    for (std::size_t at = digest.find('\n'); at != text_view::npos;
         at = digest.find('\n', at + 1)) {
      if (lines++ == k_skeleton_lines) shown = at;
    }
    out_.add("\nlogic skeleton:\n```\n");
    out_.add(digest.slice(0, shown));
    out_.keep(std::move(text));
    if (lines > k_skeleton_lines) {
      out_.add("\n... (");
      out_.add_number(__int128(lines - k_skeleton_lines));
      out_.add(" more)");
    }
    out_.add("\n```");
  }

  const service& svc_;
  dict symbol_;
  pieces& out_;
};

// ---- a listed line ------------------------------------------------------------------------------

text_view stripped(text_view text) {
  std::size_t start = 0;
  std::size_t end = text.length();
  while (start < end && host::is_space(text[start])) ++start;
  while (end > start && host::is_space(text[end - 1])) --end;
  return text.slice(start, end - start);
}

// The signature, or else the documentation, whose first line says what the symbol is.
owned description(const service& svc, dict symbol) {
  for (const known key : {known::signature, known::docstring}) {
    const owned value = read(svc, symbol, key);
    if (host::missing(value)) continue;
    return host::within(step_of(key), [&] { return host::text_form(value); });
  }
  return {};
}

}  // namespace

owned render_symbol(const service& svc, handle record) {
  pieces text;
  block lines(svc, record, text);
  lines.head();
  lines.line({known::signature, "signature: ", ""});
  lines.parameters();
  lines.line({known::docstring, "doc: ", ""});
  lines.line({known::fan_in, "fan-in: ", " references from production code outside this page"});
  lines.line({known::inside_refs, "inside this page: ", " references from its own files"});
  lines.line({known::neighbour_refs, "outside this page: its files reference it ", " times"});
  lines.body();
  lines.callees();
  lines.line({known::usage_example, "usage: ", ""});
  lines.related();
  lines.has_tests();
  return text.text();
}

void add_listed_line(const service& svc, handle record, path_names& norm, pieces& line) {
  const dict symbol = host::expect_dict(record);
  const integer start = read_line(svc, symbol, known::line);
  const integer end = read_line(svc, symbol, known::end_line);
  const bool several = end > start;
  start.expect_writable();
  if (several) end.expect_writable();
  owned described = description(svc, symbol);

  line.add("- `");
  add_field(svc, symbol, known::fqn, "", line);
  line.add("` (");
  add_field(svc, symbol, known::kind, "", line);
  line.add(k_dash);
  owned file = file_name(svc, symbol, norm);
  host::within("result of _norm", [&] { line.add_value(std::move(file)); });
  line.add(":L");
  line.add_number(start);
  if (several) {
    line.add("-L");
    line.add_number(end);
  }
  if (!described) return;
  text_view what = stripped(host::view_of(described));
  what = what.slice(0, what.find('\n'));
  if (what.empty()) return;
  line.add(": ");
  const bool cut = what.length() > k_listed_chars;
  line.add(cut ? what.slice(0, k_listed_chars - 3) : what);
  if (cut) line.add("...");
  line.keep(std::move(described));
}

}  // namespace grounding_fit
