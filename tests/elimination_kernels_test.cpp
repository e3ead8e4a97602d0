// Row reduction, LU, substitution, row gcd and zigzag kernels: entry by entry against the plain models, and against FLINT.
#include <gtest/gtest.h>

#include "elimination/lu_factor.h"
#include "elimination/row_reduction.h"
#include "elimination/triangular_solve.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "tests/support/models.h"

using namespace modla_test;

namespace {

// ---- The kernels by blocks of any size; the exported ones take blocks for large matrices only ----

const modla::BlockSizes all_sizes[] = {{1, 1, 1, 1, 1},   {1, 1, 2, 2, 3}, {1, 2, 2, 3, 9}, {1, 3, 3, 2, 10},
                                       {1, 3, 12, 4, 12}, {1, 7, 7, 7, 7}, {1, 2, 7, 7, 7}, {1}};
modla::BlockSizes block_sizes;

template <bool c_order, class W>
auto matrix(W *data, int32_t ld) {
    return modla::Matrix<std::remove_pointer_t<decltype(modla::entries(data))>, c_order>{modla::entries(data), ld};
}

template <bool c_order, class W>
uint32_t reduce_by_blocks(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending) {
    const modla::RowReductionTask task = {nrows, ncols,   nred, rank,         pivsig,
                                          extra, pivcols, mode, detonly != 0, {pending, maxpending}};
    return modla::with_standard_mode([&] {
        return modla::row_reduce(modla::RowReduction{task, modla::kernel_ring(p, pinv), matrix<c_order>(A, ld),
                                                     modla::entries(det), modla::entries(pivprod)},
                                 block_sizes);
    });
}

template <bool c_order, class W>
uint32_t factor_by_blocks(MODLA_LU_ARGUMENTS(W)) {
    return modla::with_standard_mode([&] {
        return modla::lu_factor(modla::LUFactorization{modla::kernel_ring(p, pinv),
                                                       matrix<c_order>(A, ld),
                                                       n,
                                                       perm,
                                                       modla::entries(det),
                                                       {pending, maxpending}},
                                block_sizes);
    });
}

template <bool c_order, class W>
uint32_t solve_by_blocks(MODLA_BACKSUB_ARGUMENTS(W), bool forward, bool unit) {
    const auto solve = [&](auto X, int32_t columns) {
        return modla::with_standard_mode([&] {
            return modla::triangular_solve(modla::TriangularSolve{modla::kernel_ring(p, pinv), matrix<c_order>(T, ldT),
                                                                  n, X, columns, forward, unit, maxpending},
                                           block_sizes);
        });
    };
    return nrhs == 0 ? solve(matrix<true>(B, ldB), 1) : solve(matrix<c_order>(B, ldB), nrhs);
}

// ---- Row reduction ----

template <class W>
struct ReduceKernel {
    const char *name;
    bool c_order;
    uint32_t (*plain)(MODLA_REDUCE_ARGUMENTS(W));  // one of the two
    uint32_t (*delayed)(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending);
};

const ReduceKernel<uint32_t> word_kernels[] = {{"C_iw", true, modLA_reduce_C_iw, nullptr},
                                               {"F_iw", false, modLA_reduce_F_iw, nullptr},
                                               {"C_iw_nop", true, nullptr, modLA_reduce_C_iw_nop},
                                               {"F_iw_nop", false, nullptr, modLA_reduce_F_iw_nop},
                                               {"C_iw by blocks", true, nullptr, reduce_by_blocks<true, uint32_t>},
                                               {"F_iw by blocks", false, nullptr, reduce_by_blocks<false, uint32_t>}};
const ReduceKernel<double> float_kernels[] = {{"C_f_nop", true, nullptr, modLA_reduce_C_f_nop},
                                              {"F_f_nop", false, nullptr, modLA_reduce_F_f_nop},
                                              {"C_f by blocks", true, nullptr, reduce_by_blocks<true, double>},
                                              {"F_f by blocks", false, nullptr, reduce_by_blocks<false, double>}};

template <class Visit>
void for_each_reduce_kernel(int32_t p, const Visit &visit) {
    if (p <= 65535) {
        for (const auto &kernel : word_kernels) visit(kernel);
    }
    for (const auto &kernel : float_kernels) visit(kernel);
}

std::string describe(const Reduction &q) {
    return std::to_string(q.nrows) + "x" + std::to_string(q.ncols) + " (" + std::to_string(q.nred) +
           " reducible) mod " + std::to_string(q.p) + ", mode " + std::to_string(q.mode) +
           (q.detonly ? ", detonly" : "") + (q.extra ? ", extra" : "") + (q.pivcols ? ", pivcols" : "");
}
std::string describe(const Reduced &a) {
    return "status " + std::to_string(a.status) + ", det " + std::to_string(a.det) + ", pivprod " +
           std::to_string(a.pivprod) + ", rank " + std::to_string(a.rank) + ", pivsig " + std::to_string(a.pivsig) +
           ", extra " + std::to_string(a.extra) + ", pivcols " + testing::PrintToString(a.pivcols) + text_of(a.A);
}

template <class W>
Reduced run(const ReduceKernel<W> &kernel, const Reduction &q, const Grid &input, const Setting<W> &setting) {
    Cells<W> A = setting.cells(q.stored_rows(), static_cast<size_t>(q.ncols));
    A.put(input);
    const size_t nrows = static_cast<size_t>(q.nrows);
    Output<W> det(setting.misaligned), pivprod(setting.misaligned);
    Output<int32_t> rank, pivsig, extra;
    Cells<int32_t> pivcols(nrows, 1, 1, 1), pending(nrows, 1, 1, 1);
    const W p = static_cast<W>(q.p);
    const double pinv = reciprocal(q.p);
    Reduced answer = blank_reduced(q, input);
    const auto call = [&](auto function, auto... delay) {
        return function(A.data(), q.nrows, q.ncols, q.nred, A.ld(), p, pinv, q.det ? det.data() : nullptr,
                        q.pivprod ? pivprod.data() : nullptr, q.rank ? rank.data() : nullptr,
                        q.pivsig ? pivsig.data() : nullptr, q.extra ? extra.data() : nullptr,
                        q.pivcols ? pivcols.data() : nullptr, q.mode, q.detonly, delay...);
    };
    EXPECT_TRUE(keeps_fp_mode(setting.mode, [&] {
        answer.status = kernel.plain ? call(kernel.plain) : call(kernel.delayed, pending.data(), setting.maxpending);
    }));
    EXPECT_TRUE(A.intact() && det.intact() && pivprod.intact() && pivcols.intact() && pending.intact());
    answer.det = det.value(), answer.pivprod = pivprod.value(), answer.rank = rank.value();
    answer.pivsig = pivsig.value(), answer.extra = extra.value();
    for (size_t i = 0; i < nrows; i++) answer.pivcols[i] = pivcols.get(i, 0);
    answer.A = A.grid();
    if (answer.status == 3) {
        for (size_t i = 0; i < nrows; i++) EXPECT_EQ(pending.get(i, 0), untouched);
    }
    return answer;
}

template <class W>
void expect_reduced(const ReduceKernel<W> &kernel, const Reduction &q, const Grid &input, const Setting<W> &setting,
                    Reduced expected) {
    if (expected.status == 3) expected.A = blank_reduced(q, input).A;
    const Reduced answer = run(kernel, q, input, setting);
    EXPECT_TRUE(answer == expected) << kernel.name << ", " << describe(q) << ", " << setting.text() << ", of"
                                    << text_of(input) << "gives " << describe(answer) << "instead of "
                                    << describe(expected);
}

Reduction random_reduction(Random &random, int32_t least, int32_t most) {
    Reduction q = {};
    q.p = random_modulus(random);
    q.nrows = between(random, least, most);
    q.ncols = chance(random, 40) ? q.nrows : between(random, least, most);
    q.nred = chance(random, 60) ? q.ncols : below(random, q.ncols + 1);
    q.mode = below(random, 3);
    q.detonly = chance(random, q.mode == 0 ? 40 : 5);
    for (bool Reduction::*wanted : {&Reduction::det, &Reduction::pivprod, &Reduction::rank, &Reduction::pivsig,
                                    &Reduction::extra, &Reduction::pivcols}) {
        q.*wanted = chance(random, 50);
    }
    return q;
}

// Every kernel, in random settings, on one random case per seed.
void compare_random_reductions(uint32_t first_seed, uint32_t cases, int32_t least, int32_t most) {
    for (uint32_t seed = first_seed; seed < first_seed + cases && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const Reduction q = random_reduction(random, least, most);
        block_sizes = pick(random, all_sizes);
        const Grid A = random_grid(random, static_cast<size_t>(q.nrows), static_cast<size_t>(q.ncols), q.p);
        const Reduced expected = reduce_model(q, A);
        for_each_reduce_kernel(q.p, [&]<class W>(const ReduceKernel<W> &kernel) {
            const Setting<W> setting(random, kernel.c_order, q.p);
            expect_reduced(kernel, q, unreduced(random, A, q.p, sum_limit<W>), setting, expected);
        });
    }
}

TEST(Reduce, FollowsTheModel) {
    compare_random_reductions(1, 40000 / slowness, 0, 12);
    compare_random_reductions(400000, 1500 / slowness, 12, 40);
    compare_random_reductions(500000, 60 / slowness, 60, 130);
}

TEST(Reduce, HoldsSumsUpToTheLimit) {
    for (const int32_t p : {2, 3, 107, 32749, 46337, 46339, 65521, 65535, 1048573, 16777213, 33554393, 33554431}) {
        for (const size_t n : {10, 40, 90}) {
            for (const Grid &A : {largest_products(n, n + 5, p), make_grid(n, n + 5, p - 1)}) {
                for (const int32_t mode : {0, 1}) {
                    const int32_t size = static_cast<int32_t>(n);
                    const Reduction q = {p, size, size + 5, size + 5, mode, false, true, true, true, true};
                    const Reduced expected = reduce_model(q, A);
                    for_each_reduce_kernel(p, [&]<class W>(const ReduceKernel<W> &kernel) {
                        expect_reduced(kernel, q, A, Setting<W>(kernel.c_order, p), expected);
                    });
                }
            }
        }
    }
}

TEST(Reduce, FormsRankDeterminantAndNullspaceAreFlints) {
    for (uint32_t seed = 1; seed <= 300u / slowness && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = pick(random, primes), most = seed % 10 ? 30 : 131;
        const int32_t m = below(random, most), n = chance(random, 50) ? m : below(random, most);
        const size_t rows = static_cast<size_t>(m), columns = static_cast<size_t>(n);
        const Grid A = random_grid(random, rows, columns, p);
        const bool has_det = m <= n;
        const Nmod leading(A, has_det ? rows : 0, p), echelon(A, columns, p), factor(A, columns, p);
        const int64_t det = has_det ? static_cast<int64_t>(nmod_mat_det(leading.mat)) : untouched;
        const size_t rank = static_cast<size_t>(nmod_mat_rref(const_cast<nmod_mat_struct *>(echelon.mat)));
        const Grid expected = echelon.grid();
        for_each_reduce_kernel(p, [&]<class W>(const ReduceKernel<W> &kernel) {
            for (const int32_t mode : {0, 1, 2}) {
                const Reduction q = {p, m, n, n, mode, false, has_det, has_det, true, true, false, mode != 0};
                const Reduced answer = run(kernel, q, A, Setting<W>(random, kernel.c_order, p));
                SCOPED_TRACE(testing::Message() << "seed " << seed << kernel.name << describe(q) << describe(answer));
                ASSERT_EQ(answer.status, 0u);
                ASSERT_EQ(answer.rank, static_cast<int64_t>(rank));
                ASSERT_EQ(answer.det, det);
                Grid form = answer.A;
                if (mode == 0) {
                    const Nmod same_space(form, columns, p);
                    nmod_mat_rref(const_cast<nmod_mat_struct *>(same_space.mat));
                    form = same_space.grid();
                }
                for (size_t i = 0; i < rank; i++) ASSERT_EQ(form[i], expected[i]) << "row " << i;
                if (mode == 0) continue;
                const size_t nullity = columns - rank;
                const auto first = answer.A.begin() + static_cast<ptrdiff_t>(rank);
                const Nmod basis(Grid(first, first + static_cast<ptrdiff_t>(nullity)), columns, p);
                Nmod vectors(columns, nullity, p), images(rows, nullity, p);
                nmod_mat_transpose(vectors.mat, basis.mat);
                nmod_mat_mul(images.mat, factor.mat, vectors.mat);
                ASSERT_TRUE(nmod_mat_is_zero(images.mat));
                ASSERT_EQ(nmod_mat_rank(basis.mat), static_cast<slong>(nullity));
            }
        });
    }
}

// Whatever the modulus, Euclidean steps and kept non-units leave the determinant of the integers behind the residues.
TEST(Reduce, DeterminantsAreThoseOfTheIntegers) {
    for (uint32_t seed = 9001; seed <= 9300 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = pick(random, composites), n = below(random, 25);
        const Grid A = random_grid(random, static_cast<size_t>(n), static_cast<size_t>(n), p);
        const int64_t expected = determinant(A, A.size(), p);
        for_each_reduce_kernel(p, [&]<class W>(const ReduceKernel<W> &kernel) {
            for (const bool detonly : {true, false}) {
                const Reduction q = {p, n, n, n, detonly ? 0 : 2, detonly, true};
                const Reduced answer = run(kernel, q, A, Setting<W>(kernel.c_order, p));
                EXPECT_EQ(answer.status, 0u);
                EXPECT_EQ(answer.det, expected) << "seed " << seed << ", " << kernel.name << ", " << describe(q);
            }
        });
    }
}

// ---- LU ----

template <class W>
auto lu_kernel(bool c_order, bool by_blocks) {
    if (by_blocks) return c_order ? factor_by_blocks<true, W> : factor_by_blocks<false, W>;
    if constexpr (is_float<W>)
        return c_order ? modLA_LU_C_f_nop : modLA_LU_F_f_nop;
    else
        return c_order ? modLA_LU_C_iw_nop : modLA_LU_F_iw_nop;
}

template <class W>
Factored factor(const Setting<W> &setting, const Grid &input, int64_t p, bool with_det, bool by_blocks) {
    const size_t n = input.size();
    Cells<W> A = setting.cells(n, n);
    A.put(input);
    Output<W> det(setting.misaligned);
    Cells<int32_t> perm(n, 1, 1, 1), pending(n, 1, 1, 1);
    Factored f = {};
    EXPECT_TRUE(
        keeps_fp_mode(setting.mode, [&, modulus = static_cast<W>(p), pinv = reciprocal(static_cast<double>(p))] {
            f.status = lu_kernel<W>(setting.c_order, by_blocks)(A.data(), perm.data(), static_cast<int32_t>(n), A.ld(),
                                                                modulus, pinv, with_det ? det.data() : nullptr,
                                                                pending.data(), setting.maxpending);
        }));
    EXPECT_TRUE(A.intact() && det.intact() && perm.intact() && pending.intact());
    for (size_t i = 0; i < n; i++) f.perm.push_back(perm.get(i, 0));
    f.det = with_det ? det.value() : untouched;
    f.A = A.grid();
    return f;
}

// Dense, sparse, of low rank, or a row-shuffled product of triangles, which often has a factorization.
Grid random_square(Random &random, size_t n, int64_t p) {
    if (chance(random, 50)) return random_grid(random, n, n, p);
    const bool extreme = chance(random, 50);
    Grid A = product(random_triangle(random, n, p, true, extreme), random_triangle(random, n, p, false, extreme), n, p);
    if (chance(random, 50)) std::shuffle(A.begin(), A.end(), random);
    return A;
}

TEST(LU, FollowsTheModelAndFlint) {
    int statuses[3] = {};
    for (uint32_t seed = 1; seed <= 2500u / slowness && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = random_modulus(random);
        const size_t n = seed % 100 == 0 ? pick(random, {63u, 64u, 65u, 120u}) : below(random, seed % 5 ? 10u : 41u);
        block_sizes = pick(random, all_sizes);
        const Grid A = seed % 50 == 1 ? largest_products(n + 40, n + 40, p) : random_square(random, n, p);
        Factored expected = factor_model(A, p);
        statuses[expected.status]++;
        ASSERT_TRUE(expected.status != 0 || expected.det == determinant(A, A.size(), p)) << "the model";
        for_each_twin(p, [&]<class W>(W, bool c_order) {
            const Setting<W> setting(random, c_order, p);
            const bool with_det = chance(random, 70), by_blocks = chance(random, 50);
            Factored wanted = expected;
            if (!with_det) wanted.det = untouched;
            EXPECT_TRUE(factor(setting, unreduced(random, A, p, sum_limit<W>), p, with_det, by_blocks) == wanted)
                << (by_blocks ? "by blocks, " : "") << "seed " << seed << ", n = " << A.size() << ", p = " << p << ", "
                << setting.text();
        });
    }
    for (const int count : statuses) EXPECT_GT(count, 100 / slowness);
}

// ---- Substitution ----

template <class W>
uint32_t substitute(const Triangle &system, bool c_order, bool by_blocks, Cells<W> *T, Cells<W> *B, int32_t nrhs, W p,
                    double pinv, int32_t maxpending) {
    const int32_t n = static_cast<int32_t>(system.T.size());
    if (by_blocks) {
        return (c_order ? solve_by_blocks<true, W> : solve_by_blocks<false, W>)(T->data(), n, T->ld(), B->data(), nrhs,
                                                                                B->ld(), p, pinv, maxpending,
                                                                                system.forward, system.unit);
    }
    const auto call = [&](auto forward, auto backward) {
        return system.forward
                   ? forward(T->data(), n, T->ld(), B->data(), nrhs, B->ld(), p, pinv, system.unit, maxpending)
                   : backward(T->data(), n, T->ld(), B->data(), nrhs, B->ld(), p, pinv, maxpending);
    };
    if constexpr (is_float<W>) {
        return c_order ? call(modLA_ForSub_C_f_nop, modLA_BackSub_C_f_nop)
                       : call(modLA_ForSub_F_f_nop, modLA_BackSub_F_f_nop);
    } else {
        return c_order ? call(modLA_ForSub_C_iw_nop, modLA_BackSub_C_iw_nop)
                       : call(modLA_ForSub_F_iw_nop, modLA_BackSub_F_iw_nop);
    }
}

// nrhs = 0 is a vector with some stride.
template <class W>
void check_substitution(Random &random, const Setting<W> &setting, const Triangle &system, const Grid &B, int32_t nrhs,
                        bool by_blocks) {
    const size_t n = system.T.size(), columns = static_cast<size_t>(std::max(nrhs, 1));
    Cells<W> T = setting.cells(n, n);
    const Grid stored = unreduced(random, system.T, system.p, sum_limit<W>);
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            const W garbage = is_float<W> ? std::numeric_limits<W>::quiet_NaN() : static_cast<W>(-1);
            T.put(i, j, system.reads(i, j) ? static_cast<W>(stored[i][j]) : garbage);
        }
    }
    Cells<W> X = Cells<W>::lines(nrhs == 0 || setting.c_order, n, columns, below(random, size_t{4}), chance(random, 30),
                                 chance(random, 20));
    X.put(unreduced(random, B, system.p, sum_limit<W>));
    const auto T_before = T.words();
    uint32_t status = 99;
    ASSERT_TRUE(keeps_fp_mode(
        setting.mode, [&, p = static_cast<W>(system.p), pinv = reciprocal(static_cast<double>(system.p))] {
            status = substitute(system, setting.c_order, by_blocks, &T, &X, nrhs, p, pinv, setting.maxpending);
        }));
    ASSERT_TRUE(X.intact());
    ASSERT_EQ(T.words(), T_before);
    Grid expected = B;
    size_t solved = 0;
    ASSERT_EQ(status, solve_model(system, &expected, &solved));
    const Grid found = X.grid();
    for (size_t s = 0; s < n; s++) {
        const size_t i = system.row(s);
        ASSERT_TRUE(s >= solved || found[i] == expected[i]) << "row " << i;
        for (const int64_t x : found[i]) ASSERT_TRUE(x >= 0 && x < system.p) << "row " << i << ": " << x;
    }
}

