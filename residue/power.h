// Powers of one residue.
#pragma once

#include <cstdint>

namespace modla {

// a^e by right-to-left binary powering; for e < 0 the inverse of a^|e|, or the no-inverse mark.
template <class Ring>
typename Ring::Value power(const Ring &ring, typename Ring::Value a, int32_t e) {
    const uint32_t magnitude = e < 0 ? 0u - static_cast<uint32_t>(e) : static_cast<uint32_t>(e);
    typename Ring::Value r = magnitude & 1 ? a : typename Ring::Value(1);
    typename Ring::Value b = a;
    for (uint32_t m = magnitude >> 1; m >= 1; m >>= 1) {
        b = ring.multiply(b, b);
        if (m & 1) r = ring.multiply(r, b);
    }
    if (e < 0) ring.invert(r, &r);
    return r;
}

// x^e, |e| >= 1, from the power table of x: entry 0 is x, entry i-1 is x^i (i = 2..16) and entry 16+k is x^(2^(k+1)),
// each the no-inverse mark until it is known.  Squarings are stored; entries 1..15 are only read.
template <class Ring>
typename Ring::Value power_from_table(const Ring &ring, typename Ring::Entry *table, int32_t e) {
    using Value = typename Ring::Value;
    const uint32_t magnitude = e < 0 ? 0u - static_cast<uint32_t>(e) : static_cast<uint32_t>(e);
    const Value x = table[0];
    Value r = magnitude & 1 ? x : Value(1);
    if (magnitude >= 1 && magnitude <= 16 && table[magnitude - 1] != Ring::no_inverse) {
        r = table[magnitude - 1];
    } else {
        Value b = x;
        uint32_t k = 0;
        for (uint32_t m = magnitude >> 1; m > 0; m >>= 1, k++) {
            if (k > 15) {
                b = ring.multiply(b, b);
            } else if (table[16 + k] != Ring::no_inverse) {
                b = table[16 + k];
            } else {
                b = ring.multiply(b, b);
                table[16 + k] = b;
            }
            if (m & 1) r = ring.multiply(r, b);
        }
    }
    if (e < 0) ring.invert(r, &r);
    return r;
}

}  // namespace modla
