#include "elimination/blocked_lu.h"

#include <algorithm>
#include <cstdlib>

#include "engine/move.h"
#include "engine/rows.h"

using namespace modla;

namespace {

template <class Entry>
Line<Entry, UnitStep> column_of(const Operand<Entry> &A, int32_t i, int32_t j) {
    return {&A.at(i, j), {}};
}

constexpr int32_t no_pivot = -1, no_entry = -2;

// The row of the pivot of column c in rows r.., by the rule.
template <class Ring>
int32_t find_pivot(const BlockElimination<Ring> &E, int32_t r, int32_t c, typename Ring::Value *inverse) {
    bool any = false;
    for (int32_t i = r; i < E.rows; i++) {
        const typename Ring::Value x = E.A.at(i, c);
        if (x == 0) continue;
        any = true;
        if (E.ring.invert(x, inverse)) return i;
        if (E.first_nonzero) break;
    }
    return any || E.stop_at_zeros ? no_pivot : no_entry;
}

template <class Entry>
void move_column(const Operand<Entry> &A, int32_t from, int32_t to, int32_t first, int32_t end) {
    for (int32_t i = first; i < end; i++) {
        A.at(i, to) = A.at(i, from);
        A.at(i, from) = 0;
    }
}

// One column after the other; A's columns are contiguous.
template <class Ring>
Reach eliminate_columns(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end) {
    const Ring &ring = E.ring;
    int32_t multipliers = c;
    for (int32_t j = c; j < end && r < E.rows; j++) {
        typename Ring::Value inverse;
        const int32_t s = find_pivot(E, r, j, &inverse);
        if (s == no_pivot) return {r, j};
        if (s == no_entry) continue;
        E.sources[r] = s;
        E.columns[r] = j;
        E.inverses[r] = inverse;
        for (int32_t k = c; s != r && k < end; k++) std::swap(E.A.at(s, k), E.A.at(r, k));
        const int32_t below = E.rows - r - 1;
        if (inverse != 1) scale_line(ring, column_of(E.A, r + 1, j), below, inverse);
        if (j != multipliers) move_column(E.A, j, multipliers, r + 1, E.rows);
        for (int32_t k = j + 1; k < end; k++) {
            const auto f = ring.negate(E.A.at(r, k));
            if (f == 0) continue;
            add_multiple_reduced(ring, column_of(E.A, r + 1, k), column_of(E.A, r + 1, multipliers), below, f);
        }
        r++, multipliers++;
    }
    return {r, end};
}

// Exchanges the rows of pivots r..rank-1 in columns from..end-1.
template <class Ring>
void exchange_rows(const BlockElimination<Ring> &E, int32_t r, int32_t rank, int32_t from, int32_t end) {
    int32_t count = 0;
    for (int32_t i = r; i < rank; i++) {
        if (E.sources[i] != i) E.exchanges[count++] = i;
    }
    if (count == 0) return;
    if (E.A.steps.column == 1) {
        for (int32_t k = 0; k < count; k++) {
            const int32_t i = E.exchanges[k];
            std::swap_ranges(&E.A.at(i, from), &E.A.at(i, from) + (end - from), &E.A.at(E.sources[i], from));
        }
        return;
    }
    for (int32_t j = from; j < end; j++) {
        for (int32_t k = 0; k < count; k++) {
            const int32_t i = E.exchanges[k];
            std::swap(E.A.at(i, j), E.A.at(E.sources[i], j));
        }
    }
}

// Columns from..end-1 follow the pivots r..rank-1, whose multipliers start at (r, c).
template <class Ring>
void update_columns(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank, int32_t from, int32_t end) {
    if (rank == r || from >= end) return;
    const Operand<typename Ring::Entry> top = E.A.from(r, from);
    exchange_rows(E, r, rank, from, end);
    solve_triangular(E.ring, E.sizes, E.solve, {source(E.A.from(r, c)), true, nullptr}, rank - r, top, end - from);
    subtract_product(E.ring, E.rows - rank, rank - r, end - from, source(E.A.from(rank, c)), source(top),
                     E.A.from(rank, from));
}

// Line by line, to be done at once with most blocks.
template <class Ring>
bool is_zero_block(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end) {
    const bool by_rows = E.A.steps.row != 1;
    Operand<typename Ring::Entry> block = E.A.from(r, c);
    if (!by_rows) block = block.transposed();
    const int32_t rows = E.rows - r, lines = by_rows ? rows : end - c, count = by_rows ? end - c : rows;
    for (int32_t i = 0; i < lines; i++) {
        const auto *const line = &block.at(i, 0);
        bool any = false;
        if (block.steps.column == 1) {
            for (int32_t k = 0; k < count; k++) any |= line[k] != 0;
        } else {
            for (int32_t k = 0; k < count; k++) any |= line[k * block.steps.column] != 0;
        }
        if (any) return false;
    }
    return true;
}

template <class Ring>
Reach eliminate_block(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end);

// Works on a copy whose columns are contiguous.
template <class Ring>
Reach eliminate_panel(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end) {
    const Operand<typename Ring::Entry> block = E.A.from(r, c);
    const Shape shape = {E.rows - r, end - c};
    BlockElimination<Ring> panel = E;
    panel.A = {E.panel, {1, static_cast<ptrdiff_t>(E.panel_step)}};
    panel.rows = E.rows - r;
    panel.sources += r, panel.columns += r, panel.inverses += r;
    copy_entries<typename Ring::Entry>(shape, block, panel.A);
    const Reach reach = eliminate_block(panel, 0, 0, end - c);
    copy_entries<typename Ring::Entry>(shape, panel.A, block);
    for (int32_t t = 0; t < reach.rank; t++) panel.sources[t] += r, panel.columns[t] += c;
    return {r + reach.rank, c + reach.column};
}

//          c     c+q    mid         end
//   r     +-------+------+-----------+     The left half is eliminated: q pivots.  They leave zeros below those of E
//         | \  E1 |  E1  |    T1     |     and the multipliers L1 and L2, whose columns stand side by side.
//         | L1 \  |      |           |
//   r+q   +-------+------+-----------+     T1 := L1^-1 * T1, by triangular solution
//         |       |      |           |     T2 -= L2 * T1
//         |  L2   |   0  |    T2     |     Then T2 is eliminated.  Its row exchanges are made in L2, and its
//         |       |      |           |     multipliers move to the left, over the zeros.
//         +-------+------+-----------+
//
// Where the left half stops early, the right half is still brought up to date.
template <class Ring>
Reach eliminate_block(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end) {
    const int32_t width = end - c;
    if (r == E.rows) return {r, end};
    if (is_zero_block(E, r, c, end)) return {r, E.stop_at_zeros ? c : end};
    if (E.A.steps.row != 1 && width <= E.sizes.panel) return eliminate_panel(E, r, c, end);
    if (width <= E.sizes.leaf) return eliminate_columns(E, r, c, end);
    const int32_t unit = width > E.sizes.panel ? E.sizes.panel : E.sizes.leaf;
    const int32_t mid = c + ((width + 1) / 2 + unit - 1) / unit * unit;

    const Reach left = eliminate_block(E, r, c, mid);
    update_columns(E, r, c, left.rank, mid, end);
    if (left.column < mid) return left;

    const Reach right = eliminate_block(E, left.rank, mid, end);
    const int32_t gap = c + left.rank - r;
    exchange_rows(E, left.rank, right.rank, c, gap);
    for (int32_t t = 0; gap != mid && t < right.rank - left.rank; t++) {
        move_column(E.A, mid + t, gap + t, left.rank + t + 1, E.rows);
    }
    return right;
}

// Zeros in place of the multipliers.
template <class Ring>
void clear_multipliers(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank) {
    const int32_t q = rank - r;
    fill_entries({q, q, Triangle::lower_without_diagonal}, E.A.from(r, c), typename Ring::Value(0));
    if (rank < E.rows) fill_entries({E.rows - rank, q}, E.A.from(rank, c), typename Ring::Value(0));
}

// Divides the rows by their pivots.
template <class Ring>
void scale_pivot_rows(const BlockElimination<Ring> &E, int32_t r, int32_t rank, int32_t width) {
    if (E.A.steps.column == 1) {
        for (int32_t i = r; i < rank; i++) {
            const Line<typename Ring::Entry, UnitStep> row = {&E.A.at(i, E.columns[i]), {}};
            if (E.inverses[i] != 1) scale_line(E.ring, row, width - E.columns[i], E.inverses[i]);
        }
        return;
    }
    for (int32_t j = E.columns[r], pivots = r; j < width; j++) {
        while (pivots < rank && E.columns[pivots] <= j) pivots++;
        for (int32_t i = r; i < pivots; i++) E.A.at(i, j) = E.ring.multiply(E.inverses[i], E.A.at(i, j));
    }
}

// Pivot by pivot, without work memory.
template <class Ring>
void clear_above_plainly(const BlockElimination<Ring> &E, int32_t r, int32_t rank, int32_t width) {
    scale_pivot_rows(E, r, rank, width);
    for (int32_t k = rank - 1; k >= r; k--) {
        const int32_t c = E.columns[k];
        const Operand<typename Ring::Entry> above = E.A.from(0, c + 1);
        subtract_product(E.ring, k, 1, width - c - 1, source(E.A.from(0, c)), source(E.A.from(k, c + 1)), above);
        for (int32_t i = 0; i < k; i++) E.A.at(i, c) = 0;
    }
}

//           P       F         P: the pivot columns, F: columns to the right that stay free.
//   0     +-----+-------+
//         |  V  |   W   |     X := U^-1 * X
//   r     +-----+-------+     W -= V * X
//         |  U  |   X   |     and the columns P become unit vectors.
//   rank  +-----+-------+
template <class Ring, class Entry>
void clear_above(const BlockElimination<Ring> &E, int32_t r, int32_t rank, Operand<Entry> VU, Operand<Entry> WX,
                 int32_t count) {
    const int32_t q = rank - r;
    const Operand<Entry> U = VU.from(r, 0), X = WX.from(r, 0);
    solve_triangular(E.ring, E.sizes, E.solve, {source(U), false, E.inverses + r}, q, X, count);
    subtract_product(E.ring, r, q, count, source(VU), source(X), WX);
}

// How many of the columns stand side by side?
int32_t run_length(const int32_t *columns, int32_t count) {
    int32_t run = 1;
    while (run < count && columns[run] == columns[0] + run) run++;
    return run;
}

// Copies the leading rows of `count` columns of A to those of B, or back.
template <class Entry>
void copy_columns(int32_t rows, const Operand<Entry> &A, const int32_t *columns, int32_t count, const Operand<Entry> &B,
                  bool back) {
    for (int32_t k = 0, run; k < count; k += run) {
        run = run_length(columns + k, count - k);
        const Operand<Entry> a = A.from(0, columns[k]), b = B.from(0, k);
        copy_entries<Entry>({rows, run}, back ? b : a, back ? a : b);
    }
}

// Where the pivot columns are not side by side, they and the free columns are copied.
template <class Ring>
bool clear_above_scattered(const BlockElimination<Ring> &E, int32_t r, int32_t rank, int32_t width) {
    using Entry = typename Ring::Entry;
    constexpr int32_t most = 256;
    const int32_t q = rank - r;
    const uint64_t entries = static_cast<uint64_t>(rank) * static_cast<uint64_t>(q + most);
    if (entries > SIZE_MAX / sizeof(Entry)) return false;
    Entry *const copies = static_cast<Entry *>(std::malloc(static_cast<size_t>(entries) * sizeof(Entry)));
    if (!copies) return false;
    const Operand<Entry> VU = {copies, {1, rank}}, WX = {copies + static_cast<ptrdiff_t>(rank) * q, {1, rank}};
    copy_columns(rank, E.A, E.columns + r, q, VU, false);
    int32_t free_columns[most];
    for (int32_t j = E.columns[r], pivot = r; j < width;) {
        int32_t count = 0;
        for (; j < width && count < most; j++) {
            if (pivot < rank && E.columns[pivot] == j) {
                pivot++;
            } else {
                free_columns[count++] = j;
            }
        }
        copy_columns(rank, E.A, free_columns, count, WX, false);
        clear_above(E, r, rank, VU, WX, count);
        copy_columns(rank, E.A, free_columns, count, WX, true);
    }
    std::free(copies);
    return true;
}

}  // namespace

