// The binding: the module's names, their docstrings, the host's utilities, and the module's state.

#include <array>

#include "answer_capping.hpp"
#include "symbol_rendering.hpp"
#include "token_fitting.hpp"

namespace grounding_fit {
namespace {

using host::arguments;
using host::fault;
using host::handle;
using host::known;
using host::owned;
using host::service;
using host::within;

constexpr char k_module_doc[] =
    "Fit the grounding of a wiki page to what its writer can be given.\n\n"
    "A page's grounding is its fact blocks, each with citation seeds, and its rendered code "
    "symbols,\n"
    "best first (GroundingParts). There is never room for all of it. Two paths decide what "
    "stays:\n\n"
    "- API path, in tokens: _assemble_grounding(parts, budget) keeps whole symbol blocks, lists "
    "the\n"
    "  next ones by a line each, and cuts the fact text to what is left of the token budget.\n"
    "- Agent path, in JSON characters: _fit_page_context(result, parts, budget) keeps an answer "
    "within\n"
    "  _PAGE_CONTEXT_MAX_CHARS and says in `truncated` what it left out.\n\n"
    "On both, code blocks stay whole, what loses its body is listed while there is room, and "
    "every\n"
    "seed handed out names real lines. Calls share nothing and change none of their arguments.\n\n"
    "Objects are dicts with string keys; wherever an array is read, a list or a tuple will do. A "
    "value\n"
    "counts as missing when its key is absent or it is None, False, 0, 0.0 or empty. A value of "
    "the\n"
    "wrong type raises TypeError, a line number that cannot be read ValueError, a count beyond 64 "
    "bits\n"
    "OverflowError; what the host's own utilities raise passes through.";

// ---- functions ----------------------------------------------------------------------------------

struct function {
  const char* name;
  std::array<const char*, 3> parameters;
  std::size_t required;
  owned (*body)(const service& svc, const arguments& given);
  const char* doc;

  constexpr std::size_t parameter_count() const {
    std::size_t count = 0;
    while (count < parameters.size() && parameters[count] != nullptr) ++count;
    return count;
  }
};

// A `parts` argument: checked before anything else.
handle expect_parts(const service& svc, handle parts) {
  within("parts", [&] { records::expect(svc, records::grounding_parts::shape, parts); });
  return parts;
}

std::int64_t int64_of(const char* name, handle value) {
  return within(name, [&] { return host::expect_int64(value); });
}

// The texts of an array argument; each is refused unless it is a string.
class texts {
 public:
  texts(const char* name, handle value)
      : name_(name), items_(within(name, [&] { return host::expect_items(value); })) {}
  std::size_t size() const { return items_.size(); }
  handle operator[](std::size_t i) const {
    within(name_, [&] { within(i, [&] { host::expect_text(items_[i]); }); });
    return items_[i];
  }

