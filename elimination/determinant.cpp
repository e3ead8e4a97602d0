#include "elimination/run_row_reduction.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "modla.h"

using namespace modla;

namespace {

struct DeterminantRequest {
    Block matrix;
    Range rows, columns;
    Scalar modulus;
    HostObject name;
};

bool read_determinant(const HostApi *api, const HostObject *args, DeterminantRequest *request) {
    if (api->NumArgs(args) != 5) return fail(api, "incorrect number of arguments");
    Block &matrix = request->matrix;
    if (!(check_modulus_argument(api, args) && read_matrix(api, args, 2, "matrix", &matrix) &&
          read_row_range(api, args[3], matrix.rows, &request->rows) &&
          read_column_range(api, args[4], matrix.columns, &request->columns))) {
        return false;
    }
    if (range_length(request->rows) != range_length(request->columns)) {
        return fail(api, "input Matrix must be square");
    }
    if (!check_modulus(api, args[1], &request->modulus, matrix.datatype)) return false;
    request->name = args[5];
    return (!is_immediate(args[5]) && api->IsName(args[5])) ||
           fail(api, "argument 5, determinant output, must be a name");
}

}  // namespace

HostObject modLA_Determinant(const HostApi *api, const HostObject *args) {
    DeterminantRequest request;
    if (!read_determinant(api, args, &request)) return api->NullValue();
    const bool native = request.matrix.datatype != MODLA_INTEGER;
    int32_t det;
    uint32_t status;
    if (native) {
        RowReductionTask task = {};
        task.nrows = task.ncols = task.nred = range_length(request.rows);
        task.detonly = true;
        const Block block = selected_block(request.matrix, request.rows, request.columns);
        if (!run_row_reduction(api, block, request.modulus, task, &det, nullptr, &status)) return api->NullValue();
    } else {
        ReduceCall call =
            reduce_call(request.matrix.object, request.rows, request.columns, request.columns.last + 1, args[1]);
        call.det = request.name;
        call.detonly = true;
        status = call_reduce(api, call);
    }
    if (report_status(api, static_cast<int32_t>(status), {}) && native) {
        api->AssignName(request.name, api->ToInteger(det));
    }
    return api->NullValue();
}
