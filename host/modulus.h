// The modulus, and a fill value or multiplier, in the representation of a datatype.
#pragma once

#include "modla.h"

namespace modla {

// What validate_modulus stores, by datatype.
union Scalar {
    int32_t word;       // integer[4]
    double real;        // float[8]
    HostObject object;  // integer
};

// validate_modulus, telling whether the checks passed.
bool check_modulus(const HostApi *api, HostObject modulus, void *out_modulus, int32_t datatype, const HostObject *fill,
                   void *out_fill, const char *word, int32_t default_fill);

// Without a fill value.
inline bool check_modulus(const HostApi *api, HostObject modulus, Scalar *out, int32_t datatype) {
    return check_modulus(api, modulus, out, datatype, nullptr, nullptr, "", 0);
}

}  // namespace modla
