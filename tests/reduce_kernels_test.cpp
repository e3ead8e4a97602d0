// The six row-reduction kernels: entry by entry against a plain model of the elimination, and against FLINT.
#include <flint/flint.h>
#include <flint/fmpz.h>
#include <flint/fmpz_mat.h>
#include <flint/nmod_mat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>

#include "fake_host.h"
#include "modla.h"

using namespace modla_test;

namespace {

using Row = std::vector<int64_t>;
using Table = std::vector<Row>;

// One call of a kernel, whichever: which outputs are wanted, and how.
struct Request {
    int32_t p, nrows, ncols, nred, mode;
    bool detonly, det, pivprod, rank, pivsig, extra, pivcols;

    // Nullspace rows may lie below the block.
    int32_t stored_rows() const { return pivcols ? std::max(nrows, nred) : nrows; }
};

constexpr int64_t untouched = -1, not_a_residue = -2;

// Everything that a kernel may write; `untouched` where it has not.
struct Answer {
    uint32_t status = 0;
    int64_t det = untouched, pivprod = untouched, rank = untouched, pivsig = untouched, extra = untouched;
    Row pivcols;
    Table A;
    bool stays_in_bounds = true, keeps_fp_mode = true;

    bool operator==(const Answer &) const = default;
};

Answer blank_answer(const Request &q, const Table &input) {
    Answer answer;
    answer.A = input;
    answer.A.resize(static_cast<size_t>(q.stored_rows()), Row(static_cast<size_t>(q.ncols), untouched));
    answer.pivcols.assign(static_cast<size_t>(q.nrows), untouched);
    return answer;
}

std::string text(const Request &q) {
    return std::to_string(q.nrows) + "x" + std::to_string(q.ncols) + " (" + std::to_string(q.nred) +
           " reducible) mod " + std::to_string(q.p) + ", mode " + std::to_string(q.mode) +
           (q.detonly ? ", detonly" : "") + (q.det ? ", det" : "") + (q.pivprod ? ", pivprod" : "") +
           (q.rank ? ", rank" : "") + (q.pivsig ? ", pivsig" : "") + (q.extra ? ", extra" : "") +
           (q.pivcols ? ", pivcols" : "");
}

std::string text(const Table &A) {
    std::string lines = "\n";
    for (size_t i = 0; i < std::min<size_t>(A.size(), 20); i++) {
        for (size_t j = 0; j < std::min<size_t>(A[i].size(), 20); j++) lines += std::to_string(A[i][j]) + " ";
        lines += "\n";
    }
    return lines;
}

std::string text(const Answer &a) {
    return "status " + std::to_string(a.status) + ", det " + std::to_string(a.det) + ", pivprod " +
           std::to_string(a.pivprod) + ", rank " + std::to_string(a.rank) + ", pivsig " + std::to_string(a.pivsig) +
           ", extra " + std::to_string(a.extra) + ", pivcols " + testing::PrintToString(a.pivcols) +
           (a.stays_in_bounds ? "" : ", WROTE OUT OF BOUNDS") +
           (a.keeps_fp_mode ? "" : ", CHANGED THE FLOATING-POINT MODE") + text(a.A);
}

// ---- The model: the documented elimination on int64 residues, every step reduced at once ----

int64_t mod(int64_t a, int64_t p) {
    return (a % p + p) % p;
}

int64_t inverse(int64_t a, int64_t p) {
    int64_t x = 1, y = 0;  // a*x + p*(...) = gcd, stepwise
    for (int64_t b = p; b != 0;) {
        const int64_t q = a / b;
        a = std::exchange(b, a - q * b);
        x = std::exchange(y, x - q * y);
    }
    return mod(x, p);
}

// How often the model went which way: random cases must reach everything.
struct Ways {
    int statuses[5] = {}, descents = 0, ties = 0, kept_with_exchange = 0, reduced_above_kept = 0, exchanges = 0;
    int zero_det_exits[2] = {}, rows_moved_up = 0, nullspace_rows = 0, nullspace_rows_below = 0;
};

Answer model(const Request &q, Table A, Ways *ways) {
    const int64_t p = q.p;
    Answer answer = blank_answer(q, A);
    const auto end = [&](uint32_t status) {
        answer.status = status;
        ways->statuses[status]++;
        if (status != 3) std::copy(A.begin(), A.end(), answer.A.begin());
        return answer;
    };
    if (q.pivcols && (!q.rank || q.mode == 0 || q.extra)) return end(3);
    if (q.detonly && q.mode != 0) return end(3);
    if ((q.det || q.pivprod) && q.nrows > q.ncols) return end(3);

    const size_t nrows = static_cast<size_t>(q.nrows), ncols = static_cast<size_t>(q.ncols);
    const size_t nred = static_cast<size_t>(q.nred);
    for (Row &row : A) {
        for (int64_t &x : row) x = mod(x, p);
    }
    if (q.det) answer.det = 1;
    if (q.pivprod) answer.pivprod = 1;
    if (q.pivsig) answer.pivsig = 0;
    if (q.extra) answer.extra = 0;
    const auto add_multiple = [&](size_t i, int64_t f, size_t s) {
        for (size_t j = 0; j < ncols; j++) A[i][j] = mod(A[i][j] + f * A[s][j], p);
    };
    const auto multiply_output = [&](int64_t *output, int64_t f) {
        if (*output != untouched) *output = mod(*output * f, p);
    };

    size_t r = 0, c = 0;
    bool kept_nonunit = false;
    while (r < nrows && c < ncols) {
        std::vector<size_t> units, nonzeros;
        for (size_t i = r; i < nrows; i++) {
            if (A[i][c] != 0) nonzeros.push_back(i);
            if (std::gcd(A[i][c], p) == 1) units.push_back(i);
        }
        if (nonzeros.empty()) {
            c++;
            continue;
        }
        if (c >= nred) {
            if (!q.extra) return end(2);
            const auto first = A.begin() + static_cast<ptrdiff_t>(r);
            const bool zero_first = std::all_of(first->begin(), first->end(), [](int64_t x) { return x == 0; });
            const auto rest = std::stable_partition(first, A.end(), [](const Row &row) {
                return std::any_of(row.begin(), row.end(), [](int64_t x) { return x != 0; });
            });
            answer.extra = rest - first;
            ways->rows_moved_up += zero_first;
            break;
        }
        if (!units.empty()) {
            const size_t s = units.front();
            const int64_t pivot = A[s][c];
            if (q.det && r != c) {
                answer.det = 0;
                ways->zero_det_exits[0] += q.detonly;
                if (q.detonly) return end(0);
            }
            multiply_output(&answer.det, pivot);
            multiply_output(&answer.pivprod, pivot);
            if (q.pivsig) answer.pivsig += static_cast<int64_t>((r + 1) * c);
            if (s != r) {
                multiply_output(&answer.det, -1);
                multiply_output(&answer.pivprod, -1);
                std::swap(A[s], A[r]);
                ways->exchanges++;
            }
            const int64_t scale = inverse(pivot, p);
            for (int64_t &x : A[r]) x = mod(x * scale, p);
            for (size_t i = q.mode != 0 ? 0 : r + 1; i < nrows; i++) {
                if (i != r) add_multiple(i, -A[i][c], r);
            }
            if (q.pivcols) answer.pivcols[r] = static_cast<int64_t>(c);
            r++, c++;
        } else if (nonzeros.size() > 1) {
            const auto smaller = [&](size_t a, size_t b) { return A[a][c] < A[b][c]; };
            const size_t t = *std::min_element(nonzeros.begin(), nonzeros.end(), smaller);
            for (const size_t i : nonzeros) {
                ways->ties += i != t && A[i][c] == A[t][c];
                if (i != t) add_multiple(i, -(A[i][c] / A[t][c]), t);
            }
            ways->descents++;
        } else {
            const size_t s = nonzeros.front();
            if (q.mode != 2 && !q.detonly) return end(1);
            multiply_output(&answer.det, A[s][c]);
            if (q.detonly && answer.det == 0) {
                ways->zero_det_exits[1]++;
                return end(0);
            }
            kept_nonunit = true;
            if (s != r) {
                multiply_output(&answer.det, -1);
                std::swap(A[s], A[r]);
                ways->kept_with_exchange++;
            }
            for (size_t i = 0; q.mode == 2 && i < r; i++) {
                ways->reduced_above_kept += A[i][c] >= A[r][c];
                add_multiple(i, -(A[i][c] / A[r][c]), r);
            }
            r++, c++;
        }
    }

    if (q.rank) answer.rank = static_cast<int64_t>(r);
    if (q.det && r < nrows) answer.det = 0;
    if (!q.pivcols) return end(0);
    if (kept_nonunit) return end(4);
    const auto pivots_end = answer.pivcols.begin() + static_cast<ptrdiff_t>(r);
    const Table reduced = A;
    A.resize(std::max(nrows, nred), Row(ncols, untouched));
    for (size_t free = 0, i = r; free < nred; free++) {
        if (std::find(answer.pivcols.begin(), pivots_end, free) != pivots_end) continue;
        A[i].assign(ncols, 0);
        A[i][free] = 1;
        // A pivot row is zero before its pivot, so that later pivots get 0.
        for (size_t k = 0; k < r; k++) A[i][static_cast<size_t>(answer.pivcols[k])] = mod(-reduced[k][free], p);
        ways->nullspace_rows++;
        ways->nullspace_rows_below += i >= nrows;
        i++;
    }
    return end(0);
}

// ---- The kernels ----

template <class W>
struct Kernel {
    const char *name;
    bool c_order;
    uint32_t (*plain)(MODLA_REDUCE_ARGUMENTS(W));  // one of the two
    uint32_t (*delayed)(MODLA_REDUCE_ARGUMENTS(W), int32_t *pending, int32_t maxpending);
};

const Kernel<uint32_t> word_kernels[] = {{"C_iw", true, modLA_reduce_C_iw, nullptr},
                                         {"F_iw", false, modLA_reduce_F_iw, nullptr},
                                         {"C_iw_nop", true, nullptr, modLA_reduce_C_iw_nop},
                                         {"F_iw_nop", false, nullptr, modLA_reduce_F_iw_nop}};
const Kernel<double> float_kernels[] = {{"C_f_nop", true, nullptr, modLA_reduce_C_f_nop},
                                        {"F_f_nop", false, nullptr, modLA_reduce_F_f_nop}};

// Calls visit with every kernel that serves a modulus.
template <class Visit>
void for_each_kernel(int32_t p, const Visit &visit) {
    if (p <= 65535) {
        for (const auto &kernel : word_kernels) visit(kernel);
    }
    for (const auto &kernel : float_kernels) visit(kernel);
}

// Sums of products stay below it.
template <class W>
constexpr int64_t sum_limit = std::is_same_v<W, double> ? int64_t{1} << 53 : int64_t{1} << 32;

template <class W>
int32_t pending_bound(int32_t p) {
    const int64_t square = int64_t{p - 1} * (p - 1);
    return static_cast<int32_t>(std::min<int64_t>((sum_limit<W> - p) / square, 2147483646));
}

// Storage aligned to 4 bytes and, on demand, to no more, filled with a value that no kernel writes.
template <class W>
class Cells {
  public:
    explicit Cells(size_t count, bool misaligned = false)
        : words_(count * sizeof(W) / sizeof(uint32_t) + 1), first_(misaligned ? 1 : 0) {
        for (size_t k = 0; k < count; k++) store(k, filler);
    }
    W *data() { return reinterpret_cast<W *>(words_.data() + first_); }
    void set(size_t k, int64_t value) { store(k, static_cast<W>(value)); }
    int64_t get(size_t k) const {
        W value;
        std::memcpy(&value, at(k), sizeof value);
        if (value == filler) return untouched;
        if constexpr (std::is_same_v<W, double>) {
            if (std::signbit(value) || std::floor(value) != value) return not_a_residue;
        }
        return static_cast<int64_t>(value);
    }

