// Raising the host's errors.
#pragma once

#include <initializer_list>

#include "modla.h"

namespace modla {

// Raises a message; RaiseError normally does not return.  Where it does, the false that comes back ends the call: a
// failed check always travels upward as false and the entry point returns NullValue().
template <class... Objects>
bool fail(const HostApi *api, const char *message, Objects... objects) {
    api->RaiseError(message, objects...);
    return false;
}

// What a status of a kernel or a callback means.
struct StatusMessage {
    int32_t status;
    const char *message;
};

// Raises the message of a status other than 0, "unknown error" for one that is not listed; true for 0.
inline bool report_status(const HostApi *api, int32_t status, std::initializer_list<StatusMessage> messages) {
    if (status == 0) return true;
    for (const StatusMessage &known : messages) {
        if (known.status == status) return fail(api, known.message);
    }
    return fail(api, "unknown error");
}

}  // namespace modla
