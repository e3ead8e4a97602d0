// Row gcd and zigzag form: the kernels step by step against plain models and against FLINT, the entry points as
// programs call them.
#include <flint/flint.h>
#include <flint/nmod_mat.h>
#include <flint/nmod_poly.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <numeric>

#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "tests/fault_pairs.h"

using namespace modla::console;
using modla_test::argument_array, modla_test::Callback, modla_test::datatypes, modla_test::entry_point;
using modla_test::below, modla_test::chance, modla_test::current_fp_mode, modla_test::foreign_fp_modes;
using modla_test::error_of, modla_test::eval, modla_test::make_table, modla_test::run, modla_test::set_name;
using modla_test::FpMode, modla_test::keeps_fp_mode, modla_test::pick, modla_test::Random;
using modla_test::no_integers, modla_test::no_tables, modla_test::orders, modla_test::Subject;
using modla_test::raised_messages, modla_test::recording_host, modla_test::storage_of;

namespace {

using Row = std::vector<int64_t>;
using Grid = std::vector<Row>;

constexpr int64_t not_a_residue = -1;

int64_t mod(int64_t a, int64_t p) {
    return (a % p + p) % p;
}

// The inverse of a mod p; 0 when there is none.
int64_t inverse(int64_t a, int64_t p) {
    int64_t g = mod(a, p), x = 1, y = 0;
    for (int64_t b = p; b != 0;) {
        const int64_t q = g / b;
        g = std::exchange(b, g - q * b);
        x = std::exchange(y, x - q * y);
    }
    return g == 1 ? mod(x, p) : 0;
}

Grid random_grid(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A(rows, Row(columns));
    for (Row &row : A) {
        for (int64_t &x : row) x = below(random, p);
    }
    return A;
}

std::string text(const Grid &A) {
    std::string lines = "\n";
    for (size_t i = 0; i < std::min<size_t>(A.size(), 20); i++) {
        for (size_t j = 0; j < std::min<size_t>(A[i].size(), 40); j++) lines += std::to_string(A[i][j]) + " ";
        lines += "\n";
    }
    return lines;
}

const int32_t composites[] = {4, 6, 9, 12, 30, 210, 4096, 30030, 65025, 65534, 65535, 9699690, 33554430, 33554431};
const int32_t primes[] = {2, 3, 5, 7, 101, 251, 4093, 32749, 46337, 46349, 65521, 1048573, 16777213, 33554393};

int32_t random_modulus(Random &random) {
    return chance(random, 50) ? pick(random, primes) : pick(random, composites);
}

// ---- Calls of kernels on storage that is watched ----

template <class W>
W as_entry(int64_t value) {
    return static_cast<W>(value);
}

// What a kernel returned and left.
struct Answer {
    int64_t status = 0;
    Grid A = {};
    bool stays_in_bounds = true, keeps_fp_mode = true;