  private:
    static constexpr W filler = static_cast<W>(3735928559u);
    void store(size_t k, W value) { std::memcpy(words_.data() + (at(k) - words_.data()), &value, sizeof value); }
    const uint32_t *at(size_t k) const { return words_.data() + first_ + k * (sizeof(W) / sizeof(uint32_t)); }

    std::vector<uint32_t> words_;
    size_t first_;
};

// How a request is put to a kernel.
struct Setting {
    size_t gap = 0;  // between two lines
    bool misaligned = false;
    int32_t maxpending = 1;
    FpMode fp_mode = current_fp_mode();
};

template <class W>
Answer run(const Kernel<W> &kernel, const Request &q, const Table &input, const Setting &setting) {
    constexpr size_t guard = 5;
    const size_t rows = static_cast<size_t>(q.stored_rows()), columns = static_cast<size_t>(q.ncols);
    const size_t lines = kernel.c_order ? rows : columns, ld = (kernel.c_order ? columns : rows) + setting.gap;
    const auto position = [&](size_t i, size_t j) { return guard + (kernel.c_order ? i * ld + j : j * ld + i); };
    Cells<W> storage(guard + lines * ld + guard, setting.misaligned);
    for (size_t i = 0; i < input.size(); i++) {
        for (size_t j = 0; j < columns; j++) storage.set(position(i, j), input[i][j]);
    }
    const size_t nrows = static_cast<size_t>(q.nrows);
    Cells<W> det(1, setting.misaligned), pivprod(1, setting.misaligned);
    Cells<int32_t> rank(1), pivsig(1), extra(1), pivcols(nrows + 1), pending(nrows + 1);
    const W p = static_cast<W>(q.p);
    const double pinv = (1 + std::numeric_limits<double>::epsilon()) / q.p;

    Answer answer = blank_answer(q, input);
    answer.keeps_fp_mode = keeps_fp_mode(setting.fp_mode, [&] {
        const auto call = [&](auto function, auto... delay) {
            return function(storage.data() + guard, q.nrows, q.ncols, q.nred, static_cast<int32_t>(ld), p, pinv,
                            q.det ? det.data() : nullptr, q.pivprod ? pivprod.data() : nullptr,
                            q.rank ? rank.data() : nullptr, q.pivsig ? pivsig.data() : nullptr,
                            q.extra ? extra.data() : nullptr, q.pivcols ? pivcols.data() : nullptr, q.mode, q.detonly,
                            delay...);
        };
        answer.status = kernel.plain ? call(kernel.plain) : call(kernel.delayed, pending.data(), setting.maxpending);
    });
    answer.det = det.get(0);
    answer.pivprod = pivprod.get(0);
    answer.rank = rank.get(0);
    answer.pivsig = pivsig.get(0);
    answer.extra = extra.get(0);
    for (size_t i = 0; i < nrows; i++) answer.pivcols[i] = pivcols.get(i);
    size_t touched = 0, touched_in_block = 0;
    for (size_t k = 0; k < guard + lines * ld + guard; k++) touched += storage.get(k) != untouched;
    for (size_t i = 0; i < rows; i++) {
        for (size_t j = 0; j < columns; j++) {
            answer.A[i][j] = storage.get(position(i, j));
            touched_in_block += answer.A[i][j] != untouched;
        }
    }
    size_t counters = 0;
    for (size_t i = 0; i < nrows; i++) counters += pending.get(i) != untouched;
    answer.stays_in_bounds = touched == touched_in_block && pivcols.get(nrows) == untouched &&
                             pending.get(nrows) == untouched && (answer.status != 3 || counters == 0);
    return answer;
}

// ---- Random cases ----

Table random_residues(Random &random, size_t nrows, size_t ncols, int64_t p) {
    Table A(nrows, Row(ncols));
    for (Row &row : A) {
        for (int64_t &x : row) x = below(random, p);
    }
    return A;
}

Table product(const Table &A, const Table &B, size_t ncols, int64_t p) {
    Table C(A.size(), Row(ncols));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t k = 0; k < B.size(); k++) {
            for (size_t j = 0; j < ncols; j++) C[i][j] = (C[i][j] + A[i][k] * B[k][j]) % p;
        }
    }
    return C;
}

