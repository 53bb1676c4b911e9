// The listing of declarations whose body was cut: a heading, and a line for each.
#pragma once

#include "grounding_model/grounding_model.hpp"

namespace grounding_fit {

inline constexpr std::size_t k_listed_chars = 80;  // code points of a signature in a listed line
inline constexpr std::size_t k_listed_max = 30;    // records that the fitting paths list
inline constexpr literal k_listed_heading =
    "## More declarations (lines and signature only; ask for a body with query=)";
inline constexpr literal k_line_feed = "\n";
inline constexpr literal k_dash = u") \u2014 ";  // between a symbol's kind and its file

// One listed line, read once and then measured or written as often as needed.
class listed_line {
 public:
  static constexpr std::size_t k_most_pieces = 14;

  listed_line() = default;
  // Calls the host's _norm once, last.
  listed_line(const host::module_state& state, host::handle record, path_names& norm);

  // Adds the line, without a line feed. The line outlives the pieces, or at least their last use.
  void write(pieces& to) const;
  // Characters that it takes inside a JSON string, nothing built.
  std::int64_t escaped_length() const;

 private:
  // What the line holds, in order: `out` takes literals, texts and integers.
  template <class Out>
  void describe(Out&& out) const;

  host::owned name_, kind_, file_;
  host::integer start_, end_;
  host::owned described_;  // what `what_` is a part of
  text_view what_;
};

// The listing of the first `count` records: a heading, and each line after a line feed; an empty
// text for none.
template <symbol_records Records>
host::owned make_listing(const host::module_state& state, const Records& records,
                         std::size_t count) {
  path_names norm(state, path_names::asking::every_time);
  std::vector<listed_line> lines;
  lines.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    host::within(records.place_of(i), [&] { lines.emplace_back(state, records[i], norm); });
  }
  pieces listing;
  if (count > 0) k_listed_heading.write(listing);
  for (const listed_line& line : lines) {
    k_line_feed.write(listing);
    line.write(listing);
  }
  return listing.text();
}

}  // namespace grounding_fit
