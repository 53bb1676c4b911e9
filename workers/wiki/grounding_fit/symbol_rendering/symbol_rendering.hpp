// The text of one symbol block, and the one-line listing of declarations whose body was cut.
#pragma once

#include "symbol_rendering/listing.hpp"
#include "symbol_rendering/symbol_block.hpp"