std::vector<int64_t> prime_factors(int64_t p) {
    std::vector<int64_t> factors;
    for (int64_t d = 2; d * d <= p; d++) {
        for (; p % d == 0; p /= d) factors.push_back(d);
    }
    if (p > 1) factors.push_back(p);
    return factors;
}

// Matrices on which elimination has something to decide.
Table random_table(Random &random, size_t nrows, size_t ncols, int64_t p) {
    Table A = random_residues(random, nrows, ncols, p);
    const auto change_entries = [&](auto change) {
        for (size_t i = 0; i < nrows; i++) {
            for (size_t j = 0; j < ncols; j++) A[i][j] = mod(change(A[i][j], i, j), p);
        }
    };
    const std::vector<int64_t> factors = prime_factors(p);
    switch (below(random, 7)) {
        case 0:  // dense
            break;
        case 1:  // sparse
            change_entries([&](int64_t x, size_t, size_t) { return chance(random, 75) ? 0 : x; });
            break;
        case 2: {  // low rank
            const size_t rank = below(random, std::min(nrows, ncols) + 1);
            A = product(random_residues(random, nrows, rank, p), random_residues(random, rank, ncols, p), ncols, p);
            break;
        }
        case 3:  // non-units
            change_entries([&](int64_t x, size_t, size_t) { return x * pick(random, factors); });
            break;
        case 4:  // triangular, with non-units on the diagonal
            change_entries([&](int64_t x, size_t i, size_t j) {
                return i > j ? 0 : i == j ? pick(random, factors) : x;
            });
            break;
        case 5:  // residues at the ends
            change_entries([&](int64_t, size_t, size_t) { return below(random, 3) - 1; });
            break;
        case 6:  // non-units in the first columns
            change_entries([&](int64_t x, size_t, size_t j) { return j < ncols / 2 ? x * factors[0] : x; });
            break;
    }
    for (size_t j = 0; j < ncols; j++) {
        if (chance(random, 8)) change_entries([&](int64_t x, size_t, size_t k) { return k == j ? 0 : x; });
    }
    for (Row &row : A) {
        if (chance(random, 8)) row.assign(ncols, 0);
    }
    if (chance(random, 40)) std::shuffle(A.begin(), A.end(), random);
    return A;
}

