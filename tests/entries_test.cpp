// Entry points beyond the random calls: what callbacks receive and answer, tables that are empty or larger than the
// caches, and what the host is asked for.
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>

#include "tests/support/calls.h"
#include "tests/support/grid.h"

using namespace modla_test;

namespace {

// ---- Callbacks: callbacks.txt ----

struct CallbackCase {
    std::string call, expected;
    std::map<std::string, std::string> messages;  // by status
};

class Callbacks : public testing::Test {
  protected:
    void read() {
        reset();
        std::ifstream file(MODLA_TESTS "/callbacks.txt");
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            if (line.starts_with("table ")) {
                const int32_t rows = line[8] - '0', columns = line[10] - '0';
                tables_[line.substr(6, 1)] = make_table(
                    {MODLA_INTEGER, 1}, columns ? MODLA_MATRIX : MODLA_COLUMN_VECTOR, rows, std::max(columns, 1));
                set_name(line.substr(6, 1), tables_[line.substr(6, 1)]);
            } else if (line[0] == ' ') {
                cases_.back().messages[line.substr(2, line.find(':') - 2)] =
                    line.substr(std::min(line.size(), line.find(':') + 2));
            } else {
                const size_t arrow = line.find(" -> ");
                cases_.push_back({line.substr(0, arrow), line.substr(arrow + 4), {}});
            }
        }
        ASSERT_GT(cases_.size(), 20u);
    }
    std::string text_of_argument(Object x) const {
        for (const auto &[name, table] : tables_) {
            if (x == table) return name;
        }
        if (has_type(x, type_table)) return describe_table(table_of(x));
        return (has_type(x, type_name) && x != global_name(to_line(x)) ? "'" : "") + to_line(x);
    }

    std::vector<CallbackCase> cases_;
    std::map<std::string, Object> tables_;
};

TEST_F(Callbacks, ReceiveTheirArgumentsAndTheirStatusBecomesAMessage) {
    host = {};
    for (const char *name : {"x", "d", "r", "e", "s", "alias", "target"}) unassign(name);
    read();
    for (const CallbackCase &each : cases_) {
        const std::string name = each.expected.substr(0, each.expected.find('('));
        const bool has_status = !each.messages.count("-");
        if (name == "-") continue;
        for (const std::string status : {"0", "1", "2", "3", "4", "5", "9", "10", "11", "100", "-1", "-2", "-3", "-9",
                                         "-10", "-11", "536870912", "-536870912", "'y'"}) {
            if (!has_status && status != "0") break;
            const bool is_degree = each.messages.count(">") && status[0] != '-' && status[0] != '\'';
            std::string expected = status == "0" || is_degree ? "" : "unknown error";
            if (each.messages.count(status)) expected = each.messages.at(status);
            if (expected == "degree") expected = "";
            for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
                host.leaving = leaving;
                int calls = 0;
                const Object answer = eval(status);
                const Callback callback(name, [&](const std::vector<Object> &arguments) {
                    std::vector<std::string> texts;
                    for (const Object argument : arguments) {
                        texts.push_back(text_of_argument(argument));
                        if (texts.back() == "'rank") set_value(argument, immediate(4321));
                    }
                    EXPECT_EQ(name + "(" + joined(texts) + ")", each.expected) << each.call;
                    calls++;
                    return answer;
                });
                const CollectAlways collect(status == "0");
                const Outcome outcome = call(each.call);
                EXPECT_EQ(outcome.message, expected) << each.call << ", status " << status;
                EXPECT_EQ(calls, 1) << each.call;
                if (!outcome.returned || !has_status) continue;
                const bool is_basis = each.call.starts_with("MatBasis") && expected.empty();
                EXPECT_EQ(outcome.result, is_basis                                       ? immediate(4321)
                                          : each.messages.count(">") && expected.empty() ? answer
                                                                                         : null_value())
                    << each.call << status;
            }
        }
    }
    host = {};
    for (const char *name : {"d", "r", "e", "s", "target"})
        EXPECT_FALSE(is_assigned(name)) << "callbacks assign outputs themselves";
}

