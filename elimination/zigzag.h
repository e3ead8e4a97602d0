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
ZigZag(Ring, M, int32_t, int32_t) -> ZigZag<Ring, M>;

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

// Entries of a column that are copied side by side.
constexpr int32_t factors_at_once = 512, rows_at_once = 32;

// Adds to column h, from row `first` on, the columns r = from..n-1, each times factor(r).
template <class Z, class Factor>
void add_columns(const Z &z, int32_t h, int32_t first, int32_t from, const Factor &factor) {
    using Entry = typename decltype(z.A)::Entry;
    const auto &ring = z.ring;
    const auto &A = z.A;
    if constexpr (decltype(z.A)::c_order) {
        alignas(16) Entry factors[factors_at_once];
        for (int32_t r = from; r < z.n; r += factors_at_once) {
            const int32_t count = std::min(z.n - r, factors_at_once);
            bool any = false;
            for (int32_t k = 0; k < count; k++) {
                factors[k] = factor(r + k);
                any |= factors[k] != 0;
            }
            for (int32_t i = first; any && i < z.n; i++) {
                const auto sum = dot_residues(ring, A.row(i, r), Line<Entry, UnitStep>{factors, {}}, count, z.limit);
                A.at(i, h) = ring.add(A.at(i, h), sum);
            }
        }
    } else {
        const auto target = A.column(h, first);
        int32_t delayed = 0;  // unreduced multiples in the target
        for (int32_t r = from; r < z.n; r++) {
            const auto f = factor(r);
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

// Column j of the block gets its single 1, in row h = j+1 in place of the pivot: row h is divided by it, and column h
// multiplied.  Then the m_r = A[r][j] of all other rows are cleared by row r -= m_r * row h, and column h += m_r * column r
// is the inverse.  The pairs for different r commute, so that all row operations may come first.
//
// The columns r = start..j are a single 1 in row r+1; the others are added while their rows are at hand.  Every step is
// made in one pass over the matrix: lines across the order of storage are slow to reach.
template <class Ring, class M>
void clear_column(const ZigZag<Ring, M> &z, int32_t start, int32_t j, typename Ring::Value pivot,
                  typename Ring::Value inverse) {
    using Entry = typename M::Entry;
    using Value = typename Ring::Value;
    const Ring &ring = z.ring;
    const M &A = z.A;
    const int32_t h = j + 1, rows = z.n - start;
    A.at(h, j) = 0;
    if constexpr (M::c_order) {
        scale_line(ring, A.row(h, h), z.n - h, inverse);
        const Value x = ring.multiply(A.at(h, h), pivot);
        Entry factors[factors_at_once], above[rows_at_once + 1], negated[rows_at_once], target[rows_at_once],
            sums[rows_at_once];
        const auto line = [](Entry *entries) { return Line<Entry, UnitStep>{entries, {}}; };
        int32_t r = h + 1;
        do {
            const int32_t width = std::min(z.n - r, factors_at_once);
            const bool first = r == h + 1, last = r + width == z.n;
            bool any = false;
            for (int32_t k = 0; k < width; k++) {
                factors[k] = A.at(r + k, j);
                any |= factors[k] != 0;
            }
            above[0] = 0;
            for (int32_t i = start; i < z.n; i += rows_at_once) {
                const int32_t count = std::min(z.n - i, rows_at_once);
                for (int32_t k = 0; k < count; k++) {
                    above[k + 1] = A.at(i + k, j);
                    negated[k] = ring.negate(A.at(i + k, j));
                    target[k] = A.at(i + k, h);
                    sums[k] = 0;
                    if (!any && negated[k] == 0) continue;
                    sums[k] = add_multiple_and_dot(ring, A.row(i + k, r), A.row(h, r), line(factors), width, negated[k],
                                                   z.limit);
                }
                if (first) {
                    scale_line(ring, line(target), count, pivot);
                    add_multiple_reduced(ring, line(target), line(negated), count, x);
                    add_multiple_reduced(ring, line(target), line(above), std::clamp(h + 1 - i, 0, count), Value(1));
                }
                add_multiple_reduced(ring, line(target), line(sums), count, Value(1));
                for (int32_t k = 0; k < count; k++) {
                    A.at(i + k, h) = target[k];
                    if (last) A.at(i + k, j) = 0;
                }
                above[0] = above[count];
            }
            r += width;
        } while (r < z.n);
    } else {
        const auto entries = A.column(j, start), sums = A.column(h, start);
        scale_line(ring, sums, rows, pivot);
        A.at(h, h) = ring.multiply(A.at(h, h), inverse);
        add_multiple_reduced(ring, sums, entries, rows, ring.negate(A.at(h, h)));
        int32_t delayed = 0;
        for (int32_t r = h + 1; r < z.n; r++) {
            const Value x = ring.multiply(A.at(h, r), inverse), m = A.at(r, j);
            A.at(h, r) = x;
            if (x == 0 && m == 0) continue;
            const bool reduced = ++delayed >= z.limit;
            add_multiple_and_gather(ring, A.column(r, start), entries, sums, rows, ring.negate(x), m, reduced);
            if (reduced) delayed = 0;
        }
        if (delayed != 0) reduce_line(ring, sums, rows);
        for (int32_t r = start; r <= j; r++) A.at(r + 1, h) = ring.add(A.at(r + 1, h), A.at(r, j));
        for (int32_t k = 0; k < rows; k++) entries[k] = 0;
    }
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
        clear_column(z, start, j, pivot, inverse);
    }
}

// Clears the rows of the block but the first to its right, from below; the inverse operations change nothing else.
template <class Z>
void clear_rows(const Z &z, int32_t start, int32_t end) {
    const int32_t right = end + 1;
    const auto &A = z.A;
    for (int32_t r = end; r > start; r--) {
        add_columns(transposed(z), r - 1, right, right, [&](int32_t c) { return A.at(r, c); });
        for (int32_t c = right; c < z.n; c++) A.at(r, c) = 0;
    }
}

// Row i -= A[i][h] * the entries of row s, right of column h, for the rows from `first` on.
template <class Z>
void subtract_rows(const Z &z, int32_t s, int32_t h, int32_t first) {
    const auto &A = z.A;
    if constexpr (decltype(z.A)::c_order) {
        for (int32_t i = first; i < z.n; i++) {
            const auto f = z.ring.negate(A.at(i, h));
            if (f != 0) add_multiple_reduced(z.ring, A.row(i, h + 1), A.row(s, h + 1), z.n - h - 1, f);
        }
    } else {
        for (int32_t k = h + 1; k < z.n; k++) {
            const auto f = z.ring.negate(A.at(s, k));
            if (f != 0) add_multiple_reduced(z.ring, A.column(k, first), A.column(h, first), z.n - first, f);
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
    // Row h += t * row k and column k -= t * column h clear t = A[start][k]; all row operations may come first.
    add_columns(transposed(z), h, h, h + 1, [&](int32_t k) { return A.at(start, k); });
    subtract_rows(z, start, h, h);
    for (int32_t k = h + 1; k < z.n; k++) A.at(start, k) = 0;
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
