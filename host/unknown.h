// Looking up an unknown among the left-hand sides of an evaluation list.
#pragma once

#include "host/object.h"

namespace modla {

// isUnkn: the position of x^e among the n objects, by identity of x and e; -1 when it is not there.
inline int32_t index_of_unknown(HostObject x, HostObject e, const HostObject *list, int32_t n) {
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

}  // namespace modla
