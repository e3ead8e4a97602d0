#include "host/flexinput.h"

#include <algorithm>
#include <utility>

#include "host/arguments.h"
#include "host/object.h"
#include "host/raise.h"
#include "host/selection.h"

using namespace modla;

bool modla::is_list_or_set(HostObject object) {
    return has_type(object, MODLA_TYPE_LIST) || has_type(object, MODLA_TYPE_SET);
}

Elements modla::elements_of(HostObject list) {
    const bool in_sequence = object_length(list) > 1 && has_type(object_words(list)[1], MODLA_TYPE_SEQUENCE);
    const HostObject holder = in_sequence ? object_words(list)[1] : list;
    return {object_words(holder) + 1, object_length(holder) - 1};
}

namespace {

// The input's own rows and columns, before any transposition.
struct Dimensions {
    bool has_rows, has_columns;
    int32_t rows, columns;
    int32_t row_step, column_step;
};

struct SelectionMessages {
    const char *out_of_range, *empty;
};
constexpr SelectionMessages row_messages = {"argument %1 row specification out of range",
                                            "argument %1 cannot have empty row range"};
constexpr SelectionMessages column_messages = {"argument %1 column specification out of range",
                                               "argument %1 cannot have empty column range"};

bool fail_at(const HostApi *api, int32_t argno, const char *message) {
    return fail(api, message, api->ToInteger(argno));
}

// The largest count that an int32_t can hold; lists are never as long.
int32_t length_of(const Elements &elements) {
    return static_cast<int32_t>(elements.count);
}

bool read_table(const HostApi *api, int32_t argno, FlexInput *input, Dimensions *dimensions) {
    const HostObject table = input->object;
    RtableSettings settings;
    api->RtableGetSettings(&settings, table);
    input->dimensions = static_cast<int32_t>(api->RtableNumDims(table));
    input->datatype = settings.datatype;
    if (!is_datatype(settings.datatype)) return fail_at(api, argno, "argument %1 has invalid datatype");
    if (settings.storage != MODLA_RECTANGULAR) {
        return fail_at(api, argno, "argument %1 must have rectangular storage");
    }
    switch (settings.subtype) {
        case MODLA_COLUMN_VECTOR:
            *dimensions = {true, false, api->RtableUpperBound(table, 1), 0, 1, 0};
            input->empty = dimensions->rows <= 0;
            return true;
        case MODLA_ROW_VECTOR:
            *dimensions = {false, true, 0, api->RtableUpperBound(table, 1), 0, 1};
            input->empty = dimensions->columns <= 0;
            return true;
        case MODLA_MATRIX: {
            const Extent extent = matrix_extent(api, table);
            const bool c_order = settings.order == MODLA_C_ORDER;
            *dimensions = {
                true, true, extent.rows, extent.columns, c_order ? extent.columns : 1, c_order ? 1 : extent.rows};
            input->empty = extent.rows <= 0 || extent.columns <= 0;
            return true;
        }
        default:
            return fail_at(api, argno, "argument %1 cannot be an 'Array', use 'Matrix' or 'Vector' instead");
    }
}

// Vectors of one kind: the rows, or the columns, of the input.
bool read_vectors(const HostApi *api, int32_t argno, const Elements &elements, FlexInput *input,
                  Dimensions *dimensions) {
    const auto fail_with = [&](const char *message) { return fail_at(api, argno, message); };
    RtableSettings first = {};
    int32_t length = 0;
    for (uint32_t i = 0; i < elements.count; i++) {
        const HostObject vector = elements.items[i];
        RtableSettings settings;
        settings.subtype = MODLA_ARRAY;
        if (!is_immediate(vector) && api->IsRtable(vector)) api->RtableGetSettings(&settings, vector);
        if (settings.subtype != MODLA_COLUMN_VECTOR && settings.subtype != MODLA_ROW_VECTOR) {
            return fail_with("argument %1 list/set elements must be lists, sets or vectors");
        }
        if (!is_datatype(settings.datatype)) return fail_with("argument %1 vectors have invalid datatype");
        if (settings.storage != MODLA_RECTANGULAR) {
            return fail_with("argument %1 vectors must have rectangular storage");
        }
        const int32_t bound = api->RtableUpperBound(vector, 1);
        if (bound <= 0) return fail_with("argument %1 vectors cannot be empty");
        if (i == 0) {
            first = settings;
            length = bound;
        } else if (settings.subtype != first.subtype || settings.datatype != first.datatype) {
            return fail_with("argument %1 vectors must be of uniform type");
        } else if (bound != length) {
            return fail_with("argument %1 vectors must have a uniform number of elements");
        }
    }
    input->dimensions = 2;
    input->datatype = first.datatype;
    input->list_of_vectors = true;
    *dimensions = {true, true, length_of(elements), length, 0, 0};
    if (first.subtype == MODLA_COLUMN_VECTOR) {
        std::swap(dimensions->rows, dimensions->columns);
        input->transposed = true;
        input->vectors_were_columns = true;
    }
    return true;
}

bool read_lists(const HostApi *api, int32_t argno, const Elements &elements, FlexInput *input, Dimensions *dimensions) {
    int32_t longest = 0;
    for (uint32_t i = 0; i < elements.count; i++) {
        if (!is_list_or_set(elements.items[i])) {
            return fail_at(api, argno, "argument %1 cannot be a list/set with mixed object types");
        }
        longest = std::max(longest, length_of(elements_of(elements.items[i])));
    }
    if (longest == 0) return fail_at(api, argno, "argument %1 cannot be an empty list/set");
    input->dimensions = 2;
    input->datatype = MODLA_INTEGER;
    input->list_of_lists = true;
    *dimensions = {true, true, length_of(elements), longest, 0, 0};
    return true;
}

bool read_list(const HostApi *api, int32_t argno, FlexInput *input, Dimensions *dimensions) {
    const Elements elements = elements_of(input->object);
    if (elements.count == 0) return fail_at(api, argno, "argument %1 cannot be an empty list/set");
    input->is_list = true;
    const HostObject first = elements.items[0];
    if (is_list_or_set(first)) return read_lists(api, argno, elements, input, dimensions);
    if (!is_immediate(first) && api->IsRtable(first)) {
        return read_vectors(api, argno, elements, input, dimensions);
    }
    input->dimensions = 1;
    input->datatype = MODLA_INTEGER;
    *dimensions = {true, false, length_of(elements), 0, 0, 0};
    return true;
}

// The selection at args[*position], if there is one; else the whole dimension.
bool read_selection(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, int32_t argno,
                    int32_t bound, int32_t step, const SelectionMessages &messages, Selection *selection) {
    *selection = {1, bound, step};
    if (*position > n) return true;
    const LineSelection selected = line_selection(args[*position], bound);
    if (selected.kind == LineSelection::nothing) return true;
    if (!is_within(selected, bound)) return fail_at(api, argno, messages.out_of_range);
    if (selected.first > selected.last) return fail_at(api, argno, messages.empty);
    const bool is_range = selected.kind == LineSelection::range;
    *selection = {selected.first, is_range ? selected.last - selected.first + 1 : 0, step};
    ++*position;
    return true;
}

}  // namespace

