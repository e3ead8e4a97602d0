#include "elimination/lu.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Residue, bool c_order>
uint32_t run(const Residue &residue, void *A, int32_t *perm, int32_t n, int32_t ld, void *det, int32_t *pending,
             int32_t maxpending) {
    using Entry = typename Residue::Entry;
    const Factorization<Residue, Matrix<Entry, c_order>> factorization = {
        residue, {static_cast<Entry *>(A), ld}, n, perm, static_cast<Entry *>(det), {pending, maxpending}};
    return with_standard_mode([&] { return factor(factorization); });
}

}  // namespace

uint32_t modLA_LU_C_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<Word, true>(make_word(p), A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_F_iw_nop(MODLA_LU_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<Word, false>(make_word(p), A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_C_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return run<Float, true>({p, pinv}, A, perm, n, ld, det, pending, maxpending);
}

uint32_t modLA_LU_F_f_nop(MODLA_LU_ARGUMENTS(double)) {
    return run<Float, false>({p, pinv}, A, perm, n, ld, det, pending, maxpending);
}