    bool operator==(const Answer &) const = default;
};

std::string text(const Answer &a) {
    return "result " + std::to_string(a.status) + (a.stays_in_bounds ? "" : ", WROTE OUT OF BOUNDS") +
           (a.keeps_fp_mode ? "" : ", CHANGED THE FLOATING-POINT MODE") + text(a.A);
}

// How a matrix is put to a kernel.
struct Setting {
    bool c_order;
    size_t gap = 0;  // entries between two lines that are not the kernel's
    bool misaligned = false;
    FpMode fp_mode = current_fp_mode();
};

std::string text(const Setting &setting) {
    return std::string(setting.c_order ? "C_order" : "Fortran_order") + ", line gap " + std::to_string(setting.gap) +
           (setting.misaligned ? ", misaligned" : "");
}

// Calls kernel(data, ld) on the matrix; all around it, and in the gaps, lie entries that must stay.
template <class W, class Kernel>
Answer call_kernel(const std::vector<std::vector<W>> &matrix, size_t columns, const Setting &setting,
                   const Kernel &kernel) {
    constexpr size_t guard = 5, words_per_entry = sizeof(W) / sizeof(uint32_t);
    const size_t rows = matrix.size();
    const size_t lines = setting.c_order ? rows : columns, ld = (setting.c_order ? columns : rows) + setting.gap;
    const size_t count = guard + lines * ld + guard;
    std::vector<uint32_t> storage(count * words_per_entry + 1, 0x45454545);
    const auto at = [&](size_t i, size_t j) {
        const size_t k = guard + (setting.c_order ? i * ld + j : j * ld + i);
        return storage.data() + (setting.misaligned ? 1 : 0) + k * words_per_entry;
    };
    // On i386 a vector is aligned to 8 at least, so that an offset of one word is not.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(storage.data()) % 8, 0u);
    for (size_t i = 0; i < rows; i++) {
        for (size_t j = 0; j < columns; j++) std::memcpy(at(i, j), &matrix[i][j], sizeof(W));
    }
    const std::vector<uint32_t> before = storage;
    Answer answer;
    answer.keeps_fp_mode = keeps_fp_mode(
        setting.fp_mode, [&] { answer.status = kernel(reinterpret_cast<W *>(at(0, 0)), static_cast<int32_t>(ld)); });
    answer.A.assign(rows, Row(columns));
    std::vector<uint32_t> outside = storage;
    for (size_t i = 0; i < rows; i++) {
        for (size_t j = 0; j < columns; j++) {
            W value;
            std::memcpy(&value, at(i, j), sizeof value);
            answer.A[i][j] = static_cast<int64_t>(value);
            if constexpr (std::is_same_v<W, double>) {
                if (!(value >= 0 && value < 4294967296.0) || std::floor(value) != value || std::signbit(value)) {
                    answer.A[i][j] = not_a_residue;
                }
            }
            const ptrdiff_t place = at(i, j) - storage.data();
            std::copy_n(before.begin() + place, words_per_entry, outside.begin() + place);
        }
    }
    answer.stays_in_bounds = outside == before;
    return answer;
}

// The residues as entries, some spelled otherwise: larger numbers, and for floats also negative ones and fractions.
template <class W>
std::vector<std::vector<W>> spell(Random &random, const Grid &A, int64_t p, int density) {
    const int64_t limit = std::is_same_v<W, double> ? int64_t{1} << 53 : int64_t{1} << 32;
    std::vector<std::vector<W>> spelled;
    for (const Row &row : A) {
        spelled.emplace_back();
        for (const int64_t x : row) {
            const int64_t most = (limit - 1 - x) / p;
            W entry = as_entry<W>(x);
            if (chance(random, density)) {
                const int64_t turns = chance(random, 30) ? most : below(random, most + 1);
                entry = as_entry<W>(x + turns * p);
                if constexpr (std::is_same_v<W, double>) {
                    if (chance(random, 20)) entry = as_entry<W>(x - turns * p);
                    if (chance(random, 20)) entry = as_entry<W>(x) + 0.75;
                    if (x == 0 && chance(random, 20)) {
                        const double infinity = std::numeric_limits<double>::infinity();
                        entry = pick(random, {-0.0, infinity, -infinity, std::nan("")});
                    }
                }
            }
            spelled.back().push_back(entry);
        }
    }
    return spelled;
}

double pinv(double p) {
    return (1 + std::numeric_limits<double>::epsilon()) / p;
}

// How many products of residues fit on top of a residue.
int32_t true_bound(int64_t limit, int64_t p) {
    return static_cast<int32_t>(std::min<int64_t>((limit - p) / ((p - 1) * (p - 1)), 2147483646));
}

// ---- Row gcd: the model ----

int64_t degree(const Row &row) {
    for (size_t j = row.size(); j > 0; j--) {
        if (row[j - 1] != 0) return static_cast<int64_t>(j) - 1;
    }
    return -1;
}

// How often the model went which way.
struct GcdWays {
    int composite = 0, zero = 0, ties = 0, vanished = 0, taken_over = 0, common_factors = 0;
};

// One long division after the other on plain integers.
Answer gcd_model(Grid rows, int64_t p, GcdWays *ways) {
    // b minus the multiple of a that leaves a degree below a's
    const auto reduce_by = [&](Row &b, const Row &a) {
        const int64_t da = degree(a), unit = inverse(a[static_cast<size_t>(da)], p);
        if (unit == 0) return false;
        for (int64_t db = degree(b); db >= da; db = degree(b)) {
            const int64_t quotient = mod(b[static_cast<size_t>(db)] * unit, p);
            for (int64_t j = 0; j <= da; j++) {
                int64_t &x = b[static_cast<size_t>(db - da + j)];
                x = mod(x - quotient * a[static_cast<size_t>(j)], p);
            }
        }
        return true;
    };
    for (size_t i = 1; i < rows.size(); i++) {
        Row &a = rows[0], &b = rows[i];
        while (degree(a) >= 0 && degree(b) >= 0) {
            ways->ties += degree(a) == degree(b);
            if (!(degree(a) < degree(b) ? reduce_by(b, a) : reduce_by(a, b))) {
                ways->composite++;
                return {-2, rows};
            }
            ways->vanished += degree(a) < 0;
        }
        if (degree(a) < 0 && degree(b) >= 0) {
            ways->taken_over++;
            std::swap(a, b);
        }
    }
    const int64_t result = rows.empty() ? -1 : degree(rows[0]);
    ways->zero += result < 0;
    ways->common_factors += result > 0;
    return {result, rows};
}

// ---- Row gcd: the kernels ----

template <class W>
using GcdKernel = int32_t (*)(MODLA_ROW_GCD_ARGUMENTS(W));

template <class W>
GcdKernel<W> gcd_kernel(bool c_order) {
    if constexpr (std::is_same_v<W, double>)
        return c_order ? modLA_RowGcd_C_f : modLA_RowGcd_F_f;
    else
        return c_order ? modLA_RowGcd_C_iw : modLA_RowGcd_F_iw;
}

template <class W>
int32_t true_c(int64_t p) {
    return true_bound(std::is_same_v<W, double> ? int64_t{1} << 53 : int64_t{1} << 32, p);
}

// The first k rows of a matrix; the others must stay as they are.
template <class W>
Answer run_gcd(const std::vector<std::vector<W>> &matrix, size_t columns, size_t k, int32_t p, int32_t c,
               const Setting &setting) {
    const W modulus = static_cast<W>(p);
    const double reciprocal = pinv(p);
    return call_kernel(matrix, columns, setting, [&](W *data, int32_t stride) {
        return gcd_kernel<W>(setting.c_order)(data, static_cast<int32_t>(k), static_cast<int32_t>(columns), stride,
                                              modulus, reciprocal, c);
    });
}

template <class W>
void compare_gcd(Random &random, const Grid &A, size_t columns, size_t k, int32_t p, const Answer &expected,
                 const std::vector<FpMode> &fp_modes, int density) {
    for (const bool c_order : {true, false}) {
        for (const int32_t c : {1, 2, 3, true_c<W>(p), 0, -7}) {
            if (c > true_c<W>(p)) continue;
            const Setting setting = {c_order, chance(random, 50) ? below(random, size_t{6}) : 0, chance(random, 40),
                                     pick(random, fp_modes)};
            Grid head(A.begin(), A.begin() + static_cast<ptrdiff_t>(k));
            std::vector<std::vector<W>> matrix = spell<W>(random, head, p, density);
            for (size_t i = k; i < A.size(); i++) {
                matrix.emplace_back();
                for (const int64_t x : A[i]) matrix.back().push_back(static_cast<W>(x + p));  // not residues, kept
            }
            const Answer answer = run_gcd(matrix, columns, k, p, c, setting);
            Answer whole = expected;
            for (size_t i = k; i < A.size(); i++) {
                whole.A.push_back(A[i]);
                for (int64_t &x : whole.A.back()) x += p;
            }
            if (answer == whole) continue;
            ADD_FAILURE() << k << " of " << A.size() << " rows mod " << p << (sizeof(W) == 8 ? ", floats" : ", words")
                          << ", c = " << c << ", " << text(setting) << ", of" << text(A) << "give " << text(answer)
                          << "instead of " << text(whole);
            return;
        }
    }
}

void compare_gcd_with_model(Random &random, const Grid &A, size_t columns, size_t k, int32_t p, GcdWays *ways,
                            const std::vector<FpMode> &fp_modes = {current_fp_mode()}) {
    const Answer expected = gcd_model({A.begin(), A.begin() + static_cast<ptrdiff_t>(k)}, p, ways);
    const int density = pick(random, {0, 0, 20, 100});
    if (p <= 65535) compare_gcd<uint32_t>(random, A, columns, k, p, expected, fp_modes, density);
    compare_gcd<double>(random, A, columns, k, p, expected, fp_modes, density);
}

Row product(const Row &a, const Row &b, size_t columns, int64_t p) {
    Row c(columns);
    for (size_t i = 0; i < a.size(); i++) {
        for (size_t j = 0; j < b.size() && i + j < columns; j++) c[i + j] = (c[i + j] + a[i] * b[j]) % p;
    }
    return c;
}

// Polynomials on which the algorithm has something to decide.
Grid random_polynomials(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A = random_grid(random, rows, columns, p);
    const int kind = below(random, 6);
    const Row factor = random_grid(random, 1, columns / 2 + 1, p)[0];
    for (Row &row : A) {
        if (kind == 1) row = product(factor, random_grid(random, 1, columns - columns / 2, p)[0], columns, p);
        if (kind == 2) {
            for (int64_t &x : row) x = chance(random, 70) ? 0 : x;
        }
        if (kind == 3) {
            for (int64_t &x : row) x = mod(below(random, 3) - 1, p);
        }
        if (kind == 4 && columns > 0) {  // of any degree, leading coefficient 1
            const size_t d = below(random, columns);
            std::fill(row.begin() + static_cast<ptrdiff_t>(d), row.end(), 0);
            row[d] = 1;
        }
        if (kind == 5) std::fill(row.begin() + static_cast<ptrdiff_t>(below(random, columns + 1)), row.end(), 0);
        if (chance(random, 10)) row.assign(columns, 0);
    }
    if (rows > 1 && chance(random, 10)) A[1] = A[0];
    return A;
}

void compare_random_polynomials(uint32_t first_seed, uint32_t cases, size_t max_rows, size_t max_columns,
                                const std::vector<FpMode> &fp_modes, GcdWays *ways) {
    for (uint32_t seed = first_seed; seed < first_seed + cases && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const size_t k = 1 + below(random, max_rows), columns = below(random, max_columns + 1);
        const int32_t p = random_modulus(random);
        const Grid A = random_polynomials(random, k + below(random, size_t{3}), columns, p);
        compare_gcd_with_model(random, A, columns, k, p, ways, fp_modes);
    }
}

TEST(RowGcd, FollowsTheModelOnSmallMatrices) {
    GcdWays ways;
    compare_random_polynomials(1, 20000, 6, 12, {current_fp_mode()}, &ways);
    for (const int count :
         {ways.composite, ways.zero, ways.ties, ways.vanished, ways.taken_over, ways.common_factors}) {
        EXPECT_GT(count, 1000);
    }
}

TEST(RowGcd, FollowsTheModelOnLargeMatrices) {
    GcdWays ways;
    compare_random_polynomials(100000, 60, 20, 200, {current_fp_mode()}, &ways);
    Random random(8);
    for (const int32_t p : {251, 65521, 33554393}) {
        compare_gcd_with_model(random, random_grid(random, 2, 1100, p), 1100, 2, p, &ways);
    }
}

TEST(RowGcd, InForeignFloatingPointModes) {
    GcdWays ways;
    compare_random_polynomials(200000, 2000, 4, 12, foreign_fp_modes(), &ways);
}

// Divisions in which every multiplier and nearly every coefficient is p-1: sums come as close to the limit as they can.
Grid largest_sums(int64_t p) {
    const size_t da = 60, quotient = 45, columns = da + quotient + 1;
    Row a(columns);
    std::fill_n(a.begin(), da, p - 1);
    a[da] = 1;
    Row b = product(a, Row(quotient, 1), columns, p);
    for (size_t j = 0; j < da; j++) b[j] = mod(b[j] - 1 - static_cast<int64_t>(j), p);
    return {a, b};
}

TEST(RowGcd, SumsUpToTheLimit) {
    GcdWays ways;
    Random random(5);
    for (const int32_t p :
         {2, 3, 7, 101, 9851, 20011, 32749, 46337, 46339, 65521, 65535, 1048573, 14529495, 33554393, 33554431}) {
        const Grid A = largest_sums(p);
        compare_gcd_with_model(random, A, A[0].size(), 2, p, &ways);
        compare_gcd_with_model(random, {A[1], A[0]}, A[0].size(), 2, p, &ways);
    }
}

// A single row is counted, not changed; more than one vanish into row 0.
TEST(RowGcd, OneRowAndNoColumns) {
    for (const bool c_order : {true, false}) {
        const std::vector<std::vector<double>> floats = {{3, 0, 5, 0}, {1, 1, 1, 1}};
        const Answer one = run_gcd(floats, 4, 1, 7, 1, {c_order});
        EXPECT_EQ(one, (Answer{2, {{3, 0, 5, 0}, {1, 1, 1, 1}}})) << text(one);
        const std::vector<std::vector<uint32_t>> words = {{0, 0, 0}, {6, 6, 0}};
        EXPECT_EQ(run_gcd(words, 3, 1, 6, 1, {c_order}), (Answer{-1, {{0, 0, 0}, {6, 6, 0}}}));
        EXPECT_EQ(run_gcd(words, 3, 2, 6, 1, {c_order}), (Answer{-1, {{0, 0, 0}, {0, 0, 0}}}));
        for (const size_t k : {1u, 2u, 3u}) {
            const std::vector<std::vector<uint32_t>> empty(3);
            EXPECT_EQ(run_gcd(empty, 0, k, 7, 4, {c_order}).status, -1);
        }
    }
    uint32_t entry = 5;
    for (const int32_t k : {0, -1, -2147483647}) EXPECT_EQ(modLA_RowGcd_C_iw(&entry, k, 1, 1, 7, 0, 1), 0);
    for (const int32_t columns : {-1, -2147483647}) EXPECT_EQ(modLA_RowGcd_C_iw(&entry, 1, columns, 1, 7, 0, 1), -1);
    EXPECT_EQ(entry, 5u);
}

// ---- Row gcd: FLINT ----

// The monic gcd of the rows.
Row flint_gcd(const Grid &rows, int64_t p) {
    nmod_poly_t gcd, next;
    nmod_poly_init(gcd, static_cast<mp_limb_t>(p));
    nmod_poly_init(next, static_cast<mp_limb_t>(p));
    for (const Row &row : rows) {
        nmod_poly_zero(next);
        for (size_t j = 0; j < row.size(); j++) {
            nmod_poly_set_coeff_ui(next, static_cast<slong>(j), static_cast<mp_limb_t>(row[j]));
        }
        nmod_poly_gcd(gcd, gcd, next);
    }
    Row result(rows[0].size());
    for (slong j = 0; j < nmod_poly_length(gcd); j++) result[static_cast<size_t>(j)] = nmod_poly_get_coeff_ui(gcd, j);
    nmod_poly_clear(gcd);
    nmod_poly_clear(next);
    return result;
}

Row monic(Row row, int64_t p) {
    const int64_t d = degree(row), unit = d < 0 ? 0 : inverse(row[static_cast<size_t>(d)], p);
    for (int64_t &x : row) x = mod(x * unit, p);
    return row;
}

template <class W>
void compare_gcd_with_flint(const Grid &A, size_t columns, int32_t p, const Row &expected) {
    std::vector<std::vector<W>> matrix;
    for (const Row &row : A) {
        matrix.emplace_back();
        for (const int64_t x : row) matrix.back().push_back(static_cast<W>(x));
    }
    const Grid zeros(A.size() - 1, Row(columns, 0));
    for (const bool c_order : {true, false}) {
        const Answer answer = run_gcd(matrix, columns, A.size(), p, true_c<W>(p), {c_order});
        EXPECT_EQ(answer.status, degree(expected)) << p;
        EXPECT_TRUE(monic(answer.A[0], p) == expected) << p;
        EXPECT_TRUE(Grid(answer.A.begin() + 1, answer.A.end()) == zeros) << p;
        EXPECT_TRUE(answer.stays_in_bounds) << p;
    }
}

TEST(RowGcd, AgreesWithFlintUpToAUnit) {
    const struct {
        size_t rows, common, cofactor;  // degrees
    } shapes[] = {{2, 1500, 500}, {2, 1000, 1000}, {2, 0, 2000}, {2, 1999, 1}, {20, 1800, 200},
                  {20, 300, 40},  {3, 2000, 0},    {7, 31, 64},  {1, 12, 30}};
    uint32_t seed = 1;
    for (const auto &[rows, common, cofactor] : shapes) {
        for (const int32_t p : {2, 3, 251, 46349, 65521, 1048573, 33554393}) {
            Random random(seed++);
            const size_t columns = common + cofactor + 1 + below(random, size_t{4});
            const Row factor = random_grid(random, 1, common + 1, p)[0];
            Grid A;
            for (size_t i = 0; i < rows; i++) {
                A.push_back(product(
                    factor, random_grid(random, 1, cofactor + 1 - below(random, cofactor + 1) / 3, p)[0], columns, p));
            }
            const Row expected = flint_gcd(A, p);
            if (p <= 65535) compare_gcd_with_flint<uint32_t>(A, columns, p, expected);
            compare_gcd_with_flint<double>(A, columns, p, expected);
            ASSERT_FALSE(HasFailure()) << rows << " rows, degrees " << common << " + " << cofactor << " mod " << p;
        }
    }
}

// ---- Zigzag form: the model ----

struct ZigZagWays {
    int composite = 0, columns_exchanged = 0, rows_exchanged = 0, coupled_right = 0, coupled_down = 0;
    int right_exchanged = 0, down_exchanged = 0, cleared_rows = 0, cleared_columns = 0, blocks = 0, most_blocks = 0;
    int composite_places[4] = {};
};

// The seven steps, one after the other, on plain integers.
class ZigZagModel {
  public:
    ZigZagModel(Grid A, int64_t p, ZigZagWays *ways) : A_(std::move(A)), p_(p), n_(A_.size()), ways_(ways) {}

