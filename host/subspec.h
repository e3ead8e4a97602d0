// A block of an argument: object [, row selection] [, column selection] [, transpose].
#pragma once

#include "blocks/strided.h"
#include "modla.h"

namespace modla {

// A selected block of a host table.  A count of 0 marks a row (column) object, which has one row (column).
struct Block {
    HostObject object;
    int32_t datatype, order;
    void *data;  // first selected entry
    int32_t rows, row_step;
    int32_t columns, column_step;
    bool empty;  // the table has no entries: nothing may be read or written
};

// What earlier arguments require of a block; -1 = nothing.
struct BlockRequirement {
    int32_t datatype = -1;
    int32_t rows = -1;
    int32_t columns = -1;
    bool allow_transpose = false;
    bool shortcut_only = false;  // the counts only tell how far a block that a single index stands for reaches
};

// process_subspec, telling whether the checks passed.
bool read_block(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                const BlockRequirement &required, Block *out);

// Counts as loops need them: a row (column) object has one row (column), an empty table nothing.
inline int32_t row_count(const Block &block) {
    return block.empty ? 0 : block.rows == 0 ? 1 : block.rows;
}
inline int32_t column_count(const Block &block) {
    return block.empty ? 0 : block.columns == 0 ? 1 : block.columns;
}
inline Steps steps_of(const Block &block) {
    return {block.row_step, block.column_step};
}

// Do the blocks share entries?  Blocks that only interleave do not.
bool overlap(const Block &a, const Block &b);

// Is every entry of a at the place of the same entry of b?
bool coincide(const Block &a, const Block &b);

}  // namespace modla
