#include "symbol_rendering/render_symbol.hpp"

#include "python/object_values.hpp"
#include "symbol_rendering/listing.hpp"

namespace grounding_fit {

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
  std::size_t end = digest.length();
  for (std::size_t at = digest.find('\n'); at != text_view::npos; at = digest.find('\n', at + 1)) {
    if (lines++ == k_skeleton_lines) end = at;
  }
  out.add("\nlogic skeleton:\n```\n");
  out.add(digest.slice(0, end));
  if (lines > k_skeleton_lines) {
    out.add("\n... (");
    out.add_number(static_cast<std::int64_t>(lines - k_skeleton_lines));
    out.add(" more)");
  }
  out.add("\n```");
}

// Writes the lines of one symbol block, each in the order in which the rules read its keys.
class block_writer {
 public:
  block_writer(const module_state& state, handle record)
      : state_(state), record_(py::expect_dict(record)), symbol_(state, record_) {}

  void head() {
    const owned file = file_name();
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
    const handle value = symbol_[shape.which];
    if (!py::missing(value)) add_line(shape, value);
  }

  // "params: name: type, name"; no line when no entry has a name.
  void parameters() {
    list(key::parameters, "\nparams: ", [&](handle entry, std::string_view separator) {
      py::object_values<key::name, key::type> parameter(state_, py::expect_dict(entry));
      const handle name = parameter[key::name];
      if (!parameter.plain()) symbol_.reread();
      if (py::missing(name)) return false;
      out_.add(separator);
      py::within(key::name, [&] { out_.add_string(name); });
      const handle type = parameter[key::type];
      if (py::missing(type)) return true;
      out_.add(": ");
      add_value(key::type, type);
      return true;
    });
  }

  // The body, or the logic skeleton in its place where there is no body.
  void body() {
    const handle snippet = symbol_[key::snippet];
    if (py::missing(snippet)) return skeleton();
    add_line({key::snippet, "\n```\n", "\n```"}, snippet);
    const handle cut = symbol_[key::snippet_cut];
    if (py::missing(cut)) return;
    add_line({key::snippet_cut, "\nbody cut: ", " more lines, to L"}, cut);
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
      py::object_values<key::fqn, key::fqn> symbol(state_, py::expect_dict(entry));
      const handle fqn = symbol[key::fqn];
      if (!symbol.plain()) symbol_.reread();
      if (py::missing(fqn)) return false;
      out_.add(separator);
      py::within(key::fqn, [&] { out_.add_string(fqn); });
      return true;
    });
  }

  void has_tests() {
    if (!py::missing(symbol_[key::has_tests])) out_.add("\nhas_tests: yes");
  }

  owned text() const { return out_.text(); }

 private:
  // Whatever the host's _norm gives. It comes first, and what it changes of the record shows in all
  // that is read later.
  owned file_name() {
    owned file = py::read(state_, record_, key::file);
    path_names norm(state_, path_names::asking::every_time);
    return py::within(
        key::file, [&] { return norm(file ? py::text_form(std::move(file)) : py::empty_text()); });
  }

  void add_value(key which, handle value) {
    symbol_.reread_after(value);
    py::within(which, [&] { out_.add_value(value); });
  }

  // The text form of a value, `otherwise` when its key is absent.
  void field(key which, text_view otherwise) {
    const handle value = symbol_[which];
    if (!value) return out_.add(otherwise);
    add_value(which, value);
  }

  void add_line(const plain_line& shape, handle value) {
    out_.add(shape.before);
    add_value(shape.which, value);
    if (!shape.after.empty()) out_.add(shape.after);
  }

  // The entries of an array in one line. `add` adds one after its separator, or says that it has
  // nothing to add; a line without entries is left out.
  template <class Add>
  void list(key which, std::string_view title, Add&& add) {
    const owned value = py::new_ref(symbol_[which]);
    if (py::missing(value)) return;
    py::within(which, [&] {
      py::expect_array(value);
      bool any = false;
      for (std::size_t i = 0; const owned entry = py::new_ref(py::array_item(value, i)); ++i) {
        py::within(i, [&] { any |= add(entry, any ? ", " : title); });
      }
    });
  }

  void skeleton() {
    if (py::missing(symbol_[key::body_digest])) return;
    const owned digest = symbol_.text_form(key::body_digest);
    add_skeleton(py::view_of(digest), out_);
  }

  const module_state& state_;
  py::dict record_;
  py::object_values<key::fqn, key::has_tests> symbol_;
  text_builder out_{text_range::basic};  // for the dash
};

}  // namespace

owned render_symbol(const module_state& state, handle record) {
  block_writer block(state, record);
  block.head();
  block.line({key::signature, "\nsignature: ", ""});
  block.parameters();
  block.line({key::docstring, "\ndoc: ", ""});
  block.line({key::fan_in, "\nfan-in: ", " references from production code outside this page"});
  block.line({key::inside_refs, "\ninside this page: ", " references from its own files"});
  block.line({key::neighbour_refs, "\noutside this page: its files reference it ", " times"});
  block.body();
  block.callees();
  block.line({key::usage_example, "\nusage: ", ""});
  block.related();
  block.has_tests();
  return block.text();
}

}  // namespace grounding_fit
