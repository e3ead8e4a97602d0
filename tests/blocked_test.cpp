// Elimination by blocks against the plain text: every entry of the storage and every output, whatever the block sizes.
#include <gtest/gtest.h>

#include <limits>

#include "elimination/lu_factor.h"
#include "elimination/row_reduction.h"
#include "elimination/triangular_solve.h"
#include "tests/support/fp_mode.h"
#include "tests/support/random.h"

namespace {

using namespace modla;
using modla_test::below;
using modla_test::chance;
using modla_test::Random;

const BlockSizes plain = {std::numeric_limits<int32_t>::max(), 8, 64, 32, 512};
const BlockSizes all_sizes[] = {{1, 1, 1, 1, 1},   {1, 1, 2, 2, 3}, {1, 2, 2, 3, 9}, {1, 3, 3, 2, 10},
                                {1, 3, 12, 4, 12}, {1, 7, 7, 7, 7}, {1, 2, 7, 7, 7}, {1}};

template <class Ring>
Ring make_ring(uint32_t p) {
    if constexpr (std::is_same_v<Ring, WordRing>) {
        return word_ring(p);
    } else {
        return float_ring(p);
    }
}

// A matrix of some rank in a larger storage, with zero columns, columns without units and repeated rows near the borders
// of blocks.
template <class Ring, bool c_order>
struct Case {
    using Entry = typename Ring::Entry;
    int32_t rows, columns;
    ptrdiff_t ld;
    std::vector<Entry> storage;

