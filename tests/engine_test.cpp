// The product engine: every route against a plain model, on sizes around the edges of tiles and blocks, on all kinds of
// steps, on random entries and on the extremes of the digits that routes work on.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "engine/gemm.h"
#include "engine/gemm_task.h"

using namespace modla;

namespace {

constexpr const char *route_names[] = {"bits", "bytes", "pairs", "triple", "limbs", "wide", "pairs2", "balanced2"};
static_assert(std::size(route_names) == route_count);

// A matrix at some steps within guarded storage that may be aligned to 4 bytes only.
template <class Entry>
struct Matrix {
    int32_t rows, columns;
    ptrdiff_t row_step, column_step, first;  // first: in words
    std::vector<uint32_t> storage;

    Matrix(int32_t m, int32_t n, uint32_t layout) : rows(m), columns(n) {
        const ptrdiff_t words = sizeof(Entry) / 4, unit = layout & 1 ? 3 : 1, slack = layout & 2 ? 5 : 0;
        row_step = unit * (n + slack), column_step = unit;
        if (layout & 4) row_step = unit, column_step = unit * (m + slack);
        first = layout >> 5 & 1;
        if (layout & 8) first += (m - 1) * row_step * words, row_step = -row_step;
        if (layout & 16) first += (n - 1) * column_step * words, column_step = -column_step;
        storage.assign(static_cast<size_t>((m + slack) * (n + slack) * unit * words + 1), 0x5a5a5a5a);
    }
    template <class Source>  // source() gives the entries
    Matrix(int32_t m, int32_t n, uint32_t layout, Source source) : Matrix(m, n, layout) {
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) at(i, j) = source();
        }
    }
    Entry *data() { return static_cast<Entry *>(static_cast<void *>(storage.data() + first)); }
    const Entry *data() const { return static_cast<const Entry *>(static_cast<const void *>(storage.data() + first)); }
    Entry &at(int32_t i, int32_t j) { return data()[i * row_step + j * column_step]; }
    uint32_t at(int32_t i, int32_t j) const { return static_cast<uint32_t>(data()[i * row_step + j * column_step]); }
};
constexpr uint32_t layouts = 64;

// For k < 2^14.
template <class Entry>
void multiply_model(uint32_t p, Update update, const Matrix<Entry> &A, const Matrix<Entry> &B, Matrix<Entry> &C) {
    std::vector<uint64_t> sums(static_cast<size_t>(C.columns));
    for (int32_t i = 0; i < C.rows; i++) {
        sums.assign(sums.size(), 0);
        for (int32_t t = 0; t < A.columns; t++) {
            const uint64_t a = A.at(i, t);
            for (int32_t j = 0; j < C.columns; j++) sums[static_cast<size_t>(j)] += a * B.at(t, j);
        }
        for (int32_t j = 0; j < C.columns; j++) {
            const uint64_t sum = sums[static_cast<size_t>(j)] % p;
            const uint64_t old = update == Update::store ? 0 : static_cast<uint32_t>(C.at(i, j));
            C.at(i, j) = static_cast<uint32_t>((update == Update::subtract ? old + p - sum : old + sum) % p);
        }
    }
}

// Entries that the tests make foreign have one p too much, or too little.
template <class Entry>
void reduce_model(uint32_t p, void *entries, int32_t count) {
    for (Entry *x = static_cast<Entry *>(entries); count > 0; count--, x++) {
        *x = *x < 0 ? *x + p : *x >= p ? *x - p : +*x;
    }
}

// About `number` entries made foreign.
template <class Entry>
Matrix<Entry> spoilt(uint32_t p, const Matrix<Entry> &A, int number) {
    Matrix<Entry> result = A;
    for (uint32_t draw = 1; number > 0; number--, draw = draw * 1664525 + 1013904223) {
        Entry &x = result.at(static_cast<int32_t>(draw >> 8) % A.rows, static_cast<int32_t>(draw >> 4) % A.columns);
        if (x >= 0 && x < p) x = sizeof(Entry) == 8 && draw & 128 ? x - p : x + p;
    }
    return result;
}