// A callback may call the library again, and may fail; what it was handed may be kept.
TEST_F(Callbacks, MayCallAgainFailAndKeepWhatTheyGot) {
    host = {};
    for (const Leaving leaving : {Leaving::exception, Leaving::long_jump}) {
        host.leaving = leaving;
        set_unwinding(leaving == Leaving::long_jump ? Unwinding::long_jump : Unwinding::exception);
        EXPECT_EQ(run("B := Create(7, 2, 2, 3, integer[4])\n"
                      "cbReduce := proc(A, i, j, k, l, n, p, d, pp, r, s, e, piv, mode, detonly)"
                      "  if n > 3 then RowReduce(p, B, 2, 2, 0, 0, 0, 'inner', 0, 0, true); return inner end;"
                      "  RowReduce(p, A, 2, 3, 0, d, pp, r, s, e, mode); return 0 end\n"
                      "A := Create(7, 2, 3, integer)\n"
                      "RowReduce(7, A, 2, 3, 1, 0, 0, 0, 0, 0, true)"),
                  "Error: no inverse exists: modulus is composite\n");
        EXPECT_EQ(run("print(B); cbReduce := 'cbReduce'"), "[1 1]\n[0 0]\n");
        for (const char *name : {"cbRandMat", "cbMatMult", "cbMod", "cbReduce"}) {
            const Callback failing(name, [](const std::vector<Object> &) -> Object { throw HostError("out of luck"); });
            const std::string program = name == std::string("cbRandMat")   ? "Fill(7, random, Create(7, 2, 2, integer))"
                                        : name == std::string("cbMatMult") ? "Multiply(7, A, transpose, A, A)"
                                        : name == std::string("cbMod")     ? "Mod(7, [1], integer)"
                                                                           : "MatBasis(7, A, 0, false)";
            run("A := Create(7, 2, 2, integer)");
            EXPECT_EQ(call(program).message, "out of luck");
            EXPECT_EQ(lent_count(), 0u);
        }
    }
    set_unwinding(Unwinding::exception);
    EXPECT_EQ(run("cbMatMult := proc(p, m, k, n, A, B, C) assign('saved', C); Fill(p, 3, C) end\n"
                  "Multiply(7, Create(7, 0, 3, 1, integer), Create(7, 3, 0, 2, integer))\n"
                  "f := proc(a, b) Fill(7, 5, saved); a + b end\n"
                  "f(1, 2); saved; cbMatMult := 'cbMatMult'; saved := 'saved'\n"),
              "3\n3\n[5]\n");
    EXPECT_EQ(run("saved := cbRandMat; cbRandMat := 3"), "");
    EXPECT_NE(error_of("Create(7, 2, 2, random, integer)"), "");
    run("cbRandMat := saved");
}

// ---- What the host is asked for ----

// Work memory: a counter a row, for the delayed kernels only.
TEST(WorkMemory, IsForCountersOfDelayedKernels) {
    host = {};
    const std::pair<const char *, const char *> cases[] = {{"2", "integer[4]"},     {"46337", "integer[4]"},
                                                           {"46349", "integer[4]"}, {"65521", "integer[4]"},
                                                           {"65521", "float[8]"},   {"33554393", "float[8]"}};
    for (const auto &[p, datatype] : cases) {
        for (const char *order : {"C_order", "Fortran_order"}) {
            const std::string matrix = "Create(" + joined({p, "5, 6, 1", datatype, order}) + ")";
            call("RowReduce(" + joined({p, matrix, "2..4, 6, 0, 0, 0, 0, 0, 0, true)"}));
            const bool delayed = datatype[0] == 'f' || std::atoi(p) <= 46337;
            EXPECT_EQ(host.allocated, delayed ? std::vector{12u} : std::vector<uint32_t>{}) << p << datatype;
        }
    }
}

// A byte count that passes 2^32 is asked for as the largest there is: 2^24 tables of 256 bytes.
TEST(WorkMemory, IsAskedForInMoreThan32Bits) {
    host = {};
    reset();
    Roots held;
    const uint32_t count = 1 << 24;
    held.values = {new_pair(type_equation, global_name("x"), immediate(1)), new_object(count + 1, MODLA_TYPE_LIST)};
    std::fill_n(words(held.values[1]) + 1, count, held.values[0]);
    host.memory_limit = (1 << 27) - 1;
    held.values.push_back(eval("[[x]]"));
    EXPECT_EQ(call_entry("Mod", {immediate(7), held.values[2], held.values[1], eval("float[8]")}).message,
              "out of memory");
    EXPECT_EQ(host.asked_bytes, UINT32_MAX);
    host = {};
}

