#include "products/strassen.h"

#include "products/blas_product.h"
#include "products/block_sum.h"
#include "products/classical.h"
#include "products/product_choice.h"

using namespace modla;

namespace {

// The rows, columns and inner index that halving leaves over.
template <class Ring, class Entry>
void peel(const Ring &ring, const Product<Entry> &product) {
    const auto &[m, k, n, A, B, C, sparse] = product;
    const int32_t me = m & ~1, ke = k & ~1, ne = n & ~1;
    const auto multiply = [&](int32_t rows, int32_t columns, Operand<const Entry> a, Operand<const Entry> b,
                              Operand<Entry> c) {
        multiply_classically(ring, {rows, ke, columns, a, b, c, false});
    };
    if (m != me) multiply(1, ne, A.from(me, 0), B, C.from(me, 0));
    if (n != ne) multiply(me, 1, A, B.from(0, ne), C.from(0, ne));
    if (m != me && n != ne) multiply(1, 1, A.from(me, 0), B.from(0, ne), C.from(me, ne));
    if (k == ke) return;
    for (int32_t i = 0; i < m; i++) {
        const typename Ring::Value a = A.at(i, ke);
        for (int32_t j = 0; j < n; j++) C.at(i, j) = ring.multiply_add(a, B.at(ke, j), C.at(i, j));
    }
}

// base(product) multiplies and returns true where the recursion ends.
template <class Ring, class Entry, class Base>
void recurse(const Ring &ring, const Product<Entry> &product, Entry *workspace, const Base &base) {
    if (base(product)) return;
    const auto &[m, k, n, A, B, C, sparse] = product;
    const int32_t mh = m / 2, kh = k / 2, nh = n / 2;
    using Factor = Operand<const Entry>;
    const Factor A11 = A, A12 = A.from(0, kh), A21 = A.from(mh, 0), A22 = A.from(mh, kh);
    const Factor B11 = B, B12 = B.from(0, nh), B21 = B.from(kh, 0), B22 = B.from(kh, nh);
    const Operand<Entry> C11 = C, C12 = C.from(0, nh), C21 = C.from(mh, 0), C22 = C.from(mh, nh);
    const Operand<Entry> X = {workspace, {kh, 1}};
    const Operand<Entry> Y = {X.data + static_cast<ptrdiff_t>(mh) * kh, {nh, 1}};
    const Operand<Entry> Z = {Y.data + static_cast<ptrdiff_t>(kh) * nh, {nh, 1}};
    const Operand<Entry> W = {Z.data + static_cast<ptrdiff_t>(mh) * nh, {nh, 1}};
    Entry *const rest = W.data + static_cast<ptrdiff_t>(mh) * nh;

    const Shape left = {mh, kh}, right = {kh, nh}, result = {mh, nh};
    const auto subtract = [&](Shape shape, Factor a, Factor b, Operand<Entry> c) {
        combine_blocks(shape, a, b, c, residue_difference(ring.p));
    };
    const auto add = [&](Shape shape, Factor a, Factor b, Operand<Entry> c) {
        combine_blocks(shape, a, b, c, residue_sum(ring.p));
    };
    const auto times = [&](Factor a, Factor b, Operand<Entry> c) {
        recurse(ring, Product<Entry>{mh, kh, nh, a, b, c, product.sparse}, rest, base);
    };

    add(left, A21, A22, X);
    subtract(right, B12, B11, Y);
    times(X, Y, C22);
    subtract(left, X, A11, X);
    subtract(right, B22, Y, Y);
    times(X, Y, Z);
    subtract(left, A12, X, X);
    subtract(right, B21, Y, Y);
    times(X, B22, C12);
    times(A22, Y, C21);
    times(A12, B21, C11);
    times(A11, B11, W);
    add(result, C11, W, C11);
    add(result, W, Z, W);
    subtract(left, A11, A21, X);
    subtract(right, B22, B12, Y);
    times(X, Y, Z);
    add(result, Z, W, Z);
    add(result, C21, Z, C21);
    add(result, W, C22, W);
    add(result, C22, Z, C22);
    add(result, C12, W, C12);
    peel(ring, product);
}

}  // namespace

void modla::multiply_by_strassen(const WordRing &ring, const Product<uint32_t> &product, uint32_t *workspace,
                                 int32_t threshold) {
    const int32_t smallest = std::max(threshold, 1);
    recurse(ring, product, workspace, [&](const Product<uint32_t> &part) {
        if (std::min({part.m, part.k, part.n}) > smallest) return false;
        multiply_classically(ring, part);
        return true;
    });
}

void modla::multiply_by_strassen(const FloatRing &ring, const Product<StoredDouble> &product, StoredDouble *workspace,
                                 int32_t L, bool blas_base) {
    recurse(ring, product, workspace, [&](const Product<StoredDouble> &part) {
        if (blas_base && part.k <= L) {
            multiply_with_blas(ring, part);
            return true;
        }
        const bool divisible = std::min({part.m, part.k, part.n}) >= 2;
        if (divisible && (blas_base || strassen_pays(part.m, part.k, part.n))) return false;
        multiply_classically(ring, part);
        return true;
    });
}
