#include "grounding_model.hpp"

#include <cmath>

namespace grounding_fit {

using host::fault;
using host::handle;
using host::integer;
using host::kind;
using host::known;
using host::owned;
using host::service;

// ---- line numbers and seeds ---------------------------------------------------------------------

namespace {

integer line_of(handle value) {
  if (host::missing(value)) return 0;
  switch (host::kind_of(value)) {
    case kind::integer:
    case kind::boolean: return integer::of(value);
    case kind::text: return integer::of_text(value);
    case kind::real:
      if (const double real = host::value_of_real(value); std::isfinite(real)) {
        return integer::of(real);
      }
      [[fallthrough]];
    default: host::refuse(fault::value, "an integer", value);
  }
}

}  // namespace

integer read_line(const service& svc, host::dict object, known key) {
  const owned value = read(svc, object, key);
  return host::within(step_of(key), [&] { return line_of(value); });
}

bool is_citable(const service& svc, handle seed) {
  return read_line(svc, host::expect_dict(seed), known::line_start) > 0;
}

owned make_seed(const service& svc, handle path, handle start, handle end) {
  // Copying an object that has the keys already, and only setting its values, was no faster.
  owned seed = host::new_dict();
  host::set_item(seed, svc[known::path], path);
  host::set_item(seed, svc[known::line_start], start);
  host::set_item(seed, svc[known::line_end], end);
  return seed;
}

path_names::path_names(const service& svc, asking how) : svc_(svc) {
  if (how == asking::once_per_text) known_ = host::new_dict();
}

owned path_names::operator()(owned path) {
  if (!known_) return host::call(svc_[known::norm], path);
  owned text = host::plain_text(std::move(path));
  owned name = host::dict(known_).get(text);
  if (name) return name;
  name = host::call(svc_[known::norm], text);
  host::set_item(known_, text, name);
  return name;
}

symbol_lines read_symbol_lines(const service& svc, handle record, path_names& norm) {
  const host::dict symbol = host::expect_dict(record);
  owned file = read(svc, symbol, known::file);
  symbol_lines lines;
  if (host::missing(file)) return lines;
  host::within(step_of(known::file), [&] {
    lines.path = norm(host::text_form(file));
    if (host::kind_of(lines.path) != kind::text) {
      host::within("result of _norm", [&] { host::expect_text(lines.path); });
    }
  });
  lines.start = read_line(svc, symbol, known::line);
  lines.end = read_line(svc, symbol, known::end_line);
  return lines;
}

// ---- what a grounding holds ---------------------------------------------------------------------

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

fact_blocks::fact_blocks(const service& svc, handle parts)
    : items_(records::get(parts, records::grounding_parts::prose)) {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    host::within("parts.prose", [&] {
      host::within(i, [&] { records::expect(svc, records::fact_block::shape, items_[i]); });
    });
  }
}

std::vector<symbol_block> take_symbol_blocks(handle parts) {
  const handle pairs = records::get(parts, records::grounding_parts::blocks);
  std::vector<symbol_block> blocks;
  blocks.reserve(host::size_of_array(pairs));
  std::size_t i = 0;
  try {
    // No host code can run in here, so the list is read as it stands.
    for (; const handle pair = host::array_item(pairs, i); ++i) {
      const auto [text, record] = host::expect_pair(pair);
      if (host::kind_of(text) != kind::text) {
        host::within(std::size_t{0}, [text = text] { host::expect_text(text); });
      }
      blocks.push_back({host::share(text), host::share(record)});
    }
  } catch (host::bad_value& error) {
    error.prepend(i);
    error.prepend("parts.blocks");
    throw;
  }
  return blocks;
}

owned read_symbol_name(const service& svc, handle record) {
  owned fqn = read(svc, host::expect_dict(record), known::fqn);
  if (host::missing(fqn)) return {};
  return host::within(step_of(known::fqn), [&] { return host::text_form(fqn); });
}

owned fact_text(const fact_blocks& prose) {
  pieces text;
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const text_view block = host::view_of(prose[i].text());
    if (!text.empty() && !block.empty()) text.add("\n\n");
    text.add(block);
  }
  return text.text();
}

void add_citable(const service& svc, const fact_blocks& prose, std::vector<owned>& seeds) {
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const host::items block(prose[i].seeds());
    for (std::size_t j = 0; j < block.size(); ++j) {
      const bool citable = within_fact(
          i, ".seeds", [&] { return host::within(j, [&] { return is_citable(svc, block[j]); }); });
      if (citable) seeds.push_back(host::share(block[j]));
    }
  }
}

owned find_budget(const service& svc, handle type_id) {
  const owned text = host::plain_text(host::share(type_id));
  owned found = host::dict(svc[known::budgets]).get(text);
  return found ? std::move(found) : host::share(svc[known::default_budget]);
}

