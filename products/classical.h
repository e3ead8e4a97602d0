// The classical product C = A*B mod p, one text for all residues, strides and schedules.
//
// Sums of products stay unreduced for `chunk` products at a time, which the accumulator holds beside a residue.  Tiles
// of 4 rows by 64 columns are accumulated on the stack from a contiguous copy of the matching part of B, so that every
// layout meets the same inner loop.  Results with contiguous columns are computed transposed.
#pragma once

#include <algorithm>
#include <cstdint>

#include "engine/move.h"
#include "products/product.h"
#include "residue/ring.h"

namespace modla {

constexpr int32_t product_rows = 4, product_columns = 64, product_depth = 128;

// What a sum is collected in, for a ring and a modulus.
//
// Words: 64 bits hold 2^32 products, whatever the modulus.  With 32 bits, which are faster, a residue and `chunk`
// products of residues stay below 2^32 because chunk <= floor((2^32 - p)/(p-1)^2).
struct WideSum {
    using Entry = uint32_t;
    using Value = uint32_t;
    using Sum = uint64_t;
    WordRing ring;
    uint32_t wrap;  // 2^32 mod p

    // For sums of at most product_depth products: their upper word times `wrap` stays a word.
    static_assert((uint64_t{product_depth} + 1) << 16 < WordRing::limit);
    uint32_t reduce(uint64_t t) const {
        return ring.reduce(ring.reduce(static_cast<uint32_t>(t)) + static_cast<uint32_t>(t >> 32) * wrap);
    }
};

// Floats, too: a residue and `chunk` products stay below 2^53 because chunk <= floor((2^53 - p)/(p-1)^2).
template <class Ring>
struct NarrowSum {
    using Entry = typename Ring::Entry;
    using Value = typename Ring::Value;
    using Sum = Value;
    Ring ring;
    Value reduce(Value t) const { return ring.reduce(t); }
};
template <class Ring>
NarrowSum(Ring) -> NarrowSum<Ring>;

// One row times a matrix, by dot products along B's columns.
template <class Accumulator, class Entry>
void multiply_row_by_dots(const Accumulator &sums, const Product<Entry> &product, int32_t chunk) {
    using Sum = typename Accumulator::Sum;
    const auto &[m, k, n, A, B, C, sparse] = product;
    for (int32_t j = 0; j < n; j++) {
        Sum sum = 0;
        for (int32_t t0 = 0; t0 < k; t0 += chunk) {
            const int32_t count = std::min(chunk, k - t0);
            const Entry *const a = &A.at(0, t0);
            const Entry *const b = &B.at(t0, j);
            if (A.steps.column == 1 && B.steps.row == 1) {
                for (int32_t t = 0; t < count; t++) sum += Sum(a[t]) * Sum(b[t]);
            } else {
                for (int32_t t = 0; t < count; t++) sum += Sum(a[t * A.steps.column]) * Sum(b[t * B.steps.row]);
            }
            sum = sums.reduce(sum);
        }
        C.at(0, j) = static_cast<typename Accumulator::Value>(sum);
    }
}

// C(rows x columns) = or += A*B for one tile; B's rows are contiguous, `step` apart.
template <int32_t rows, class Accumulator, class Entry = typename Accumulator::Entry>
void multiply_tile(const Accumulator &sums, int32_t depth, int32_t columns, Operand<const Entry> A, const Entry *B,
                   ptrdiff_t step, Operand<Entry> C, bool first, bool sparse) {
    using Sum = typename Accumulator::Sum;
    Sum tile[rows][product_columns];
    for (int32_t r = 0; r < rows; r++) {
        for (int32_t j = 0; j < product_columns; j++) tile[r][j] = !first && j < columns ? Sum(C.at(r, j)) : Sum(0);
    }
    for (int32_t t = 0; t < depth; t++) {
        const Entry *const b = B + t * step;
        for (int32_t r = 0; r < rows; r++) {
            const typename Accumulator::Value a = A.at(r, t);
            if (sparse && a == 0) continue;
            if (columns == product_columns) {
                for (int32_t j = 0; j < product_columns; j++) tile[r][j] += Sum(a) * Sum(b[j]);
            } else {
                for (int32_t j = 0; j < columns; j++) tile[r][j] += Sum(a) * Sum(b[j]);
            }
        }
    }
    for (int32_t r = 0; r < rows; r++) {
        for (int32_t j = 0; j < columns; j++) C.at(r, j) = sums.reduce(tile[r][j]);
    }
}

template <class Accumulator, class Entry>
void multiply_tiles(const Accumulator &sums, const Product<Entry> &product, int32_t chunk) {
    const auto &[m, k, n, A, B, C, sparse] = product;
    alignas(16) Entry packed[product_depth * product_columns];
    for (int32_t j = 0; j < n; j += product_columns) {
        const int32_t columns = std::min(product_columns, n - j);
        for (int32_t t = 0; t < k; t += chunk) {
            const int32_t depth = std::min(chunk, k - t);
            const Entry *part = &B.at(t, j);
            ptrdiff_t step = B.steps.row;
            if (B.steps.column != 1 || m >= 2 * product_rows) {
                copy_entries<Entry>({depth, columns}, B.from(t, j), {packed, {product_columns, 1}});
                part = packed;
                step = product_columns;
            }
            int32_t i = 0;
            for (; i + product_rows <= m; i += product_rows) {
                multiply_tile<product_rows>(sums, depth, columns, A.from(i, t), part, step, C.from(i, j), t == 0,
                                            sparse);
            }
            for (; i < m; i++) {
                multiply_tile<1>(sums, depth, columns, A.from(i, t), part, step, C.from(i, j), t == 0, sparse);
            }
        }
    }
}

// chunk >= 1 products may be added to a residue; k >= 1.
template <class Accumulator, class Entry>
void multiply_summing(const Accumulator &sums, Product<Entry> product, int32_t chunk) {
    auto &[m, k, n, A, B, C, sparse] = product;
    if (n == 1 || (m != 1 && C.steps.column != 1 && C.steps.row == 1)) {
        product = {n, k, m, B.transposed(), A.transposed(), C.transposed(), sparse};
    }
    chunk = std::clamp(chunk, 1, product_depth);
    if (m == 1 && B.steps.column != 1) return multiply_row_by_dots(sums, product, chunk);
    multiply_tiles(sums, product, chunk);
}

// The product of residues, with the accumulator that suits the modulus.
inline void multiply_classically(const WordRing &ring, const Product<uint32_t> &product) {
    const int32_t bound = delay_bound(ring);
    if (bound >= std::min(product.k, 16)) {
        multiply_summing(NarrowSum{ring}, product, bound);
    } else {
        const uint32_t wrap = static_cast<uint32_t>(WordRing::limit % ring.p);
        multiply_summing(WideSum{ring, wrap}, product, product_depth);
    }
}

inline void multiply_classically(const FloatRing &ring, const Product<StoredDouble> &product) {
    multiply_summing(NarrowSum{ring}, product, delay_bound(ring));
}

}  // namespace modla