TEST(Substitution, SolvesWhatTheModelSolves) {
    int statuses[3] = {};
    for (uint32_t seed = 1; seed <= 3000u / slowness && !HasFailure(); seed++) {
        Random random(seed);
        const int64_t p = random_modulus(random);
        const size_t n = seed % 50 == 0 ? pick(random, {63u, 64u, 65u, 150u}) : below(random, seed % 5 ? 10u : 41u);
        block_sizes = pick(random, all_sizes);
        const bool forward = chance(random, 50), extreme = chance(random, 40);
        Triangle system = {p, forward, forward && chance(random, 40), random_triangle(random, n, p, forward, extreme)};
        const int32_t nrhs = pick(random, {0, 1, 2, 17, n > 60 ? 70 : 3});
        const size_t columns = static_cast<size_t>(std::max(nrhs, 1));
        Grid B = random_residues(random, n, columns, p);
        if (extreme) {  // solutions of the largest residues
            for (size_t i = 0; i < n && system.unit; i++) system.T[i][i] = 1;
            B = product(system.T, make_grid(n, columns, p - 1), columns, p);
        }
        if (n > 0 && chance(random, 25)) system.T[below(random, n)][below(random, n)] = below(random, p);
        if (n > 0 && chance(random, 15)) system.T[n / 2][n / 2] = 0;
        size_t solved;
        Grid X = B;
        const uint32_t status = solve_model(system, &X, &solved);
        statuses[status]++;
        Grid whole = make_grid(n, n);
        for (size_t i = 0; i < n; i++) {
            for (size_t j = 0; j < n; j++) whole[i][j] = system.reads(i, j) ? system.T[i][j] : i == j;
        }
        ASSERT_TRUE(status != 0 || product(whole, X, columns, p) == B) << "the model";
        for_each_twin(p, [&]<class W>(W, bool c_order) {
            const Setting<W> setting(random, c_order, p);
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", n = " << n << ", p = " << p << ", nrhs = " << nrhs
                                            << (forward ? ", forward, " : ", backward, ") << setting.text());
            for (const bool by_blocks : {false, true}) check_substitution(random, setting, system, B, nrhs, by_blocks);
        });
    }
    for (const int count : statuses) EXPECT_GT(count, 10 / slowness);
}

