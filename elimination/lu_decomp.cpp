#include "elimination/run_reduce.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "host/work_memory.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

struct LURequest {
    MatrixArgument matrix;
    Permutation permutation;
    Scalar modulus;
    Output det;
};

bool read_lu(const HostApi *api, const HostObject *args, LURequest *request) {
    if (api->NumArgs(args) != 4) return fail(api, "incorrect number of arguments");
    RtableSettings settings;
    if (!check_modulus_argument(api, args) || !check_rtable(api, args, 2, "matrix") ||
        !check_rtable(api, args, 3, "permutation") || !read_settings(api, args, 2, &settings)) {
        return false;
    }
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, 2, "must be a Matrix");
    MatrixArgument &matrix = request->matrix;
    matrix = matrix_argument(api, args[2], settings);
    if (matrix.rows != matrix.columns) return fail_argument(api, 2, "must be a square Matrix");
    if (!read_permutation(api, args, 3, &request->permutation)) return false;
    if (request->permutation.length < matrix.rows - 1) {
        return fail_argument(api, 3, "must have at least one less element than the matrix dimension");
    }
    return check_modulus(api, args[1], &request->modulus, matrix.datatype) && read_output(api, args, 4, &request->det);
}

bool report(const HostApi *api, uint32_t status) {
    return report_status(api, static_cast<int32_t>(status),
                         {{1, "no LU decomposition exists: modulus is composite"}, {2, "matrix is singular"}});
}

uint32_t run_words(const LURequest &request, int32_t *pending, Scalar *det) {
    const MatrixArgument &matrix = request.matrix;
    const uint32_t p = static_cast<uint32_t>(request.modulus.word);
    const auto kernel = matrix.order == MODLA_C_ORDER ? modLA_LU_C_iw_nop : modLA_LU_F_iw_nop;
    uint32_t value = 0;
    const uint32_t status =
        kernel(static_cast<uint32_t *>(matrix.data), request.permutation.entries, matrix.rows, matrix.rows, p, 0,
               request.det.name ? &value : nullptr, pending, delay_bound<WordRing>(p));
    det->word = static_cast<int32_t>(value);
    return status;
}

uint32_t run_floats(const LURequest &request, int32_t *pending, Scalar *det) {
    const MatrixArgument &matrix = request.matrix;
    const double p = request.modulus.real;
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    const auto kernel = matrix.order == MODLA_C_ORDER ? modLA_LU_C_f_nop : modLA_LU_F_f_nop;
    det->real = 0;
    return kernel(static_cast<double *>(matrix.data), request.permutation.entries, matrix.rows, matrix.rows, p, pinv,
                  request.det.name ? &det->real : nullptr, pending, delay_bound<FloatRing>(modulus_of(p)));
}

// Turns the raw row numbers that a kernel left in a Vector of host integers into such; zeros after a failure.
void finish_permutation(const LURequest &request, uint32_t status) {
    if (!request.permutation.host_integers) return;
    int32_t *const entries = request.permutation.entries;
    for (int32_t k = 0; k < request.matrix.rows - 1; k++) {
        entries[k] = static_cast<int32_t>(immediate_integer(status == 0 ? entries[k] : 0));
    }
}

}  // namespace

HostObject modLA_LUDecomp(const HostApi *api, const HostObject *args) {
    LURequest request;
    if (!read_lu(api, args, &request)) return api->NullValue();
    const MatrixArgument &matrix = request.matrix;
    if (matrix.datatype == MODLA_INTEGER) {
        const HostObject result = api->CallProcedure(modLA_getfcn(api, "cbLUDecomp"), 5, args[2], args[3],
                                                     api->ToInteger(matrix.rows), args[1], request.det.target);
        report(api, static_cast<uint32_t>(integer_value(result)));
        return api->NullValue();
    }
    int32_t *const pending = allocate<int32_t>(api, static_cast<uint32_t>(matrix.rows));
    if (!pending && matrix.rows > 0) return api->NullValue();
    Scalar det;
    const uint32_t status =
        matrix.datatype == MODLA_INTEGER4 ? run_words(request, pending, &det) : run_floats(request, pending, &det);
    finish_permutation(request, status);  // before the host is called: it must never see raw words
    if (pending) api->Free(pending);
    if (!report(api, status)) return api->NullValue();
    if (request.det.name) api->AssignName(request.det.name, residue_to_host(api, matrix.datatype, det));
    return api->NullValue();
}