 private:
  const char* name_;
  host::items items_;
};

owned section_budget(const service& svc, const arguments& given) {
  within("type_id", [&] { host::expect_text(given[0]); });
  return find_budget(svc, given[0]);
}

owned seed(const service& svc, const arguments& given) {
  within("path", [&] { host::expect_text(given[0]); });
  within("start", [&] { host::expect_integer(given[1]); });
  const owned end = given[2] ? host::share(given[2]) : host::new_integer(0);
  within("end", [&] { host::expect_integer(end); });
  const bool later = host::integer::of(end) > host::integer::of(given[1]);
  return make_seed(svc, given[0], given[1], later ? handle(end) : given[1]);
}

// Any iterable, gone through once.
owned citable(const service& svc, const arguments& given) {
  std::vector<owned> seeds;
  const auto add = [&](std::size_t i, handle seed) {
    const bool real =
        within("seeds", [&] { return within(i, [&] { return is_citable(svc, seed); }); });
    if (real) seeds.push_back(host::share(seed));
  };
  if (host::kind_of(given[0]) == host::kind::array) {
    const host::items items(given[0]);
    for (std::size_t i = 0; i < items.size(); ++i) add(i, items[i]);
  } else {
    within("seeds", [&] { host::expect_iterable(given[0]); });
    host::iteration items(given[0]);
    std::size_t i = 0;
    for (owned seed = items.next(); seed; seed = items.next()) add(i++, seed);
  }
  return host::new_list(std::move(seeds));
}

owned seeds_of_symbols(const service& svc, const arguments& given) {
  const host::items symbols = within("symbols", [&] { return host::expect_items(given[0]); });
  return host::new_list(symbol_seeds(
      svc, symbols.size(), [&](std::size_t i) { return symbols[i]; },
      [&](std::size_t i, auto&& body) { within("symbols", [&] { within(i, body); }); }));
}

owned render_one(const service& svc, const arguments& given) {
  return within("sym", [&] { return render_symbol(svc, given[0]); });
}

owned list_one(const service& svc, const arguments& given) {
  path_names norm(svc, path_names::asking::every_time);
  pieces line;
  within("sym", [&] { add_listed_line(svc, given[0], norm, line); });
  return line.text();
}

owned list_all(const service& svc, const arguments& given) {
  pieces listing;
  if (given[0].is(Py_None)) return listing.text();
  const host::items symbols = within("symbols", [&] { return host::expect_items(given[0]); });
  path_names norm(svc, path_names::asking::every_time);
  add_listing(
      svc, symbols.size(), [&](std::size_t i) { return symbols[i]; },
      [&](std::size_t i, auto&& body) { within("symbols", [&] { within(i, body); }); }, norm,
      listing);
  return listing.text();
}

owned assemble_blocks(const service& svc, const arguments& given) {
  const texts blocks("blocks", given[0]);
  const std::int64_t budget = int64_of("budget", given[1]);
  const std::size_t kept =
      count_kept(svc, blocks.size(), budget, [&](std::size_t i) { return blocks[i]; });
  std::vector<owned> result;
  for (std::size_t i = 0; i < kept; ++i) result.push_back(host::share(blocks[i]));
  return host::new_list(std::move(result));
}

owned blocks_within(const service& svc, const arguments& given) {
  const handle parts = expect_parts(svc, given[0]);
  const std::int64_t budget = int64_of("budget", given[1]);
  const owned text = fact_text(fact_blocks(svc, parts));
  const __int128 share = symbol_budget(svc, text, budget);
  return host::new_unsigned(count_kept(svc, take_symbol_blocks(parts), share));
}

owned assemble(const service& svc, const arguments& given) {
  const handle parts = expect_parts(svc, given[0]);
  return assemble_grounding(svc, parts, int64_of("budget", given[1]));
}

owned json_size_of(const service&, const arguments& given) {
  return within("value", [&] { return host::new_integer(json_meter().size_of(given[0])); });
}

owned cap_note_of(const service&, const arguments& given) {
  const texts items("left_out", given[0]);
  for (std::size_t i = 0; i < items.size(); ++i) static_cast<void>(items[i]);
  const bool ask = given[1] && host::truth(given[1]);
  return cap_note(
      items.size(), [&](std::size_t i) { return host::view_of(items[i]); }, ask);
}

owned code_cut_of(const service&, const arguments& given) {
  owned item = code_cut(int64_of("kept", given[0]), int64_of("listed", given[1]),
                        int64_of("total", given[2]));
  std::vector<owned> items;
  if (item) items.push_back(std::move(item));
  return host::new_list(std::move(items));
}

owned most_of(const service&, const arguments& given) {
  const std::int64_t high = int64_of("high", given[0]);
  return host::new_integer(most(high, [&](std::int64_t count) {
    within("fits", [&] { host::expect_callable(given[1]); });
    return host::truth(host::call(given[1], host::new_integer(count)));
  }));
}

// The measure that a host hands to _fit_prose: called with a list of its own every time.
class host_measure : public candidate_measure {
 public:
  host_measure(handle size, handle total, const std::vector<sized_fact>& facts)
      : size_(size), total_(total), facts_(facts), none_(host::new_integer(0)) {}

  __int128 size_of(const std::vector<std::size_t>& facts, bool bodies) override {
    return ask(blocks(facts), bodies ? total_ : handle(none_));
  }
  __int128 size_with(const std::vector<std::size_t>& kept, std::size_t fact) override {
    std::vector<owned> list = blocks(kept);
    list.push_back(host::share(facts_[fact].block().record));
    return ask(std::move(list), none_);
  }
  void keep(std::size_t) override {}

  std::vector<owned> blocks(const std::vector<std::size_t>& facts) const {
    std::vector<owned> list;
    list.reserve(facts.size() + 1);
    for (const std::size_t fact : facts) list.push_back(host::share(facts_[fact].block().record));
    return list;
  }

