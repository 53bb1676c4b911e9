// Copying a text to units of another width.
#pragma once

#include "text/text_view.hpp"

namespace grounding_fit {

// `to` has room for the text in units of `width` bytes, which hold its every code point. A part of
// a text may be narrower than the text it is a part of, so units go both ways.
void copy_units(void* to, unsigned width, text_view from) noexcept;

}  // namespace grounding_fit
