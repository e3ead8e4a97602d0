// A product of matrices, and copies of its operands.
#pragma once

#include "blocks/operand.h"
#include "engine/move.h"
#include "host/work_memory.h"

namespace modla {

// C = A*B for an m x k matrix A and a k x n matrix B; C overlaps neither.
template <class Entry>
struct Product {
    int32_t m, k, n;
    Operand<const Entry> A, B;
    Operand<Entry> C;
    bool sparse;  // zeros of A are worth a test
};

// A copy of a block in memory from Alloc; without data when there was none.
template <class Entry>
Operand<Entry> copy_operand(const HostApi *api, const Block &block) {
    const Operand<Entry> copy = allocate_like<Entry>(api, block);
    if (copy.data) copy_entries(shape_of(block), operand_of<const Entry>(block), copy);
    return copy;
}

}  // namespace modla
