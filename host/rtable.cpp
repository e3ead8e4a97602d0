#include "host/rtable.h"

#include <algorithm>

#include "host/raise.h"

using namespace modla;

namespace {

// The new object, or 0 after an error was raised.
HostObject make_object(const HostApi *api, int32_t rows, int32_t columns, int32_t datatype, int32_t order) {
    RtableSettings settings;
    api->RtableGetDefaults(&settings);
    settings.datatype = datatype;
    settings.order = order;
    settings.storage = MODLA_RECTANGULAR;
    int32_t bounds[4] = {1, rows, 1, columns};
    if (rows > 0 && columns > 0) {
        settings.subtype = MODLA_MATRIX;
        settings.num_dimensions = 2;
    } else if (rows > 0 && columns == 0) {
        settings.subtype = MODLA_COLUMN_VECTOR;
        settings.num_dimensions = 1;
    } else if (rows == 0 && columns > 0) {
        settings.subtype = MODLA_ROW_VECTOR;
        settings.num_dimensions = 1;
        bounds[1] = columns;
    } else {
        fail(api, "object for create cannot be zero dimensional");
        return 0;
    }
    return api->RtableCreate(&settings, nullptr, bounds);
}

}  // namespace

HostObject new_modLA_rtable(const HostApi *api, int32_t rows, int32_t columns, int32_t datatype, int32_t order) {
    const HostObject object = make_object(api, rows, columns, datatype, order);
    return object ? object : api->NullValue();
}

bool modla::new_block(const HostApi *api, int32_t rows, int32_t columns, int32_t datatype, int32_t order, Block *out) {
    const HostObject object = make_object(api, rows, columns, datatype, order);
    if (!object) return false;
    *out = whole_block(object, datatype, order, api->RtableData(object), rows, columns);
    return true;
}

namespace {

struct ViewShape {
    int64_t rows, columns;
    int32_t order;
    bool whole_lines;  // the lines include entries beyond the block's own
};

// The shape of the view that a block of the given size and steps needs; false after an error was raised.
bool choose_shape(const HostApi *api, int32_t rows, int32_t columns, int32_t row_step, int32_t column_step,
                  int32_t parent_order, ViewShape *shape) {
    if (row_step == 0) {
        *shape = {1, columns, parent_order, false};
        return rows == 1 || fail(api, "invalid input (row use) for new rtable");
    }
    if (column_step == 0) {
        *shape = {rows, 1, parent_order, false};
        return columns == 1 || fail(api, "invalid input (column use) for new rtable");
    }
    if (row_step == 1) {
        *shape = {column_step, columns, MODLA_FORTRAN_ORDER, true};
        return true;
    }
    if (column_step == 1) {
        *shape = {rows, row_step, MODLA_C_ORDER, true};
        return true;
    }
    return fail(api, "invalid input (ordering parameters) for new rtable");
}

}  // namespace

bool modla::make_view(const HostApi *api, HostObject parent, void *data, int32_t rows, int32_t columns,
                      int32_t row_step, int32_t column_step, View *view) {
    *view = {0, 0, 0};
    RtableSettings parent_settings;
    parent_settings.order = MODLA_C_ORDER;
    if (parent) {
        api->RtableGetSettings(&parent_settings, parent);
        const bool unit_step = parent_settings.order == MODLA_C_ORDER ? column_step == 1 : row_step == 1;
        if (row_step != 0 && column_step != 0 && unit_step && parent_settings.subtype == MODLA_MATRIX &&
            data == api->RtableData(parent)) {
            view->object = parent;
            return true;
        }
        if (parent_settings.datatype != MODLA_INTEGER) return fail(api, "invalid datatype for new rtable");
    }

    RtableSettings settings;
    api->RtableGetDefaults(&settings);
    settings.datatype = MODLA_INTEGER;
    settings.subtype = MODLA_MATRIX;
    settings.storage = MODLA_RECTANGULAR;
    settings.view = 1;
    settings.num_dimensions = 2;
    ViewShape shape;
    if (!choose_shape(api, rows, columns, row_step, column_step, parent_settings.order, &shape)) return false;
    settings.order = shape.order;

    if (parent && shape.whole_lines) {
        char *const start = static_cast<char *>(api->RtableData(parent));
        int64_t entries = api->RtableUpperBound(parent, 1);
        if (parent_settings.num_dimensions > 1) entries *= api->RtableUpperBound(parent, 2);
        const int64_t before = (static_cast<char *>(data) - start) / 4;
        const int64_t excess = before + shape.rows * shape.columns - entries;
        if (excess > 0) {
            if (excess > before) return fail(api, "internal error");
            data = entry_address(data, MODLA_INTEGER, -excess);
            (shape.order == MODLA_C_ORDER ? view->column_shift : view->row_shift) = static_cast<int32_t>(excess);
        }
    }
    int32_t bounds[4] = {1, static_cast<int32_t>(shape.rows), 1, static_cast<int32_t>(shape.columns)};
    view->object = api->RtableCreate(&settings, data, bounds);
    return view->object != 0;
}