template <class Ring>
Reach modla::eliminate(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t end, int32_t width) {
    const Reach reach = eliminate_block(E, r, c, end);
    update_columns(E, r, c, reach.rank, end, width);
    return reach;
}

template <class Ring>
void modla::finish_echelon_form(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank, int32_t width) {
    if (rank == r) return;
    clear_multipliers(E, r, c, rank);
    scale_pivot_rows(E, r, rank, width);
    for (int32_t i = r; i < rank; i++) E.A.at(i, E.columns[i]) = 1;
}

template <class Ring>
void modla::finish_reduced_form(const BlockElimination<Ring> &E, int32_t r, int32_t c, int32_t rank, int32_t width) {
    if (rank == r) return;
    clear_multipliers(E, r, c, rank);
    const int32_t q = rank - r, first = E.columns[r], last = E.columns[rank - 1];
    if (last - first + 1 == q) {
        clear_above(E, r, rank, E.A.from(0, first), E.A.from(0, last + 1), width - last - 1);
    } else if (q <= E.sizes.leaf || !clear_above_scattered(E, r, rank, width)) {
        clear_above_plainly(E, r, rank, width);
    }
    for (int32_t i = r, run; i < rank; i += run) {
        run = run_length(E.columns + i, rank - i);
        fill_entries({rank, run}, E.A.from(0, E.columns[i]), typename Ring::Value(0));
        for (int32_t k = i; k < i + run; k++) E.A.at(k, E.columns[k]) = 1;
    }
}

