// Passes over memory: native entries of any value, and digits, to residues.
#pragma once

#include <emmintrin.h>

#include <cstring>
#include <type_traits>

#include "blocks/operand.h"
#include "engine/move.h"
#include "residue/ring.h"
#include "residue/rounding.h"

namespace modla {

// Entries are converted in chunks that stay in the first cache.
constexpr int32_t conversion_chunk = 64;

// Signed words: counted from the most negative one they are unsigned.  Counts are multiples of 4.
inline void reduce_words(const WordRing &ring, const int32_t *from, uint32_t *to, int32_t count) {
    const auto all = [](uint32_t x) { return _mm_set1_epi32(static_cast<int32_t>(x)); };
    const __m128i lowest = all(uint32_t{1} << 31), p = all(ring.p), reciprocal = all(ring.reciprocal);
    const __m128i largest = all(ring.p - 1), shift = all(ring.reduce(uint32_t{1} << 31));
    const __m128i low_halves = _mm_set_epi32(0, -1, 0, -1);
    for (int32_t k = 0; k < count; k += 4) {
        const __m128i t = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(from + k)), lowest);
        // As WordRing::reduce, for even and odd places.
        const __m128i even = _mm_srli_epi64(_mm_mul_epu32(t, reciprocal), 32);
        const __m128i odd = _mm_srli_epi64(_mm_mul_epu32(_mm_srli_epi64(t, 32), reciprocal), 32);
        const __m128i multiple =
            _mm_or_si128(_mm_and_si128(_mm_mul_epu32(even, p), low_halves), _mm_slli_epi64(_mm_mul_epu32(odd, p), 32));
        const __m128i r2 = _mm_sub_epi32(t, multiple);
        const __m128i r = _mm_sub_epi32(r2, _mm_and_si128(_mm_cmpgt_epi32(r2, largest), p));
        const __m128i shifted = _mm_sub_epi32(r, shift);
        const __m128i lifted = _mm_add_epi32(shifted, _mm_and_si128(_mm_srai_epi32(shifted, 31), p));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to + k), lifted);
    }
}

// x mod p by pairs, for integers below 2^50 in magnitude.  The rounded quotient is off by less than 0.7, so that what it
// leaves lies between -p and p.
struct PairReducer {
    __m128d p, pinv;
    __m128d operator()(__m128d x) const {
        const __m128d rounder = _mm_set1_pd(1.5 * two_to_52);
        const __m128d q = _mm_sub_pd(_mm_add_pd(_mm_mul_pd(x, pinv), rounder), rounder);
        const __m128d r = _mm_sub_pd(x, _mm_mul_pd(q, p));
        return _mm_add_pd(r, _mm_and_pd(_mm_cmplt_pd(r, _mm_setzero_pd()), p));
    }
};
inline PairReducer pair_reducer(double p) {
    return {_mm_set1_pd(p), _mm_set1_pd(float_ring(p).pinv)};
}

inline __m128d load_pair(const StoredDouble *from) {
    return _mm_loadu_pd(reinterpret_cast<const double *>(from));
}
inline void store_pair(StoredDouble *to, __m128d pair) {
    _mm_storeu_pd(reinterpret_cast<double *>(to), pair);
}
inline void store_pair(uint32_t *to, __m128d pair) {
    _mm_storel_epi64(reinterpret_cast<__m128i *>(to), _mm_cvttpd_epi32(pair));
}

inline void reduce_words(const FloatRing &ring, const int32_t *from, StoredDouble *to, int32_t count) {
    const PairReducer reduce = pair_reducer(ring.p);
    for (int32_t k = 0; k < count; k += 2) {
        const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(from + k));
        store_pair(to + k, reduce(_mm_cvtepi32_pd(pair)));
    }
}

// A double that the conversion to integers takes.
inline bool is_convertible(double d) {
    return d <= two_to_53 - 1 && d >= -(two_to_53 - 1);
}

