// A product of matrices.
#pragma once

#include "blocks/operand.h"

namespace modla {

// C = A*B for an m x k matrix A and a k x n matrix B; C overlaps neither.
template <class Entry>
struct Product {
    int32_t m, k, n;
    Operand<const Entry> A, B;
    Operand<Entry> C;
    bool sparse;  // zeros of A are worth a test
};

}  // namespace modla
