// The kernels of elimination under their exported names.
#include <algorithm>

#include "elimination/lu_factor.h"
#include "elimination/row_gcd.h"
#include "elimination/row_reduction.h"
#include "elimination/triangular_solve.h"
#include "elimination/zigzag.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <bool c_order, class W>
auto matrix(W *data, int32_t ld) {
    return Matrix<std::remove_pointer_t<decltype(entries(data))>, c_order>{entries(data), ld};
}

template <bool c_order, class W>
uint32_t echelon(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending) {
    const RowReductionTask task = {nrows, ncols,   nred, rank,         pivsig,
                                   extra, pivcols, mode, detonly != 0, {pending, maxpending}};
    return with_standard_mode([&] {
        return row_reduce(
            RowReduction{task, kernel_ring(p, pinv), matrix<c_order>(A, ld), entries(det), entries(pivprod)});
    });
}

template <bool c_order, class W>
uint32_t lu(MODLA_LU_ARGUMENTS(W)) {
    const DelayedReductions delayed = {pending, maxpending};
    return with_standard_mode([&] {
        return lu_factor(LUFactorization{kernel_ring(p, pinv), matrix<c_order>(A, ld), n, perm, entries(det), delayed});
    });
}

// A single vector, nrhs = 0, is a matrix of one column, its entries ldB apart.
template <bool c_order, class W>
uint32_t solve(MODLA_BACKSUB_ARGUMENTS(W), bool forward, bool unit_diagonal) {
    const auto solve_for = [&](auto right_hand_sides, int32_t columns) {
        return with_standard_mode([&] {
            return triangular_solve(TriangularSolve{kernel_ring(p, pinv), matrix<c_order>(T, ldT), n, right_hand_sides,
                                                    columns, forward, unit_diagonal, maxpending});
        });
    };
    return nrhs == 0 ? solve_for(matrix<true>(B, ldB), 1) : solve_for(matrix<c_order>(B, ldB), nrhs);
}

template <bool c_order, class W>
int32_t gcd(MODLA_ROW_GCD_ARGUMENTS(W)) {
    return with_standard_mode([&] {
        return find_row_gcd(
            RowGcd{kernel_ring(p, pinv), matrix<c_order>(data, stride), std::max(k, 1), std::max(cols, 0), c});
    });
}

// The bound on delayed reductions follows from p.
template <bool c_order, class W>
int32_t zigzag(W *data, int32_t n, W p, double pinv) {
    const auto ring = kernel_ring(p, pinv);
    return with_standard_mode([&] {
        return make_zigzag(ZigZag{ring, matrix<c_order>(data, n), n, delay_bound(ring)});
    });
}

}  // namespace

// One definition for each name: twins differ in the order and in the words.
#define REDUCE(name, c_order, W)                                                                                      \
    uint32_t name(MODLA_REDUCE_ARGUMENTS(W)) {                                                                        \
        return echelon<c_order>(A, nrows, ncols, nred, ld, p, pinv, det, pivprod, rank, pivsig, extra, pivcols, mode, \
                                detonly, nullptr, 1);                                                                 \
    }
#define REDUCE_DELAYED(name, c_order, W)                                                                              \
    uint32_t name(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending) {                                  \
        return echelon<c_order>(A, nrows, ncols, nred, ld, p, pinv, det, pivprod, rank, pivsig, extra, pivcols, mode, \
                                detonly, pending, maxpending);                                                        \
    }
#define LU(name, c_order, W)                                                   \
    uint32_t name(MODLA_LU_ARGUMENTS(W)) {                                     \
        return lu<c_order>(A, perm, n, ld, p, pinv, det, pending, maxpending); \
    }
#define FOR_SUB(name, c_order, W)                                                                 \
    uint32_t name(MODLA_FORSUB_ARGUMENTS(W)) {                                                    \
        return solve<c_order>(T, n, ldT, B, nrhs, ldB, p, pinv, maxpending, true, unitdiag != 0); \
    }
#define BACK_SUB(name, c_order, W)                                                         \
    uint32_t name(MODLA_BACKSUB_ARGUMENTS(W)) {                                            \
        return solve<c_order>(T, n, ldT, B, nrhs, ldB, p, pinv, maxpending, false, false); \
    }
#define ROW_GCD(name, c_order, W)                               \
    int32_t name(MODLA_ROW_GCD_ARGUMENTS(W)) {                  \
        return gcd<c_order>(data, k, cols, stride, p, pinv, c); \
    }
#define ZIGZAG(name, c_order, W)                                  \
    int32_t name(W *data, int32_t n, W p, double pinv, int32_t) { \
        return zigzag<c_order>(data, n, p, pinv);                 \
    }

REDUCE(modLA_reduce_C_iw, true, uint32_t)
REDUCE(modLA_reduce_F_iw, false, uint32_t)
REDUCE_DELAYED(modLA_reduce_C_iw_nop, true, uint32_t)
REDUCE_DELAYED(modLA_reduce_F_iw_nop, false, uint32_t)
REDUCE_DELAYED(modLA_reduce_C_f_nop, true, double)
REDUCE_DELAYED(modLA_reduce_F_f_nop, false, double)
LU(modLA_LU_C_iw_nop, true, uint32_t)
LU(modLA_LU_F_iw_nop, false, uint32_t)
LU(modLA_LU_C_f_nop, true, double)
LU(modLA_LU_F_f_nop, false, double)
FOR_SUB(modLA_ForSub_C_iw_nop, true, uint32_t)
FOR_SUB(modLA_ForSub_F_iw_nop, false, uint32_t)
FOR_SUB(modLA_ForSub_C_f_nop, true, double)
FOR_SUB(modLA_ForSub_F_f_nop, false, double)
BACK_SUB(modLA_BackSub_C_iw_nop, true, uint32_t)
BACK_SUB(modLA_BackSub_F_iw_nop, false, uint32_t)
BACK_SUB(modLA_BackSub_C_f_nop, true, double)
BACK_SUB(modLA_BackSub_F_f_nop, false, double)
ROW_GCD(modLA_RowGcd_C_iw, true, uint32_t)
ROW_GCD(modLA_RowGcd_F_iw, false, uint32_t)
ROW_GCD(modLA_RowGcd_C_f, true, double)
ROW_GCD(modLA_RowGcd_F_f, false, double)
ZIGZAG(modLA_ZigZag_C_iw, true, uint32_t)
ZIGZAG(modLA_ZigZag_F_iw, false, uint32_t)
ZIGZAG(modLA_ZigZag_C_f, true, double)
ZIGZAG(modLA_ZigZag_F_f, false, double)
