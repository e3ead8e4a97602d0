#include "elimination/triangular_system.h"

HostObject modLA_ForSub(const HostApi *api, const HostObject *args) {
    return modla::solve_triangular_system(api, args, true);
}
