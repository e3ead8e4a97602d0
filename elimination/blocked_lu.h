// P*A = L*E by blocks, E in row echelon form: what LU and row reduction share.  It is compiled once for each ring, in
// blocked_lu.cpp.
#pragma once

#include <cstdint>

#include "elimination/blocked_product.h"

namespace modla {

template <class Ring>
struct BlockElimination {
    using Entry = typename Ring::Entry;

    Ring ring;
    Operand<Entry> A;
    int32_t rows;
    bool first_nonzero;  // the pivot is the first nonzero entry of a column, else the first that is invertible
    bool stop_at_zeros;  // a column without a pivot is not skipped
    BlockSizes sizes;

    // For the pivot of row r: the row that it came from, its column, its inverse.
    int32_t *sources, *columns;
    Entry *inverses;
    // Work memory.
    int32_t *exchanges;
    Entry *panel, *solve;
    int64_t panel_step;
};

// Pivots in rows ..rank-1, columns ..column-1 done.
struct Reach {
    int32_t rank, column;
};

// Takes work memory from the heap for so many columns; null when there is none.  To be freed by std::free.
template <class Ring>
void *take_work(BlockElimination<Ring> *E, int32_t columns);

// Eliminates columns c..end-1 in rows r.. as far as the plain text would do so with pivots alone: to the end or to the
// first column that has nonzero entries but no pivot, or none where zeros stop.  Then the columns before `width` are
// what they would be after this many of the plain steps, except that
//   - pivot rows are not divided by their pivots, and rows above are not changed;
//   - below the diagonal of A from (r, c) on stand the multipliers: those of the t-th pivot in column c+t.
template <class Ring>
Reach eliminate(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end, int32_t width);

// What eliminate() left from (r, c) on becomes what the plain text leaves: the echelon form of pivot rows r..rank-1.
template <class Ring>
void finish_echelon_form(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank, int32_t width);
// The same with the pivot columns cleared in the rows above.
template <class Ring>
void finish_reduced_form(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank, int32_t width);

}  // namespace modla
