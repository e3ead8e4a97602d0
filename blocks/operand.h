// Matrices with a step from row to row and one from column to column.
#pragma once

#include <cstdint>

#include "blocks/strided.h"

namespace modla {

template <class EntryType>
struct Operand {
    using Entry = EntryType;
    Entry *data;
    Steps steps;

    Entry &at(int32_t i, int32_t j) const { return data[i * steps.row + j * steps.column]; }
    Operand from(int32_t i, int32_t j) const { return {&at(i, j), steps}; }
    Operand transposed() const { return {data, {steps.column, steps.row}}; }
};

}  // namespace modla
