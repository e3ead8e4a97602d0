#include "elimination/run_row_reduction.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "modla.h"

using namespace modla;

namespace {

struct RowReduceRequest {
    Block matrix;
    Range rows, columns;
    int32_t nred;
    Scalar modulus;
    Output det, pivprod, rank, pivsig, extra;
    int32_t mode;
};

bool read_reducible_columns(const HostApi *api, HostObject argument, int32_t columns, int32_t *nred) {
    if (!is_immediate(argument) || integer_value(argument) < 0) {
        return fail(api, "number of reducible columns must be a nonnegative integer value");
    }
    *nred = integer_value(argument) == 0 ? columns : integer_value(argument);
    return *nred <= columns ||
           fail(api, "number of reducible columns exceeds the number of columns in the specified matrix");
}

bool read_form(const HostApi *api, HostObject argument, int32_t *mode) {
    if (is_keyword(api, argument, "true") || is_keyword(api, argument, "false")) {
        *mode = api->ToInt(argument);
        return true;
    }
    *mode = -1;
    if (api->IsInteger(argument) && is_immediate(argument)) *mode = api->ToInt(argument);
    return (*mode >= 0 && *mode <= 2) || fail(api, "argument 11 must be 'true' or 'false'");
}

bool read_row_reduce(const HostApi *api, const HostObject *args, RowReduceRequest *request) {
    if (api->NumArgs(args) != 11) return fail(api, "incorrect number of arguments");
    Block &matrix = request->matrix;
    return check_modulus_argument(api, args) && read_matrix(api, args, 2, "matrix", &matrix) &&
           read_row_range(api, args[3], matrix.rows, &request->rows) &&
           read_column_range(api, args[4], matrix.columns, &request->columns) &&
           read_reducible_columns(api, args[5], range_length(request->columns), &request->nred) &&
           check_modulus(api, args[1], &request->modulus, matrix.datatype) &&
           read_output(api, args, 6, &request->det) && read_output(api, args, 7, &request->pivprod) &&
           read_output(api, args, 8, &request->rank) && read_output(api, args, 9, &request->pivsig) &&
           read_output(api, args, 10, &request->extra) && read_form(api, args[11], &request->mode);
}

bool report(const HostApi *api, uint32_t status) {
    return report_status(api, static_cast<int32_t>(status),
                         {{1, "no inverse exists: modulus is composite"},
                          {2, "matrix is singular"},
                          {3, "matrix has more rows than columns, cannot compute determinant"},
                          {10, "not implemented yet"}});
}

uint32_t call_row_reduce(const HostApi *api, const HostObject *args, const RowReduceRequest &request) {
    ReduceCall call = reduce_call(request.matrix.object, request.rows, request.columns, request.nred + 1, args[1]);
    call.det = request.det.target;
    call.pivprod = request.pivprod.target;
    call.rank = request.rank.target;
    call.pivsig = request.pivsig.target;
    call.extra = request.extra.target;
    call.mode = request.mode;
    return call_reduce(api, call);
}

}  // namespace

HostObject modLA_RowReduce(const HostApi *api, const HostObject *args) {
    RowReduceRequest request;
    if (!read_row_reduce(api, args, &request)) return api->NullValue();
    if (request.matrix.datatype == MODLA_INTEGER) {
        report(api, call_row_reduce(api, args, request));
        return api->NullValue();
    }
    int32_t det, pivprod, rank, pivsig, extra;
    const auto wanted = [](const Output &output, int32_t *cell) { return output.name ? cell : nullptr; };
    RowReductionTask task = {};
    task.nrows = range_length(request.rows);
    task.ncols = range_length(request.columns);
    task.nred = request.nred;
    task.rank = wanted(request.rank, &rank);
    task.pivsig = wanted(request.pivsig, &pivsig);
    task.extra = wanted(request.extra, &extra);
    task.mode = request.mode;
    uint32_t status;
    if (!run_row_reduction(api, selected_block(request.matrix, request.rows, request.columns), request.modulus, task,
                           wanted(request.det, &det), wanted(request.pivprod, &pivprod), &status) ||
        !report(api, status)) {
        return api->NullValue();
    }
    const auto assign = [&](const Output &output, const int32_t &value) {
        if (output.name) api->AssignName(output.name, api->ToInteger(value));
    };
    assign(request.det, det);
    assign(request.pivprod, pivprod);
    assign(request.rank, rank);
    assign(request.pivsig, pivsig);
    assign(request.extra, extra);
    return api->NullValue();
}
