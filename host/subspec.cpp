#include "host/subspec.h"

#include <utility>

#include "host/arguments.h"
#include "host/object.h"
#include "host/raise.h"
#include "host/selection.h"

using namespace modla;

namespace {

// One dimension of the object.
struct Axis {
    bool present;  // false: the missing dimension of a Vector
    int32_t bound;
    int32_t step;
    int32_t first;  // 0 on a missing dimension
    int32_t last;   // all: the whole dimension; single: one index
    static constexpr int32_t all = -1, single = 0;
};

struct AxisMessages {
    const char *empty_range;
    const char *is_object;      // the argument lacks the dimension that is required
    const char *has_dimension;  // the argument has a dimension where none may be
    const char *different, *more, *fewer, *shortcut;
};

constexpr AxisMessages row_messages = {
    "row range cannot be empty",
    "argument %1 is a row object where prior arguments require a row dimension",
    "argument %1 has a row dimension where prior arguments require a row object",
    "argument %1 has a different number of rows than required by prior arguments",
    "argument %1 has more rows than required by prior arguments",
    "argument %1 has fewer rows than required by prior arguments",
    "argument %1 shortcut specification has fewer rows than required by prior arguments",
};

constexpr AxisMessages column_messages = {
    "column range cannot be empty",
    "argument %1 is a column object where prior arguments require a column dimension",
    "argument %1 has a column dimension where prior arguments require a column object",
    "argument %1 has a different number of columns than required by prior arguments",
    "argument %1 has more columns than required by prior arguments",
    "argument %1 has fewer columns than required by prior arguments",
    "argument %1 shortcut specification has fewer columns than required by prior arguments",
};

// The selection at args[*position], if there is one, for a dimension that is present.
bool read_selection(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, Axis *axis,
                    const AxisMessages &messages, const char *out_of_range) {
    axis->first = 1;
    axis->last = Axis::all;
    if (*position > n) return true;
    const LineSelection selection = line_selection(args[*position], axis->bound);
    if (selection.kind == LineSelection::nothing) return true;
    if (!is_within(selection, axis->bound)) return fail(api, out_of_range);
    if (selection.first > selection.last) return fail(api, messages.empty_range);
    axis->first = selection.first;
    axis->last = selection.kind == LineSelection::range ? selection.last : Axis::single;
    ++*position;
    return true;
}

// The selected count, checked against the required one.
bool check_count(const HostApi *api, const Axis &axis, int32_t required, bool shortcut_only, int32_t argno,
                 const AxisMessages &messages, int32_t *count) {
    if (shortcut_only && (!axis.present || axis.last != Axis::single)) required = -1;
    const auto fail_with = [&](const char *message) { return fail(api, message, api->ToInteger(argno)); };
    const int32_t length = axis.last - axis.first + 1;  // of a range
    *count = 0;
    if (!axis.present) return required > 0 ? fail_with(messages.is_object) : true;
    if (required == 0) return axis.last == Axis::single || fail_with(messages.has_dimension);
    if (required > 0) {
        *count = required;
        if (axis.last == Axis::all) return axis.bound == required || fail_with(messages.different);
        if (axis.last == Axis::single) {
            return int64_t{axis.first} + required - 1 <= axis.bound || fail_with(messages.shortcut);
        }
        return length == required || fail_with(length > required ? messages.more : messages.fewer);
    }
    *count = axis.last == Axis::all ? axis.bound : axis.last == Axis::single ? 0 : length;
    return true;
}

}  // namespace

bool modla::read_block(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                       const BlockRequirement &required, Block *out) {
    const int32_t argno = *position;
    const HostObject object = args[argno];
    const auto fail_with = [&](const char *message) { return fail(api, message, api->ToInteger(argno)); };
    if (is_immediate(object) || !api->IsRtable(object)) {
        return fail_with("argument %1 must be a modp Matrix or Vector");
    }
    RtableSettings settings;
    api->RtableGetSettings(&settings, object);
    if (required.datatype != -1 && settings.datatype != required.datatype) {
        return fail_with("argument %1 has incorrect datatype");
    }
    if (!is_datatype(settings.datatype)) return fail_with("argument %1 has invalid datatype");
    if (settings.storage != MODLA_RECTANGULAR) return fail_with("argument %1 has invalid storage");

    Axis rows = {false, 0, 0, 0, 0}, columns = rows;
    switch (settings.subtype) {
        case MODLA_COLUMN_VECTOR:
            rows = {true, api->RtableUpperBound(object, 1), 1, 1, Axis::all};
            break;
        case MODLA_ROW_VECTOR:
            columns = {true, api->RtableUpperBound(object, 1), 1, 1, Axis::all};
            break;
        case MODLA_MATRIX: {
            const Extent extent = matrix_extent(api, object);
            const bool c_order = settings.order == MODLA_C_ORDER;
            rows = {true, extent.rows, c_order ? extent.columns : 1, 1, Axis::all};
            columns = {true, extent.columns, c_order ? 1 : extent.rows, 1, Axis::all};
            break;
        }
        default:
            return fail_with("argument %1 must be a Matrix or Vector");
    }
    ++*position;

    const char *out_of_range =
        settings.subtype == MODLA_MATRIX ? "Matrix index out of range" : "Vector index out of range";
    if (rows.present && !read_selection(api, args, position, n, &rows, row_messages, out_of_range)) return false;
    if (columns.present && !read_selection(api, args, position, n, &columns, column_messages, out_of_range)) {
        return false;
    }
    if (required.allow_transpose && *position <= n && is_keyword(api, args[*position], "transpose")) {
        std::swap(rows, columns);
        ++*position;
    }

    out->object = object;
    out->datatype = settings.datatype;
    out->order = settings.order;
    out->row_step = rows.step;
    out->column_step = columns.step;
    out->empty = (rows.present && rows.bound <= 0) || (columns.present && columns.bound <= 0);
    if (!check_count(api, rows, required.rows, required.shortcut_only, argno, row_messages, &out->rows)) return false;
    if (!check_count(api, columns, required.columns, required.shortcut_only, argno, column_messages, &out->columns))
        return false;
    const int64_t offset = (int64_t{columns.first} - 1) * columns.step + (int64_t{rows.first} - 1) * rows.step;
    out->data = entry_address(api->RtableData(object), settings.datatype, offset);
    return true;
}

void *process_subspec(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                      int32_t required_datatype, int32_t required_rows, int32_t required_columns,
                      int32_t allow_transpose, int32_t *out_datatype, int32_t *out_order, int32_t *out_rows,
                      int32_t *out_row_step, int32_t *out_columns, int32_t *out_column_step) {
    Block block;
    const BlockRequirement required = {required_datatype, required_rows, required_columns, allow_transpose != 0};
    if (!read_block(api, args, position, n, required, &block)) return nullptr;
    if (out_datatype) *out_datatype = block.datatype;
    if (out_order) *out_order = block.order;
    if (out_rows) *out_rows = block.rows;
    if (out_row_step) *out_row_step = block.row_step;
    if (out_columns) *out_columns = block.columns;
    if (out_column_step) *out_column_step = block.column_step;
    return block.data;
}