    Answer run() {
        const int64_t status = transform();
        ways_->composite += status == 1;
        return {status, A_};
    }

  private:
    int64_t transform() {
        if (n_ <= 1) return 0;
        int blocks = 0;
        for (size_t k = 0;;) {
            size_t e = k;
            for (size_t j = k; j < n_; j++) {
                size_t i = j + 1;
                while (i < n_ && A_[i][j] == 0) i++;
                e = j;
                if (i >= n_) break;
                const int64_t piv = A_[i][j], inv = inverse(piv, p_);
                if (inv == 0) return fails(0);
                if (i > j + 1) swap_rows(i, j + 1, j), swap_columns(i, j + 1, k), ways_->rows_exchanged++;
                scale_row(j + 1, inv, j);
                scale_column(j + 1, piv, k);
                for (size_t r = k; r < n_; r++) {
                    const int64_t m = A_[r][j];
                    if (r == j + 1 || m == 0) continue;
                    add_row(r, p_ - m, j + 1, j);
                    add_column(j + 1, m, r, k);
                }
            }
            for (size_t r = e; r > k; r--) {
                for (size_t c = e + 1; c < n_; c++) {
                    const int64_t t = std::exchange(A_[r][c], 0);
                    add_row(r - 1, t, c, e + 1);
                    ways_->cleared_rows += t != 0;
                }
            }
            size_t c = e + 1;
            while (c < n_ && A_[k][c] == 0) c++;
            if (c < n_) {
                const int64_t v = A_[k][c], inv = inverse(v, p_);
                A_[k][c] = A_[k][e + 1];
                A_[k][e + 1] = 1;
                if (inv == 0) return fails(1);
                if (c > e + 1) swap_rows(c, e + 1, e + 1), swap_columns(c, e + 1, e + 1), ways_->right_exchanged++;
                scale_row(e + 1, v, e + 1);
                scale_column(e + 1, inv, e + 1);
                for (size_t c2 = e + 2; c2 < n_; c2++) {
                    const int64_t t = std::exchange(A_[k][c2], 0);
                    if (t == 0) continue;
                    add_row(e + 1, t, c2, e + 1);
                    add_column(c2, p_ - t, e + 1, e + 1);
                }
                ways_->coupled_right++;
            }
            const size_t s = e + 1;
            size_t f = s;
            for (size_t i = s; i < n_; i++) {
                f = i;
                size_t c3 = i + 1;
                while (c3 < n_ && A_[i][c3] == 0) c3++;
                if (c3 >= n_) break;
                const int64_t piv = A_[i][c3], inv = inverse(piv, p_);
                if (inv == 0) return fails(2);
                if (c3 > i + 1) swap_columns(c3, i + 1, i), swap_rows(c3, i + 1, s), ways_->columns_exchanged++;
                scale_column(i + 1, inv, i);
                scale_row(i + 1, piv, s);
                for (size_t c2 = s; c2 < n_; c2++) {
                    const int64_t m = A_[i][c2];
                    if (c2 == i + 1 || m == 0) continue;
                    add_column(c2, p_ - m, i + 1, i);
                    add_row(i + 1, m, c2, s);
                }
            }
            for (size_t column = f; column > s; column--) {
                for (size_t r = f + 1; r < n_; r++) {
                    const int64_t t = std::exchange(A_[r][column], 0);
                    add_column(column - 1, t, r, f + 1);
                    ways_->cleared_columns += t != 0;
                }
            }
            size_t r = f + 1;
            while (r < n_ && A_[r][s] == 0) r++;
            if (r < n_) {
                const int64_t v = A_[r][s], inv = inverse(v, p_);
                A_[r][s] = A_[f + 1][s];
                A_[f + 1][s] = 1;
                if (inv == 0) return fails(3);
                if (r > f + 1) swap_columns(r, f + 1, f + 1), swap_rows(r, f + 1, f + 1), ways_->down_exchanged++;
                scale_column(f + 1, v, f + 1);
                scale_row(f + 1, inv, f + 1);
                for (size_t r2 = f + 2; r2 < n_; r2++) {
                    const int64_t t = std::exchange(A_[r2][s], 0);
                    if (t == 0) continue;
                    add_column(f + 1, t, r2, f + 1);
                    add_row(r2, p_ - t, f + 1, f + 1);
                }
                ways_->coupled_down++;
            }
            blocks += 2;
            ways_->most_blocks = std::max(ways_->most_blocks, blocks);
            ways_->blocks += 2;
            k = f + 1;
            if (k + 1 >= n_) return 0;
        }
    }

