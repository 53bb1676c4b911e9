#include "grounding_model/seeds.hpp"

#include <cmath>

namespace grounding_fit {

using host::handle;
using host::integer;
using host::key;
using host::kind;
using host::module_state;
using host::owned;

namespace {

integer line_of(handle value) {
  if (host::missing(value)) return 0;
  switch (host::kind_of(value)) {
    case kind::integer:
    case kind::boolean: return integer::of(host::share(value));
    case kind::text: return integer::of_text(value);
    case kind::real:
      if (const double real = host::value_of_real(value); std::isfinite(real)) {
        return integer::of(real);
      }
      [[fallthrough]];
    default: host::refuse(host::fault::value, "an integer", value);
  }
}

}  // namespace

integer read_as_line(handle value, key which) {
  return host::within(host::step_to(which), [&] { return line_of(value); });
}

bool is_citable(const module_state& state, handle seed) {
  return read_line(state, host::expect_dict(seed), key::line_start) > 0;
}

owned make_seed(const module_state& state, handle path, handle start, handle end) {
  owned seed = host::new_dict();
  host::set_item(seed, state[key::path], path);
  host::set_item(seed, state[key::line_start], start);
  host::set_item(seed, state[key::line_end], end);
  return seed;
}

owned symbol_lines::seed(const module_state& state) const {
  struct {
    const module_state& state;
    owned made = host::new_dict();
    void operator()(key which, const owned& text) { host::set_item(made, state[which], text); }
    void operator()(key which, const integer& number) { (*this)(which, number.object()); }
  } seed{state};
  describe_seed(seed);
  return std::move(seed.made);
}

void add_citable(const module_state& state, const fact_blocks& prose, std::vector<owned>& seeds) {
  for (std::size_t i = 0; i < prose.size(); ++i) {
    const host::items block(prose[i].seeds());
    for (std::size_t j = 0; j < block.size(); ++j) {
      const bool citable =
          host::within(seed_place(i, j), [&] { return is_citable(state, block[j]); });
      if (citable) seeds.push_back(host::share(block[j]));
    }
  }
}

}  // namespace grounding_fit
