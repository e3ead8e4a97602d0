// LU, substitution, determinants and bases: the kernels against plain models and FLINT, the entry points as programs
// call them.
#include <flint/flint.h>
#include <flint/fmpz.h>
#include <flint/fmpz_mat.h>
#include <flint/nmod_mat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <numeric>

#include "console/compare.h"
#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "tests/fault_pairs.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::current_fp_mode, modla_test::foreign_fp_modes;
using modla_test::Callback, modla_test::datatypes, modla_test::no_booleans, modla_test::no_integers;
using modla_test::error_of, modla_test::eval, modla_test::is_assigned, modla_test::make_table, modla_test::set_name;
using modla_test::FpMode, modla_test::keeps_fp_mode, modla_test::pick, modla_test::Random, modla_test::run;
using modla_test::no_tables, modla_test::orders, modla_test::Subject;
using modla_test::raised_messages, modla_test::recording_host, modla_test::storage_of, modla_test::unassign;

namespace {

using Row = std::vector<int64_t>;
using Grid = std::vector<Row>;

constexpr int64_t untouched = -1, not_an_integer = -2;

// ---- Matrices of integers, and their arithmetic one entry at a time ----

int64_t mod(int64_t a, int64_t p) {
    return (a % p + p) % p;
}

int64_t inverse(int64_t a, int64_t p) {
    int64_t x = 1, y = 0;
    for (int64_t b = p; b != 0;) {
        const int64_t q = a / b;
        a = std::exchange(b, a - q * b);
        x = std::exchange(y, x - q * y);
    }
    return mod(x, p);
}

Grid random_grid(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A(rows, Row(columns));
    for (Row &row : A) {
        for (int64_t &x : row) x = below(random, p);
    }
    return A;
}

Grid product(const Grid &A, const Grid &B, size_t columns, int64_t p) {
    Grid C(A.size(), Row(columns));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t k = 0; k < B.size(); k++) {
            for (size_t j = 0; j < columns; j++) C[i][j] = (C[i][j] + A[i][k] * B[k][j]) % p;
        }
    }
    return C;
}

bool is_prime(int64_t p) {
    for (int64_t d = 2; d * d <= p; d++) {
        if (p % d == 0) return false;
    }
    return true;
}

const int32_t moduli[] = {2,     3,     4,     6,     7,     12,    30,      101,     251,      46337,   46339,
                          65521, 65535, 65534, 30030, 65536, 77773, 1048573, 9699690, 33554393, 33554431};

int64_t random_unit(Random &random, int64_t p) {
    while (true) {
        const int64_t x = 1 + below(random, p);
        if (std::gcd(x % p, p) == 1) return x % p;
    }
}

// Triangular with units on the diagonal; with `extreme`, the other entries and their negatives are as large as can be.
Grid random_triangle(Random &random, size_t n, int64_t p, bool lower, bool extreme) {
    Grid T = random_grid(random, n, n, p);
    const int zeros = pick(random, {0, 0, 50});
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            if (lower ? j > i : j < i)
                T[i][j] = 0;
            else if (i == j)
                T[i][j] = chance(random, 40) ? 1 : random_unit(random, p);
            else if (extreme)
                T[i][j] = chance(random, 50) ? 1 : p - 1;
            else if (chance(random, zeros))
                T[i][j] = 0;
        }
    }
    return T;
}

size_t random_size(Random &random, size_t large) {
    if (large != 0) return large;
    return below(random, size_t{10});
}

// Square: dense, sparse, of low rank, or a row-shuffled product of triangles, which often has a factorization.
Grid random_square(Random &random, size_t n, int64_t p) {
    Grid A = random_grid(random, n, n, p);
    switch (below(random, 6)) {
        case 0:
            break;
        case 1:
            for (Row &row : A) {
                for (int64_t &x : row) x = chance(random, 60) ? 0 : x;
            }
            break;
        case 2: {
            const size_t rank = below(random, n + 1);
            A = product(random_grid(random, n, rank, p), random_grid(random, rank, n, p), n, p);
            break;
        }
        default: {
            const bool extreme = chance(random, 50);
            A = product(random_triangle(random, n, p, true, extreme), random_triangle(random, n, p, false, extreme), n,
                        p);
            if (chance(random, 50)) std::shuffle(A.begin(), A.end(), random);
        }
    }
    return A;
}

class NmodMat {
  public:
    NmodMat(const Grid &A, size_t columns, int64_t p) {
        nmod_mat_init(mat, static_cast<slong>(A.size()), static_cast<slong>(columns), static_cast<mp_limb_t>(p));
        for (size_t i = 0; i < A.size(); i++) {
            for (size_t j = 0; j < columns; j++) mat->rows[i][j] = static_cast<mp_limb_t>(mod(A[i][j], p));
        }
    }
    NmodMat(const NmodMat &) = delete;
    ~NmodMat() { nmod_mat_clear(mat); }
    Grid grid() const {
        Grid A(static_cast<size_t>(mat->r), Row(static_cast<size_t>(mat->c)));
        for (size_t i = 0; i < A.size(); i++) std::copy_n(mat->rows[i], mat->c, A[i].begin());
        return A;
    }
    nmod_mat_t mat;
};

// The determinant over the integers, mod p.
int64_t determinant(const Grid &A, int64_t p) {
    const slong n = static_cast<slong>(A.size());
    fmpz_mat_t integers;
    fmpz_mat_init(integers, n, n);
    for (slong i = 0; i < n; i++) {
        for (slong j = 0; j < n; j++) {
            const int64_t x = A[static_cast<size_t>(i)][static_cast<size_t>(j)];
            fmpz_set_ui(fmpz_mat_entry(integers, i, j), static_cast<ulong>(x));
        }
    }
    fmpz_t det;
    fmpz_init(det);
    fmpz_mat_det(det, integers);
    const int64_t result = static_cast<int64_t>(fmpz_fdiv_ui(det, static_cast<ulong>(p)));
    fmpz_clear(det);
    fmpz_mat_clear(integers);
    return result;
}

// ---- Raw storage of a matrix, with cells around it that nothing may touch ----

template <class W>
constexpr int64_t sum_limit = std::is_same_v<W, double> ? int64_t{1} << 53 : int64_t{1} << 32;

template <class W>
int32_t pending_bound(int64_t p) {
    return static_cast<int32_t>(std::min<int64_t>((sum_limit<W> - p) / ((p - 1) * (p - 1)), 2147483646));
}

