// FLINT: nmod_mat and nmod_poly.
#include <flint/nmod_mat.h>
#include <flint/nmod_poly.h>

#include <memory>

#include "driver.h"

using namespace bench;

namespace {

struct Matrix {
    nmod_mat_t m;
    Matrix(const Row &row, slong columns, const Residues &entries = {}) {
        nmod_mat_init(m, row.n, columns, row.p);
        for (size_t k = 0; k < entries.size(); k++) m->entries[k] = entries[k];
    }
    ~Matrix() { nmod_mat_clear(m); }
    Matrix(const Matrix &) = delete;
    Matrix &operator=(const Matrix &) = delete;
    uint32_t hash() const {  // by rows, whose order in memory elimination changes
        return bench::hash(static_cast<size_t>(m->r * m->c), [&](size_t k) {
            return nmod_mat_entry(m, static_cast<slong>(k) / m->c, static_cast<slong>(k) % m->c);
        });
    }
};

struct Polynomial {
    nmod_poly_t f;
    Polynomial(uint32_t p, const Residues &coefficients = {}) {
        nmod_poly_init(f, p);
        for (size_t k = coefficients.size(); k-- > 0;)
            nmod_poly_set_coeff_ui(f, static_cast<slong>(k), coefficients[k]);
    }
    ~Polynomial() { nmod_poly_clear(f); }
    Polynomial(const Polynomial &) = delete;
    Polynomial &operator=(const Polynomial &) = delete;
    uint32_t hash() const {
        return bench::hash(static_cast<size_t>(nmod_poly_length(f)),
                           [&](size_t k) { return nmod_poly_get_coeff_ui(f, static_cast<slong>(k)); });
    }
};

template <class... Arguments>
std::shared_ptr<Matrix> matrix(const Arguments &...arguments) {
    return std::make_shared<Matrix>(arguments...);
}

Task multiply(const Row &row) {
    const auto A = matrix(row, row.n, square_matrix(row, 1)), B = matrix(row, row.n, square_matrix(row, 2)),
               C = matrix(row, row.n);
    return {nullptr, [=] { nmod_mat_mul(C->m, A->m, B->m); }, [=] { return C->hash(); }};
}

Task matvec(const Row &row) {
    const auto A = matrix(row, row.n, square_matrix(row, 7));
    const Residues entries = random_residues(8, static_cast<size_t>(row.n), row.p);
    const std::vector<mp_limb_t> x(entries.begin(), entries.end());
    const auto y = std::make_shared<std::vector<mp_limb_t>>(x.size());
    return {nullptr, [=] { nmod_mat_mul_nmod_vec(y->data(), A->m, x.data(), static_cast<slong>(x.size())); },
            [=] { return hash(y->size(), [&](size_t k) { return (*y)[k]; }); }};
}

Task rref(const Row &row, const Residues &entries) {
    const auto A = matrix(row, row.n, entries), B = matrix(row, row.n);
    return {[=] { nmod_mat_set(B->m, A->m); }, [=] { nmod_mat_rref(B->m); }, [=] { return B->hash(); }};
}

Task determinant(const Row &row) {
    const auto A = matrix(row, row.n, square_matrix(row, 3));
    const auto value = std::make_shared<mp_limb_t>(0);
    return {nullptr, [=] { *value = nmod_mat_det(A->m); }, [=] { return static_cast<uint32_t>(*value); }};
}

Task lu(const Row &row) {
    const auto A = matrix(row, row.n, square_matrix(row, 3)), B = matrix(row, row.n);
    const auto place = std::make_shared<std::vector<slong>>(row.n);
    return {[=] { nmod_mat_set(B->m, A->m); }, [=] { nmod_mat_lu(place->data(), B->m, 0); },
            [=] {
                const Residues y = apply_factors(row, false, random_residues(9, place->size(), row.p),
                                                 [&](size_t i, size_t j) { return nmod_mat_entry(B->m, i, j); });
                Residues image(y.size());
                for (size_t i = 0; i < y.size(); i++) image[static_cast<size_t>((*place)[i])] = y[i];
                return hash(image);
            }};
}

Task solve(const Row &row, bool lower) {
    const auto T = matrix(row, row.n, triangle(row, lower)), B = matrix(row, row.n, square_matrix(row, 5)),
               X = matrix(row, row.n);
    return {nullptr,
            [=] { lower ? nmod_mat_solve_tril(X->m, T->m, B->m, 0) : nmod_mat_solve_triu(X->m, T->m, B->m, 0); },
            [=] { return X->hash(); }};
}

Task nullspace(const Row &row) {
    const auto A = matrix(row, row.n, half_rank_matrix(row)), X = matrix(row, row.n);
    const auto dimension = std::make_shared<slong>(0);
    return {[=] { nmod_mat_zero(X->m); }, [=] { *dimension = nmod_mat_nullspace(X->m, A->m); },
            [=] {
                return check_nullspace(row, half_rank_matrix(row), static_cast<size_t>(*dimension), false,
                                       [&](size_t i, size_t k) { return nmod_mat_entry(X->m, i, k); });
            }};
}

Task polynomial_of_matrix(const Row &row, void (*find)(nmod_poly_t, const nmod_mat_t)) {
    const auto A = matrix(row, row.n, square_matrix(row, 6));
    const auto f = std::make_shared<Polynomial>(row.p);
    return {nullptr, [=] { find(f->f, A->m); }, [=] { return f->hash(); }};
}

Task gcd(const Row &row) {
    const auto input = two_polynomials(row);
    const auto f = std::make_shared<Polynomial>(row.p, input.first),
               h = std::make_shared<Polynomial>(row.p, input.second), g = std::make_shared<Polynomial>(row.p);
    return {nullptr, [=] { nmod_poly_gcd(g->f, f->f, h->f); }, [=] { return g->hash(); }};
}

Ways ways(const Row &row) {
    const std::map<std::string, std::function<Task()>> all = {
        {"multiply", [=] { return multiply(row); }},
        {"matvec", [=] { return matvec(row); }},
        {"rref", [=] { return rref(row, square_matrix(row, 3)); }},
        {"rref_half_rank", [=] { return rref(row, half_rank_matrix(row)); }},
        {"determinant", [=] { return determinant(row); }},
        {"lu", [=] { return lu(row); }},
        {"forward_substitution", [=] { return solve(row, true); }},
        {"backward_substitution", [=] { return solve(row, false); }},
        {"nullspace", [=] { return nullspace(row); }},
        {"charpoly", [=] { return polynomial_of_matrix(row, nmod_mat_charpoly); }},
        {"charpoly_krylov", [=] { return polynomial_of_matrix(row, nmod_mat_minpoly); }},
        {"gcd", [=] { return gcd(row); }},
    };
    const auto found = all.find(row.work);
    return found == all.end() ? Ways{} : Ways{{"flint", found->second}};
}

}  // namespace

int main() {
    return serve(ways);
}
