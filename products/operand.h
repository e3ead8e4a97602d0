// Factors and results of products: matrices with a step from row to row and one from column to column.
#pragma once

#include "blocks/operand.h"
#include "blocks/transpose.h"
#include "host/object.h"
#include "host/subspec.h"
#include "host/work_memory.h"
#include "residue/ring.h"

namespace modla {

template <class Entry>
Operand<Entry> operand_of(const Block &block) {
    return {static_cast<Entry *>(block.data), steps_of(block)};
}

// A row-major copy of a block in memory from Alloc; its data is null when there was none.
template <class Entry>
Operand<Entry> copy_operand(const HostApi *api, const Block &block) {
    const int32_t rows = row_count(block), columns = column_count(block);
    const uint64_t count = uint64_t{static_cast<uint32_t>(rows)} * static_cast<uint32_t>(columns);
    const Operand<Entry> copy = {allocate<Entry>(api, count), {columns, 1}};
    if (!copy.data) return copy;
    copy_entries<Entry>({rows, columns}, static_cast<const Entry *>(block.data), steps_of(block), copy.data,
                        copy.steps);
    return copy;
}

// The sum or product of empty tables: zeros, in the datatype's form.
inline void clear_block(const Block &C) {
    const Shape shape = {row_count(C), column_count(C)};
    if (C.datatype == MODLA_FLOAT8) {
        fill_entries(shape, static_cast<StoredDouble *>(C.data), steps_of(C), 0.0);
    } else {
        const HostObject zero = C.datatype == MODLA_INTEGER ? immediate_integer(0) : 0;
        fill_entries(shape, static_cast<HostObject *>(C.data), steps_of(C), zero);
    }
}

}  // namespace modla
