#include "products/strassen.h"

#include "products/blas_product.h"
#include "products/kernel_arguments.h"
#include "products/product_choice.h"
#include "residue/fp_mode.h"

using namespace modla;

void modLA_StrMatMult_iw(MODLA_PRODUCT_ARGUMENTS(uint32_t), uint32_t *workspace, int32_t, uint32_t, int32_t sparse,
                         int32_t threshold) {
    (void)pinv;
    const Word word = make_word(p);
    const int32_t smallest = std::max(threshold, 1);
    const auto base = [&](const StrassenProduct<Word> &product) {
        const auto &[rows, inner, columns, left, right, target] = product;
        if (rows > smallest && inner > smallest && columns > smallest) return false;
        multiply_blocks(word, rows, inner, columns, left, right, target, sparse != 0);
        return true;
    };
    multiply_strassen(
        word, {m, k, n, factor<uint32_t>(A, ars, acs), factor<uint32_t>(B, brs, bcs), result<uint32_t>(C, crs, ccs)},
        workspace, base);
}

void modLA_StrMatMult_f(MODLA_PRODUCT_ARGUMENTS(double), double *workspace, int32_t L, double, int32_t sparse,
                        int32_t mode) {
    with_standard_mode([&] {
        const Float residue = {p, pinv};
        const auto base = [&](const StrassenProduct<Float> &product) {
            const auto &[rows, inner, columns, left, right, target] = product;
            if (mode != 0 && inner <= L) {
                multiply_with_blas(residue, rows, inner, columns, left, right, target, sparse != 0);
                return true;
            }
            if (std::min({rows, inner, columns}) >= 2 && (mode != 0 || strassen_pays(rows, inner, columns)))
                return false;
            multiply_blocks(residue, rows, inner, columns, left, right, target, sparse != 0);
            return true;
        };
        multiply_strassen(residue,
                          {m, k, n, factor<StoredDouble>(A, ars, acs), factor<StoredDouble>(B, brs, bcs),
                           result<StoredDouble>(C, crs, ccs)},
                          reinterpret_cast<StoredDouble *>(workspace), base);
    });
}