// The same residues, some written as larger numbers below the limit.
Table unreduced(Random &random, Table A, int64_t p, int64_t limit) {
    const int density = pick(random, {0, 0, 20, 100});
    for (Row &row : A) {
        for (int64_t &x : row) {
            const int64_t most = (limit - 1 - x) / p;
            if (chance(random, density)) {
                x += p * (chance(random, 30) ? most : below(random, most + 1));
            }
        }
    }
    return A;
}

int32_t random_modulus(Random &random) {
    if (chance(random, 20)) return 2 + below(random, 33554430);
    return pick(random, {2,     3,     4,     5,     6,     7,       8,       9,        10,       12,
                         30,    36,    49,    101,   210,   251,     4096,    30030,    46337,    46339,
                         65521, 65025, 65534, 65535, 65536, 1048573, 9699690, 33554393, 33554430, 33554431});
}

Request random_request(Random &random, int32_t max_size) {
    Request q = {};
    q.p = random_modulus(random);
    q.nrows = below(random, max_size + 1);
    q.ncols = chance(random, 40) ? q.nrows : below(random, max_size + 1);
    q.nred = chance(random, 60) ? q.ncols : below(random, q.ncols + 1);
    q.mode = below(random, 3);
    q.detonly = chance(random, q.mode == 0 ? 40 : 5);
    for (bool Request::*wanted :
         {&Request::det, &Request::pivprod, &Request::rank, &Request::pivsig, &Request::extra, &Request::pivcols}) {
        q.*wanted = chance(random, 50);
    }
    return q;
}

