#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "engine/convert.h"
#include "host/arguments.h"
#include "host/flexinput.h"
#include "host/native.h"
#include "host/object.h"
#include "host/raise.h"
#include "host/rtable.h"
#include "host/subspec.h"
#include "host/work_memory.h"
#include "modla.h"
#include "values/evaluate.h"

using namespace modla;

namespace {

struct ModRequest {
    HostObject modulus_argument;
    FlexInput input;
    HostObject evaluations;  // the evaluation list, set or equation; 0: none
    bool created;            // the output is a new object
    Block output;
    int32_t datatype, order;  // of the output
    Scalar modulus;
    Block table;  // the selected entries of a table, or of work memory, the input's first direction as rows
};

// ---- Arguments ----

bool read_output_description(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                             ModRequest *request) {
    const HostObject argument = args[*position];
    request->created = is_immediate(argument) || !api->IsRtable(argument);
    if (!request->created) {
        BlockRequirement required;
        required.rows = result_rows(request->input);
        required.columns = result_columns(request->input);
        required.shortcut_only = true;
        if (!read_block(api, args, position, n, required, &request->output)) return false;
        request->datatype = request->output.datatype;
        return true;
    }
    request->datatype = process_datatype(api, argument, 1, *position);
    if (!is_datatype(request->datatype)) return false;
    ++*position;
    request->order = MODLA_C_ORDER;
    if (*position > n) return true;
    return read_ordering(api, args, (*position)++, &request->order);
}

bool read_mod(const HostApi *api, const HostObject *args, ModRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    // Without arguments there is no modulus to look at.
    if (n < 1) return fail(api, "argument 1, the modulus, must be an integer");
    if (!check_modulus_argument(api, args)) return false;
    if (n < 2) return fail(api, "too few arguments, expected input object for argument 2");
    request->modulus_argument = args[1];
    int32_t position = 2;
    if (!read_flexinput(api, args, &position, n, false, &request->input)) return false;
    request->evaluations = 0;
    if (position <= n && (is_list_or_set(args[position]) || has_type(args[position], MODLA_TYPE_EQUATION))) {
        request->evaluations = args[position++];
    }
    if (position > n) {
        return fail(api, "too few arguments, expected output object or description for argument %1",
                    api->ToInteger(position));
    }
    if (!read_output_description(api, args, &position, n, request)) return false;
    if (!check_no_more(api, args, position, n)) return false;
    return check_modulus(api, args[1], &request->modulus, request->datatype);
}

// ---- Evaluation list ----

Elements equations_of(const HostObject &evaluations) {
    return is_list_or_set(evaluations) ? elements_of(evaluations) : Elements{&evaluations, 1};
}

bool fail_value(const HostApi *api) {
    return fail(api, "rhs of evaluation must be an integer in the range 0..modulus-1");
}

// The value that an equation gives its left-hand side, when that is in 0..modulus-1.
bool check_equation(const HostApi *api, const ModRequest &request, HostObject equation) {
    if (!has_type(equation, MODLA_TYPE_EQUATION)) return fail(api, "evaluations must be a list/set of equations");
    const HostObject value = object_words(equation)[2];
    if (request.datatype == MODLA_INTEGER) {
        const bool integer = is_immediate(value) || is_big_integer(value);
        return (integer && validate_integer_value(request.modulus_argument, value) == 0) || fail_value(api);
    }
    const int32_t p = integer_value(request.modulus_argument);
    return (is_immediate(value) && integer_value(value) >= 0 && integer_value(value) < p) || fail_value(api);
}

bool check_evaluations(const HostApi *api, const ModRequest &request) {
    if (!request.evaluations) return true;
    if (request.input.datatype != MODLA_INTEGER) {
        return fail(api, "evaluation list/set can only be specified for algebraic input");
    }
    return equations_of(request.evaluations).count > 0 || fail(api, "empty evaluation list/set not allowed");
}

// Names and power tables in work memory; null ones without an evaluation list.
template <class Ring>
bool open_evaluation(const ModRequest &request, Evaluation<Ring> *evaluation) {
    if (!request.evaluations) return true;
    using Entry = typename Ring::Entry;
    const HostApi *const api = evaluation->api;
    const Elements equations = equations_of(request.evaluations);
    const uint64_t entries = uint64_t{equations.count} * power_table_length;
    HostObject *const names = allocate<HostObject>(api, equations.count);
    evaluation->names = names;
    if (!names) return false;
    Entry *const tables = allocate<Entry>(api, entries);
    evaluation->tables = tables;
    if (!tables) return false;
    for (uint64_t k = 0; k < entries; k++) tables[k] = Ring::no_inverse;
    for (uint32_t i = 0; i < equations.count; i++) {
        const HostObject equation = equations.items[i];
        if (!check_equation(api, request, equation)) return false;
        names[i] = object_words(equation)[1];
        tables[uint64_t{i} * power_table_length] =
            static_cast<typename Ring::Value>(integer_value(object_words(equation)[2]));
    }
    evaluation->count = static_cast<int32_t>(equations.count);
    return true;
}

template <class Ring>
void close_evaluation(const Evaluation<Ring> &evaluation) {
    if (evaluation.tables) evaluation.api->Free(evaluation.tables);
    if (evaluation.names) evaluation.api->Free(const_cast<HostObject *>(evaluation.names));
}

// ---- Output ----

bool open_output(const HostApi *api, ModRequest *request) {
    const int32_t rows = result_rows(request->input), columns = result_columns(request->input);
    Block &output = request->output;
    if (request->created) return new_block(api, rows, columns, request->datatype, request->order, &output);
    // A row (column) object has one row (column), unless it is empty.
    const int32_t least = request->input.empty ? 0 : 1, least_room = output.empty ? 0 : 1;
    if (std::max(rows, least) > std::max(output.rows, least_room)) {
        return fail(api, "input has too many rows for specified output");
    }
    if (std::max(columns, least) > std::max(output.columns, least_room)) {
        return fail(api, "input has too many columns for specified output");
    }
    return true;
}

// ---- Input ----

int32_t line_count(const Selection &selection) {
    return std::max(selection.count, 1);
}
// How many entries lie before the selection.
ptrdiff_t skipped(const Selection &selection) {
    return std::max(selection.first, 1) - 1;
}

// Has the output no lines beyond the input's?
bool fills_output(const ModRequest &request) {
    return row_count(request.output) == std::max(result_rows(request.input), 1) &&
           column_count(request.output) == std::max(result_columns(request.input), 1);
}

// The input is a list or set of host values or of lists of them.
bool is_value_list(const FlexInput &input) {
    return input.is_list && !input.list_of_vectors;
}

Block table_block(const HostApi *api, const FlexInput &input) {
    const Selection &first = input.first, &second = input.second;
    const ptrdiff_t offset = skipped(first) * first.step + skipped(second) * second.step;
    Block block = {};
    block.object = input.object;
    block.datatype = input.datatype;
    block.data = entry_address(api->RtableData(input.object), input.datatype, offset);
    block.rows = line_count(first);
    block.row_step = first.step;
    block.columns = line_count(second);
    block.column_step = second.step;
    block.empty = input.empty;
    return block;
}

// The selected part of Vector k of a list of Vectors, as a row.
Block vector_block(const HostApi *api, const FlexInput &input, int32_t k) {
    Block block = {};
    block.object = elements_of(input.object).items[skipped(input.first) + k];
    block.datatype = input.datatype;
    block.data = entry_address(api->RtableData(block.object), input.datatype, skipped(input.second));
    block.rows = 1;
    block.columns = line_count(input.second);
    block.column_step = 1;
    return block;
}

// Where the lines k..k+rows-1 of the input's first direction go.
Block output_lines(const ModRequest &request, int32_t k, int32_t rows) {
    Block block = request.output;
    if (request.input.transposed) std::swap(block.row_step, block.column_step);
    block.data = entry_address(block.data, block.datatype, int64_t{k} * block.row_step);
    block.rows = rows;
    block.columns = line_count(request.input.second);
    return block;
}

// Calls body(block, target) for the blocks of a stored input and where they go, until it returns false.
template <class Body>
bool for_blocks(const HostApi *api, const ModRequest &request, Body body) {
    const FlexInput &input = request.input;
    if (!input.list_of_vectors) return body(request.table, output_lines(request, 0, request.table.rows));
    for (int32_t k = 0; k < line_count(input.first); k++) {
        if (!body(vector_block(api, input, k), output_lines(request, k, 1))) return false;
    }
    return true;
}

// The address of line i of a block.
template <class Entry>
Entry *line_of(const Block &block, int32_t i) {
    return static_cast<Entry *>(block.data) + i * static_cast<ptrdiff_t>(block.row_step);
}

// ---- Native input ----

// Doubles that are no numbers or beyond 2^53 are refused before anything is written.
bool check_doubles(const HostApi *api, const ModRequest &request) {
    if (is_value_list(request.input) || request.input.datatype != MODLA_FLOAT8) return true;
    return for_blocks(api, request, [&](const Block &block, const Block &) {
        const char *const message = with_standard_mode([&]() -> const char * {
            for (int32_t i = 0; i < block.rows; i++) {
                const StoredDouble *const line = line_of<const StoredDouble>(block, i);
                const ptrdiff_t step = block.column_step;
                if (are_convertible(line, step, block.columns)) continue;
                int32_t j = 0;
                while (is_convertible(line[j * step])) j++;
                return std::isnan(line[j * step]) ? "invalid input type" : "float too large";
            }
            return nullptr;
        });
        return !message || fail(api, message);
    });
}

template <class Ring>
void reduce_native(const HostApi *api, const ModRequest &request, const Ring &ring) {
    for_blocks(api, request, [&](const Block &from, const Block &to) {
        with_standard_mode([&] {
            const Shape shape = {to.rows, to.columns};
            const auto target = operand_of<typename Ring::Entry>(to);
            if (from.datatype == MODLA_FLOAT8) {
                convert_entries(ring, shape, operand_of<const StoredDouble>(from), target);
            } else {
                convert_entries(ring, shape, operand_of<const int32_t>(from), target);
            }
        });
        return true;
    });
}

void native_to_integers(const HostApi *api, const ModRequest &request) {
    for_blocks(api, request, [&](const Block &from, const Block &to) {
        for (int32_t i = 0; i < to.rows; i++) {
            HostObject *const target = line_of<HostObject>(to, i);
            for (int32_t j = 0; j < to.columns; j++) {
                const ptrdiff_t k = j * static_cast<ptrdiff_t>(from.column_step);
                target[j * static_cast<ptrdiff_t>(to.column_step)] =
                    from.datatype == MODLA_FLOAT8 ? floattoTolvexInt_32(api, line_of<const StoredDouble>(from, i)[k])
                                                  : M_INTtoTolvexInt(api, line_of<const int32_t>(from, i)[k]);
            }
        }
        return true;
    });
}

// ---- Host values ----

// Calls body(items, step, count, target, target_step) for lines of host values and where they go, until it returns
// false.  Entries that a short list lacks are left out.
template <class Entry, class Body>
bool for_values(const HostApi *api, const ModRequest &request, Body body) {
    const FlexInput &input = request.input;
    if (!is_value_list(input)) {
        return for_blocks(api, request, [&](const Block &from, const Block &to) {
            for (int32_t i = 0; i < from.rows; i++) {
                const auto *const items = line_of<const HostObject>(from, i);
                if (!body(items, from.column_step, from.columns, line_of<Entry>(to, i), to.column_step)) return false;
            }
            return true;
        });
    }
    const Elements elements = elements_of(input.object);
    const HostObject *const selected = elements.items + skipped(input.first);
    const int32_t lines = line_count(input.first);
    const Block output = output_lines(request, 0, lines);
    if (!input.list_of_lists) return body(selected, 1, lines, line_of<Entry>(output, 0), output.row_step);
    for (int32_t i = 0; i < lines; i++) {
        const Elements line = elements_of(selected[i]);
        const ptrdiff_t present = static_cast<ptrdiff_t>(line.count) - skipped(input.second);
        const int32_t count = static_cast<int32_t>(std::min<ptrdiff_t>(output.columns, present));
        if (count <= 0) continue;
        if (!body(line.items + skipped(input.second), 1, count, line_of<Entry>(output, i), output.column_step)) {
            return false;
        }
    }
    return true;
}

template <class Ring>
bool evaluate_values(const ModRequest &request, Evaluation<Ring> &evaluation) {
    using Entry = typename Ring::Entry;
    const auto evaluate_line = [&](const HostObject *items, ptrdiff_t step, int32_t count, Entry *target,
                                   ptrdiff_t target_step) {
        return with_standard_mode_around([&](FpMode &host_mode) {
            evaluation.host_mode = &host_mode;
            for (int32_t k = 0; k < count; k++) {
                typename Ring::Value value;
                if (!evaluate(evaluation, items[k * step], &value)) return false;
                // A negative multiple of p that stands alone comes back as p.
                target[k * target_step] = value == evaluation.ring.p ? 0 : value;
            }
            return true;
        });
    };
    return for_values<Entry>(evaluation.api, request, evaluate_line) || raise_failure(evaluation);
}

void copy_values(const HostApi *api, const ModRequest &request) {
    const auto copy_line = [&](const HostObject *items, ptrdiff_t step, int32_t count, HostObject *target,
                               ptrdiff_t target_step) {
        for (int32_t k = 0; k < count; k++) target[k * target_step] = items[k * step];
        return true;
    };
    for_values<HostObject>(api, request, copy_line);
}

// ---- Input that shares memory with the output ----

enum class Sharing { none, same_places, overlapping };

Sharing sharing_of(const HostApi *api, const ModRequest &request) {
    const FlexInput &input = request.input;
    if (is_value_list(input)) return Sharing::none;
    const Block &output = request.output;
    Sharing sharing = Sharing::none;
    for_blocks(api, request, [&](const Block &from, const Block &to) {
        if (!overlap(from, output)) return true;
        const bool same =
            fills_output(request) && !input.list_of_vectors && from.datatype == to.datatype && coincide(from, to);
        sharing = same ? Sharing::same_places : Sharing::overlapping;
        return false;
    });
    return sharing;
}

// Moves the input to work memory, line by line; false when the host had none.
bool take_snapshot(const HostApi *api, ModRequest *request) {
    FlexInput &input = request->input;
    const int32_t rows = line_count(input.first), columns = line_count(input.second);
    const uint32_t size = entry_size(input.datatype);
    Block snapshot = {};
    snapshot.datatype = input.datatype;
    const uint64_t words_per_entry = size / sizeof(uint32_t);
    snapshot.data =
        allocate<uint32_t>(api, words_per_entry * static_cast<uint32_t>(rows) * static_cast<uint32_t>(columns));
    if (!snapshot.data) return false;
    snapshot.rows = rows;
    snapshot.row_step = columns;
    snapshot.columns = columns;
    snapshot.column_step = 1;
    char *to = static_cast<char *>(snapshot.data);
    for_blocks(api, *request, [&](const Block &from, const Block &) {
        for (int32_t i = 0; i < from.rows; i++) {
            for (int32_t j = 0; j < from.columns; j++, to += size) {
                const int64_t offset = int64_t{i} * from.row_step + int64_t{j} * from.column_step;
                std::memcpy(to, entry_address(from.data, from.datatype, offset), size);
            }
        }
        return true;
    });
    request->table = snapshot;
    input.is_list = input.list_of_vectors = false;
    return true;
}

// ---- The conversion ----

// Makes the input readable while the output is written, and the entries of the output that no input goes to zero.
// False after an error.  held: work memory that the input was moved to, or null.
bool open_input(const HostApi *api, ModRequest *request, void **held) {
    const FlexInput &input = request->input;
    const Block &output = request->output;
    *held = nullptr;
    if (input.empty) return clear_block(output), true;
    if (!input.is_list) request->table = table_block(api, input);
    if (!check_doubles(api, *request)) return false;
    const Sharing sharing = sharing_of(api, *request);
    if (sharing == Sharing::overlapping) {
        if (!take_snapshot(api, request)) return false;
        *held = request->table.data;
    }
    const bool native = input.datatype != MODLA_INTEGER && output.datatype != MODLA_INTEGER;
    if (sharing != Sharing::same_places && !(native && fills_output(*request))) clear_block(output);
    return true;
}

template <class Ring>
bool write_residues(const HostApi *api, ModRequest *request, const Ring &ring) {
    Evaluation<Ring> evaluation = {api, ring, nullptr, nullptr, 0};
    DigitWeights weights = with_standard_mode([&] { return make_digit_weights(static_cast<double>(ring.p)); });
    evaluation.weights = &weights;
    void *held = nullptr;
    bool written =
        open_evaluation(*request, &evaluation) && open_output(api, request) && open_input(api, request, &held);
    if (written && !request->input.empty) {
        if (request->input.datatype == MODLA_INTEGER) {
            written = evaluate_values(*request, evaluation);
        } else {
            reduce_native(api, *request, ring);
        }
    }
    if (held) api->Free(held);
    close_evaluation(evaluation);
    return written;
}

// Host integers are reduced by the host.
bool reduce_integers(const HostApi *api, const ModRequest &request) {
    const Block &output = request.output;
    if (output.empty) return true;
    View view;
    if (!make_block_view(api, output, &view)) return false;
    const HostObject first_row = api->ToInteger(view.row_shift + 1);
    const HostObject last_row = api->ToInteger(view.row_shift + row_count(output));
    const HostObject first_column = api->ToInteger(view.column_shift + 1);
    const HostObject last_column = api->ToInteger(view.column_shift + column_count(output));
    if (request.evaluations) {
        api->CallProcedure(modLA_getfcn(api, "cbModEval"), 7, request.modulus_argument, first_row, last_row,
                           first_column, last_column, view.object, request.evaluations);
    } else {
        api->CallProcedure(modLA_getfcn(api, "cbMod"), 6, request.modulus_argument, first_row, last_row, first_column,
                           last_column, view.object);
    }
    return true;
}

bool write_integers(const HostApi *api, ModRequest *request) {
    if (request->evaluations) {
        const Elements equations = equations_of(request->evaluations);
        for (uint32_t i = 0; i < equations.count; i++) {
            if (!check_equation(api, *request, equations.items[i])) return false;
        }
    }
    void *held;
    if (!open_output(api, request) || !open_input(api, request, &held)) return false;
    if (!request->input.empty) {
        (request->input.datatype == MODLA_INTEGER ? copy_values : native_to_integers)(api, *request);
    }
    if (held) api->Free(held);
    return reduce_integers(api, *request);
}

}  // namespace

HostObject modLA_Mod(const HostApi *api, const HostObject *args) {
    ModRequest request;
    if (!read_mod(api, args, &request) || !check_evaluations(api, request)) return api->NullValue();
    const bool written = request.datatype == MODLA_INTEGER
                             ? write_integers(api, &request)
                             : with_ring(request.datatype, request.modulus,
                                         [&](const auto &ring) { return write_residues(api, &request, ring); });
    return written && request.created ? request.output.object : api->NullValue();
}