// ---- Row gcd ----

// The residues as entries, some spelled otherwise: larger numbers, and for floats also negative ones and fractions.
template <class W>
void put_spelled(Random &random, const Grid &A, int64_t p, int density, Cells<W> *cells) {
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            const int64_t x = A[i][j], most = (sum_limit<W> - 1 - x) / p;
            const int64_t turns = chance(random, 30) ? most : below(random, most + 1);
            W entry = static_cast<W>(chance(random, density) ? x + turns * p : x);
            if constexpr (is_float<W>) {
                const double infinity = std::numeric_limits<double>::infinity();
                if (chance(random, density / 5)) entry = static_cast<W>(x - turns * p);
                if (chance(random, density / 5)) entry = static_cast<W>(x) + 0.75;
                if (x == 0 && chance(random, density / 5))
                    entry = pick(random, {-0.0, infinity, -infinity, std::nan("")});
            }
            cells->put(i, j, entry);
        }
    }
}

template <class W>
auto gcd_kernel(bool c_order) {
    if constexpr (is_float<W>)
        return c_order ? modLA_RowGcd_C_f : modLA_RowGcd_F_f;
    else
        return c_order ? modLA_RowGcd_C_iw : modLA_RowGcd_F_iw;
}

// The first k rows of a matrix; the others, which are no residues, must stay as they are.
void check_gcd(Random &random, const Grid &A, size_t columns, size_t k, int32_t p) {
    const Formed expected = gcd_model({A.begin(), A.begin() + static_cast<ptrdiff_t>(k)}, p);
    const int density = pick(random, {0, 0, 20, 100});
    for_each_twin(p, [&]<class W>(W, bool c_order) {
        const Setting<W> setting(random, c_order, p);
        Cells<W> cells = setting.cells(A.size(), columns);
        put_spelled(random, {A.begin(), A.begin() + static_cast<ptrdiff_t>(k)}, p, density, &cells);
        Grid whole = expected.A;
        for (size_t i = k; i < A.size(); i++) {
            whole.push_back(A[i]);
            for (size_t j = 0; j < columns; j++) cells.put(i, j, static_cast<W>(whole[i][j] += p));
        }
        int64_t status = 99;
        const int32_t c = chance(random, 80) ? setting.maxpending : pick(random, {0, -7});
        EXPECT_TRUE(keeps_fp_mode(setting.mode, [&, modulus = static_cast<W>(p), pinv = reciprocal(p)] {
            status = gcd_kernel<W>(c_order)(cells.data(), static_cast<int32_t>(k), static_cast<int32_t>(columns),
                                            cells.ld(), modulus, pinv, c);
        }));
        EXPECT_TRUE(status == expected.status && cells.grid() == whole && cells.intact())
            << k << " of " << A.size() << " rows mod " << p << ", c = " << c << ", " << setting.text() << ", of"
            << text_of(A) << "give " << status << text_of(cells.grid()) << "instead of " << expected.status
            << text_of(whole);
    });
}

