// What a capped answer is written of.
//
// Every piece says what it takes as JSON (`size`), the least that it can take (`least`) where that
// is known sooner, and puts itself down (`write`, `value`): side by side and nowhere else. Two
// classes collect pieces, and answer_description.hpp says once which pieces there are:
//
//     answer_size size;        describe_body(size, symbol);     // sums: nothing is built
//     answer_values values;    describe_body(values, symbol);   // the texts and lists themselves
#pragma once

#include "answer_capping/json_measure.hpp"
#include "symbol_rendering/symbol_rendering.hpp"

namespace grounding_fit {

// ---- pieces (a `literal` is one as well) --------------------------------------------------------

// A text that is sized once, when its size is first asked for.
struct whole_text {
  text_view text;
  std::int64_t* known;  // its size; below 0 while it is not
  std::int64_t size() const {
    if (*known < 0) *known = inner_size<extent::exact>(text);
    return *known;
  }
  std::int64_t least() const { return *known < 0 ? inner_size<extent::least>(text) : *known; }
  void write(pieces& to) const { to.add(text); }
};

// A line of the listing that was sized before.
struct sized_line {
  const listed_line& line;
  std::int64_t json_size;
  std::int64_t size() const { return json_size; }
  void write(pieces& to) const { line.write(to); }
};

// An item of a list that was sized before.
struct sized_value {
  host::handle item;
  std::int64_t json_size;
  std::int64_t size() const { return json_size; }
  host::owned value() const { return host::share(item); }
};

// The citation seed of a symbol, sized once.
struct symbol_seed {
  const host::module_state& state;
  const symbol_lines& lines;
  std::int64_t* known;  // its size; below 0 while it is not
  std::int64_t size() const {
    if (*known < 0) *known = measured();
    return *known;
  }
  std::int64_t measured() const {
    struct {
      tally members;
      void operator()(host::key which, const host::owned& text) {
        add(which, json_string_size(host::view_of(text)));
      }
      void operator()(host::key which, const host::integer& number) {
        add(which, static_cast<std::int64_t>(number.length()));
      }
      void add(host::key which, std::int64_t value) {
        members.add(member_size(host::name_of(which), value));
      }
    } seed;
    lines.describe_seed(seed);
    return seed.members.bracketed();
  }
  host::owned value() const { return lines.seed(state); }
};

// ---- what becomes of them -----------------------------------------------------------------------

inline constexpr literal k_blank_line = "\n\n";  // between the texts of a grounding

// What the rebuilt fields take, or the least that they can take. Sizes of some blocks add up to the
// size of all of them.
template <extent Extent>
struct answer_size_to {
  tally texts, names, seeds;

  void begin_text() { ++texts.count; }
  template <class Piece>
  void add_text(const Piece& piece) {
    texts.size += size_of(piece);
  }
  template <class Piece>
  void add_name(const Piece& piece) {
    names.add(size_of(piece));
  }
  template <class Piece>
  void add_seed(const Piece& piece) {
    seeds.add(size_of(piece));
  }

  std::int64_t grounding() const { return 2 + texts.joined(k_blank_line.size()); }
  std::int64_t symbols() const { return names.bracketed(); }
  std::int64_t citation_seeds() const { return seeds.bracketed(); }

  // Exact sizes are least ones too.
  operator answer_size_to<extent::least>() const { return {texts, names, seeds}; }

 private:
  template <class Piece>
  static std::int64_t size_of(const Piece& piece) {
    if constexpr (Extent == extent::least && requires { piece.least(); }) return piece.least();
    return piece.size();
  }
};
using answer_size = answer_size_to<extent::exact>;

template <extent Extent>
answer_size_to<Extent> operator+(const answer_size_to<Extent>& a, const answer_size_to<Extent>& b) {
  return {a.texts + b.texts, a.names + b.names, a.seeds + b.seeds};
}

// The rebuilt fields themselves.
class answer_values {
 public:
  answer_values(std::size_t blocks, std::size_t lines) {
    text_.expect(2 * blocks + (listed_line::k_most_pieces + 1) * lines);
  }

  void begin_text() {
    if (std::exchange(any_text_, true)) k_blank_line.write(text_);
  }
  template <class Piece>
  void add_text(const Piece& piece) {
    piece.write(text_);
  }
  template <class Piece>
  void add_name(const Piece& piece) {
    names_.push_back(piece.value());
  }
  template <class Piece>
  void add_seed(const Piece& piece) {
    seeds_.push_back(piece.value());
  }

  host::owned grounding() { return text_.text(); }
  host::owned symbols() { return host::new_list(std::move(names_)); }
  host::owned citation_seeds() { return host::new_list(std::move(seeds_)); }

 private:
  pieces text_;
  bool any_text_ = false;
  std::vector<host::owned> names_, seeds_;
};

}  // namespace grounding_fit
