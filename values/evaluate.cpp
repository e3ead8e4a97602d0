#include "values/evaluate.h"

#include "modla.h"
#include "residue/ring.h"

using namespace modla;

uint32_t modeval_iw(const HostApi *api, uint32_t p, HostObject object, const HostObject *names, uint32_t *tables,
                    int32_t n) {
    Evaluation<WordRing> evaluation = {api, word_ring(p), names, tables, n};
    uint32_t value;
    if (evaluate(evaluation, object, &value)) return value;
    raise_failure(evaluation);
    return 0;
}

double modeval_f(const HostApi *api, double p, uint32_t, HostObject object, const HostObject *names, double *tables,
                 int32_t n, double pinv) {
    Evaluation<FloatRing> evaluation = {api, {p, pinv}, names, entries(tables), n};
    double value = 0;
    const bool evaluated = with_standard_mode_around([&](FpMode &host_mode) {
        evaluation.host_mode = &host_mode;
        return evaluate(evaluation, object, &value);
    });
    if (evaluated) return value;
    raise_failure(evaluation);
    return 0;
}
