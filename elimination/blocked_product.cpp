#include "elimination/blocked_product.h"

#include <algorithm>

#include "engine/move.h"
#include "engine/rows.h"

using namespace modla;

namespace {

// Calls body with UnitStep where that is the step.
template <class Body>
void with_step(ptrdiff_t step, Body body) {
    if (step == 1) {
        body(UnitStep{});
    } else {
        body(AnyStep{step});
    }
}

// C -= A*B along C's columns, reductions delayed.
template <class Ring, class Entry = typename Ring::Entry>
void subtract_by_columns(const Ring &ring, int32_t rows, int32_t depth, int32_t columns, Operand<const Entry> A,
                         Operand<const Entry> B, Operand<Entry> C) {
    const int32_t bound = delay_bound(ring);
    with_step(C.steps.row, [&](auto c_step) {
        with_step(A.steps.row, [&](auto a_step) {
            for (int32_t j = 0; j < columns; j++) {
                const Line<Entry, decltype(c_step)> target = {&C.at(0, j), c_step};
                int32_t delayed = 0;
                for (int32_t t = 0; t < depth; t++) {
                    const auto f = ring.negate(B.at(t, j));
                    if (f == 0) continue;
                    const Line<const Entry, decltype(a_step)> column = {&A.at(0, t), a_step};
                    if (++delayed < bound) {
                        add_multiple(ring, target, column, rows, f);
                    } else {
                        add_multiple_reduced(ring, target, column, rows, f);
                        delayed = 0;
                    }
                }
                if (delayed != 0) reduce_line(ring, target, rows);
            }
        });
    });
}

// B := T^-1 * B, along B's rows.
template <class Ring, class Entry>
void solve_by_rows(const Ring &ring, const TriangularOperand<Entry> &L, int32_t n, Operand<Entry> B, int32_t columns) {
    const auto row = [&](int32_t i) { return Line<Entry, UnitStep>{&B.at(i, 0), {}}; };
    for (int32_t s = 0; s < n; s++) {
        const int32_t i = L.lower ? s : n - 1 - s;
        for (int32_t t = L.lower ? 0 : i + 1; t < (L.lower ? i : n); t++) {
            const auto f = ring.negate(L.T.at(i, t));
            if (f != 0) add_multiple_reduced(ring, row(i), row(t), columns, f);
        }
        if (L.inverses && L.inverses[i] != 1) scale_line(ring, row(i), columns, L.inverses[i]);
    }
}

// The same along the columns of B and of T.
template <class Ring, class Entry>
void solve_by_columns(const Ring &ring, const TriangularOperand<Entry> &L, int32_t n, Operand<Entry> B,
                      int32_t columns) {
    with_step(B.steps.row, [&](auto b_step) {
        with_step(L.T.steps.row, [&](auto t_step) {
            for (int32_t j = 0; j < columns; j++) {
                for (int32_t s = 0; s < n; s++) {
                    const int32_t i = L.lower ? s : n - 1 - s, first = L.lower ? i + 1 : 0;
                    if (L.inverses) B.at(i, j) = ring.multiply(B.at(i, j), L.inverses[i]);
                    const auto f = ring.negate(B.at(i, j));
                    if (f == 0) continue;
                    const Line<Entry, decltype(b_step)> target = {&B.at(first, j), b_step};
                    const Line<const Entry, decltype(t_step)> factors = {&L.T.at(first, i), t_step};
                    add_multiple_reduced(ring, target, factors, n - 1 - s, f);
                }
            }
        });
    });
}

template <class Ring, class Entry>
void solve_plainly(const Ring &ring, const TriangularOperand<Entry> &L, int32_t n, Operand<Entry> B, int32_t columns) {
    if (B.steps.column == 1 && columns > 1) {
        solve_by_rows(ring, L, n, B, columns);
    } else {
        solve_by_columns(ring, L, n, B, columns);
    }
}

// The same for a small triangle, by a product with its inverse, a strip of columns at a time.
template <class Ring, class Entry>
void solve_by_inverse(const Ring &ring, const BlockSizes &sizes, Entry *work, const TriangularOperand<Entry> &L,
                      int32_t n, Operand<Entry> B, int32_t columns) {
    const Operand<Entry> inverse = {work, {n, 1}};
    fill_entries({n, n}, inverse, typename Ring::Value(0));
    for (int32_t i = 0; i < n; i++) inverse.at(i, i) = 1;
    solve_plainly(ring, L, n, inverse, n);
    const int32_t width = std::min(columns, sizes.strip);
    const Operand<Entry> copy = {work + n * n, B.steps.column == 1 ? Steps{width, 1} : Steps{1, n}};
    for (int32_t j = 0; j < columns; j += sizes.strip) {
        const int32_t count = std::min(columns - j, sizes.strip);
        const Operand<Entry> strip = B.from(0, j);
        copy_entries<Entry>({n, count}, strip, copy);
        if (!gemm(modulus_of(ring.p), Update::store, n, n, count, source(inverse), source(copy), strip)) {
            solve_plainly(ring, L, n, strip, count);
        }
    }
}

}  // namespace