template <class W>
void compare_with_model(const Kernel<W> &kernel, const Request &q, const Table &input, const Setting &setting,
                        Ways *ways) {
    const Answer expected = model(q, input, ways), answer = run(kernel, q, input, setting);
    if (answer == expected) return;
    ADD_FAILURE() << kernel.name << ", " << text(q) << ", maxpending " << setting.maxpending << ", line gap "
                  << setting.gap << (setting.misaligned ? ", misaligned" : "") << ", of" << text(input) << "gives "
                  << text(answer) << "instead of " << text(expected);
}

// Every kernel, in random settings, on one random case per seed.
void compare_random_cases(uint32_t first_seed, uint32_t cases, int32_t min_size, int32_t max_size,
                          const std::vector<FpMode> &fp_modes, Ways *ways) {
    for (uint32_t seed = first_seed; seed < first_seed + cases && !testing::Test::HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        Request q = random_request(random, max_size - min_size);
        q.nrows += min_size, q.ncols += min_size, q.nred += min_size;
        const Table A = random_table(random, static_cast<size_t>(q.nrows), static_cast<size_t>(q.ncols), q.p);
        for (const FpMode &fp_mode : fp_modes) {
            for_each_kernel(q.p, [&]<class W>(const Kernel<W> &kernel) {
                const size_t gap = chance(random, 50) ? below(random, size_t{6}) : 0;
                const int32_t bound = pending_bound<W>(q.p);
                const int32_t maxpending = std::min(bound, pick(random, {1, 2, 3, bound, bound}));
                const Setting setting = {gap, chance(random, 40), maxpending, fp_mode};
                compare_with_model(kernel, q, unreduced(random, A, q.p, sum_limit<W>), setting, ways);
            });
        }
    }
}

