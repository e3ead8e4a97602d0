// The kernels of products under their exported names.  All classical ones compute the same product; the second letter of
// their suffix tells the schedule of reductions that the caller has room for, the first whether zeros of A are worth a
// test.
#include "modla.h"
#include "products/blas_product.h"
#include "products/block_sum.h"
#include "products/classical.h"
#include "products/general_product.h"
#include "products/strassen.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

template <class W>
auto operand(W *data, int32_t row_step, int32_t column_step) {
    return Operand<std::remove_pointer_t<decltype(entries(data))>>{entries(data), {row_step, column_step}};
}

template <class W>
auto product(MODLA_PRODUCT_ARGUMENTS(W), bool sparse) {
    (void)p, (void)pinv;
    return Product<std::remove_pointer_t<decltype(entries(C))>>{
        m, k, n, operand(A, ars, acs), operand(B, brs, bcs), operand(C, crs, ccs), sparse};
}

template <class W>
void classical(MODLA_PRODUCT_ARGUMENTS(W), bool sparse) {
    const auto operands = product(p, pinv, m, k, n, A, ars, acs, B, brs, bcs, C, crs, ccs, sparse);
    with_standard_mode([&] { multiply_classically(kernel_ring(p, pinv), operands); });
}

template <class W, class Operation>
void combine(MODLA_BLOCK_SUM_ARGUMENTS(W), Operation operation) {
    with_standard_mode([&] {
        combine_blocks({rows, cols}, operand(A, ars, acs), operand(B, brs, bcs), operand(C, crs, ccs), operation(p));
    });
}

}  // namespace

#define OPERANDS p, pinv, m, k, n, A, ars, acs, B, brs, bcs, C, crs, ccs

HostObject modLA_MatMult_iw(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse, uint32_t *workspace,
                            int32_t length, int32_t threshold) {
    HostObject created;
    multiply(api, word_ring(p), product(OPERANDS, sparse != 0), {workspace, length, threshold}, &created);
    return created ? created : api->NullValue();
}
HostObject modLA_MatMult_f(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse, double *workspace,
                           int32_t length) {
    HostObject created;
    multiply(api, FloatRing{p, pinv}, product(OPERANDS, sparse != 0), {entries(workspace), length}, &created);
    return created ? created : api->NullValue();
}

#define CLASSICAL(name, W, sparse, ...)                                \
    void name(MODLA_PRODUCT_ARGUMENTS(W) __VA_OPT__(, ) __VA_ARGS__) { \
        classical(OPERANDS, sparse);                                   \
    }
CLASSICAL(modLA_MatMatMult_iw, uint32_t, sparse != 0, int32_t, uint32_t, int32_t sparse)
CLASSICAL(modLA_MatMatMult_f, double, sparse != 0, int32_t, double, int32_t sparse)
CLASSICAL(modLA_MatMatMult_iw_SE, uint32_t, true)
CLASSICAL(modLA_MatMatMult_iw_SN, uint32_t, true, int32_t)
CLASSICAL(modLA_MatMatMult_iw_S1, uint32_t, true)
CLASSICAL(modLA_MatMatMult_iw_NE, uint32_t, false)
CLASSICAL(modLA_MatMatMult_iw_NN, uint32_t, false, int32_t)
CLASSICAL(modLA_MatMatMult_iw_N1, uint32_t, false)
CLASSICAL(modLA_MatMatMult_f_SN, double, true, int32_t, double)
CLASSICAL(modLA_MatMatMult_f_S1, double, true)
CLASSICAL(modLA_MatMatMult_f_NN, double, false, int32_t, double)
CLASSICAL(modLA_MatMatMult_f_N1, double, false)

void modLA_MatMatBLAS(MODLA_PRODUCT_ARGUMENTS(double), int32_t, double, int32_t sparse) {
    with_standard_mode([&] { multiply_with_blas({p, pinv}, product(OPERANDS, sparse != 0)); });
}

void modLA_StrMatMult_iw(MODLA_PRODUCT_ARGUMENTS(uint32_t), uint32_t *workspace, int32_t, uint32_t, int32_t sparse,
                         int32_t threshold) {
    multiply_by_strassen(word_ring(p), product(OPERANDS, sparse != 0), workspace, threshold);
}
void modLA_StrMatMult_f(MODLA_PRODUCT_ARGUMENTS(double), double *workspace, int32_t L, double, int32_t sparse,
                        int32_t mode) {
    with_standard_mode([&] {
        multiply_by_strassen({p, pinv}, product(OPERANDS, sparse != 0), entries(workspace), L, mode != 0);
    });
}

#define BLOCKS p, rows, cols, A, ars, acs, B, brs, bcs, C, crs, ccs
void modLA_MatMatAdd_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t)) {
    combine(BLOCKS, residue_sum<uint32_t>);
}
void modLA_MatMatAdd_f(MODLA_BLOCK_SUM_ARGUMENTS(double)) {
    combine(BLOCKS, residue_sum<double>);
}
void modLA_MatMatSub_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t)) {
    combine(BLOCKS, positive_difference<uint32_t>);
}
void modLA_MatMatSub_f(MODLA_BLOCK_SUM_ARGUMENTS(double)) {
    combine(BLOCKS, positive_difference<double>);
}