    int64_t fails(size_t place) {
        ways_->composite_places[place]++;
        return 1;
    }
    void swap_rows(size_t a, size_t b, size_t from) {
        for (size_t c = from; c < n_; c++) std::swap(A_[a][c], A_[b][c]);
    }
    void swap_columns(size_t a, size_t b, size_t from) {
        for (size_t r = from; r < n_; r++) std::swap(A_[r][a], A_[r][b]);
    }
    void scale_row(size_t a, int64_t f, size_t from) {
        for (size_t c = from; c < n_; c++) A_[a][c] = A_[a][c] * f % p_;
    }
    void scale_column(size_t a, int64_t f, size_t from) {
        for (size_t r = from; r < n_; r++) A_[r][a] = A_[r][a] * f % p_;
    }
    void add_row(size_t target, int64_t f, size_t source, size_t from) {
        for (size_t c = from; c < n_; c++) A_[target][c] = (A_[target][c] + f * A_[source][c]) % p_;
    }
    void add_column(size_t target, int64_t f, size_t source, size_t from) {
        for (size_t r = from; r < n_; r++) A_[r][target] = (A_[r][target] + f * A_[r][source]) % p_;
    }

    Grid A_;
    int64_t p_;
    size_t n_;
    ZigZagWays *ways_;
};

// Is this a chain of column and row blocks, with single ones between them?
bool is_zigzag(Grid A) {
    const size_t n = A.size();
    for (size_t k = 0; k < n;) {
        size_t e = k;
        while (e + 1 < n && A[e + 1][e] == 1) A[e + 1][e] = 0, e++;
        for (size_t r = k; r <= e; r++) A[r][e] = 0;  // the free column
        const size_t s = e + 1;
        if (s == n) break;
        if (A[k][s] == 1) A[k][s] = 0;
        size_t f = s;
        while (f + 1 < n && A[f][f + 1] == 1) A[f][f + 1] = 0, f++;
        for (size_t c = s; c <= f; c++) A[f][c] = 0;  // the free row
        k = f + 1;
        if (k < n && A[k][s] == 1) A[k][s] = 0;
    }
    return std::all_of(A.begin(), A.end(), [](const Row &row) {
        return std::all_of(row.begin(), row.end(), [](int64_t x) { return x == 0; });
    });
}

// ---- Zigzag form: the kernels ----

template <class W>
using ZigZagKernel = int32_t (*)(MODLA_ZIGZAG_ARGUMENTS(W));

template <class W>
ZigZagKernel<W> zigzag_kernel(bool c_order) {
    if constexpr (std::is_same_v<W, double>)
        return c_order ? modLA_ZigZag_C_f : modLA_ZigZag_F_f;
    else
        return c_order ? modLA_ZigZag_C_iw : modLA_ZigZag_F_iw;
}

template <class W>
Answer run_zigzag(const std::vector<std::vector<W>> &matrix, int32_t p, int32_t count, const Setting &setting) {
    const int32_t n = static_cast<int32_t>(matrix.size());
    const W modulus = static_cast<W>(p);
    const double reciprocal = pinv(p);
    return call_kernel(matrix, matrix.size(), setting, [&](W *data, int32_t) {
        return zigzag_kernel<W>(setting.c_order)(data, n, modulus, reciprocal, count);
    });
}

template <class W>
void compare_zigzag(Random &random, const Grid &A, int32_t p, const Answer &expected,
                    const std::vector<FpMode> &fp_modes) {
    const int density = pick(random, {0, 0, 20, 100});
    for (const bool c_order : {true, false}) {
        const Setting setting = {c_order, 0, chance(random, 40), pick(random, fp_modes)};
        const int32_t count = pick(random, {0, 1, 2, true_c<W>(p), -5});
        const Answer answer = run_zigzag(spell<W>(random, A, p, density), p, count, setting);
        if (answer == expected) continue;
        ADD_FAILURE() << A.size() << " x " << A.size() << " mod " << p << (sizeof(W) == 8 ? ", floats, " : ", words, ")
                      << text(setting) << ", of" << text(A) << "gives " << text(answer) << "instead of "
                      << text(expected);
    }
}

// The answer of all kernels.
Answer compare_zigzag_with_model(Random &random, const Grid &A, int32_t p, ZigZagWays *ways,
                                 const std::vector<FpMode> &fp_modes = {current_fp_mode()}) {
    const Answer expected = ZigZagModel(A, p, ways).run();
    if (p <= 65535) compare_zigzag<uint32_t>(random, A, p, expected, fp_modes);
    compare_zigzag<double>(random, A, p, expected, fp_modes);
    return expected;
}

Grid multiply(const Grid &A, const Grid &B, int64_t p) {
    const size_t n = A.size();
    Grid C(n, Row(n));
    for (size_t i = 0; i < n; i++) {
        for (size_t k = 0; k < n; k++) {
            for (size_t j = 0; j < n; j++) C[i][j] = (C[i][j] + A[i][k] * B[k][j]) % p;
        }
    }
    return C;
}

// A block-diagonal matrix of companion matrices, some of them equal.
Grid companions(Random &random, size_t n, int64_t p) {
    Grid A(n, Row(n));
    Row last = random_grid(random, 1, n, p)[0];
    for (size_t at = 0; at < n;) {
        const size_t size = std::min(n - at, 1 + below(random, n / 2 + 1));
        if (chance(random, 40)) last = random_grid(random, 1, n, p)[0];
        if (chance(random, 20)) last.assign(n, 0);
        for (size_t i = 0; i + 1 < size; i++) A[at + i + 1][at + i] = 1;
        for (size_t i = 0; i < size; i++) A[at + i][at + size - 1] = last[i];
        at += size;
    }
    return A;
}

// L*U*A*U^-1*L^-1 for random unit triangular L and U with few entries.
Grid similar(Random &random, Grid A, int64_t p) {
    const size_t n = A.size();
    for (size_t count = 0; n > 1 && count < 2 * n; count++) {
        const size_t a = below(random, n), b = (a + 1 + below(random, n - 1)) % n;
        const int64_t f = below(random, p);
        for (size_t c = 0; c < n; c++) A[a][c] = (A[a][c] + f * A[b][c]) % p;
        for (size_t r = 0; r < n; r++) A[r][b] = (A[r][b] + (p - f) * A[r][a]) % p;
    }
    return A;
}

Grid random_square(Random &random, size_t n, int64_t p) {
    Grid A = random_grid(random, n, n, p);
    const auto change = [&](auto entry) {
        for (size_t i = 0; i < n; i++) {
            for (size_t j = 0; j < n; j++) A[i][j] = mod(entry(A[i][j], i, j), p);
        }
    };
    const int rare = pick(random, {50, 80, 95});
    switch (below(random, 8)) {
        case 0:  // dense
            break;
        case 1:
        case 2:  // sparse
            change([&](int64_t x, size_t, size_t) { return chance(random, rare) ? 0 : x; });
            break;
        case 3:  // sparse, of ones
            change([&](int64_t, size_t, size_t) { return chance(random, rare) ? 0 : below(random, 3) - 1; });
            break;
        case 4:  // low rank
            change([&](int64_t x, size_t i, size_t) { return i < 2 ? x : 0; });
            A = multiply(random_grid(random, n, n, p), A, p);
            break;
        case 5:  // triangular, one way or the other
            change([&](int64_t x, size_t i, size_t j) { return (rare == 50 ? i > j : i < j) ? 0 : x; });
            break;
        case 6:
            A = companions(random, n, p);
            break;
        case 7:
            A = similar(random, companions(random, n, p), p);
            break;
    }
    return A;
}

ZigZagWays compare_random_squares(uint32_t first_seed, uint32_t cases, size_t max_size,
                                  const std::vector<FpMode> &fp_modes) {
    ZigZagWays ways;
    for (uint32_t seed = first_seed; seed < first_seed + cases && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const size_t n = below(random, max_size + 1);
        const int32_t p = random_modulus(random);
        const Grid A = random_square(random, n, p);
        const Answer answer = compare_zigzag_with_model(random, A, p, &ways, fp_modes);
        if (answer.status == 0) {
            EXPECT_TRUE(is_zigzag(answer.A)) << text(A) << text(answer);
        }
    }
    return ways;
}

TEST(ZigZag, FollowsTheModelOnSmallMatrices) {
    const ZigZagWays ways = compare_random_squares(1, 40000, 12, {current_fp_mode()});
    EXPECT_GT(ways.most_blocks, 6);
    for (const int count : {ways.columns_exchanged, ways.rows_exchanged, ways.coupled_right, ways.coupled_down,
                            ways.right_exchanged, ways.down_exchanged, ways.cleared_rows, ways.cleared_columns}) {
        EXPECT_GT(count, 1000);
    }
    for (const int count : ways.composite_places) EXPECT_GT(count, 100);
}

TEST(ZigZag, FollowsTheModelOnLargeMatrices) {
    compare_random_squares(500000, 60, 90, {current_fp_mode()});
    ZigZagWays ways;
    Random random(7);
    for (const int32_t p : {251, 65521, 33554393}) {
        compare_zigzag_with_model(random, random_grid(random, 140, 140, p), p, &ways);
    }
}

// The orders go different ways: one by products of rows, the other by sums of columns.
TEST(ZigZag, BothOrdersAgreeOnWideMatrices) {
    Random random(9);
    const auto compare = [](const auto &matrix, int32_t p) {
        const Answer answer = run_zigzag(matrix, p, 0, {true});
        EXPECT_TRUE(answer.status == 0 && is_zigzag(answer.A)) << p;
        EXPECT_TRUE(answer == run_zigzag(matrix, p, 0, {false})) << p;
    };
    compare(spell<uint32_t>(random, random_grid(random, 1100, 1100, 65521), 65521, 0), 65521);
    compare(spell<double>(random, random_grid(random, 530, 530, 33554393), 33554393, 0), 33554393);
}

TEST(ZigZag, InForeignFloatingPointModes) {
    compare_random_squares(700000, 3000, 10, foreign_fp_modes());
}

TEST(ZigZag, SumsUpToTheLimit) {
    ZigZagWays ways;
    Random random(9);
    for (const int32_t p : {2, 3, 101, 32749, 46337, 46339, 65521, 65535, 14529495, 33554393, 33554431}) {
        for (const size_t n : {9, 40}) {
            // Column 0 makes all multipliers p-1, the other entries are p-1 too.
            Grid A(n, Row(n, p - 1));
            compare_zigzag_with_model(random, A, p, &ways);
            for (size_t i = 0; i < n; i++) A[i][0] = 1, A[1][i] = p - 1, A[i][i] = below(random, p);
            compare_zigzag_with_model(random, A, p, &ways);
            compare_zigzag_with_model(random, random_grid(random, n, n, p), p, &ways);
        }
    }
}

TEST(ZigZag, MatricesThatStayAsTheyAre) {
    Random random(11);
    ZigZagWays ways;
    for (const int32_t p : {2, 6, 7, 65535, 33554393}) {
        for (const size_t n : {0, 1, 2, 3, 12, 40}) {
            Grid companion(n, Row(n)), transpose = companion;
            for (size_t i = 0; i + 1 < n; i++) companion[i + 1][i] = 1;
            for (size_t i = 0; i < n; i++) companion[i][n - 1] = below(random, p);
            for (const Grid &A : {companion, Grid(n, Row(n))}) {
                EXPECT_EQ(compare_zigzag_with_model(random, A, p, &ways).A, A) << n << " mod " << p;
            }
        }
        const Grid one = {{p - 1}};
        EXPECT_EQ(compare_zigzag_with_model(random, one, p, &ways), (Answer{0, one}));
    }
    uint32_t entry = 5;
    for (const int32_t n : {0, -1, -2147483647}) EXPECT_EQ(modLA_ZigZag_C_iw(&entry, n, 7, 0, 1), 0);
    EXPECT_EQ(entry, 5u);
    for (const uint32_t p : {0u, 1u}) modLA_ZigZag_F_iw(&entry, 1, p, 0, 1);  // no modulus, no crash
    EXPECT_EQ(modLA_ZigZag_C_iw(&entry, 1, 1, 0, 1), 0);
}

// ---- Zigzag form: FLINT ----

Row characteristic_polynomial(const Grid &A, int64_t p) {
    nmod_mat_t matrix;
    nmod_poly_t polynomial;
    const slong n = static_cast<slong>(A.size());
    nmod_mat_init(matrix, n, n, static_cast<mp_limb_t>(p));
    nmod_poly_init(polynomial, static_cast<mp_limb_t>(p));
    for (slong i = 0; i < n; i++) {
        for (slong j = 0; j < n; j++) {
            nmod_mat_entry(matrix, i, j) = static_cast<mp_limb_t>(A[static_cast<size_t>(i)][static_cast<size_t>(j)]);
        }
    }
    nmod_mat_charpoly_berkowitz(polynomial, matrix);  // for every modulus
    Row result;
    for (slong j = 0; j <= n; j++) result.push_back(nmod_poly_get_coeff_ui(polynomial, j));
    nmod_mat_clear(matrix);
    nmod_poly_clear(polynomial);
    return result;
}

TEST(ZigZag, KeepsTheCharacteristicPolynomial) {
    int done = 0, done_modulo_composites = 0, several_blocks = 0;
    for (uint32_t seed = 1; seed <= 400 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const size_t n = seed % 8 == 0 ? 60 : below(random, size_t{61});
        const int32_t p = random_modulus(random);
        const Grid A = random_square(random, n, p);
        const Row expected = characteristic_polynomial(A, p);
        ZigZagWays ways;
        const Answer answer = compare_zigzag_with_model(random, A, p, &ways);
        if (answer.status != 0) continue;
        EXPECT_EQ(characteristic_polynomial(answer.A, p), expected) << n << " mod " << p;
        EXPECT_TRUE(is_zigzag(answer.A));
        done++;
        done_modulo_composites += std::count(std::begin(composites), std::end(composites), p) > 0;
        several_blocks += ways.coupled_right + ways.coupled_down > 1;
    }
    EXPECT_GT(done, 200);
    EXPECT_GT(done_modulo_composites, 20);
    EXPECT_GT(several_blocks, 30);
}

// ---- The entry points ----

const std::string gcd_composite = "unable to compute gcd: modulus is composite";
const std::string zigzag_composite = "cannot obtain zigzag form: modulus is composite";

Object table_with(const Grid &A, size_t columns, int32_t datatype, int32_t order) {
    const Object table =
        make_table(datatype, MODLA_MATRIX, order, static_cast<int32_t>(A.size()), static_cast<int32_t>(columns));
    set_name("Made", table);  // keeps it
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < columns; j++) {
            set_entry(table_of(table), static_cast<int32_t>(i) + 1, static_cast<int32_t>(j) + 1,
                      integer_object(A[i][j]));
        }
    }
    return table;
}

