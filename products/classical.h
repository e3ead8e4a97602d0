// The classical product C = A*B mod p, one text for all residues, strides and schedules.
//
// Sums of products stay unreduced for `chunk` products at a time, which the accumulator holds beside a residue.  Tiles
// of 4 rows by 64 columns are accumulated on the stack from a contiguous copy of the matching part of B, so that every
// layout meets the same inner loop.  Results with contiguous columns are computed transposed.
#pragma once

#include <algorithm>
#include <cstdint>

#include "products/operand.h"
#include "residue/ring.h"

namespace modla {

// What a sum is collected in, for a residue and a modulus.
//
// Words: 64 bits hold 2^32 products, whatever the modulus.  With 32 bits, which are faster, a residue and `chunk`
// products of residues stay below 2^32 because chunk <= floor((2^32 - p)/(p-1)^2).
struct WideWord {
    using Entry = uint32_t;
    using Value = uint32_t;
    using Sum = uint64_t;
    Word word;
    uint32_t wrap;  // 2^32 mod p

    // For sums below 2^39: at most 128 products.
    uint32_t reduce(uint64_t t) const {
        return word.reduce(word.reduce(static_cast<uint32_t>(t)) + static_cast<uint32_t>(t >> 32) * wrap);
    }
};

struct NarrowWord {
    using Entry = uint32_t;
    using Value = uint32_t;
    using Sum = uint32_t;
    Word word;
    uint32_t reduce(uint32_t t) const { return word.reduce(t); }
};

// Floats: a residue and `chunk` products stay below 2^53 because chunk <= floor((2^53 - p)/(p-1)^2).
struct FloatSum {
    using Entry = StoredDouble;
    using Value = double;
    using Sum = double;
    Float residue;
    double reduce(double t) const { return residue.reduce(t); }
};

constexpr int32_t product_rows = 4, product_columns = 64, product_depth = 128;

// One row times a matrix, by dot products along B's columns.
template <class Accumulator, class Entry = typename Accumulator::Entry>
void multiply_row_by_dots(const Accumulator &sums, int32_t k, int32_t n, Operand<const Entry> A, Operand<const Entry> B,
                          Operand<Entry> C, int32_t chunk) {
    using Sum = typename Accumulator::Sum;
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

template <class Accumulator, class Entry = typename Accumulator::Entry>
void multiply_tiles(const Accumulator &sums, int32_t m, int32_t k, int32_t n, Operand<const Entry> A,
                    Operand<const Entry> B, Operand<Entry> C, int32_t chunk, bool sparse) {
    alignas(16) Entry packed[product_depth * product_columns];
    for (int32_t j = 0; j < n; j += product_columns) {
        const int32_t columns = std::min(product_columns, n - j);
        for (int32_t t = 0; t < k; t += chunk) {
            const int32_t depth = std::min(chunk, k - t);
            const Entry *part = &B.at(t, j);
            ptrdiff_t step = B.steps.row;
            if (B.steps.column != 1 || m >= 2 * product_rows) {
                copy_entries<Entry>({depth, columns}, part, B.steps, packed, {product_columns, 1});
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
template <class Accumulator, class Entry = typename Accumulator::Entry>
void multiply_classically(const Accumulator &sums, int32_t m, int32_t k, int32_t n, Operand<const Entry> A,
                          Operand<const Entry> B, Operand<Entry> C, int32_t chunk, bool sparse) {
    if (n == 1 || (m != 1 && C.steps.column != 1 && C.steps.row == 1)) {
        std::swap(m, n);
        std::swap(A, B);
        A = A.transposed();
        B = B.transposed();
        C = C.transposed();
    }
    chunk = std::clamp(chunk, 1, product_depth);
    if (m == 1 && B.steps.column != 1) return multiply_row_by_dots(sums, k, n, A, B, C, chunk);
    multiply_tiles(sums, m, k, n, A, B, C, chunk, sparse);
}

// The product of residues, with the accumulator that suits the modulus.
inline void multiply_blocks(const Word &word, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A,
                            Operand<const uint32_t> B, Operand<uint32_t> C, bool sparse) {
    const int32_t bound = pending_bound<Word>(word.p);
    if (bound >= std::min(k, 16)) {
        multiply_classically(NarrowWord{word}, m, k, n, A, B, C, bound, sparse);
    } else {
        const uint32_t wrap = static_cast<uint32_t>(Word::limit % word.p);
        multiply_classically(WideWord{word, wrap}, m, k, n, A, B, C, product_depth, sparse);
    }
}

inline void multiply_blocks(const Float &residue, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
                            Operand<const StoredDouble> B, Operand<StoredDouble> C, bool sparse) {
    const uint32_t p = modulus_of(residue.p);
    const int32_t bound = pending_bound<Float>(p);
    multiply_classically(FloatSum{residue}, m, k, n, A, B, C, bound, sparse);
}

}  // namespace modla
