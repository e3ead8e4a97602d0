#include "values/polynomial.h"

#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

uint32_t modzppolyeval_iw(HostObject poly, uint32_t *table, uint32_t p) {
    return evaluate_polynomial(word_ring(p), poly, table);
}

double modzppolyeval_f(HostObject poly, double *table, double p, double pinv) {
    return with_standard_mode([&] { return evaluate_polynomial(FloatRing{p, pinv}, poly, entries(table)); });
}
