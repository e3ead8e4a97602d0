// Sums and differences of blocks.
#pragma once

#include "blocks/operand.h"

namespace modla {

// C = op(A, B) entry by entry; C may be the same block as A or B.
template <class Entry, class Operation>
void combine_blocks(Shape shape, Operand<const Entry> A, Operand<const Entry> B, Operand<Entry> C,
                    Operation operation) {
    walk<3>({shape.rows, shape.columns}, {A.steps, B.steps, C.steps}, false,  // small blocks: no look at triangles
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                const Entry *const a = A.data + offsets[0];
                const Entry *const b = B.data + offsets[1];
                Entry *const c = C.data + offsets[2];
                for (int32_t k = 0; k < count; k++) {
                    c[unit ? k : k * inner[2]] = operation(a[unit ? k : k * inner[0]], b[unit ? k : k * inner[1]]);
                }
            });
}

template <class Value>
auto residue_sum(Value p) {
    return [=](Value a, Value b) { return a + b >= p ? a + b - p : a + b; };
}

template <class Value>
auto residue_difference(Value p) {
    return [=](Value a, Value b) { return a >= b ? a - b : a + p - b; };
}

// The same with p in place of 0.
template <class Value>
auto positive_difference(Value p) {
    return [=](Value a, Value b) { return a > b ? a - b : a + p - b; };
}

}  // namespace modla
