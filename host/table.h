// Tables of the host as the library sees them: blocks of entries.
#pragma once

#include <cstddef>

#include "blocks/operand.h"
#include "modla.h"

namespace modla {

inline bool is_datatype(int32_t code) {
    return code == MODLA_INTEGER || code == MODLA_INTEGER4 || code == MODLA_FLOAT8;
}

// Bytes of a stored entry.
inline uint32_t entry_size(int32_t datatype) {
    return datatype == MODLA_FLOAT8 ? 8 : 4;
}

// The address of entry k of a data block.
inline void *entry_address(void *data, int32_t datatype, int64_t k) {
    return static_cast<char *>(data) + static_cast<ptrdiff_t>(k * entry_size(datatype));
}

// A host table, or what was selected of it.  A count of 0 marks a row (column) object, which has one row (column).
struct Block {
    HostObject object;
    int32_t datatype, order;
    void *data;  // first selected entry
    int32_t rows, row_step;
    int32_t columns, column_step;
    bool empty;  // the table has no entries: nothing may be read or written
};

// Counts as loops need them: a row (column) object has one row (column), an empty table nothing.
inline int32_t row_count(const Block &block) {
    return block.empty ? 0 : block.rows == 0 ? 1 : block.rows;
}
inline int32_t column_count(const Block &block) {
    return block.empty ? 0 : block.columns == 0 ? 1 : block.columns;
}
inline Shape shape_of(const Block &block) {
    return {row_count(block), column_count(block)};
}
inline Steps steps_of(const Block &block) {
    return {block.row_step, block.column_step};
}
template <class Entry>
Operand<Entry> operand_of(const Block &block) {
    return {static_cast<Entry *>(block.data), steps_of(block)};
}

// The bounds of a Matrix.
struct Extent {
    int32_t rows, columns;
};
inline Extent matrix_extent(const HostApi *api, HostObject matrix) {
    const int32_t rows = api->RtableUpperBound(matrix, 1);
    return {rows, api->RtableUpperBound(matrix, 2)};
}

// A whole table as a block that has entries; rows or columns are 0 for a Vector.
inline Block whole_block(HostObject object, int32_t datatype, int32_t order, void *data, int32_t rows,
                         int32_t columns) {
    const bool matrix = rows != 0 && columns != 0, c_order = order == MODLA_C_ORDER;
    const int32_t row_step = rows == 0 ? 0 : matrix && c_order ? columns : 1;
    const int32_t column_step = columns == 0 ? 0 : matrix && !c_order ? rows : 1;
    return {object, datatype, order, data, rows, row_step, columns, column_step, false};
}

// A whole Matrix.
inline Block matrix_block(const HostApi *api, HostObject matrix, const RtableSettings &settings) {
    void *const data = api->RtableData(matrix);
    const auto [rows, columns] = matrix_extent(api, matrix);
    Block block = whole_block(matrix, settings.datatype, settings.order, data, rows, columns);
    block.empty = rows <= 0 || columns <= 0;
    return block;
}

// Do the blocks share entries?  Blocks that only interleave do not.
bool overlap(const Block &a, const Block &b);

// Is every entry of a at the place of the same entry of b?
bool coincide(const Block &a, const Block &b);

}  // namespace modla
