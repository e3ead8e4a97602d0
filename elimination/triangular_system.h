// What ForSub and BackSub share, which is everything but the direction.
#pragma once

#include "modla.h"

namespace modla {

HostObject solve_triangular_system(const HostApi *api, const HostObject *args, bool forward);

}  // namespace modla
