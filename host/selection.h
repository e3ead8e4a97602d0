// What arguments select of a table's rows or columns.
#pragma once

#include "host/object.h"
#include "host/table.h"
#include "modla.h"

namespace modla {

// An index counted from the end when it is negative.
inline int32_t from_end(int32_t index, int32_t bound) {
    return index < 0 ? bound + index + 1 : index;
}

// What selects lines of an object: an index, a range, or nothing when the argument is neither.  Ends are counted from
// the end where they are negative; those that are no small integers are 0, which is never within bounds.
struct LineSelection {
    enum { nothing, index, range } kind;
    int32_t first, last;  // the same for an index
};
LineSelection line_selection(HostObject argument, int32_t bound);
inline bool is_within(const LineSelection &selection, int32_t bound) {
    return selection.first >= 1 && selection.first <= bound && selection.last >= 1 && selection.last <= bound;
}

// Rows and columns of a Matrix, each given as k (1..k) or a..b, negative ends counted from the end.  first..last are
// within 1..bound and not empty: "row range is out of bounds", "row range must be an integer or integer range", ...
// The readers return false after they raised an error.
struct Range {
    int32_t first, last;
};
bool read_row_range(const HostApi *api, HostObject argument, int32_t bound, Range *range);
bool read_column_range(const HostApi *api, HostObject argument, int32_t bound, Range *range);
inline int32_t range_length(Range range) {
    return range.last - range.first + 1;
}

// The block of these rows and columns.
Block selected_block(Block matrix, Range rows, Range columns);

}  // namespace modla
