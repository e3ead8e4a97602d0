// Residues of host integers in base-10000 digits.
#pragma once

#include <algorithm>

#include "engine/convert.h"
#include "host/object.h"
#include "residue/ring.h"

namespace modla {

constexpr uint32_t digit_base = 10000;

// Writes the digits of a number and returns how many there are, at most 5.
inline uint32_t split_digits(uint64_t number, uint32_t *digits) {
    uint32_t count = 0;
    for (; number != 0; number /= digit_base) digits[count++] = static_cast<uint32_t>(number % digit_base);
    return count;
}

// A host integer that is not immediate, by Horner's rule from the most significant digit.  A negative integer gives
// p - r, so p itself for a multiple of p.
template <class Ring>
typename Ring::Value reduce_digits(const Ring &ring, HostObject integer) {
    using Value = typename Ring::Value;
    const HostObject *words = object_words(integer);
    Value r = 0;
    for (uint32_t i = object_length(integer) - 1; i >= 1 && i < object_length(integer); i--) {
        r = ring.multiply_add(r, Value(digit_base), Value(words[i]));
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? ring.p - r : r;
}

// 10000^i mod p for many integers and one p: digits then need no reduction of their own, and their products with the
// weights may be added up in any order.
struct DigitWeights {
    static constexpr uint32_t chunk = 64;  // digits per sum
    // A product of residues and a sum of digits times residues are reduced together.
    static_assert((uint64_t{1} << 50) + chunk * (uint64_t{digit_base} << 25) < FloatRing::limit);
    FloatRing ring;
    uint32_t known;
    double weight[chunk + 1];
};

inline DigitWeights make_digit_weights(double p) {
    DigitWeights weights;
    weights.ring = float_ring(p);
    weights.known = 1;
    weights.weight[0] = 1;
    return weights;
}

// reduce_digits by weights.
inline double reduce_weighted_digits(DigitWeights &weights, HostObject integer) {
    const FloatRing &ring = weights.ring;
    const uint32_t count = object_length(integer) - 1;
    const uint32_t needed = std::min(count, DigitWeights::chunk) + 1;
    for (; weights.known < needed; weights.known++) {
        weights.weight[weights.known] = ring.multiply(weights.weight[weights.known - 1], digit_base);
    }
    const HostObject *const digits = object_words(integer) + 1;
    uint32_t left = count;
    double r = 0;
    while (left > 0) {
        const uint32_t length = (left - 1) % DigitWeights::chunk + 1;  // the top chunk may be shorter
        left -= length;
        const double sum = sum_weighted(digits + left, length, weights.weight);
        r = ring.reduce(r * weights.weight[DigitWeights::chunk * (r != 0)] + sum);
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? ring.p - r : r;
}

}  // namespace modla