template <class W>
class Block {
  public:
    // Lines lie `gap` cells apart; aligned to 4 bytes only when misaligned.
    Block(bool c_order, size_t rows, size_t columns, size_t gap = 0, bool misaligned = false)
        : c_order_(c_order), rows_(rows), columns_(columns), ld_((c_order ? columns : rows) + gap), first_(misaligned) {
        const size_t cells = guard + (c_order ? rows : columns) * ld_ + guard;
        words_.assign(cells * sizeof(W) / 4 + 1, 0xdeadbeef);
    }
    W *data() { return reinterpret_cast<W *>(words_.data() + first_) + guard; }
    int32_t ld() const { return static_cast<int32_t>(ld_); }
    void set(size_t i, size_t j, W value) { std::memcpy(words_.data() + place(i, j), &value, sizeof value); }
    void set(const Grid &A) {
        for (size_t i = 0; i < rows_; i++) {
            for (size_t j = 0; j < columns_; j++) set(i, j, static_cast<W>(A[i][j]));
        }
    }
    Grid grid() const {
        Grid A(rows_, Row(columns_));
        for (size_t i = 0; i < rows_; i++) {
            for (size_t j = 0; j < columns_; j++) {
                W value;
                std::memcpy(&value, words_.data() + place(i, j), sizeof value);
                const bool integral = value >= 0 && value < static_cast<W>(4294967295u) &&
                                      static_cast<W>(static_cast<int64_t>(value)) == value;
                A[i][j] = integral ? static_cast<int64_t>(value) : not_an_integer;
            }
        }
        return A;
    }
    // Everything that lies outside the matrix, or all of it.
    std::vector<uint32_t> around() const {
        Block copy = *this;
        for (size_t i = 0; i < rows_; i++) {
            for (size_t j = 0; j < columns_; j++) copy.set(i, j, 0);
        }
        return copy.words_;
    }
    const std::vector<uint32_t> &words() const { return words_; }

  private:
    static constexpr size_t guard = 6;
    size_t place(size_t i, size_t j) const {
        return first_ + (guard + (c_order_ ? i * ld_ + j : j * ld_ + i)) * (sizeof(W) / 4);
    }
    bool c_order_;
    size_t rows_, columns_, ld_, first_;
    std::vector<uint32_t> words_;
};

// The same residues, some written as larger numbers that the representation can hold.
Grid unreduced(Random &random, Grid A, int64_t p, int64_t limit) {
    const int density = pick(random, {0, 0, 20, 100});
    for (Row &row : A) {
        for (int64_t &x : row) {
            const int64_t most = (limit - 1 - x) / p;
            if (chance(random, density)) x += p * (chance(random, 30) ? most : below(random, most + 1));
        }
    }
    return A;
}

// How a kernel is called.
template <class W>
struct Setting {
    bool c_order, misaligned;
    size_t gap;
    int32_t maxpending;
    FpMode mode;

    Setting(Random &random, bool in_c_order, int64_t p, const std::vector<FpMode> &modes)
        : c_order(in_c_order), misaligned(chance(random, 30)), gap(chance(random, 50) ? 0 : below(random, size_t{4})) {
        const int32_t bound = pending_bound<W>(p);
        maxpending = std::min(bound, pick(random, {1, 2, 3, 7, bound, bound}));
        mode = pick(random, modes);
    }
    std::string text() const {
        return std::string(std::is_same_v<W, double> ? "doubles" : "words") + (c_order ? ", C" : ", Fortran") +
               (misaligned ? ", misaligned" : "") + ", gap " + std::to_string(gap) + ", maxpending " +
               std::to_string(maxpending);
    }
};

// Calls visit with a word of the representation for all that hold residues mod p, in both orders.
template <class Visit>
void for_each_kernel(int64_t p, const Visit &visit) {
    for (const bool c_order : {true, false}) {
        if (p <= 65535) visit(uint32_t{}, c_order);
        visit(double{}, c_order);
    }
}

template <class W>
double reciprocal(W p) {
    return (1 + std::numeric_limits<double>::epsilon()) / p;
}

// ---- LU ----

