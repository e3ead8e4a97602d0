#include "elimination/run_reduce.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "modla.h"

using namespace modla;

namespace {

struct DeterminantRequest {
    MatrixArgument matrix;
    Range rows, columns;
    Scalar modulus;
    HostObject name;
};

bool read_determinant(const HostApi *api, const HostObject *args, DeterminantRequest *request) {
    if (api->NumArgs(args) != 5) return fail(api, "incorrect number of arguments");
    MatrixArgument &matrix = request->matrix;
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
    const int32_t datatype = request.matrix.datatype;
    ReduceOutputs out = {};
    uint32_t status;
    if (datatype == MODLA_INTEGER) {
        ReduceCall call =
            reduce_call(request.matrix.object, request.rows, request.columns, request.columns.last + 1, args[1]);
        call.det = request.name;
        call.detonly = true;
        status = call_reduce(api, call);
    } else {
        out.det_wanted = true;
        const NativeBlock block = native_block(request.matrix, request.rows, request.columns);
        if (!run_reduce(api, block, request.modulus, block.columns, 0, true, &out, &status)) return api->NullValue();
    }
    if (report_status(api, static_cast<int32_t>(status), {}) && datatype != MODLA_INTEGER) {
        api->AssignName(request.name, residue_to_host(api, datatype, out.det));
    }
    return api->NullValue();
}
