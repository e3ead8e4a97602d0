// The greatest common divisor of polynomials that stand in the rows of a matrix, column j holding the coefficients of
// x^j: one text for all residues and both orders.
//
// Euclid's algorithm on row 0 and each other row in turn; the last nonzero remainder moves to row 0.  Two terms of a
// quotient at a time, as most quotients have, so that a division is one pass over the row where a ring and the processor
// allow it.  Otherwise a remainder absorbs multiples unreduced up to a limit.  Only residues are left between two
// divisions.
#pragma once

#include <cstdint>
#include <cstdlib>

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
template <class Ring, class M>
RowGcd(Ring, M, int32_t, int32_t, int32_t) -> RowGcd<Ring, M>;

// The degree of the polynomial in a line that is zero after `last`; -1 of the zero polynomial.
template <class AnyLine>
int32_t degree_up_to(const AnyLine &line, int32_t last) {
    while (last >= 0 && line[last] == 0) last--;
    return last;
}

// target[k] += f * source[k] + g * source[k-1]; delayed counts the multiples that the target holds unreduced.
template <class Ring, class AnyLine>
void add_two_multiples(const Ring &ring, const AnyLine &target, const AnyLine &source, int32_t count,
                       const typename Ring::Value &f, const typename Ring::Value &g, int32_t limit, int32_t *delayed) {
    if constexpr (has_two_multiples<Ring, AnyLine>) {
        if (const RowInstructions *const best = row_instructions()) {
            return add_two_multiples(*best, ring, target, source, count, f, g);
        }
    }
    const AnyLine shifted = {source.data - static_cast<ptrdiff_t>(source.step), source.step};
    if (limit > 1) {
        add_multiple(ring, target, shifted, count, g);
    } else {
        add_multiple_reduced(ring, target, shifted, count, g);
    }
    if (*delayed < limit - 2) {
        *delayed += 2;
        add_multiple(ring, target, source, count, f);
    } else {
        *delayed = 0;
        add_multiple_reduced(ring, target, source, count, f);
    }
}

// Replaces b by its remainder after division by a, of no higher degree.  False when the leading coefficient of a has no
// inverse.
template <class Ring, class AnyLine>
bool take_remainder(const Ring &ring, const AnyLine &b, int32_t *degree, const AnyLine &a, int32_t divisor_degree,
                    int32_t limit) {
    using Value = typename Ring::Value;
    const int32_t d = divisor_degree;
    Value inverse;
    if (!ring.invert(a[d], &inverse)) return false;
    const Value factor = ring.negate(inverse);
    int32_t delayed = 0;
    for (int32_t shift = *degree - d; shift >= 0; shift -= 2) {
        // -(g x + f) x^low are terms of the quotient.
        const int32_t low = shift > 0 ? shift - 1 : 0;
        Value g = 0, next = b[low + d];
        if (shift > 0) {
            g = ring.multiply(factor, ring.reduce(b[shift + d]));
            b[shift + d] = 0;
            if (d > 0) next = ring.multiply_add(g, a[d - 1], next);
        }
        const Value f = ring.multiply(factor, ring.reduce(next));
        b[low + d] = 0;
        if (d == 0 || (f == 0 && g == 0)) continue;
        b[low] = ring.multiply_add(f, a[0], b[low]);
        add_two_multiples(ring, AnyLine{&b[low + 1], b.step}, AnyLine{&a[1], a.step}, d - 1, f, g, limit, &delayed);
    }
    if (delayed != 0) reduce_line(ring, b, d);
    *degree = degree_up_to(b, d - 1);
    return true;
}

// open(i) is a line with the entries of row i, which close(i, line) stores if it is a copy.
template <class Ring, class M, class Open, class Close>
int32_t find_row_gcd(const RowGcd<Ring, M> &G, const Open &open, const Close &close) {
    const auto a = open(0);
    int32_t a_degree = degree_up_to(a, G.columns - 1);
    bool divided = true;
    for (int32_t i = 1; i < G.rows && divided; i++) {
        const auto b = open(i);
        int32_t b_degree = degree_up_to(b, G.columns - 1);
        while (a_degree >= 0 && b_degree >= 0 && divided) {
            divided = a_degree < b_degree ? take_remainder(G.ring, b, &b_degree, a, a_degree, G.limit)
                                          : take_remainder(G.ring, a, &a_degree, b, b_degree, G.limit);
        }
        if (a_degree < 0) {
            swap_lines(a, b, b_degree + 1);
            a_degree = b_degree;
        }
        close(i, b);
    }
    close(0, a);
    return divided ? a_degree : gcd_no_inverse;
}

// On copies of two rows at a time in the buffer, or in place of the rows.
template <class Copy, class Ring, class M>
int32_t find_row_gcd_in_copies(const RowGcd<Ring, M> &G, Copy *buffer) {
    using Value = typename Ring::Value;
    const auto open = [&](int32_t i) {
        const auto row = G.A.row(i, 0);
        Copy *const data = buffer ? buffer + (i ? G.columns : 0) : static_cast<Copy *>(static_cast<void *>(row.data));
        const Line<Copy, UnitStep> line = {data, {}};
        for (int32_t k = 0; k < G.columns; k++) line[k] = static_cast<Value>(row[k]);
        return line;
    };
    const auto close = [&](int32_t i, const Line<Copy, UnitStep> &line) {
        const auto row = G.A.row(i, 0);
        for (int32_t k = G.columns - 1; k >= 0; k--) row[k] = static_cast<Value>(line[k]);
    };
    return find_row_gcd(G, open, close);
}

// In rows stored as the processor likes them.  False: there is no memory for copies.
template <class Copy, class Ring, class M>
bool find_row_gcd_in_copies(const RowGcd<Ring, M> &G, int32_t *result) {
    if (M::c_order) {
        *result = find_row_gcd_in_copies<Copy>(G, static_cast<Copy *>(nullptr));
        return true;
    }
    constexpr int32_t few = 512;
    Copy some[2 * few];
    const size_t bytes = 2 * sizeof(Copy) * static_cast<size_t>(G.columns);
    Copy *const buffer = G.columns <= few ? some : static_cast<Copy *>(malloc(bytes));
    if (!buffer) return false;
    *result = find_row_gcd_in_copies<Copy>(G, buffer);
    if (buffer != some) free(buffer);
    return true;
}

// The degree of the divisor that is left in row 0, or gcd_no_inverse.
template <class Ring, class M>
int32_t find_row_gcd(const RowGcd<Ring, M> &G) {
    canonicalize(G.ring, G.A, G.rows, G.columns);
    if constexpr (is_vectorised<Ring>) {
        int32_t result;
        if (G.rows > 1 && row_instructions()) {
            const uint32_t p = static_cast<uint32_t>(G.ring.p);
            if (p < 65536) {
                const RowGcd<WordRing, M> words = {word_ring(p), G.A, G.rows, G.columns, G.limit};
                if (find_row_gcd_in_copies<PackedWord>(words, &result)) return result;
            }
            if constexpr (std::is_same_v<Ring, FloatRing> && !M::c_order) {
                if (p > 65535 && find_row_gcd_in_copies<StoredDouble>(G, &result)) return result;
            }
        }
    }
    return find_row_gcd(
        G, [&](int32_t i) { return G.A.row(i, 0); }, [](int32_t, const auto &) {});
}

}  // namespace modla