TEST(ReduceModel, SmallMatrices) {
    Ways ways;
    compare_random_cases(1, 100000, 0, 12, {current_fp_mode()}, &ways);
    for (const int count : ways.statuses) EXPECT_GT(count, 1000);
    for (const int count : {ways.descents, ways.ties, ways.kept_with_exchange, ways.reduced_above_kept, ways.exchanges,
                            ways.zero_det_exits[0], ways.zero_det_exits[1], ways.rows_moved_up, ways.nullspace_rows,
                            ways.nullspace_rows_below}) {
        EXPECT_GT(count, 500);
    }
}

TEST(ReduceModel, LargeMatrices) {
    Ways ways;
    compare_random_cases(500000, 100, 60, 130, {current_fp_mode()}, &ways);
}

TEST(ReduceModel, ForeignFloatingPointModes) {
    Ways ways;
    compare_random_cases(700000, 1000, 0, 12, foreign_fp_modes(), &ways);
}

// L*U with ones in L and p-1 beside the ones in U: every row update adds the largest product there is, and most sums
// end in the residues p-1 and 1.
Table largest_products(size_t nrows, size_t ncols, int64_t p) {
    Table L(nrows, Row(nrows, 0)), U(nrows, Row(ncols, p - 1));
    for (size_t i = 0; i < nrows; i++) {
        std::fill_n(L[i].begin(), i + 1, 1);
        std::fill_n(U[i].begin(), std::min(i, ncols), 0);
        if (i < ncols) U[i][i] = 1;
    }
    return product(L, U, ncols, p);
}

TEST(ReduceModel, SumsUpToTheLimit) {
    Ways ways;
    for (const int32_t p : {2, 3, 107, 32749, 46337, 46339, 65521, 65535, 1048573, 16777213, 33554393, 33554431}) {
        for (const size_t n : {10, 40, 120}) {
            for (const Table &A : {largest_products(n, n + 5, p), Table(n, Row(n + 5, p - 1))}) {
                for (const int32_t mode : {0, 1}) {
                    const int32_t size = static_cast<int32_t>(n);
                    const Request q = {p, size, size + 5, size + 5, mode, false, true, true, true, true, false, false};
                    for_each_kernel(p, [&]<class W>(const Kernel<W> &kernel) {
                        compare_with_model(kernel, q, A, {0, false, pending_bound<W>(p), current_fp_mode()}, &ways);
                    });
                }
            }
        }
    }
}

