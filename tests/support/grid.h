// Matrices of integers and their arithmetic one entry at a time, FLINT's view of them, and guarded storage to hand them
// to kernels in.
#pragma once

#include <flint/flint.h>
#include <flint/fmpz.h>
#include <flint/fmpz_mat.h>
#include <flint/nmod_mat.h>
#include <flint/nmod_poly.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/fp_mode.h"
#include "tests/support/random.h"

namespace modla_test {

using Row = std::vector<int64_t>;
using Grid = std::vector<Row>;

inline int64_t mod(int64_t a, int64_t p) {
    return (a % p + p) % p;
}

// The inverse of a mod p; 0 when there is none.
inline int64_t inverse(int64_t a, int64_t p) {
    int64_t g = mod(a, p), x = 1, y = 0;
    for (int64_t b = p; b != 0;) {
        const int64_t q = g / b;
        g = std::exchange(b, g - q * b);
        x = std::exchange(y, x - q * y);
    }
    return g == 1 ? mod(x, p) : 0;
}

inline Grid make_grid(size_t rows, size_t columns, int64_t value = 0) {
    return Grid(rows, Row(columns, value));
}

// Of residues mod p < 2^25: 4096 products are added before a sum is reduced.
inline Grid product(const Grid &A, const Grid &B, size_t columns, int64_t p) {
    Grid C = make_grid(A.size(), columns);
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t k = 0; k < B.size(); k++) {
            const int64_t a = A[i][k], *const b = B[k].data();
            int64_t *const c = C[i].data();
            for (size_t j = 0; j < columns; j++) c[j] += a * b[j];
            if (k % 4096 == 4095 || k + 1 == B.size()) {
                for (int64_t &x : C[i]) x %= p;
            }
        }
    }
    return C;
}

inline std::string text_of(const Grid &A) {
    std::string lines = "\n";
    for (size_t i = 0; i < std::min<size_t>(A.size(), 20); i++) {
        for (size_t j = 0; j < std::min<size_t>(A[i].size(), 40); j++) lines += std::to_string(A[i][j]) + " ";
        lines += "\n";
    }
    return lines;
}

// ---- What the two representations hold ----

template <class W>
constexpr bool is_float = std::is_same_v<W, double>;
template <class W>
constexpr int64_t sum_limit = int64_t{1} << (is_float<W> ? 53 : 32);
template <class W>
constexpr int64_t largest_modulus = is_float<W> ? 33554431 : 65535;

inline double reciprocal(double p) {
    return (1 + std::numeric_limits<double>::epsilon()) / p;
}

// How many products may be added to a residue.
template <class W>
int32_t sum_bound(int64_t p) {
    return static_cast<int32_t>(std::min<int64_t>((sum_limit<W> - p) / ((p - 1) * (p - 1)), 2147483646));
}

// The largest modulus with a bound of at least L: p-1 + L*(p-1)^2 is as near to the limit as can be.
template <class W>
int64_t tight_modulus(int32_t L) {
    int64_t low = 2, high = largest_modulus<W>;
    while (low < high) {
        const int64_t middle = (low + high + 1) / 2;
        sum_bound<W>(middle) >= L ? low = middle : high = middle - 1;
    }
    return low;
}

inline const int32_t primes[] = {2, 3, 5, 7, 101, 251, 32749, 46337, 46349, 65521, 1048573, 16777213, 33554393};
inline const int32_t composites[] = {4,    6,     8,     9,     10,    12,    30,      36,       49,      210,
                                     4096, 30030, 65025, 65534, 65535, 65536, 9699690, 33554430, 33554431};
inline int32_t random_modulus(Random &random) {
    if (chance(random, 15)) return 2 + below(random, 33554430);
    return chance(random, 50) ? pick(random, primes) : pick(random, composites);
}

// Calls visit(word, c_order) for every representation that holds residues mod p, in both orders.
template <class Visit>
void for_each_twin(int64_t p, const Visit &visit) {
    for (const bool c_order : {true, false}) {
        if (p <= largest_modulus<uint32_t>) visit(uint32_t{}, c_order);
        visit(double{}, c_order);
    }
}

// ---- Random matrices ----

inline Grid random_residues(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A = make_grid(rows, columns);
    for (Row &row : A) {
        for (int64_t &x : row) x = below(random, p);
    }
    return A;
}

inline std::vector<int64_t> prime_factors(int64_t p) {
    std::vector<int64_t> factors;
    for (int64_t d = 2; d * d <= p; d++) {
        for (; p % d == 0; p /= d) factors.push_back(d);
    }
    if (p > 1) factors.push_back(p);
    return factors;
}

// L*U with ones in L and p-1 beside the ones in U: every row update adds the largest product there is, and most sums
// end in the residues p-1 and 1.
inline Grid largest_products(size_t rows, size_t columns, int64_t p) {
    Grid L = make_grid(rows, rows), U = make_grid(rows, columns, p - 1);
    for (size_t i = 0; i < rows; i++) {
        std::fill_n(L[i].begin(), i + 1, 1);
        std::fill_n(U[i].begin(), std::min(i, columns), 0);
        if (i < columns) U[i][i] = 1;
    }
    return product(L, U, columns, p);
}