// Runs all routes that take the entries into copies of C, and compares the storage, guards included.
template <class Entry>
void check_routes(uint32_t p, Update update, const Matrix<Entry> &residues_a, const Matrix<Entry> &residues_b,
                  const Matrix<Entry> &C, int foreign = 0) {
    const Matrix<Entry> A = spoilt(p, residues_a, foreign), B = spoilt(p, residues_b, foreign / 2);
    Matrix<Entry> expected = C;
    multiply_model(p, update, residues_a, residues_b, expected);
    for (int r = 0; r < route_count; r++) {
        const Route route = static_cast<Route>(r);
        if (!route_takes(route, p, sizeof(Entry) == 8)) continue;
        Matrix<Entry> result = C;
        const GemmTask task = {p,
                               static_cast<int>(update),
                               A.rows,
                               A.columns,
                               B.columns,
                               sizeof(Entry) == 8,
                               A.data(),
                               A.row_step,
                               A.column_step,
                               B.data(),
                               B.row_step,
                               B.column_step,
                               result.data(),
                               C.row_step,
                               C.column_step,
                               foreign ? reduce_model<Entry> : nullptr};
        ASSERT_TRUE(gemm_with(route, task));
        ASSERT_TRUE(result.storage == expected.storage)
            << route_names[r] << ", p = " << p << ", " << A.rows << " x " << A.columns << " x " << B.columns
            << ", update " << static_cast<int>(update);
    }
}

template <class Entry>
std::vector<uint32_t> moduli() {
    if (sizeof(Entry) == 4) {
        return {2,    3,    5,    127,  128,   251,   255,   256,   257,   509,  1021,
                4093, 4096, 8191, 8192, 16381, 32749, 32768, 65521, 65534, 65535};
    }
    return {2,     3,      251,     256,     4093,    8191,    16381,    65521,    65537,
            99991, 524287, 1048573, 1048575, 1048576, 2097143, 16777213, 33554393, 33554431};
}

// Residues at the ends of the ranges of what routes cut residues into: balanced residues, bytes, limbs.
std::vector<uint32_t> extremes(uint32_t p) {
    std::vector<uint32_t> found;
    const auto add = [&](int64_t x) {
        const uint32_t r = static_cast<uint32_t>(((x % p) + p) % p);
        for (const uint32_t y : found) {
            if (y == r) return;
        }
        found.push_back(r);
    };
    for (const int64_t x : {0, 1, -1}) add(x);
    for (const int64_t d : {-1, 0, 1}) add(p / 2 + d);
    for (const int64_t x : {127, 128, 255, 256, 0x7f7f, 0x7f80, 0x8080, 0x7fff, 0x8000, 0x7f7f7, 0x7ff80, 0x7ff7f}) {
        add(x);
        add(-x);
    }
    return found;
}

template <class Entry>
class Engine : public testing::Test {};
using Entries = testing::Types<uint32_t, StoredDouble>;
TYPED_TEST_SUITE(Engine, Entries);

struct Random {
    std::mt19937 source{1};
    uint32_t below(size_t n) { return static_cast<uint32_t>(source() % n); }
    int32_t up_to(int32_t n) { return 1 + static_cast<int32_t>(below(static_cast<size_t>(n))); }
};

TYPED_TEST(Engine, SmallProductsAtAnySteps) {
    Random random;
    for (const uint32_t p : moduli<TypeParam>()) {
        const std::vector<uint32_t> special = extremes(p);
        for (int round = 0; round < 100; round++) {
            const auto any = [&] { return random.below(p); };
            const auto extreme = [&] { return special[random.below(special.size())]; };
            const auto make = [&](int32_t m, int32_t n) {
                const uint32_t layout = random.below(layouts);
                return round & 1 ? Matrix<TypeParam>(m, n, layout, any) : Matrix<TypeParam>(m, n, layout, extreme);
            };
            const int32_t m = random.up_to(40), k = random.up_to(round % 4 ? 40 : 150), n = random.up_to(40);
            const Matrix<TypeParam> A = make(m, k), B = make(k, n), C = make(m, n);
            check_routes(p, static_cast<Update>(random.below(3)), A, B, C, round % 3);
            if (this->HasFatalFailure()) return;
        }
    }
}

