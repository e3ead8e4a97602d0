// Copies of operands that the result is written over.
#pragma once

#include "engine/move.h"
#include "host/work_memory.h"

namespace modla {

// A copy of a block in memory from Alloc; without data when there was none.
template <class Entry>
Operand<Entry> copy_operand(const HostApi *api, const Block &block) {
    const Operand<Entry> copy = allocate_like<Entry>(api, block);
    if (copy.data) copy_entries(shape_of(block), operand_of<const Entry>(block), copy);
    return copy;
}

}  // namespace modla