bool modla::read_flexinput(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, bool transposed,
                           FlexInput *input) {
    const int32_t argno = *position;
    *input = {};
    input->object = args[argno];
    input->transposed = transposed;
    Dimensions dimensions;
    if (is_list_or_set(input->object)) {
        if (!read_list(api, argno, input, &dimensions)) return false;
    } else if (!is_immediate(input->object) && api->IsRtable(input->object)) {
        if (!read_table(api, argno, input, &dimensions)) return false;
    } else {
        return fail_at(api, argno, "argument %1 must be a set, list, or Matrix/Vector");
    }
    ++*position;

    Selection rows, columns;
    if (dimensions.has_rows &&
        !read_selection(api, args, position, n, argno, dimensions.rows, dimensions.row_step, row_messages, &rows)) {
        return false;
    }
    if (dimensions.has_columns && !read_selection(api, args, position, n, argno, dimensions.columns,
                                                  dimensions.column_step, column_messages, &columns)) {
        return false;
    }
    const bool is_row_vector = !dimensions.has_rows;
    const bool columns_first = input->transposed != is_row_vector;
    input->first = columns_first ? columns : rows;
    input->second = columns_first ? rows : columns;
    if (is_row_vector) input->transposed = !input->transposed;
    if (*position <= n && is_keyword(api, args[*position], "transpose")) {
        input->transposed = !input->transposed;
        ++*position;
    }
    return true;
}

void process_flexinput(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, int32_t *out_datatype,
                       int32_t *out_dimensions, int32_t *out_is_list, int32_t *out_list_of_lists, int32_t *out_first,
                       int32_t *out_count, int32_t *out_step, int32_t *out_second_first, int32_t *out_second_count,
                       int32_t *out_second_step, int32_t *in_out_transposed, int32_t *out_vectors_were_columns) {
    FlexInput input;
    if (!read_flexinput(api, args, position, n, in_out_transposed && *in_out_transposed, &input)) return;
    const auto store = [](int32_t *out, int32_t value) {
        if (out) *out = value;
    };
    store(out_datatype, input.datatype);
    store(out_dimensions, input.dimensions);
    store(out_is_list, input.is_list);
    store(out_list_of_lists, input.list_of_lists);
    store(out_first, input.first.first);
    store(out_count, input.first.count);
    store(out_step, input.first.step);
    store(out_second_first, input.second.first);
    store(out_second_count, input.second.count);
    store(out_second_step, input.second.step);
    store(in_out_transposed, input.transposed);
    store(out_vectors_were_columns, input.vectors_were_columns);
}
