// The text of one symbol block, and the one-line listing of declarations whose body was cut.
#pragma once

#include "grounding_model.hpp"

namespace grounding_fit {

constexpr std::size_t k_skeleton_lines = 12;  // most lines of a logic skeleton that a block shows
constexpr std::size_t k_listed_chars = 80;    // most code points of a signature in a listed line
constexpr std::size_t k_listed_max = 30;      // most records that the fitting paths list
constexpr std::string_view k_listed_heading =
    "## More declarations (lines and signature only; ask for a body with query=)";

// The block of one symbol record. Calls the host's _norm once, before it reads the other keys.
host::owned render_symbol(const host::service& svc, host::handle record);

// Adds one listed line, without a line feed. Calls _norm once, last.
void add_listed_line(const host::service& svc, host::handle record, path_names& norm, pieces& line);

// A heading and a listed line for each record; no pieces for no records. `within` wraps the
// reading of record i, so that an error can say which it was.
template <class Record, class Within>
void add_listing(const host::service& svc, std::size_t count, Record&& record, Within&& within,
                 path_names& norm, pieces& listing) {
  if (count == 0) return;
  listing.add(k_listed_heading);
  for (std::size_t i = 0; i < count; ++i) {
    listing.add("\n");
    within(i, [&] { add_listed_line(svc, record(i), norm, listing); });
  }
}

}  // namespace grounding_fit
