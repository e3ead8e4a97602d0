#include "elimination/lu_factor.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "host/native.h"
#include "host/work_memory.h"
#include "modla.h"

using namespace modla;

namespace {

struct LURequest {
    Block matrix;
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
    Block &matrix = request->matrix;
    matrix = matrix_block(api, args[2], settings);
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
    const Block &matrix = request.matrix;
    if (matrix.datatype == MODLA_INTEGER) {
        const HostObject result = api->CallProcedure(modLA_getfcn(api, "cbLUDecomp"), 5, args[2], args[3],
                                                     api->ToInteger(matrix.rows), args[1], request.det.target);
        report(api, static_cast<uint32_t>(integer_value(result)));
        return api->NullValue();
    }
    const int32_t n = matrix.rows;
    int32_t *const counters = allocate<int32_t>(api, static_cast<uint32_t>(n));
    if (!counters && n > 0) return api->NullValue();
    const DelayedReductions delayed = {counters, delay_bound(matrix.datatype, request.modulus)};
    int32_t *const perm = request.permutation.entries;
    const bool det_wanted = request.det.name != 0;
    int32_t det;
    const LUStatus status = with_native_matrix(matrix, request.modulus, [&](const auto &ring, const auto &A) {
        typename std::decay_t<decltype(A)>::Entry entry{};
        const LUStatus result = lu_factor(LUFactorization{ring, A, n, perm, det_wanted ? &entry : nullptr, delayed});
        det = static_cast<int32_t>(entry);
        return result;
    });
    finish_permutation(request, status);  // before the host is called: it must never see raw words
    if (counters) api->Free(counters);
    if (!report(api, status)) return api->NullValue();
    if (det_wanted) api->AssignName(request.det.name, api->ToInteger(det));
    return api->NullValue();
}