// Matrices on which elimination has something to decide.
inline Grid random_grid(Random &random, size_t rows, size_t columns, int64_t p) {
    Grid A = random_residues(random, rows, columns, p);
    const auto change_entries = [&](auto change) {
        for (size_t i = 0; i < rows; i++) {
            for (size_t j = 0; j < columns; j++) A[i][j] = mod(change(A[i][j], i, j), p);
        }
    };
    const std::vector<int64_t> factors = prime_factors(p);
    const int kind = below(random, 8), rare = pick(random, {50, 75, 95});
    if (kind == 1) change_entries([&](int64_t x, size_t, size_t) { return chance(random, rare) ? 0 : x; });
    if (kind == 2) {  // low rank
        const size_t rank = below(random, std::min(rows, columns) + 1);
        A = product(random_residues(random, rows, rank, p), random_residues(random, rank, columns, p), columns, p);
    }
    if (kind == 3) change_entries([&](int64_t x, size_t, size_t) { return x * pick(random, factors); });
    if (kind == 4) {  // triangular, with non-units on the diagonal
        change_entries([&](int64_t x, size_t i, size_t j) { return i > j ? 0 : i == j ? pick(random, factors) : x; });
    }
    if (kind == 5) change_entries([&](int64_t, size_t, size_t) { return below(random, 3) - 1; });
    if (kind == 6) {  // non-units in the first columns
        change_entries([&](int64_t x, size_t, size_t j) { return j < columns / 2 ? x * factors[0] : x; });
    }
    if (kind == 7) A = largest_products(rows, columns, p);
    for (size_t j = 0; j < columns; j++) {
        const int64_t f = chance(random, 50) ? 0 : pick(random, factors);
        if (chance(random, 8)) change_entries([&](int64_t x, size_t, size_t k) { return k == j ? f * x : x; });
    }
    for (Row &row : A) {
        if (chance(random, 8)) row.assign(columns, 0);
    }
    if (chance(random, 40)) std::shuffle(A.begin(), A.end(), random);
    return A;
}

// Triangular, often with units on the diagonal; with `extreme`, the other entries and their negatives are as large as
// can be.
inline Grid random_triangle(Random &random, size_t n, int64_t p, bool lower, bool extreme) {
    Grid T = random_residues(random, n, n, p);
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            int64_t &x = T[i][j];
            if (i == j) {
                while (std::gcd(x, p) != 1) x = below(random, p);
            } else if (lower ? j > i : j < i) {
                x = 0;
            } else if (extreme) {
                x = chance(random, 50) ? 1 : p - 1;
            }
        }
        if (chance(random, 40)) T[i][i] = 1;
    }
    return T;
}

// The same residues, some written as larger numbers below the limit.
inline Grid unreduced(Random &random, Grid A, int64_t p, int64_t limit) {
    const int density = pick(random, {0, 0, 20, 100});
    for (Row &row : A) {
        for (int64_t &x : row) {
            const int64_t most = (limit - 1 - x) / p;
            if (chance(random, density)) x += p * (chance(random, 30) ? most : below(random, most + 1));
        }
    }
    return A;
}

// ---- FLINT ----

struct Nmod {
    nmod_mat_t mat;
    Nmod(size_t rows, size_t columns, int64_t p) {
        nmod_mat_init(mat, static_cast<slong>(rows), static_cast<slong>(columns), static_cast<mp_limb_t>(p));
    }
    // The leading columns of A.
    Nmod(const Grid &A, size_t columns, int64_t p) : Nmod(A.size(), columns, p) {
        for (size_t i = 0; i < A.size(); i++) {
            for (size_t j = 0; j < columns; j++) mat->rows[i][j] = static_cast<mp_limb_t>(mod(A[i][j], p));
        }
    }
    Nmod(const Nmod &) = delete;
    Nmod &operator=(const Nmod &) = delete;
    ~Nmod() { nmod_mat_clear(mat); }
    Grid grid() const {
        Grid A = make_grid(static_cast<size_t>(mat->r), static_cast<size_t>(mat->c));
        for (size_t i = 0; i < A.size(); i++) std::copy_n(mat->rows[i], mat->c, A[i].begin());
        return A;
    }
};

// The determinant over the integers, mod p: for any modulus.
inline int64_t determinant(const Grid &A, size_t n, int64_t p) {
    fmpz_mat_t integers;
    fmpz_mat_init(integers, static_cast<slong>(n), static_cast<slong>(n));
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) fmpz_set_ui(integers->rows[i] + j, static_cast<ulong>(mod(A[i][j], p)));
    }
    fmpz_t det;
    fmpz_init(det);
    fmpz_mat_det(det, integers);
    const int64_t result = static_cast<int64_t>(fmpz_fdiv_ui(det, static_cast<ulong>(p)));
    fmpz_clear(det);
    fmpz_mat_clear(integers);
    return result;
}

// ---- Guarded storage ----

constexpr int64_t untouched = -1, not_a_residue = -2;

