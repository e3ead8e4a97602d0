#include "elimination/triangular_system.h"
#include "host/object.h"
#include "host/raise.h"

using namespace modla;

HostObject modLA_ForSub(const HostApi *api, const HostObject *args) {
    if (api->NumArgs(args) != 4) {
        fail(api, "incorrect number of arguments");
        return api->NullValue();
    }
    TriangularSystem system;
    if (!read_triangular_system(api, args, "lower triangular matrix", true, &system)) return api->NullValue();
    if (!protect_triangle(api, &system)) return api->NullValue();
    uint32_t status;
    if (system.triangle.datatype == MODLA_INTEGER) {
        const HostObject n = api->ToInteger(system.triangle.rows), nrhs = api->ToInteger(system.rhs.columns);
        status = static_cast<uint32_t>(integer_value(api->CallProcedure(
            modLA_getfcn(api, "cbForSub"), 6, system.triangle.object, n, args[3], nrhs, args[1], args[4])));
    } else {
        status = solve_natively(api, system, true);
    }
    report_solution(api, status, "cannot forward substitute: modulus is composite");
    return api->NullValue();
}
