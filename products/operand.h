// Factors and results of products: matrices with a step from row to row and one from column to column.
#pragma once

#include "engine/transpose.h"
#include "host/subspec.h"
#include "scalar/residue.h"

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

template <class Entry>
Operand<Entry> operand_of(const Block &block) {
    return {static_cast<Entry *>(block.data), steps_of(block)};
}

// A row-major copy of a block in memory from Alloc.
template <class Entry>
Operand<Entry> copy_operand(const HostApi *api, const Block &block) {
    const int32_t rows = row_count(block), columns = column_count(block);
    const uint64_t bytes = uint64_t{sizeof(Entry)} * static_cast<uint32_t>(rows) * static_cast<uint32_t>(columns);
    const Operand<Entry> copy = {static_cast<Entry *>(api->Alloc(static_cast<uint32_t>(bytes))), {columns, 1}};
    copy_entries<Entry>({rows, columns}, static_cast<const Entry *>(block.data), steps_of(block), copy.data,
                        copy.steps);
    return copy;
}

}  // namespace modla