// Are all of data[0], data[step], ...?
inline bool are_convertible(const StoredDouble *data, ptrdiff_t step, int32_t count) {
    const __m128d limit = _mm_set1_pd(two_to_53 - 1), sign = _mm_set1_pd(-0.0);
    __m128d within = _mm_cmpeq_pd(limit, limit);
    int32_t k = 0;
    for (; step == 1 && k + 2 <= count; k += 2) {
        const __m128d x = load_pair(data + k);
        within = _mm_and_pd(within, _mm_cmple_pd(_mm_andnot_pd(sign, x), limit));
    }
    bool convertible = _mm_movemask_pd(within) == 3;
    for (; k < count; k++) convertible &= is_convertible(data[k * step]);
    return convertible;
}

// Integers below 2^50 in magnitude; false when not all are.
template <class Entry>
bool reduce_whole_doubles(double p, const StoredDouble *from, Entry *to, int32_t count) {
    const PairReducer reduce = pair_reducer(p);
    const __m128d rounder = _mm_set1_pd(1.5 * two_to_52), sign = _mm_set1_pd(-0.0);
    __m128d largest = _mm_setzero_pd(), fractions = largest;
    for (int32_t k = 0; k < count; k += 2) {
        const __m128d x = load_pair(from + k);
        largest = _mm_max_pd(largest, _mm_andnot_pd(sign, x));
        const __m128d nearest = _mm_sub_pd(_mm_add_pd(x, rounder), rounder);
        fractions = _mm_or_pd(fractions, _mm_cmpneq_pd(nearest, x));
        store_pair(to + k, reduce(x));
    }
    const __m128d limit = _mm_set1_pd(two_to_52 / 4);
    return _mm_movemask_pd(_mm_or_pd(fractions, _mm_cmpge_pd(largest, limit))) == 0;
}

// Doubles of magnitude below 2^53, rounded to integers as round_double does.
template <class Entry>
void reduce_any_doubles(double p, const StoredDouble *from, Entry *to, int32_t count) {
    const PairReducer reduce = pair_reducer(p);
    const __m128d modulus = _mm_set1_pd(p), pinv = _mm_set1_pd(float_ring(p).pinv), one = _mm_set1_pd(1);
    const __m128d half = _mm_set1_pd(0.5), large = _mm_set1_pd(two_to_52), rounder = _mm_set1_pd(1.5 * two_to_52);
    const __m128d sign = _mm_set1_pd(-0.0), zero = _mm_setzero_pd();
    const auto floor = [=](__m128d x, __m128d shift) {
        const __m128d nearest = _mm_sub_pd(_mm_add_pd(x, shift), shift);
        return _mm_sub_pd(nearest, _mm_and_pd(_mm_cmpgt_pd(nearest, x), one));
    };
    const auto select = [](__m128d mask, __m128d a, __m128d b) {
        return _mm_or_pd(_mm_and_pd(mask, a), _mm_andnot_pd(mask, b));
    };
    for (int32_t k = 0; k < count; k += 2) {
        const __m128d x = load_pair(from + k), magnitude = _mm_andnot_pd(sign, x);
        const __m128d small = _mm_cmple_pd(magnitude, _mm_set1_pd(immediate_limit));
        const __m128d upward = floor(_mm_add_pd(x, half), rounder);
        if (_mm_movemask_pd(small) == 3) {
            store_pair(to + k, reduce(upward));
            continue;
        }
        const __m128d away =
            select(_mm_cmplt_pd(magnitude, large), floor(_mm_add_pd(magnitude, half), large), magnitude);
        const __m128d t = select(small, _mm_andnot_pd(sign, upward), away);
        const __m128d negative = _mm_cmplt_pd(select(small, upward, x), zero);
        // As FloatRing::reduce.
        const __m128d q = _mm_sub_pd(floor(_mm_mul_pd(t, pinv), large), one);
        const __m128d lifted = _mm_sub_pd(t, _mm_mul_pd(q, modulus));
        const __m128d r = _mm_sub_pd(lifted, _mm_and_pd(_mm_cmpge_pd(lifted, modulus), modulus));
        const __m128d opposite = _mm_and_pd(negative, _mm_cmpneq_pd(r, zero));
        store_pair(to + k, select(opposite, _mm_sub_pd(modulus, r), r));
    }
}

