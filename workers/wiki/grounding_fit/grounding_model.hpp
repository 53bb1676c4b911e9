// What a grounding is made of, as every fitting path reads it: fact blocks, symbol blocks, budgets,
// and citation seeds over real lines.
#pragma once

#include "pieces.hpp"
#include "records.hpp"

namespace grounding_fit {

// The keys of fact blocks that budgets name.
constexpr const char* k_readme = "readme";      // the README
constexpr const char* k_digest = "digest";      // a digest of another page
constexpr const char* k_document = "document";  // one of the page's own documents

constexpr std::int64_t k_readme_chars = 4000;  // of the README, where a policy says nothing else

// ---- line numbers and seeds ---------------------------------------------------------------------

// The line number under `key`: 0 when it counts as missing, ValueError when it cannot be read.
host::integer read_line(const host::service& svc, host::dict object, host::known key);

// Does the seed name a real line, one from 1 on? A line 0 cannot be cited.
bool is_citable(const host::service& svc, host::handle seed);

// {path, line_start, line_end}, as given.
host::owned make_seed(const host::service& svc, host::handle path, host::handle start,
                      host::handle end);

// The host's normalised paths: asked for as often as the rules say, or once for each text.
class path_names {
 public:
  enum class asking { every_time, once_per_text };
  path_names(const host::service& svc, asking how);
  // `path` is a string; the result is whatever the host gave.
  host::owned operator()(host::owned path);

 private:
  const host::service& svc_;
  host::owned known_;
};

// The lines of a symbol as they are cited; no path when its file counts as missing.
struct symbol_lines {
  host::owned path;
  host::integer start, end;

  bool citable() const { return path && start > 0; }
  const host::integer& last() const { return end > start ? end : start; }
  host::owned seed(const host::service& svc) const {
    return make_seed(svc, path, start.object(), last().object());
  }
};
symbol_lines read_symbol_lines(const host::service& svc, host::handle record, path_names& norm);

// The citable seeds of so many symbol records, in order. `within(i, body)` wraps the reading of
// record i, so that an error can say which it was.
template <class Record, class Within>
std::vector<host::owned> symbol_seeds(const host::service& svc, std::size_t count, Record&& record,
                                      Within&& within) {
  path_names norm(svc, path_names::asking::every_time);
  std::vector<host::owned> seeds;
  for (std::size_t i = 0; i < count; ++i) {
    symbol_lines lines;
    within(i, [&] { lines = read_symbol_lines(svc, record(i), norm); });
    if (lines.citable()) seeds.push_back(lines.seed(svc));
  }
  return seeds;
}

// ---- what a grounding holds ---------------------------------------------------------------------

struct fact_block {
  host::handle record;  // kept alive by whoever took it

  host::handle text() const { return records::get(record, records::fact_block::text); }
  host::handle seeds() const { return records::get(record, records::fact_block::seeds); }
  host::handle name() const { return records::get(record, records::fact_block::name); }
  host::handle key() const { return records::get(record, records::fact_block::key); }
  // How a note names the block.
  host::owned label() const;
};

struct symbol_block {
  host::owned text;    // a string
  host::owned record;  // an object, or refused when it is first read
};

// The fact blocks of a grounding as they stood when taken.
class fact_blocks {
 public:
  fact_blocks(const host::service& svc, host::handle parts);
  std::size_t size() const { return items_.size(); }
  fact_block operator[](std::size_t i) const { return {items_[i]}; }

 private:
  host::items items_;
};

std::vector<symbol_block> take_symbol_blocks(host::handle parts);

// The qualified name of a symbol as text; empty when it counts as missing.
host::owned read_symbol_name(const host::service& svc, host::handle record);

// Runs `body` for symbol record i and puts its place before any error's.
template <class Body>
decltype(auto) within_record(std::size_t i, Body&& body) {
  return host::within("parts.blocks", [&]() -> decltype(auto) {
    return host::within(i, [&]() -> decltype(auto) {
      return host::within(std::size_t{1}, std::forward<Body>(body));
    });
  });
}
// The same for the seeds of fact block i.
template <class Body>
decltype(auto) within_fact(std::size_t i, const char* field, Body&& body) {
  return host::within("parts.prose", [&]() -> decltype(auto) {
    return host::within(
        i, [&]() -> decltype(auto) { return host::within(field, std::forward<Body>(body)); });
  });
}

// The text of every fact block that has one, joined by blank lines.
host::owned fact_text(const fact_blocks& prose);

// The seeds of all fact blocks that can be cited, added to `seeds` in order.
void add_citable(const host::service& svc, const fact_blocks& prose,
                 std::vector<host::owned>& seeds);

// The entry of a page type, or the default: the shared record itself.
host::owned find_budget(const host::service& svc, host::handle type_id);
// Puts the default budget and the table of the others into the module's state.
void keep_budgets(host::service& svc);

}  // namespace grounding_fit
