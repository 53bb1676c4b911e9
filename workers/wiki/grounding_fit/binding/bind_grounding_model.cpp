#include "binding/binding.hpp"
#include "grounding_model/policies.hpp"
#include "grounding_model/seeds.hpp"
#include "python/make.hpp"

namespace grounding_fit {
namespace {

using py::arguments;
using py::handle;
using py::module_state;
using py::owned;
using py::within;

constexpr function k_section_budget_function = {
    R"(section_budget($module, /, type_id)
--

Return the SectionBudget of a page type; _DEFAULT_BUDGET for every type that has none of its own.

type_id: str, compared exactly. The same record at every call.)",
    [](const module_state& state, const arguments& args) {
      return py::new_ref(find_policy(state, args[0]));
    }};

constexpr function k_seed = {
    R"(seed($module, /, path, start, end=0)
--

Return a citation seed over lines start to end: start alone when end is not greater.

path: str, not normalised. start, end: int line numbers, counted from 1.
Returns {'path', 'line_start', 'line_end'}, a dict in this order.)",
    [](const module_state& state, const arguments& args) {
      within("path", [&] { py::expect_text(args[0]); });
      within("start", [&] { py::expect_integer(args[1]); });
      const owned end = args[2] ? py::new_ref(args[2]) : py::new_integer(0);
      within("end", [&] { py::expect_integer(end); });
      const bool later = py::integer::of(py::new_ref(end)) > py::integer::of(py::new_ref(args[1]));
      return make_seed(state, args[0], args[1], later ? handle(end) : args[1]);
    }};

// Calls `each` with every item of an iterable, gone through once, and its position.
template <class Each>
void for_each_item(const char* name, handle iterable, Each&& each) {
  if (py::kind_of(iterable) == py::kind::array) {
    const py::items items(iterable);
    for (std::size_t i = 0; i < items.size(); ++i) each(i, items[i]);
    return;
  }
  py::iteration items = within(name, [&] { return py::iteration(iterable); });
  for (std::size_t i = 0; const owned item = items.next(); ++i) each(i, item);
}

constexpr function k_citable = {
    R"(citable($module, /, seeds)
--

Return the seeds that name real lines, those whose line_start reads as 1 or more.

seeds: any iterable of dicts, gone through once. Returns a new list of the same seeds.
Raises ValueError when a line_start cannot be read as an integer.)",
    [](const module_state& state, const arguments& args) {
      std::vector<owned> seeds;
      for_each_item("seeds", args[0], [&](std::size_t i, handle seed) {
        const bool real = within(py::place("seeds", i), [&] { return is_citable(state, seed); });
        if (real) seeds.push_back(py::new_ref(seed));
      });
      return py::new_list(std::move(seeds));
    }};

constexpr function k_symbol_seeds = {
    R"(symbol_seeds($module, /, symbols)
--

Return a citation seed over each symbol's lines, for the symbols that have a file and a line.

symbols: list or tuple of symbol records. Calls the host's _norm once for each with a file.
Raises ValueError when a line or end_line cannot be read as an integer.)",
    [](const module_state& state, const arguments& args) {
      std::vector<owned> seeds;
      const std::vector<symbol_block> records = expect_records("symbols", args[0]);
      for_each_cited(state, symbol_records(records, "symbols"),
                     [&](const symbol_lines& lines) { seeds.push_back(lines.seed(state)); });
      return py::new_list(std::move(seeds));
    }};

}  // namespace

void add_grounding_model(methods& table) {
  table.insert(table.end(), {entry<k_section_budget_function>::method(), entry<k_seed>::method(),
                             entry<k_citable>::method(), entry<k_symbol_seeds>::method()});
}

}  // namespace grounding_fit
