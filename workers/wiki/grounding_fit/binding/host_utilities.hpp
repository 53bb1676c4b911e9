// The host's utilities, which the module takes from the host's own modules when it is imported.
#pragma once

#include "host/host.hpp"

namespace grounding_fit {

// Keeps each from the first host module that defines it. ImportError names what none defines.
void take_utilities(host::module_state& state);

}  // namespace grounding_fit