Row multiply(const Row &a, const Row &b, size_t columns, int64_t p) {
    Row c(columns);
    for (size_t i = 0; i < a.size(); i++) {
        for (size_t j = 0; j < b.size() && i + j < columns; j++) c[i + j] = (c[i + j] + a[i] * b[j]) % p;
    }
    return c;
}

// Polynomials on which the algorithm has something to decide.
Grid random_polynomials(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A = random_residues(random, rows, columns, p);
    const int kind = below(random, 6);
    const Row factor = random_residues(random, 1, columns / 2 + 1, p)[0];
    for (Row &row : A) {
        if (kind == 1) row = multiply(factor, random_residues(random, 1, columns - columns / 2, p)[0], columns, p);
        for (int64_t &x : row) {
            if (kind == 2 && chance(random, 70)) x = 0;
            if (kind == 3) x = mod(below(random, 3) - 1, p);
        }
        if (kind >= 4 && columns > 0) {  // of any degree, with the leading coefficient 1
            const size_t d = below(random, columns);
            std::fill(row.begin() + static_cast<ptrdiff_t>(d), row.end(), 0);
            if (kind == 4) row[d] = 1;
        }
        if (chance(random, 10)) row.assign(columns, 0);
    }
    if (rows > 1 && chance(random, 10)) A[1] = A[0];
    return A;
}

