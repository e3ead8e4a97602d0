#include "host/selection.h"

#include "host/raise.h"

using namespace modla;

LineSelection modla::line_selection(HostObject argument, int32_t bound) {
    const auto line = [bound](HostObject end) { return is_immediate(end) ? from_end(integer_value(end), bound) : 0; };
    if (has_type(argument, MODLA_TYPE_RANGE)) {
        return {LineSelection::range, line(object_words(argument)[1]), line(object_words(argument)[2])};
    }
    if (!is_immediate(argument) && !is_big_integer(argument)) return {LineSelection::nothing, 0, 0};
    return {LineSelection::index, line(argument), line(argument)};
}

namespace {

struct RangeMessages {
    const char *out_of_bounds, *bad_end, *bad_kind;
};

bool read_range(const HostApi *api, HostObject argument, int32_t bound, const RangeMessages &messages, Range *range) {
    if (is_immediate(argument)) {
        *range = {1, from_end(integer_value(argument), bound)};
    } else if (object_type(argument) == MODLA_TYPE_RANGE) {
        const HostObject first = object_words(argument)[1], last = object_words(argument)[2];
        if (!is_immediate(first) || !is_immediate(last)) return fail(api, messages.bad_end);
        *range = {from_end(integer_value(first), bound), from_end(integer_value(last), bound)};
    } else {
        return fail(api, messages.bad_kind);
    }
    const bool within = range->first >= 1 && range->last <= bound && range->first <= range->last;
    return within || fail(api, messages.out_of_bounds);
}

}  // namespace

bool modla::read_row_range(const HostApi *api, HostObject argument, int32_t bound, Range *range) {
    constexpr RangeMessages messages = {"row range is out of bounds", "row range must be an integer or integer range",
                                        "row range must be an integer or integer range"};
    return read_range(api, argument, bound, messages, range);
}

bool modla::read_column_range(const HostApi *api, HostObject argument, int32_t bound, Range *range) {
    constexpr RangeMessages messages = {"column range is out of bounds",
                                        "column range, must be an integer or integer range",  // its comma is kept
                                        "column range must be an integer or integer range"};
    return read_range(api, argument, bound, messages, range);
}

Block modla::selected_block(Block matrix, Range rows, Range columns) {
    const int64_t i = rows.first - 1, j = columns.first - 1;
    matrix.data = entry_address(matrix.data, matrix.datatype, i * matrix.row_step + j * matrix.column_step);
    matrix.rows = range_length(rows);
    matrix.columns = range_length(columns);
    return matrix;
}
