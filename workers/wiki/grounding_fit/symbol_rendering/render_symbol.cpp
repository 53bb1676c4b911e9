#include "symbol_rendering/render_symbol.hpp"

#include "symbol_rendering/listing.hpp"

namespace grounding_fit {

using py::dict;
using py::handle;
using py::key;
using py::module_state;
using py::owned;

namespace {

// A line that is there when its value is: what comes before and after the value's text form.
struct plain_line {
  key which;
  std::string_view before, after;
};

// The first lines of a logic skeleton, and how many it leaves out.
void add_skeleton(text_view digest, text_builder& out) {
  std::size_t lines = 1;
  std::size_t shown = digest.length();
  for (std::size_t at = digest.find('\n'); at != text_view::npos; at = digest.find('\n', at + 1)) {
    if (lines++ == k_skeleton_lines) shown = at;
  }
  out.add("\nlogic skeleton:\n```\n");
  out.add(digest.slice(0, shown));
  if (lines > k_skeleton_lines) {
    out.add("\n... (");
    out.add_number(__int128(lines - k_skeleton_lines));
    out.add(" more)");
  }
  out.add("\n```");
}

// Writes the lines of one symbol block, each in the order in which the rules read its keys.
class block_writer {
 public:
  block_writer(const module_state& state, handle record, text_builder& out)
      : state_(state), symbol_(py::expect_dict(record)), out_(out) {}

  void head() {
    path_names norm(state_, path_names::asking::every_time);
    owned file = read_file_name(state_, symbol_, norm);
    out_.add("### ");
    field(key::fqn, "");
    out_.add(" (");
    field(key::kind, "");
    out_.add(k_dash);
    py::within(py::place(py::step_to(key::file), "result of _norm"), [&] { out_.add_value(file); });
    out_.add(":L");
    field(key::line, "0");
  }

  void line(const plain_line& shape) {
    owned value = py::read(state_, symbol_, shape.which);
    if (!py::missing(value)) add_line(shape, std::move(value));
  }

  // "params: name: type, name"; no line when no entry has a name.
  void parameters() {
    list(key::parameters, "\nparams: ", [&](handle entry, std::string_view separator) {
      const dict parameter = py::expect_dict(entry);
      owned name = py::read(state_, parameter, key::name);
      if (py::missing(name)) return false;
      out_.add(separator);
      py::within(py::step_to(key::name), [&] { out_.add_string(name); });
      owned type = py::read(state_, parameter, key::type);
      if (py::missing(type)) return true;
      out_.add(": ");
      py::within(py::step_to(key::type), [&] { out_.add_value(type); });
      return true;
    });
  }

  // The body, or the logic skeleton that stands in for one that is not given.
  void body() {
    owned snippet = py::read(state_, symbol_, key::snippet);
    if (py::missing(snippet)) return skeleton();
    add_line({key::snippet, "```\n", "\n```"}, std::move(snippet));
    owned cut = py::read(state_, symbol_, key::snippet_cut);
    if (py::missing(cut)) return;
    add_line({key::snippet_cut, "body cut: ", " more lines, to L"}, std::move(cut));
    field(key::end_line, "0");
  }

  void callees() {
    list(key::callees, "\ncalls (static): ", [&](handle entry, std::string_view separator) {
      out_.add(separator);
      out_.add_string(entry);
      return true;
    });
  }

  void related() {
    list(key::related, "\nrelated: ", [&](handle entry, std::string_view separator) {
      owned fqn = py::read(state_, py::expect_dict(entry), key::fqn);
      if (py::missing(fqn)) return false;
      out_.add(separator);
      py::within(py::step_to(key::fqn), [&] { out_.add_string(fqn); });
      return true;
    });
  }

  void has_tests() {
    if (!py::missing(py::read(state_, symbol_, key::has_tests))) out_.add("\nhas_tests: yes");
  }

 private:
  // The text form of a value, `otherwise` when its key is absent.
  void field(key which, text_view otherwise) {
    owned value = py::read(state_, symbol_, which);
    if (!value) return out_.add(otherwise);
    py::within(py::step_to(which), [&] { out_.add_value(value); });
  }

  void add_line(const plain_line& shape, owned value) {
    out_.add("\n");
    out_.add(shape.before);
    py::within(py::step_to(shape.which), [&] { out_.add_value(value); });
    out_.add(shape.after);
  }

  // The entries of an array in one line. `add` adds one after its separator, or says that it has
  // nothing to add; a line without entries is left out.
  template <class Add>
  void list(key which, std::string_view title, Add&& add) {
    const owned value = py::read(state_, symbol_, which);
    if (py::missing(value)) return;
    py::within(py::step_to(which), [&] {
      py::expect_array(value);
      bool any = false;
      for (std::size_t i = 0; const owned entry = py::new_ref(py::array_item(value, i)); ++i) {
        py::within(i, [&] { any |= add(entry, any ? ", " : title); });
      }
    });
  }

  void skeleton() {
    owned digest = py::read(state_, symbol_, key::body_digest);
    if (py::missing(digest)) return;
    const owned text =
        py::within(py::step_to(key::body_digest), [&] { return py::text_form(std::move(digest)); });
    add_skeleton(py::view_of(text), out_);
  }

  const module_state& state_;
  dict symbol_;
  text_builder& out_;
};

}  // namespace

owned render_symbol(const module_state& state, handle record) {
  text_builder text(text_range::basic);  // for the dash
  block_writer lines(state, record, text);
  lines.head();
  lines.line({key::signature, "signature: ", ""});
  lines.parameters();
  lines.line({key::docstring, "doc: ", ""});
  lines.line({key::fan_in, "fan-in: ", " references from production code outside this page"});
  lines.line({key::inside_refs, "inside this page: ", " references from its own files"});
  lines.line({key::neighbour_refs, "outside this page: its files reference it ", " times"});
  lines.body();
  lines.callees();
  lines.line({key::usage_example, "usage: ", ""});
  lines.related();
  lines.has_tests();
  return text.text();
}

}  // namespace grounding_fit
