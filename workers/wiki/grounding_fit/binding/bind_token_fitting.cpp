#include "binding/binding.hpp"
#include "python/make.hpp"
#include "token_fitting/grounding_assembly.hpp"

namespace grounding_fit {
namespace {

using py::arguments;
using py::module_state;
using py::owned;

constexpr function k_assemble_blocks = {
    R"(_assemble_blocks($module, /, blocks, budget)
--

Return the blocks, from the first on, that a token budget keeps whole; the first one always.

blocks: list or tuple of str, best first. budget: int, in tokens. Returns a new list.
Calls the host's estimate_tokens for each block up to the first that does not fit.)",
    [](const module_state& state, const arguments& args) {
      const py::items blocks = expect_items("blocks", args[0]);
      const std::int64_t budget = expect_int64("budget", args[1]);
      const auto text_of = [&](std::size_t i) { return expect_text_at("blocks", blocks, i); };
      const whole_blocks kept = keep_whole(state, blocks.size(), budget, text_of);
      std::vector<owned> result;
      for (std::size_t i = 0; i < kept.count; ++i) result.push_back(py::new_ref(blocks[i]));
      return py::new_list(std::move(result));
    }};

constexpr function k_blocks_within = {
    R"(_blocks_within($module, /, parts, budget)
--

Return how many symbol blocks of a GroundingParts a page's token budget keeps whole (int).

budget: int, in tokens. The code has _SYM_BUDGET_FLOOR of it, or what the fact text leaves.)",
    [](const module_state& state, const arguments& args) {
      const grounding_parts parts = expect_parts(state, args[0]);
      const std::int64_t budget = expect_int64("budget", args[1]);
      const owned text = fact_text(fact_blocks(state, parts));
      const token_split code = split_tokens(state, text, budget);
      const whole_blocks kept = keep_whole(state, symbol_blocks_of(parts), code.code);
      return py::new_unsigned(kept.count);
    }};

owned tuple_of(assembled_grounding& made) {
  return py::tuple_of(std::move(made.text), std::move(made.symbols), std::move(made.files),
                      std::move(made.seeds));
}

constexpr function k_assemble_grounding = {
    R"(_assemble_grounding($module, /, parts, budget)
--

Return (grounding, symbols, files, seeds): a page's grounding fitted to its token budget.

parts: GroundingParts. budget: int, in tokens. The grounding is the fact text, cut by the host's
_truncate_to_tokens, the whole symbol blocks and the listing; the names, sorted files and seeds
are those of every symbol block, kept or not. The first block, the listing and blank lines may
take the text past its budget.)",
    [](const module_state& state, const arguments& args) {
      const grounding_parts parts = expect_parts(state, args[0]);
      assembled_grounding made = assemble_grounding(state, parts, expect_int64("budget", args[1]));
      return tuple_of(made);
    }};

constexpr function k_explain_grounding = {
    R"(explain_grounding($module, /, parts, budget)
--

Return (grounding, report): the tuple of _assemble_grounding, and every decision that made it.

Takes and raises what _assemble_grounding does, and asks the host for two estimates more: of the
cut fact text and of the finished text. The report is a dict that JSON can hold, its sizes in
tokens. docs/fitting.md shows how to read one.)",
    [](const module_state& state, const arguments& args) {
      const grounding_parts parts = expect_parts(state, args[0]);
      const std::int64_t budget = expect_int64("budget", args[1]);
      assembled_grounding made = assemble_grounding(state, parts, budget);
      owned report = report_of(state, made, budget);
      return py::tuple_of(tuple_of(made), std::move(report));
    }};

}  // namespace

void add_token_fitting(methods& table) {
  table.insert(table.end(),
               {entry<k_assemble_blocks>::method(), entry<k_blocks_within>::method(),
                entry<k_assemble_grounding>::method(), entry<k_explain_grounding>::method()});
}

}  // namespace grounding_fit
