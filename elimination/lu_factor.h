// P*A = L*U modulo p, in place: one text for all residues and both orders.
//
// Row by row elimination with the first nonzero entry of a column as pivot, and postponed reductions as in row
// reduction.  U stays on and above the diagonal, the multipliers of the unit lower triangular L below it.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "elimination/blocked_lu.h"
#include "elimination/row_update.h"

namespace modla {

enum LUStatus : uint32_t { lu_done = 0, lu_no_inverse = 1, lu_singular = 2 };

template <class Ring, class M>
struct LUFactorization {
    Ring ring;
    M A;
    int32_t n;
    int32_t *perm;              // n-1 entries: the row, from 1, that row k+1 was exchanged with
    typename Ring::Entry *det;  // or null
    DelayedReductions delayed;
};
template <class Ring, class M>
LUFactorization(Ring, M, int32_t, int32_t *, typename Ring::Entry *, DelayedReductions) -> LUFactorization<Ring, M>;

// The first row from k down with a nonzero entry in column k, whose entries become residues; n when there is none.
template <class Ring, class M>
int32_t find_pivot(const LUFactorization<Ring, M> &F, int32_t k) {
    int32_t s = F.n;
    for (int32_t i = F.n - 1; i >= k; i--) {
        if (F.delayed.any(i)) F.A.at(i, k) = F.ring.reduce(F.A.at(i, k));
        if (F.A.at(i, k) != 0) s = i;
    }
    return s;
}

// The steps before column k are done.
template <class Ring, class M>
LUStatus factor_columns(const LUFactorization<Ring, M> &F, int32_t k) {
    using Value = typename Ring::Value;
    const Ring &ring = F.ring;
    const M &A = F.A;
    for (; k < F.n; k++) {
        const int32_t s = find_pivot(F, k);
        if (s == F.n) return lu_singular;
        const Value pivot = A.at(s, k);
        Value inverse;
        if (!ring.invert(pivot, &inverse)) return lu_no_inverse;
        if (F.det) *F.det = ring.multiply(*F.det, pivot);
        if (k < F.n - 1) F.perm[k] = s + 1;
        normalise_row(ring, A, F.delayed, s, k + 1, F.n);
        if (s != k) {
            if (F.det) *F.det = ring.negate(*F.det);
            swap_rows(A, F.delayed, s, k, 0, F.n);
        }
        // Column k holds the negated multipliers while the rows are updated.
        const auto multipliers = A.column(k, k + 1);
        for (int32_t i = 0; i < F.n - k - 1; i++) {
            if (multipliers[i] != 0) multipliers[i] = ring.multiply(ring.negate(multipliers[i]), inverse);
        }
        update_rows(ring, A, F.delayed, k, k, k + 1, F.n, F.n);
        for (int32_t i = 0; i < F.n - k - 1; i++) multipliers[i] = ring.negate(multipliers[i]);
    }
    return lu_done;
}

// As many of the steps as need no decision, by blocks: their number, 0 where blocks do not pay or have no memory.
template <class Ring, class M>
int32_t factor_blocks(const LUFactorization<Ring, M> &F, const BlockSizes &sizes) {
    if (!blocks_pay(F.ring, sizes, F.n, F.n)) return 0;
    BlockElimination<Ring> E = {};
    E.ring = F.ring;
    E.A = operand(F.A);
    E.rows = F.n;
    E.first_nonzero = E.stop_at_zeros = true;
    E.sizes = sizes;
    void *const work = take_work(&E, F.n);
    if (!work) return 0;
    const int32_t rank = eliminate(E, 0, 0, F.n, F.n).rank;
    for (int32_t k = 0; k < rank; k++) {
        if (F.det) *F.det = F.ring.multiply(*F.det, F.A.at(k, k));
        if (F.det && E.sources[k] != k) *F.det = F.ring.negate(*F.det);
        if (k < F.n - 1) F.perm[k] = E.sources[k] + 1;
    }
    std::free(work);
    return rank;
}

template <class Ring, class M>
LUStatus lu_factor(const LUFactorization<Ring, M> &F, const BlockSizes &sizes = {}) {
    for (int32_t i = 0; i < F.n; i++) F.delayed.clear(i);
    if (F.det) *F.det = 1;
    canonicalize(F.ring, F.A, F.n, F.n);
    int32_t done = 0;
    if constexpr (has_engine<Ring>) done = factor_blocks(F, sizes);
    const LUStatus status = factor_columns(F, done);
    normalise_rows(F.ring, F.A, F.delayed, F.n, 0, F.n);
    return status;
}

}  // namespace modla
