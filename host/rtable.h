// Making host tables, and views of blocks of them.
#pragma once

#include "host/subspec.h"
#include "modla.h"

namespace modla {

// Bytes of a stored entry.
inline uint32_t entry_size(int32_t datatype) {
    return datatype == MODLA_FLOAT8 ? 8 : 4;
}

// The address of entry k of a data block.
inline void *entry_address(void *data, int32_t datatype, int64_t k) {
    return static_cast<char *>(data) + static_cast<ptrdiff_t>(k * entry_size(datatype));
}

// The bounds of a host table: a Vector has one of them, the other is 1.
struct Extent {
    int32_t rows, columns;
};
Extent matrix_extent(const HostApi *api, HostObject matrix);

// A whole table as a block that has entries; rows or columns are 0 for a Vector.
Block whole_block(HostObject object, int32_t datatype, int32_t order, void *data, int32_t rows, int32_t columns);

// A new object as a block: new_modLA_rtable with its steps.  False after an error.
bool new_block(const HostApi *api, int32_t rows, int32_t columns, int32_t datatype, int32_t order, Block *out);

// The view of a block of datatype "integer" that a callback works on, and by how much the block's first row and
// column are shifted inside it.
struct View {
    HostObject object;
    int32_t row_shift, column_shift;
};

inline bool is_shifted(const View &view) {
    return view.row_shift != 0 || view.column_shift != 0;
}

// data_to_modLA_rtable, telling whether the view could be made.
bool make_view(const HostApi *api, HostObject parent, void *data, int32_t rows, int32_t columns, int32_t row_step,
               int32_t column_step, View *view);

// The view of a block that an argument selected.
bool make_block_view(const HostApi *api, const Block &block, View *view);

// The view of an operand of a callback that writes `output`: of a copy in a new object where writing would destroy
// entries still to be read.  An entrywise callback may find an operand in the very places of the output.
bool make_operand_view(const HostApi *api, const Block &block, const Block &output, bool entrywise, View *view);

}  // namespace modla
