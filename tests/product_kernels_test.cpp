// Product kernels and sums of blocks on every layout, against a plain model and FLINT.
#include <gtest/gtest.h>

#include <array>

#include "modla.h"
#include "tests/support/grid.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

template <class W>
int32_t random_product_modulus(Random &random) {
    if (chance(random, 50)) {
        return static_cast<int32_t>(tight_modulus<W>(pick(random, {1, 2, 3, 8, 9, 10, 11, 15, 16, 20, 31, 64})));
    }
    if (is_float<W>) return pick(random, {2, 3, 7, 251, 65521, 1048573, 4000000, 33554393, 33554431});
    return pick(random, {2, 3, 6, 251, 2003, 4093, 37838, 46337, 46341, 65521, 65534, 65535});
}

enum class Content { random, sparse, largest, few, equal_blocks, top_residues };
constexpr Content contents[] = {Content::random, Content::random,       Content::sparse,       Content::largest,
                                Content::few,    Content::equal_blocks, Content::equal_blocks, Content::top_residues};

Grid factor(Random &random, int32_t rows, int32_t columns, int64_t p, Content content) {
    Grid A = random_residues(random, static_cast<size_t>(rows), static_cast<size_t>(columns), p);
    const size_t h = static_cast<size_t>(std::max(rows / 2, 1)), w = static_cast<size_t>(std::max(columns / 2, 1));
    const bool repeat_down = chance(random, 70), repeat_right = chance(random, 70), ones = chance(random, 50);
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            int64_t &x = A[i][j];
            if (content == Content::sparse && chance(random, 70)) x = 0;
            if (content == Content::largest) x = p - 1;
            if (content == Content::few) x = pick(random, {int64_t{0}, int64_t{1}, p - 1, p - 1, p - 1});
            if (content != Content::equal_blocks) continue;
            if (ones) x = p - 1 - below(random, 2);
            if (repeat_down && i >= h) x = A[i - h][j];
            if (repeat_right && j >= w) x = A[i][j - w];
        }
    }
    return A;
}

// A row a and a column b whose k products sum to a number = p-1 (mod p) just below k*p^2.
std::pair<Row, Row> top_residue_pair(int32_t k, int64_t p) {
    const size_t length = static_cast<size_t>(k);
    Row a(length, p - 1), b = a;
    if (k < 3 || p < 2 * k + 50) return {a, b};
    const int64_t target = p - k, x = static_cast<int64_t>(std::sqrt(static_cast<double>(target)));
    const int64_t y = target / x, r = target - x * y;
    a[0] = p - x, b[0] = p - y, b[length / 2] = p - 1 - r;
    return {a, b};
}

template <class W>
Cells<W> random_cells(Random &random, size_t rows, size_t columns) {
    const int32_t m = static_cast<int32_t>(rows), n = static_cast<int32_t>(columns);
    const std::pair<int32_t, int32_t> steps[] = {{n, 1},     {n + 3, 1},     {1, m},        {1, m},
                                                 {1, m + 5}, {2 * n + 1, 2}, {3, 3 * m + 1}};
    const auto [down, right] = pick(random, steps);
    return Cells<W>(rows, columns, std::max(down, 1) * pick(random, {1, 1, -1}),
                    std::max(right, 1) * pick(random, {1, 1, -1}), chance(random, 25));
}

int64_t formula_workspace(int64_t m, int64_t k, int64_t n) {
    return (2 * n * m + (n + m) * k + 2) / 3;
}

// Level by level until the inner dimension is at most L.
int64_t level_workspace(int64_t m, int64_t k, int64_t n, int64_t L) {
    int64_t w = 0;
    while (k > L && std::min({m, k, n}) > 1) {
        m /= 2, k /= 2, n /= 2;
        w += (n + m) * k + 2 * n * m + 2;
    }
    return w;
}

// What MatMult needs as workspace; 0: none.
template <class W>
int64_t needed_workspace(int32_t m, int32_t k, int32_t n, int32_t L, int32_t threshold) {
    if (!is_float<W>) return k == 1 || std::min({m, k, n}) <= std::max(threshold, 1) ? 0 : formula_workspace(m, k, n);
    if (k == 1 || k <= L) return 0;
    int64_t w = 0, mh = m, kh = k, nh = n;
    do {
        mh /= 2, kh /= 2, nh /= 2;
        w += (nh + mh) * kh + 2 * nh * mh + 2;
    } while (kh > L);
    if (mh * nh > 63) return w;
    const double dm = m, dk = k, dn = n;
    return (dn - 39.49) * dm * dk - dn * (11.13 * dk + 51.57 * dm) >= 0 ? formula_workspace(m, k, n) : 0;
}

