#include "answer_capping/decide.hpp"
#include "binding/binding.hpp"
#include "python/call.hpp"
#include "python/make.hpp"

namespace grounding_fit {
namespace {

using py::arguments;
using py::handle;
using py::module_state;
using py::owned;
using py::within;

constexpr function k_json_size = {
    R"(_json_size($module, /, value)
--

Return the length of a value's JSON text in code points, without making the text.

The same as len(json.dumps(value, ensure_ascii=False)), but keys must be strings. Raises
TypeError for what JSON has no form for, RecursionError for nesting too deep or in a cycle.)",
    [](const module_state&, const arguments& args) {
      return within("value", [&] { return py::new_integer(json_meter().size_of(args[0])); });
    }};

constexpr function k_cap_note = {
    R"(_cap_note($module, /, left_out, ask=False)
--

Return the `truncated` note of a capped answer: six items by name, the others counted.

left_out: list or tuple of str. ask: whether the note asks the agent to fetch what it needs.)",
    [](const module_state&, const arguments& args) {
      const py::items items = expect_items("left_out", args[0]);
      std::vector<note_item> named;
      for (std::size_t i = 0; i < items.size(); ++i) {
        const text_view item = py::view_of(expect_text_at("left_out", items, i));
        if (i < k_note_items) named.emplace_back(item);
      }
      const bool ask = args[1] && py::truth(args[1]);
      return cap_note(named, items.size(), ask ? note_end::ask : note_end::plain);
    }};

constexpr function k_code_cut = {
    R"(_code_cut($module, /, kept, listed, total)
--

Return the note item that counts the symbol blocks left without their body: a list of 0 or 1 str.

kept: int, blocks with a body. listed: int, others listed by a line. total: int, all blocks.)",
    [](const module_state&, const arguments& args) {
      const std::int64_t kept = expect_int64("kept", args[0]);
      const std::int64_t listed = expect_int64("listed", args[1]);
      owned item = code_cut(kept, listed, expect_int64("total", args[2]));
      std::vector<owned> items;
      if (item) items.push_back(std::move(item));
      return py::new_list(std::move(items));
    }};

constexpr function k_most = {
    R"(_most($module, /, high, fits)
--

Return the largest count from 0 to high for which fits(count) is true, found by bisection.

high: int; 0 or less gives 0. fits: callable, true for every count below one it is true for;
never called with 0.)",
    [](const module_state&, const arguments& args) {
      const std::int64_t high = expect_int64("high", args[0]);
      return py::new_integer(most(high, [&](std::int64_t count) {
        within("fits", [&] { py::expect_callable(args[1]); });
        return py::truth(py::call(args[1], py::new_integer(count)));
      }));
    }};

// Answers that the caller of _fit_prose measures: by its `size`, which gets a list of its own every
// time.
class callers_candidate final : public candidate {
 public:
  callers_candidate(handle size, handle total, const fact_blocks& prose)
      : size_(size), total_(total), prose_(prose), none_(py::new_integer(0)) {}

  std::int64_t size_of(std::span<const std::size_t> facts, bodies show, size_limit) override {
    const handle count = show == bodies::within_tokens ? total_ : handle(none_);
    return expect_int64("result of size", py::call(size_, list_of(facts), count));
  }
  std::int64_t size_with(std::size_t fact, size_limit limit) override {
    kept_.push_back(fact);  // for as long as it is measured
    const std::int64_t size = size_of(kept_, bodies::none, limit);
    kept_.pop_back();
    return size;
  }
  void keep(std::size_t fact) override { kept_.push_back(fact); }
  owned kept() const { return list_of(kept_); }

 private:
  owned list_of(std::span<const std::size_t> facts) const {
    std::vector<owned> blocks;
    blocks.reserve(facts.size());
    for (const std::size_t fact : facts) blocks.push_back(py::new_ref(prose_[fact].record));
    return py::new_list(std::move(blocks));
  }

  handle size_, total_;
  const fact_blocks& prose_;
  owned none_;
  std::vector<std::size_t> kept_;
};

constexpr function k_fit_prose = {
    R"(_fit_prose($module, /, parts, size, total)
--

Return (kept, labels): the fact blocks a capped answer keeps, and the names of the others.

parts: GroundingParts. size: callable(blocks, count) giving the JSON characters of an answer
with those fact blocks and count bodies, or with total of them. total: handed on to size as it is.
Raises ValueError when the code_floor's product with the room is not finite.)",
    [](const module_state& state, const arguments& args) {
      const grounding_parts parts = expect_parts(state, args[0]);
      within("size", [&] { py::expect_callable(args[1]); });
      const fact_blocks prose(state, parts);
      json_meter meter;
      page_facts facts(state, prose, meter);
      callers_candidate answer(args[1], args[2], prose);
      const fact_choice chosen = choose_facts(state, parts, facts, answer, measuring::all);

      std::vector<owned> labels;
      for (std::size_t i = 0; i < prose.size(); ++i) {
        if (!stays(chosen.facts[i].verdict)) labels.push_back(prose[i].label());
      }
      return py::tuple_of(answer.kept(), py::new_list(std::move(labels)));
    }};

page_fit fit_arguments(const module_state& state, const arguments& args, measuring how) {
  const grounding_parts parts = expect_parts(state, args[1]);
  within("result", [&] { py::expect_dict(args[0]); });
  return fit_page_context(state, args[0], parts, expect_int64("budget", args[2]), how);
}

constexpr function k_fit_page_context = {
    R"(_fit_page_context($module, /, result, parts, budget)
--

Return a page_context answer of at most _PAGE_CONTEXT_MAX_CHARS JSON characters.

result: the answer (dict), given back itself when it fits. parts: GroundingParts of the page.
budget: int, the page's budget in tokens. A capped answer is a new dict whose `truncated` says
what was left out; it is over the cap only when that still is too large without any code.
Raises KeyError('page_id') when a prior_markdown must go and the answer has no page_id.)",
    [](const module_state& state, const arguments& args) {
      return std::move(fit_arguments(state, args, measuring::as_needed).answer);
    }};

constexpr function k_explain_page_context = {
    R"(explain_page_context($module, /, result, parts, budget)
--

Return (answer, report): what _fit_page_context gives, and every decision that made it.

Takes, raises and asks of the host what _fit_page_context does. The report is a dict that JSON can
hold, its sizes in JSON characters: the outcome, the room and what of it was kept for code, for
every fact block its verdict and by how much it fell short, what stopped the bodies, and what the
note took off. docs/fitting.md shows how to read one.)",
    [](const module_state& state, const arguments& args) {
      page_fit fit = fit_arguments(state, args, measuring::all);
      owned report = report_of(fit);
      return py::tuple_of(std::move(fit.answer), std::move(report));
    }};

}  // namespace

void add_answer_capping(methods& table) {
  table.insert(table.end(),
               {entry<k_json_size>::method(), entry<k_cap_note>::method(),
                entry<k_code_cut>::method(), entry<k_most>::method(), entry<k_fit_prose>::method(),
                entry<k_fit_page_context>::method(), entry<k_explain_page_context>::method()});
}

}  // namespace grounding_fit
