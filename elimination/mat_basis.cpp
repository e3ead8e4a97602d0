#include <algorithm>

#include "elimination/run_row_reduction.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "host/rtable.h"
#include "modla.h"

using namespace modla;

namespace {

struct BasisRequest {
    Block matrix;
    int32_t vectors;  // rows taken from the top; negative: none
    Scalar modulus;
    int32_t nullspace;
};

bool read_basis(const HostApi *api, const HostObject *args, BasisRequest *request) {
    if (api->NumArgs(args) != 4) return fail(api, "incorrect number of arguments");
    Block &matrix = request->matrix;
    if (!check_modulus_argument(api, args) || !read_matrix(api, args, 2, "matrix", &matrix)) return false;
    if (!is_immediate(args[3])) {
        return fail(api, "number of vectors (rows) must be a nonnegative integer value");
    }
    request->vectors = integer_value(args[3]) == 0 ? matrix.rows : integer_value(args[3]);
    if (request->vectors > matrix.rows) {
        return fail(api, "number of vectors (rows) cannot be greater than the number of Matrix rows");
    }
    if (!check_modulus(api, args[1], &request->modulus, matrix.datatype)) return false;
    if (!read_boolean(api, args, 4, &request->nullspace)) return false;
    return !request->nullspace || matrix.columns <= matrix.rows ||
           fail(api, "Matrix rows cannot be less than columns when nullspace is requested");
}

bool report(const HostApi *api, uint32_t status) {
    return report_status(api, static_cast<int32_t>(status), {{4, "unable to compute nullspace: modulus is composite"}});
}

// The rank that the callback finds, through a name of its own.
HostObject call_basis(const HostApi *api, const HostObject *args, const BasisRequest &request, HostObject pivots) {
    const HostObject rank = api->ToName("rank", 0);
    const int32_t columns = request.matrix.columns;
    ReduceCall call = reduce_call(request.matrix.object, {1, request.vectors}, {1, columns}, columns + 1, args[1]);
    call.rank = rank;
    call.pivcols = pivots;
    call.mode = 2;
    return report(api, call_reduce(api, call)) ? api->Evaluate(rank) : api->NullValue();
}

}  // namespace

HostObject modLA_MatBasis(const HostApi *api, const HostObject *args) {
    BasisRequest request;
    if (!read_basis(api, args, &request)) return api->NullValue();
    const Block &matrix = request.matrix;
    Block pivots = {};
    pivots.object = immediate_integer(0);
    if (request.nullspace && !new_block(api, matrix.columns, 0, MODLA_INTEGER4, MODLA_C_ORDER, &pivots)) {
        return api->NullValue();
    }
    if (matrix.datatype == MODLA_INTEGER) return call_basis(api, args, request, pivots.object);

    int32_t rank;
    RowReductionTask task = {};
    task.nrows = std::max(request.vectors, 0);
    task.ncols = task.nred = matrix.columns;
    task.rank = &rank;
    task.pivcols = static_cast<int32_t *>(pivots.data);
    task.mode = reduced_echelon_form_keeping_nonunits;
    uint32_t status;
    const bool done =
        run_row_reduction(api, matrix, request.modulus, task, nullptr, nullptr, &status) && report(api, status);
    return done ? api->ToInteger(rank) : api->NullValue();
}
