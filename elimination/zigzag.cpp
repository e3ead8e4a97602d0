#include "elimination/zigzag.h"

#include "host/arguments.h"
#include "host/native.h"
#include "modla.h"

using namespace modla;

namespace {

struct ZigZagRequest {
    Block matrix;
    Scalar modulus;
};

bool read_zigzag(const HostApi *api, const HostObject *args, ZigZagRequest *request) {
    if (api->NumArgs(args) != 2) return fail(api, "incorrect number of arguments");
    if (!check_modulus_argument(api, args)) return false;
    constexpr const char *square = "must be a square Matrix";
    if (is_immediate(args[2]) || !api->IsRtable(args[2])) return fail_argument(api, 2, square);
    RtableSettings settings;
    if (!read_settings(api, args, 2, &settings)) return false;
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, 2, square);
    const Extent extent = matrix_extent(api, args[2]);
    if (extent.rows != extent.columns) return fail_argument(api, 2, square);
    void *const data = api->RtableData(args[2]);
    request->matrix = whole_block(args[2], settings.datatype, settings.order, data, extent.rows, extent.columns);
    return check_modulus(api, args[1], &request->modulus, settings.datatype);
}

int32_t make_form(const ZigZagRequest &request) {
    return with_native_matrix(request.matrix, request.modulus, [&](const auto &ring, const auto &A) {
        return make_zigzag(ZigZag{ring, A, request.matrix.rows, delay_bound(ring)});
    });
}

int32_t call_zigzag(const HostApi *api, const HostObject *args, int32_t n) {
    const HostObject procedure = modLA_getfcn(api, "cbZigZag");
    const HostObject size = api->ToInteger(n);
    return integer_value(api->CallProcedure(procedure, 3, args[2], size, args[1]));
}

}  // namespace

HostObject modLA_ZigZag(const HostApi *api, const HostObject *args) {
    ZigZagRequest request;
    if (!read_zigzag(api, args, &request)) return api->NullValue();
    const bool native = request.matrix.datatype != MODLA_INTEGER;
    const int32_t status = native ? make_form(request) : call_zigzag(api, args, request.matrix.rows);
    report_status(api, status, {{1, "cannot obtain zigzag form: modulus is composite"}, {10, "not implemented yet"}});
    return api->NullValue();
}