TEST(RowGcd, FollowsTheModel) {
    for (uint32_t seed = 1; seed <= 12000u / slowness && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const bool large = seed % 200 == 0;
        const size_t k = 1 + below(random, size_t{large ? 20u : 6u}),
                     columns = below(random, size_t{large ? 200u : 13u});
        const int32_t p = random_modulus(random);
        check_gcd(random, random_polynomials(random, k + below(random, size_t{3}), columns, p), columns, k, p);
    }
    for (const int32_t p : {251, 65521, 33554393}) {  // wider than what is copied at a time
        Random random(8);
        check_gcd(random, random_residues(random, 2, 1100, p), 1100, 2, p);
    }
    uint32_t entry = 5;
    for (const int32_t k : {0, -1, -2147483647}) EXPECT_EQ(modLA_RowGcd_C_iw(&entry, k, 1, 1, 7, 0, 1), 0);
    for (const int32_t columns : {-1, -2147483647}) EXPECT_EQ(modLA_RowGcd_C_iw(&entry, 1, columns, 1, 7, 0, 1), -1);
    EXPECT_EQ(entry, 5u);
}

// Divisions in which every multiplier and nearly every coefficient is p-1: sums come as close to the limit as they can.
TEST(RowGcd, HoldsSumsUpToTheLimit) {
    Random random(5);
    for (const int32_t p :
         {2, 3, 7, 101, 9851, 20011, 32749, 46337, 46339, 65521, 65535, 1048573, 14529495, 33554393, 33554431}) {
        const size_t da = 60, quotient = 45, columns = da + quotient + 1;
        Row a(columns);
        std::fill_n(a.begin(), da, p - 1);
        a[da] = 1;
        Row b = multiply(a, Row(quotient, 1), columns, p);
        for (size_t j = 0; j < da; j++) b[j] = mod(b[j] - 1 - static_cast<int64_t>(j), p);
        check_gcd(random, {a, b}, columns, 2, p);
        check_gcd(random, {b, a}, columns, 2, p);
    }
}