// ---- FLINT ----

class NmodMat {
  public:
    NmodMat(size_t nrows, size_t ncols, int32_t p) {
        nmod_mat_init(mat, static_cast<slong>(nrows), static_cast<slong>(ncols), static_cast<mp_limb_t>(p));
    }
    // The leading ncols columns of A.
    NmodMat(const Table &A, size_t ncols, int32_t p) : NmodMat(A.size(), ncols, p) {
        for (size_t i = 0; i < A.size(); i++) {
            for (size_t j = 0; j < ncols; j++) mat->rows[i][j] = static_cast<mp_limb_t>(A[i][j]);
        }
    }
    NmodMat(const NmodMat &) = delete;
    ~NmodMat() { nmod_mat_clear(mat); }
    Table table() const {
        Table A(static_cast<size_t>(mat->r), Row(static_cast<size_t>(mat->c)));
        for (size_t i = 0; i < A.size(); i++) std::copy_n(mat->rows[i], mat->c, A[i].begin());
        return A;
    }
    nmod_mat_t mat;
};

// A matrix over a field, and its reduction with every output that a mode allows.
struct FieldCase {
    Random random;
    int32_t p;
    size_t nrows, ncols;
    Table A;

    explicit FieldCase(uint32_t seed) : random(seed) {
        p = pick(random, {2, 3, 251, 32749, 46337, 46349, 65521, 1048573, 33554393});
        const size_t most = chance(random, 10) ? 131 : 30;
        nrows = below(random, most);
        ncols = chance(random, 50) ? nrows : below(random, most);
        A = chance(random, 20) ? largest_products(nrows, ncols, p) : random_table(random, nrows, ncols, p);
    }
    bool has_det() const { return nrows <= ncols; }
    template <class W>
    Answer reduce(const Kernel<W> &kernel, int32_t mode) {
        const int32_t m = static_cast<int32_t>(nrows), n = static_cast<int32_t>(ncols);
        const Request q = {p, m, n, n, mode, false, has_det(), has_det(), true, true, false, mode != 0};
        const size_t gap = below(random, size_t{3});
        return run(kernel, q, A, {gap, chance(random, 30), pending_bound<W>(p), current_fp_mode()});
    }
};

// Zeros before the pivots, which are ones, and nothing but zeros below them.
bool is_echelon_form(const Table &A, const std::vector<size_t> &pivots) {
    for (size_t i = 0; i < A.size(); i++) {
        const auto nonzero = std::find_if(A[i].begin(), A[i].end(), [](int64_t x) { return x != 0; });
        const size_t first = static_cast<size_t>(nonzero - A[i].begin());
        if (first != (i < pivots.size() ? pivots[i] : A[i].size())) return false;
        if (nonzero != A[i].end() && *nonzero != 1) return false;
    }
    return true;
}

TEST(ReduceFlint, FormsRankAndDeterminantOverFields) {
    for (uint32_t seed = 1; seed <= 1000 && !HasFailure(); seed++) {
        FieldCase c(seed);
        NmodMat leading(c.A, c.has_det() ? c.nrows : 0, c.p), echelon(c.A, c.ncols, c.p);
        const int64_t det = c.has_det() ? static_cast<int64_t>(nmod_mat_det(leading.mat)) : untouched;
        const size_t rank = static_cast<size_t>(nmod_mat_rref(echelon.mat));
        const Table expected = echelon.table();
        int64_t pivsig = 0;
        std::vector<size_t> pivots;
        for (size_t r = 0; r < rank; r++) {
            pivots.push_back(static_cast<size_t>(std::ranges::find(expected[r], 1) - expected[r].begin()));
            pivsig += static_cast<int64_t>((r + 1) * pivots.back());
        }
        for_each_kernel(c.p, [&]<class W>(const Kernel<W> &kernel) {
            for (const int32_t mode : {0, 1, 2}) {
                const Answer answer = c.reduce(kernel, mode);
                SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << kernel.name << ", mode " << mode << ", "
                                                << text(c.A) << "mod " << c.p << " gives " << text(answer));
                ASSERT_EQ(answer.status, 0u);
                ASSERT_EQ(answer.rank, static_cast<int64_t>(rank));
                ASSERT_EQ(answer.pivsig, pivsig);
                ASSERT_EQ(answer.det, det);
                ASSERT_TRUE(det <= 0 || c.nrows != c.ncols || answer.pivprod == det);
                for (const Row &row : answer.A) {
                    for (const int64_t x : row) ASSERT_TRUE(x >= 0 && x < c.p) << x;
                }
                Table form = answer.A;
                if (mode == 0) {
                    ASSERT_TRUE(is_echelon_form(form, pivots));
                    NmodMat same_space(form, c.ncols, c.p);
                    nmod_mat_rref(same_space.mat);
                    form = same_space.table();
                }
                for (size_t i = 0; i < rank; i++) ASSERT_EQ(form[i], expected[i]) << "row " << i;
            }
        });
    }
}