 private:
  __int128 ask(std::vector<owned> blocks, handle count) const {
    const owned size = host::call(size_, host::new_list(std::move(blocks)), count);
    return int64_of("result of size", size);
  }

  handle size_, total_;
  const std::vector<sized_fact>& facts_;
  owned none_;
};

owned fit_prose(const service& svc, const arguments& given) {
  const handle parts = expect_parts(svc, given[0]);
  within("size", [&] { host::expect_callable(given[1]); });
  int64_of("total", given[2]);
  const fact_blocks prose(svc, parts);
  json_meter meter;
  std::vector<sized_fact> facts = sized_facts(prose, meter);
  host_measure measure(given[1], given[2], facts);
  const chosen_facts chosen = choose_facts(svc, parts, facts, measure);

  std::vector<owned> labels;
  for (const std::size_t fact : chosen.left_out) labels.push_back(prose[fact].label());
  std::vector<owned> result;
  result.push_back(host::new_list(measure.blocks(chosen.kept)));
  result.push_back(host::new_list(std::move(labels)));
  return host::new_tuple(std::move(result));
}

owned fit_answer(const service& svc, const arguments& given) {
  const handle parts = expect_parts(svc, given[1]);
  within("result", [&] { host::expect_dict(given[0]); });
  return fit_page_context(svc, given[0], parts, int64_of("budget", given[2]));
}

constexpr function k_functions[] = {
    {"section_budget",
     {"type_id"},
     1,
     section_budget,
     "section_budget($module, /, type_id)\n--\n\n"
     "Return the SectionBudget of a page type; _DEFAULT_BUDGET for every type that has none of its "
     "own.\n\n"
     "type_id: str, compared exactly. The same record at every call."},
    {"seed",
     {"path", "start", "end"},
     2,
     seed,
     "seed($module, /, path, start, end=0)\n--\n\n"
     "Return a citation seed over lines start to end: start alone when end is not greater.\n\n"
     "path: str, not normalised. start, end: int line numbers, counted from 1.\n"
     "Returns {'path', 'line_start', 'line_end'}, a dict in this order."},
    {"citable",
     {"seeds"},
     1,
     citable,
     "citable($module, /, seeds)\n--\n\n"
     "Return the seeds that name real lines, those whose line_start reads as 1 or more.\n\n"
     "seeds: any iterable of dicts, gone through once. Returns a new list of the same seeds.\n"
     "Raises ValueError when a line_start cannot be read as an integer."},
    {"symbol_seeds",
     {"symbols"},
     1,
     seeds_of_symbols,
     "symbol_seeds($module, /, symbols)\n--\n\n"
     "Return a citation seed over each symbol's lines, for the symbols that have a file and a "
     "line.\n\n"
     "symbols: list or tuple of symbol records. Calls the host's _norm once for each with a file.\n"
     "Raises ValueError when a line or end_line cannot be read as an integer."},
    {"render_symbol",
     {"sym"},
     1,
     render_one,
     "render_symbol($module, /, sym)\n--\n\n"
     "Return the text of one symbol block: a head line, then what is known of the symbol.\n\n"
     "sym: symbol record (dict). Calls the host's _norm once. No line feed ends the text.\n"
     "Raises TypeError for a parameter, callee or related symbol of the wrong type."},
    {"_listed",
     {"sym"},
     1,
     list_one,
     "_listed($module, /, sym)\n--\n\n"
     "Return the line that lists one symbol: name, kind, file, lines, and up to 80 code points "
     "more.\n\n"
     "sym: symbol record (dict). Calls the host's _norm once.\n"
     "Raises ValueError when line or end_line cannot be read as an integer."},
    {"_listing",
     {"symbols"},
     1,
     list_all,
     "_listing($module, /, symbols)\n--\n\n"
     "Return the heading _LISTED_HEADING and one listed line a symbol; '' for no symbols or "
     "None.\n\n"
     "symbols: list or tuple of symbol records, all of which are listed."},
    {"_assemble_blocks",
     {"blocks", "budget"},
     2,
     assemble_blocks,
     "_assemble_blocks($module, /, blocks, budget)\n--\n\n"
     "Return the blocks, from the first on, that a token budget keeps whole; the first one "
     "always.\n\n"
     "blocks: list or tuple of str, best first. budget: int, in tokens. Returns a new list.\n"
     "Calls the host's estimate_tokens for each block up to the first that does not fit."},
    {"_blocks_within",
     {"parts", "budget"},
     2,
     blocks_within,
     "_blocks_within($module, /, parts, budget)\n--\n\n"
     "Return how many symbol blocks of a GroundingParts a page's token budget keeps whole "
     "(int).\n\n"
     "budget: int, in tokens. The code has _SYM_BUDGET_FLOOR of it, or what the fact text leaves."},
    {"_assemble_grounding",
     {"parts", "budget"},
     2,
     assemble,
     "_assemble_grounding($module, /, parts, budget)\n--\n\n"
     "Return (grounding, symbols, files, seeds): a page's grounding under its token budget.\n\n"
     "parts: GroundingParts. budget: int, in tokens. The grounding is the fact text, cut by the "
     "host's\n"
     "_truncate_to_tokens, the whole symbol blocks and the listing; the names, sorted files and "
     "seeds\n"
     "are those of every symbol block, kept or not."},
    {"_json_size",
     {"value"},
     1,
     json_size_of,
     "_json_size($module, /, value)\n--\n\n"
     "Return the length of a value's JSON text in code points, without making the text.\n\n"
     "The same as len(json.dumps(value, ensure_ascii=False)), but keys must be strings. Raises\n"
     "TypeError for what JSON has no form for, RecursionError for nesting too deep or in a cycle."},
    {"_cap_note",
     {"left_out", "ask"},
     1,
     cap_note_of,
     "_cap_note($module, /, left_out, ask=False)\n--\n\n"
     "Return the `truncated` note of a capped answer: six items by name, the others counted.\n\n"
     "left_out: list or tuple of str. ask: whether the note asks the agent to fetch what it "
     "needs."},
    {"_code_cut",
     {"kept", "listed", "total"},
     3,
     code_cut_of,
     "_code_cut($module, /, kept, listed, total)\n--\n\n"
     "Return the note item that counts the symbol blocks left without their body: a list of 0 or 1 "
     "str.\n\n"
     "kept: int, blocks with a body. listed: int, others listed by a line. total: int, all "
     "blocks."},
    {"_most",
     {"high", "fits"},
     2,
     most_of,
     "_most($module, /, high, fits)\n--\n\n"
     "Return the largest count from 0 to high for which fits(count) is true, found by "
     "bisection.\n\n"
     "high: int; 0 or less gives 0. fits: callable, true for every count below one it is true "
     "for;\n"
     "never called with 0."},
    {"_fit_prose",
     {"parts", "size", "total"},
     3,
     fit_prose,
     "_fit_prose($module, /, parts, size, total)\n--\n\n"
     "Return (kept, labels): the fact blocks a capped answer keeps, and the names of the "
     "others.\n\n"
     "parts: GroundingParts. size: callable(blocks, count) giving the JSON characters of an "
     "answer\n"
     "with those fact blocks and count bodies. total: int, the most bodies the answer may show.\n"
     "Raises ValueError when the code_floor's product with the room is not finite."},
    {"_fit_page_context",
     {"result", "parts", "budget"},
     3,
     fit_answer,
     "_fit_page_context($module, /, result, parts, budget)\n--\n\n"
     "Return a page_context answer of at most _PAGE_CONTEXT_MAX_CHARS JSON characters.\n\n"
     "result: the answer (dict), given back itself when it fits. parts: GroundingParts of the "
     "page.\n"
     "budget: int, the page's budget in tokens. A capped answer is a new dict whose `truncated` "
     "says\n"
     "what was left out; only one whose other fields alone exceed the cap comes back over it.\n"
     "Raises KeyError('page_id') when a prior_markdown must go and the answer has no page_id."}};

template <std::size_t Index>
PyObject* entry(PyObject* module, PyObject* const* args, Py_ssize_t count,
                PyObject* keywords) noexcept {
  static constexpr const function& called = k_functions[Index];
  return host::boundary(called.name, [&] {
    const service& svc = host::loaded(PyModule_GetState(module));
    const arguments given({called.parameters.data(), called.parameter_count()}, called.required,
                          args, static_cast<std::size_t>(count), keywords);
    return called.body(svc, given);
  });
}

template <std::size_t... Index>
auto method_table(std::index_sequence<Index...>) {
  return std::array<PyMethodDef, sizeof...(Index) + 1>{
      {{k_functions[Index].name,
        reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(entry<Index>)),
        METH_FASTCALL | METH_KEYWORDS, k_functions[Index].doc}...,
       {nullptr, nullptr, 0, nullptr}}};
}

// ---- the host's utilities -----------------------------------------------------------------------

struct utility {
  known name;
  const char* attribute;
  bool callable;  // else a heading: a string that is not empty
};

constexpr utility k_utilities[] = {
    {known::estimate_tokens, "estimate_tokens", true},
    {known::truncate_to_tokens, "_truncate_to_tokens", true},
    {known::norm, "_norm", true},
    {known::file_cards_heading, "FILE_CARDS_HEADING", false},
    {known::requested_context_heading, "REQUESTED_CONTEXT_HEADING", false}};

constexpr const char* k_host_modules[] = {"workers.context_builder", "workers.wiki.repo_facts",
                                          "workers.wiki_types"};

// Is it the dotted name itself, or that of a package above it?
bool names_part_of(handle value, std::string_view dotted) {
  if (host::kind_of(value) != host::kind::text) return false;
  const text_view whole = dotted;
  const text_view part = host::view_of(value);
  if (!whole.starts_with(part)) return false;
  return part.length() == whole.length() || whole[part.length()] == '.';
}

// A module of the host, or an empty handle when it does not exist. Any other failure to import it,
// the absence of a module that it imports itself among them, is the host's to see.
owned import_if_there(const char* name) {
  PyObject* module = PyImport_ImportModule(name);
  if (module != nullptr) return owned::steal(module);
  if (!PyErr_ExceptionMatches(PyExc_ModuleNotFoundError)) throw host::raised{};
  PyObject *type, *value, *traceback;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  owned held[] = {owned::steal_or_null(type), owned::steal_or_null(value),
                  owned::steal_or_null(traceback)};
  const owned missing = owned::steal_or_null(PyObject_GetAttrString(value, "name"));
  PyErr_Clear();
  if (missing && names_part_of(missing, name)) return {};
  PyErr_Restore(held[0].release(), held[1].release(), held[2].release());
  throw host::raised{};
}

// An attribute of a module, or an empty handle when the module does not define it.
owned attribute_of(handle module, const char* name) {
  PyObject* value = PyObject_GetAttrString(module.get(), name);
  if (value != nullptr) return owned::steal(value);
  if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw host::raised{};
  PyErr_Clear();
  return {};
}

void take_utility(service& svc, const utility& wanted, handle module, const char* home) {
  if (svc[wanted.name]) return;
  owned value = attribute_of(module, wanted.attribute);
  if (!value) return;
  within(home, [&] {
    within(".", [&] {
      within(wanted.attribute, [&] {
        if (wanted.callable) {
          host::expect_callable(value);
        } else if (host::expect_text(value).empty()) {
          host::refuse(fault::value, "a heading that is not empty", value);
        }
      });
    });
  });
  svc.keep(wanted.name, std::move(value));
}

bool complete(const service& svc) {
  for (const utility& wanted : k_utilities) {
    if (!svc[wanted.name]) return false;
  }
  return true;
}

void take_utilities(service& svc) {
  std::string looked_in;
  for (const char* home : k_host_modules) {
    if (complete(svc)) return;
    const owned module = import_if_there(home);
    looked_in += std::string(looked_in.empty() ? "" : ", ") + home + (module ? "" : " (not there)");
    if (!module) continue;
    for (const utility& wanted : k_utilities) take_utility(svc, wanted, module, home);
  }
  for (const utility& wanted : k_utilities) {
    if (svc[wanted.name]) continue;
    PyErr_Format(PyExc_ImportError,
                 "grounding_fit needs %s of its host; looked in %s. A module that is still being "
                 "imported, because it imports grounding_fit itself, has not defined it yet",
                 wanted.attribute, looked_in.c_str());
    throw host::raised{};
  }
}

// ---- the module ---------------------------------------------------------------------------------

owned tuple_of_texts(std::initializer_list<const char*> names) {
  std::vector<owned> values;
  for (const char* name : names) values.push_back(host::new_text(name));
  return host::new_tuple(std::move(values));
}

void keep_keys(service& svc) {
  for (std::size_t key = 0; key < host::k_keys; ++key) {
    svc.keep(static_cast<known>(key),
             owned::steal(PyUnicode_InternFromString(host::k_key_names[key])));
  }
}

using names = std::vector<const char*>;

void add_constants(const service& svc, handle module, names& all) {
  std::vector<owned> headings;
  headings.push_back(host::share(svc[known::file_cards_heading]));
  headings.push_back(host::share(svc[known::requested_context_heading]));
  const std::pair<const char*, owned> constants[] = {
      {"README", host::new_text(k_readme)},
      {"DIGEST", host::new_text(k_digest)},
      {"DOCUMENT", host::new_text(k_document)},
      {"_SYM_BUDGET_FLOOR", host::share(svc[known::floor])},
      {"_ALWAYS_KEPT", host::new_tuple(std::move(headings))},
      {"_DEFAULT_BUDGET", host::share(svc[known::default_budget])},
      {"_BUDGETS", owned::steal(PyDictProxy_New(svc[known::budgets].get()))},
      {"_SKELETON_LINES", host::new_integer(k_skeleton_lines)},
      {"_LISTED_CHARS", host::new_integer(k_listed_chars)},
      {"_LISTED_HEADING", host::new_text(k_listed_heading)},
      {"_LISTED_MAX", host::new_integer(k_listed_max)},
      {"_PAGE_CONTEXT_MAX_CHARS", host::new_integer(k_answer_max_chars)},
      {"_NOTE_ITEMS", host::new_integer(k_note_items)},
      {"_FITTED_FIELDS", tuple_of_texts({"grounding", "symbols", "citation_seeds"})},
      {"_NOTE_PLACEHOLDER",
       host::new_text(std::string_view(std::string(k_placeholder_chars, 'x')))}};
  for (const auto& [name, value] : constants) {
    host::add_to_module(module, name, value);
    all.push_back(name);
  }
}

// Every public name, the underscored ones too: they are the host's interface, and help() leaves out
// what is not listed.
void add_all(handle module, const names& all) {
  std::vector<owned> texts;
  texts.reserve(all.size());
  for (const char* name : all) texts.push_back(host::new_text(name));
  host::add_to_module(module, "__all__", host::new_list(std::move(texts)));
  host::add_to_module(module, "__version__", host::new_text(GROUNDING_FIT_VERSION));
}

int execute(PyObject* module) noexcept {
  return host::guarded("grounding_fit", -1, [&] {
    service& svc = *static_cast<service*>(PyModule_GetState(module));
    keep_keys(svc);
    take_utilities(svc);
    svc.keep(known::floor, host::new_real(k_symbol_floor));
    records::add_types(svc, module);
    keep_budgets(svc);
    names all;
    for (const function& each : k_functions) all.push_back(each.name);
    for (const records::layout* shape : records::k_shapes) all.push_back(shape->name);
    add_constants(svc, module, all);
    add_all(module, all);
    svc.ready = true;
    return 0;
  });
}

int traverse(PyObject* module, visitproc visit, void* arg) noexcept {
  for (PyObject* ref : static_cast<service*>(PyModule_GetState(module))->refs) Py_VISIT(ref);
  return 0;
}

int clear(PyObject* module) noexcept {
  auto& svc = *static_cast<service*>(PyModule_GetState(module));
  svc.ready = false;
  for (PyObject*& ref : svc.refs) Py_CLEAR(ref);
  return 0;
}

void release(void* module) noexcept { clear(static_cast<PyObject*>(module)); }

auto k_methods = method_table(std::make_index_sequence<std::size(k_functions)>());

PyModuleDef_Slot k_slots[] = {{Py_mod_exec, reinterpret_cast<void*>(execute)},
#if PY_VERSION_HEX >= 0x030C0000
                              {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
#endif
#if PY_VERSION_HEX >= 0x030D0000
                              // Items of lists and dicts are read in place, which without the lock
                              // another thread could change.
                              {Py_mod_gil, Py_MOD_GIL_USED},
#endif
                              {0, nullptr}};

PyModuleDef k_module = {PyModuleDef_HEAD_INIT,
                        "grounding_fit",
                        k_module_doc,
                        sizeof(service),
                        k_methods.data(),
                        k_slots,
                        traverse,
                        clear,
                        release};

}  // namespace
}  // namespace grounding_fit

PyMODINIT_FUNC PyInit_grounding_fit() { return PyModuleDef_Init(&grounding_fit::k_module); }
