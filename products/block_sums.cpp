#include "products/block_sum.h"
#include "products/kernel_arguments.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class Entry, class W, class Operation>
void combine(int32_t rows, int32_t cols, const W *A, int32_t ars, int32_t acs, const W *B, int32_t brs, int32_t bcs,
             W *C, int32_t crs, int32_t ccs, Operation operation) {
    with_standard_mode([&] {
        combine_blocks(rows, cols, factor<Entry>(A, ars, acs), factor<Entry>(B, brs, bcs), result<Entry>(C, crs, ccs),
                       operation);
    });
}

}  // namespace

#define BLOCKS rows, cols, A, ars, acs, B, brs, bcs, C, crs, ccs

void modLA_MatMatAdd_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t)) {
    combine<uint32_t>(BLOCKS, residue_sum(p));
}
void modLA_MatMatAdd_f(MODLA_BLOCK_SUM_ARGUMENTS(double)) {
    combine<StoredDouble>(BLOCKS, residue_sum(p));
}
void modLA_MatMatSub_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t)) {
    combine<uint32_t>(BLOCKS, positive_difference(p));
}
void modLA_MatMatSub_f(MODLA_BLOCK_SUM_ARGUMENTS(double)) {
    combine<StoredDouble>(BLOCKS, positive_difference(p));
}
