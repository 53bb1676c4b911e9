#include "grounding_model/records.hpp"

#include "grounding_model/policies.hpp"
#include "grounding_model/seeds.hpp"

namespace grounding_fit {

using host::handle;
using host::kept;
using host::kind;
using host::module_state;
using host::owned;

// ---- typed looks --------------------------------------------------------------------------------

owned fact_block::label() const {
  if (!host::missing(name())) return host::share(name());
  const text_view whole = host::view_of(text());
  const text_view line = whole.slice(0, whole.find('\n'));
  std::size_t start = 0;
  while (start < line.length() && (line[start] == '#' || line[start] == ' ')) ++start;
  std::size_t end = line.find(' ', start);
  while (end != text_view::npos && !(end + 1 < line.length() && line[end + 1] == '(')) {
    end = line.find(' ', end + 1);
  }
  pieces label;
  label.add("the '");
  label.add(line.slice(start, end == text_view::npos ? end : end - start));
  label.add("' block");
  return label.text();
}

fact_blocks::fact_blocks(const module_state& state, grounding_parts parts) : items_(parts.prose()) {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    host::within(host::place("parts.prose", i),
                 [&] { host::expect_record(state, k_fact_block, items_[i]); });
  }
}

owned joined_by_blank_lines(std::span<const text_view> texts) {
  pieces all;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) all.add("\n\n");
    all.add(texts[i]);
  }
  return all.text();
}

owned fact_text(const fact_blocks& prose) {
  std::vector<text_view> texts;
  texts.reserve(prose.size());
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const text_view text = host::view_of(prose[i].text());
    if (!text.empty()) texts.push_back(text);
  }
  return joined_by_blank_lines(texts);
}

// ---- what a field can hold, and what stands in for one that is not given ------------------------

namespace {

void text(const module_state&, handle value) { host::expect_text(value); }

void sequence(const module_state&, handle value) {
  if (host::kind_of(value) != kind::array)
    host::refuse(host::fault::type, "a list or tuple", value);
}

void text_set(const module_state&, handle value) {
  if (host::is_set(value)) return;
  const bool convertible = host::kind_of(value) == kind::array;
  host::refuse(host::fault::type, "a set or frozenset", value, convertible ? "set(files)" : "");
}

void mapping(const module_state&, handle value) {
  if (host::kind_of(value) == kind::object || host::is_read_only_view(value)) return;
  host::refuse(host::fault::type, "a dict or mappingproxy", value);
}

void integer(const module_state&, handle value) { host::expect_integer(value); }

void number(const module_state&, handle value) {
  const kind what = host::kind_of(value);
  if (what != kind::real && what != kind::integer && what != kind::boolean) {
    host::refuse(host::fault::type, "a float or integer", value);
  }
}

void policy(const module_state& state, handle value) {
  host::expect_record(state, k_section_budget, value);
}

owned no_text(const module_state&) { return host::empty_text(); }
owned no_items(const module_state&) { return host::new_tuple({}); }
owned fresh_dict(const module_state&) { return host::new_dict(); }
owned default_floor(const module_state& state) { return host::share(state[kept::code_floor]); }
owned default_policy(const module_state& state) { return host::share(state[kept::default_policy]); }
template <std::int64_t Value>
owned constant(const module_state&) {
  return host::new_integer(Value);
}

// ---- the fields, in the order of the typed looks ------------------------------------------------

constexpr host::field k_fact_block_fields[] = {
    {"text", text, nullptr,
     "What the block puts into the grounding (str), usually under a Markdown heading."},
    {"seeds", sequence, no_items,
     "The lines that the text rests on (list or tuple of seeds), citable or not."},
    {"name", text, no_text,
     "What a note calls the block when it is left out (str); empty: its heading."},
    {"key", text, no_text,
     "What kind of block it is to a policy (str): README, DIGEST, DOCUMENT, or any other."}};

constexpr host::field k_grounding_parts_fields[] = {
    {"prose", sequence, nullptr, "The fact blocks in reading order (list or tuple of FactBlock)."},
    {"blocks", sequence, nullptr,
     "Pairs of a symbol block's text and its symbol record, best first (list or tuple)."},
    {"files", text_set, nullptr, "Paths of the files behind the fact blocks (set or frozenset)."},
    {"code_floor", number, default_floor,
     "The fraction of a capped answer's room that code can count on (float or int)."},
    {"budget", policy, default_policy, "The policy of the page's type (SectionBudget)."}};

constexpr host::field k_section_budget_fields[] = {
    {"readme_chars", integer, constant<k_readme_chars>,
     "How much of the README the host quotes, in code points (int)."},
    {"first", sequence, no_items,
     "Keys of the blocks that stay whatever else must go (list or tuple of str)."},
    {"shares", mapping, fresh_dict,
     "By block key, what part of the room all blocks of that key may cost (dict or mappingproxy of "
     "float). A key that is absent has no limit. It stays the caller's own; treat it as "
     "read-only."},
    {"document_chars", integer, constant<0>,
     "How much of the page's own documents the host quotes in all, in code points (int)."}};

constexpr host::computed k_label = {
    "label", "FactBlock.label", false,
    R"(label($self, /)
--

Return how a note names the block when it is left out: its name, else its heading.

Without a name it is "the 'HEADING' block": the text's first line without leading '#' and
spaces, cut before the first ' ('.)",
    [](const module_state&, handle record) { return fact_block{record}.label(); }};

constexpr host::computed k_seeds = {
    "seeds", "GroundingParts.seeds", true,
    R"(The citable seeds of every fact block, in order: a new list at every reading.

Raises ValueError when a seed's line_start cannot be read as an integer.)",
    [](const module_state& state, handle record) {
      std::vector<owned> seeds;
      add_citable(state, fact_blocks(state, {record}), seeds);
      return host::new_list(std::move(seeds));
    }};

}  // namespace

// ---- the shapes ---------------------------------------------------------------------------------

constinit const host::record_shape k_fact_block = {"grounding_fit.FactBlock",
                                                   R"(FactBlock(text, seeds=(), name='', key='')
--

Prose for a page's writer, with the citation seeds behind it.

Immutable and positional: it unpacks, iterates and indexes as its four fields.)",
                                                   kept::fact_block_type,
                                                   true,
                                                   k_fact_block_fields,
                                                   &k_label};

constinit const host::record_shape k_grounding_parts = {
    "grounding_fit.GroundingParts",
    R"(GroundingParts(prose, blocks, files, code_floor=_SYM_BUDGET_FLOOR, budget=_DEFAULT_BUDGET)
--

All that was gathered for a page, before anything is cut.

Immutable; the sequences stay the caller's own. Without a budget it has the very
_DEFAULT_BUDGET.)",
    kept::grounding_parts_type,
    false,
    k_grounding_parts_fields,
    &k_seeds};

constinit const host::record_shape k_section_budget = {
    "grounding_fit.SectionBudget",
    R"(SectionBudget(readme_chars=4000, first=(), shares={}, document_chars=0)
--

The policy of a page type: what the host quotes, and which blocks come first.

Immutable; sizes in code points. Without shares it has a new empty dict of its own; treat the
dict as read-only. Of a record that the module shares, shares are a mappingproxy.)",
    kept::section_budget_type,
    false,
    k_section_budget_fields,
    nullptr};

void add_record_types(module_state& state, handle module) {
  host::add_record_type<k_fact_block>(state, module);
  host::add_record_type<k_grounding_parts>(state, module);
  host::add_record_type<k_section_budget>(state, module);
}

}  // namespace grounding_fit
