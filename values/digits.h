// Residues of host integers in base-10000 digits.
#pragma once

#include <emmintrin.h>

#include <algorithm>

#include "host/object.h"
#include "residue/ring.h"

namespace modla {

// A host integer that is not immediate, by Horner's rule from the most significant digit.  A negative integer gives
// p - r, so p itself for a multiple of p.
template <class Ring>
typename Ring::Value reduce_digits(const Ring &ring, HostObject integer) {
    using Value = typename Ring::Value;
    const HostObject *words = object_words(integer);
    Value r = 0;
    for (uint32_t i = object_length(integer) - 1; i >= 1 && i < object_length(integer); i--) {
        r = ring.multiply_add(r, Value(10000), Value(words[i]));
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? ring.p - r : r;
}

// 10000^i mod p for many integers and one p: digits then need no reduction of their own, and their products with the
// weights may be added up in any order.
struct DigitWeights {
    static constexpr uint32_t chunk = 64;  // digits per sum, which stays below chunk * 10^4 * 2^25 < 2^53
    FloatRing ring;
    uint32_t known;
    double weight[chunk + 1];
};

inline DigitWeights make_digit_weights(double p) {
    DigitWeights weights;
    weights.ring = {p, pinv_of(p)};
    weights.known = 1;
    weights.weight[0] = 1;
    return weights;
}

inline double sum_digits(const HostObject *digits, uint32_t count, const double *weight) {
    __m128d even = _mm_setzero_pd(), odd = even;
    uint32_t i = 0;
    const auto term = [&](uint32_t k) {
        const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(digits + k));
        return _mm_mul_pd(_mm_cvtepi32_pd(pair), _mm_loadu_pd(weight + k));
    };
    for (; i + 4 <= count; i += 4) {
        even = _mm_add_pd(even, term(i));
        odd = _mm_add_pd(odd, term(i + 2));
    }
    double sums[2];
    _mm_storeu_pd(sums, _mm_add_pd(even, odd));
    double sum = sums[0] + sums[1];
    for (; i < count; i++) sum += static_cast<int32_t>(digits[i]) * weight[i];
    return sum;
}

// reduce_digits by weights.
inline double reduce_weighted_digits(DigitWeights &weights, HostObject integer) {
    const FloatRing &ring = weights.ring;
    const uint32_t count = object_length(integer) - 1;
    const uint32_t needed = std::min(count, DigitWeights::chunk) + 1;
    for (; weights.known < needed; weights.known++) {
        weights.weight[weights.known] = ring.multiply(weights.weight[weights.known - 1], 10000);
    }
    const HostObject *const digits = object_words(integer) + 1;
    uint32_t left = count;
    double r = 0;
    while (left > 0) {
        const uint32_t length = (left - 1) % DigitWeights::chunk + 1;  // the top chunk may be shorter
        left -= length;
        const double sum = sum_digits(digits + left, length, weights.weight);
        r = ring.reduce(r * weights.weight[DigitWeights::chunk * (r != 0)] + sum);
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? ring.p - r : r;
}

}  // namespace modla
