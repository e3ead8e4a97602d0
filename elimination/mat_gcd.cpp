#include "elimination/row_gcd.h"
#include "host/arguments.h"
#include "host/modulus.h"
#include "host/native.h"
#include "modla.h"

using namespace modla;

namespace {

struct GcdRequest {
    Block matrix;
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
    Block &matrix = request->matrix;
    matrix = matrix_block(api, args[2], settings);
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

int32_t find_gcd(const GcdRequest &request) {
    return with_native_matrix(request.matrix, request.modulus, [&](const auto &ring, const auto &A) {
        return find_row_gcd(RowGcd{ring, A, request.polynomials, request.matrix.columns, delay_bound(ring)});
    });
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
    const bool native = request.matrix.datatype != MODLA_INTEGER;
    const int32_t degree = native ? find_gcd(request) : call_gcd(api, args, request);
    const int32_t status = degree >= -1 ? 0 : degree;
    const bool done =
        report_status(api, status, {{-2, "unable to compute gcd: modulus is composite"}, {-10, "not implemented yet"}});
    return done ? api->ToInteger(degree) : api->NullValue();
}