struct Factored {
    uint32_t status;
    int64_t det;
    Row perm;
    Grid A;
    bool operator==(const Factored &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Factored &f) {
    return out << "status " << f.status << ", det " << f.det << ", perm " << testing::PrintToString(f.perm) << ", "
               << (f.A.size() > 20 ? "" : testing::PrintToString(f.A));
}

Factored factor_model(Grid A, int64_t p) {
    const size_t n = A.size();
    Factored f = {0, 1, Row(n, untouched), {}};
    for (size_t k = 0; k < n && f.status == 0; k++) {
        size_t s = k;
        while (s < n && A[s][k] == 0) s++;
        f.status = s == n ? 2 : std::gcd(A[s][k], p) != 1 ? 1 : 0;
        if (f.status != 0) break;
        f.det = f.det * A[s][k] % p;
        if (s != k) f.det = mod(-f.det, p);
        if (k + 1 < n) f.perm[k] = static_cast<int64_t>(s) + 1;
        std::swap(A[s], A[k]);
        const int64_t scale = inverse(A[k][k], p);
        for (size_t i = k + 1; i < n; i++) {
            const int64_t m = A[i][k] * scale % p;
            for (size_t j = k; j < n; j++) A[i][j] = mod(A[i][j] - m * A[k][j], p);
            A[i][k] = m;
        }
    }
    f.A = A;
    return f;
}

template <class W>
auto lu_kernel(bool c_order) {
    if constexpr (std::is_same_v<W, double>)
        return c_order ? modLA_LU_C_f_nop : modLA_LU_F_f_nop;
    else
        return c_order ? modLA_LU_C_iw_nop : modLA_LU_F_iw_nop;
}

template <class W>
Factored run_factor(const Setting<W> &setting, const Grid &input, int64_t p, bool with_det) {
    const size_t n = input.size();
    Block<W> A(setting.c_order, n, n, setting.gap, setting.misaligned), det(true, 1, 1, 0, setting.misaligned);
    A.set(input);
    const auto around = A.around(), around_det = det.around();
    std::vector<int32_t> perm(n + 1, untouched), pending(n + 1, 77);
    const W modulus = static_cast<W>(p);
    const double pinv = reciprocal(modulus);
    Factored f = {};
    EXPECT_TRUE(keeps_fp_mode(setting.mode, [&] {
        f.status = lu_kernel<W>(setting.c_order)(A.data(), perm.data(), static_cast<int32_t>(n), A.ld(), modulus, pinv,
                                                 with_det ? det.data() : nullptr, pending.data(), setting.maxpending);
    }));
    EXPECT_EQ(A.around(), around);
    EXPECT_EQ(det.around(), around_det);
    EXPECT_EQ(perm[n], untouched);
    EXPECT_EQ(pending[n], 77);
    f.perm.assign(perm.begin(), perm.end() - 1);
    f.det = with_det ? det.grid()[0][0] : untouched;
    f.A = A.grid();
    return f;
}

int compare_factorizations(uint32_t seed, int64_t p, const Grid &A, const std::vector<FpMode> &modes) {
    Random random(seed);
    const Factored expected = factor_model(A, p);
    for_each_kernel(p, [&]<class W>(W, bool c_order) {
        const Setting<W> setting(random, c_order, p, modes);
        const bool with_det = chance(random, 70);
        Factored wanted = expected;
        if (!with_det) wanted.det = untouched;
        ASSERT_EQ(run_factor(setting, unreduced(random, A, p, sum_limit<W>), p, with_det), wanted)
            << "seed " << seed << ", n = " << A.size() << ", p = " << p << ", " << setting.text();
    });
    return static_cast<int>(expected.status);
}

void compare_random_factorizations(uint32_t first, int cases, size_t large, const std::vector<FpMode> &modes,
                                   int (&statuses)[3]) {
    for (uint32_t seed = first; seed < first + static_cast<uint32_t>(cases) && !testing::Test::HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = pick(random, moduli);
        statuses[compare_factorizations(seed, p, random_square(random, random_size(random, large), p), modes)]++;
    }
}

TEST(LUKernels, EveryStoredValueIsTheModels) {
    int statuses[3] = {};
    compare_random_factorizations(1, 3000, 0, {current_fp_mode()}, statuses);
    for (const int count : statuses) EXPECT_GT(count, 300);
    for (const size_t n : {63u, 64u, 65u, 150u}) {
        compare_random_factorizations(static_cast<uint32_t>(10000 * n), 12, n, {current_fp_mode()}, statuses);
    }
    compare_random_factorizations(50000, 300, 0, foreign_fp_modes(), statuses);
}

TEST(LUKernels, SumsUpToTheLimit) {
    for (const int32_t p : {2, 3, 107, 32749, 46337, 65521, 65535, 1048573, 16777213, 33554393, 33554431}) {
        for (const size_t n : {10u, 70u}) {
            Random random(static_cast<uint32_t>(p) + n);
            Grid L(n, Row(n, 0)), U(n, Row(n, 0));
            for (size_t i = 0; i < n; i++) {
                for (size_t j = 0; j < n; j++) (j < i ? L : U)[i][j] = j < i ? 1 : p - 1;
                L[i][i] = U[i][i] = 1;
            }
            for (uint32_t repeat = 0; repeat < 4; repeat++) {
                EXPECT_EQ(compare_factorizations(repeat, p, product(L, U, n, p), {current_fp_mode()}), 0);
            }
        }
    }
}

// The rows in the order that the transpositions give.
Grid permuted(Grid A, const Row &perm) {
    for (size_t k = 0; k < perm.size(); k++) std::swap(A[k], A.at(static_cast<size_t>(perm[k]) - 1));
    return A;
}

TEST(LUKernels, FactorsMultiplyToThePermutedMatrix) {
    int factored = 0;
    for (uint32_t seed = 1; seed <= 150 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = pick(random, {2, 3, 46337, 65521, 33554393});
        const size_t n = seed == 1 ? 150 : below(random, size_t{67});
        const Grid A = random_square(random, n, p);
        const NmodMat flint(A, n, p);
        const int64_t det = static_cast<int64_t>(nmod_mat_det(flint.mat));
        for_each_kernel(p, [&]<class W>(W, bool c_order) {
            const Setting<W> setting(random, c_order, p, {current_fp_mode()});
            const Factored f = run_factor(setting, A, p, true);
            ASSERT_EQ(f.status, det == 0 ? 2u : 0u) << "seed " << seed << ", " << setting.text();
            if (det == 0) return;
            factored++;
            ASSERT_EQ(f.det, det);
            Grid L(n, Row(n, 0)), U(n, Row(n, 0));
            for (size_t i = 0; i < n; i++) {
                for (size_t j = 0; j < n; j++) (j < i ? L : U)[i][j] = f.A[i][j];
                L[i][i] = 1;
            }
            const Row steps(f.perm.begin(), f.perm.end() - (n > 0));
            ASSERT_EQ(product(L, U, n, p), permuted(A, steps)) << "seed " << seed << ", " << setting.text();
        });
    }
    EXPECT_GT(factored, 100);
}

// ---- Substitution ----

struct Triangle {
    int64_t p;
    bool forward, unit;
    Grid T;
    bool read(size_t i, size_t j) const { return (forward ? j < i : j > i) || (i == j && !unit); }
    size_t row(size_t step) const { return forward ? step : T.size() - 1 - step; }
};

// Solves as far as it can: the rows that were solved, in their sequence.
uint32_t solve_model(const Triangle &system, Grid *B, size_t *solved) {
    for (*solved = 0; *solved < system.T.size(); ++*solved) {
        const size_t i = system.row(*solved);
        for (size_t s = 0; s < *solved; s++) {
            const size_t j = system.row(s);
            for (size_t c = 0; c < (*B)[i].size(); c++) {
                (*B)[i][c] = mod((*B)[i][c] - system.T[i][j] * (*B)[j][c], system.p);
            }
        }
        if (system.unit) continue;
        const int64_t d = system.T[i][i];
        if (d == 0) return 2;
        if (std::gcd(d, system.p) != 1) return 1;
        const int64_t scale = inverse(d, system.p);
        for (int64_t &x : (*B)[i]) x = x * scale % system.p;
    }
    return 0;
}

template <class W>
uint32_t call_substitution(const Triangle &system, bool c_order, Block<W> *T, Block<W> *B, int32_t nrhs, W p,
                           double pinv, int32_t maxpending) {
    const int32_t n = static_cast<int32_t>(system.T.size());
    const auto call = [&](auto forward, auto backward) {
        return system.forward
                   ? forward(T->data(), n, T->ld(), B->data(), nrhs, B->ld(), p, pinv, system.unit, maxpending)
                   : backward(T->data(), n, T->ld(), B->data(), nrhs, B->ld(), p, pinv, maxpending);
    };
    if constexpr (std::is_same_v<W, double>) {
        return c_order ? call(modLA_ForSub_C_f_nop, modLA_BackSub_C_f_nop)
                       : call(modLA_ForSub_F_f_nop, modLA_BackSub_F_f_nop);
    } else {
        return c_order ? call(modLA_ForSub_C_iw_nop, modLA_BackSub_C_iw_nop)
                       : call(modLA_ForSub_F_iw_nop, modLA_BackSub_F_iw_nop);
    }
}

// Solves with one kernel and compares; nrhs = 0 is a vector with some stride.
template <class W>
void check_substitution(Random &random, const Setting<W> &setting, const Triangle &system, const Grid &B,
                        int32_t nrhs) {
    const size_t n = system.T.size(), columns = std::max<size_t>(static_cast<size_t>(nrhs), 1);
    Block<W> T(setting.c_order, n, n, setting.gap, setting.misaligned);
    const Grid stored = unreduced(random, system.T, system.p, sum_limit<W>);
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            const W garbage = std::is_same_v<W, double> ? std::numeric_limits<W>::quiet_NaN() : static_cast<W>(-1);
            T.set(i, j, system.read(i, j) ? static_cast<W>(stored[i][j]) : garbage);
        }
    }
    const bool misaligned = chance(random, 30);
    Block<W> X(nrhs == 0 || setting.c_order, n, columns, chance(random, 50) ? 0 : below(random, size_t{4}), misaligned);
    X.set(unreduced(random, B, system.p, sum_limit<W>));
    const auto around = X.around(), T_before = T.words();

    uint32_t status = 99;
    const W p = static_cast<W>(system.p);
    const double pinv = reciprocal(p);
    ASSERT_TRUE(keeps_fp_mode(setting.mode, [&] {
        status = call_substitution(system, setting.c_order, &T, &X, nrhs, p, pinv, setting.maxpending);
    }));
    ASSERT_EQ(X.around(), around);
    ASSERT_EQ(T.words(), T_before);
    Grid expected = B;
    size_t solved = 0;
    ASSERT_EQ(status, solve_model(system, &expected, &solved));
    const Grid found = X.grid();
    for (size_t s = 0; s < n; s++) {
        const size_t i = system.row(s);
        if (s < solved) {
            ASSERT_EQ(found[i], expected[i]) << "row " << i;
        }
        for (const int64_t x : found[i]) ASSERT_TRUE(x >= 0 && x < system.p) << "row " << i << ": " << x;
    }
    if (status != 0 || !is_prime(system.p)) return;
    Grid whole(n, Row(n, 0));
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) whole[i][j] = system.read(i, j) ? system.T[i][j] : i == j;
    }
    NmodMat flint_T(whole, n, system.p), flint_B(B, columns, system.p);
    (system.forward ? nmod_mat_solve_tril : nmod_mat_solve_triu)(flint_B.mat, flint_T.mat, flint_B.mat, system.unit);
    ASSERT_EQ(found, flint_B.grid());
}

