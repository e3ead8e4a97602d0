#include "elimination/zigzag.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Residue, bool c_order>
int32_t run(const Residue &residue, void *data, int32_t n, uint32_t p) {
    using Entry = typename Residue::Entry;
    const int32_t limit = p < 2 ? 1 : pending_bound<Residue>(p);
    const ZigZag<Residue, Matrix<Entry, c_order>> matrix = {residue, {static_cast<Entry *>(data), n}, n, limit};
    return with_standard_mode([&] { return make_zigzag(matrix); });
}

}  // namespace

// The count of the interface is not needed: the bound on postponed sums follows from p.
int32_t modLA_ZigZag_C_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t)) {
    (void)pinv, (void)count;
    return run<Word, true>(make_word(p), data, n, p);
}

int32_t modLA_ZigZag_F_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t)) {
    (void)pinv, (void)count;
    return run<Word, false>(make_word(p), data, n, p);
}

int32_t modLA_ZigZag_C_f(MODLA_ZIGZAG_ARGUMENTS(double)) {
    (void)count;
    return run<Float, true>({p, pinv}, data, n, modulus_of(p));
}

int32_t modLA_ZigZag_F_f(MODLA_ZIGZAG_ARGUMENTS(double)) {
    (void)count;
    return run<Float, false>({p, pinv}, data, n, modulus_of(p));
}
