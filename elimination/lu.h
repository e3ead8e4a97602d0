// P*A = L*U modulo p, in place: one text for all residues and both orders.
//
// Row by row elimination with the first nonzero entry of a column as pivot, and postponed reductions as in row
// reduction.  U stays on and above the diagonal, the multipliers of the unit lower triangular L below it.
#pragma once

#include <cstdint>

#include "elimination/row_update.h"

namespace modla {

enum FactorStatus : uint32_t { factor_done = 0, factor_no_inverse = 1, factor_singular = 2 };

template <class Residue, class M>
struct Factorization {
    Residue residue;
    M A;
    int32_t n;
    int32_t *perm;                 // n-1 entries: the row, from 1, that row k+1 was exchanged with
    typename Residue::Entry *det;  // or null
    Pending pending;
};

// The first row from k down with a nonzero entry in column k, whose entries become residues; n when there is none.
template <class Residue, class M>
int32_t find_pivot(const Factorization<Residue, M> &F, int32_t k) {
    int32_t s = F.n;
    for (int32_t i = F.n - 1; i >= k; i--) {
        if (F.pending.any(i)) F.A.at(i, k) = F.residue.reduce(F.A.at(i, k));
        if (F.A.at(i, k) != 0) s = i;
    }
    return s;
}

template <class Residue, class M>
FactorStatus factor_columns(const Factorization<Residue, M> &F) {
    using Value = typename Residue::Value;
    const Residue &residue = F.residue;
    const M &A = F.A;
    for (int32_t k = 0; k < F.n; k++) {
        const int32_t s = find_pivot(F, k);
        if (s == F.n) return factor_singular;
        const Value pivot = A.at(s, k);
        Value inverse;
        if (!residue.invert(pivot, &inverse)) return factor_no_inverse;
        if (F.det) *F.det = residue.multiply(*F.det, pivot);
        if (k < F.n - 1) F.perm[k] = s + 1;
        settle_row(residue, A, F.pending, s, k + 1, F.n);
        if (s != k) {
            if (F.det) *F.det = residue.negate(*F.det);
            swap_rows(A, F.pending, s, k, 0, F.n);
        }
        // Column k holds the negated multipliers while the rows are updated.
        const auto multipliers = A.column(k, k + 1);
        for (int32_t i = 0; i < F.n - k - 1; i++) {
            if (multipliers[i] != 0) multipliers[i] = residue.multiply(residue.negate(multipliers[i]), inverse);
        }
        update_rows(residue, A, F.pending, k, k, k + 1, F.n, F.n);
        for (int32_t i = 0; i < F.n - k - 1; i++) multipliers[i] = residue.negate(multipliers[i]);
    }
    return factor_done;
}

template <class Residue, class M>
FactorStatus factor(const Factorization<Residue, M> &F) {
    for (int32_t i = 0; i < F.n; i++) F.pending.clear(i);
    if (F.det) *F.det = 1;
    canonicalize(F.residue, F.A, F.n, F.n);
    const FactorStatus status = factor_columns(F);
    settle_rows(F.residue, F.A, F.pending, F.n, 0, F.n);
    return status;
}

}  // namespace modla