void check_random_substitutions(uint32_t first, int cases, size_t large, const std::vector<FpMode> &modes,
                                int (&statuses)[3]) {
    for (uint32_t seed = first; seed < first + static_cast<uint32_t>(cases) && !testing::Test::HasFailure(); seed++) {
        Random random(seed);
        const int64_t p = pick(random, moduli);
        const size_t n = random_size(random, large);
        const bool forward = chance(random, 50), extreme = chance(random, 40);
        Triangle system = {p, forward, forward && chance(random, 40), random_triangle(random, n, p, forward, extreme)};
        const int32_t nrhs = pick(random, {0, 1, 2, 17});
        const size_t columns = std::max<size_t>(static_cast<size_t>(nrhs), 1);
        Grid B = random_grid(random, n, columns, p);
        if (extreme) {
            if (system.unit) {
                for (size_t i = 0; i < n; i++) system.T[i][i] = 1;
            }
            B = product(system.T, Grid(n, Row(columns, p - 1)), columns, p);
        }
        if (n > 0 && chance(random, 25)) {
            const size_t i = below(random, n);
            system.T[i][i] = chance(random, 50) ? 0 : below(random, p);
        }
        size_t solved;
        Grid X = B;
        statuses[solve_model(system, &X, &solved)]++;
        for_each_kernel(p, [&]<class W>(W, bool c_order) {
            const Setting<W> setting(random, c_order, p, modes);
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", n = " << n << ", p = " << p << ", nrhs = " << nrhs
                                            << (forward ? ", forward" : ", backward")
                                            << (system.unit ? ", unit diagonal, " : ", ") << setting.text());
            check_substitution(random, setting, system, B, nrhs);
        });
    }
}

TEST(SubstitutionKernels, SolveWhatTheModelSolves) {
    int statuses[3] = {};
    check_random_substitutions(1, 4000, 0, {current_fp_mode()}, statuses);
    for (const int count : statuses) EXPECT_GT(count, 50);
    for (const size_t n : {63u, 64u, 65u, 150u}) {
        check_random_substitutions(static_cast<uint32_t>(10000 * n), 40, n, {current_fp_mode()}, statuses);
    }
    check_random_substitutions(50000, 400, 0, foreign_fp_modes(), statuses);
}

// ---- Entry points ----

constexpr int32_t native_types[] = {MODLA_INTEGER4, MODLA_FLOAT8};

void fill_table(Object x, const Grid &A) {
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            set_entry(table_of(x), static_cast<int32_t>(i) + 1, static_cast<int32_t>(j) + 1, integer_object(A[i][j]));
        }
    }
}

// A table under a name.
void define(const std::string &name, const Grid &A, size_t columns, int32_t datatype, int32_t order) {
    set_name(name,
             make_table(datatype, MODLA_MATRIX, order, static_cast<int32_t>(A.size()), static_cast<int32_t>(columns)));
    fill_table(eval(name), A);
}

Grid grid_of(const std::string &name) {
    const Object x = eval(name);
    Grid A(static_cast<size_t>(table_rows(table_of(x))), Row(static_cast<size_t>(table_columns(table_of(x)))));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            A[i][j] =
                integer_of(get_entry_integer(table_of(x), static_cast<int32_t>(i) + 1, static_cast<int32_t>(j) + 1))
                    .get_si();
        }
    }
    return A;
}

int64_t integer_at(const std::string &expression) {
    return integer_of(eval(expression)).get_si();
}

std::string text(int64_t x) {
    return std::to_string(x);
}

struct CollectAlways {
    CollectAlways() { set_collect_always(true); }
    ~CollectAlways() { set_collect_always(false); }
};

