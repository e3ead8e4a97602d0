// NTL: mat_zz_p and zz_pX.
#include <NTL/lzz_pX.h>
#include <NTL/mat_lzz_p.h>
#include <NTL/mat_poly_lzz_p.h>

#include <memory>

#include "driver.h"

using namespace bench;
using NTL::mat_zz_p;
using NTL::zz_p;
using NTL::zz_pX;

namespace {

std::shared_ptr<mat_zz_p> matrix(const Row &row, const Residues &entries) {
    const auto M = std::make_shared<mat_zz_p>();
    M->SetDims(row.n, row.n);
    for (long i = 0, k = 0; i < row.n; i++) {
        for (long j = 0; j < row.n; j++, k++) (*M)[i][j].LoopHole() = entries[static_cast<size_t>(k)];
    }
    return M;
}

std::shared_ptr<zz_pX> polynomial(const Residues &coefficients) {
    const auto f = std::make_shared<zz_pX>();
    for (long k = static_cast<long>(coefficients.size()) - 1; k >= 0; k--)
        SetCoeff(*f, k, static_cast<long>(coefficients[static_cast<size_t>(k)]));
    return f;
}

uint32_t hash_of(const zz_pX &f) {
    return hash(static_cast<size_t>(deg(f) + 1), [&](size_t k) { return rep(coeff(f, static_cast<long>(k))); });
}

Task multiply(const Row &row) {
    const auto A = matrix(row, square_matrix(row, 1)), B = matrix(row, square_matrix(row, 2)),
               C = std::make_shared<mat_zz_p>();
    const long n = row.n;
    return {nullptr, [=] { mul(*C, *A, *B); },
            [=] {
                return hash(static_cast<size_t>(n * n),
                            [&](size_t k) { return rep((*C)[static_cast<long>(k) / n][static_cast<long>(k) % n]); });
            }};
}

Task matvec(const Row &row) {
    const auto A = matrix(row, square_matrix(row, 7));
    const auto x = std::make_shared<NTL::vec_zz_p>(), y = std::make_shared<NTL::vec_zz_p>();
    for (const uint32_t e : random_residues(8, static_cast<size_t>(row.n), row.p))
        append(*x, zz_p(static_cast<long>(e)));
    return {
        nullptr, [=] { mul(*y, *A, *x); },
        [=] { return hash(static_cast<size_t>(row.n), [&](size_t k) { return rep((*y)[static_cast<long>(k)]); }); }};
}

Task determinant(const Row &row) {
    const auto A = matrix(row, square_matrix(row, 3));
    const auto value = std::make_shared<zz_p>();
    return {nullptr, [=] { NTL::determinant(*value, *A); }, [=] { return static_cast<uint32_t>(rep(*value)); }};
}

// The vectors that A takes to 0 from the left: of the transpose, as much work.
Task nullspace(const Row &row) {
    const auto A = matrix(row, half_rank_matrix(row)), X = std::make_shared<mat_zz_p>();
    return {nullptr, [=] { kernel(*X, *A); },
            [=] {
                return check_nullspace(
                    row, half_rank_matrix(row), static_cast<size_t>(X->NumRows()), true, [&](size_t i, size_t k) {
                        return static_cast<uint32_t>(rep((*X)[static_cast<long>(k)][static_cast<long>(i)]));
                    });
            }};
}

Task charpoly(const Row &row) {
    const auto A = matrix(row, square_matrix(row, 6));
    const auto f = std::make_shared<zz_pX>();
    return {nullptr, [=] { CharPoly(*f, *A); }, [=] { return hash_of(*f); }};
}

Task gcd(const Row &row) {
    const auto input = two_polynomials(row);
    const auto f = polynomial(input.first), h = polynomial(input.second), g = std::make_shared<zz_pX>();
    return {nullptr, [=] { GCD(*g, *f, *h); }, [=] { return hash_of(*g); }};
}

Ways ways(const Row &row) {
    zz_p::init(static_cast<long>(row.p));
    const std::map<std::string, Task (*)(const Row &)> all = {
        {"multiply", multiply},   {"matvec", matvec},     {"determinant", determinant},
        {"nullspace", nullspace}, {"charpoly", charpoly}, {"gcd", gcd},
    };
    const auto found = all.find(row.work);
    if (found == all.end()) return {};
    return {{"ntl", [row, make = found->second] { return make(row); }}};
}

}  // namespace

int main() {
    return serve(ways);
}
