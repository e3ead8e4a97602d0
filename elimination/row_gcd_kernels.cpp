#include <algorithm>

#include "elimination/row_gcd.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Residue, bool c_order>
int32_t run(const Residue &residue, void *data, int32_t k, int32_t cols, int32_t stride, int32_t c) {
    using Entry = typename Residue::Entry;
    const RowGcd<Residue, Matrix<Entry, c_order>> polynomials = {
        residue, {static_cast<Entry *>(data), stride}, std::max(k, 1), std::max(cols, 0), c};
    return with_standard_mode([&] { return find_row_gcd(polynomials); });
}

}  // namespace

int32_t modLA_RowGcd_C_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<Word, true>(make_word(p), data, k, cols, stride, c);
}

int32_t modLA_RowGcd_F_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<Word, false>(make_word(p), data, k, cols, stride, c);
}

int32_t modLA_RowGcd_C_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return run<Float, true>({p, pinv}, data, k, cols, stride, c);
}

int32_t modLA_RowGcd_F_f(MODLA_ROW_GCD_ARGUMENTS(double)) {
    return run<Float, false>({p, pinv}, data, k, cols, stride, c);
}
