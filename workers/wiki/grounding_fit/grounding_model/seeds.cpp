#include "grounding_model/seeds.hpp"

#include <cmath>

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::integer;
using py::key;
using py::kind;
using py::module_state;
using py::owned;

namespace {

integer line_of(handle value) {
  if (py::missing(value)) return 0;
  switch (py::kind_of(value)) {
    case kind::integer:
    case kind::boolean: return integer::of(py::new_ref(value));
    case kind::text: return integer::of_text(value);
    case kind::real:
      if (const double real = py::value_of_real(value); std::isfinite(real)) {
        return integer::of(real);
      }
      [[fallthrough]];
    default: py::refuse(py::fault::value, "an integer", value);
  }
}

}  // namespace

integer unusual_line(handle value, key which) {
  return py::within(which, [&] { return line_of(value); });
}

bool is_citable(const module_state& state, handle seed) {
  return read_line(state, py::expect_dict(seed), key::line_start) > 0;
}

owned make_seed(const module_state& state, handle path, handle start, handle end) {
  owned seed = py::new_dict();
  py::set_item(seed, state[key::path], path);
  py::set_item(seed, state[key::line_start], start);
  py::set_item(seed, state[key::line_end], end);
  return seed;
}

owned symbol_lines::seed(const module_state& state) const {
  struct {
    const module_state& state;
    owned made = py::new_dict();
    void operator()(key which, const owned& text) { py::set_item(made, state[which], text); }
    void operator()(key which, const integer& number) { (*this)(which, number.object()); }
  } seed{state};
  describe_seed(seed);
  return std::move(seed.made);
}

void add_citable(const module_state& state, const fact_blocks& prose, std::vector<owned>& seeds) {
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const py::items block(prose[i].seeds());
    for (std::size_t j = 0; j < block.size(); ++j) {
      const bool citable =
          py::within(seed_place(i, j), [&] { return is_citable(state, block[j]); });
      if (citable) seeds.push_back(py::new_ref(block[j]));
    }
  }
}

}  // namespace grounding_fit
