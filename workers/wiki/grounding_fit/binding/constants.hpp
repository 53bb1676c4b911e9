// The module's constants: its limits, texts and shared policies.
#pragma once

#include "host/host.hpp"

namespace grounding_fit {

// Adds each to the module, and its name to `names`.
void add_constants(const host::module_state& state, host::handle module,
                   std::vector<const char*>& names);

}  // namespace grounding_fit
