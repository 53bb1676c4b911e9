#include "binding/binding.hpp"
#include "python/make.hpp"
#include "symbol_rendering/listing.hpp"
#include "symbol_rendering/render_symbol.hpp"

namespace grounding_fit {
namespace {

using py::arguments;
using py::module_state;

constexpr function k_render_symbol = {
    R"(render_symbol($module, /, sym)
--

Return the text of one symbol block: a head line, then what is known of the symbol.

sym: symbol record (dict). Calls the host's _norm once. No line feed ends the text.
Raises TypeError for a parameter, callee or related symbol of the wrong type.)",
    [](const module_state& state, const arguments& args) {
      return py::within("sym", [&] { return render_symbol(state, args[0]); });
    }};

constexpr function k_listed = {
    R"(_listed($module, /, sym)
--

Return the line that lists one symbol: name, kind, file, lines, and up to 80 code points more.

sym: symbol record (dict). Calls the host's _norm once.
Raises ValueError when line or end_line cannot be read as an integer.)",
    [](const module_state& state, const arguments& args) {
      path_names norm(state, path_names::asking::every_time);
      const auto line = py::within("sym", [&] { return listed_line(state, args[0], norm); });
      text_builder text;
      line.write(text);
      return text.text();
    }};

constexpr function k_listing = {
    R"(_listing($module, /, symbols)
--

Return the heading _LISTED_HEADING and one listed line a symbol; '' for no symbols or None.

symbols: list or tuple of symbol records, all of which are listed.)",
    [](const module_state& state, const arguments& args) {
      if (py::kind_of(args[0]) == py::kind::null) return py::empty_text();
      const std::vector<symbol_block> records = expect_records("symbols", args[0]);
      return make_listing(state, symbol_records(records, "symbols"), records.size());
    }};

}  // namespace

void add_symbol_rendering(methods& table) {
  table.insert(table.end(), {entry<k_render_symbol>::method(), entry<k_listed>::method(),
                             entry<k_listing>::method()});
}

}  // namespace grounding_fit
