// A host that notes the calls of its operations, each of which may fail.
#pragma once

#include <string>
#include <vector>

#include "console/host.h"
#include "fake_host.h"

namespace modla_test {

// Calls of the host's operations, in a host of which the n-th call fails.
struct Watch {
    std::vector<std::string> names;
    std::vector<FpMode> modes;
    int failing_call = 0;  // from 1; 0: none

    void note(const char *name) {
        names.push_back(name);
        modes.push_back(current_fp_mode());
        if (static_cast<int>(names.size()) == failing_call) throw modla::console::HostError("the host gave up");
    }
};
inline Watch watch;

template <auto slot, auto name, class Result, class... Values>
Result watched(Values... values) {
    watch.note(name());
    return (modla::console::host_api().*slot)(values...);
}
template <auto slot, auto name, class Result, class... Values>
void watch_operation(HostApi *api, Result (*HostApi::*)(Values...)) {
    api->*slot = watched<slot, name, Result, Values...>;
}

inline HostApi watching_host() {
    HostApi api = modla::console::host_api();
#define WATCH(operation) watch_operation<&HostApi::operation, [] { return #operation; }>(&api, &HostApi::operation)
    WATCH(Alloc), WATCH(NewObject), WATCH(AssignName), WATCH(Free), WATCH(Evaluate), WATCH(CheckName);
    WATCH(IsInteger), WATCH(IsName), WATCH(IsNumeric), WATCH(IsRtable), WATCH(ToDouble), WATCH(ToInt), WATCH(NumArgs);
    WATCH(RtableCreate), WATCH(RtableData), WATCH(RtableGetDefaults), WATCH(RtableGetSettings), WATCH(RtableNumDims);
    WATCH(RtableUpperBound), WATCH(NormalizeInteger), WATCH(ToInteger), WATCH(ToFloat), WATCH(ToName);
    WATCH(NullValue), WATCH(ParseString), WATCH(NameTarget);
#undef WATCH
    return api;
}

}  // namespace modla_test