bool modla::make_block_view(const HostApi *api, const Block &block, View *view) {
    const int32_t rows = row_count(block), columns = column_count(block);
    int32_t row_step = block.row_step, column_step = block.column_step;
    if (row_step == 1 && column_step == 1) {
        // A Matrix of one line has both steps 1, which do not tell in which direction the line runs: a column that is
        // not the parent's own would become a single entry, a transposed line the parent as it is.
        const Extent parent = matrix_extent(api, block.object);
        const bool at_start = block.data == api->RtableData(block.object);
        if (columns == 1 && (!at_start || (rows > 1 && parent.columns != 1))) {
            column_step = 0;
        } else if (rows == 1 && columns > 1 && parent.rows != 1) {
            row_step = 0;
        }
    }
    return make_view(api, block.object, block.data, rows, columns, row_step, column_step, view);
}

bool modla::make_operand_view(const HostApi *api, const Block &block, const Block &output, bool entrywise, View *view) {
    if (!overlap(block, output) || (entrywise && coincide(block, output))) return make_block_view(api, block, view);
    const Shape shape = shape_of(block);
    Block copy;
    if (!new_block(api, shape.rows, shape.columns, MODLA_INTEGER, block.order, &copy)) return false;
    copy_walking(shape, operand_of<const HostObject>(block), operand_of<HostObject>(copy));
    return make_block_view(api, copy, view);
}

void modla::call_on_views(const HostApi *api, const char *name, const char *shift_name,
                          const std::array<HostObject, 4> &first, std::initializer_list<View> views) {
    const bool shifted = std::any_of(views.begin(), views.end(), is_shifted);
    std::array<HostObject, 9> rest = {};
    uint32_t count = static_cast<uint32_t>(views.size()) * (shifted ? 3 : 1);
    const uint32_t n = static_cast<uint32_t>(first.size()) + count;
    for (auto view = views.end(); view-- != views.begin();) {
        if (shifted) rest[--count] = api->ToInteger(view->column_shift);
        if (shifted) rest[--count] = api->ToInteger(view->row_shift);
        rest[--count] = view->object;
    }
    const HostObject procedure = modLA_getfcn(api, shifted ? shift_name : name);
    // The host takes as many as it is told of.
    api->CallProcedure(procedure, n, first[0], first[1], first[2], first[3], rest[0], rest[1], rest[2], rest[3],
                       rest[4], rest[5], rest[6], rest[7], rest[8]);
}

HostObject data_to_modLA_rtable(const HostApi *api, HostObject parent, void *data, int32_t rows, int32_t columns,
                                int32_t row_step, int32_t column_step, int32_t *out_row_shift,
                                int32_t *out_column_shift) {
    View view;
    const bool made = make_view(api, parent, data, rows, columns, row_step, column_step, &view);
    *out_row_shift = view.row_shift;
    *out_column_shift = view.column_shift;
    return made ? view.object : api->NullValue();
}