Grid entries_of(Object x) {
    const Table &table = table_of(x);
    Grid A(static_cast<size_t>(table_rows(table)), Row(static_cast<size_t>(table_columns(table))));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            A[i][j] =
                integer_of(get_entry_integer(table, static_cast<int32_t>(i) + 1, static_cast<int32_t>(j) + 1)).get_si();
        }
    }
    return A;
}

Subject gcd_subject(int32_t datatype) {
    Subject s{"MatGcd", {"7", "Target" + std::to_string(datatype), "2"}};
    s.counted().at(1, no_integers, "argument 1, the modulus, must be an integer");
    s.at(2, no_tables, "argument 2, the matrix, must be an rtable");
    s.at(3, no_integers, "argument 3, the number of polynomials, must be a positive integer");
    s.at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
    s.at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
    s.at(2, {"OddSubtype", "RowVector", "ColumnVector"}, "argument 2 must be a Matrix");
    s.at(3, {"0", "-1", "-2^30+1", "10^20", "-10^20"},
         "argument 3, the number of polynomials must be a positive integer");
    s.at(3, {"4", "2^30-1"},
         "argument 3, the number of polynomials cannot be greater than the number of rows in the input Matrix");
    return s.modulus(datatype);
}

Subject zigzag_subject(int32_t datatype) {
    const std::string square = "argument 2 must be a square Matrix";
    Subject s{"ZigZag", {"7", "Target" + std::to_string(datatype)}};
    s.counted().at(1, no_integers, "argument 1, the modulus, must be an integer");
    s.at(2, no_tables, square);
    s.at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
    s.at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
    s.at(2, {"OddSubtype", "RowVector", "ColumnVector"}, square);
    s.at(2, {"Oblong" + std::to_string(datatype)}, square);
    return s.modulus(datatype);
}

