// The product engine: every route against a plain model, on sizes around the edges of tiles and blocks, on all kinds of
// steps, on random entries and on the extremes of the digits that routes work on.
#include <gtest/gtest.h>

#include <set>

#include "engine/gemm.h"
#include "engine/gemm_task.h"
#include "tests/support/grid.h"

using namespace modla;
using namespace modla_test;

namespace {

constexpr const char *route_names[] = {"bits",  "slices", "bytes",  "pairs",    "triple",
                                       "limbs", "wide",   "pairs2", "balanced2"};
static_assert(std::size(route_names) == route_count);

// Entries at steps of either sign, 1 and more, in words or doubles aligned to 4 bytes.
template <class W>
Cells<W> random_cells(Random &random, const Grid &A) {
    const int32_t m = static_cast<int32_t>(A.size()), n = static_cast<int32_t>(A[0].size());
    const int32_t unit = pick(random, {1, 3}), slack = pick(random, {0, 5});
    int32_t down = unit * (n + slack), right = unit;
    if (chance(random, 50)) down = unit, right = unit * (m + slack);
    Cells<W> cells(A.size(), A[0].size(), down * pick(random, {1, -1}), right * pick(random, {1, -1}),
                   chance(random, 50));
    cells.put(A);
    return cells;
}

Grid updated(Grid C, uint32_t p, Update update, const Grid &A, const Grid &B) {
    const Grid sum = product(A, B, C[0].size(), p);
    const int64_t sign = update == Update::subtract ? -1 : 1;
    for (size_t i = 0; i < C.size(); i++) {
        for (size_t j = 0; j < C[i].size(); j++)
            C[i][j] = mod((update == Update::store ? 0 : C[i][j]) + sign * sum[i][j], p);
    }
    return C;
}

// Entries that the tests make foreign have one p too much, or too little.
template <class W>
void reduce_model(uint32_t p, void *entries, int32_t count) {
    for (W *x = static_cast<W *>(entries); count > 0; count--, x++) *x = *x < 0 ? *x + p : *x >= p ? *x - p : +*x;
}

// At most `number` entries made foreign.
template <class W>
Grid spoilt(Random &random, Grid A, uint32_t p, uint64_t number) {
    for (; number > 0; number--) {
        int64_t &x = A[below(random, A.size())][below(random, A[0].size())];
        x = mod(x, p) + (is_float<W> && chance(random, 50) ? -int64_t{p} : p);
    }
    return A;
}

template <class W>
GemmTask task_of(uint32_t p, Update update, size_t m, size_t k, size_t n, Cells<W> &A, Cells<W> &B, Cells<W> &C) {
    const auto size = [](size_t x) { return static_cast<int32_t>(x); };
    return {p,
            static_cast<int>(update),
            size(m),
            size(k),
            size(n),
            is_float<W>,
            A.data(),
            A.row_step,
            A.column_step,
            B.data(),
            B.row_step,
            B.column_step,
            C.data(),
            C.row_step,
            C.column_step,
            nullptr};
}

// Runs all routes that take the entries.
template <class W>
void check_routes(Random &random, uint32_t p, const Grid &a, const Grid &b, const Grid &c, uint64_t foreign = 0,
                  bool by_columns = false) {
    const Update update = pick(random, {Update::store, Update::add, Update::subtract});
    Cells<W> A = random_cells<W>(random, spoilt<W>(random, a, p, foreign)),
             B = random_cells<W>(random, spoilt<W>(random, b, p, foreign / 2)), C = random_cells<W>(random, c);
    if (by_columns)
        A = Cells<W>(a.size(), b.size(), 1, static_cast<int32_t>(a.size())), A.put(spoilt<W>(random, a, p, foreign));
    const Grid expected = updated(c, p, update, a, b);
    for (int r = 0; r < route_count; r++) {
        const Route route = static_cast<Route>(r);
        if (!route_takes(route, p, is_float<W>)) continue;
        Cells<W> left = A, right = B, result = C;
        GemmTask task = task_of(p, update, a.size(), b.size(), b[0].size(), left, right, result);
        if (foreign > 0) task.reduce = reduce_model<W>;
        ASSERT_TRUE(gemm_with(route, task));
        ASSERT_TRUE(result.intact() && result.grid() == expected)
            << route_names[r] << ", p = " << p << ", " << a.size() << " x " << b.size() << " x " << b[0].size()
            << ", update " << task.update;
    }
}

template <class W>
std::vector<uint32_t> moduli() {
    if (!is_float<W>) {
        return {2,    3,    5,    127,  128,   251,   255,   256,   257,   509,  1021,
                4093, 4096, 8191, 8192, 16381, 32749, 32768, 65521, 65534, 65535};
    }
    return {2,     3,      251,     256,     4093,    8191,    16381,    65521,    65537,
            99991, 524287, 1048573, 1048575, 1048576, 2097143, 16777213, 33554393, 33554431};
}

// Residues at the ends of the ranges of what routes cut residues into: balanced residues, bytes, limbs.
Row extremes(int64_t p) {
    std::set<int64_t> found = {p / 2 - 1, p / 2, mod(p / 2 + 1, p)};
    for (const int64_t x :
         {0, 1, 127, 128, 255, 256, 0x7f7f, 0x7f80, 0x8080, 0x7fff, 0x8000, 0x7f7f7, 0x7ff80, 0x7ff7f}) {
        found.insert({mod(x, p), mod(-x, p)});
    }
    return {found.begin(), found.end()};
}

template <class Entry>
class Engine : public testing::Test {
  protected:
    Random random{1};
};
using Words = testing::Types<uint32_t, double>;
TYPED_TEST_SUITE(Engine, Words);

TYPED_TEST(Engine, SmallProductsAtAnySteps) {
    for (const uint32_t p : moduli<TypeParam>()) {
        const Row special = extremes(p);
        for (unsigned round = 0; round < 100 / slowness && !this->HasFatalFailure(); round++) {
            const auto make = [&](size_t m, size_t n) {
                Grid A = random_residues(this->random, m, n, p);
                for (size_t i = 0; i < m && round % 2 == 0; i++) {
                    for (int64_t &x : A[i]) x = pick(this->random, special);
                }
                return A;
            };
            const auto size = [&](size_t most) { return 1 + below(this->random, most); };
            const size_t m = size(40), k = size(round % 4 ? 40 : 150), n = size(40);
            check_routes<TypeParam>(this->random, p, make(m, k), make(k, n), make(m, n), round % 3);
        }
    }
}

// The largest sums: every pair of extremes throughout, with inner dimensions around the borders of segments and blocks.
TYPED_TEST(Engine, EqualEntriesAroundBorders) {
    for (const uint32_t p : moduli<TypeParam>()) {
        const Row special = extremes(p);
        for (const size_t k : {31, 33, 64, 127, 257, 447, 449, 511, 513, 897, 1025, 2049}) {
            Grid A;
            for (const int64_t x : special) A.emplace_back(k, x);
            check_routes<TypeParam>(this->random, p, A, Grid(k, special), make_grid(A.size(), A.size()));
            if (this->HasFatalFailure()) return;
        }
    }
}

TYPED_TEST(Engine, ManyBlocks) {
    const size_t sizes[][3] = {{470, 1100, 300}, {33, 9000, 40}, {20, 700, 2500}, {1000, 70, 600}, {2100, 40, 90}};
    for (const auto &[m, k, n] : sizes) {
        for (const uint32_t p : moduli<TypeParam>()) {
            if (p != moduli<TypeParam>().back() && (p != 3 || (m < 2000 && k < 8192)) &&
                chance(this->random, slowness > 1 ? 95 : 80))
                continue;
            const auto make = [&](size_t rows, size_t columns) {
                Grid A = random_residues(this->random, rows, columns, p);
                for (Row &row : A) {
                    for (int64_t &x : row) x = p - 1 - x / (1 + below(this->random, p));
                }
                return A;
            };
            check_routes<TypeParam>(this->random, p, make(m, k), make(k, n), make(m, n), below(this->random, 50u));
            if (this->HasFatalFailure()) return;
        }
    }
    // A by columns, whose foreign entries are found with the first of two parts of B.
    for (int round = 0; round < 8 / std::min(slowness, 4) && !this->HasFatalFailure(); round++) {
        const auto make = [&](size_t m, size_t n) { return random_residues(this->random, m, n, 251); };
        check_routes<TypeParam>(this->random, 251, make(40, 1000), make(1000, 800), make(40, 800), 5, true);
    }
}

template <class W>
using Stored = std::conditional_t<is_float<W>, StoredDouble, W>;
template <class W>
Operand<Stored<W>> operand(Cells<W> &A) {
    return {static_cast<Stored<W> *>(static_cast<void *>(A.data())), {A.row_step, A.column_step}};
}

// All of B in packed form would pass 2^32 bytes: of words in three bytes an entry, of doubles in eight.  Modulo 3 it passes
// what is packed at a time.
TYPED_TEST(Engine, PanelsBeyond32Bits) {
    using W = TypeParam;
    for (const uint32_t p : {3, is_float<W> ? 33554393 : 65521}) {
        if (slowness > 1 && p != 3) continue;
        const int32_t k = 8192, n = p == 3 ? 17000 : is_float<W> ? 65552 : 174768;
        Cells<W> A(3, 8192, k, 1), row(1, static_cast<size_t>(n), 0, 1), C(3, static_cast<size_t>(n), n, 1);
        A.put(make_grid(3, 8192, p - 1));
        for (int32_t j = 0; j < n; j++) row.data()[j] = static_cast<W>(static_cast<uint32_t>(j) % 65521 % p);
        const GemmTask task = task_of(p, Update::store, 3, 8192, static_cast<size_t>(n), A, row, C);
        for (const Route route : {Route::slices, Route::triple, Route::wide, Route::balanced2}) {
            if (!route_takes(route, p, is_float<W>)) continue;
            ASSERT_TRUE(gemm_with(route, task));
            for (int32_t j = 0; j < n; j++)
                ASSERT_EQ(C.get(2, static_cast<size_t>(j)), mod(int64_t{-8192} * (j % 65521), p)) << j;
            break;
        }
    }
}

// What the door itself leaves to the caller is not touched.
TYPED_TEST(Engine, TheDoor) {
    for (const uint32_t p : moduli<TypeParam>()) {
        for (const size_t n : {1, 7, 30, 130}) {
            const auto make = [&] { return random_residues(this->random, n, n, p); };
            const Grid a = make(), b = make(), c = make();
            auto A = random_cells<TypeParam>(this->random, a), B = random_cells<TypeParam>(this->random, b),
                 C = random_cells<TypeParam>(this->random, c);
            const int32_t size = static_cast<int32_t>(n);
            const bool served = gemm(p, Update::subtract, size, size, size, operand(A), operand(B), operand(C));
            EXPECT_EQ(C.grid(), served ? updated(c, p, Update::subtract, a, b) : c) << p << " " << n;
            EXPECT_TRUE(C.intact());
        }
    }
}

}  // namespace
