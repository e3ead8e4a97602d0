// A product of matrices.
#pragma once

#include "blocks/operand.h"
#include "engine/rows.h"
#include "residue/fp_mode.h"

namespace modla {

// C = A*B for an m x k matrix A and a k x n matrix B; C overlaps neither.
template <class Entry>
struct Product {
    int32_t m, k, n;
    Operand<const Entry> A, B;
    Operand<Entry> C;
    bool sparse;  // zeros of A are worth a test
};

// The engine's product with one row or column, of any entries but at least so many of the matrix; false when it was not
// done, and nothing is written then.
template <class Ring, class Entry = typename Ring::Entry>
bool multiply_vector(const Ring &ring, const Product<Entry> &product, int64_t least) {
    const auto &[m, k, n, A, B, C, sparse] = product;
    if ((m != 1 && n != 1) || int64_t{m} * n * k < least) return false;
    return with_standard_mode([&, m = m, k = k, n = n, A = A, B = B, C = C] {
        const VectorProduct found = n == 1
                                        ? multiply_vector(ring, m, k, A, B, C)
                                        : multiply_vector(ring, n, k, B.transposed(), A.transposed(), C.transposed());
        return found == VectorProduct::done;
    });
}

}  // namespace modla
