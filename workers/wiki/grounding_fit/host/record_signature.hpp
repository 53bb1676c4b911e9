// The signature of a record's constructor, as the host's inspect module shows it.
#pragma once

#include "host/record_type.hpp"

namespace grounding_fit::host {

// An attribute `__signature__` for a record's type. The signature is made when somebody asks for
// it, by the host's inspect module. (A text signature cannot show a default that is a record.)
owned new_signature_attribute(const record_shape& shape, const PyTypeObject* record_type);

}  // namespace grounding_fit::host
