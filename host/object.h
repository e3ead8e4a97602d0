// What the library reads of host values directly.
#pragma once

#include "modla.h"

namespace modla {

inline bool is_immediate(HostObject object) {
    return modla_is_immediate(object);
}
inline int32_t integer_value(HostObject object) {
    return modla_integer_value(object);
}
inline HostObject immediate_integer(int32_t v) {
    return modla_immediate_integer(v);
}
inline HostObject *object_words(HostObject object) {
    return modla_words(object);
}
inline uint32_t object_type(HostObject object) {
    return modla_type(object);
}
inline uint32_t object_length(HostObject object) {
    return modla_length(object);
}

inline bool has_type(HostObject object, uint32_t type) {
    return !is_immediate(object) && object_type(object) == type;
}

inline bool is_big_integer(HostObject object) {
    return has_type(object, MODLA_TYPE_NEGATIVE_INTEGER) || has_type(object, MODLA_TYPE_POSITIVE_INTEGER);
}

}  // namespace modla