TEST(ReduceFlint, NullspaceRowsAreABasis) {
    for (uint32_t seed = 5001; seed <= 5600 && !HasFailure(); seed++) {
        FieldCase c(seed);
        NmodMat A(c.A, c.ncols, c.p);
        const slong rank = nmod_mat_rank(A.mat);
        const size_t nullity = c.ncols - static_cast<size_t>(rank);
        for_each_kernel(c.p, [&]<class W>(const Kernel<W> &kernel) {
            const Answer answer = c.reduce(kernel, 1);
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", " << kernel.name << ", " << text(c.A) << "mod "
                                            << c.p << " gives " << text(answer));
            ASSERT_EQ(answer.rank, rank);
            const auto first = answer.A.begin() + rank;
            NmodMat N(Table(first, first + static_cast<ptrdiff_t>(nullity)), c.ncols, c.p);
            NmodMat columns(c.ncols, nullity, c.p), images(c.nrows, nullity, c.p);
            nmod_mat_transpose(columns.mat, N.mat);
            nmod_mat_mul(images.mat, A.mat, columns.mat);
            ASSERT_TRUE(nmod_mat_is_zero(images.mat));
            ASSERT_EQ(nmod_mat_rank(N.mat), static_cast<slong>(nullity));
        });
    }
}

// Whatever the modulus, Euclidean steps and kept non-units leave the determinant of the integers behind the residues.
TEST(ReduceFlint, DeterminantsModuloComposites) {
    for (uint32_t seed = 9001; seed <= 10000 && !HasFailure(); seed++) {
        Random random(seed);
        const int32_t p = pick(random, {4, 6, 12, 30, 210, 4096, 30030, 65535, 65536, 9699690, 33554431});
        const int32_t n = below(random, 25);
        const size_t size = static_cast<size_t>(n);
        const Table A = random_table(random, size, size, p);
        fmpz_mat_t integers;
        fmpz_mat_init(integers, n, n);
        for (size_t i = 0; i < size; i++) {
            for (size_t j = 0; j < size; j++) fmpz_set_ui(integers->rows[i] + j, static_cast<ulong>(A[i][j]));
        }
        fmpz_t det;
        fmpz_init(det);
        fmpz_mat_det(det, integers);
        const int64_t expected = static_cast<int64_t>(fmpz_fdiv_ui(det, static_cast<ulong>(p)));
        fmpz_clear(det);
        fmpz_mat_clear(integers);
        for_each_kernel(p, [&]<class W>(const Kernel<W> &kernel) {
            for (const bool detonly : {true, false}) {
                const Request q = {p, n, n, n, detonly ? 0 : 2, detonly, true, false, false, false, false, false};
                const Answer answer = run(kernel, q, A, {0, false, pending_bound<W>(p), current_fp_mode()});
                EXPECT_EQ(answer.status, 0u);
                EXPECT_EQ(answer.det, expected) << "seed " << seed << ", " << kernel.name << ", " << text(q) << text(A);
            }
        });
    }
}

}  // namespace
