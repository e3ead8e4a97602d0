// The general products: which kernel, and its workspace.
#include "products/mat_mult.h"

#include <algorithm>

#include "host/rtable.h"
#include "modla.h"
#include "products/product_choice.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

// Headroom: the largest sum that may take one more product.
uint64_t headroom(uint64_t limit, uint32_t p) {
    return limit - 1 - static_cast<uint64_t>(p - 1) * (p - 1);
}

// The given workspace, or a new host object's storage when it is too short.  A size beyond 31 bits is asked for as the
// largest that there is, which no host can hold: its error is raised.
bool provide(const HostApi *api, void *given, int32_t length, int64_t needed, int32_t datatype, void **workspace,
             HostObject *created) {
    *workspace = given;
    if (length >= needed) return true;
    Block block;
    const int32_t entries = static_cast<int32_t>(std::min<int64_t>(needed, INT32_MAX));
    if (!new_block(api, 1, entries, datatype, MODLA_C_ORDER, &block)) return false;
    *workspace = block.data;
    *created = block.object;
    return true;
}

}  // namespace

#define OPERANDS p, pinv, m, k, n, A, ars, acs, B, brs, bcs, C, crs, ccs

bool modla::multiply_words(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse, uint32_t *workspace,
                           int32_t length, int32_t threshold, HostObject *created) {
    *created = 0;
    const int32_t L = pending_bound<Word>(p);
    const uint32_t T = static_cast<uint32_t>(headroom(Word::limit, p));
    if (k == 1 || m == 1 || n == 1 || m <= threshold || k <= threshold || n <= threshold) {
        modLA_MatMatMult_iw(OPERANDS, L, T, sparse);
        return true;
    }
    void *work;
    if (!provide(api, workspace, length, strassen_workspace(m, k, n), MODLA_INTEGER4, &work, created)) return false;
    modLA_StrMatMult_iw(OPERANDS, static_cast<uint32_t *>(work), L, T, sparse,
                        std::max(threshold, strassen_words_break_even));
    return true;
}

bool modla::multiply_floats(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse, double *workspace,
                            int32_t length, HostObject *created) {
    *created = 0;
    const uint32_t modulus = modulus_of(p);
    const int32_t L = pending_bound<Float>(modulus);
    const double T = static_cast<double>(static_cast<int64_t>(headroom(Float::limit, modulus)));
    if (k == 1) {
        modLA_MatMatMult_f(OPERANDS, L, T, sparse);
        return true;
    }
    if (k <= L) {
        modLA_MatMatBLAS(OPERANDS, L, T, sparse);
        return true;
    }
    const BlasRecursion recursion = blas_recursion(m, k, n, L);
    const bool blas_base = int64_t{recursion.m} * recursion.n > 63;
    if (!blas_base && !with_standard_mode([&] { return strassen_pays(m, k, n); })) {
        modLA_MatMatMult_f(OPERANDS, L, T, sparse);
        return true;
    }
    void *work;
    const int64_t needed = blas_base ? recursion.workspace : strassen_workspace(m, k, n);
    if (!provide(api, workspace, length, needed, MODLA_FLOAT8, &work, created)) return false;
    modLA_StrMatMult_f(OPERANDS, static_cast<double *>(work), L, T, sparse, blas_base);
    return true;
}

HostObject modLA_MatMult_iw(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse, uint32_t *workspace,
                            int32_t length, int32_t threshold) {
    HostObject created;
    multiply_words(api, OPERANDS, sparse, workspace, length, threshold, &created);
    return created ? created : api->NullValue();
}

HostObject modLA_MatMult_f(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse, double *workspace,
                           int32_t length) {
    HostObject created;
    multiply_floats(api, OPERANDS, sparse, workspace, length, &created);
    return created ? created : api->NullValue();
}
