#include "residue/power.h"

#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

uint32_t modpow_iw(uint32_t a, int32_t e, uint32_t p) {
    return power(word_ring(p), a, e);
}

double modpow_f(double a, int32_t e, double p, double pinv) {
    return with_standard_mode([&] { return power(FloatRing{p, pinv}, a, e); });
}

uint32_t modunknpow_iw(uint32_t *table, int32_t e, uint32_t p) {
    return power_from_table(word_ring(p), table, e);
}

double modunknpow_f(double *table, int32_t e, double p, double pinv) {
    return with_standard_mode([&] { return power_from_table(FloatRing{p, pinv}, entries(table), e); });
}
