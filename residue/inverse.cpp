#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

uint32_t modinverse_iw(uint32_t a, uint32_t p) {
    uint32_t inverse;
    word_ring(p).invert(a, &inverse);
    return inverse;
}

double modinverse_f(double a, double p, double pinv) {
    return with_standard_mode([&] {
        double inverse;
        FloatRing{p, pinv}.invert(a, &inverse);
        return inverse;
    });
}
