#include "symbol_rendering/render_symbol.hpp"

#include "python/object_values.hpp"
#include "symbol_rendering/listing.hpp"

namespace grounding_fit {

using py::handle;
using py::key;
using py::module_state;
using py::owned;

namespace {

// Adds the first lines of a logic skeleton, fenced, and how many more it has.
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

// Writes text forms of a symbol's values. A value is read when it is written: the text form of one
// before it may have changed the record.
class value_writer {
 protected:
  value_writer(const module_state& state, handle record)
      : state_(state), record_(py::expect_dict(record)), symbol_(state, record_) {}

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

  template <std::size_t Before, std::size_t After>
  void add_line(key which, handle value, const char16_t (&before)[Before],
                const char16_t (&after)[After]) {
    out_.add(before);
    add_value(which, value);
    out_.add(after);
  }

  // The entries of an array in one line. `add` calls the function that it is given before it adds
  // an entry; a line without entries is left out.
  template <std::size_t Title, class Add>
  void list(key which, const char16_t (&title)[Title], Add&& add) {
    const owned value = py::new_ref(symbol_[which]);
    if (py::missing(value)) return;
    bool any = false;
    const auto separate = [&] {
      if (std::exchange(any, true)) return out_.add(u", ");
      out_.add(title);
    };
    py::within(which, [&] {
      py::expect_array(value);
      for (std::size_t i = 0; const owned entry = py::new_ref(py::array_item(value, i)); ++i) {
        py::within(i, [&] { add(entry, separate); });
      }
    });
  }

  const module_state& state_;
  py::dict record_;
  py::object_values<key::fqn, key::has_tests> symbol_;
  text_builder out_{text_range::basic};  // for the dash
};

// Writes the lines of one symbol block, each in the order in which the rules read its keys.
class block_writer : private value_writer {
 public:
  block_writer(const module_state& state, handle record) : value_writer(state, record) {}

  void head() {
    const owned file = file_name();
    out_.add(u"### ");
    field(key::fqn, "");
    out_.add(u" (");
    field(key::kind, "");
    out_.add(k_dash);
    py::within(py::place(py::step_to(key::file), "result of _norm"), [&] { out_.add_value(file); });
    out_.add(u":L");
    field(key::line, "0");
  }

  // A line that is there when its value is, with what comes before and after the value's text form.
  template <std::size_t Before, std::size_t After = 1>
  void line(key which, const char16_t (&before)[Before], const char16_t (&after)[After] = u"") {
    const handle value = symbol_[which];
    if (!py::missing(value)) add_line(which, value, before, after);
  }

  // "params: name: type, name"; no line when no entry has a name.
  void parameters() {
    list(key::parameters, u"\nparams: ", [&](handle entry, auto&& separate) {
      py::object_values<key::name, key::type> parameter(state_, py::expect_dict(entry));
      const handle name = parameter[key::name];
      if (!parameter.read_by_walk()) symbol_.reread();
      if (py::missing(name)) return;
      separate();
      py::within(key::name, [&] { out_.add_string(name); });
      const handle type = parameter[key::type];
      if (py::missing(type)) return;
      out_.add(u": ");
      add_value(key::type, type);
    });
  }

  // The body, or the logic skeleton in its place where there is no body.
  void body() {
    const handle snippet = symbol_[key::snippet];
    if (py::missing(snippet)) return skeleton();
    add_line(key::snippet, snippet, u"\n```\n", u"\n```");
    const handle cut = symbol_[key::snippet_cut];
    if (py::missing(cut)) return;
    add_line(key::snippet_cut, cut, u"\nbody cut: ", u" more lines, to L");
    field(key::end_line, "0");
  }

  void callees() {
    list(key::callees, u"\ncalls (static): ", [&](handle entry, auto&& separate) {
      separate();
      out_.add_string(entry);
    });
  }

  void related() {
    list(key::related, u"\nrelated: ", [&](handle entry, auto&& separate) {
      py::object_values<key::fqn, key::fqn> symbol(state_, py::expect_dict(entry));
      const handle fqn = symbol[key::fqn];
      if (!symbol.read_by_walk()) symbol_.reread();
      if (py::missing(fqn)) return;
      separate();
      py::within(key::fqn, [&] { out_.add_string(fqn); });
    });
  }

  void has_tests() {
    if (!py::missing(symbol_[key::has_tests])) out_.add(u"\nhas_tests: yes");
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

  void skeleton() {
    if (py::missing(symbol_[key::body_digest])) return;
    const owned digest = symbol_.text_form(key::body_digest);
    add_skeleton(py::view_of(digest), out_);
  }
};

}  // namespace

owned render_symbol(const module_state& state, handle record) {
  block_writer block(state, record);
  block.head();
  block.line(key::signature, u"\nsignature: ");
  block.parameters();
  block.line(key::docstring, u"\ndoc: ");
  block.line(key::fan_in, u"\nfan-in: ", u" references from production code outside this page");
  block.line(key::inside_refs, u"\ninside this page: ", u" references from its own files");
  block.line(key::neighbour_refs, u"\noutside this page: its files reference it ", u" times");
  block.body();
  block.callees();
  block.line(key::usage_example, u"\nusage: ");
  block.related();
  block.has_tests();
  return block.text();
}

}  // namespace grounding_fit
