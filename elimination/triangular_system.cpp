#include "elimination/triangular_system.h"

#include <cstring>

#include "elimination/triangular_solve.h"
#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/work_memory.h"

using namespace modla;

namespace {

// A triangular Matrix and the right-hand sides that the solution overwrites.
struct TriangularSystem {
    bool forward;
    Block triangle, rhs;
    bool unit_diagonal;
    Scalar modulus;
    void *held;  // the memory of a copied triangle, or null
};

bool read_right_hand_side(const HostApi *api, const HostObject *args, TriangularSystem *system) {
    const Block &triangle = system->triangle;
    RtableSettings settings;
    api->RtableGetSettings(&settings, args[3]);
    if (settings.datatype != triangle.datatype) return fail(api, "arguments 2 and 3 must have the same datatype");
    if (settings.order != triangle.order) return fail(api, "arguments 2 and 3 must have the same ordering");
    if (settings.storage != MODLA_RECTANGULAR) return fail_argument(api, 3, "has invalid storage");
    const bool matrix = settings.subtype == MODLA_MATRIX;
    if (!matrix && settings.subtype != MODLA_COLUMN_VECTOR) {
        return fail_argument(api, 3, "must be a Matrix or column Vector");
    }
    if (api->RtableUpperBound(args[3], 1) != triangle.rows) {
        return fail_argument(api, 3, "must have as many rows as columns in argument 2");
    }
    void *const data = api->RtableData(args[3]);
    const int32_t columns = matrix ? api->RtableUpperBound(args[3], 2) : 0;
    system->rhs = whole_block(args[3], settings.datatype, settings.order, data, triangle.rows, columns);
    system->rhs.empty = matrix && columns == 0;
    return true;
}

// Arguments 1 to 3; forward, argument 4 comes in its place among the checks.
bool read_triangular_system(const HostApi *api, const HostObject *args, TriangularSystem *system) {
    if (api->NumArgs(args) != (system->forward ? 4 : 3)) return fail(api, "incorrect number of arguments");
    const char *const role = system->forward ? "lower triangular matrix" : "upper triangular matrix";
    RtableSettings settings;
    if (!check_modulus_argument(api, args) || !check_rtable(api, args, 2, role) ||
        !check_rtable(api, args, 3, "right hand side") || !read_settings(api, args, 2, &settings)) {
        return false;
    }
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, 2, "must be a square Matrix");
    system->triangle = matrix_block(api, args[2], settings);
    if (system->triangle.rows != system->triangle.columns) return fail_argument(api, 2, "must be a square Matrix");
    int32_t unit_diagonal = 0;
    if (system->forward && !read_boolean(api, args, 4, &unit_diagonal)) return false;
    system->unit_diagonal = unit_diagonal != 0;
    return read_right_hand_side(api, args, system) &&
           check_modulus(api, args[1], &system->modulus, system->triangle.datatype);
}

// Puts a copy in the triangle's place where writing the solution would destroy entries still to be read: a new object
// of host integers, or memory from the host.  False when the host had none.
bool protect_triangle(const HostApi *api, TriangularSystem *system) {
    Block &triangle = system->triangle;
    system->held = nullptr;
    if (!overlap(triangle, system->rhs)) return true;
    const uint64_t entries = uint64_t{static_cast<uint32_t>(triangle.rows)} * static_cast<uint32_t>(triangle.rows);
    const uint64_t words = entries * entry_size(triangle.datatype) / sizeof(uint32_t);
    const void *const original = triangle.data;
    if (triangle.datatype == MODLA_INTEGER) {
        if (!new_block(api, triangle.rows, triangle.rows, MODLA_INTEGER, triangle.order, &triangle)) return false;
    } else {
        triangle.data = system->held = allocate<uint32_t>(api, words);
        if (!system->held) return false;
    }
    std::memcpy(triangle.data, original, static_cast<size_t>(words) * sizeof(uint32_t));
    return true;
}

uint32_t solve_natively(const TriangularSystem &system) {
    const Block &rhs = system.rhs;
    if (rhs.empty) return solve_done;
    return with_native_matrix(system.triangle, system.modulus, [&](const auto &ring, const auto &T) {
        using M = std::decay_t<decltype(T)>;
        const M B = {static_cast<typename M::Entry *>(rhs.data), M::c_order ? rhs.row_step : rhs.column_step};
        return triangular_solve(TriangularSolve{ring, T, system.triangle.rows, B, column_count(rhs), system.forward,
                                                system.unit_diagonal, delay_bound(ring)});
    });
}

// Only the forward callback has a diagonal flag, the sixth value.
int32_t call_solve(const HostApi *api, const HostObject *args, const TriangularSystem &system) {
    const bool forward = system.forward;
    const HostObject n = api->ToInteger(system.triangle.rows), nrhs = api->ToInteger(system.rhs.columns);
    return integer_value(api->CallProcedure(modLA_getfcn(api, forward ? "cbForSub" : "cbBackSub"), forward ? 6 : 5,
                                            system.triangle.object, n, args[3], nrhs, args[1], forward ? args[4] : 0));
}

}  // namespace

HostObject modla::solve_triangular_system(const HostApi *api, const HostObject *args, bool forward) {
    TriangularSystem system = {};
    system.forward = forward;
    if (!read_triangular_system(api, args, &system) || !protect_triangle(api, &system)) return api->NullValue();
    const bool native = system.triangle.datatype != MODLA_INTEGER;
    const int32_t status = native ? static_cast<int32_t>(solve_natively(system)) : call_solve(api, args, system);
    if (system.held) api->Free(system.held);
    const char *const composite = forward ? "cannot forward substitute: modulus is composite"
                                          : "cannot backward substitute: modulus is composite";
    report_status(api, status, {{1, composite}, {2, "matrix is singular"}, {10, "not implemented yet"}});
    return api->NullValue();
}
