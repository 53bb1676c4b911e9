#include "grounding_model/records.hpp"

#include "grounding_model/policies.hpp"
#include "grounding_model/seeds.hpp"

namespace grounding_fit {

using py::handle;
using py::kind;
using py::module_object;
using py::module_state;
using py::owned;

// ---- typed looks --------------------------------------------------------------------------------

owned fact_block::label() const {
  if (!py::missing(name())) return py::new_ref(name());
  const text_view whole = py::view_of(text());
  const text_view line = whole.slice(0, whole.find('\n'));
  std::size_t start = 0;
  while (start < line.length() && (line[start] == '#' || line[start] == ' ')) ++start;
  std::size_t end = line.find(' ', start);
  while (end != text_view::npos && !(end + 1 < line.length() && line[end + 1] == '(')) {
    end = line.find(' ', end + 1);
  }
  const text_view heading = line.slice(start, end == text_view::npos ? end : end - start);
  const text_view pieces[] = {"the '", heading, "' block"};
  return py::new_text(pieces);
}

fact_blocks::fact_blocks(const module_state& state, grounding_parts parts) : items_(parts.prose()) {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    py::within(py::place("parts.prose", i),
               [&] { py::expect_record(state, k_fact_block, items_[i]); });
  }
}

owned fact_text(const fact_blocks& prose) {
  joined_texts texts(prose.size());
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const text_view text = py::view_of(prose[i].text());
    if (!text.empty()) texts.add(text);
  }
  return texts.text();
}

// ---- what a field can hold, and what stands in for one that is not given ------------------------

namespace {

void check_text(const module_state&, handle value) { py::expect_text(value); }

void check_sequence(const module_state&, handle value) { py::expect_array(value); }

void check_text_set(const module_state&, handle value) {
  if (py::is_set(value)) return;
  const bool convertible = py::kind_of(value) == kind::array;
  py::refuse(py::fault::type, "a set or frozenset", value, convertible ? "set(files)" : "");
}

void check_mapping(const module_state&, handle value) {
  if (py::kind_of(value) == kind::object || py::is_read_only_view(value)) return;
  py::refuse(py::fault::type, "a dict or mappingproxy", value);
}

void check_integer(const module_state&, handle value) { py::expect_integer(value); }

void check_number(const module_state&, handle value) {
  const kind what = py::kind_of(value);
  if (what != kind::real && what != kind::integer && what != kind::boolean) {
    py::refuse(py::fault::type, "a float or integer", value);
  }
}

void check_policy(const module_state& state, handle value) {
  py::expect_record(state, k_section_budget, value);
}

owned no_text(const module_state&) { return py::empty_text(); }
owned no_items(const module_state&) { return py::new_tuple({}); }
owned fresh_dict(const module_state&) { return py::new_dict(); }
owned default_floor(const module_state& state) {
  return py::new_ref(state[module_object::code_floor]);
}
owned shared_policy(const module_state& state) {
  return py::new_ref(state[module_object::default_policy]);
}
template <std::int64_t Value>
owned constant(const module_state&) {
  return py::new_integer(Value);
}

// ---- the fields, in the order of the typed looks ------------------------------------------------

constexpr py::field k_fact_block_fields[] = {
    {"text", check_text, nullptr,
     "What the block puts into the grounding (str), usually under a Markdown heading."},
    {"seeds", check_sequence, no_items,
     "The lines that the text rests on (list or tuple of seeds), citable or not."},
    {"name", check_text, no_text,
     "What a note calls the block when it is left out (str); empty: its heading."},
    {"key", check_text, no_text,
     "What kind of block it is to a policy (str): README, DIGEST, DOCUMENT, or any other."}};

constexpr py::field k_grounding_parts_fields[] = {
    {"prose", check_sequence, nullptr,
     "The fact blocks in reading order (list or tuple of FactBlock)."},
    {"blocks", check_sequence, nullptr,
     "Pairs of a symbol block's text and its symbol record, best first (list or tuple)."},
    {"files", check_text_set, nullptr,
     "Paths of the files behind the fact blocks (set or frozenset)."},
    {"code_floor", check_number, default_floor,
     "The fraction of a capped answer's room held free for code while facts are chosen (float or "
     "int)."},
    {"budget", check_policy, shared_policy, "The policy of the page's type (SectionBudget)."}};

constexpr py::field k_section_budget_fields[] = {
    {"readme_chars", check_integer, constant<k_readme_chars>,
     "How much of the README the host quotes, in code points (int)."},
    {"first", check_sequence, no_items,
     "Keys of the blocks that stay whatever else must go (list or tuple of str)."},
    {"shares", check_mapping, fresh_dict,
     "By block key, what part of the room all blocks of that key may cost (dict or mappingproxy of "
     "float). A key that is absent has no limit. It stays the caller's own; treat it as "
     "read-only."},
    {"document_chars", check_integer, constant<0>,
     "How much of the page's own documents the host quotes in all, in code points (int)."}};

constexpr py::computed k_label = {
    "label", "FactBlock.label", false,
    R"(label($self, /)
--

Return how a note names the block when it is left out: its name, else its heading.

Without a name it is "the 'HEADING' block": the text's first line without leading '#' and
spaces, cut before the first ' ('.)",
    [](const module_state&, handle record) { return fact_block{record}.label(); }};

constexpr py::computed k_seeds = {
    "seeds", "GroundingParts.seeds", true,
    R"(The citable seeds of every fact block, in order: a new list at every reading.

Raises ValueError when a seed's line_start cannot be read as an integer.)",
    [](const module_state& state, handle record) {
      std::vector<owned> seeds;
      add_citable(state, fact_blocks(state, {record}), seeds);
      return py::new_list(std::move(seeds));
    }};

}  // namespace

// ---- the shapes ---------------------------------------------------------------------------------

constinit const py::record_shape k_fact_block = {"grounding_fit.FactBlock",
                                                 R"(FactBlock(text, seeds=(), name='', key='')
--

Prose for a page's writer, with the citation seeds behind it.

Immutable and positional: it unpacks, iterates and indexes as its four fields.)",
                                                 module_object::fact_block_type,
                                                 true,
                                                 k_fact_block_fields,
                                                 &k_label};

constinit const py::record_shape k_grounding_parts = {
    "grounding_fit.GroundingParts",
    R"(GroundingParts(prose, blocks, files, code_floor=0.35, budget=...)
--

All that was gathered for a page, before anything is cut.

Immutable; the sequences stay the caller's own. Without a budget it has the very
_DEFAULT_BUDGET.)",
    module_object::grounding_parts_type,
    false,
    k_grounding_parts_fields,
    &k_seeds};

constinit const py::record_shape k_section_budget = {
    "grounding_fit.SectionBudget",
    R"(SectionBudget(readme_chars=4000, first=(), shares={}, document_chars=0)
--

The policy of a page type: what the host quotes, and which blocks always stay.

Immutable; sizes in code points. Without shares it has a new empty dict of its own; treat the
dict as read-only. Of a record that the module shares, shares are a mappingproxy.)",
    module_object::section_budget_type,
    false,
    k_section_budget_fields,
    nullptr};

void add_record_types(module_state& state, handle module) {
  py::add_record_type<k_fact_block>(state, module);
  py::add_record_type<k_grounding_parts>(state, module);
  py::add_record_type<k_section_budget>(state, module);
}

}  // namespace grounding_fit
