// What a grounding is made of, as every fitting path reads it: fact blocks, symbol records, page
// policies, and citation seeds over real lines.
#pragma once

#include "grounding_model/policies.hpp"
#include "grounding_model/records.hpp"
#include "grounding_model/seeds.hpp"
#include "grounding_model/symbol_record.hpp"
