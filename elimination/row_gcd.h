// The greatest common divisor of polynomials that stand in the rows of a matrix, column j holding the coefficients of
// x^j: one text for all residues and both orders.
//
// Euclid's algorithm on row 0 and each other row in turn; the last nonzero remainder moves to row 0.  A remainder
// absorbs multiples unreduced up to a limit and is reduced when it is complete, so that only residues are left between
// two divisions.
#pragma once

#include <cstdint>

#include "engine/rows.h"

namespace modla {

// In place of a degree.
constexpr int32_t gcd_no_inverse = -2;

template <class Ring, class M>
struct RowGcd {
    Ring ring;
    M A;
    int32_t rows, columns;  // at least 1 and 0
    int32_t limit;          // multiples that a row may absorb before it must be reduced
};

// A row that holds a polynomial; the degree of the zero row is -1.
struct GcdRow {
    int32_t row, degree;
};

// Row i, which is zero in the columns after `last`.
template <class M>
GcdRow gcd_row(const M &A, int32_t i, int32_t last) {
    while (last >= 0 && A.at(i, last) == 0) last--;
    return {i, last};
}

// Replaces b by its remainder after division by a, of no higher degree.  False when the leading coefficient of a has no
// inverse.
template <class Ring, class M>
bool take_remainder(const RowGcd<Ring, M> &G, GcdRow *b, const GcdRow &a) {
    using Value = typename Ring::Value;
    const Ring &ring = G.ring;
    const M &A = G.A;
    Value inverse;
    if (!ring.invert(A.at(a.row, a.degree), &inverse)) return false;
    const Value factor = ring.negate(inverse);
    const auto divisor = A.row(a.row, 0);
    int32_t delayed = 0;  // unreduced multiples in b
    for (int32_t shift = b->degree - a.degree; shift >= 0; shift--) {
        typename M::Entry &leading = A.at(b->row, shift + a.degree);
        const Value multiplier = ring.multiply(factor, ring.reduce(leading));
        leading = 0;
        if (multiplier == 0) continue;
        const auto target = A.row(b->row, shift);
        if (++delayed < G.limit) {
            add_multiple(ring, target, divisor, a.degree, multiplier);
        } else {
            add_multiple_reduced(ring, target, divisor, a.degree, multiplier);
            delayed = 0;
        }
    }
    if (delayed != 0) reduce_line(ring, A.row(b->row, 0), a.degree);
    *b = gcd_row(A, b->row, a.degree - 1);
    return true;
}

// The degree of the divisor that is left in row 0, or gcd_no_inverse.
template <class Ring, class M>
int32_t find_row_gcd(const RowGcd<Ring, M> &G) {
    canonicalize(G.ring, G.A, G.rows, G.columns);
    GcdRow a = gcd_row(G.A, 0, G.columns - 1);
    for (int32_t i = 1; i < G.rows; i++) {
        GcdRow b = gcd_row(G.A, i, G.columns - 1);
        while (a.degree >= 0 && b.degree >= 0) {
            const bool divided = a.degree < b.degree ? take_remainder(G, &b, a) : take_remainder(G, &a, b);
            if (!divided) return gcd_no_inverse;
        }
        if (a.degree < 0) {
            swap_lines(G.A.row(0, 0), G.A.row(i, 0), b.degree + 1);
            a.degree = b.degree;
        }
    }
    return a.degree;
}

}  // namespace modla
