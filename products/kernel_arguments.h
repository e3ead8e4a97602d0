// The arguments of the exported product kernels as operands.
#pragma once

#include "modla.h"
#include "products/operand.h"

namespace modla {

template <class Entry, class W>
Operand<const Entry> factor(const W *data, int32_t row_step, int32_t column_step) {
    return {reinterpret_cast<const Entry *>(data), {row_step, column_step}};
}

template <class Entry, class W>
Operand<Entry> result(W *data, int32_t row_step, int32_t column_step) {
    return {reinterpret_cast<Entry *>(data), {row_step, column_step}};
}

}  // namespace modla
