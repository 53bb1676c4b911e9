// The API path: whole symbol blocks under a token budget, and what it tells of its decisions.
#pragma once

#include "token_fitting/grounding_assembly.hpp"
#include "token_fitting/grounding_report.hpp"