// A matrix in storage of a kernel's, with entries (i, j) at i*row_step + j*column_step, between cells that nothing may
// touch.  Aligned to 4 bytes only when misaligned.
template <class W>
class Cells {
  public:
    Cells(size_t rows, size_t columns, int32_t down, int32_t right, bool misaligned = false)
        : row_step(down), column_step(right), rows_(rows), columns_(columns), first_(guard + misaligned) {
        const auto behind = [](size_t count, int32_t step) {
            return width * (count - 1) * static_cast<size_t>(step < 0 && count > 0 ? -step : 0);
        };
        first_ += behind(rows, down) + behind(columns, right);  // with steps that go upward through memory
        const int32_t reach =
            static_cast<int32_t>(rows) * std::abs(down) + static_cast<int32_t>(columns) * std::abs(right) + 1;
        words_.assign(static_cast<size_t>(reach) * width + 2 * guard + 1, filler);
    }
    // Lines that lie `gap` entries apart, perhaps the last of them first.
    static Cells lines(bool c_order, size_t rows, size_t columns, size_t gap = 0, bool misaligned = false,
                       bool upward = false) {
        const int32_t ld = static_cast<int32_t>((c_order ? columns : rows) + gap) * (upward ? -1 : 1);
        return c_order ? Cells(rows, columns, ld, 1, misaligned) : Cells(rows, columns, 1, ld, misaligned);
    }

    W *data() { return reinterpret_cast<W *>(words_.data() + first_); }
    int32_t ld() const { return row_step == 1 ? column_step : row_step; }
    void put(size_t i, size_t j, W value) { std::memcpy(&words_[place(i, j)], &value, sizeof value); }
    void put(const Grid &A) {
        for (size_t i = 0; i < A.size(); i++) {
            for (size_t j = 0; j < columns_; j++) put(i, j, static_cast<W>(A[i][j]));
        }
    }
    int64_t get(size_t i, size_t j) const {
        W value;
        if (words_[place(i, j)] == filler && words_[place(i, j) + width - 1] == filler) return untouched;
        std::memcpy(&value, &words_[place(i, j)], sizeof value);
        if constexpr (is_float<W>) {
            if (!(value >= 0 && value < 0x1p53) || std::signbit(value) || std::floor(value) != value)
                return not_a_residue;
        }
        return static_cast<int64_t>(value);
    }
    Grid grid() const {
        Grid A = make_grid(rows_, columns_);
        for (size_t i = 0; i < rows_; i++) {
            for (size_t j = 0; j < columns_; j++) A[i][j] = get(i, j);
        }
        return A;
    }
    // Is everything that belongs to no entry as it was?
    bool intact() const {
        std::vector<uint32_t> rest = words_;
        for (size_t i = 0; i < rows_; i++) {
            for (size_t j = 0; j < columns_; j++)
                std::fill_n(rest.begin() + static_cast<ptrdiff_t>(place(i, j)), width, filler);
        }
        return std::all_of(rest.begin(), rest.end(), [](uint32_t word) { return word == filler; });
    }
    const std::vector<uint32_t> &words() const { return words_; }

    int32_t row_step, column_step;

  private:
    static constexpr size_t guard = 16, width = sizeof(W) / 4;
    static constexpr uint32_t filler = 0xdeadbeef;
    size_t place(size_t i, size_t j) const {
        return first_ +
               static_cast<size_t>(static_cast<int32_t>(i) * row_step + static_cast<int32_t>(j) * column_step) * width;
    }
    size_t rows_, columns_, first_;
    std::vector<uint32_t> words_;
};

// A single output of a kernel.
template <class W>
struct Output : Cells<W> {
    explicit Output(bool misaligned = false) : Cells<W>(1, 1, 1, 1, misaligned) {}
    int64_t value() const { return this->get(0, 0); }
};

// How a kernel is called: the distance of lines, the alignment, how long sums may get, the caller's modes.
template <class W>
struct Setting {
    bool c_order, misaligned = false, upward = false;
    size_t gap = 0;
    int32_t maxpending = 1;
    FpMode mode = current_fp_mode();

    Setting(bool in_c_order, int64_t p) : c_order(in_c_order), maxpending(sum_bound<W>(p)) {}
    Setting(Random &random, bool in_c_order, int64_t p) : Setting(in_c_order, p) {
        static const std::vector<FpMode> modes = foreign_fp_modes();
        misaligned = chance(random, 30);
        upward = chance(random, 20);
        gap = chance(random, 50) ? 0 : below(random, size_t{6});
        maxpending = std::min(maxpending, pick(random, {1, 2, 3, 7, maxpending, maxpending}));
        if (chance(random, 20)) mode = pick(random, modes);
    }
    Cells<W> cells(size_t rows, size_t columns) const {
        return Cells<W>::lines(c_order, rows, columns, gap, misaligned, upward);
    }
    std::string text() const {
        return std::string(is_float<W> ? "doubles" : "words") + (c_order ? ", C" : ", Fortran") +
               (misaligned ? ", misaligned" : "") + (upward ? ", upward" : "") + ", gap " + std::to_string(gap) +
               ", maxpending " + std::to_string(maxpending) + ", MXCSR " + std::to_string(mode.mxcsr);
    }
};

}  // namespace modla_test
