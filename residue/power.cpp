#include "residue/power.h"

#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

uint32_t modpow_iw(uint32_t a, int32_t e, uint32_t p) {
    return power(make_word(p), a, e);
}

double modpow_f(double a, int32_t e, double p, double pinv) {
    return with_standard_mode([&] { return power(Float{p, pinv}, a, e); });
}

uint32_t modunknpow_iw(uint32_t *table, int32_t e, uint32_t p) {
    return power_from_table(make_word(p), table, e);
}

double modunknpow_f(double *table, int32_t e, double p, double pinv) {
    return with_standard_mode([&] {
        return power_from_table(Float{p, pinv}, reinterpret_cast<StoredDouble *>(table), e);
    });
}
