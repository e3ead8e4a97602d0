#include "host/raise.h"
#include "modla.h"

namespace {

HostObject registered_procedure = 0;  // the library's only state

}  // namespace

HostObject modLA_Register(const HostApi *api, const HostObject *args) {
    if (api->NumArgs(args) != 1) {
        modla::fail(api, "incorrect number of arguments");
        return api->NullValue();
    }
    registered_procedure = args[1];
    return args[1];
}

HostObject modLA_getfcn(const HostApi *api, const char *name) {
    return api->CallProcedure(registered_procedure, 1, api->ParseString(name));
}
