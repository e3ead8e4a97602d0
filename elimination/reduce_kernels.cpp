#include "elimination/row_reduction.h"
#include "modla.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Ring, bool c_order>
uint32_t run(const Ring &ring, void *A, int32_t nrows, int32_t ncols, int32_t nred, int32_t ld, void *det,
             void *pivprod, int32_t *rank, int32_t *pivsig, int32_t *extra, int32_t *pivcols, int32_t mode,
             int32_t detonly, int32_t *pending, int32_t maxpending) {
    using Entry = typename Ring::Entry;
    const RowReduction<Ring, Matrix<Entry, c_order>> reduction = {ring,
                                                                  {static_cast<Entry *>(A), ld},
                                                                  nrows,
                                                                  ncols,
                                                                  nred,
                                                                  static_cast<Entry *>(det),
                                                                  static_cast<Entry *>(pivprod),
                                                                  rank,
                                                                  pivsig,
                                                                  extra,
                                                                  pivcols,
                                                                  mode,
                                                                  detonly != 0,
                                                                  {pending, maxpending}};
    return with_standard_mode([&] { return row_reduce(reduction); });
}

}  // namespace

uint32_t modLA_reduce_C_iw(MODLA_REDUCE_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols,
                               mode, detonly, nullptr, 1);
}

uint32_t modLA_reduce_F_iw(MODLA_REDUCE_ARGUMENTS(uint32_t)) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols,
                                mode, detonly, nullptr, 1);
}

uint32_t modLA_reduce_C_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending) {
    (void)pinv;
    return run<WordRing, true>(word_ring(p), A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols,
                               mode, detonly, pending, maxpending);
}

uint32_t modLA_reduce_F_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending) {
    (void)pinv;
    return run<WordRing, false>(word_ring(p), A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols,
                                mode, detonly, pending, maxpending);
}

uint32_t modLA_reduce_C_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending) {
    return run<FloatRing, true>({p, pinv}, A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols, mode,
                                detonly, pending, maxpending);
}

uint32_t modLA_reduce_F_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending) {
    return run<FloatRing, false>({p, pinv}, A, nrows, ncols, nred, ld, det, pivprod, rank, pivsig, extra, pivcols, mode,
                                 detonly, pending, maxpending);
}
