// FFLAS-FFPACK over OpenBLAS, in all fields that hold p: Modular<float> mf, ModularBalanced<float> bf, the same over
// double md and bd, Modular<int64_t> mi.  Entries are given in the field's own representation.
#include <fflas-ffpack/fflas-ffpack-config.h>
#include <fflas-ffpack/fflas/fflas.h>
#include <fflas-ffpack/ffpack/ffpack.h>
#include <givaro/givpoly1.h>
#include <givaro/modular-balanced.h>
#include <givaro/modular.h>

#include <cstring>
#include <memory>

#include "driver.h"

using namespace bench;
using namespace FFLAS;

namespace {

template <class Field>
struct Works {
    using Entry = typename Field::Element;
    using Matrix = std::shared_ptr<Entry>;

    static uint32_t residue(const Field &K, const Entry &e) {
        int64_t x;
        K.convert(x, e);
        return static_cast<uint32_t>(x < 0 ? x + static_cast<int64_t>(K.characteristic()) : x);
    }
    static Matrix empty(size_t count) {
        return Matrix(fflas_new<Entry>(count), [](Entry *e) { fflas_delete(e); });
    }
    static Matrix matrix(const Field &K, const Residues &entries) {
        const Matrix M = empty(entries.size());
        for (size_t k = 0; k < entries.size(); k++) K.init(M.get()[k], static_cast<int64_t>(entries[k]));
        return M;
    }
    static uint32_t hash_of(const Field &K, const Matrix &M, size_t count) {
        return hash(count, [&](size_t k) { return residue(K, M.get()[k]); });
    }
    // A matrix that calls may destroy: B is a copy of A after restore().
    struct Scratch {
        Matrix A, B;
        size_t count;
        Scratch(const Field &K, const Residues &entries)
            : A(matrix(K, entries)), B(empty(entries.size())), count(entries.size()) {}
        void restore() const { std::memcpy(B.get(), A.get(), count * sizeof(Entry)); }
    };

    static Task multiply(const Row &row) {
        const Field K(row.p);
        const size_t n = row.n;
        const Matrix A = matrix(K, square_matrix(row, 1)), B = matrix(K, square_matrix(row, 2)), C = empty(n * n);
        return {
            nullptr,
            [=] { fgemm(K, FflasNoTrans, FflasNoTrans, n, n, n, K.one, A.get(), n, B.get(), n, K.zero, C.get(), n); },
            [=] { return hash_of(K, C, n * n); }};
    }

    static Task matvec(const Row &row) {
        const Field K(row.p);
        const size_t n = row.n;
        const Matrix A = matrix(K, square_matrix(row, 7)), x = matrix(K, random_residues(8, n, row.p)), y = empty(n);
        return {nullptr, [=] { fgemv(K, FflasNoTrans, n, n, K.one, A.get(), n, x.get(), 1, K.zero, y.get(), 1); },
                [=] { return hash_of(K, y, n); }};
    }

    static Task rref(const Row &row, const Residues &entries, FFPACK::FFPACK_LU_TAG tag) {
        const Field K(row.p);
        const size_t n = row.n;
        const Scratch M(K, entries);
        const auto P = std::make_shared<std::vector<size_t>>(n), Q = std::make_shared<std::vector<size_t>>(n);
        const auto rank = std::make_shared<size_t>(0);
        return {[=] {
                    M.restore();
                    std::fill(P->begin(), P->end(), 0);
                    std::fill(Q->begin(), Q->end(), 0);
                },
                [=] { *rank = FFPACK::ReducedRowEchelonForm(K, n, n, M.B.get(), n, P->data(), Q->data(), false, tag); },
                [=] {
                    const Matrix R = empty(n * n);
                    FFPACK::getReducedEchelonForm(K, FflasUpper, n, n, *rank, Q->data(), M.B.get(), n, R.get(), n,
                                                  false, tag);
                    return hash_of(K, R, n * n);
                }};
    }

    static Task determinant(const Row &row) {
        const Field K(row.p);
        const size_t n = row.n;
        const Scratch M(K, square_matrix(row, 3));
        const auto value = std::make_shared<Entry>();
        return {[=] { M.restore(); }, [=] { FFPACK::Det(K, *value, n, M.B.get(), n); },
                [=] { return residue(K, *value); }};
    }

    // A = P*L*U*Q with exchanges in LAPACK's manner.
    static Task lu(const Row &row) {
        const Field K(row.p);
        const size_t n = row.n;
        const Scratch M(K, square_matrix(row, 3));
        const auto P = std::make_shared<std::vector<size_t>>(n), Q = std::make_shared<std::vector<size_t>>(n);
        return {[=] { M.restore(); }, [=] { FFPACK::PLUQ(K, FflasUnit, n, n, M.B.get(), n, P->data(), Q->data()); },
                [=] {
                    Residues x = random_residues(9, n, row.p);
                    for (size_t k = 0; k < n; k++) std::swap(x[k], x[(*Q)[k]]);
                    x = apply_factors(row, true, x,
                                      [&](size_t i, size_t j) { return residue(K, M.B.get()[i * n + j]); });
                    for (size_t k = n; k-- > 0;) std::swap(x[k], x[(*P)[k]]);
                    return hash(x);
                }};
    }