template <class W>
struct Product {
    int32_t m, k, n;
    W p;
    Cells<W> A, B, C;
    int32_t sparse, L, threshold;
    W T;
    double pinv;
};

#define OPERANDS(x)                                                                                                   \
    x.p, x.pinv, x.m, x.k, x.n, x.A.data(), x.A.row_step, x.A.column_step, x.B.data(), x.B.row_step, x.B.column_step, \
        x.C.data(), x.C.row_step, x.C.column_step

template <class W, class Call>
void with_workspace(int64_t entries, Call call) {
    Cells<W> workspace(1, static_cast<size_t>(entries), static_cast<int32_t>(entries), 1, true);
    call(workspace.data());
    EXPECT_TRUE(workspace.intact()) << "written outside a workspace of " << entries;
}

// With no, a short, an exact and a long workspace.
template <class W>
void multiply_generally(Product<W> &x) {
    const int64_t needed = needed_workspace<W>(x.m, x.k, x.n, x.L, x.threshold);
    static uint32_t turn = 0;
    const int64_t given = std::max<int64_t>(turn++ % 4 == 0 ? 0 : needed - 1 + turn % 3, 0);
    Object object = 0;
    reset();
    host.conditions.mode = current_fp_mode();
    with_workspace<W>(given, [&](W *space) {
        W *const workspace = given == 0 ? nullptr : space;
        const int32_t length = static_cast<int32_t>(given);
        attempt([&] {
            if constexpr (is_float<W>)
                object = modLA_MatMult_f(api(), OPERANDS(x), x.sparse, workspace, length);
            else
                object = modLA_MatMult_iw(api(), OPERANDS(x), x.sparse, workspace, length, x.threshold);
        });
    });
    ASSERT_EQ(host.violations, std::vector<std::string>{});
    ASSERT_EQ(has_type(object, type_table), needed > given)
        << "a workspace of " << needed << " when " << given << " were given";
    if (needed <= given) return;
    EXPECT_EQ(describe_table(table_of(object)),
              "1 x " + std::to_string(needed) + " Matrix, " + (is_float<W> ? "float[8]" : "integer[4]") + ", C_order");
}

template <class W>
struct NamedKernel {
    const char *name;
    bool (*has_room)(const Product<W> &);
    void (*run)(Product<W> &);
};
#define KERNEL(name, room, ...)                                                                                   \
    {                                                                                                             \
#name, []([[maybe_unused]] const Product <W>                                                              \
                      &x) { return bool(room); }, [](Product <W> &                                                \
                                                     x) { modLA_##name(OPERANDS(x) __VA_OPT__(, ) __VA_ARGS__); } \
    }

template <class W>
std::vector<NamedKernel<W>> kernels() {
    const auto always = [](const Product<W> &) { return true; };
    if constexpr (is_float<W>) {
        return {KERNEL(MatMatMult_f, true, x.L, x.T, x.sparse),
                KERNEL(MatMatMult_f_SN, true, x.L, x.T),
                KERNEL(MatMatMult_f_S1, x.L >= x.k),
                KERNEL(MatMatMult_f_NN, true, x.L, x.T),
                KERNEL(MatMatMult_f_N1, x.L >= x.k),
                KERNEL(MatMatBLAS, x.L >= x.k, x.L, x.T, x.sparse),
                {"StrMatMult_f, BLAS base", always,
                 [](Product<W> &x) {
                     with_workspace<W>(level_workspace(x.m, x.k, x.n, x.L), [&](W *workspace) {
                         modLA_StrMatMult_f(OPERANDS(x), workspace, x.L, x.T, x.sparse, 1);
                     });
                 }},
                {"StrMatMult_f, by cost", always,
                 [](Product<W> &x) {
                     with_workspace<W>(formula_workspace(x.m, x.k, x.n), [&](W *workspace) {
                         modLA_StrMatMult_f(OPERANDS(x), workspace, x.L, x.T, x.sparse, 0);
                     });
                 }},
                {"MatMult_f", always, multiply_generally<W>}};
    } else {
        return {KERNEL(MatMatMult_iw, true, x.L, x.T, x.sparse),
                KERNEL(MatMatMult_iw_SE, true),
                KERNEL(MatMatMult_iw_SN, true, x.L),
                KERNEL(MatMatMult_iw_S1, x.L >= x.k),
                KERNEL(MatMatMult_iw_NE, true),
                KERNEL(MatMatMult_iw_NN, true, x.L),
                KERNEL(MatMatMult_iw_N1, x.L >= x.k),
                {"StrMatMult_iw", always,
                 [](Product<W> &x) {
                     with_workspace<W>(formula_workspace(x.m, x.k, x.n), [&](W *workspace) {
                         modLA_StrMatMult_iw(OPERANDS(x), workspace, x.L, x.T, x.sparse, x.threshold);
                     });
                 }},
                {"MatMult_iw", always, multiply_generally<W>}};
    }
}

