#include "elimination/triangular_system.h"

#include <cstring>

#include "elimination/triangular_solve.h"
#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/work_memory.h"

using namespace modla;

namespace {

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

}  // namespace

bool modla::read_triangular_system(const HostApi *api, const HostObject *args, const char *role, bool takes_diagonal,
                                   TriangularSystem *system) {
    RtableSettings settings;
    if (!check_modulus_argument(api, args) || !check_rtable(api, args, 2, role) ||
        !check_rtable(api, args, 3, "right hand side") || !read_settings(api, args, 2, &settings)) {
        return false;
    }
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, 2, "must be a square Matrix");
    system->triangle = matrix_block(api, args[2], settings);
    if (system->triangle.rows != system->triangle.columns) return fail_argument(api, 2, "must be a square Matrix");
    int32_t unit_diagonal = 0;
    if (takes_diagonal && !read_boolean(api, args, 4, &unit_diagonal)) return false;
    system->unit_diagonal = unit_diagonal != 0;
    return read_right_hand_side(api, args, system) &&
           check_modulus(api, args[1], &system->modulus, system->triangle.datatype);
}

bool modla::protect_triangle(const HostApi *api, TriangularSystem *system) {
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

uint32_t modla::solve_natively(const HostApi *api, const TriangularSystem &system, bool forward) {
    const Block &rhs = system.rhs;
    if (rhs.empty) return solve_done;
    const SolveStatus status =
        with_native_matrix(system.triangle, system.modulus, [&](const auto &ring, const auto &T) {
            using M = std::decay_t<decltype(T)>;
            const M B = {static_cast<typename M::Entry *>(rhs.data), M::c_order ? rhs.row_step : rhs.column_step};
            return triangular_solve(TriangularSolve{ring, T, system.triangle.rows, B, column_count(rhs), forward,
                                                    system.unit_diagonal, delay_bound(ring)});
        });
    if (system.held) api->Free(system.held);
    return status;
}

void modla::report_solution(const HostApi *api, uint32_t status, const char *composite) {
    report_status(api, static_cast<int32_t>(status),
                  {{1, composite}, {2, "matrix is singular"}, {10, "not implemented yet"}});
}
