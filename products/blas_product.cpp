#include "products/blas_product.h"

#include "engine/blas.h"

using namespace modla;

namespace {

using Factor = Operand<const StoredDouble>;

int as_int(ptrdiff_t step) {
    return static_cast<int>(step);
}

// How CBLAS is told of a factor, for results by rows (row_major) or by columns.
struct BlasFactor {
    CBLAS_TRANSPOSE transpose;
    int ld;
    bool usable;
};

// A rows x columns factor: stored along the result's direction as it is, or transposed.
BlasFactor describe(Factor factor, int32_t rows, int32_t columns, bool row_major) {
    const ptrdiff_t along = row_major ? factor.steps.column : factor.steps.row;
    const ptrdiff_t across = row_major ? factor.steps.row : factor.steps.column;
    const int32_t along_count = row_major ? columns : rows, across_count = row_major ? rows : columns;
    // A leading dimension below the line's length is fine only where there is no second line.
    const auto check = [](CBLAS_TRANSPOSE transpose, ptrdiff_t ld, int32_t length, int32_t lines) {
        if (ld >= length) return BlasFactor{transpose, as_int(ld), true};
        return BlasFactor{transpose, length, lines == 1};
    };
    if (along == 1) return check(CblasNoTrans, across, along_count, across_count);
    if (across == 1) return check(CblasTrans, along, across_count, along_count);
    return {CblasNoTrans, 0, false};
}

// Calls CBLAS when the shapes and strides are ones that it takes.
bool call_blas(const Product<StoredDouble> &product) {
    const auto &[m, k, n, A, B, C, sparse] = product;
    const double *const a = &A.data->value;
    const double *const b = &B.data->value;
    double *const c = &C.data->value;
    if (!is_blas_aligned(a) || !is_blas_aligned(b) || !is_blas_aligned(c)) return false;
    if (m == 1 && n == 1) {
        if (A.steps.column <= 0 || B.steps.row <= 0) return false;
        *c = cblas_ddot(k, a, as_int(A.steps.column), b, as_int(B.steps.row));
        return true;
    }
    if (!has_blas_workspace()) return false;
    if (n == 1) {
        const BlasFactor matrix = describe(A, m, k, true);
        if (!matrix.usable || B.steps.row <= 0 || C.steps.row <= 0) return false;
        const bool rows = matrix.transpose == CblasNoTrans;
        cblas_dgemv(rows ? CblasRowMajor : CblasColMajor, CblasNoTrans, m, k, 1.0, a, matrix.ld, b, as_int(B.steps.row),
                    0.0, c, as_int(C.steps.row));
        return true;
    }
    if (m == 1) {
        const BlasFactor matrix = describe(B, k, n, true);
        if (!matrix.usable || A.steps.column <= 0 || C.steps.column <= 0) return false;
        const bool rows = matrix.transpose == CblasNoTrans;
        cblas_dgemv(rows ? CblasRowMajor : CblasColMajor, CblasTrans, k, n, 1.0, b, matrix.ld, a,
                    as_int(A.steps.column), 0.0, c, as_int(C.steps.column));
        return true;
    }
    const bool row_major = C.steps.column == 1;
    if (!row_major && C.steps.row != 1) return false;
    const ptrdiff_t ldc = row_major ? C.steps.row : C.steps.column;
    const BlasFactor left = describe(A, m, k, row_major), right = describe(B, k, n, row_major);
    if (!left.usable || !right.usable || ldc < (row_major ? n : m)) return false;
    cblas_dgemm(row_major ? CblasRowMajor : CblasColMajor, left.transpose, right.transpose, m, n, k, 1.0, a, left.ld, b,
                right.ld, 0.0, c, as_int(ldc));
    return true;
}

}  // namespace

void modla::multiply_with_blas(const FloatRing &ring, const Product<StoredDouble> &product) {
    if (modulus_of(ring.p) < 2 || product.k > delay_bound(ring) || !call_blas(product)) {
        return multiply_classically(ring, product);
    }
    const Operand<StoredDouble> C = product.C;
    walk<1>({product.m, product.n}, {C.steps}, false,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                StoredDouble *const c = C.data + offsets[0];
                for (int32_t i = 0; i < count; i++)
                    c[unit ? i : i * inner[0]] = ring.reduce(c[unit ? i : i * inner[0]]);
            });
}