TEST(LinearSystems, AreSolvedByFactorsAndSubstitutions) {
    for (uint32_t seed = 1; seed <= 120 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t datatype = pick(random, native_types), order = pick(random, orders);
        const int32_t p =
            datatype == MODLA_FLOAT8 ? pick(random, {2, 3, 65521, 33554393}) : pick(random, {2, 3, 46337, 65521});
        const size_t n = pick(random, {0u, 1u, 2u, 3u, 5u, 8u, 64u, 65u}), columns = pick(random, {1u, 1u, 2u, 17u});
        Grid A = product(random_triangle(random, n, p, true, false), random_triangle(random, n, p, false, false), n, p);
        std::shuffle(A.begin(), A.end(), random);
        const Grid B = random_grid(random, n, columns, p);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", n = " << n << ", p = " << p);

        define("A", A, n, datatype, order);
        const bool row_vector = chance(random, 50), host_integers = chance(random, 50);
        const int32_t length = std::max(static_cast<int32_t>(n) - 1, 0) + pick(random, {0, 1, 4});
        set_name("P", make_table(host_integers ? MODLA_INTEGER : MODLA_INTEGER4,
                                 row_vector ? MODLA_ROW_VECTOR : MODLA_COLUMN_VECTOR, pick(random, orders),
                                 row_vector ? 1 : length, row_vector ? length : 1));
        const std::string filler = host_integers ? "10^30" : "12345";
        for (int32_t k = 1; k <= length; k++) run("P[" + text(k) + "] := " + filler);
        {
            const CollectAlways collect;
            ASSERT_EQ(error_of("LUDecomp(" + text(p) + ", A, P, 'out_det')"), "");
        }
        collect_garbage();
        Row perm;
        for (size_t k = 1; k <= static_cast<size_t>(length); k++) {
            const std::string entry = "P[" + std::to_string(k) + "]";
            if (k + 1 <= n)
                perm.push_back(integer_at(entry));
            else
                ASSERT_EQ(run(entry), filler == "12345" ? "12345\n" : "1" + std::string(30, '0') + "\n");
        }
        ASSERT_EQ(integer_at("out_det"), factor_model(A, p).det);
        ASSERT_EQ(grid_of("A"), factor_model(A, p).A);

        const Grid permuted_B = permuted(B, perm);
        define("B", permuted_B, columns, datatype, order);
        if (columns == 1 && chance(random, 50)) {
            set_name("B", make_table(datatype, MODLA_COLUMN_VECTOR, order, static_cast<int32_t>(n), 1));
            fill_table(eval("B"), permuted_B);
        }
        ASSERT_EQ(error_of("ForSub(" + text(p) + ", A, B, true)"), "");
        ASSERT_EQ(error_of("BackSub(" + text(p) + ", A, B)"), "");
        ASSERT_EQ(product(A, grid_of("B"), columns, p), B);
        ASSERT_EQ(lent_count(), 0u);
    }
}

// After a failure the steps that were made stand in the permutation, or zeros; the rest is as it was.
TEST(LinearSystems, FailuresLeaveThePermutationReadable) {
    const struct {
        int32_t p;
        Grid A;
        const char *message;
    } cases[] = {
        {6, {{2, 1}, {1, 1}}, "no LU decomposition exists: modulus is composite"},
        {7, {{0}}, "matrix is singular"},
        {7, {{0, 1, 1}, {2, 1, 1}, {4, 2, 2}}, "matrix is singular"},
        {7, {{0, 1, 1}, {2, 1, 1}, {4, 3, 3}}, "matrix is singular"},
        {6, {{0, 2, 1}, {5, 2, 1}, {1, 0, 1}}, "no LU decomposition exists: modulus is composite"},
    };
    for (const auto &c : cases) {
        for (const int32_t datatype : native_types) {
            for (const bool host_integers : {false, true}) {
                const CollectAlways collect;
                const size_t n = c.A.size();
                define("A", c.A, n, datatype, MODLA_C_ORDER);
                run(std::string("P := Create(100, 0, 3, 9, ") + (host_integers ? "integer)" : "integer[4])"));
                unassign("out_det");
                const Factored model = factor_model(c.A, c.p);
                ASSERT_EQ(error_of("LUDecomp(" + text(c.p) + ", A, P, 'out_det')"), c.message);
                EXPECT_FALSE(is_assigned("out_det"));
                EXPECT_EQ(grid_of("A"), model.A);
                Row expected;
                for (size_t k = 0; k < 3; k++) {
                    const bool step = k + 1 < n;
                    const int64_t raw = step && model.perm[k] != untouched ? model.perm[k] : 9;
                    expected.push_back(host_integers && step ? 0 : raw);
                }
                EXPECT_EQ(grid_of("P"), Grid{expected}) << testing::PrintToString(c.A);
                EXPECT_EQ(lent_count(), 0u);
            }
        }
    }
}

TEST(LinearSystems, SubstitutionFailures) {
    for (const std::string datatype : {"integer[4]", "float[8]"}) {
        for (const std::string order : {"C_order", "Fortran_order"}) {
            const auto error = [&](const std::string &diagonal, const std::string &call) {
                run("T := Create(6, 2, 2, 1, " + datatype + ", " + order + ")\nT[2, 2] := " + diagonal +
                    "\nB := Create(6, 2, 0, " + datatype + ", " + order + ")");
                return error_of(call);
            };
            EXPECT_EQ(error("0", "ForSub(6, T, B, false)"), "matrix is singular");
            EXPECT_EQ(error("0", "ForSub(6, T, B, true)"), "");
            EXPECT_EQ(error("0", "BackSub(6, T, B)"), "matrix is singular");
            EXPECT_EQ(error("3", "ForSub(6, T, B, false)"), "cannot forward substitute: modulus is composite");
            EXPECT_EQ(error("3", "BackSub(6, T, B)"), "cannot backward substitute: modulus is composite");
            EXPECT_EQ(error("5", "BackSub(6, T, B)"), "");
        }
    }
}

TEST(Determinant, OfEveryBlockIsThatOfTheIntegers) {
    for (uint32_t seed = 1; seed <= 400 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t datatype = pick(random, native_types), order = pick(random, orders);
        int32_t p = pick(random, moduli);
        if (datatype == MODLA_INTEGER4 && p > 65535) p = 30;
        const size_t n = 1 + (chance(random, 3) ? 63 + below(random, size_t{3}) : below(random, size_t{8}));
        const size_t top = below(random, size_t{3}), left = below(random, size_t{3});
        const size_t rows = top + n + below(random, size_t{3}), columns = left + n + below(random, size_t{3});
        const Grid D = random_square(random, n, p);
        Grid A = random_grid(random, rows, columns, p);
        for (size_t i = 0; i < n; i++) std::copy(D[i].begin(), D[i].end(), A[top + i].begin() + static_cast<int>(left));
        const auto range = [&](size_t first, size_t last, size_t bound) {
            if (first == 1 && chance(random, 50)) return std::to_string(last);
            const auto end = [&](size_t k) {
                return text(static_cast<int64_t>(k) - (chance(random, 50) ? static_cast<int64_t>(bound) + 1 : 0));
            };
            return end(first) + ".." + end(last);
        };
        const std::string block = ", A, " + range(top + 1, top + n, rows) + ", " + range(left + 1, left + n, columns);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", p = " << p << block);
        define("A", A, columns, datatype, order);
        ASSERT_EQ(error_of("Determinant(" + text(p) + block + ", 'out_det')"), "");
        const int64_t det = integer_at("out_det");
        ASSERT_EQ(det, determinant(D, p));
        Grid after = grid_of("A");
        for (size_t i = 0; i < n; i++)
            std::copy(D[i].begin(), D[i].end(), after[top + i].begin() + static_cast<int>(left));
        ASSERT_EQ(after, A) << "outside the block";
        ASSERT_EQ(lent_count(), 0u);
        if (!is_prime(p)) continue;
        define("A", A, columns, datatype, order);
        run("RowReduce(" + text(p) + block + ", 0, 'out_det', 0, 0, 0, 0, false)");
        ASSERT_EQ(integer_at("out_det"), det);
    }
}

