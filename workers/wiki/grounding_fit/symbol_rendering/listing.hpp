// The listing of declarations whose body was cut: a heading, and a line for each.
#pragma once

#include "grounding_model/seeds.hpp"
#include "python/text_builder.hpp"
#include "text/escape_growth.hpp"

namespace grounding_fit {

inline constexpr std::size_t k_listed_chars = 80;  // code points of a signature in a listed line
inline constexpr std::size_t k_listed_max = 30;    // records that the fitting paths list
inline constexpr json_literal k_listed_heading =
    "## More declarations (lines and signature only; ask for a body with query=)";
inline constexpr char16_t k_dash[] = u") \u2014 ";  // between a symbol's kind and its file

// One listed line, read once and then measured or written as often as needed.
class listed_line {
 public:
  listed_line() = default;
  // Calls the host's _norm once, last.
  listed_line(const py::module_state& state, py::handle record, path_names& norm);

  // Adds the line alone.
  void write(text_builder& to) const;

  // Adds it as in a listing, after a line feed.
  void write_in_listing(text_builder& to) const {
    to.add(k_line_feed);
    write(to);
  }
  std::int64_t size_in_listing() const { return k_line_feed.json_size() + escaped_length(); }

 private:
  static constexpr json_literal k_line_feed = "\n";

  // Characters that it takes inside a JSON string; the line is not built.
  std::int64_t escaped_length() const;
  // What the line holds, in order: `out` takes literals, texts and integers.
  template <class Out>
  void describe(Out&& out) const;

  py::owned name_, kind_, file_;
  py::integer start_, end_;
  py::owned described_;  // what `what_` is a part of
  text_view what_;
};

// The listing of the first `count` records; an empty text, without the heading, when that is 0.
py::owned make_listing(const py::module_state& state, const symbol_records& records,
                       std::size_t count);

}  // namespace grounding_fit