template <class W>
void check_products(Random &random, int32_t m, int32_t k, int32_t n, int64_t p, Content content, bool flint) {
    Grid a = factor(random, m, k, p, content), b = factor(random, k, n, p, content);
    if (content == Content::top_residues) {
        const auto [row, column] = top_residue_pair(k, p);
        a.assign(a.size(), row);
        for (size_t t = 0; t < b.size(); t++) b[t].assign(static_cast<size_t>(n), column[t]);
    }
    const size_t rows = a.size(), inner = b.size(), columns = static_cast<size_t>(n);
    Grid expected;
    if (flint) {
        Nmod c(rows, columns, p);
        nmod_mat_mul(c.mat, Nmod(a, inner, p).mat, Nmod(b, columns, p).mat);
        expected = c.grid();
    } else {
        expected = product(a, b, columns, p);
    }
    for (const NamedKernel<W> &kernel : kernels<W>()) {
        Product<W> x = {m,
                        k,
                        n,
                        static_cast<W>(p),
                        random_cells<W>(random, rows, inner),
                        random_cells<W>(random, inner, columns),
                        random_cells<W>(random, rows, columns),
                        pick(random, {0, 1}),
                        sum_bound<W>(p),
                        pick(random, {-5, 0, 1, 1, 2, 3, 7, 20}),
                        static_cast<W>(sum_limit<W> - 1 - (p - 1) * (p - 1)),
                        reciprocal(static_cast<double>(p))};
        if (!kernel.has_room(x)) continue;
        SCOPED_TRACE(testing::Message() << kernel.name << ", " << m << " x " << k << " x " << n << ", p = " << p
                                        << ", content " << static_cast<int>(content) << ", steps " << x.A.row_step
                                        << " " << x.A.column_step << ", " << x.B.row_step << " " << x.B.column_step
                                        << ", " << x.C.row_step << " " << x.C.column_step
                                        << (x.sparse ? ", sparse" : "") << ", threshold " << x.threshold);
        x.A.put(a);
        x.B.put(b);
        const auto A = x.A.words(), B = x.B.words();
        const bool calls_host = std::string(kernel.name).starts_with("MatMult_");
        const FpMode mode = chance(random, 30) && !calls_host ? pick(random, foreign_fp_modes()) : current_fp_mode();
        if (calls_host)
            kernel.run(x);
        else
            ASSERT_TRUE(keeps_fp_mode(mode, [&] { kernel.run(x); }));
        ASSERT_EQ(x.C.grid(), expected);
        ASSERT_TRUE(x.A.words() == A && x.B.words() == B && x.C.intact());
    }
}

template <class W>
class ProductKernels : public testing::Test {};
using EntryTypes = testing::Types<uint32_t, double>;
TYPED_TEST_SUITE(ProductKernels, EntryTypes);

