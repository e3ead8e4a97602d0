// Raising the host's errors.
#pragma once

#include "modla.h"

namespace modla {

// Raises a message; RaiseError normally does not return.  Where it does, the false that comes back ends the call: a
// failed check always travels upward as false and the entry point returns NullValue().
template <class... Objects>
bool fail(const HostApi *api, const char *message, Objects... objects) {
    api->RaiseError(message, objects...);
    return false;
}

}  // namespace modla
