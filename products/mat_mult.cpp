// The general products: which kernel, and its workspace.
#include <algorithm>

#include "host/rtable.h"
#include "modla.h"
#include "products/product_choice.h"
#include "scalar/fp_mode.h"
#include "scalar/residue.h"

using namespace modla;

namespace {

// Headroom: the largest sum that may take one more product.
uint64_t headroom(uint64_t limit, uint32_t p) {
    return limit - 1 - static_cast<uint64_t>(p - 1) * (p - 1);
}

// The given workspace, or a new host object's storage when it is too short.
struct Workspace {
    void *data;
    HostObject object;  // 0: none was created
};
bool provide(const HostApi *api, void *given, int32_t length, int64_t needed, int32_t datatype, Workspace *workspace) {
    *workspace = {given, 0};
    if (length >= needed) return true;
    Block block;
    if (!new_block(api, 1, static_cast<int32_t>(needed), datatype, MODLA_C_ORDER, &block)) return false;
    *workspace = {block.data, block.object};
    return true;
}

}  // namespace

#define OPERANDS p, pinv, m, k, n, A, ars, acs, B, brs, bcs, C, crs, ccs

HostObject modLA_MatMult_iw(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse, uint32_t *workspace,
                            int32_t length, int32_t threshold) {
    const int32_t L = pending_bound<Word>(p);
    const uint32_t T = static_cast<uint32_t>(headroom(Word::limit, p));
    if (k == 1 || m == 1 || n == 1 || m <= threshold || k <= threshold || n <= threshold) {
        modLA_MatMatMult_iw(OPERANDS, L, T, sparse);
        return api->NullValue();
    }
    Workspace work;
    if (!provide(api, workspace, length, strassen_workspace(m, k, n), MODLA_INTEGER4, &work)) return api->NullValue();
    modLA_StrMatMult_iw(OPERANDS, static_cast<uint32_t *>(work.data), L, T, sparse,
                        std::max(threshold, strassen_words_break_even));
    return work.object ? work.object : api->NullValue();
}

HostObject modLA_MatMult_f(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse, double *workspace,
                           int32_t length) {
    const uint32_t modulus = modulus_of(p);
    const int32_t L = pending_bound<Float>(modulus);
    const double T = static_cast<double>(static_cast<int64_t>(headroom(Float::limit, modulus)));
    if (k == 1) {
        modLA_MatMatMult_f(OPERANDS, L, T, sparse);
        return api->NullValue();
    }
    if (k <= L) {
        modLA_MatMatBLAS(OPERANDS, L, T, sparse);
        return api->NullValue();
    }
    const BlasRecursion recursion = blas_recursion(m, k, n, L);
    const bool blas_base = int64_t{recursion.m} * recursion.n > 63;
    if (!blas_base && !with_standard_mode([&] { return strassen_pays(m, k, n); })) {
        modLA_MatMatMult_f(OPERANDS, L, T, sparse);
        return api->NullValue();
    }
    Workspace work;
    const int64_t needed = blas_base ? recursion.workspace : strassen_workspace(m, k, n);
    if (!provide(api, workspace, length, needed, MODLA_FLOAT8, &work)) return api->NullValue();
    modLA_StrMatMult_f(OPERANDS, static_cast<double *>(work.data), L, T, sparse, blas_base);
    return work.object ? work.object : api->NullValue();
}
