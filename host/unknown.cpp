#include "host/unknown.h"

#include "modla.h"

int32_t isUnkn(HostObject x, HostObject e, const HostObject *list, int32_t n) {
    return modla::index_of_unknown(x, e, list, n);
}
