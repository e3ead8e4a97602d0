// Strassen's recursion in Winograd's form: 7 products and 15 sums of half the size (Winograd, 1971), over strided
// operands and one workspace; odd sizes by dynamic peeling (Huss-Lederman et al., 1996).
//
// Exactness: every operand of every product holds residues 0..p-1.  The given ones do; the differences formed here are
// taken into 0..p-1 (unlike the exported block subtraction, which leaves p for 0 and would let products reach p^2); sums
// of residues are brought below p.  So a base product adds at most L products of at most (p-1)^2 to a residue before it
// reduces, and p-1 + L*(p-1)^2 is below 2^32 (words) or 2^53 (floats) by the definition of L.
#pragma once

#include "products/block_sum.h"
#include "products/classical.h"

namespace modla {

template <class Residue>
struct StrassenProduct {
    using Entry = typename Residue::Entry;
    int32_t m, k, n;
    Operand<const Entry> A, B;
    Operand<Entry> C;
};

// The words or doubles of workspace that one level takes.
inline int64_t strassen_level_size(int32_t m, int32_t k, int32_t n) {
    const int64_t mh = m / 2, kh = k / 2, nh = n / 2;
    return (mh + nh) * kh + 2 * mh * nh;
}

// The rows, columns and inner index that halving leaves over.
template <class Residue>
void peel(const Residue &residue, const StrassenProduct<Residue> &product) {
    const auto &[m, k, n, A, B, C] = product;
    const int32_t me = m & ~1, ke = k & ~1, ne = n & ~1;
    if (m != me) multiply_blocks(residue, 1, ke, ne, A.from(me, 0), B, C.from(me, 0), false);
    if (n != ne) multiply_blocks(residue, me, ke, 1, A, B.from(0, ne), C.from(0, ne), false);
    if (m != me && n != ne) multiply_blocks(residue, 1, ke, 1, A.from(me, 0), B.from(0, ne), C.from(me, ne), false);
    if (k == ke) return;
    for (int32_t i = 0; i < m; i++) {
        const typename Residue::Value a = A.at(i, ke);
        for (int32_t j = 0; j < n; j++) C.at(i, j) = residue.multiply_add(a, B.at(ke, j), C.at(i, j));
    }
}

// base(product) multiplies and returns true where the recursion ends.
template <class Residue, class Base>
void multiply_strassen(const Residue &residue, const StrassenProduct<Residue> &product,
                       typename Residue::Entry *workspace, const Base &base) {
    using Entry = typename Residue::Entry;
    using Value = typename Residue::Value;
    if (base(product)) return;
    const auto &[m, k, n, A, B, C] = product;
    const int32_t mh = m / 2, kh = k / 2, nh = n / 2;
    const Operand<const Entry> A11 = A, A12 = A.from(0, kh), A21 = A.from(mh, 0), A22 = A.from(mh, kh);
    const Operand<const Entry> B11 = B, B12 = B.from(0, nh), B21 = B.from(kh, 0), B22 = B.from(kh, nh);
    const Operand<Entry> C11 = C, C12 = C.from(0, nh), C21 = C.from(mh, 0), C22 = C.from(mh, nh);
    const Operand<Entry> X = {workspace, {kh, 1}};
    const Operand<Entry> Y = {X.data + static_cast<ptrdiff_t>(mh) * kh, {nh, 1}};
    const Operand<Entry> Z = {Y.data + static_cast<ptrdiff_t>(kh) * nh, {nh, 1}};
    const Operand<Entry> W = {Z.data + static_cast<ptrdiff_t>(mh) * nh, {nh, 1}};
    Entry *const rest = W.data + static_cast<ptrdiff_t>(mh) * nh;

    const auto readable = [](Operand<Entry> block) { return Operand<const Entry>{block.data, block.steps}; };
    const Value p = residue.p;
    const auto subtract = [&](int32_t rows, int32_t columns, Operand<const Entry> a, Operand<const Entry> b,
                              Operand<Entry> c) { combine_blocks(rows, columns, a, b, c, residue_difference(p)); };
    const auto add = [&](int32_t rows, int32_t columns, Operand<const Entry> a, Operand<const Entry> b,
                         Operand<Entry> c) { combine_blocks(rows, columns, a, b, c, residue_sum(p)); };
    const auto times = [&](Operand<const Entry> a, Operand<const Entry> b, Operand<Entry> c) {
        multiply_strassen(residue, StrassenProduct<Residue>{mh, kh, nh, a, b, c}, rest, base);
    };
    const Operand<const Entry> x = readable(X), y = readable(Y), z = readable(Z), w = readable(W);

    add(mh, kh, A21, A22, X);
    subtract(kh, nh, B12, B11, Y);
    times(x, y, C22);
    subtract(mh, kh, x, A11, X);
    subtract(kh, nh, B22, y, Y);
    times(x, y, Z);
    subtract(mh, kh, A12, x, X);
    subtract(kh, nh, B21, y, Y);
    times(x, B22, C12);
    times(A22, y, C21);
    times(A12, B21, C11);
    times(A11, B11, W);
    add(mh, nh, readable(C11), w, C11);
    add(mh, nh, w, z, W);
    subtract(mh, kh, A11, A21, X);
    subtract(kh, nh, B22, B12, Y);
    times(x, y, Z);
    add(mh, nh, z, w, Z);
    add(mh, nh, readable(C21), z, C21);
    add(mh, nh, w, readable(C22), W);
    add(mh, nh, readable(C22), z, C22);
    add(mh, nh, readable(C12), w, C12);
    peel(residue, product);
}

}  // namespace modla