// ---- MatBasis ----

struct Basis {
    Grid rows;
    std::vector<size_t> pivots;
    size_t rank = 0;
    bool kept_nonunit = false;
};

// The reduced form that keeps lone non-units, every step on residues.
Basis basis_model(Grid A, size_t columns, int64_t p) {
    Basis basis;
    size_t &r = basis.rank;
    const auto add = [&](size_t i, int64_t f, size_t s) {
        for (size_t j = 0; j < columns; j++) A[i][j] = mod(A[i][j] + f * A[s][j], p);
    };
    for (size_t c = 0; c < columns && r < A.size();) {
        size_t unit = A.size(), smallest = A.size(), nonzeros = 0;
        for (size_t i = r; i < A.size(); i++) {
            if (A[i][c] == 0) continue;
            nonzeros++;
            if (unit == A.size() && std::gcd(A[i][c], p) == 1) unit = i;
            if (smallest == A.size() || A[i][c] < A[smallest][c]) smallest = i;
        }
        if (nonzeros == 0) {
            c++;
        } else if (unit < A.size()) {
            std::swap(A[unit], A[r]);
            const int64_t scale = inverse(A[r][c], p);
            for (int64_t &x : A[r]) x = x * scale % p;
            for (size_t i = 0; i < A.size(); i++) {
                if (i != r) add(i, -A[i][c], r);
            }
            basis.pivots.push_back(c++);
            r++;
        } else if (nonzeros > 1) {
            for (size_t i = r; i < A.size(); i++) {
                if (i != smallest) add(i, -(A[i][c] / A[smallest][c]), smallest);
            }
        } else {
            std::swap(A[smallest], A[r]);
            for (size_t i = 0; i < r; i++) add(i, -(A[i][c] / A[r][c]), r);
            basis.kept_nonunit = true;
            r++, c++;
        }
    }
    basis.rows = A;
    return basis;
}

TEST(MatBasis, RowsRankAndNullspaceAreTheModels) {
    int kept = 0, nullspaces = 0;
    for (uint32_t seed = 1; seed <= 600 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t datatype = pick(random, native_types), order = pick(random, orders);
        int32_t p = pick(random, moduli);
        if (datatype == MODLA_INTEGER4 && p > 65535) p = 12;
        const bool large = chance(random, 3);
        const size_t columns = 1 + below(random, size_t{large ? 65u : 7u});
        const size_t rows = 1 + below(random, size_t{large ? 70u : 10u});
        const size_t rank = below(random, std::min(rows, columns) + 1);
        Grid A = product(random_grid(random, rows, rank, p), random_grid(random, rank, columns, p), columns, p);
        if (chance(random, 30)) A = random_grid(random, rows, columns, p);
        const int32_t k = chance(random, 10) ? -static_cast<int32_t>(below(random, 3)) - 1
                                             : static_cast<int32_t>(below(random, rows + 1));
        const size_t used = k < 0 ? 0 : k == 0 ? rows : static_cast<size_t>(k);
        const bool nullspace = columns <= rows && chance(random, 60);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", p = " << p << ", " << rows << " x " << columns
                                        << ", k = " << k << (nullspace ? ", with nullspace" : ""));

        const Grid leading(A.begin(), A.begin() + static_cast<int>(used));
        const Basis basis = basis_model(leading, columns, p);
        Grid expected = A;
        std::copy(basis.rows.begin(), basis.rows.end(), expected.begin());
        const bool fails = nullspace && basis.kept_nonunit;
        if (nullspace && !fails) {
            size_t i = basis.rank;
            for (size_t c = 0; c < columns; c++) {
                if (std::count(basis.pivots.begin(), basis.pivots.end(), c)) continue;
                expected[i].assign(columns, 0);
                expected[i][c] = 1;
                for (size_t j = 0; j < basis.rank; j++) {
                    if (basis.pivots[j] < c) expected[i][basis.pivots[j]] = mod(-basis.rows[j][c], p);
                }
                i++;
            }
            nullspaces++;
        }
        kept += basis.kept_nonunit;

        define("A", A, columns, datatype, order);
        unassign("out_rank");
        const CollectAlways collect;
        const std::string error =
            error_of("out_rank := MatBasis(" + text(p) + ", A, " + text(k) + (nullspace ? ", true)" : ", false)"));
        ASSERT_EQ(error, fails ? "unable to compute nullspace: modulus is composite" : "");
        ASSERT_EQ(grid_of("A"), expected);
        ASSERT_EQ(lent_count(), 0u);
        if (fails) continue;
        ASSERT_EQ(integer_at("out_rank"), static_cast<int64_t>(basis.rank));
        if (!is_prime(p)) continue;
        NmodMat reduced(leading, columns, p);
        ASSERT_EQ(nmod_mat_rref(reduced.mat), static_cast<slong>(basis.rank));
        ASSERT_EQ(reduced.grid(), basis.rows);
        if (!nullspace) continue;
        const Grid N(expected.begin() + static_cast<int>(basis.rank), expected.begin() + static_cast<int>(columns));
        Grid transposed(columns, Row(N.size()));
        for (size_t i = 0; i < N.size(); i++) {
            for (size_t j = 0; j < columns; j++) transposed[j][i] = N[i][j];
        }
        ASSERT_EQ(product(leading, transposed, N.size(), p), Grid(used, Row(N.size(), 0)));
    }
    EXPECT_GT(kept, 20);
    EXPECT_GT(nullspaces, 50);
}

// ---- Faults of the arguments ----

std::vector<Subject> lu_subjects(int32_t datatype) {
    const std::string d = std::to_string(datatype);
    Subject s{"LUDecomp", {"7", "A" + d, "P4", "'out'"}};
    s.counted().at(1, no_integers, "argument 1, the modulus, must be an integer");
    s.at(2, no_tables, "argument 2, the matrix, must be an rtable");
    s.at(3, no_tables, "argument 3, the permutation, must be an rtable");
    s.at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
    s.at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
    s.at(2, {"V" + d, "R" + d, "Y" + d}, "argument 2 must be a Matrix");
    s.at(2, {"B" + d, "W" + d}, "argument 2 must be a square Matrix");
    s.at(3, {"V6", "A6", "AllOdd"}, "argument 3 must have integer datatype");
    s.at(3, {"OddStorage", "OddStorageVector"}, "argument 3 has invalid storage");
    s.at(3, {"A4", "A0", "Y4"}, "argument 3 must be a Vector");
    s.at(3, {"Short4", "Short0"}, "argument 3 must have at least one less element than the matrix dimension");
    s.modulus(datatype);
    s.at(4, {"1", "-1", "0.0", "\"d\"", "10^20", "A4", "[0]"}, "argument 4 must be a name or the value 0");
    return {s};
}