// The largest sums: every pair of extremes throughout, with inner dimensions around the borders of segments and blocks.
TYPED_TEST(Engine, EqualEntriesAroundBorders) {
    for (const uint32_t p : moduli<TypeParam>()) {
        const std::vector<uint32_t> special = extremes(p);
        size_t at = 0;
        for (const int32_t k : {31, 33, 64, 127, 257, 447, 449, 511, 513, 897, 1025, 2049}) {
            for (size_t i = 0; i < special.size(); i++) {
                // All pairs for a few k, some for all.
                const size_t step = k == 513 || k == 897 ? 1 : 7;
                for (size_t j = at++ % step; j < special.size(); j += step) {
                    const Matrix<TypeParam> A(1, k, 0, [&] { return special[i]; }),
                        B(k, 1, 0, [&] { return special[j]; });
                    check_routes(p, Update::store, A, B, Matrix<TypeParam>(1, 1, 0, [] { return 0; }));
                    if (this->HasFatalFailure()) return;
                }
            }
        }
    }
}

TYPED_TEST(Engine, ManyBlocks) {
    Random random;
    const int32_t sizes[][3] = {{470, 1100, 300}, {33, 9000, 40}, {20, 700, 2500}, {1000, 70, 600}};
    for (const auto &[m, k, n] : sizes) {
        for (const uint32_t p : moduli<TypeParam>()) {
            if (random.below(3) != 0 && p != moduli<TypeParam>().back()) continue;
            const auto any = [&] { return p - 1 - random.below(p) / (1 + random.below(p)); };
            const Matrix<TypeParam> A(m, k, random.below(layouts), any), B(k, n, random.below(layouts), any);
            const Matrix<TypeParam> C(m, n, random.below(layouts), any);
            check_routes(p, static_cast<Update>(random.below(3)), A, B, C, static_cast<int>(random.below(50)));
            if (this->HasFatalFailure()) return;
        }
    }
}

// All of B in packed form would pass 2^32 bytes: of words in three bytes an entry, of doubles in eight.
TYPED_TEST(Engine, PanelsBeyond32Bits) {
    constexpr bool doubles = sizeof(TypeParam) == 8;
    const uint32_t p = doubles ? 33554393 : 65521;
    const int32_t k = 8192, n = doubles ? 65552 : 174768;
    const Matrix<TypeParam> A(3, k, 0, [&] { return p - 1; });
    Matrix<TypeParam> row(1, n, 0), C(3, n, 0);
    for (int32_t j = 0; j < n; j++) row.at(0, j) = static_cast<uint32_t>(j % 65521);
    ASSERT_TRUE(gemm(p, Update::store, 3, k, n, Operand<const TypeParam>{A.data(), {k, 1}},
                     Operand<const TypeParam>{row.data(), {0, 1}}, Operand<TypeParam>{C.data(), {n, 1}}));
    for (int32_t j = 0; j < n; j++) {
        const uint64_t negated = uint64_t{8192} * static_cast<uint32_t>(j % 65521) % p;
        ASSERT_EQ(C.at(2, j), negated ? p - negated : 0) << j;
    }
}

// What the door itself leaves to the caller is not touched.
TYPED_TEST(Engine, TheDoor) {
    Random random;
    for (const uint32_t p : moduli<TypeParam>()) {
        for (const int32_t n : {1, 7, 30, 130}) {
            const auto any = [&] { return random.below(p); };
            const Matrix<TypeParam> A(n, n, 2, any), B(n, n, 6, any), C(n, n, 0, any);
            Matrix<TypeParam> expected = C, result = C;
            const bool served =
                gemm(p, Update::subtract, n, n, n, Operand<const TypeParam>{A.data(), {A.row_step, A.column_step}},
                     Operand<const TypeParam>{B.data(), {B.row_step, B.column_step}},
                     Operand<TypeParam>{result.data(), {C.row_step, C.column_step}});
            if (served) multiply_model(p, Update::subtract, A, B, expected);
            EXPECT_TRUE(result.storage == expected.storage) << p << " " << n;
        }
    }
}

}  // namespace
