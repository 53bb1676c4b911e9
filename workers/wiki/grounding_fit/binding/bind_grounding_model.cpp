#include "binding/function.hpp"

namespace grounding_fit {
namespace {

using host::arguments;
using host::handle;
using host::module_state;
using host::owned;
using host::within;

constexpr function k_section_budget_function = {
    R"(section_budget($module, /, type_id)
--

Return the SectionBudget of a page type; _DEFAULT_BUDGET for every type that has none of its own.

type_id: str, compared exactly. The same record at every call.)",
    [](const module_state& state, const arguments& given) {
      return host::share(find_policy(state, given[0]));
    }};

constexpr function k_seed = {
    R"(seed($module, /, path, start, end=0)
--

Return a citation seed over lines start to end: start alone when end is not greater.

path: str, not normalised. start, end: int line numbers, counted from 1.
Returns {'path', 'line_start', 'line_end'}, a dict in this order.)",
    [](const module_state& state, const arguments& given) {
      within("path", [&] { host::expect_text(given[0]); });
      within("start", [&] { host::expect_integer(given[1]); });
      const owned end = given[2] ? host::share(given[2]) : host::new_integer(0);
      within("end", [&] { host::expect_integer(end); });
      const bool later =
          host::integer::of(host::share(end)) > host::integer::of(host::share(given[1]));
      return make_seed(state, given[0], given[1], later ? handle(end) : given[1]);
    }};

// Calls `each` with every item of an iterable, gone through once, and its position.
template <class Each>
void for_each_item(const char* name, handle iterable, Each&& each) {
  if (host::kind_of(iterable) == host::kind::array) {
    const host::items items(iterable);
    for (std::size_t i = 0; i < items.size(); ++i) each(i, items[i]);
    return;
  }
  within(name, [&] { host::expect_iterable(iterable); });
  host::iteration items(iterable);
  std::size_t i = 0;
  for (owned item = items.next(); item; item = items.next()) each(i++, item);
}

constexpr function k_citable = {
    R"(citable($module, /, seeds)
--

Return the seeds that name real lines, those whose line_start reads as 1 or more.

seeds: any iterable of dicts, gone through once. Returns a new list of the same seeds.
Raises ValueError when a line_start cannot be read as an integer.)",
    [](const module_state& state, const arguments& given) {
      std::vector<owned> seeds;
      for_each_item("seeds", given[0], [&](std::size_t i, handle seed) {
        const bool real = within(host::place("seeds", i), [&] { return is_citable(state, seed); });
        if (real) seeds.push_back(host::share(seed));
      });
      return host::new_list(std::move(seeds));
    }};

constexpr function k_symbol_seeds = {
    R"(symbol_seeds($module, /, symbols)
--

Return a citation seed over each symbol's lines, for the symbols that have a file and a line.

symbols: list or tuple of symbol records. Calls the host's _norm once for each with a file.
Raises ValueError when a line or end_line cannot be read as an integer.)",
    [](const module_state& state, const arguments& given) {
      std::vector<owned> seeds;
      for_each_cited(state, array_records("symbols", given[0]),
                     [&](const symbol_lines& lines) { seeds.push_back(lines.seed(state)); });
      return host::new_list(std::move(seeds));
    }};

}  // namespace

void add_grounding_model(methods& table) {
  table.insert(table.end(), {entry<k_section_budget_function>::method(), entry<k_seed>::method(),
                             entry<k_citable>::method(), entry<k_symbol_seeds>::method()});
}

}  // namespace grounding_fit
