#include "host/arguments.h"
#include "host/modulus.h"
#include "host/rtable.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

struct ZigZagRequest {
    int32_t datatype, order;
    int32_t n;
    void *data;
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
    request->datatype = settings.datatype;
    request->order = settings.order;
    request->n = extent.rows;
    request->data = api->RtableData(args[2]);
    return check_modulus(api, args[1], &request->modulus, settings.datatype);
}

int32_t run_words(const ZigZagRequest &request) {
    const uint32_t p = static_cast<uint32_t>(request.modulus.word);
    const auto kernel = request.order == MODLA_C_ORDER ? modLA_ZigZag_C_iw : modLA_ZigZag_F_iw;
    return kernel(static_cast<uint32_t *>(request.data), request.n, p, 0, delay_bound<WordRing>(p));
}

int32_t run_floats(const ZigZagRequest &request) {
    const double p = request.modulus.real;
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    const auto kernel = request.order == MODLA_C_ORDER ? modLA_ZigZag_C_f : modLA_ZigZag_F_f;
    return kernel(static_cast<double *>(request.data), request.n, p, pinv, 0);
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
    const int32_t status = request.datatype == MODLA_INTEGER4 ? run_words(request)
                           : request.datatype == MODLA_FLOAT8 ? run_floats(request)
                                                              : call_zigzag(api, args, request.n);
    report_status(api, status, {{1, "cannot obtain zigzag form: modulus is composite"}, {10, "not implemented yet"}});
    return api->NullValue();
}