// Of a common factor and cofactors of such degrees.
TEST(RowGcd, OfLongPolynomials) {
    const struct {
        size_t rows, common, cofactor;
    } shapes[] = {{2, 1500, 500}, {2, 0, 1200}, {20, 300, 40}, {3, 700, 0}, {7, 31, 64}, {1, 12, 30}};
    for (const auto &[rows, common, cofactor] : shapes) {
        for (const int32_t p : {2, 251, 46349, 65521, 33554393}) {
            Random random(static_cast<uint32_t>(common));
            const size_t columns = common + cofactor + 1 + below(random, size_t{4});
            const Row factor = random_residues(random, 1, common + 1, p)[0];
            Grid A;
            for (size_t i = 0; i < rows; i++) {
                A.push_back(
                    multiply(factor, random_residues(random, 1, cofactor + 1 - i % (cofactor + 1), p)[0], columns, p));
            }
            check_gcd(random, A, columns, rows, p);
        }
    }
}

// ---- Zigzag form ----

template <class W>
auto zigzag_kernel(bool c_order) {
    if constexpr (is_float<W>)
        return c_order ? modLA_ZigZag_C_f : modLA_ZigZag_F_f;
    else
        return c_order ? modLA_ZigZag_C_iw : modLA_ZigZag_F_iw;
}

