// The host's values as the module reads, makes and calls them. Only this folder and the binding
// know of Python's C API; everything else speaks the vocabulary of these headers.
#pragma once

#include "host/arguments.hpp"
#include "host/call.hpp"
#include "host/container.hpp"
#include "host/error.hpp"
#include "host/handle.hpp"
#include "host/integer.hpp"
#include "host/make.hpp"
#include "host/pieces.hpp"
#include "host/record_slots.hpp"
#include "host/record_type.hpp"
#include "host/state.hpp"
#include "host/value.hpp"
