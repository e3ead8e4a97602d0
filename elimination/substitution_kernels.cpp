#include "elimination/triangular_solve.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Ring, bool c_order>
uint32_t run(const Ring &ring, const void *T, int32_t n, int32_t ldT, void *B, int32_t nrhs, int32_t ldB, bool forward,
             bool unit_diagonal, int32_t maxpending) {
    using Entry = typename Ring::Entry;
    const Matrix<const Entry, c_order> triangle = {static_cast<const Entry *>(T), ldT};
    const auto run_with = [&](auto right_hand_sides, int32_t columns) {
        const TriangularSolve<Ring, decltype(triangle), decltype(right_hand_sides)> system = {
            ring, triangle, n, right_hand_sides, columns, forward, unit_diagonal, maxpending};
        return with_standard_mode([&] { return triangular_solve(system); });
    };
    // A single vector is a matrix of one column, its entries ldB apart.
    if (nrhs == 0) return run_with(Matrix<Entry, true>{static_cast<Entry *>(B), ldB}, 1);
    return run_with(Matrix<Entry, c_order>{static_cast<Entry *>(B), ldB}, nrhs);
}

}  // namespace

uint32_t modLA_ForSub_C_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), T, n, ldT, B, nrhs, ldB, true, unitdiag != 0, maxpending);
}

uint32_t modLA_ForSub_F_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), T, n, ldT, B, nrhs, ldB, true, unitdiag != 0, maxpending);
}

uint32_t modLA_ForSub_C_f_nop(MODLA_FORSUB_ARGUMENTS(double)) {
    return run<FloatRing, true>({p, pinv}, T, n, ldT, B, nrhs, ldB, true, unitdiag != 0, maxpending);
}

uint32_t modLA_ForSub_F_f_nop(MODLA_FORSUB_ARGUMENTS(double)) {
    return run<FloatRing, false>({p, pinv}, T, n, ldT, B, nrhs, ldB, true, unitdiag != 0, maxpending);
}

uint32_t modLA_BackSub_C_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), T, n, ldT, B, nrhs, ldB, false, false, maxpending);
}

uint32_t modLA_BackSub_F_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), T, n, ldT, B, nrhs, ldB, false, false, maxpending);
}

uint32_t modLA_BackSub_C_f_nop(MODLA_BACKSUB_ARGUMENTS(double)) {
    return run<FloatRing, true>({p, pinv}, T, n, ldT, B, nrhs, ldB, false, false, maxpending);
}

uint32_t modLA_BackSub_F_f_nop(MODLA_BACKSUB_ARGUMENTS(double)) {
    return run<FloatRing, false>({p, pinv}, T, n, ldT, B, nrhs, ldB, false, false, maxpending);
}
