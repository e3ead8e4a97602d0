#include "host/object.h"
#include "modla.h"

using namespace modla;

int32_t isUnkn(HostObject x, HostObject e, const HostObject *list, int32_t n) {
    const bool plain = e == immediate_integer(1);
    for (int32_t i = 0; i < n; i++) {
        if (plain ? list[i] == x
                  : has_type(list[i], MODLA_TYPE_POWER) && object_length(list[i]) == 3 &&
                        object_words(list[i])[1] == x && object_words(list[i])[2] == e) {
            return i;
        }
    }
    return -1;
}
