// What a page fit tells of itself: plain objects that a host can log as JSON.
#pragma once

#include "answer_capping/page_fit.hpp"

namespace grounding_fit {

// All sizes in JSON characters. The fit must have taken all sizes.
host::owned report_of(const page_fit& fit);

}  // namespace grounding_fit
