#include "elimination/lu_factor.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Ring, bool c_order>
uint32_t run(const Ring &ring, void *A, int32_t *perm, int32_t n, int32_t ld, void *det, int32_t *pending,
             int32_t maxpending) {
    using Entry = typename Ring::Entry;
    const LUFactorization<Ring, Matrix<Entry, c_order>> factorization = {
        ring, {static_cast<Entry *>(A), ld}, n, perm, static_cast<Entry *>(det), {pending, maxpending}};
    return with_standard_mode([&] { return lu_factor(factorization); });
}

}  // namespace

uint32_t modLA_LU_C_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_F_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_C_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return run<FloatRing, true>({p, pinv}, A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_F_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return run<FloatRing, false>({p, pinv}, A, perm, n, ld, det, pending, maxpending);
}
