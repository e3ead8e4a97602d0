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
uint32_t reduce(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending) {
    const RowReductionTask task = {nrows, ncols,   nred, rank,         pivsig,
                                   extra, pivcols, mode, detonly != 0, {pending, maxpending}};
    return with_standard_mode([&] {
        return row_reduce(
            RowReduction{task, kernel_ring(p, pinv), matrix<c_order>(A, ld), entries(det), entries(pivprod)});
    });
}

template <bool c_order, class W>
uint32_t factor(MODLA_LU_ARGUMENTS(W)) {
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

#define REDUCE A, nrows, ncols, nred, ld, p, pinv, det, pivprod, rank, pivsig, extra, pivcols, mode, detonly
#define LU A, perm, n, ld, p, pinv, det, pending, maxpending
#define SOLVE T, n, ldT, B, nrhs, ldB, p, pinv, maxpending
#define GCD data, k, cols, stride, p, pinv, c

uint32_t modLA_reduce_C_iw(MODLA_REDUCE_ARGUMENTS(uint32_t)) {
    return reduce<true>(REDUCE, nullptr, 1);
}
uint32_t modLA_reduce_F_iw(MODLA_REDUCE_ARGUMENTS(uint32_t)) {
    return reduce<false>(REDUCE, nullptr, 1);
}
uint32_t modLA_reduce_C_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending) {
    return reduce<true>(REDUCE, pending, maxpending);
}
uint32_t modLA_reduce_F_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending) {
    return reduce<false>(REDUCE, pending, maxpending);
}
uint32_t modLA_reduce_C_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending) {
    return reduce<true>(REDUCE, pending, maxpending);
}
uint32_t modLA_reduce_F_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending) {
    return reduce<false>(REDUCE, pending, maxpending);
}

uint32_t modLA_LU_C_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    return factor<true>(LU);
}
uint32_t modLA_LU_F_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    return factor<false>(LU);
}
uint32_t modLA_LU_C_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return factor<true>(LU);
}
uint32_t modLA_LU_F_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return factor<false>(LU);
}

uint32_t modLA_ForSub_C_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t)) {
    return solve<true>(SOLVE, true, unitdiag != 0);
}
uint32_t modLA_ForSub_F_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t)) {
    return solve<false>(SOLVE, true, unitdiag != 0);
}
uint32_t modLA_ForSub_C_f_nop(MODLA_FORSUB_ARGUMENTS(double)) {
    return solve<true>(SOLVE, true, unitdiag != 0);
}
uint32_t modLA_ForSub_F_f_nop(MODLA_FORSUB_ARGUMENTS(double)) {
    return solve<false>(SOLVE, true, unitdiag != 0);
}

uint32_t modLA_BackSub_C_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t)) {
    return solve<true>(SOLVE, false, false);
}
uint32_t modLA_BackSub_F_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t)) {
    return solve<false>(SOLVE, false, false);
}
uint32_t modLA_BackSub_C_f_nop(MODLA_BACKSUB_ARGUMENTS(double)) {
    return solve<true>(SOLVE, false, false);
}
uint32_t modLA_BackSub_F_f_nop(MODLA_BACKSUB_ARGUMENTS(double)) {
    return solve<false>(SOLVE, false, false);
}

int32_t modLA_RowGcd_C_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    return gcd<true>(GCD);
}
int32_t modLA_RowGcd_F_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    return gcd<false>(GCD);
}
int32_t modLA_RowGcd_C_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return gcd<true>(GCD);
}
int32_t modLA_RowGcd_F_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return gcd<false>(GCD);
}

int32_t modLA_ZigZag_C_iw(uint32_t *data, int32_t n, uint32_t p, double pinv, int32_t) {
    return zigzag<true>(data, n, p, pinv);
}
int32_t modLA_ZigZag_F_iw(uint32_t *data, int32_t n, uint32_t p, double pinv, int32_t) {
    return zigzag<false>(data, n, p, pinv);
}
int32_t modLA_ZigZag_C_f(double *data, int32_t n, double p, double pinv, int32_t) {
    return zigzag<true>(data, n, p, pinv);
}
int32_t modLA_ZigZag_F_f(double *data, int32_t n, double p, double pinv, int32_t) {
    return zigzag<false>(data, n, p, pinv);
}