TYPED_TEST(ProductKernels, MultiplyLikeTheModelOnEveryLayout) {
    for (uint32_t seed = 1; seed <= 1500u / slowness && !this->HasFailure(); seed++) {
        Random random(seed);
        const int32_t largest = pick(random, {4, 12, 12, 40, 70});
        const auto size = [&] { return chance(random, 15) ? 1 : 1 + below(random, largest); };
        const int32_t m = size(), k = size(), n = size();
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        check_products<TypeParam>(random, m, k, n, random_product_modulus<TypeParam>(random), pick(random, contents),
                                  false);
    }
    const int32_t large[][3] = {{41, 41, 41}, {21, 21, 21}, {128, 128, 128}, {129, 131, 130}, {200, 70, 111},
                                {1, 300, 90}, {90, 300, 1}, {150, 130, 2},   {2, 260, 200},   {101, 203, 107}};
    for (const auto &[m, k, n] : large) {
        for (const Content content : {Content::random, Content::equal_blocks, Content::largest}) {
            Random random(static_cast<uint32_t>(m + k + n));
            check_products<TypeParam>(random, m, k, n, random_product_modulus<TypeParam>(random), content, true);
            if (this->HasFailure()) return;
        }
    }
    // Where one more level of the recursion pays or not; in turn with none of a workspace, a short one and so on.
    for (const auto &[m, k, n] : {std::array{25, 300, 300}, {300, 25, 300}, {300, 300, 60}, {19, 400, 200}}) {
        for (uint32_t seed = 1; seed <= (slowness > 1 ? 1u : 4u); seed++) {
            Random random(seed);
            check_products<TypeParam>(random, m, k, n, largest_modulus<TypeParam>, Content::random, true);
        }
    }
}

// As many products as fit beside a residue, one more, and up to twice as many, for moduli that leave no room.  Halving
// k leads to all of these counts in the recursion, with differences of equal blocks among the factors.
TYPED_TEST(ProductKernels, HoldTheLargestSums) {
    const int32_t first = sum_bound<TypeParam>(largest_modulus<TypeParam>);
    for (int32_t L = first; L <= first + 32 && !this->HasFailure(); L++) {
        const int64_t p = tight_modulus<TypeParam>(L);
        ASSERT_EQ(sum_bound<TypeParam>(p), L);
        for (const int32_t k : {L, L + 1, 2 * L, 2 * L + 1, 4 * L, 4 * L + 2}) {
            for (const Content content : {Content::top_residues, Content::largest, Content::equal_blocks}) {
                Random random(static_cast<uint32_t>(k));
                const std::pair<int32_t, int32_t> sizes[] = {{1, 1}, {1, 4}, {4, 1}, {4, 4}, {9, 6}, {36, 34}};
                const auto [m, n] = pick(random, sizes);
                check_products<TypeParam>(random, m, k, n, p, content, false);
            }
        }
    }
}

template <class W>
void check_block_sum(Random &random, void (*kernel)(MODLA_BLOCK_SUM_ARGUMENTS(W)), bool add) {
    const int64_t p = random_product_modulus<W>(random);
    const int32_t rows = below(random, 40), columns = below(random, 40);
    const auto content = [&] { return pick(random, {Content::random, Content::few}); };
    const Grid a = factor(random, rows, columns, p, content());
    const int in_place = below(random, 4);  // 0: none, 1: C = A, 2: C = B, 3: all three
    const Grid b = in_place == 3 ? a : factor(random, rows, columns, p, content());
    Cells<W> A = random_cells<W>(random, a.size(), static_cast<size_t>(columns)),
             B = random_cells<W>(random, a.size(), static_cast<size_t>(columns)),
             C = random_cells<W>(random, a.size(), static_cast<size_t>(columns));
    A.put(a);
    B.put(b);
    Cells<W> &right = in_place == 3 ? A : B, &target = in_place % 2 == 1 ? A : in_place == 2 ? B : C;
    ASSERT_TRUE(keeps_fp_mode(pick(random, foreign_fp_modes()), [&, modulus = static_cast<W>(p)] {
        kernel(modulus, rows, columns, A.data(), A.row_step, A.column_step, right.data(), right.row_step,
               right.column_step, target.data(), target.row_step, target.column_step);
    }));
    ASSERT_TRUE(target.intact());
    const Grid c = target.grid();
    for (size_t i = 0; i < c.size(); i++) {
        for (size_t j = 0; j < c[i].size(); j++) {
            ASSERT_EQ(c[i][j] % p, mod(add ? a[i][j] + b[i][j] : a[i][j] - b[i][j], p));
            ASSERT_TRUE(add ? c[i][j] < p : c[i][j] >= 1 && c[i][j] <= p) << "equal entries have the difference p";
        }
    }
}

TEST(BlockSums, AreResiduesAndDifferencesAreAbove0) {
    for (uint32_t seed = 1; seed <= 500 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        check_block_sum<uint32_t>(random, modLA_MatMatAdd_iw, true);
        check_block_sum<uint32_t>(random, modLA_MatMatSub_iw, false);
        check_block_sum<double>(random, modLA_MatMatAdd_f, true);
        check_block_sum<double>(random, modLA_MatMatSub_f, false);
    }
}

}  // namespace
