// The triangle that Copy and Swap may be restricted to.
#pragma once

#include "blocks/strided.h"
#include "modla.h"

namespace modla {

// The triangle that a keyword names ("upper", "uppernodiag", "lower", "lowernodiag"); whole for any other argument.
Triangle triangle_keyword(const HostApi *api, HostObject argument);

}  // namespace modla