std::vector<Subject> substitution_subjects(int32_t datatype) {
    const std::string d = std::to_string(datatype), other = datatype == MODLA_INTEGER ? "4" : "0";
    std::vector<Subject> subjects;
    for (const bool forward : {true, false}) {
        const std::string triangle = forward ? "lower" : "upper";
        Subject s{forward ? "ForSub" : "BackSub", {"7", "A" + d, "B" + d}};
        if (forward) s.arguments.push_back("false");
        s.counted().at(1, no_integers, "argument 1, the modulus, must be an integer");
        s.at(2, no_tables, "argument 2, the " + triangle + " triangular matrix, must be an rtable");
        s.at(3, no_tables, "argument 3, the right hand side, must be an rtable");
        s.at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
        s.at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
        s.at(2, {"V" + d, "R" + d, "Y" + d, "B" + d, "W" + d}, "argument 2 must be a square Matrix");
        if (forward) s.at(4, no_booleans, "argument 4 must be 'true' or 'false'");
        s.at(3, {"B" + other, "G" + other, "AllOdd"}, "arguments 2 and 3 must have the same datatype");
        s.at(3, {"F" + d, "G" + d}, "arguments 2 and 3 must have the same ordering");
        s.at(3, {"S" + d}, "argument 3 has invalid storage");
        s.at(3, {"R" + d, "T" + d, "Y" + d}, "argument 3 must be a Matrix or column Vector");
        s.at(3, {"W" + d, "Short" + d}, "argument 3 must have as many rows as columns in argument 2");
        s.modulus(datatype);
        subjects.push_back(s);
    }
    return subjects;
}

std::vector<Subject> reduction_subjects(int32_t datatype) {
    const std::string d = std::to_string(datatype);
    Subject det{"Determinant", {"7", "A" + d, "2", "2..3", "'out'"}}, basis{"MatBasis", {"7", "A" + d, "2", "true"}};
    for (Subject *s : {&det, &basis}) {
        s->counted().at(1, no_integers, "argument 1, the modulus, must be an integer");
        s->at(2, no_tables, "argument 2, the matrix, must be an rtable");
        s->at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
        s->at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
        s->at(2, {"V" + d, "R" + d, "Y" + d}, "argument 2 must be a Matrix");
    }
    det.at(3, {"0", "4", "-4", "0..2", "1..4", "3..2"}, "row range is out of bounds");
    det.at(3, {"1..'x'", "'x'", "2.0", "10^20", "[1]"}, "row range must be an integer or integer range");
    det.at(4, {"0", "4", "-4", "0..2", "1..4", "3..2"}, "column range is out of bounds");
    det.at(4, {"1..'x'", "1..10^20"}, "column range, must be an integer or integer range");
    det.at(4, {"'x'", "2.0", "10^20"}, "column range must be an integer or integer range");
    det.at(3, {"3", "1", "2..2"}, "input Matrix must be square")
        .at(4, {"3", "1", "3..3"}, "input Matrix must be square");
    det.modulus(datatype);
    det.at(5, {"0", "1", "\"d\"", "10^20", "A4", "[0]"}, "argument 5, determinant output, must be a name");
    basis.at(3, {"'x'", "2.0", "10^20", "-10^20", "1..2"},
             "number of vectors (rows) must be a nonnegative integer value");
    basis.at(3, {"4", "2^30-1"}, "number of vectors (rows) cannot be greater than the number of Matrix rows");
    basis.modulus(datatype);
    basis.at(4, no_booleans, "argument 4 must be 'true' or 'false'");
    basis.at(2, {"W" + d}, "Matrix rows cannot be less than columns when nullspace is requested");
    return {det, basis};
}

class LinearSystemFaults : public modla_test::FaultPairs {
  protected:
    LinearSystemFaults() {
        for (const int32_t t : datatypes) {
            const std::string d = std::to_string(t);
            define("A" + d, make_table(t, MODLA_MATRIX, MODLA_C_ORDER, 3, 3));
            fill_table(eval("A" + d), {{0, 2, 3}, {1, 5, 6}, {2, 4, 4}});
            define("B" + d, make_table(t, MODLA_MATRIX, MODLA_C_ORDER, 3, 2));
            define("F" + d, make_table(t, MODLA_MATRIX, MODLA_FORTRAN_ORDER, 3, 2));
            define("W" + d, make_table(t, MODLA_MATRIX, MODLA_C_ORDER, 2, 3));
            define("V" + d, make_table(t, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 3, 1));
            define("R" + d, make_table(t, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 3));
            define("Y" + d, make_table(t, MODLA_ARRAY, MODLA_C_ORDER, 3, 3));
            // Tables with later faults besides their first one.
            define("S" + d, make_table(t, MODLA_ARRAY, MODLA_C_ORDER, 2, 2, 1));
            define("G" + d, make_table(t, MODLA_ARRAY, MODLA_FORTRAN_ORDER, 2, 2, 1));
            define("T" + d, make_table(t, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 2));
            define("Short" + d, make_table(t, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 1, 1));
            fill_table(eval("B" + d), {{1, 2}, {3, 4}, {5, 6}});
        }
        define("P4", make_table(MODLA_INTEGER4, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 2));
        define("OddStorageVector", make_table(MODLA_INTEGER, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 1, 1, 0));
        set_name("Target4", eval("A4"));
        for (const auto make : {lu_subjects, substitution_subjects, reduction_subjects}) {
            for (const int32_t datatype : datatypes) {
                for (const Subject &subject : make(datatype)) subjects_.push_back(subject);
            }
        }
    }

    std::vector<Subject> subjects_;
};

TEST_F(LinearSystemFaults, TheEarliestIsReportedAndNothingIsWritten) {
    check(subjects_, 700);
}

