// Row operations: those of every instruction set and the plain loops against a model, on rows of all short lengths and
// both alignments between guards, on random residues, on the largest ones, and on sums at the limit.
#include "engine/rows.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "engine/processor.h"

using namespace modla;

namespace {

using Integers = std::vector<uint64_t>;
std::mt19937 random_bits(11);

// A row between guards.
template <class Ring, class Entry = typename Ring::Entry>
struct Row {
    static constexpr size_t guard = 40;
    size_t shift;  // in words
    std::vector<uint32_t> storage;

    Row(const Integers &values, size_t offset)
        : shift(offset), storage((values.size() + 2 * guard) * sizeof(Entry) / 4 + 2, 0x5a5a5a5a) {
        int32_t k = 0;
        for (const uint64_t x : values) line()[k++] = static_cast<typename Ring::Value>(x);
    }
    Line<Entry, UnitStep> line() {
        return {static_cast<Entry *>(static_cast<void *>(storage.data() + shift)) + guard, {}};
    }
};

// Residues: all the largest one, or random, with some zeros.
Integers residues(uint32_t p, size_t count, bool largest) {
    Integers values(count, p - 1);
    for (uint64_t &x : values) x = largest ? p - 1 : random_bits() % 8 ? random_bits() % p : 0;
    return values;
}

// y[k] += f*x[k] + h*x[k-1] but in the first entry, in doubles or 16 bits.
template <class Ring>
void check_two_multiples(const Ring &ring, const Integers &x, const Integers &y, uint64_t f, uint64_t h,
                         size_t offset) {
    using Wide = std::conditional_t<std::is_same_v<Ring, WordRing>, PackedWord, StoredDouble>;
    if (!best_rows || x.empty()) return;
    const uint32_t p = static_cast<uint32_t>(ring.p);
    Integers expected = y;
    for (size_t k = 1; k < x.size(); k++) expected[k] = (y[k] + f * x[k] + h * x[k - 1]) % p;
    Row<Ring, Wide> row(y, offset), source(x, 1 - offset);
    add_two_multiples(*best_rows, ring, Line<Wide, UnitStep>{&row.line()[1], {}},
                      Line<Wide, UnitStep>{&source.line()[1], {}}, static_cast<int32_t>(x.size() - 1),
                      static_cast<typename Ring::Value>(f), static_cast<typename Ring::Value>(h));
    EXPECT_EQ(row.storage, (Row<Ring, Wide>(expected, offset).storage)) << "two, p " << p << ", " << x.size();
}

template <class Ring>
void check_operations(const Ring &ring, uint32_t p, size_t count, size_t offset, bool largest) {
    using Value = typename Ring::Value;
    const int32_t n = static_cast<int32_t>(count), limit = delay_bound<Ring>(p);
    const Integers x = residues(p, count, largest), g = residues(p, count, largest), y = residues(p, count, largest);
    const uint64_t f = residues(p, 1, largest)[0], h = residues(p, 1, largest)[0];
    const Value factor = static_cast<Value>(f), weight = static_cast<Value>(h);
    Integers full(count), updated(count);
    uint64_t x_dot_g = 0, updated_dot_g = 0;
    for (size_t k = 0; k < count; k++) {
        full[k] = Ring::limit - 1 - f * x[k] - (largest ? 0 : random_bits() % p);  // the most that takes f*x
        updated[k] = (y[k] + f * x[k]) % p;
        x_dot_g = (x_dot_g + x[k] * g[k]) % p;
        updated_dot_g = (updated_dot_g + updated[k] * g[k]) % p;
    }
    Row<Ring> source(x, offset), weights(g, 1 - offset);
    // Runs the operation on a row of `start` and compares with what the model makes of each entry.
    const auto check = [&](const char *name, const Integers &start, auto operation, auto model) {
        Integers expected(count);
        for (size_t k = 0; k < count; k++) expected[k] = model(k);
        Row<Ring> row(start, offset);
        operation(row.line());
        EXPECT_EQ(row.storage, Row<Ring>(expected, offset).storage) << name << ", p " << p << ", " << count;
    };
    check(
        "reduce", full, [&](auto row) { reduce_line(ring, row, n); }, [&](size_t k) { return full[k] % p; });
    check(
        "scale", x, [&](auto row) { scale_line(ring, row, n, factor); }, [&](size_t k) { return f * x[k] % p; });
    check(
        "add", full, [&](auto row) { add_multiple(ring, row, source.line(), n, factor); },
        [&](size_t k) { return full[k] + f * x[k]; });
    check(
        "add reduced", full, [&](auto row) { add_multiple_reduced(ring, row, source.line(), n, factor); },
        [&](size_t k) { return (full[k] + f * x[k]) % p; });
    const auto add_and_dot = [&](auto row) {
        const Value sum = add_multiple_and_dot(ring, row, source.line(), weights.line(), n, factor, limit);
        EXPECT_EQ(sum, static_cast<Value>(updated_dot_g));
    };
    check("add and dot", y, add_and_dot, [&](size_t k) { return updated[k]; });
    for (const bool reduced : {false, true}) {
        Integers sums(count);  // with room for g times a residue
        for (uint64_t &s : sums) s = Ring::limit - 1 - h * (p - 1);
        const auto gather = [&](auto sum) {
            Row<Ring> row(y, offset);
            add_multiple_and_gather(ring, row.line(), source.line(), sum, n, factor, weight, reduced);
            EXPECT_EQ(row.storage, Row<Ring>(updated, offset).storage) << "gather, p " << p << ", " << count;
        };
        check("gather", sums, gather, [&](size_t k) {
            const uint64_t sum = sums[k] + h * updated[k];
            return reduced ? sum % p : sum;
        });
    }
    EXPECT_EQ(dot_residues(ring, source.line(), weights.line(), n, limit), static_cast<Value>(x_dot_g));
    Row<Ring> other(y, offset);
    check(
        "swap", x, [&](auto row) { swap_lines(row, other.line(), n); }, [&](size_t k) { return y[k]; });
    EXPECT_EQ(other.storage, source.storage);
    check_two_multiples(ring, x, y, f, h, offset);
    EXPECT_TRUE(is_canonical_line(ring, source.line(), n));
    if (count == 0) return;
    const int32_t bad = static_cast<int32_t>(random_bits() % count);
    const double wrong_doubles[] = {static_cast<double>(p), -0.0, -1, 0.5, 1 / 0.0, 0 / 0.0, 9007199254740993.0};
    for (const double wrong : wrong_doubles) {
        if (std::is_same_v<Ring, WordRing> && wrong != p) continue;
        other.line()[bad] = static_cast<Value>(wrong);
        EXPECT_FALSE(is_canonical_line(ring, other.line(), n)) << wrong << ", p " << p << ", " << count;
    }
}

// For every set of instructions that there is here, and for the plain loops.
template <class Test>
void with_all_instructions(Test test) {
    const RowInstructions *const best = row_instructions();
    for (const RowInstructions *rows :
         {&rows_with_avx512, &rows_with_avx2, static_cast<const RowInstructions *>(nullptr)}) {
        if (rows == &rows_with_avx512 && !processor().avx512_vnni) continue;
        if (rows == &rows_with_avx2 && !processor().avx2) continue;
        SCOPED_TRACE(rows == &rows_with_avx512 ? "AVX-512" : rows ? "AVX2" : "plain");
        best_rows = rows;
        test();
    }
    best_rows = best;
}

// Lines that run upward through memory, which a BLAS would read from their other end.
TEST(Rows, StepsOfEitherSign) {
    with_all_instructions([] {
        alignas(16) StoredDouble x[16], y[16];
        for (const int32_t step : {1, -1, 3, -3}) {
            for (int32_t k = 0; k < 16; k++) x[k] = 1.0 + k, y[k] = 100.0 + k;
            const Line<StoredDouble, AnyStep> target = {y + 8, {step}}, source = {x + 8, {step}};
            EXPECT_EQ(sum_products(float_ring(101), source, target, 3),
                      9.0 * 108 + (9.0 + step) * (108 + step) + (9.0 + 2 * step) * (108 + 2 * step));
            add_multiple(float_ring(101), target, source, 3, 2.0);
            swap_lines(target, source, 2);
            for (int32_t k = 0; k < 16; k++) {
                const int32_t place = (k - 8) % step ? -1 : (k - 8) / step;
                const double sum = 100.0 + k + (place >= 0 && place < 3 ? 2 * (1.0 + k) : 0);
                EXPECT_EQ(place >= 0 && place < 2 ? x[k] : y[k], sum) << k << ", step " << step;
                EXPECT_EQ(place >= 0 && place < 2 ? y[k] : x[k], 1.0 + k) << k << ", step " << step;
            }
        }
    });
}

TEST(Rows, FollowTheModel) {
    with_all_instructions([] {
        for (size_t trial = 0; trial < 4 * 71; trial++) {
            const size_t count = trial / 4, offset = trial % 2;
            const bool largest = trial % 4 / 2;
            for (const uint32_t p : {2u, 3u, 5u, 6u, 7u, 251u, 4093u, 32768u, 32771u, 65521u, 65535u}) {
                check_operations(word_ring(p), p, count, offset, largest);
            }
            for (const uint32_t p : {2u, 3u, 4u, 5u, 6u, 7u, 11u, 65521u, 1048573u, 33554393u, 33554431u}) {
                check_operations(float_ring(p), p, count, offset, largest);
            }
        }
        for (const bool largest : {false, true}) {
            check_operations(word_ring(65535), 65535, 5003, 0, largest);
            check_operations(float_ring(33554431), 33554431, 5003, 0, largest);
        }
    });
}

// A matrix times a vector in both orders, with steps of its own for the vectors; an entry that is no residue leaves the
// result alone.
template <class Ring>
void check_vector_product(const Ring &ring, uint32_t p, int32_t m, int32_t k, bool by_rows, bool largest) {
    using Entry = typename Ring::Entry;
    const int32_t gap = 3, lines = by_rows ? m : k, length = by_rows ? k : m;
    const Integers a = residues(p, static_cast<size_t>(lines * (length + gap)), largest);
    const Integers x = residues(p, static_cast<size_t>(2 * k), largest);
    std::vector<Entry> A(a.size()), X(x.size()), y(static_cast<size_t>(3 * m) + 1, Entry{1});
    for (size_t i = 0; i < a.size(); i++) A[i] = static_cast<typename Ring::Value>(a[i]);
    for (size_t i = 0; i < x.size(); i++) X[i] = static_cast<typename Ring::Value>(x[i]);
    const ptrdiff_t across = length + gap;
    const Steps steps = by_rows ? Steps{across, 1} : Steps{1, across};
    const auto run = [&] {
        return multiply_vector(ring, m, k, Operand<const Entry>{A.data(), steps}, {X.data(), {2, 1}},
                               Operand<Entry>{y.data(), {3, 1}});
    };
    const bool served = best_rows && length >= shortest_row;
    ASSERT_EQ(run(), served ? VectorProduct::done : VectorProduct::not_served);
    if (!served) return;
    for (int32_t i = 0; i < m; i++) {
        uint64_t sum = 0;
        for (int32_t t = 0; t < k; t++) {
            sum += a[static_cast<size_t>(i * steps.row + t * steps.column)] * x[static_cast<size_t>(2 * t)] % p;
        }
        EXPECT_EQ(static_cast<typename Ring::Value>(y[static_cast<size_t>(3 * i)]), sum % p) << "p " << p << ", " << k;
    }
    Entry &spoiled = random_bits() % 2
                         ? A[static_cast<size_t>((lines - 1) * across) + random_bits() % static_cast<size_t>(length)]
                         : X[static_cast<size_t>(2 * (random_bits() % static_cast<uint32_t>(k)))];
    spoiled = static_cast<typename Ring::Value>(p);
    std::vector<Entry> before(y);
    EXPECT_EQ(run(), VectorProduct::not_residues);
    for (size_t i = 0; i < y.size(); i++) EXPECT_EQ(+y[i], +before[i]);
}

TEST(Rows, VectorProductsFollowTheModel) {
    with_all_instructions([] {
        for (const auto &[m, k] : {std::pair{1, 1030}, {1030, 1}, {9, 8}, {33, 37}, {5, 300}, {600, 30}, {530, 41}}) {
            for (const int form : {0, 1, 2, 3}) {
                for (const uint32_t p : {2u, 251u, 65521u, 65535u}) {
                    check_vector_product(word_ring(p), p, m, k, form % 2, form / 2);
                }
                for (const uint32_t p : {2u, 65521u, 1048573u, 33554393u, 33554431u}) {
                    check_vector_product(float_ring(p), p, m, k, form % 2, form / 2);
                }
            }
        }
    });
}

}  // namespace
