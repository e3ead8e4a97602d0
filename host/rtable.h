// Making host tables, and views of blocks of them.
#pragma once

#include <array>
#include <initializer_list>

#include "host/table.h"
#include "modla.h"

namespace modla {

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

// Calls the callback of a product or a sum: name(four values, the views), or shift_name with row and column shift after
// each view when one of them is not 0.
void call_on_views(const HostApi *api, const char *name, const char *shift_name, const std::array<HostObject, 4> &first,
                   std::initializer_list<View> views);

}  // namespace modla