TEST(Keywords, AreTheHostsOwnNamesAndValuesTheirOwnObjects) {
    host = {};
    std::vector<Object> list = arguments("7, 2, 2, integer[4]");
    list.push_back(local_name("C_order"));
    EXPECT_EQ(call_entry("Create", list).message, "expected ordering for argument 5, got C_order");
    const std::vector<Object> big = arguments("10^30, 2, 3, 10^20, integer");
    const Object A = call_entry("Create", big).result;
    for (int32_t k = 0; k < 6; k++) EXPECT_EQ(static_cast<const Object *>(table_of(A).data)[k], big[3]);
    for (const char *text :
         {"Create(65535, 2, 2, 65534, integer[4])", "Create(33554431, 2, 2, 33554430, float[8])",
          "Create(2, 2, 2, 1, float[8])", "Create(65536, 2, 2, integer)", "Create(7, 2, 2, 3, integer[])"}) {
        EXPECT_EQ(call(text).message, "") << text;
    }
}

// An output that is refused, after the work: the later ones are not assigned.
TEST(Outputs, ThatAreRefusedEndTheCall) {
    for (const Leaving leaving : {Leaving::exception, Leaving::long_jump}) {
        host = {};
        host.leaving = leaving;
        unassign("r");
        set_name("A", make_table({MODLA_FLOAT8, 1}, MODLA_MATRIX, 2, 2));
        EXPECT_EQ(call("RowReduce(7, A, 2, 2, 0, 0, 0, 'integer', 'r', 0, true)").message,
                  "the name integer is protected");
        EXPECT_FALSE(is_assigned("r"));
    }
    host = {};
}

// ---- Tables without entries: nothing behind their (empty) storage may change ----

TEST(EmptyTables, AreLeftAlone) {
    host = {};
    host.dirty_tables = true;
    for (const Kind &kind : all_kinds) {
        reset();
        const auto add = [&](const char *name, int32_t subtype, int32_t rows, int32_t columns) {
            set_name(name, make_table(kind, subtype, rows, columns));
        };
        add("E00", MODLA_MATRIX, 0, 0), add("E03", MODLA_MATRIX, 0, 3), add("E30", MODLA_MATRIX, 3, 0);
        add("V0", MODLA_COLUMN_VECTOR, 0, 1), add("R0", MODLA_ROW_VECTOR, 1, 0);
        add("V3", MODLA_COLUMN_VECTOR, 3, 1), add("R3", MODLA_ROW_VECTOR, 1, 3), add("M", MODLA_MATRIX, 3, 3);
        define("P", {{1}, {2}, {3}}, {MODLA_INTEGER4, 1}, MODLA_COLUMN_VECTOR);
        const Shadow before;
        const std::vector<std::string> names = {"E00", "E03", "E30",  "V0",      "R0",       "V3",
                                                "R3",  "M",   "M, 2", "M, 2, 2", "M, -1..-1"};
        std::vector<std::string> calls;
        for (const std::string &a : names) {
            const bool empty_a = a.find('0') != std::string::npos;
            for (const char *selection : {"", ", 1", ", 1..1", ", -1", ", 1, 1", ", 1..3", ", 1..3, 1"}) {
                if (empty_a)
                    calls.insert(calls.end(),
                                 {"Fill(7, " + a + selection + ")", "Fill(7, random, " + a + selection + ")"});
            }
            if (empty_a) {
                calls.insert(
                    calls.end(),
                    {"Permute(7, P, " + a + ", true, true)", "Permute(7, P, " + a + ", false, true)",
                     "MatBasis(7, " + a + ", 0, false)", "ZigZag(7, " + a + ")", "MatGcd(7, " + a + ", 1)",
                     "RowReduce(7, " + a + ", -1, -1, 0, 0, 0, 0, 0, 0, true)", "ForSub(7, " + a + ", M, true)"});
            }
            for (const std::string &b : names) {
                const bool empty = empty_a || b.find('0') != std::string::npos;
                if (!empty) continue;
                for (const std::string turn : {"", ", transpose"}) {
                    for (const std::string entry : {"Copy", "Swap", "AddMult", "Multiply"})
                        calls.push_back(entry + "(7, " + a + turn + ", " + b + ")");
                    if (b.find('0') != std::string::npos) calls.push_back("Mod(7, " + a + turn + ", " + b + ")");
                    for (const std::string output : {"E00", "E03", "E30", "V0", "R0"}) {
                        calls.push_back("Multiply(7, " + a + turn + ", " + b + ", " + output + ")");
                        calls.push_back("AddMult(7, 2, " + a + turn + ", " + b + ", " + output + ")");
                    }
                }
            }
        }
        for (const std::string &text : calls) {
            const Outcome outcome = call(text);
            ASSERT_TRUE(before.is_what_there_is()) << text;
            ASSERT_EQ(outcome.message.find("internal"), std::string::npos) << text;
            if (!outcome.message.empty() || !outcome.result || !has_type(outcome.result, type_table)) continue;
            for (const auto &row : grid_of(outcome.result)) {
                for (const int64_t x : row) ASSERT_EQ(x, 0) << text;
            }
        }
        if (kind.datatype == MODLA_INTEGER) continue;
        EXPECT_EQ(call("Mod(7, E03, M)").message, "");
        EXPECT_EQ(grid_of("M"), Grid(3, {0, 0, 0})) << "what is beyond the input becomes 0";
    }
    host = {};
}

