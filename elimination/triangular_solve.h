// Solving T*X = B for a triangular T, X in place of B: one text for both directions, all residues and both orders.
//
// Where one right-hand side meets a T stored by rows, each unknown is found from the dot product of a row with the
// unknowns before it.  Otherwise every unknown row is subtracted from the rows still to come as soon as it is known,
// along the rows or columns of the storage.  Only the triangle of T that matters is read.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "elimination/blocked_product.h"
#include "engine/rows.h"

namespace modla {

enum SolveStatus : uint32_t { solve_done = 0, solve_no_inverse = 1, solve_singular = 2 };

template <class Ring, class TriangleMatrix, class RightHandSides>
struct TriangularSolve {
    Ring ring;
    TriangleMatrix T;
    int32_t n;
    RightHandSides B;
    int32_t columns;     // of B
    bool forward;        // lower triangle, from the first row; else upper, from the last
    bool unit_diagonal;  // the diagonal is not read
    int32_t limit;       // products that a residue may absorb before it must be reduced

    // The s-th row that is solved, and the rows before or after it in that sequence: first..end-1.
    int32_t row(int32_t s) const { return forward ? s : n - 1 - s; }
    int32_t first_after(int32_t i) const { return forward ? i + 1 : 0; }
    int32_t end_after(int32_t i) const { return forward ? n : i; }
    int32_t first_before(int32_t i) const { return forward ? 0 : i + 1; }
};
template <class Ring, class T, class B>
TriangularSolve(Ring, T, int32_t, B, int32_t, bool, bool, int32_t) -> TriangularSolve<Ring, T, B>;

// Divides row i of B by the diagonal entry.
template <class S>
SolveStatus divide_row(const S &system, int32_t i) {
    if (system.unit_diagonal) return solve_done;
    auto d = system.ring.canonical(system.T.at(i, i));
    if (d == 0) return solve_singular;
    if (d == 1) return solve_done;
    if (!system.ring.invert(d, &d)) return solve_no_inverse;
    scale_line(system.ring, system.B.row(i, 0), system.columns, d);
    return solve_done;
}

// Subtracts row j of B, times column j of T, from the rows that are still to be solved; `postpone` leaves sums
// unreduced.  False when they were reduced all the same.
template <class S>
bool subtract_row(const S &system, int32_t j, bool postpone) {
    const auto &ring = system.ring;
    const int32_t first = system.first_after(j), count = system.end_after(j) - first;
    const auto factors = system.T.column(j, first);
    const bool canonical = is_canonical_line(ring, factors, count);
    postpone = postpone && canonical;
    if constexpr (decltype(system.T)::c_order) {
        for (int32_t k = 0; k < count; k++) {
            const auto f = ring.negate(ring.canonical(factors[k]));
            const auto target = system.B.row(first + k, 0), source = system.B.row(j, 0);
            if (!postpone) {
                add_multiple_reduced(ring, target, source, system.columns, f);
            } else if (f != 0) {
                add_multiple(ring, target, source, system.columns, f);
            }
        }
    } else {
        for (int32_t c = 0; c < system.columns; c++) {
            const auto f = ring.negate(system.B.at(j, c));
            const auto target = system.B.column(c, first);
            if (postpone) {
                if (f != 0) add_multiple(ring, target, factors, count, f);
            } else if (canonical) {
                add_multiple_reduced(ring, target, factors, count, f);
            } else {
                for (int32_t k = 0; k < count; k++) {
                    target[k] = ring.multiply_add(f, ring.canonical(factors[k]), target[k]);
                }
            }
        }
    }
    return postpone;
}

template <class S>
SolveStatus solve_by_updates(const S &system) {
    int32_t delayed = 0;  // unreduced products in the rows still to be solved
    const auto reduce_row = [&](int32_t i) {
        if (delayed != 0) reduce_line(system.ring, system.B.row(i, 0), system.columns);
    };
    for (int32_t s = 0; s < system.n; s++) {
        const int32_t j = system.row(s);
        reduce_row(j);
        const SolveStatus status = divide_row(system, j);
        if (status != solve_done) {
            for (int32_t i = system.first_after(j); i < system.end_after(j); i++) reduce_row(i);
            return status;
        }
        const bool postpone = ++delayed < system.limit;
        if (!subtract_row(system, j, postpone)) delayed = 0;
    }
    return solve_done;
}

template <class S>
SolveStatus solve_by_dots(const S &system) {
    const auto &ring = system.ring;
    for (int32_t s = 0; s < system.n; s++) {
        const int32_t i = system.row(s), first = system.first_before(i);
        const auto factors = system.T.row(i, first);
        const auto unknowns = system.B.column(0, first);
        typename std::decay_t<decltype(ring)>::Value sum = 0;
        if (is_canonical_line(ring, factors, s)) {
            sum = dot_residues(ring, factors, unknowns, s, system.limit);
        } else {
            for (int32_t k = 0; k < s; k++) sum = ring.multiply_add(ring.canonical(factors[k]), unknowns[k], sum);
        }
        system.B.at(i, 0) = ring.reduce(system.B.at(i, 0) + ring.negate(sum));
        const SolveStatus status = divide_row(system, i);
        if (status != solve_done) return status;
    }
    return solve_done;
}

// Are the entries residues that the solution reads?
template <class S>
bool is_canonical_triangle(const S &system) {
    bool canonical = true;
    for (int32_t i = 0; i < system.n; i++) {
        if (!system.unit_diagonal) canonical &= system.ring.is_canonical(system.T.at(i, i));
        const int32_t first = system.first_after(i), count = system.end_after(i) - first;
        if constexpr (decltype(system.T)::c_order) {
            const int32_t start = system.first_before(i), length = system.n - 1 - count;
            canonical &= is_canonical_line(system.ring, system.T.row(i, start), length);
        } else {
            canonical &= is_canonical_line(system.ring, system.T.column(i, first), count);
        }
    }
    return canonical;
}

// By blocks, when every diagonal entry has an inverse: a solution that stops halfway is left to the plain text.
// False: not done, nothing was changed.
template <class S>
bool solve_blocks(const S &system, const BlockSizes &sizes) {
    using Entry = typename decltype(system.ring)::Entry;
    const int32_t n = system.n;
    if (!blocks_pay(system.ring, sizes, n, system.columns)) return false;
    const Operand<const Entry> T = operand(system.T);
    if (!is_canonical_triangle(system)) return false;
    const int64_t entries = solve_work(sizes) + n;
    if (entries > static_cast<int64_t>(SIZE_MAX / sizeof(Entry))) return false;
    Entry *const work = static_cast<Entry *>(std::malloc(static_cast<size_t>(entries) * sizeof(Entry)));
    if (!work) return false;
    Entry *const inverses = work + solve_work(sizes);
    bool invertible = true;
    for (int32_t i = 0; i < n && !system.unit_diagonal && invertible; i++) {
        typename decltype(system.ring)::Value inverse;
        invertible = system.ring.invert(T.at(i, i), &inverse);
        inverses[i] = inverse;
    }
    if (invertible) {
        const TriangularOperand<Entry> triangle = {T, system.forward, system.unit_diagonal ? nullptr : inverses};
        solve_triangular(system.ring, sizes, work, triangle, n, operand(system.B), system.columns);
    }
    std::free(work);
    return invertible;
}

template <class S>
SolveStatus triangular_solve(const S &system, const BlockSizes &sizes = {}) {
    using Ring = std::decay_t<decltype(system.ring)>;
    if constexpr (has_engine<Ring> && decltype(system.B)::c_order) {
        // A vector whose entries stand side by side is a contiguous column.
        if (system.columns == 1 && system.B.ld == 1) {
            using Column = Matrix<typename Ring::Entry, false>;
            return triangular_solve(
                TriangularSolve<Ring, std::decay_t<decltype(system.T)>, Column>{
                    system.ring, system.T, system.n, Column{system.B.data, system.n}, 1, system.forward,
                    system.unit_diagonal, system.limit},
                sizes);
        }
    }
    canonicalize(system.ring, system.B, system.n, system.columns);
    if constexpr (has_engine<decltype(system.ring)>) {
        if (solve_blocks(system, sizes)) return solve_done;
    }
    if constexpr (decltype(system.T)::c_order) {
        if (system.columns == 1) return solve_by_dots(system);
    }
    return solve_by_updates(system);
}

}  // namespace modla