    static Task solve(const Row &row, bool lower) {
        const Field K(row.p);
        const size_t n = row.n;
        const Matrix T = matrix(K, triangle(row, lower));
        const Scratch M(K, square_matrix(row, 5));
        return {[=] { M.restore(); },
                [=] {
                    ftrsm(K, FflasLeft, lower ? FflasLower : FflasUpper, FflasNoTrans, FflasNonUnit, n, n, K.one,
                          T.get(), n, M.B.get(), n);
                },
                [=] { return hash_of(K, M.B, n * n); }};
    }

    static Task nullspace(const Row &row) {
        const Field K(row.p);
        const size_t n = row.n;
        const Scratch M(K, half_rank_matrix(row));
        struct Basis {
            Entry *entries = nullptr;
            size_t width = 0, dimension = 0;
            ~Basis() { fflas_delete(entries); }
        };
        const auto basis = std::make_shared<Basis>();
        return {[=] {
                    M.restore();
                    fflas_delete(basis->entries);
                    basis->entries = nullptr;
                },
                [=] {
                    FFPACK::NullSpaceBasis(K, FflasRight, n, n, M.B.get(), n, basis->entries, basis->width,
                                           basis->dimension);
                },
                [=] {
                    return check_nullspace(
                        row, half_rank_matrix(row), basis->dimension, false,
                        [&](size_t i, size_t k) { return residue(K, basis->entries[i * basis->width + k]); });
                }};
    }

    static Task charpoly(const Row &row, FFPACK::FFPACK_CHARPOLY_TAG tag) {
        using Polynomials = Givaro::Poly1Dom<Field, Givaro::Dense>;
        const Field K(row.p);
        const size_t n = row.n;
        const Scratch M(K, square_matrix(row, 6));
        const auto ring = std::make_shared<Polynomials>(K);
        const auto f = std::make_shared<typename Polynomials::Element>();
        return {[=] { M.restore(); }, [=] { FFPACK::CharPoly(*ring, *f, n, M.B.get(), n, tag); },
                [=] { return hash(f->size(), [&](size_t k) { return residue(K, (*f)[k]); }); }};
    }
};

template <class Field>
void add_ways(Ways &ways, const std::string &name, const Row &row) {
    using W = Works<Field>;
    if (static_cast<double>(row.p) > static_cast<double>(Field::maxCardinality())) return;
    const auto add = [&](const std::string &variant, std::function<Task()> make) {
        ways["fflas-" + name + variant] = make;
    };
    if (row.work == "multiply") add("", [=] { return W::multiply(row); });
    if (row.work == "matvec") add("", [=] { return W::matvec(row); });
    if (row.work == "rref" || row.work == "rref_half_rank") {
        const auto entries = [=] { return row.work == "rref" ? square_matrix(row, 3) : half_rank_matrix(row); };
        add("", [=] { return W::rref(row, entries(), FFPACK::FfpackSlabRecursive); });
        add("-tile", [=] { return W::rref(row, entries(), FFPACK::FfpackTileRecursive); });
    }
    if (row.work == "determinant") add("", [=] { return W::determinant(row); });
    if (row.work == "lu") add("", [=] { return W::lu(row); });
    if (row.work == "forward_substitution") add("", [=] { return W::solve(row, true); });
    if (row.work == "backward_substitution") add("", [=] { return W::solve(row, false); });
    if (row.work == "nullspace") add("", [=] { return W::nullspace(row); });
    if (row.work == "charpoly") add("-danilevskij", [=] { return W::charpoly(row, FFPACK::FfpackDanilevski); });
    if (row.work == "charpoly_krylov") {
        add("", [=] { return W::charpoly(row, FFPACK::FfpackLUK); });
        add("-blocks", [=] { return W::charpoly(row, FFPACK::FfpackArithProg); });
    }
}

Ways ways(const Row &row) {
    Ways ways;
    if (row.p > 2) add_ways<Givaro::ModularBalanced<float>>(ways, "bf", row);
    if (row.p > 2) add_ways<Givaro::ModularBalanced<double>>(ways, "bd", row);
    add_ways<Givaro::Modular<float>>(ways, "mf", row);
    add_ways<Givaro::Modular<double>>(ways, "md", row);
#ifdef __x86_64__
    if (row.p > 1000000 && row.work == "multiply") {
        ways["fflas-mi"] = [=] { return Works<Givaro::Modular<int64_t>>::multiply(row); };
    }
#endif
    return ways;
}

}  // namespace

int main() {
    return serve(ways);
}