// ---- Blocks beyond the caches, where tables of different orders are moved in tiles ----

TEST(LargeTables, AreMovedInTiles) {
    host = {};
    host.memory_limit = 1u << 28;
    const struct {
        int32_t datatype, rows, columns, margin, triangle;
    } cases[] = {{MODLA_INTEGER4, 2048, 1024, 0, 0}, {MODLA_INTEGER4, 1100, 1100, 0, 0},
                 {MODLA_INTEGER4, 1100, 1100, 4, 1}, {MODLA_INTEGER4, 1104, 1104, 16, 2},
                 {MODLA_INTEGER4, 1104, 1104, 0, 4}, {MODLA_FLOAT8, 1024, 640, 0, 0},
                 {MODLA_FLOAT8, 768, 768, 8, 3},     {MODLA_FLOAT8, 1101, 1101, 0, 1}};
    const char *const triangles[] = {"", "upper, ", "uppernodiag, ", "lower, ", "lowernodiag, "};
    for (const auto &[datatype, rows, columns, margin, triangle] : cases) {
        reset();
        host.aligned_data = margin % 16 == 0;
        const Object A = make_table({datatype, MODLA_C_ORDER}, MODLA_MATRIX, rows, columns);
        const Object B = make_table({datatype, MODLA_FORTRAN_ORDER}, MODLA_MATRIX, rows + margin, columns);
        set_name("A", A), set_name("B", B);
        const auto tag = [](int32_t i, int32_t j) { return int64_t{i} * 4096 + j + 1; };
        const std::string target = ", B, " + std::to_string(margin + 1) + ", 1)";  // a shortcut
        for (const std::string entry : {"Copy", "Swap"}) {
            for (int32_t i = 0; i < rows + margin; i++) {
                for (int32_t j = 0; j < columns; j++) {
                    if (i < rows) put_number(A, i, j, tag(i, j));
                    put_number(B, i, j, 77);
                }
            }
            EXPECT_EQ(call(entry + "(7, " + triangles[triangle] + "A" + target).message, "");
            int wrong = 0;
            for (int32_t i = 0; i < rows + margin; i++) {
                for (int32_t j = 0; j < columns; j++) {
                    const bool moved = i >= margin && in_triangle(triangle, i - margin, j);
                    wrong += get_number(B, i, j) != (moved ? tag(i - margin, j) : 77);
                    const bool swapped = i < rows && entry == "Swap" && in_triangle(triangle, i, j);
                    wrong += i < rows && get_number(A, i, j) != (swapped ? 77 : tag(i, j));
                }
            }
            EXPECT_EQ(wrong, 0) << entry << rows << " x " << columns << " " << triangles[triangle];
        }
        if (rows != columns) continue;
        const Grid before = grid_of(A);
        EXPECT_EQ(call("Swap(7, lower, A, transpose, A)").message, "");
        int wrong = 0;
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < rows; j++)
                wrong += get_number(A, i, j) != before[static_cast<size_t>(j)][static_cast<size_t>(i)];
        }
        EXPECT_EQ(wrong, 0) << "transposed in place";
    }
    host = {};
}

