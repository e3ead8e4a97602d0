#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "modla.h"
#include "values/rand_fill.h"

using namespace modla;

namespace {

enum class Content { constant, identity, random };

struct CreateRequest {
    int32_t rows, columns, datatype, order;
    Content content;
    Scalar modulus, fill;
};

bool check_sizes(const HostApi *api, int32_t rows, int32_t columns) {
    if (rows < 0) return fail(api, "number of rows must be nonnegative");
    if (columns < 0) return fail(api, "number of columns must be nonnegative");
    return rows != 0 || columns != 0 ||
           fail(api, "at least one of 'rows' or 'columns' (second and third arguments) must be nonzero");
}

bool read_create(const HostApi *api, const HostObject *args, CreateRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n < 3) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    if (!api->IsInteger(args[2])) return fail(api, "argument 2, the number of rows, must be an integer");
    if (!api->IsInteger(args[3])) return fail(api, "argument 3, the number of columns, must be an integer");
    request->rows = api->ToInt(args[2]);
    request->columns = api->ToInt(args[3]);
    if (!check_sizes(api, request->rows, request->columns)) return false;
    if (n < 4) return fail(api, "too few arguments, expected output object or fill value for argument 4");

    request->content = Content::constant;
    const HostObject *fill = nullptr;
    int32_t next = 5;
    const HostObject fourth = args[4];
    if (!is_immediate(fourth) && (api->IsName(fourth) || object_type(fourth) == MODLA_TYPE_INDEXED_NAME)) {
        if (fourth == api->ToName("identity", 1)) {
            request->content = Content::identity;
        } else if (fourth == api->ToName("random", 1)) {
            request->content = Content::random;
        } else {
            next = 4;
        }
    } else {
        if (!api->IsNumeric(fourth)) {
            return fail(api, "fill value must be an integral numeric value in the range 0..modulus-1");
        }
        fill = &args[4];
    }
    if (n < next) {
        return fail(api, "too few arguments, expected output object for argument %1", api->ToInteger(next));
    }
    request->datatype = process_datatype(api, args[next], 0, next);
    if (!is_datatype(request->datatype)) return false;
    request->order = MODLA_C_ORDER;
    if (n > next && !read_ordering(api, args, next + 1, &request->order)) return false;
    if (!check_no_more(api, args, next + 2, n)) return false;
    if (request->content == Content::identity && request->rows != request->columns) {
        return fail(api, "when requesting identity, input must be specified as a square Matrix");
    }
    return check_modulus(api, args[1], &request->modulus, request->datatype, fill, &request->fill, "fill", 0);
}

// All entries in the order of their addresses.
Block entries_in_line(const Block &block) {
    Block line = block;
    line.rows = 1;
    line.columns = row_count(block) * column_count(block);
    line.column_step = 1;
    return line;
}

Block diagonal_of(const Block &block) {
    Block diagonal = block;
    diagonal.row_step += diagonal.column_step;
    diagonal.columns = 1;
    return diagonal;
}

}  // namespace

HostObject modLA_Create(const HostApi *api, const HostObject *args) {
    CreateRequest request;
    if (!read_create(api, args, &request)) return api->NullValue();
    Block block;
    if (!new_block(api, request.rows, request.columns, request.datatype, request.order, &block)) {
        return api->NullValue();
    }
    const bool random = request.content == Content::random;
    if (random && request.datatype != MODLA_INTEGER) {
        fill_randomly(api, entries_in_line(block), request.modulus);
        return block.object;
    }
    fill_block(block, random ? small_scalar(request.datatype, 0) : request.fill);
    if (request.content == Content::identity) fill_block(diagonal_of(block), small_scalar(request.datatype, 1));
    if (random) {
        api->CallProcedure(modLA_getfcn(api, "cbRandMat"), 6, args[1], api->ToInteger(0), args[2], api->ToInteger(0),
                           args[3], block.object);
    }
    return block.object;
}
