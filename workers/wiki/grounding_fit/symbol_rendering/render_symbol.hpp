// The text of one symbol block: a head line, then what is known of the symbol.
#pragma once

#include "grounding_model/symbols.hpp"

namespace grounding_fit {

inline constexpr std::size_t k_skeleton_lines = 12;  // of a logic skeleton that a block shows

// Calls the host's _norm once, before it reads the other keys.
py::owned render_symbol(const py::module_state& state, py::handle record);

}  // namespace grounding_fit