// Converts a chunk of a line; *whole tells whether all before it were integers below 2^50, which are tried first.
template <class Ring>
void reduce_chunk(const Ring &ring, const int32_t *from, typename Ring::Entry *to, int32_t count, bool *) {
    reduce_words(ring, from, to, count);
}
template <class Ring>
void reduce_chunk(const Ring &ring, const StoredDouble *from, typename Ring::Entry *to, int32_t count, bool *whole) {
    const double p = static_cast<double>(ring.p);
    *whole = *whole && reduce_whole_doubles(p, from, to, count);
    if (!*whole) reduce_any_doubles(p, from, to, count);
}

// from[0], from[from_step], ... as residues at to[0], to[to_step], ..., which may be the same places.
template <class Ring, class From>
void convert_line(const Ring &ring, const From *from, ptrdiff_t from_step, typename Ring::Entry *to, ptrdiff_t to_step,
                  int32_t count) {
    alignas(16) From copied[conversion_chunk];
    alignas(16) typename Ring::Entry target[conversion_chunk];
    bool whole = true;
    const bool in_place = static_cast<const void *>(from) == to;
    for (int32_t done = 0; done < count; done += conversion_chunk) {
        const int32_t n = std::min(count - done, conversion_chunk);
        const bool full = n == conversion_chunk;
        const From *source = from + done;
        int32_t padded = n;
        if (from_step != 1 || !full || in_place) {
            for (int32_t k = 0; k < n; k++) copied[k] = from[(done + k) * from_step];
            while (padded % 4 != 0) copied[padded++] = From{0};
            source = copied;
        }
        if (to_step == 1 && full) {
            reduce_chunk(ring, source, to + done, padded, &whole);
        } else {
            reduce_chunk(ring, source, target, padded, &whole);
            for (int32_t k = 0; k < n; k++) to[(done + k) * to_step] = target[k];
        }
    }
}

// The same for operands, which may be one and the same but must not overlap otherwise.
template <class Ring, class From>
void convert_entries(const Ring &ring, const Shape &shape, Operand<const From> from, Operand<typename Ring::Entry> to) {
    using Entry = typename Ring::Entry;
    if constexpr (sizeof(From) == sizeof(Entry)) {
        // Entries of one size are moved in tiles first and converted where they then are.
        if (is_transposing(from.steps, to.steps) || is_transposing(to.steps, from.steps)) {
            copy_entries<Entry>(shape, {reinterpret_cast<const Entry *>(from.data), from.steps}, to);
            return convert_entries<Ring, From>(ring, shape, {reinterpret_cast<const From *>(to.data), to.steps}, to);
        }
    }
    walk<2>(shape, {from.steps, to.steps}, false,
            [&](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                const ptrdiff_t from_step = unit ? 1 : inner[0], to_step = unit ? 1 : inner[1];
                convert_line(ring, from.data + offsets[0], from_step, to.data + offsets[1], to_step, count);
            });
}

// The sum of digits[i] * weights[i], for digits below 2^31 and sums below 2^53.
inline double sum_weighted(const uint32_t *digits, uint32_t count, const double *weights) {
    __m128d even = _mm_setzero_pd(), odd = even;
    uint32_t i = 0;
    const auto term = [&](uint32_t k) {
        const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(digits + k));
        return _mm_mul_pd(_mm_cvtepi32_pd(pair), _mm_loadu_pd(weights + k));
    };
    for (; i + 4 <= count; i += 4) {
        even = _mm_add_pd(even, term(i));
        odd = _mm_add_pd(odd, term(i + 2));
    }
    double sums[2];
    _mm_storeu_pd(sums, _mm_add_pd(even, odd));
    double sum = sums[0] + sums[1];
    for (; i < count; i++) sum += static_cast<int32_t>(digits[i]) * weights[i];
    return sum;
}

}  // namespace modla