class PolynomialEntries : public modla_test::FaultPairs {
  protected:
    PolynomialEntries() {
        for (const int32_t datatype : datatypes) {
            const std::string suffix = std::to_string(datatype);
            define("Target" + suffix, table_with({{1, 2, 3}, {4, 5, 6}, {6, 1, 1}}, 3, datatype, MODLA_C_ORDER));
            define("Oblong" + suffix, make_table(datatype, MODLA_MATRIX, MODLA_C_ORDER, 3, 4));
        }
    }
};

TEST_F(PolynomialEntries, TheEarliestFaultIsReportedAndNothingIsWritten) {
    std::vector<Subject> subjects;
    for (const int32_t datatype : datatypes) {
        subjects.push_back(gcd_subject(datatype));
        subjects.push_back(zigzag_subject(datatype));
    }
    check(subjects, 1500);
    for (const Subject &subject : subjects) check_success(subject);
}

TEST(MatGcd, DocumentedCalls) {
    const std::pair<const char *, const char *> cases[] = {
        {"A[1, 1] := 6; A[1, 3] := 1; A[2, 1] := 6; A[2, 2] := 1; print(MatGcd(7, A, 2), (A[1, 1] + A[1, 2]) mod 7)\n"
         "print(A[1, 3], A[2, 1], A[2, 2], A[2, 3])",
         "1 0\n0 0 0 0\n"},                                                                   // x^2 - 1 and x - 1
        {"A[1, 2] := 3; A[2, 3] := 5; print(MatGcd(7, A, 1), A[1, 2], A[2, 3])", "1 3 5\n"},  // a single row
        {"print(MatGcd(7, A, 2))", "-1\n"},
        {"A[1, 1] := 2; A[1, 2] := 1; A[2, 1] := 1; A[2, 2] := 1; print(MatGcd(7, A, 2), A[1, 1])", "0 1\n"},
        {"A[1, 2] := 2; A[2, 3] := 1; MatGcd(6, A, 2)", "Error: unable to compute gcd: modulus is composite\n"},
    };
    for (const std::string datatype : {"integer[4]", "float[8]"}) {
        for (const std::string order : {"C_order", "Fortran_order"}) {
            for (const auto &[program, expected] : cases) {
                std::string output = run("A := Create(7, 2, 3, " + datatype + ", " + order + "); " + program);
                while (output.find(".0") != std::string::npos) output.erase(output.find(".0"), 2);
                EXPECT_EQ(output, expected) << program << datatype << order;
            }
        }
    }
}

