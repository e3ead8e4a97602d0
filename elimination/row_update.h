// Row updates with delayed reduction, shared by row reduction and LU.
#pragma once

#include <cstdint>

#include "engine/rows.h"

namespace modla {

// Per row, how many unreduced multiples were added since its last reduction.  A row is reduced together with the
// addition that would make it `limit` of them.  Without counters every addition is reduced at once.
struct DelayedReductions {
    int32_t *counters;
    int32_t limit;

    bool any(int32_t row) const { return counters && counters[row] != 0; }
    void clear(int32_t row) const {
        if (counters) counters[row] = 0;
    }
    // Counts one addition to the row: may it stay unreduced?
    bool postpone(int32_t row) const {
        if (!counters) return false;
        if (++counters[row] < limit) return true;
        counters[row] = 0;
        return false;
    }
};

// Reduces row i from column `from` on, if it holds unreduced sums.
template <class Ring, class M>
[[gnu::always_inline]] inline void normalise_row(const Ring &ring, const M &A, const DelayedReductions &delayed,
                                                 int32_t i, int32_t from, int32_t columns) {
    if (!delayed.any(i)) return;
    reduce_line(ring, A.row(i, from), columns - from);
    delayed.clear(i);
}

// Reduces all rows that hold unreduced sums, from column `from` on.
template <class Ring, class M>
void normalise_rows(const Ring &ring, const M &A, const DelayedReductions &delayed, int32_t rows, int32_t from,
                    int32_t columns) {
    bool any = false;
    for (int32_t i = 0; i < rows; i++) any |= delayed.any(i);
    if (!any) return;
    if constexpr (M::c_order) {
        for (int32_t i = 0; i < rows; i++) normalise_row(ring, A, delayed, i, from, columns);
    } else {
        for (int32_t j = from; j < columns; j++) reduce_line(ring, A.column(j, 0), rows);
        for (int32_t i = 0; i < rows; i++) delayed.clear(i);
    }
}

// Exchanges rows a and b from column `from` on, and their counters.
template <class M>
void swap_rows(const M &A, const DelayedReductions &delayed, int32_t a, int32_t b, int32_t from, int32_t columns) {
    swap_lines(A.row(a, from), A.row(b, from), columns - from);
    if (delayed.counters) std::swap(delayed.counters[a], delayed.counters[b]);
}

// Row i += f * row s on columns from..columns-1; row s is reduced.
template <class Ring, class M>
[[gnu::always_inline]] inline void update_row(const Ring &ring, const M &A, const DelayedReductions &delayed, int32_t i,
                                              int32_t s, int32_t from, int32_t columns, typename Ring::Value f) {
    if (delayed.postpone(i)) {
        add_multiple(ring, A.row(i, from), A.row(s, from), columns - from, f);
    } else {
        add_multiple_reduced(ring, A.row(i, from), A.row(s, from), columns - from, f);
    }
}

// For i = first..rows-1: row i += f_i * row s on columns c+1..columns-1, where f_i stands in entry (i, c) and f_s is 0.
// In Fortran_order the loop runs along the columns: the column of the f_i is added to each of them.
template <class Ring, class M>
void update_rows(const Ring &ring, const M &A, const DelayedReductions &delayed, int32_t s, int32_t c, int32_t first,
                 int32_t rows, int32_t columns) {
    if constexpr (M::c_order) {
        for (int32_t i = first; i < rows; i++) {
            const typename Ring::Value f = A.at(i, c);
            if (f != 0) update_row(ring, A, delayed, i, s, c + 1, columns, f);
        }
    } else {
        bool postpone = delayed.counters != nullptr;
        for (int32_t i = first; i < rows; i++) {
            if (A.at(i, c) != 0) postpone &= delayed.postpone(i);
        }
        for (int32_t j = c + 1; j < columns; j++) {
            const typename Ring::Value x = A.at(s, j);
            if (!postpone) {
                add_multiple_reduced(ring, A.column(j, first), A.column(c, first), rows - first, x);
            } else if (x != 0) {
                add_multiple(ring, A.column(j, first), A.column(c, first), rows - first, x);
            }
        }
        // One full row had all of them reduced.
        if (!postpone) {
            for (int32_t i = first; i < rows; i++) delayed.clear(i);
        }
    }
}

}  // namespace modla
