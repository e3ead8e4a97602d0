// The zigzag form of a square matrix (Storjohann, 1998): one text for all residues and both orders.
//
// Similarity transformations, each a row operation paired with the inverse column operation, make the matrix a chain of
// blocks.  In a column block start..end, each column before the last is a single 1 below the diagonal, and the rows but
// the first are zero to the right of the block; a single 1 in the first row couples it to the next block.  That one is
// a row block, the transpose of a column block, and so on in turn.  Both kinds are made by the same steps, on the
// matrix or on its transpose.
#pragma once

#include <algorithm>
#include <cstdint>

#include "elimination/row_update.h"
#include "engine/rows.h"

namespace modla {

enum ZigZagStatus : int32_t { zigzag_done = 0, zigzag_no_inverse = 1 };

template <class Ring, class M>
struct ZigZag {
    Ring ring;
    M A;
    int32_t n;
    int32_t limit;  // products that a residue may absorb before it must be reduced
};

template <class Ring, class M>
auto transposed(const ZigZag<Ring, M> &Z) {
    return ZigZag<Ring, Matrix<typename M::Entry, !M::c_order>>{Z.ring, {Z.A.data, Z.A.ld}, Z.n, Z.limit};
}

// The first row from `from` on with a nonzero entry in column j; at least n when there is none.
template <class Z>
int32_t find_nonzero(const Z &z, int32_t j, int32_t from) {
    while (from < z.n && z.A.at(from, j) == 0) from++;
    return from;
}

// Exchanges rows a and b from column `column` on, and columns a and b from row `row` on.
template <class Z>
void exchange(const Z &z, int32_t a, int32_t b, int32_t column, int32_t row) {
    if (a == b) return;
    swap_lines(z.A.row(a, column), z.A.row(b, column), z.n - column);
    swap_lines(z.A.column(a, row), z.A.column(b, row), z.n - row);
}

// Multiplies row i by f from column `column` on, and column i by 1/f from row `row` on.
template <class Z, class Value>
void scale(const Z &z, int32_t i, int32_t column, Value f, int32_t row, Value inverse) {
    if (f == 1) return;
    scale_line(z.ring, z.A.row(i, column), z.n - column, f);
    scale_line(z.ring, z.A.column(i, row), z.n - row, inverse);
}

// Subtracts from column h, from row `first` on, the columns r = h+1..n-1, each times entry r of column h-1.
template <class Z>
void subtract_columns(const Z &z, int32_t h, int32_t first) {
    using Entry = typename decltype(z.A)::Entry;
    const auto &ring = z.ring;
    const auto &A = z.A;
    if constexpr (decltype(z.A)::c_order) {
        constexpr int32_t most = 128;  // factors at a time, side by side; that many residues can be summed
        static_assert(uint64_t{most} << 25 < FloatRing::limit && uint64_t{most} << 16 < WordRing::limit);
        alignas(16) Entry factors[most];
        for (int32_t r = h + 1; r < z.n; r += most) {
            const int32_t count = std::min(z.n - r, most);
            for (int32_t k = 0; k < count; k++) factors[k] = ring.negate(A.at(r + k, h - 1));
            for (int32_t i = first; i < z.n; i++) {
                const auto sum = dot_residues(ring, A.row(i, r), Line<Entry, UnitStep>{factors, {}}, count, z.limit);
                A.at(i, h) = ring.reduce(A.at(i, h) + sum);
            }
        }
    } else {
        const auto target = A.column(h, first);
        int32_t delayed = 0;  // unreduced multiples in the target
        for (int32_t r = h + 1; r < z.n; r++) {
            const auto f = ring.negate(A.at(r, h - 1));
            if (f == 0) continue;
            if (++delayed < z.limit) {
                add_multiple(ring, target, A.column(r, first), z.n - first, f);
            } else {
                add_multiple_reduced(ring, target, A.column(r, first), z.n - first, f);
                delayed = 0;
            }
        }
        if (delayed != 0) reduce_line(ring, target, z.n - first);
    }
}

// Column j of the block gets its single 1, which stands in row h = j+1: the m_r = A[r][j] of all other rows are cleared
// by row r -= m_r * row h, and column h += m_r * column r is the inverse.  The pairs for different r commute, so that
// all row operations may come first.
template <class Z>
void clear_column(const Z &z, int32_t start, int32_t j) {
    const auto &ring = z.ring;
    const auto &A = z.A;
    const int32_t h = j + 1;
    const auto entries = A.column(j, start);  // the negated m_r meanwhile
    for (int32_t k = 0; k < z.n - start; k++) entries[k] = ring.negate(entries[k]);
    A.at(h, j) = 0;
    const DelayedReductions at_once = {nullptr, 0};
    update_rows(ring, A, at_once, h, j, start, z.n, z.n);
    subtract_columns(z, h, start);
    // The columns r = start..j are a single 1 in row r+1.
    for (int32_t r = start; r <= j; r++) {
        A.at(r + 1, h) = ring.reduce(A.at(r + 1, h) + ring.negate(A.at(r, j)));
    }
    for (int32_t k = 0; k < z.n - start; k++) entries[k] = 0;
    A.at(h, j) = 1;
}

// Makes columns of single ones from column start on, until one is zero below the diagonal: the end of the block.
template <class Z>
ZigZagStatus make_chain(const Z &z, int32_t start, int32_t *end) {
    for (int32_t j = start;; j++) {
        const int32_t i = find_nonzero(z, j, j + 1);
        if (i >= z.n) {
            *end = j;
            return zigzag_done;
        }
        const auto pivot = z.ring.reduce(z.A.at(i, j));
        auto inverse = pivot;
        if (!z.ring.invert(pivot, &inverse)) return zigzag_no_inverse;
        exchange(z, i, j + 1, j, start);
        scale(z, j + 1, j, inverse, start, pivot);
        clear_column(z, start, j);
    }
}

// Clears the rows of the block but the first to its right, from below; the inverse operations change nothing else.
template <class Z>
void clear_rows(const Z &z, int32_t start, int32_t end) {
    const int32_t right = end + 1;
    for (int32_t r = end; r > start; r--) {
        for (int32_t c = right; c < z.n; c++) {
            const auto t = z.ring.reduce(z.A.at(r, c));
            if (t == 0) continue;
            z.A.at(r, c) = 0;
            add_multiple_reduced(z.ring, z.A.row(r - 1, right), z.A.row(c, right), z.n - right, t);
        }
    }
}

// Makes the rest of the first row a single 1 next to the block, unless it is zero.
template <class Z>
ZigZagStatus couple(const Z &z, int32_t start, int32_t end) {
    const auto &ring = z.ring;
    const auto &A = z.A;
    const int32_t h = end + 1;
    const int32_t c = find_nonzero(transposed(z), start, h);
    if (c >= z.n) return zigzag_done;
    const auto v = ring.reduce(A.at(start, c));
    A.at(start, c) = A.at(start, h);
    A.at(start, h) = 1;
    auto inverse = v;
    if (!ring.invert(v, &inverse)) return zigzag_no_inverse;
    exchange(z, c, h, h, h);
    scale(z, h, h, v, h, inverse);
    for (int32_t k = h + 1; k < z.n; k++) {
        const auto t = ring.reduce(A.at(start, k));
        if (t == 0) continue;
        A.at(start, k) = 0;
        add_multiple_reduced(ring, A.row(h, h), A.row(k, h), z.n - h, t);
        add_multiple_reduced(ring, A.column(k, h), A.column(h, h), z.n - h, ring.negate(t));
    }
    return zigzag_done;
}

template <class Z>
ZigZagStatus make_block(const Z &z, int32_t start, int32_t *end) {
    const ZigZagStatus status = make_chain(z, start, end);
    if (status != zigzag_done) return status;
    clear_rows(z, start, *end);
    return couple(z, start, *end);
}

template <class Ring, class M>
ZigZagStatus make_zigzag(const ZigZag<Ring, M> &Z) {
    canonicalize(Z.ring, Z.A, Z.n, Z.n);
    for (int32_t start = 0; start < Z.n - 1;) {
        int32_t end;
        ZigZagStatus status = make_block(Z, start, &end);
        if (status == zigzag_done) status = make_block(transposed(Z), end + 1, &end);
        if (status != zigzag_done) return status;
        start = end + 1;
    }
    return zigzag_done;
}

}  // namespace modla
