// The operations that elimination makes on lines of a matrix.
//
// All kernels share these operations, so that a faster one, or a fix, serves them all.  On big contiguous lines the
// loops vectorise: a unit step is a compile-time fact.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "blocks/matrix.h"
#include "engine/blas.h"
#include "residue/ring.h"

namespace modla {

template <class AnyLine>
constexpr bool is_float_line = std::is_same_v<std::remove_const_t<typename AnyLine::Entry>, StoredDouble>;

// line[k] mod p, for entries that may be unreduced sums.
template <class Ring, class AnyLine>
void reduce_line(const Ring &ring, const AnyLine &line, int32_t count) {
    for (int32_t k = 0; k < count; k++) line[k] = ring.reduce(line[k]);
}

// Makes every entry of the leading rows x columns a residue, whatever the host left there.
template <class Ring, class M>
void canonicalize(const Ring &ring, const M &A, int32_t rows, int32_t columns) {
    const int32_t lines = M::c_order ? rows : columns, count = M::c_order ? columns : rows;
    for (int32_t i = 0; i < lines; i++) {
        typename M::Entry *const line = A.data + i * A.ld;
        for (int32_t k = 0; k < count; k++) {
            const typename Ring::Value x = line[k];
            if (!ring.is_canonical(x)) line[k] = ring.canonical(x);
        }
    }
}

// Are all entries residues?
template <class Ring, class AnyLine>
bool is_canonical_line(const Ring &ring, const AnyLine &line, int32_t count) {
    bool canonical = true;
    for (int32_t k = 0; k < count; k++) canonical &= ring.is_canonical(line[k]);
    return canonical;
}

// The sum of a[k] * b[k], unreduced.
template <class Ring, class LineA, class LineB>
typename Ring::Value sum_products(const Ring &, const LineA &a, const LineB &b, int32_t count) {
    if constexpr (is_float_line<LineB>) {
        if (suits_blas(a.data, a.step) && suits_blas(b.data, b.step)) {
            return cblas_ddot(count, &a.data->value, static_cast<int>(a.step), &b.data->value,
                              static_cast<int>(b.step));
        }
    }
    typename Ring::Value sum = 0;
    for (int32_t k = 0; k < count; k++) sum += a[k] * b[k];
    return sum;
}

// The sum of a[k] * b[k] mod p, for so few terms that products of residues cannot overflow.  b holds residues, a any
// entries.
template <class Ring, class LineA, class LineB>
typename Ring::Value dot_line(const Ring &ring, const LineA &a, const LineB &b, int32_t count) {
    if (is_canonical_line(ring, a, count)) return ring.reduce(sum_products(ring, a, b, count));
    typename Ring::Value sum = 0;
    for (int32_t k = 0; k < count; k++) sum = ring.multiply_add(ring.canonical(a[k]), b[k], sum);
    return sum;
}

// target[k] += f * source[k], unreduced.
template <class Ring, class Target, class Source>
void add_multiple(const Ring &, const Target &target, const Source &source, int32_t count, typename Ring::Value f) {
    if constexpr (is_float_line<Target>) {
        if (suits_blas(target.data, target.step) && suits_blas(source.data, source.step)) {
            cblas_daxpy(count, f, &source.data->value, static_cast<int>(source.step), &target.data->value,
                        static_cast<int>(target.step));
            return;
        }
    }
    for (int32_t k = 0; k < count; k++) target[k] = target[k] + f * source[k];
}

// target[k] = (target[k] + f * source[k]) mod p; target may hold unreduced sums.
template <class Ring, class Target, class Source>
void add_multiple_reduced(const Ring &ring, const Target &target, const Source &source, int32_t count,
                          typename Ring::Value f) {
    for (int32_t k = 0; k < count; k++) target[k] = ring.multiply_add(f, source[k], target[k]);
}

template <class Ring, class AnyLine>
void scale_line(const Ring &ring, const AnyLine &line, int32_t count, typename Ring::Value f) {
    for (int32_t k = 0; k < count; k++) line[k] = ring.multiply(f, line[k]);
}

template <class AnyLine>
void swap_lines(const AnyLine &a, const AnyLine &b, int32_t count) {
    if constexpr (is_float_line<AnyLine>) {
        if (suits_blas(a.data, a.step) && suits_blas(b.data, b.step)) {
            cblas_dswap(count, &a.data->value, static_cast<int>(a.step), &b.data->value, static_cast<int>(b.step));
            return;
        }
    }
    for (int32_t k = 0; k < count; k++) {
        const typename AnyLine::Entry entry = a[k];
        a[k] = b[k];
        b[k] = entry;
    }
}

}  // namespace modla