Formed check_zigzag(Random &random, const Grid &A, int32_t p) {
    const Formed expected = ZigZagModel(A, p).run();
    const int density = pick(random, {0, 0, 20, 100});
    for_each_twin(p, [&]<class W>(W, bool c_order) {
        Setting<W> setting(random, c_order, p);
        setting.gap = 0, setting.upward = false;
        Cells<W> cells = setting.cells(A.size(), A.size());
        put_spelled(random, A, p, density, &cells);
        int64_t status = 99;
        const int32_t count = pick(random, {0, 1, setting.maxpending, -5});
        EXPECT_TRUE(keeps_fp_mode(setting.mode, [&, modulus = static_cast<W>(p), pinv = reciprocal(p)] {
            status = zigzag_kernel<W>(c_order)(cells.data(), static_cast<int32_t>(A.size()), modulus, pinv, count);
        }));
        EXPECT_TRUE(status == expected.status && cells.grid() == expected.A && cells.intact())
            << A.size() << " x " << A.size() << " mod " << p << ", " << setting.text() << ", of" << text_of(A)
            << "gives " << status << text_of(cells.grid()) << "instead of " << expected.status << text_of(expected.A);
    });
    return expected;
}

// A block-diagonal matrix of companion matrices, some of them equal, perhaps turned into a similar one.
Grid companions(Random &random, size_t n, int64_t p) {
    Grid A = make_grid(n, n);
    Row last = random_residues(random, 1, n, p)[0];
    for (size_t at = 0; at < n;) {
        const size_t size = std::min(n - at, 1 + below(random, n / 2 + 1));
        if (chance(random, 40)) last = random_residues(random, 1, n, p)[0];
        if (chance(random, 20)) last.assign(n, 0);
        for (size_t i = 0; i + 1 < size; i++) A[at + i + 1][at + i] = 1;
        for (size_t i = 0; i < size; i++) A[at + i][at + size - 1] = last[i];
        at += size;
    }
    for (size_t count = chance(random, 50) && n > 1 ? 2 * n : 0; count > 0; count--) {
        const size_t a = below(random, n), b = (a + 1 + below(random, n - 1)) % n;
        const int64_t f = below(random, p);
        for (size_t c = 0; c < n; c++) A[a][c] = (A[a][c] + f * A[b][c]) % p;
        for (size_t r = 0; r < n; r++) A[r][b] = (A[r][b] + (p - f) * A[r][a]) % p;
    }
    return A;
}

