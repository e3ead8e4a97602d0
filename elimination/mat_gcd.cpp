#include "host/arguments.h"
#include "host/modulus.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

struct GcdRequest {
    MatrixArgument matrix;
    int32_t polynomials;
    Scalar modulus;
};

bool read_gcd(const HostApi *api, const HostObject *args, GcdRequest *request) {
    if (api->NumArgs(args) != 3) return fail(api, "incorrect number of arguments");
    if (!check_modulus_argument(api, args) || !check_rtable(api, args, 2, "matrix")) return false;
    if (!api->IsInteger(args[3])) {
        return fail(api, "argument 3, the number of polynomials, must be a positive integer");
    }
    RtableSettings settings;
    if (!read_settings(api, args, 2, &settings)) return false;
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, 2, "must be a Matrix");
    MatrixArgument &matrix = request->matrix;
    matrix = matrix_argument(api, args[2], settings);
    // Without the comma of the message above.
    if (!is_immediate(args[3]) || integer_value(args[3]) <= 0) {
        return fail(api, "argument 3, the number of polynomials must be a positive integer");
    }
    request->polynomials = integer_value(args[3]);
    if (request->polynomials > matrix.rows) {
        return fail(api,
                    "argument 3, the number of polynomials cannot be greater than the number of rows in the input "
                    "Matrix");
    }
    return check_modulus(api, args[1], &request->modulus, matrix.datatype);
}

int32_t run_words(const GcdRequest &request) {
    const MatrixArgument &matrix = request.matrix;
    const bool c_order = matrix.order == MODLA_C_ORDER;
    const uint32_t p = static_cast<uint32_t>(request.modulus.word);
    const auto kernel = c_order ? modLA_RowGcd_C_iw : modLA_RowGcd_F_iw;
    return kernel(static_cast<uint32_t *>(matrix.data), request.polynomials, matrix.columns,
                  c_order ? matrix.columns : matrix.rows, p, 0, delay_bound<WordRing>(p));
}

int32_t run_floats(const GcdRequest &request) {
    const MatrixArgument &matrix = request.matrix;
    const bool c_order = matrix.order == MODLA_C_ORDER;
    const double p = request.modulus.real;
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    const auto kernel = c_order ? modLA_RowGcd_C_f : modLA_RowGcd_F_f;
    return kernel(static_cast<double *>(matrix.data), request.polynomials, matrix.columns,
                  c_order ? matrix.columns : matrix.rows, p, pinv, delay_bound<FloatRing>(modulus_of(p)));
}

int32_t call_gcd(const HostApi *api, const HostObject *args, const GcdRequest &request) {
    const HostObject procedure = modLA_getfcn(api, "cbMatGcd");
    const HostObject columns = api->ToInteger(request.matrix.columns);
    const HostObject result = api->CallProcedure(procedure, 4, args[2], args[3], columns, args[1]);
    // Half of an address must not pass for a degree.
    return is_immediate(result) ? integer_value(result) : INT32_MIN;
}

}  // namespace

HostObject modLA_MatGcd(const HostApi *api, const HostObject *args) {
    GcdRequest request;
    if (!read_gcd(api, args, &request)) return api->NullValue();
    const int32_t datatype = request.matrix.datatype;
    const int32_t degree = datatype == MODLA_INTEGER4 ? run_words(request)
                           : datatype == MODLA_FLOAT8 ? run_floats(request)
                                                      : call_gcd(api, args, request);
    const int32_t status = degree >= -1 ? 0 : degree;
    const bool done =
        report_status(api, status, {{-2, "unable to compute gcd: modulus is composite"}, {-10, "not implemented yet"}});
    return done ? api->ToInteger(degree) : api->NullValue();
}
