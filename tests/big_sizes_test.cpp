// Sizes whose products pass 2^31 and 2^32: the host's error is raised, and nothing wraps.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "tests/library_calls.h"

namespace {

using namespace modla_test;
using namespace modla_test::strict;

class BigSizes : public testing::Test {
  protected:
    BigSizes() { start_over(); }
    ~BigSizes() override {
        reset();
        host = {};
    }

    static void start_over() {
        reset();
        host = {};
        host.conditions.mode = current_fp_mode();
        host.memory_limit = 0x7fffffff;  // what a host of 32 bits can give at best
        register_stand_ins();
        define("p", integer_object(7));
    }

    // A table that claims to be large.  Its entries are not there.
    static void claim(const char *word, int32_t datatype, int32_t subtype, int32_t order, int32_t rows,
                      int32_t columns) {
        define(word, new_table_over(storage, datatype, subtype, order, rows, columns));
    }

    // Messages without what they tell of the object.
    static std::vector<std::string> beginnings(std::vector<std::string> messages) {
        for (std::string &message : messages) message.resize(std::min(message.find(':'), message.size()));
        return messages;
    }

    // A call that the host refuses in all ways.
    static void expect_refused(const std::string &entry, const std::string &text, const std::string &message) {
        for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
            host.leaving = leaving;
            const Outcome outcome = call_entry(entry_point(entry), arguments(text));
            reclaim();
            EXPECT_EQ(beginnings(outcome.messages), std::vector{message}) << entry << "(" << text << ")";
            EXPECT_EQ(outcome.returned, leaving == Leaving::returning);
            EXPECT_EQ(to_text(outcome.result), outcome.returned ? "" : "nothing") << entry << "(" << text << ")";
            EXPECT_EQ(host.violations, std::vector<std::string>{}) << entry << "(" << text << ")";
        }
    }

    static double storage[2];
};
double BigSizes::storage[2];

constexpr const char *too_large = "object too large", *no_memory = "out of memory";

TEST_F(BigSizes, OfNewObjectsAreTheHostsToRefuse) {
    const int32_t sizes[][2] = {{65536, 65536},           {65536, 65537},  {46341, 46341},
                                {1073741823, 1073741823}, {1073741823, 0}, {0, 1073741823},
                                {1, 1073741823},          {536870912, 1},  {3, 1431655766 / 2}};
    for (const auto &[rows, columns] : sizes) {
        for (const char *content : {"", "5, ", "random, "}) {
            for (const char *datatype : {"integer[4]", "float[8]", "integer"}) {
                const std::string text = "p, " + std::to_string(rows) + ", " + std::to_string(columns) + ", " + content;
                expect_refused("modLA_Create", text + datatype, too_large);
            }
        }
    }
    for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER}) {
        start_over();
        claim("H", datatype, MODLA_MATRIX, MODLA_C_ORDER, 65536, 65537);
        claim("V", datatype, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 65536, 1);
        claim("R", datatype, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 65537);
        claim("L", datatype, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, INT_MAX, 1);
        for (const char *text : {"p, H", "p, H, transpose, Fortran_order", "p, H, 1..65535, 2..65537", "p, L"}) {
            expect_refused("modLA_Copy", text, too_large);
        }
        expect_refused("modLA_AddMult", "p, 3, H, H", too_large);
        for (const char *text : {"p, V, R", "p, 3, H", "p, 3, L", "p, H, 1..65535, 1..65536, H, 1..65536, 2..65537"}) {
            expect_refused("modLA_Multiply", text, too_large);
        }
        for (const char *text : {"p, H, float[8]", "p, L, integer[4]"}) expect_refused("modLA_Mod", text, too_large);
    }
}