Row characteristic_polynomial(const Grid &A, int64_t p) {
    const Nmod matrix(A, A.size(), p);
    nmod_poly_t polynomial;
    nmod_poly_init(polynomial, static_cast<mp_limb_t>(p));
    nmod_mat_charpoly_berkowitz(polynomial, matrix.mat);  // for every modulus
    Row result;
    for (slong j = 0; j <= matrix.mat->r; j++) result.push_back(nmod_poly_get_coeff_ui(polynomial, j));
    nmod_poly_clear(polynomial);
    return result;
}

TEST(ZigZag, FollowsTheModelAndKeepsTheCharacteristicPolynomial) {
    int done = 0;
    for (uint32_t seed = 1; seed <= 20000u / slowness && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const size_t n = seed % 1000 == 0 ? pick(random, {60u, 90u}) : below(random, size_t{13});
        const int32_t p = random_modulus(random);
        const Grid A = chance(random, 30) ? companions(random, n, p) : random_grid(random, n, n, p);
        const Formed answer = check_zigzag(random, A, p);
        if (answer.status != 0) continue;
        EXPECT_TRUE(is_zigzag(answer.A)) << text_of(A) << text_of(answer.A);
        if (seed % 20 != 0) continue;
        EXPECT_EQ(characteristic_polynomial(answer.A, p), characteristic_polynomial(A, p)) << n << " mod " << p;
        done++;
    }
    EXPECT_GT(done, 400 / slowness);
}

// Wider than what is copied at a time; one order goes by products of rows, the other by sums of columns.
TEST(ZigZag, BothOrdersAgreeOnWideMatrices) {
    Random random(9);
    const auto check = [&]<class W>(W, size_t n, int64_t p) {
        const Grid A = random_residues(random, n, n, p);
        Grid forms[2];
        for (const bool c_order : {false, true}) {
            Cells<W> cells = Cells<W>::lines(c_order, n, n);
            cells.put(A);
            EXPECT_EQ(zigzag_kernel<W>(c_order)(cells.data(), static_cast<int32_t>(n), static_cast<W>(p),
                                                reciprocal(static_cast<double>(p)), 0),
                      0);
            forms[c_order] = cells.grid();
        }
        EXPECT_TRUE(is_zigzag(forms[0]) && forms[0] == forms[1]) << p;
    };
    check(uint32_t{}, 1100, 65521);
    check(double{}, 530, 33554393);
}

TEST(ZigZag, HoldsSumsUpToTheLimit) {
    Random random(9);
    for (const int32_t p : {2, 3, 101, 32749, 46337, 46339, 65521, 65535, 14529495, 33554393, 33554431}) {
        for (const size_t n : {9, 40}) {
            // Column 0 makes all multipliers p-1, the other entries are p-1 too.
            Grid A = make_grid(n, n, p - 1);
            check_zigzag(random, A, p);
            for (size_t i = 0; i < n; i++) A[i][0] = 1, A[1][i] = p - 1, A[i][i] = below(random, p);
            check_zigzag(random, A, p);
        }
    }
    uint32_t entry = 5;
    for (const int32_t n : {0, -1, -2147483647}) EXPECT_EQ(modLA_ZigZag_C_iw(&entry, n, 7, 0, 1), 0);
    EXPECT_EQ(entry, 5u);
    for (const uint32_t p : {0u, 1u}) modLA_ZigZag_F_iw(&entry, 1, p, 0, 1);  // no modulus, no crash
}

}  // namespace