void keep_budgets(service& svc) {
  const auto tuple_of = [](owned only) {
    std::vector<owned> values;
    values.push_back(std::move(only));
    return host::new_tuple(std::move(values));
  };
  const auto budget = [&](std::int64_t readme_chars, owned first, owned shares,
                          std::int64_t document_chars) {
    std::vector<owned> fields;
    fields.push_back(host::new_integer(readme_chars));
    fields.push_back(std::move(first));
    fields.push_back(std::move(shares));
    fields.push_back(host::new_integer(document_chars));
    return records::make(svc, records::section_budget::shape, std::move(fields));
  };
  svc.keep(known::default_budget, budget(k_readme_chars, host::new_tuple({}), host::new_dict(), 0));

  owned table = host::new_dict();
  owned digest_share = host::new_dict();
  host::set_item(digest_share, host::new_text(k_digest), host::new_real(0.25));
  host::set_item(table, host::new_text("getting-started"),
                 budget(28000, tuple_of(host::new_text(k_readme)), std::move(digest_share), 0));
  host::set_item(
      table, host::new_text("decisions"),
      budget(k_readme_chars, tuple_of(host::new_text(k_document)), host::new_dict(), 24000));
  svc.keep(known::budgets, std::move(table));
}

// ---- the records --------------------------------------------------------------------------------

namespace records {
namespace {

using enum field_kind;

constexpr field k_fact_block_fields[] = {
    {"text", text, otherwise::required,
     "The block's text (str); its first line is normally a Markdown heading."},
    {"seeds", sequence, otherwise::empty_tuple,
     "The citation seeds the block stands on (list or tuple), citable or not."},
    {"name", text, otherwise::empty_text,
     "How a note names the block (str); empty: after its heading."},
    {"key", text, otherwise::empty_text,
     "The block's kind (str): README, DIGEST, DOCUMENT, or any other."}};

constexpr field k_grounding_parts_fields[] = {
    {"prose", sequence, otherwise::required,
     "The fact blocks in reading order (list or tuple of FactBlock)."},
    {"blocks", sequence, otherwise::required,
     "Pairs of a symbol block's text and its symbol record, best first (list or tuple)."},
    {"files", text_set, otherwise::required,
     "Paths of the files the fact blocks stand on (set or frozenset of str)."},
    {"code_floor", number, otherwise::floor,
     "The share of a capped answer's room kept for symbol blocks (float or int)."},
    {"budget", field_kind::budget, otherwise::default_budget,
     "How the page's type spends the room (SectionBudget)."}};

constexpr field k_section_budget_fields[] = {
    {"readme_chars", integer, otherwise::integer, "Code points of the README the page reads (int).",
     k_readme_chars},
    {"first", sequence, otherwise::empty_tuple,
     "Keys of the fact blocks kept before any other, beside the file cards (list or tuple of "
     "str)."},
    {"shares", mapping, otherwise::fresh_dict,
     "Block key to the most of a capped answer's room its blocks may take (dict of float). The "
     "dict stays the caller's own; treat it as read-only."},
    {"document_chars", integer, otherwise::integer,
     "Code points of the page's own documents it reads, shared among them (int)."}};

constexpr computed k_label = {
    "label", "FactBlock.label", false,
    "label($self, /)\n--\n\n"
    "Return how a note names the block when it is left out: its name, else its heading.\n\n"
    "Without a name it is \"the 'HEADING' block\": the text's first line without leading '#' and\n"
    "spaces, cut before the first ' ('.",
    [](const service&, handle record) { return grounding_fit::fact_block{record}.label(); }};

constexpr computed k_seeds = {
    "seeds", "GroundingParts.seeds", true,
    "The citable seeds of every fact block, in order: a new list at every reading.\n\n"
    "Raises ValueError when a seed's line_start cannot be read as an integer.",
    [](const service& svc, handle record) {
      std::vector<owned> seeds;
      add_citable(svc, fact_blocks(svc, record), seeds);
      return host::new_list(std::move(seeds));
    }};

}  // namespace

const layout fact_block::shape = {
    "FactBlock",
    "FactBlock(text, seeds=(), name='', key='')\n--\n\n"
    "One fact block of a grounding: its text, the citation seeds it stands on, its name in "
    "notes.\n\n"
    "Immutable and positional: it unpacks, iterates and indexes as its four fields.",
    known::fact_block,
    true,
    k_fact_block_fields,
    &k_label};

const layout grounding_parts::shape = {
    "GroundingParts",
    "GroundingParts(prose, blocks, files, code_floor=_SYM_BUDGET_FLOOR, budget=...)\n--\n\n"
    "A page's grounding before it is fitted to a budget.\n\n"
    "Immutable; the sequences stay the caller's own. Without a budget it has the very\n"
    "_DEFAULT_BUDGET.",
    known::grounding_parts,
    false,
    k_grounding_parts_fields,
    &k_seeds};

const layout section_budget::shape = {
    "SectionBudget",
    "SectionBudget(readme_chars=4000, first=(), shares={}, document_chars=0)\n--\n\n"
    "How a page type spends the room of its grounding; sizes in code points.\n\n"
    "Immutable. Without shares it has a new empty dict of its own; treat the dict as read-only.",
    known::section_budget,
    false,
    k_section_budget_fields,
    nullptr};

}  // namespace records
}  // namespace grounding_fit