    Matrix<Entry, c_order> matrix() { return {storage.data(), ld}; }
};

template <class Ring, bool c_order>
Case<Ring, c_order> random_case(Random &random, const Ring &ring, uint32_t p, int32_t rows, int32_t columns,
                                bool regular) {
    Case<Ring, c_order> result = {rows, columns, (c_order ? columns : rows) + below(random, 3), {}};
    result.storage.resize(static_cast<size_t>(result.ld * (c_order ? rows : columns) + 1), {77});
    const auto A = result.matrix();
    const int32_t kind = below(random, 4), rank = below(random, std::min(rows, columns) + 1);
    for (int32_t i = 0; i < rows; i++) {
        for (int32_t j = 0; j < columns; j++) {
            // Echelon columns with random entries have the rank, and rows are mixed below.
            const bool dense = regular || kind == 0 || (kind == 1 && i < rank) || (kind > 1 && chance(random, 30));
            A.at(i, j) = dense ? static_cast<typename Ring::Value>(random() % p) : 0;
        }
    }
    for (int32_t k = 0; k < 6 && !regular; k++) {
        const int32_t i = below(random, rows), s = below(random, rows), border = 7 * below(random, columns) % columns;
        const int32_t c = std::min(columns - 1, std::max(0, border + static_cast<int32_t>(below(random, 3)) - 1));
        uint32_t factor = 1;  // a divisor of zero, or zero
        for (uint32_t d = 2; d < 300 && factor == 1; d++) factor = p % d == 0 && chance(random, 70) ? d : 1;
        if (factor == 1) factor = 0;
        for (int32_t l = 0; l < rows && k < 3; l++) {
            A.at(l, c) = ring.multiply(A.at(l, c), static_cast<typename Ring::Value>(factor));
        }
        if (i == s) continue;
        for (int32_t j = 0; j < columns; j++)
            A.at(i, j) = ring.multiply_add(A.at(s, j), 1 + below(random, 2) % p, A.at(i, j));
    }
    return result;
}

template <class Ring>
using Outputs = std::vector<typename Ring::Value>;

// The outputs and the storage that `run` leaves of a copy of the case, for these sizes.
template <class C, class Run>
auto outcome(C input, const BlockSizes &sizes, Run run) {
    auto outputs = run(input, sizes);
    for (const auto &entry : input.storage) outputs.push_back(entry);
    return outputs;
}

template <class C, class Run>
void compare(const C &input, const std::string &what, Run run) {
    const auto expected = outcome(input, plain, run);
    for (const BlockSizes &sizes : all_sizes) {
        ASSERT_EQ(outcome(input, sizes, run), expected)
            << what << ", " << input.rows << " x " << input.columns << ", leaf " << sizes.leaf << ", panel "
            << sizes.panel << ", solve " << sizes.solve;
    }
}

int32_t random_length(Random &random) {
    return 1 + below(random, chance(random, 4) ? 200 : 40);
}

template <class Ring, bool c_order>
void check_row_reduction(Random &random, uint32_t p) {
    using Value = typename Ring::Value;
    const Ring ring = make_ring<Ring>(p);
    const int32_t rows = random_length(random), columns = random_length(random);
    const auto input = random_case<Ring, c_order>(random, ring, p, rows, columns, chance(random, 20));
    const int32_t nred = chance(random, 50) ? columns : below(random, columns + 1);
    const int32_t mode = below(random, 3);
    const bool detonly = mode == 0 && chance(random, 40), wide = rows <= columns;
    const bool nullspace = mode != 0 && rows >= nred && chance(random, 50), extra = !nullspace && chance(random, 50);
    const bool det = wide && (detonly || chance(random, 70)), delayed = chance(random, 50);
    compare(input, std::to_string(p) + " mode " + std::to_string(mode), [&](auto &C, const BlockSizes &sizes) {
        typename Ring::Entry products[2] = {{5}, {5}};
        int32_t rank = -5, pivsig = -5, count = -5;
        std::vector<int32_t> pivcols(static_cast<size_t>(rows), -5), counters(static_cast<size_t>(rows), 7);
        const uint32_t status = row_reduce(
            RowReduction<Ring, Matrix<typename Ring::Entry, c_order>>{
                {rows,
                 columns,
                 nred,
                 &rank,
                 &pivsig,
                 extra ? &count : nullptr,
                 nullspace ? pivcols.data() : nullptr,
                 mode,
                 detonly,
                 {delayed ? counters.data() : nullptr, delay_bound<Ring>(p)}},
                ring,
                C.matrix(),
                det ? &products[0] : nullptr,
                wide ? &products[1] : nullptr},
            sizes);
        Outputs<Ring> outputs = {Value(status), products[0], products[1], Value(rank), Value(pivsig), Value(count)};
        outputs.insert(outputs.end(), pivcols.begin(), pivcols.end());
        return outputs;
    });
}

template <class Ring, bool c_order>
void check_lu(Random &random, uint32_t p) {
    using Value = typename Ring::Value;
    const Ring ring = make_ring<Ring>(p);
    const int32_t n = random_length(random);
    compare(random_case<Ring, c_order>(random, ring, p, n, n, chance(random, 60)), "LU " + std::to_string(p),
            [&](auto &C, const BlockSizes &sizes) {
                std::vector<int32_t> perm(static_cast<size_t>(n), -5), counters(static_cast<size_t>(n), 7);
                typename Ring::Entry det = {5};
                const uint32_t status = lu_factor(
                    LUFactorization<Ring, Matrix<typename Ring::Entry, c_order>>{
                        ring, C.matrix(), n, perm.data(), &det, {counters.data(), delay_bound<Ring>(p)}},
                    sizes);
                Outputs<Ring> outputs = {Value(status), det};
                outputs.insert(outputs.end(), perm.begin(), perm.end());
                return outputs;
            });
}

template <class Ring, bool c_order>
void check_solve(Random &random, uint32_t p) {
    using Entry = typename Ring::Entry;
    const Ring ring = make_ring<Ring>(p);
    const int32_t n = random_length(random), columns = random_length(random);
    auto triangle = random_case<Ring, c_order>(random, ring, p, n, n, true);
    const bool forward = chance(random, 50), unit = forward && chance(random, 50);
    for (int32_t i = 0; i < n && chance(random, 95); i++) triangle.matrix().at(i, i) = chance(random, 50) ? 1 : p - 1;
    if (chance(random, 10)) triangle.matrix().at(below(random, n), below(random, n)) = p;  // no residue
    compare(random_case<Ring, c_order>(random, ring, p, n, columns, true), "solve " + std::to_string(p),
            [&](auto &C, const BlockSizes &sizes) {
                const Matrix<const Entry, c_order> T = {triangle.storage.data(), triangle.ld};
                const TriangularSolve<Ring, Matrix<const Entry, c_order>, Matrix<Entry, c_order>> system = {
                    ring, T, n, C.matrix(), columns, forward, unit, delay_bound<Ring>(p)};
                return Outputs<Ring>{static_cast<typename Ring::Value>(triangular_solve(system, sizes))};
            });
}

template <class Ring>
void check_all(std::initializer_list<uint32_t> moduli) {
    Random random(20240721);
    for (int k = 0; k < 60 && !testing::Test::HasFatalFailure(); k++) {
        for (const uint32_t p : moduli) {
            check_row_reduction<Ring, true>(random, p);
            check_row_reduction<Ring, false>(random, p);
            check_lu<Ring, true>(random, p);
            check_lu<Ring, false>(random, p);
            check_solve<Ring, true>(random, p);
            check_solve<Ring, false>(random, p);
        }
    }
}

TEST(Blocked, Words) {
    check_all<WordRing>({2, 3, 6, 12, 60, 251, 4096, 8191, 32768, 64507, 65521, 65535});
}

TEST(Blocked, Floats) {
    check_all<FloatRing>({2, 6, 60, 251, 64507, 65521, 65536, 16777216, 33554393, 33554431});
}

}  // namespace