template <class Ring, class Entry>
void modla::subtract_product(const Ring &ring, int32_t rows, int32_t depth, int32_t columns, Operand<const Entry> A,
                             Operand<const Entry> B, Operand<Entry> C) {
    if (rows <= 0 || depth <= 0 || columns <= 0) return;
    if (gemm(modulus_of(ring.p), Update::subtract, rows, depth, columns, A, B, C)) return;
    if (C.steps.column == 1 && C.steps.row != 1) {
        subtract_by_columns(ring, columns, depth, rows, B.transposed(), A.transposed(), C.transposed());
    } else {
        subtract_by_columns(ring, rows, depth, columns, A, B, C);
    }
}

//  +-----+-----+   +-----+     X1 := T1^-1 * X1
//  | T1  |     |   | X1  |     X2 -= S * X1
//  +-----+-----+   +-----+     X2 := T2^-1 * X2
//  |  S  | T2  |   | X2  |     and, where S is above, from below.
//  +-----+-----+   +-----+
template <class Ring, class Entry>
void modla::solve_triangular(const Ring &ring, const BlockSizes &sizes, Entry *work, const TriangularOperand<Entry> &L,
                             int32_t n, Operand<Entry> B, int32_t columns) {
    if (n <= 0 || columns <= 0) return;
    if (n <= sizes.solve) {
        if (n == 1 || columns < 8) return solve_plainly(ring, L, n, B, columns);
        return solve_by_inverse(ring, sizes, work, L, n, B, columns);
    }
    const int32_t half = ((n + 1) / 2 + sizes.solve - 1) / sizes.solve * sizes.solve, rest = n - half;
    const Operand<Entry> X2 = B.from(half, 0);
    if (L.lower) {
        solve_triangular(ring, sizes, work, L, half, B, columns);
        subtract_product(ring, rest, half, columns, L.T.from(half, 0), source(B), X2);
        solve_triangular(ring, sizes, work, L.from(half), rest, X2, columns);
    } else {
        solve_triangular(ring, sizes, work, L.from(half), rest, X2, columns);
        subtract_product(ring, half, rest, columns, L.T.from(0, half), source(X2), B);
        solve_triangular(ring, sizes, work, L, half, B, columns);
    }
}

template void modla::subtract_product(const WordRing &, int32_t, int32_t, int32_t, Operand<const uint32_t>,
                                      Operand<const uint32_t>, Operand<uint32_t>);
template void modla::subtract_product(const FloatRing &, int32_t, int32_t, int32_t, Operand<const StoredDouble>,
                                      Operand<const StoredDouble>, Operand<StoredDouble>);
template void modla::solve_triangular(const WordRing &, const BlockSizes &, uint32_t *,
                                      const TriangularOperand<uint32_t> &, int32_t, Operand<uint32_t>, int32_t);
template void modla::solve_triangular(const FloatRing &, const BlockSizes &, StoredDouble *,
                                      const TriangularOperand<StoredDouble> &, int32_t, Operand<StoredDouble>, int32_t);