template <class Ring>
void *modla::take_work(BlockElimination<Ring> *E, int32_t columns) {
    using Entry = typename Ring::Entry;
    constexpr uint64_t line = 64 / sizeof(Entry);
    const uint64_t rows = static_cast<uint64_t>(E->rows), count = static_cast<uint64_t>(std::min(E->rows, columns));
    E->sizes.panel = std::min(E->sizes.panel, columns);
    // Columns of the panel start on different sets of the caches.
    const uint64_t step = rows / line * line + 2 * line + (rows / line % 64 == 0 ? line : 0);
    const uint64_t panel = E->A.steps.row == 1 ? 0 : step * static_cast<uint64_t>(E->sizes.panel);
    const uint64_t entries = panel + static_cast<uint64_t>(solve_work(E->sizes)) + count;
    const uint64_t bytes = entries * sizeof(Entry) + 3 * count * sizeof(int32_t) + 64;
    if (bytes > SIZE_MAX) return nullptr;
    void *const work = std::malloc(static_cast<size_t>(bytes));
    if (!work) return nullptr;
    E->panel = reinterpret_cast<Entry *>((reinterpret_cast<uintptr_t>(work) + 63) / 64 * 64);
    E->panel_step = static_cast<int64_t>(step);
    E->solve = E->panel + panel;
    E->inverses = E->solve + solve_work(E->sizes);
    E->sources = reinterpret_cast<int32_t *>(E->inverses + count);
    E->columns = E->sources + count;
    E->exchanges = E->columns + count;
    return work;
}

#define MODLA_INSTANTIATE(Ring)                                                                                   \
    template Reach modla::eliminate(const BlockElimination<Ring> &, int32_t, int32_t, int32_t, int32_t);          \
    template void modla::finish_echelon_form(const BlockElimination<Ring> &, int32_t, int32_t, int32_t, int32_t); \
    template void modla::finish_reduced_form(const BlockElimination<Ring> &, int32_t, int32_t, int32_t, int32_t); \
    template void *modla::take_work(BlockElimination<Ring> *, int32_t);
MODLA_INSTANTIATE(WordRing)
MODLA_INSTANTIATE(FloatRing)
#undef MODLA_INSTANTIATE
