#include <algorithm>

#include "elimination/row_gcd.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Ring, bool c_order>
int32_t run(const Ring &ring, void *data, int32_t k, int32_t cols, int32_t stride, int32_t c) {
    using Entry = typename Ring::Entry;
    const RowGcd<Ring, Matrix<Entry, c_order>> polynomials = {
        ring, {static_cast<Entry *>(data), stride}, std::max(k, 1), std::max(cols, 0), c};
    return with_standard_mode([&] { return find_row_gcd(polynomials); });
}

}  // namespace

int32_t modLA_RowGcd_C_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), data, k, cols, stride, c);
}

int32_t modLA_RowGcd_F_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), data, k, cols, stride, c);
}

int32_t modLA_RowGcd_C_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return run<FloatRing, true>({p, pinv}, data, k, cols, stride, c);
}

int32_t modLA_RowGcd_F_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return run<FloatRing, false>({p, pinv}, data, k, cols, stride, c);
}
