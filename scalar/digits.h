// Residues of host integers in base-10000 digits.
#pragma once

#include "host/object.h"

namespace modla {

// Horner's rule, most significant digit first.  A negative integer gives p - r, so p itself for a multiple of p.
template <class Residue>
typename Residue::Value reduce_digits(const Residue &residue, HostObject integer) {
    using Value = typename Residue::Value;
    const HostObject *words = object_words(integer);
    Value r = 0;
    for (uint32_t i = object_length(integer) - 1; i >= 1 && i < object_length(integer); i--) {
        r = residue.multiply_add(r, Value(10000), Value(words[i]));
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? residue.p - r : r;
}

}  // namespace modla
