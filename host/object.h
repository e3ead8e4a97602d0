// The layout of host values, as far as the library reads it directly.
#pragma once

#include "modla.h"

namespace modla {

inline bool is_immediate(HostObject object) {
    return object & 1;
}

// The value of an immediate integer.
inline int32_t integer_value(HostObject object) {
    return static_cast<int32_t>(object) >> 1;
}

// v as an immediate integer, |v| < 2^30.
inline HostObject immediate_integer(int32_t v) {
    return (static_cast<uint32_t>(v) << 1) | 1;
}

// The words of an object that is not immediate; word 0 is its header.
inline HostObject *object_words(HostObject object) {
    return reinterpret_cast<HostObject *>(object);
}

inline uint32_t object_type(HostObject object) {
    return object_words(object)[0] >> 26;
}

inline uint32_t object_length(HostObject object) {
    return object_words(object)[0] & 0x3ffffff;
}

inline bool has_type(HostObject object, uint32_t type) {
    return !is_immediate(object) && object_type(object) == type;
}

inline bool is_big_integer(HostObject object) {
    return has_type(object, MODLA_TYPE_NEGATIVE_INTEGER) || has_type(object, MODLA_TYPE_POSITIVE_INTEGER);
}

}  // namespace modla
