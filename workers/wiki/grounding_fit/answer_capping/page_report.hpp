// What a page fit tells of itself: plain objects that a host can log as JSON.
#pragma once

#include "answer_capping/decide.hpp"

namespace grounding_fit {

std::vector<fact_details> details_of(const host::module_state& state, std::vector<page_fact>& facts,
                                     const std::vector<fact_decision>& decisions);
// All sizes in JSON characters. All must have been counted for the fit.
host::owned report_of(const page_fit& fit);

}  // namespace grounding_fit