TEST_F(LinearSystemFaults, WithoutOneTheCallSucceeds) {
    for (const Subject &subject : subjects_) {
        // The substitutions read triangles without a zero on their diagonals.
        const std::string entry = subject.entry;
        if (entry == "ForSub" || entry == "BackSub")
            fill_table(eval(subject.arguments[1]), {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
        check_success(subject);
        fill_table(eval(subject.arguments[1]), {{0, 2, 3}, {1, 5, 6}, {2, 4, 4}});
    }
}

// ---- Matrices of host integers ----

TEST(LinearSystemCallbacks, ReceiveTheirArgumentsAndTheirStatusBecomesAMessage) {
    run("A := Create(7, 3, 3, 1, integer)\nB := Create(7, 3, 2, 1, integer)\nV := Create(7, 3, 0, 1, integer)\n"
        "P := Create(7, 3, 0, 1, integer)\nQ := Create(7, 3, 0, 1, integer[4])\nZ := Create(7, 4, 3, 1, integer)");
    unassign("out");
    const auto singular = [](const std::string &composite) {
        return std::map<int32_t, std::string>{{0, ""}, {1, composite}, {2, "matrix is singular"}, {3, "unknown error"}};
    };
    auto forward = singular("cannot forward substitute: modulus is composite");
    auto backward = singular("cannot backward substitute: modulus is composite");
    forward[10] = backward[10] = "not implemented yet";
    auto factor = singular("no LU decomposition exists: modulus is composite");
    factor[10] = factor[-1] = "unknown error";
    const std::map<int32_t, std::string> det = {
        {0, ""}, {1, "unknown error"}, {2, "unknown error"}, {4, "unknown error"}, {10, "unknown error"}};
    auto basis = det;
    basis[4] = "unable to compute nullspace: modulus is composite";
    const struct {
        const char *call, *callback, *arguments;  // `rank` and `pivots` stand for objects that the library made
        const std::map<int32_t, std::string> &messages;
    } cases[] = {
        {"LUDecomp(10^20, A, P, 0)", "cbLUDecomp", "[A, P, 3, 10^20, 0]", factor},
        {"LUDecomp(7, A, Q, 'out')", "cbLUDecomp", "[A, Q, 3, 7, 'out']", factor},
        {"ForSub(10^20, A, B, true)", "cbForSub", "[A, 3, B, 2, 10^20, true]", forward},
        {"ForSub(7, A, V, false)", "cbForSub", "[A, 3, V, 0, 7, false]", forward},
        {"BackSub(10^20, A, B)", "cbBackSub", "[A, 3, B, 2, 10^20]", backward},
        {"BackSub(7, A, V)", "cbBackSub", "[A, 3, V, 0, 7]", backward},
        {"Determinant(10^20, A, 2..-1, 2, 'out')", "cbReduce",
         "[A, 2, 3, 1, 2, 3, 10^20, 'out', 0, 0, 0, 0, 0, 0, true]", det},
        {"MatBasis(10^20, Z, 0, false)", "cbReduce", "[Z, 1, 4, 1, 3, 4, 10^20, 0, 0, rank, 0, 0, 0, 2, false]", basis},
        {"MatBasis(7, Z, 2, true)", "cbReduce", "[Z, 1, 2, 1, 3, 4, 7, 0, 0, rank, 0, 0, pivots, 2, false]", basis},
    };
    for (const auto &c : cases) {
        for (const auto &[status, message] : c.messages) {
            for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
                set_unwinding(unwinding);
                const CollectAlways collect;
                int calls = 0;
                const Callback callback(c.callback, [&](const std::vector<Object> &arguments) {
                    calls++;
                    const Object expected = eval(c.arguments);
                    EXPECT_EQ(arguments.size(), size_of(expected)) << c.call;
                    for (size_t i = 0; i < std::min<size_t>(arguments.size(), size_of(expected)); i++) {
                        const Object wanted = element(expected, static_cast<uint32_t>(i)), given = arguments[i];
                        if (wanted == global_name("rank")) {
                            EXPECT_NE(given, wanted) << "a local name";
                            EXPECT_EQ(text_of(given), "rank");
                            assign_global(given, integer_object(int64_t{4321}));
                        } else if (wanted == global_name("pivots")) {
                            EXPECT_EQ(describe_table(table_of(given)).substr(0, 27), "3 column Vector, integer[4]");
                        } else {
                            EXPECT_TRUE(has_type(given, type_table) ? given == wanted : same_value(given, wanted))
                                << c.call << ", argument " << i + 1 << ": " << to_line(given);
                        }
                    }
                    return immediate(status);
                });
                const modla_test::Outcome outcome = modla_test::outcome_of(c.call);
                EXPECT_EQ(outcome.error, message) << c.call << ", status " << status;
                const bool gives_rank = std::string(c.call).starts_with("MatBasis") && status == 0;
                EXPECT_EQ(outcome.output, gives_rank ? "4321\n" : "") << c.call;
                EXPECT_EQ(calls, 1) << c.call;
                EXPECT_EQ(lent_count(), 0u) << c.call;
            }
        }
    }
    set_unwinding(Unwinding::exception);
    EXPECT_FALSE(is_assigned("out"));  // the callbacks assign their outputs themselves
}

TEST(LinearSystemCallbacks, CanBeWrittenInTheConsolesLanguage) {
    const std::string parameters = "A, r1, r2, c1, c2, cb, p, det, prod, rank, sig, extra, pivots, mode, detonly";
    run("cbReduce := proc(" + parameters + ") if mode = 2 then assign(rank, 17) else assign(det, 2^100) end; 0 end");
    run("A := Create(7, 3, 3, integer)\nDeterminant(7, A, 3, 3, 'out')");
    EXPECT_EQ(run("out"), "1267650600228229401496703205376\n");
    EXPECT_EQ(run("MatBasis(7, A, 3, true)"), "17\n");
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        run("cbReduce := proc(" + parameters + ") error(\"no luck\") end");
        EXPECT_EQ(error_of("MatBasis(7, A, 3, true)"), "no luck");
        EXPECT_EQ(error_of("Determinant(7, A, 3, 3, 'out')"), "no luck");
        EXPECT_EQ(lent_count(), 0u);
    }
    set_unwinding(Unwinding::exception);
    unassign("cbReduce");
    unassign("out");
}

// What a host's NameTarget gives is for callbacks; outputs go to the name as it was given.
TEST(LinearSystemCallbacks, ReceiveTheTargetOfAnOutput) {
    HostApi api = recording_host();
    api.CheckName = [](Object) { return uint32_t{1}; };
    api.NameTarget = [](Object name) { return global_name(text_of(name) + "_target"); };
    const auto call = reinterpret_cast<EntryPoint>(library_symbol("modLA_LUDecomp"));
    Object given = 0;
    const Callback callback("cbLUDecomp", [&](const std::vector<Object> &arguments) {
        given = arguments.back();
        return immediate(0);
    });
    run("P := Create(7, 1, 0, integer[4])");
    for (const std::string datatype : {"integer", "integer[4]", "float[8]"}) {
        run("A := Create(7, 2, 2, identity, " + datatype + ")");
        call(&api, words(sequence_of(eval("[7, A, P, 'out']"))));
    }
    EXPECT_EQ(given, global_name("out_target"));
    EXPECT_EQ(run("out; out_target"), "1\nout_target\n");
    unassign("out");
}

}  // namespace