TEST(LargeTables, AreReducedInTiles) {
    host = {};
    host.memory_limit = 1u << 28;
    const int32_t n = 1104, p = 65521;
    for (const int32_t from : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t to : {MODLA_INTEGER4, MODLA_FLOAT8}) {
            for (const int32_t order : orders) {
                reset();
                const Object A = make_table({from, MODLA_C_ORDER}, MODLA_MATRIX, n, n),
                             B = make_table({to, order}, MODLA_MATRIX, n, n);
                set_name("A", A), set_name("B", B);
                // Doubles that need every step: halves, and numbers on both sides of 2^50.
                const auto value = [&](int32_t i, int32_t j) {
                    const int32_t word = static_cast<int32_t>(static_cast<uint32_t>(i * n + j) * 2654435761u);
                    return from == MODLA_FLOAT8 && i == 700 ? int64_t{word} * 700001 : int64_t{word};
                };
                for (int32_t i = 0; i < n; i++) {
                    for (int32_t j = 0; j < n; j++) put_number(A, i, j, value(i, j));
                }
                const double half = 1000.5;
                if (from == MODLA_FLOAT8) std::memcpy(entry_at(A, 900, 901), &half, 8);
                EXPECT_EQ(call("Mod(65521, A, B)").message, "");
                int wrong = 0;
                for (int32_t i = 0; i < n; i++) {
                    for (int32_t j = 0; j < n; j++) {
                        const bool rounded = from == MODLA_FLOAT8 && i == 900 && j == 901;
                        wrong += get_number(B, i, j) != mod(rounded ? 1001 : value(i, j), p);
                    }
                }
                EXPECT_EQ(wrong, 0) << from << " to " << to;
            }
        }
    }
    host = {};
}

TEST(LargeTables, AreMultipliedAsByFlint) {
    host = {};
    for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        const int32_t p = datatype == MODLA_INTEGER4 ? 46337 : 33554393;
        Random random(7);
        const Grid A = unreduced(random, random_residues(random, 211, 203, p), p, int64_t{1} << 31);
        const Grid B = random_residues(random, 203, 207, p);
        define("A", A, {datatype, MODLA_C_ORDER}), define("B", B, {datatype, MODLA_FORTRAN_ORDER});
        set_collect_always(true);
        const Outcome outcome = call("Multiply(" + std::to_string(p) + ", A, B)");
        set_collect_always(false);
        Nmod C(211, 207, p);
        nmod_mat_mul(C.mat, Nmod(A, 203, p).mat, Nmod(B, 207, p).mat);
        EXPECT_EQ(grid_of(outcome.result), C.grid());
        // Multiples of p have the residue 0.
        for (int32_t s = 1; s <= 400; s++) {
            const int32_t q = 33554430 - s, r = q / s * s;
            if (r < 2) continue;
            set_name("V", define("V", {{r / s % r}}, {MODLA_FLOAT8, 1}));
            EXPECT_EQ(
                get_number(call("Multiply(" + std::to_string(r) + ", " + std::to_string(s % r) + ", V)").result, 0, 0),
                0)
                << s;
        }
    }
}

TEST(ZigZag, LeavesACompanionMatrixAsItIs) {
    for (const Kind &kind : all_kinds) {  // datatypes and orders
        const Grid A = {{0, 0, 4}, {1, 0, 0}, {0, 1, 6}};
        define("A", A, kind);
        EXPECT_EQ(call("ZigZag(7, A)").message, "");
        EXPECT_EQ(grid_of("A"), A);
    }
}

}  // namespace
