#include "elimination/substitute.h"

#include <cstring>

#include "host/rtable.h"
#include "host/work_memory.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

bool read_right_hand_side(const HostApi *api, const HostObject *args, TriangularSystem *system) {
    const MatrixArgument &triangle = system->triangle;
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
    system->rhs = api->RtableData(args[3]);
    system->nrhs = matrix ? api->RtableUpperBound(args[3], 2) : 0;
    system->empty = matrix && system->nrhs == 0;
    system->ldb = !matrix ? 1 : settings.order == MODLA_C_ORDER ? system->nrhs : triangle.rows;
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
    system->triangle = matrix_argument(api, args[2], settings);
    if (system->triangle.rows != system->triangle.columns) return fail_argument(api, 2, "must be a square Matrix");
    int32_t unit_diagonal = 0;
    if (takes_diagonal && !read_boolean(api, args, 4, &unit_diagonal)) return false;
    system->unit_diagonal = unit_diagonal != 0;
    return read_right_hand_side(api, args, system) &&
           check_modulus(api, args[1], &system->modulus, system->triangle.datatype);
}

namespace {

// Only the forward kernels have a diagonal flag.
template <class W, class ForKernel, class BackKernel>
uint32_t call(const TriangularSystem &system, bool forward, ForKernel for_kernel, BackKernel back_kernel, W p,
              double pinv, int32_t maxpending) {
    const W *const T = static_cast<const W *>(system.triangle.data);
    W *const B = static_cast<W *>(system.rhs);
    const int32_t n = system.triangle.rows;
    return forward ? for_kernel(T, n, n, B, system.nrhs, system.ldb, p, pinv, system.unit_diagonal, maxpending)
                   : back_kernel(T, n, n, B, system.nrhs, system.ldb, p, pinv, maxpending);
}

}  // namespace

bool modla::protect_triangle(const HostApi *api, TriangularSystem *system) {
    MatrixArgument &triangle = system->triangle;
    system->held = nullptr;
    if (triangle.rows == 0 || system->empty) return true;
    const auto whole = [&](void *data, int32_t columns) {
        return whole_block(0, triangle.datatype, triangle.order, data, triangle.rows, columns);
    };
    if (!overlap(whole(triangle.data, triangle.rows), whole(system->rhs, system->nrhs))) return true;
    const uint64_t entries = uint64_t{static_cast<uint32_t>(triangle.rows)} * static_cast<uint32_t>(triangle.rows);
    const uint64_t words = entries * entry_size(triangle.datatype) / sizeof(uint32_t);
    const void *const original = triangle.data;
    if (triangle.datatype == MODLA_INTEGER) {
        Block copy;
        if (!new_block(api, triangle.rows, triangle.rows, MODLA_INTEGER, triangle.order, &copy)) return false;
        triangle.object = copy.object;
        triangle.data = copy.data;
    } else {
        triangle.data = system->held = allocate<uint32_t>(api, words);
        if (!system->held) return false;
    }
    std::memcpy(triangle.data, original, static_cast<size_t>(words) * sizeof(uint32_t));
    return true;
}

namespace {

uint32_t call_kernel(const TriangularSystem &system, bool forward) {
    const bool c_order = system.triangle.order == MODLA_C_ORDER;
    if (system.triangle.datatype == MODLA_INTEGER4) {
        const uint32_t p = static_cast<uint32_t>(system.modulus.word);
        return call(system, forward, c_order ? modLA_ForSub_C_iw_nop : modLA_ForSub_F_iw_nop,
                    c_order ? modLA_BackSub_C_iw_nop : modLA_BackSub_F_iw_nop, p, 0, pending_bound<Word>(p));
    }
    const double p = system.modulus.real;
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    return call(system, forward, c_order ? modLA_ForSub_C_f_nop : modLA_ForSub_F_f_nop,
                c_order ? modLA_BackSub_C_f_nop : modLA_BackSub_F_f_nop, p, pinv, pending_bound<Float>(modulus_of(p)));
}

}  // namespace

uint32_t modla::run_substitution(const HostApi *api, const TriangularSystem &system, bool forward) {
    const uint32_t status = system.empty ? 0 : call_kernel(system, forward);
    if (system.held) api->Free(system.held);
    return status;
}

void modla::report_substitution(const HostApi *api, uint32_t status, const char *composite) {
    report_status(api, static_cast<int32_t>(status),
                  {{1, composite}, {2, "matrix is singular"}, {10, "not implemented yet"}});
}
