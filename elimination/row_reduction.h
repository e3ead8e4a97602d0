// Row echelon and reduced row echelon forms modulo p: one text for all residues, both orders and both reduction
// schedules.
//
// Gauss-Jordan elimination by columns, with the first invertible entry as pivot.  A column without an invertible entry
// (composite p) is thinned by Euclidean row steps until one arises or a single nonzero is left.  Row updates stay
// unreduced as long as the bound allows (Dumas, Giorgi and Pernet, 2008, on delayed reductions).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "elimination/blocked_lu.h"
#include "elimination/row_update.h"

namespace modla {

enum EchelonStatus : uint32_t {
    echelon_done = 0,
    echelon_no_inverse = 1,
    echelon_singular = 2,
    echelon_bad_request = 3,
    echelon_no_nullspace = 4,
};

enum EchelonMode : int32_t { echelon_form = 0, reduced_echelon_form = 1, reduced_echelon_form_keeping_nonunits = 2 };

// What is asked for, whatever the ring and the order.
struct RowReductionTask {
    int32_t nrows, ncols, nred;
    int32_t *rank, *pivsig, *extra, *pivcols;  // each output may be null
    int32_t mode;
    bool detonly;
    DelayedReductions delayed;
};

template <class Ring, class M>
struct RowReduction : RowReductionTask {
    Ring ring;
    M A;
    typename M::Entry *det, *pivprod;  // may be null
};
template <class Ring, class M>
RowReduction(RowReductionTask, Ring, M, typename M::Entry *, typename M::Entry *) -> RowReduction<Ring, M>;

// What a scan of column c from row r down found.
template <class Ring>
struct ColumnScan {
    int32_t pivot;                 // the first row with an invertible entry, or -1
    typename Ring::Value inverse;  // of that entry
    int32_t nonunits;              // nonzero entries without an inverse, up to the pivot
    int32_t smallest;              // without a pivot: the first row with the smallest of them
};

// Makes column c's entries residues again, in the rows that elimination will look at.
template <class Ring, class M>
void normalise_column(const RowReduction<Ring, M> &R, int32_t c, int32_t first) {
    for (int32_t i = first; i < R.nrows; i++) {
        if (R.delayed.any(i)) R.A.at(i, c) = R.ring.reduce(R.A.at(i, c));
    }
}

template <class Ring, class M>
ColumnScan<Ring> scan_column(const RowReduction<Ring, M> &R, int32_t r, int32_t c) {
    ColumnScan<Ring> scan = {-1, 0, 0, -1};
    for (int32_t i = r; i < R.nrows; i++) {
        const typename Ring::Value x = R.A.at(i, c);
        if (x == 0) continue;
        if (R.ring.invert(x, &scan.inverse)) {
            scan.pivot = i;
            return scan;
        }
        scan.nonunits++;
        if (scan.smallest < 0 || x < R.A.at(scan.smallest, c)) scan.smallest = i;
    }
    return scan;
}

template <class Ring, class M>
bool is_zero_below(const RowReduction<Ring, M> &R, int32_t r, int32_t c) {
    for (int32_t i = r; i < R.nrows; i++) {
        if (R.A.at(i, c) != 0) return false;
    }
    return true;
}

template <class Ring>
void negate_output(const Ring &ring, typename Ring::Entry *output) {
    if (output) *output = ring.negate(*output);
}

// Row i -= floor(a/b) * row s, a and b their entries in column c: leaves a mod b there.
template <class Ring, class M>
void euclidean_step(const RowReduction<Ring, M> &R, int32_t i, int32_t s, int32_t c) {
    const typename Ring::Value a = R.A.at(i, c), b = R.A.at(s, c);
    const typename Ring::Value q = R.ring.quotient(a, b);
    R.A.at(i, c) = a - q * b;
    update_row(R.ring, R.A, R.delayed, i, s, c + 1, R.ncols, R.ring.negate(q));
}

// Replaces every nonzero entry of column c in rows r.. but the smallest by its remainder modulo the smallest.
template <class Ring, class M>
void euclidean_descent(const RowReduction<Ring, M> &R, int32_t r, int32_t c, int32_t smallest) {
    normalise_row(R.ring, R.A, R.delayed, smallest, c + 1, R.ncols);
    for (int32_t i = r; i < R.nrows; i++) {
        if (i != smallest && R.A.at(i, c) != 0) euclidean_step(R, i, smallest, c);
    }
}

// Takes the lone non-invertible entry of column c, in row s, as the pivot of row r.
template <class Ring, class M>
void accept_nonunit(const RowReduction<Ring, M> &R, int32_t r, int32_t c, int32_t s) {
    normalise_row(R.ring, R.A, R.delayed, s, c + 1, R.ncols);
    if (s != r) {
        negate_output(R.ring, R.det);
        swap_rows(R.A, R.delayed, s, r, c, R.ncols);
    }
    if (R.mode != reduced_echelon_form_keeping_nonunits) return;
    const typename Ring::Value b = R.A.at(r, c);
    for (int32_t i = 0; i < r; i++) {
        if (R.A.at(i, c) >= b) euclidean_step(R, i, r, c);
    }
}

// Brings the pivot from row s to row r, makes it 1 and clears its column.
template <class Ring, class M>
void eliminate_column(const RowReduction<Ring, M> &R, int32_t r, int32_t c, int32_t s, typename Ring::Value inverse) {
    const M &A = R.A;
    normalise_row(R.ring, A, R.delayed, s, c + 1, R.ncols);
    if (s != r) {
        negate_output(R.ring, R.det);
        negate_output(R.ring, R.pivprod);
        swap_rows(A, R.delayed, s, r, c, R.ncols);
    }
    if (inverse != 1) scale_line(R.ring, A.row(r, c + 1), R.ncols - c - 1, inverse);

    const int32_t first = R.mode == echelon_form ? r + 1 : 0;
    A.at(r, c) = 0;
    for (int32_t i = first; i < R.nrows; i++) A.at(i, c) = R.ring.negate(A.at(i, c));
    update_rows(R.ring, A, R.delayed, r, c, first, R.nrows, R.ncols);
    for (int32_t i = first; i < R.nrows; i++) A.at(i, c) = 0;
    A.at(r, c) = 1;
}

// Moves the nonzero rows of r.. up to just below the pivot rows; their reducible columns are zero.
template <class Ring, class M>
int32_t compact_rows(const RowReduction<Ring, M> &R, int32_t r) {
    int32_t d = r;
    for (int32_t i = r; i < R.nrows; i++) {
        int32_t j = R.nred;
        while (j < R.ncols && R.A.at(i, j) == 0) j++;
        if (j == R.ncols) continue;
        for (; d != i && j < R.ncols; j++) {
            R.A.at(d, j) = R.A.at(i, j);
            R.A.at(i, j) = 0;
        }
        d++;
    }
    return d - r;
}

// Writes a basis of the right nullspace of the reduced leading columns into rows r..nred-1.
template <class Ring, class M>
void write_nullspace(const RowReduction<Ring, M> &R, int32_t r) {
    int32_t pivots = 0;  // pivot columns before c
    for (int32_t c = 0, i = r; c < R.nred; c++) {
        if (pivots < r && R.pivcols[pivots] == c) {
            pivots++;
            continue;
        }
        for (int32_t j = 0; j < R.ncols; j++) R.A.at(i, j) = 0;
        R.A.at(i, c) = 1;
        for (int32_t k = 0; k < pivots; k++) R.A.at(i, R.pivcols[k]) = R.ring.negate(R.A.at(k, c));
        i++;
    }
}

// How far the steps before the epilogue have come: to a rank and a column, or to a status that ends the run.
struct Progress {
    EchelonStatus status;
    bool finished;  // the run ends here, outputs are as they are
    bool kept_nonunit;
    int32_t rank, column;
};

template <class Ring, class M>
void record_pivot(const RowReduction<Ring, M> &R, int32_t r, int32_t c, typename Ring::Value a) {
    if (R.det) *R.det = r != c ? typename Ring::Value(0) : R.ring.multiply(*R.det, a);
    if (R.pivprod) *R.pivprod = R.ring.multiply(*R.pivprod, a);
    if (R.pivsig) {
        const uint32_t term = static_cast<uint32_t>(r + 1) * static_cast<uint32_t>(c);
        *R.pivsig = static_cast<int32_t>(static_cast<uint32_t>(*R.pivsig) + term);
    }
    if (R.pivcols) R.pivcols[r] = c;
}

// Works on the columns before `end`.
template <class Ring, class M>
void eliminate_columns(const RowReduction<Ring, M> &R, Progress *progress, int32_t end) {
    const auto end_with = [&](EchelonStatus status) {
        progress->status = status;
        progress->finished = true;
    };
    int32_t &r = progress->rank, &c = progress->column;
    while (r < R.nrows && c < end) {
        normalise_column(R, c, R.mode == echelon_form ? r : 0);
        if (c >= R.nred) {
            if (is_zero_below(R, r, c)) {
                c++;
                continue;
            }
            if (!R.extra) return end_with(echelon_singular);
            normalise_rows(R.ring, R.A, R.delayed, R.nrows, c + 1, R.ncols);
            *R.extra = compact_rows(R, r);
            return;
        }
        const ColumnScan<Ring> scan = scan_column(R, r, c);
        if (scan.pivot >= 0) {
            if (R.det && r != c && R.detonly) {
                *R.det = 0;
                return end_with(echelon_done);
            }
            record_pivot(R, r, c, R.A.at(scan.pivot, c));
            eliminate_column(R, r, c, scan.pivot, scan.inverse);
            r++, c++;
        } else if (scan.nonunits == 0) {
            c++;
        } else if (scan.nonunits > 1) {
            euclidean_descent(R, r, c, scan.smallest);  // and look at the same column again
        } else {
            if (R.mode != reduced_echelon_form_keeping_nonunits && !R.detonly) return end_with(echelon_no_inverse);
            if (R.det) *R.det = R.ring.multiply(*R.det, R.A.at(scan.smallest, c));
            if (R.det && R.detonly && *R.det == 0) return end_with(echelon_done);
            progress->kept_nonunit = true;
            accept_nonunit(R, r, c, scan.smallest);
            r++, c++;
        }
    }
}

// The reducible columns by blocks; a column that has entries but no pivot is treated as ever, between two blocks.
// Nothing is done where blocks do not pay or have no memory.
template <class Ring, class M>
void reduce_blocks(const RowReduction<Ring, M> &R, const BlockSizes &sizes, Progress *progress) {
    const int32_t nred = std::min(R.nred, R.ncols);
    if (!blocks_pay(R.ring, sizes, R.nrows, nred)) return;
    BlockElimination<Ring> E = {};
    E.ring = R.ring;
    E.A = operand(R.A);
    E.rows = R.nrows;
    E.stop_at_zeros = R.det && R.detonly;  // the next pivot ends the run
    E.sizes = sizes;
    void *const work = take_work(&E, nred);
    if (!work) return;
    int32_t &r = progress->rank, &c = progress->column;
    // Columns that the plain text takes: more of them where blocks come to nothing.
    int32_t step = 1;
    while (r < R.nrows && c < nred && !progress->finished && !(E.stop_at_zeros && r != c)) {
        const Reach reach = eliminate(E, r, c, nred, R.ncols);
        for (int32_t i = r; i < reach.rank; i++) {
            record_pivot(R, i, E.columns[i], R.A.at(i, E.columns[i]));
            if (E.sources[i] == i) continue;
            negate_output(R.ring, R.det);
            negate_output(R.ring, R.pivprod);
        }
        if (R.mode == echelon_form) {
            finish_echelon_form(E, r, c, reach.rank, R.ncols);
        } else {
            finish_reduced_form(E, r, c, reach.rank, R.ncols);
        }
        step = reach.rank == r ? std::min(2 * step, sizes.panel) : 1;
        r = reach.rank;
        c = reach.column;
        eliminate_columns(R, progress, std::min(c + step, nred));
        normalise_rows(R.ring, R.A, R.delayed, R.nrows, 0, R.ncols);
    }
    std::free(work);
}

template <class Ring, class M>
EchelonStatus row_reduce(const RowReduction<Ring, M> &R, const BlockSizes &sizes = {}) {
    if (R.pivcols && (!R.rank || R.mode == echelon_form || R.extra)) return echelon_bad_request;
    if (R.detonly && R.mode != echelon_form) return echelon_bad_request;
    if ((R.det || R.pivprod) && R.nrows > R.ncols) return echelon_bad_request;

    if (R.delayed.counters) {
        for (int32_t i = 0; i < R.nrows; i++) R.delayed.clear(i);
    }
    if (R.det) *R.det = 1;
    if (R.pivprod) *R.pivprod = 1;
    if (R.pivsig) *R.pivsig = 0;
    if (R.extra) *R.extra = 0;
    canonicalize(R.ring, R.A, R.nrows, R.ncols);

    Progress progress = {echelon_done, false, false, 0, 0};
    if constexpr (has_engine<Ring>) reduce_blocks(R, sizes, &progress);
    if (!progress.finished) eliminate_columns(R, &progress, R.ncols);
    normalise_rows(R.ring, R.A, R.delayed, R.nrows, 0, R.ncols);
    if (progress.finished) return progress.status;

    const int32_t r = progress.rank;
    if (R.rank) *R.rank = r;
    if (R.det && r < R.nrows) *R.det = 0;
    if (!R.pivcols) return echelon_done;
    if (progress.kept_nonunit) return echelon_no_nullspace;
    write_nullspace(R, r);
    return echelon_done;
}

}  // namespace modla