// Copies of blocks that overlap, counters for rows: byte counts that are a little more than a multiple of 2^32.
TEST_F(BigSizes, OfWorkMemoryAreTheHostsToRefuse) {
    for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t order : {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}) {
            start_over();
            claim("H", datatype, MODLA_MATRIX, order, 65537, 65536);
            claim("S", datatype, MODLA_MATRIX, order, 32768, 32768);
            claim("N", datatype, MODLA_MATRIX, order, 1 << 30, 1 << 30);
            claim("Tall", datatype, MODLA_MATRIX, order, (1 << 30) + 1, 3);
            claim("Thin", datatype, MODLA_MATRIX, order, (1 << 30) + 1, 0);
            claim("P", MODLA_INTEGER4, MODLA_COLUMN_VECTOR, order, 1 << 30, 1);
            expect_refused("modLA_Copy", "p, H, 1..65536, H, 2", no_memory);
            expect_refused("modLA_AddMult", "p, 2, H, 1..65536, H, 2..65537, H, 2", no_memory);
            expect_refused("modLA_AddMult", "p, 2, H, 2..65537, H, 1..65536, H, 2", no_memory);
            expect_refused("modLA_Multiply", "p, 3, H, 1..65536, H, 2", no_memory);
            expect_refused("modLA_Multiply", "p, S, S, S", no_memory);
            // Doubles are looked at first.
            if (datatype == MODLA_INTEGER4) expect_refused("modLA_Mod", "p, H, 1..65536, H, 2", no_memory);
            expect_refused("modLA_LUDecomp", "p, N, P, 0", no_memory);
            expect_refused("modLA_RowReduce", "p, Tall, -1, 2, 0, 0, 0, 0, 0, 0, true", no_memory);
            expect_refused("modLA_Determinant", "p, N, -1, -1, d", no_memory);
            expect_refused("modLA_MatBasis", "p, Tall, 0, false", no_memory);
            expect_refused("modLA_MatBasis", "p, Thin, 0, false", no_memory);
        }
    }
}

// Strassen's recursion asks for about 4/3 n^2 entries: 24086 more than 2^32 for n = 56756.
TEST_F(BigSizes, OfWorkspacesAreTheHostsToRefuse) {
    uint32_t word = 0;
    double real = 0;
    const int32_t n = 56756;
    for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
        host.leaving = leaving;
        HostObject workspace = 0;
        const auto run = [&](const std::function<void()> &calls) {
            workspace = 0;
            const Outcome outcome = attempt(calls);
            EXPECT_EQ(beginnings(outcome.messages), std::vector<std::string>{too_large});
            EXPECT_EQ(to_text(workspace), outcome.returned ? "" : "nothing");
            EXPECT_EQ(host.violations, std::vector<std::string>{});
        };
        run([&] {
            workspace = call(modLA_MatMult_iw, api(), 7, 1. / 7, n, n, n, &word, n, 1, &word, n, 1, &word, n, 1, 0,
                             nullptr, 0, 20);
        });
        const double p = 33554393;
        for (const int32_t k : {n, 2 * n}) {
            run([&] {
                workspace = call(modLA_MatMult_f, api(), p, 1.0000000000000002 / p, n, k, n, &real, k, 1, &real, n, 1,
                                 &real, n, 1, 0, nullptr, 0);
            });
        }
    }
    EXPECT_EQ(word, 0u);
    EXPECT_EQ(real, 0);
}