// Values through the shared object, which computes the counts itself: also where sums come close to the limit.
TEST(MatGcd, FollowsTheModel) {
    for (uint32_t seed = 1; seed <= 600 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const int32_t p = random_modulus(random);
        const size_t k = seed % 3 == 0 ? 2 : 1 + below(random, size_t{5});
        const Grid A = seed % 3 == 0
                           ? largest_sums(p)
                           : random_polynomials(random, k + below(random, size_t{3}), 1 + below(random, size_t{12}), p);
        GcdWays ways;
        Answer expected = gcd_model({A.begin(), A.begin() + static_cast<ptrdiff_t>(k)}, p, &ways);
        expected.A.insert(expected.A.end(), A.begin() + static_cast<ptrdiff_t>(k), A.end());
        for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
            if (datatype == MODLA_INTEGER4 && p > 65535) continue;
            for (const int32_t order : orders) {
                const Object table = table_with(A, A[0].size(), datatype, order);
                const HostApi api = recording_host();
                const std::string arguments = std::to_string(p) + ", Made, " + std::to_string(k);
                const Object array = argument_array(arguments);
                Object result = 0;
                EXPECT_TRUE(keeps_fp_mode(pick(random, foreign_fp_modes()),
                                          [&] { result = modLA_MatGcd(&api, words(array)); }));
                EXPECT_EQ(entries_of(table), expected.A) << datatype << " mod " << p;
                const bool composite = expected.status == -2;
                EXPECT_EQ(result, composite ? null_value() : immediate(static_cast<int32_t>(expected.status)));
                EXPECT_EQ(raised_messages, std::vector<std::string>(composite ? 1 : 0, gcd_composite));
            }
        }
    }
}

