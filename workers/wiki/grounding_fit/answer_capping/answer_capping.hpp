// The agent path: a page_context answer under its cap, and the decisions that made it. Every size
// here is in characters of JSON.
//
// An answer that is tried is measured and not built: each of its pieces is sized once, when the
// rules first need it (so that an error comes exactly when they would raise it), and a candidate is
// a sum.
#pragma once

#include "answer_capping/fact_choice.hpp"
#include "answer_capping/given_answer.hpp"
#include "answer_capping/json_measure.hpp"
#include "answer_capping/note.hpp"
#include "answer_capping/page_fit.hpp"
#include "answer_capping/page_report.hpp"
#include "answer_capping/search.hpp"
