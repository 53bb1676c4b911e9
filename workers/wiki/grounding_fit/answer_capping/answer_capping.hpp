// The agent path: a page_context answer under its cap, and the decisions that made it. Every size
// here is in characters of JSON.
#pragma once

#include "answer_capping/decide.hpp"
#include "answer_capping/json_measure.hpp"
#include "answer_capping/note.hpp"
#include "answer_capping/old_answer.hpp"
#include "answer_capping/page_report.hpp"