TEST(MatGcd, PassesAnIntegerMatrixOnWithFourArguments) {
    std::vector<Object> seen;
    int32_t answer = 0;
    const Callback callback("cbMatGcd", [&](const std::vector<Object> &arguments) {
        seen = arguments;
        return immediate(answer);
    });
    const Object table =
        table_with({{1, 2, 3, 4, 5}, {6, 7, 8, 9, 10}, {0, 0, 0, 0, 1}}, 5, MODLA_INTEGER, MODLA_FORTRAN_ORDER);
    const Grid before = entries_of(table);
    for (const char *const p : {"7", "2", "33554432", "10^20"}) {
        for (int32_t k = 1; k <= 3; k++) {
            const Object array = argument_array(std::string(p) + ", Made, " + std::to_string(k));
            const HostApi api = recording_host();
            EXPECT_EQ(modLA_MatGcd(&api, words(array)), immediate(0));
            EXPECT_EQ(seen, (std::vector<Object>{table, immediate(k), immediate(5), words(array)[1]}));
            EXPECT_EQ(raised_messages, std::vector<std::string>());
        }
    }
    const std::map<int32_t, std::string> messages = {{-2, gcd_composite}, {-10, "not implemented yet"}};
    for (const int32_t value : {-1, 0, 1, 4, 1000000, (1 << 29), -2, -3, -9, -10, -11, -(1 << 29)}) {
        answer = value;
        const HostApi api = recording_host();
        const Object result = modLA_MatGcd(&api, words(argument_array("7, Made, 2")));
        EXPECT_EQ(result, value >= -1 ? immediate(value) : null_value()) << value;
        const std::string message = messages.contains(value) ? messages.at(value) : "unknown error";
        EXPECT_EQ(raised_messages, std::vector<std::string>(value >= -1 ? 0 : 1, message)) << value;
        for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
            set_unwinding(unwinding);
            EXPECT_EQ(error_of("MatGcd(7, Made, 2)"), value >= -1 ? "" : message) << value;
        }
        set_unwinding(Unwinding::exception);
    }
    EXPECT_EQ(entries_of(table), before);
}

TEST(ZigZagEntry, DocumentedCalls) {
    const std::pair<const char *, const char *> cases[] = {
        {"A := Create(7, 1, 1, 5, DATATYPE); ZigZag(7, A); print(A)", "[5]\n"},
        {"A := Create(7, 2, 2, DATATYPE); ZigZag(7, A); print(A)", "[0 0]\n[0 0]\n"},
        {"A := Create(7, 3, 3, DATATYPE); A[2, 1] := 1; A[3, 2] := 1; A[1, 3] := 4; A[3, 3] := 6; ZigZag(7, A); "
         "print(A)",
         "[0 0 4]\n[1 0 0]\n[0 1 6]\n"},
        {"A := Create(7, 2, 2, 2, DATATYPE); ZigZag(7, A); print(A)", "[0 0]\n[1 4]\n"},
        {"A := Create(6, 2, 2, 2, DATATYPE); ZigZag(6, A)", "Error: cannot obtain zigzag form: modulus is composite\n"},
    };
    for (const std::string datatype : {"integer[4]", "float[8]"}) {
        for (const std::string order : {"C_order", "Fortran_order"}) {
            for (const auto &[program, expected] : cases) {
                std::string call = program;
                call.replace(call.find("DATATYPE"), 8, datatype + ", " + order);
                std::string output = run(call);
                while (output.find(".0") != std::string::npos) output.erase(output.find(".0"), 2);
                EXPECT_EQ(output, expected) << call;
            }
        }
    }
}

TEST(ZigZagEntry, FollowsTheModel) {
    for (uint32_t seed = 1; seed <= 600 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const int32_t p = random_modulus(random);
        const size_t n = 1 + below(random, size_t{12});
        const Grid A = random_square(random, n, p);
        ZigZagWays ways;
        const Answer expected = ZigZagModel(A, p, &ways).run();
        for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
            if (datatype == MODLA_INTEGER4 && p > 65535) continue;
            for (const int32_t order : orders) {
                const Object table = table_with(A, n, datatype, order);
                const HostApi api = recording_host();
                const Object array = argument_array(std::to_string(p) + ", Made");
                Object result = 0;
                EXPECT_TRUE(keeps_fp_mode(pick(random, foreign_fp_modes()),
                                          [&] { result = modLA_ZigZag(&api, words(array)); }));
                EXPECT_EQ(result, null_value());
                EXPECT_EQ(entries_of(table), expected.A) << datatype << " mod " << p;
                EXPECT_EQ(raised_messages, std::vector<std::string>(expected.status == 1 ? 1 : 0, zigzag_composite));
            }
        }
    }
}

TEST(ZigZagEntry, PassesAnIntegerMatrixOnWithThreeArguments) {
    std::vector<Object> seen;
    int32_t answer = 0;
    const Callback callback("cbZigZag", [&](const std::vector<Object> &arguments) {
        seen = arguments;
        return immediate(answer);
    });
    for (const size_t n : {1, 2, 5}) {
        for (const char *const p : {"7", "33554432", "10^20"}) {
            const Object table = table_with(Grid(n, Row(n, 3)), n, MODLA_INTEGER, MODLA_C_ORDER);
            const Object array = argument_array(std::string(p) + ", Made");
            const HostApi api = recording_host();
            EXPECT_EQ(modLA_ZigZag(&api, words(array)), null_value());
            EXPECT_EQ(seen, (std::vector<Object>{table, immediate(static_cast<int32_t>(n)), words(array)[1]}));
            EXPECT_EQ(raised_messages, std::vector<std::string>());
            EXPECT_EQ(entries_of(table), Grid(n, Row(n, 3)));
        }
    }
    const std::map<int32_t, std::string> messages = {{0, ""}, {1, zigzag_composite}, {10, "not implemented yet"}};
    for (const int32_t value : {0, 1, 2, 9, 10, 11, -1, -2, -10, 1 << 29, -(1 << 29)}) {
        answer = value;
        const std::string message = messages.contains(value) ? messages.at(value) : "unknown error";
        const HostApi api = recording_host();
        EXPECT_EQ(modLA_ZigZag(&api, words(argument_array("7, Made"))), null_value());
        EXPECT_EQ(raised_messages, std::vector<std::string>(value == 0 ? 0 : 1, message)) << value;
        for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
            set_unwinding(unwinding);
            EXPECT_EQ(error_of("ZigZag(7, Made)"), message) << value;
        }
        set_unwinding(Unwinding::exception);
    }
}

}  // namespace
