// The classical kernels under their names.  All members of a family compute the same product; the second letter tells
// the schedule of reductions that the caller has room for, the first whether zeros of A are worth a test.
#include "products/classical.h"
#include "products/kernel_arguments.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

void multiply_words(MODLA_PRODUCT_ARGUMENTS(uint32_t), bool sparse) {
    (void)pinv;
    multiply_blocks(make_word(p), m, k, n, factor<uint32_t>(A, ars, acs), factor<uint32_t>(B, brs, bcs),
                    result<uint32_t>(C, crs, ccs), sparse);
}

void multiply_floats(MODLA_PRODUCT_ARGUMENTS(double), bool sparse) {
    with_standard_mode([&] {
        multiply_blocks(Float{p, pinv}, m, k, n, factor<StoredDouble>(A, ars, acs), factor<StoredDouble>(B, brs, bcs),
                        result<StoredDouble>(C, crs, ccs), sparse);
    });
}

}  // namespace

#define OPERANDS p, pinv, m, k, n, A, ars, acs, B, brs, bcs, C, crs, ccs

void modLA_MatMatMult_iw(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t, uint32_t, int32_t sparse) {
    multiply_words(OPERANDS, sparse != 0);
}
void modLA_MatMatMult_f(MODLA_PRODUCT_ARGUMENTS(double), int32_t, double, int32_t sparse) {
    multiply_floats(OPERANDS, sparse != 0);
}

void modLA_MatMatMult_iw_SE(MODLA_PRODUCT_ARGUMENTS(uint32_t)) {
    multiply_words(OPERANDS, true);
}
void modLA_MatMatMult_iw_SN(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t) {
    multiply_words(OPERANDS, true);
}
void modLA_MatMatMult_iw_S1(MODLA_PRODUCT_ARGUMENTS(uint32_t)) {
    multiply_words(OPERANDS, true);
}
void modLA_MatMatMult_iw_NE(MODLA_PRODUCT_ARGUMENTS(uint32_t)) {
    multiply_words(OPERANDS, false);
}
void modLA_MatMatMult_iw_NN(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t) {
    multiply_words(OPERANDS, false);
}
void modLA_MatMatMult_iw_N1(MODLA_PRODUCT_ARGUMENTS(uint32_t)) {
    multiply_words(OPERANDS, false);
}

void modLA_MatMatMult_f_SN(MODLA_PRODUCT_ARGUMENTS(double), int32_t, double) {
    multiply_floats(OPERANDS, true);
}
void modLA_MatMatMult_f_S1(MODLA_PRODUCT_ARGUMENTS(double)) {
    multiply_floats(OPERANDS, true);
}
void modLA_MatMatMult_f_NN(MODLA_PRODUCT_ARGUMENTS(double), int32_t, double) {
    multiply_floats(OPERANDS, false);
}
void modLA_MatMatMult_f_N1(MODLA_PRODUCT_ARGUMENTS(double)) {
    multiply_floats(OPERANDS, false);
}
