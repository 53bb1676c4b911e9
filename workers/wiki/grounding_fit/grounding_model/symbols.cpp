#include "grounding_model/symbols.hpp"

#include "python/make.hpp"

namespace grounding_fit {

using py::handle;
using py::module_state;
using py::owned;

std::vector<symbol_block> symbol_blocks_of(grounding_parts parts) {
  const handle pairs = parts.blocks();
  std::vector<symbol_block> blocks;
  blocks.reserve(py::size_of_array(pairs));
  std::size_t i = 0;
  try {
    // No code of the host's can run in here, so the list is read as it stands.
    for (; const py::item_ref pair = py::array_item(pairs, i); ++i) {
      const auto both = py::expect_pair(pair);
      if (py::kind_of(both.first) != py::kind::text) {
        py::within(std::size_t{0}, [&] { py::expect_text(both.first); });
      }
      blocks.push_back({py::new_ref(both.first), py::new_ref(both.second)});
    }
  } catch (py::bad_value& error) {
    py::place("parts.blocks", i).prepend_to(error);
    throw;
  }
  return blocks;
}

path_names::path_names(const module_state& state, asking how) : state_(state) {
  if (how == asking::once_per_text) known_ = py::new_dict();
}

owned path_names::asked_once(owned path) {
  owned text = py::plain_text(std::move(path));
  owned name = py::dict(known_).get(text);
  if (name) return name;
  name = py::call(state_[py::utility::norm], text);
  py::set_item(known_, text, name);
  return name;
}

}  // namespace grounding_fit
