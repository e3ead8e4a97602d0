// A block of an argument: object [, row selection] [, column selection] [, transpose].
#pragma once

#include <cstddef>

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
};

// process_subspec, telling whether the checks passed.
bool read_block(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                const BlockRequirement &required, Block *out);

// Counts as loops need them.
inline int32_t row_count(const Block &block) {
    return block.rows == 0 ? 1 : block.rows;
}
inline int32_t column_count(const Block &block) {
    return block.columns == 0 ? 1 : block.columns;
}

}  // namespace modla