// Steps that lead nowhere: only the product of an index and a step passes 2^31.
TEST_F(BigSizes, OfStepsThatAreNotTaken) {
    const auto check = [](auto one, auto reduce_by_rows, auto reduce_by_columns, auto lu, auto substitute, auto gcd,
                          auto multiply, auto add, auto fill) {
        using W = decltype(one);
        const double pinv = 1.0000000000000002 / 7;
        for (const int32_t far : {INT_MAX, INT_MIN}) {
            W line[3] = {5, 3, 1}, column[3] = {5, 3, 1}, x = 3, det = 0, result = 0;
            int32_t rank = 0, pending[3];
            call(reduce_by_rows, line, 1, 3, 3, far, 7, pinv, nullptr, nullptr, &rank, nullptr, nullptr, nullptr, 1, 0,
                 pending, 3);
            EXPECT_EQ(line[1], 2);  // 3/5
            call(reduce_by_columns, column, 3, 1, 1, far, 7, pinv, nullptr, nullptr, &rank, nullptr, nullptr, nullptr,
                 1, 0, pending, 3);
            EXPECT_EQ(column[0], 1);
            EXPECT_EQ(column[1] + column[2], 0);
            EXPECT_EQ(rank, 1);
            call(lu, &x, pending, 1, far, 7, pinv, &det, pending, 3);
            EXPECT_EQ(det, 3);
            call(substitute, &x, 1, far, line, 1, far, 7, pinv, 3);
            EXPECT_EQ(line[0], 5);  // 1/3
            EXPECT_EQ(call(gcd, line, 1, 1, far, 7, pinv, 1), 0);
            call(multiply, 7, pinv, 1, 1, 1, &x, far, far, &x, far, far, &result, far, far);
            EXPECT_EQ(result, 2);
            call(add, 7, 1, 1, &x, far, far, &x, far, far, &result, far, far);
            EXPECT_EQ(result, 6);
            call(add, 7, 0, INT_MAX, &x, far, far, &x, far, far, &result, far, far);
            call(fill, api(), 1, 1, &result, far, far, 2);
            EXPECT_LT(result, 2);
            call(fill, api(), INT_MAX, 0, &result, far, far, 2);
        }
    };
    check(1u, modLA_reduce_C_iw_nop, modLA_reduce_F_iw_nop, modLA_LU_C_iw_nop, modLA_BackSub_C_iw_nop,
          modLA_RowGcd_C_iw, modLA_MatMatMult_iw_N1, modLA_MatMatAdd_iw, rand_fill_iw);
    check(1.0, modLA_reduce_C_f_nop, modLA_reduce_F_f_nop, modLA_LU_F_f_nop, modLA_BackSub_F_f_nop, modLA_RowGcd_F_f,
          modLA_MatMatMult_f_N1, modLA_MatMatAdd_f, rand_fill_f);
    EXPECT_EQ(host.violations, std::vector<std::string>{});
}

#if !defined(__SANITIZE_ADDRESS__)
// 576 MB a Matrix: its last entries lie beyond 2^29 bytes.
TEST_F(BigSizes, AMatrixOf12000x12000Words) {
    const int32_t n = 12000, block = 150;
    host.fill_new_tables = false;
    define("p", integer_object(65521));
    const auto run = [](const char *entry, const std::string &text) {
        const Outcome outcome = call_entry(entry_point(entry), arguments(text));
        EXPECT_TRUE(outcome.returned) << entry << testing::PrintToString(outcome.messages);
        return outcome.result;
    };
    const HostObject A = run("modLA_Create", "p, 12000, 12000, 3, integer[4], Fortran_order");
    define("A", A);
    const auto words = [](HostObject table) { return reinterpret_cast<const uint32_t *>(table_of(table).data); };
    const size_t count = size_t{n} * n;
    EXPECT_EQ(std::count(words(A), words(A) + count, 3u), static_cast<ptrdiff_t>(count));
    run("modLA_Fill", "p, random, A, -150..-1, 11851..12000");
    define("B", run("modLA_Copy", "p, A, 11851..12000, 11851..12000, C_order"));
    run("modLA_RowReduce", "p, A, 11851..12000, -150..-1, 0, d, 0, r, 0, 0, true");
    run("modLA_RowReduce", "p, B, -1, -1, 0, e, 0, s, 0, 0, true");
    const auto value = [](const char *word) { return reinterpret_cast<const HostObject *>(name(word))[1]; };
    EXPECT_EQ(value("d"), value("e"));
    EXPECT_EQ(value("r"), value("s"));
    EXPECT_EQ(value("r"), immediate(block));
    const HostObject C = run("modLA_Copy", "p, A");
    EXPECT_EQ(std::memcmp(words(A), words(C), 4 * count), 0);
    // The reduced block is the unit matrix; every other entry is still 3.
    EXPECT_EQ(std::count(words(C), words(C) + count, 3u), static_cast<ptrdiff_t>(count) - block * block);
    for (int32_t i = 0; i < block; i++) {
        for (int32_t j = 0; j < block; j++) {
            ASSERT_EQ(entry_value(table_of(C), n - block + i, n - block + j), i == j);
        }
    }
    EXPECT_EQ(host.violations, std::vector<std::string>{});
}
#endif

}  // namespace
