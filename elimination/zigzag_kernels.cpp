#include "elimination/zigzag.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Ring, bool c_order>
int32_t run(const Ring &ring, void *data, int32_t n, uint32_t p) {
    using Entry = typename Ring::Entry;
    const int32_t limit = p < 2 ? 1 : delay_bound<Ring>(p);
    const ZigZag<Ring, Matrix<Entry, c_order>> matrix = {ring, {static_cast<Entry *>(data), n}, n, limit};
    return with_standard_mode([&] { return make_zigzag(matrix); });
}

}  // namespace

// The count of the interface is not needed: the bound on postponed sums follows from p.
int32_t modLA_ZigZag_C_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t)) {
    (void)pinv, (void)count;
    return run<WordRing, true>(word_ring(p), data, n, p);
}

int32_t modLA_ZigZag_F_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t)) {
    (void)pinv, (void)count;
    return run<WordRing, false>(word_ring(p), data, n, p);
}

int32_t modLA_ZigZag_C_f(MODLA_ZIGZAG_ARGUMENTS(double)) {
    (void)count;
    return run<FloatRing, true>({p, pinv}, data, n, modulus_of(p));
}

int32_t modLA_ZigZag_F_f(MODLA_ZIGZAG_ARGUMENTS(double)) {
    (void)count;
    return run<FloatRing, false>({p, pinv}, data, n, modulus_of(p));
}
