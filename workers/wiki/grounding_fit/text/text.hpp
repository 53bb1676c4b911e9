// Texts as the host keeps them, and how much longer JSON makes them. Nothing here knows of Python.
#pragma once

#include "text/copy_units.hpp"
#include "text/escape_growth.hpp"
#include "text/text_view.hpp"
