// The console: its language, numbers, printing, errors, files, memory, and the program itself.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "console/compare.h"
#include "console/number.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

std::string repeated(const std::string &text, size_t times) {
    std::string result;
    while (times-- > 0) result += text;
    return result;
}

// Programs and what they print.
using Programs = std::vector<std::pair<std::string, std::string>>;

void expect_outputs(const Programs &programs) {
    for (const auto &[program, output] : programs) EXPECT_EQ(run(program), output) << program;
}

// Programs and the messages of the errors that end them.
void expect_errors(const Programs &programs) {
    for (const auto &[program, message] : programs) EXPECT_EQ(error_of(program), message) << program;
}

// ---- Language ----

// The innermost statement counts.
TEST(Language, ErrorsCarryTheLineOfTheirStatement) {
    const std::pair<const char *, int> cases[] = {
        {"1/0", 1},
        {"1\n\n1/0", 3},
        {"1; 2\n3; 1/0; 4", 2},
        {"f := proc(x)\n\nreturn 1/x\nend\n\nf(0)", 3},
        {"\nfor i to 3 do\n1/0\nend", 3},
        {"v := [1,\n2,\n3] + 1", 1},
        {"\n[1,\n2,\n3] + 1", 2},
        {"\nsize([1,\n2],\n3)", 2},
        {"\n\n)", 3},
        {"1\n\"abc", 2},
        {"[1,\n2\n", 3},
    };
    for (const auto &[program, line] : cases) {
        int reported = 0;
        try {
            run_program(program, [](Object) {});
        } catch (const ProgramError &error) {
            reported = error.line;
        } catch (const SyntaxError &error) {
            reported = error.line;
        }
        EXPECT_EQ(reported, line) << program;
    }
}

TEST(Language, UnfinishedTextIsToldFromWrongText) {
    for (const char *text : {"1 +", "[1,", "f(", "if true then", "for i to 3 do\n1\n", "proc(x)", "v :=", "{1, (2",
                             "while true", "if true then 1 else", "not", "-", "2^", "1 and\n"}) {
        EXPECT_THROW(run_program(text, [](Object) {}), IncompleteText) << text;
    }
    for (const char *text : {"1 + )", "[1;", "if else", "1 2", "end", "\"abc"}) {
        EXPECT_EQ(message_of([&] {
                      try {
                          run_program(text, [](Object) {});
                      } catch (const IncompleteText &) {
                          ADD_FAILURE() << text << " is not unfinished";
                      }
                  }).empty(),
                  false)
            << text;
    }
}

// ---- Memory ----

const Grammar statements = read_grammar(MODLA_TESTS "/statements.txt");

// A random program, each statement's outcome by itself.
std::string run_random_program(unsigned seed) {
    Random random(seed);
    run("seed(1); n1 := 1; n2 := 2; L1 := [1, 2, 3]; L2 := [\"a\", [4], 5]; s1 := \"x\"; s2 := \"y\"; i := 0; x := 0; "
        "e := w;"
        "T1 := Create(101, 2, 2, 3, integer[4]); T2 := Create(101, 2, 3, 4, integer); P := Create(7, 3, 0, 1, "
        "integer)");
    run(random_text(random, statements, "q := &q; V1 := Create(q, 3, 0, random, integer); V2 := Copy(q, V1)", 1));
    for (int k = 1; k <= 4; k++) run("M" + std::to_string(k) + " := Create(q, 3, 3, random, integer)");
    std::string outcome;
    for (int k = 0; k < 50; k++) {
        const std::string statement = random_text(random, statements, "&S", 3);
        std::string output = run(statement);
        if (output.size() > 20000) output.resize(20000);
        outcome += statement + "\n" + output;
        run("if size(L1) > 40 then L1 := [1, 2, 3] end; if size(L2) > 40 then L2 := [4, 5, 6] end");
    }
    return outcome;
}

TEST(Memory, CollectingAtEveryAllocationChangesNothing) {
    unassign("w");
    int errors = 0, programs = 0;
    for (unsigned seed = 0; seed < (slowness > 1 ? 4 : 60); seed++, programs++) {
        const std::string expected = run_random_program(seed);
        set_collect_always(true);
        const std::string outcome = run_random_program(seed);
        set_collect_always(false);
        ASSERT_EQ(outcome, expected) << seed;
        for (size_t at = 0; (at = expected.find("Error: ", at)) != std::string::npos; at++) errors++;
    }
    EXPECT_GT(errors, programs);
    EXPECT_LT(errors, 15 * programs) << "too few statements work";
    EXPECT_EQ(lent_count(), 0u);
}

TEST(Memory, GarbageIsReturned) {
    run("v := 0");
    collect_garbage();
    const HeapStatistics before = heap_statistics();
    run("for i to 20000 do v := [i, \"text\", 10^20 + i, i/7] end; for i to 50 do v := Create(7, 100, 100, integer[4]) "
        "end;"
        "v := 0");
    collect_garbage();
    const HeapStatistics after = heap_statistics();
    EXPECT_LT(after.objects, before.objects + 200);
    EXPECT_LT(after.bytes, before.bytes + 200000) << "fifty tables of 40 KB, of which stale words may keep a few";
    EXPECT_GT(after.collections, before.collections);
}

TEST(Memory, AViewKeepsTheDataOfItsTable) {
    for (const bool always : {false, true}) {
        set_collect_always(always);
        run("A := Create(7, 4, 6, integer); for i to 4 do for j to 6 do A[i, j] := 10^20 + 10*i + j end end;"
            "keeper := []; saved := cbRandMat; W := Create(7, 1, 1, integer)");
        RtableSettings settings = table_of(eval("A")).settings;
        settings.view = 1;
        const int32_t bounds[2] = {2, 6};
        char *const second = static_cast<char *>(table_of(eval("A")).data) + 2 * 6 * 4;
        set_name("View", new_table(settings, bounds, second));
        run("A := 0");
        collect_garbage();
        EXPECT_EQ(run("print(View[1, 1], View[2, 6])"), "100000000000000000031 100000000000000000046\n");
        run("View := 0");
    }
    set_collect_always(false);
    char *const data = static_cast<char *>(table_of(eval("W")).data);
    const int32_t bounds[2] = {1000, 1000};
    int32_t foreign[1000];
    for (void *const outside :
         {static_cast<void *>(data), static_cast<void *>(foreign), static_cast<void *>(data - 4)}) {
        const auto make_view = [&] { new_table(default_settings(), bounds, outside); };
        EXPECT_EQ(message_of(make_view), "a view must lie within the storage of a table");
    }
}

TEST(Memory, WorkMemoryIsTakenBack) {
    void *const a = lend_memory(100), *const b = lend_memory(0);
    EXPECT_EQ(lent_count(), 2u);
    EXPECT_TRUE(return_memory(a));
    EXPECT_FALSE(return_memory(a));
    int local = 0;
    EXPECT_FALSE(return_memory(&local));
    lend_memory(1000);
    reclaim_memory(1);
    EXPECT_EQ(lent_count(), 1u);
    EXPECT_TRUE(return_memory(b));
    EXPECT_EQ(lent_count(), 0u);
}

// An entry point that holds work memory while an error leaves it.
Object fail_with_memory(const HostApi *api, const Object *) {
    api->Alloc(100);
    api->Alloc(200);
    api->RaiseError("no %1", immediate(7));
    return api->NullValue();
}

TEST(Memory, OfTheLibraryIsTakenBackAfterErrors) {
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        void *const outer = lend_memory(10);
        EXPECT_EQ(message_of([] { call_entry_point(fail_with_memory, {}); }), "no 7");
        EXPECT_EQ(lent_count(), 1u) << "what was lent before the call stays";
        EXPECT_TRUE(return_memory(outer));
    }
    set_unwinding(Unwinding::exception);
}

TEST(Memory, OfProgramsHasALimit) {
    const std::string doubling = "s := \"abc\"; for i to 100 do s := join(s, s) end";
    collect_garbage();
    const size_t limit = heap_statistics().bytes + (1 << 20);
    set_heap_limit(limit);
    EXPECT_EQ(error_of(doubling), "out of memory");
    EXPECT_EQ(error_of("Create(7, 1000, 1000, float[8])"), "out of memory");
    EXPECT_EQ(run("for i to 1000 do A := Create(7, 100, 100, integer[4]) end; rows(A)"), "100\n")
        << "garbage does not count";
    EXPECT_LE(heap_statistics().bytes, limit);
    set_heap_limit(0);
    EXPECT_EQ(error_of("Create(7, 1000, 1000, float[8])"), "");
}

TEST(Memory, GoesBackToACheckpoint) {
    run("before := [1, 2]; unassigned_before");
    const Checkpoint checkpoint = make_checkpoint();
    run("before := 3; unassigned_before := 4; after := proc(x) return [x, \"constant\"] end; after(1)");
    go_back(checkpoint);
    EXPECT_EQ(run("before; unassigned_before; after"), "[1, 2]\nunassigned_before\nafter\n");
    go_back(checkpoint);
    const size_t objects = heap_statistics().objects;
    for (int i = 0; i < 50; i++) {
        run("new" + std::to_string(i) + " := proc(x) return [x, \"constant\"] end");
        go_back(checkpoint);
    }
    collect_garbage();
    EXPECT_LT(heap_statistics().objects, objects + 100) << "of some 200 names and constants";
}

TEST(Language, AGuardCanEndPrograms) {
    static int steps;
    steps = 0;
    set_guard([] {
        if (++steps > 1000) throw HostError("enough");
    });
    const std::vector<std::string> endless = {"while true do end", "for i do end",
                                              "f := proc() while true do end end; f()"};
    for (const std::string &program : endless) {
        steps = 0;
        EXPECT_EQ(error_of(program), "enough") << program;
    }
    set_guard(nullptr);
    EXPECT_EQ(run("s := 0; for i to 2000 do s := s + i end; s"), "2001000\n");
}

// ---- Numbers against GMP ----

mpz_class random_integer(Random &random) {
    mpz_class value = 0;
    for (uint64_t bits = below(random, 400); bits > 0; bits--) value = 2 * value + chance(random, 50);
    if (chance(random, 30)) value = (mpz_class(1) << 30) + between(random, -2, 2);
    if (chance(random, 10)) mpz_ui_pow_ui(value.get_mpz_t(), 10, below(random, 60));
    return chance(random, 50) ? value : mpz_class(-value);
}

TEST(Numbers, IntegersAreStoredAsTheLibraryReadsThem) {
    Random random(42);
    for (int round = 0; round < 5000; round++) {
        const mpz_class value = random_integer(random);
        const Object x = integer_object(value);
        ASSERT_EQ(is_immediate(x), abs(value) < (mpz_class(1) << 30)) << value;
        ASSERT_EQ(integer_of(x), value);
        ASSERT_EQ(to_text(x), value.get_str());
        ASSERT_EQ(integer_of(eval(value.get_str())), value);
        if (is_immediate(x)) {
            ASSERT_EQ(static_cast<int32_t>(x), 2 * value.get_si() + 1);
            continue;
        }
        ASSERT_EQ(type_of(x), value < 0 ? 1u : 2u);
        mpz_class sum = 0;
        for (uint32_t i = length_of(x) - 1; i >= 1; i--) {
            ASSERT_LT(words(x)[i], 10000u);
            sum = 10000 * sum + words(x)[i];
        }
        ASSERT_EQ(sum, abs(value));
        ASSERT_NE(words(x)[length_of(x) - 1], 0u) << "a leading zero in " << value;
    }
}

TEST(Numbers, RawIntegersAreNormalized) {
    const HostApi &api = host_api();
    const struct {
        uint32_t type;
        std::vector<uint32_t> digits;
        const char *value;
    } cases[] = {{2, {0}, "0"},
                 {1, {0, 0}, "0"},
                 {2, {5, 0, 0}, "5"},
                 {1, {5}, "-5"},
                 {2, {1823, 7374, 10}, "1073741823"},
                 {2, {1824, 7374, 10, 0}, "1073741824"},
                 {1, {1823, 7374, 10}, "-1073741823"},
                 {1, {1824, 7374, 10}, "-1073741824"},
                 {2, {1, 0, 0, 0, 20, 0}, "200000000000000001"}};
    for (const auto &[type, digits, value] : cases) {
        const Object raw = api.NewObject(static_cast<uint32_t>(digits.size()) + 1, type);
        std::copy(digits.begin(), digits.end(), words(raw) + 1);
        const Object x = api.NormalizeInteger(raw);
        EXPECT_EQ(to_text(x), value);
        EXPECT_TRUE(same_value(x, eval(value))) << value;
        EXPECT_EQ(is_immediate(x), is_immediate(eval(value))) << value;
        if (!is_immediate(x)) {
            EXPECT_EQ(length_of(x), length_of(eval(value))) << value;
        }
    }
}

TEST(Numbers, FloatsKeepAllTheirBits) {
    Random random(44);
    for (int round = 0; round < 5000; round++) {
        double value = std::bit_cast<double>(random() | uint64_t{random()} << 32);
        if (chance(random, 30)) value = std::ldexp(between(random, -1000000, 1000000), between(random, -30, 30));
        if (!std::isfinite(value) || value == 0) continue;
        const std::string text = to_text(new_float(value));
        ASSERT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
        ASSERT_NE(text.find_first_of(".e"), std::string::npos) << text << " looks like an integer";
        ASSERT_EQ(std::bit_cast<uint64_t>(float_value(eval(text))), std::bit_cast<uint64_t>(value)) << text;
        const double other = std::ldexp(between(random, 1, 1000), between(random, -3, 3));
        const std::string b = to_text(new_float(other));
        ASSERT_EQ(float_value(eval("(" + text + ") + " + b)), value + other);
        ASSERT_EQ(float_value(eval("(" + text + ") * " + b)), value * other);
        ASSERT_EQ(float_value(eval("(" + text + ") / " + b)), value / other);
        ASSERT_EQ(run("(" + text + ") < " + b), value < other ? "true\n" : "false\n");
    }
    expect_outputs(
        {{"1/0.0; -1/0.0; 0/0.0; 1e400", "infinity\n-infinity\nnan\ninfinity\n"}, {"0.0; 1e-400", "0.0\n0.0\n"}});
}

TEST(Numbers, FloatsAreTheNearestOnes) {
    Random random(44);
    for (int round = 0; round < 5000; round++) {
        mpq_class value(random_integer(random), 1 + abs(random_integer(random)));
        if (chance(random, 30)) value.get_den() = 1;
        if (chance(random, 20)) value /= mpq_class(mpz_class(1) << 1050);  // subnormal
        if (chance(random, 20)) value = (mpq_class(mpz_class(1) << 53) + between(random, 0, 8)) / 2 + mpq_class(1, 4);
        value.canonicalize();
        const double x = to_double(rational_object(value));
        const mpq_class error = abs(mpq_class(x) - value);
        for (const double other : {std::nextafter(x, -INFINITY), std::nextafter(x, INFINITY)}) {
            const mpq_class its_error = abs(mpq_class(other) - value);
            ASSERT_LE(error, its_error) << value;
            if (error == its_error) {
                ASSERT_EQ(std::bit_cast<uint64_t>(x) % 2, 0u) << value;
            }
        }
    }
    EXPECT_EQ(to_double(eval("10^400")), INFINITY);
    EXPECT_EQ(to_double(eval("-10^400/3")), -INFINITY);
    EXPECT_EQ(to_double(eval("1/10^400")), 0);
}

// ---- Files ----

class Files : public testing::Test {
  protected:
    Files() {
        std::string pattern = (std::filesystem::temp_directory_path() / "modla_test_XXXXXX").string();
        directory_ = mkdtemp(pattern.data());
    }
    ~Files() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string &name) const { return directory_ + "/" + name; }
    void write(const std::string &name, const std::string &text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    std::string directory_;
};

TEST_F(Files, MatricesComeBackAsTheyWereWritten) {
    Random random(51);
    for (int round = 0; round < 300; round++) {
        const int32_t datatypes[] = {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8};
        const char *const keywords[] = {"integer", "integer[4]", "float[8]"};
        const size_t kind = below(random, 3);
        const mpz_class p =
            kind == 0 ? mpz_class("1000000000000000000000000000057") : mpz_class(kind == 1 ? 65521 : 33554393);
        const int32_t rows = between(random, 1, 7), columns = between(random, 1, 7);
        const Object A = make_table({datatypes[kind], between(random, 0, 1)}, MODLA_MATRIX, rows, columns);
        const unsigned density = static_cast<unsigned>(between(random, 0, 100));
        for (int32_t i = 1; i <= rows; i++) {
            for (int32_t j = 1; j <= columns; j++) {
                if (!chance(random, density)) continue;
                mpz_class entry = abs(random_integer(random));
                entry %= p;
                set_entry(table_of(A), i, j, integer_object(entry));
            }
        }
        set_name("A", A);
        const std::string file =
            path(std::string(chance(random, 50) ? "a.sms" : "a.mtx") + (chance(random, 25) ? ".gz" : ""));
        ASSERT_EQ(run("WriteMatrix(\"" + file + "\", A)"), "");
        for (const char *order : {"", ", Fortran_order", ", C_order"}) {
            ASSERT_EQ(run("B := ReadMatrix(" + p.get_str() + ", \"" + file + "\", " + keywords[kind] + order +
                          "); equal(A, B); rows(B); columns(B)"),
                      "true\n" + std::to_string(rows) + "\n" + std::to_string(columns) + "\n");
        }
        ASSERT_EQ(run("B"), run("ReadMatrix(" + p.get_str() + ", \"" + file + "\", " + keywords[kind] + ")"));
    }
}

TEST_F(Files, EntriesAreKeptWithoutAModulus) {
    write("a.sms", "2 2 M\n1 1 -100000000000000000000\n2 1 9007199254740993\n0 0 0\n");
    write("b.sms", "1 2 M\n1 2 60000\n0 0 0\n");
    const std::string a = "ReadMatrix(\"" + path("a.sms") + "\"", b = "ReadMatrix(\"" + path("b.sms") + "\"";
    const std::string rows = "[-100000000000000000000 0]\n[      9007199254740993 0]\n";
    expect_outputs({{a + ")", rows}, {a + ", integer, Fortran_order)", rows}});
    expect_outputs({{b + ", integer[4])", "[0 60000]\n"}, {b + ", float[8])", "[0.0 60000.0]\n"}});
    expect_errors(
        {{a + ", integer[4])",
          "-100000000000000000000 is no residue, as the entries of a 2 x 2 Matrix, integer[4], C_order must be: "
          "give a modulus as argument 1, or give no datatype and let Mod reduce the Matrix"},
         {a + ", 3)", "expected a datatype, integer, integer[4] or float[8], got 3"},
         {"ReadMatrix(7, \"" + path("a.sms") + "\")", "usage: ReadMatrix(p, \"file\", datatype [, order])"}});
    write("r.sms", "2 2 R\n1 1 -1/2\n1 1 3\n1 2 4\n2 2 +6/4\n2 2 -3/2\n2 1 -5\n0 0 0\n");
    const std::string r = path("r.sms") + "\"";
    expect_outputs({{"ReadMatrix(\"" + r + ")", "[5/2 4]\n[ -5 0]\n"},
                    {"ReadMatrix(7, \"" + r + ", float[8])", "[6.0 4.0]\n[2.0 0.0]\n"}});
    expect_errors({{"ReadMatrix(6, \"" + r + ", integer)", "-1/2 at row 1, column 1 has no value mod 6"}});
    // An entry that cannot be written leaves the file alone.
    for (const std::string entries : {"[[1, 2], [3, unset]], integer", "[[1, 2], [3, 1/2]]", "[[1, 2], [3, 2/3]]"}) {
        EXPECT_NE(error_of("WriteMatrix(\"" + path("b.sms") + "\", matrix(" + entries + "))"), "");
        EXPECT_EQ(run(b + ")"), "[0 60000]\n");
    }
}

// Against the program gzip.
TEST_F(Files, PackedByGzip) {
    const auto read = [&](const std::string &name) { return "ReadMatrix(\"" + path(name) + "\")[1, 2]"; };
    const auto shell = [](const std::string &command) { return system(command.c_str()); };  // NOLINT(cert-env33-c)
    const auto write = [&](const std::string &name) { return "WriteMatrix(\"" + path(name) + "\", B)\n"; };
    ASSERT_EQ(run("B := matrix([[1, -2^70]])\n" + write("b.sms") + write("b.sms.gz")), "");
    EXPECT_EQ(shell("cd " + directory_ +
                    " && gzip -t b.sms.gz && gzip -dc b.sms.gz | cmp - b.sms && gzip -c b.sms b.sms >"
                    "twice.sms.gz && head -c 30 b.sms.gz >short.sms.gz && (head -c -8 b.sms.gz && printf 12345678) "
                    ">bad.sms.gz && "
                    "gzip b.sms -S .new.gz"),
              0);
    EXPECT_EQ(run(read("b.sms.new.gz")), "-1180591620717411303424\n");
    expect_errors({{read("short.sms.gz"), path("short.sms.gz") + " is cut short"},
                   {read("bad.sms.gz"), path("bad.sms.gz") + " is damaged"},
                   {read("twice.sms.gz"), path("twice.sms.gz") + ":5: text after the closing line 0 0 0"}});
}

TEST_F(Files, Errors) {
    write("bad.mtx", "%%MatrixMarket matrix coordinate integer general\n2 2 1\n3 1 1\n");
    write("lists", "1 2 3\n# comment\n\n-5 10000000000000000000000 # end\n");
    write("bad_lists", "1 2\n3 x\n");
    expect_outputs({{"ReadLists(\"" + path("lists") + "\")", "[[1, 2, 3], [-5, 10000000000000000000000]]\n"}});
    expect_errors({
        {"ReadLists(\"" + path("bad_lists") + "\")", path("bad_lists") + ":2: 'x' is no integer"},
        {"ReadMatrix(7, \"" + path("bad.mtx") + "\", integer)", path("bad.mtx") + ":3: row index is not in 1..2"},
        {"ReadMatrix(7, \"" + path("none") + "\", integer)", "cannot open " + path("none")},
        {"ReadLists(\"" + path("none") + "\")", "cannot open " + path("none")},
        {"WriteMatrix(\"" + path("no/where.sms") + "\", Create(7, 1, 1, integer))",
         "cannot write " + path("no/where.sms")},
        {"WriteMatrix(\"A.txt\", Create(7, 1, 1, integer))", "A.txt must end in .mtx or .sms"},
        {"ReadMatrix(7.0, \"" + path("bad.mtx") + "\", integer)", "argument 1, the modulus, must be an integer"},
        {"A := raw(Create(7, 1, 1, float[8]), [0.5]); WriteMatrix(\"" + path("a.mtx") + "\", A)", "0.5 is no integer"},
        {"WriteMatrix(3, A)", "argument 1, the file, must be a string, not 3"},
        {"WriteMatrix(\"" + path("a.mtx") + "\", 3)", "expected a Matrix or Vector, got 3"},
    });
    EXPECT_NE(error_of("ReadLists(\"" + directory_ + "\")"), "") << "a directory";
    EXPECT_NE(error_of("ReadMatrix(7, \"" + directory_ + "\", integer)"), "") << "a directory";
}

// ---- The program ----

struct Result {
    int status = -1;  // of the exit; -2: ended by a signal
    std::string output, errors;
};

std::string contents_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class Program : public Files {
  protected:
    Program() { write("stdin.mtx", "%%MatrixMarket matrix array integer general\n1 1\n1\n"); }

    // Runs the console with a text as its standard input.
    Result console(const std::vector<std::string> &arguments, const std::string &input = "") {
        write("stdin", input);
        const pid_t child = fork();
        if (child == 0) {
            limit_time();
            const int wrong = chdir(directory_.c_str());
            const int in = open("stdin", O_RDONLY);
            const int out = open("stdout", O_WRONLY | O_CREAT | O_TRUNC, 0600);
            const int errors = open("stderr", O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (wrong || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(errors, 2) < 0) _exit(127);
            execute(arguments);
        }
        return {status_of(child), contents_of(path("stdout")), contents_of(path("stderr"))};
    }

    static void limit_time() {
        const rlimit seconds = {20, 20};
        setrlimit(RLIMIT_CPU, &seconds);
        alarm(200);
    }

    [[noreturn]] static void execute(const std::vector<std::string> &arguments) {
        std::vector<char *> argv = {const_cast<char *>(MODLA_CONSOLE)};
        for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }

    static int status_of(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
    }

    void expect(const Result &result, int status, const std::string &output, const std::string &errors) {
        EXPECT_EQ(result.status, status) << result.errors;
        EXPECT_EQ(result.output, output);
        EXPECT_EQ(result.errors, errors);
    }
};

TEST_F(Program, RunsAScript) {
    write("ok.modla",
          "# a script\nA := Create(7, 2, 2, 3, integer[4])\nA\nRowReduce(7, A, 2, 2, 0, 0, 0, 'r', 0, 0, true)\nr\n");
    expect(console({"ok.modla"}), 0, "[3 3]\n[3 3]\n1\n", "");
    write("bad.modla", "1\n\nv := 1/0\n2\n");
    expect(console({"bad.modla"}), 1, "1\n", "bad.modla:3: Error: division by zero\n");
    write("wrong.modla", "1\nif true then\n");
    expect(console({"wrong.modla"}), 1, "1\n", "wrong.modla:3: Error: expected an expression before the end\n");
    write("empty.modla", "");
    expect(console({"empty.modla"}), 0, "", "");
}

TEST_F(Program, RunsATextAndStandardInput) {
    expect(console({"-e", "1 + 1; \"a\""}), 0, "2\n\"a\"\n", "");
    expect(console({"-e", "print(1); 1/0; 3"}), 1, "1\n", "Error: division by zero\n");
    expect(console({"-e", "print()"}), 0, "\n", "");
    expect(console({"-e", ""}), 0, "", "");
    expect(console({"-e", "v := 2", "-e", "v + 1", "-e", "1/0", "-e", "5"}), 1, "3\n", "Error: division by zero\n");
    expect(console({}, "v := 6\nv * 7"), 0, "42\n", "");
    expect(console({"-"}, "1\n\n2/0\n"), 1, "1\n", "stdin:3: Error: division by zero\n");
    expect(console({}, "\nf := proc(x)\n1/x\nend; f(0)\n"), 1, "",
           "stdin:3: Error: division by zero\n  in line 2 of f\n  called in line 4\n");
    expect(console({}, ""), 0, "", "");
}

TEST_F(Program, RunsTextsBeforeAScriptWithArguments) {
    write("script.modla", "x; arguments; arguments := 1\n");
    expect(console({"-e", "x := 5", "script.modla", "-e", "two words"}), 1, "5\n[\"-e\", \"two words\"]\n",
           "script.modla:1: Error: the name arguments is protected\n");
    expect(console({"-e", "size(arguments)"}), 0, "0\n", "");
}

// Another program that sends a statement and waits for its output.
TEST_F(Program, RunsStatementsOfAPipeAsTheyCome) {
    int to[2], from[2];
    ASSERT_EQ(pipe(to) + pipe(from), 0);
    const pid_t child = fork();
    if (child == 0) {
        limit_time();
        dup2(to[0], 0), dup2(from[1], 1);
        close(to[1]), close(from[0]);
        execute({});
    }
    close(to[0]), close(from[1]);
    const auto ask = [&](const std::string &text) {
        EXPECT_EQ(::write(to[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        pollfd readable = {from[0], POLLIN, 0};
        char buffer[100];
        const ssize_t count = poll(&readable, 1, 20000) > 0 ? read(from[0], buffer, sizeof buffer) : 0;
        return std::string(buffer, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    };
    EXPECT_EQ(ask("1 + 1\n"), "2\n");
    EXPECT_EQ(ask("f := proc(x)\n\n2*x end\nf(21)\n"), "42\n");
    close(to[1]);
    EXPECT_EQ(status_of(child), 0);
    close(from[0]);
}

TEST_F(Program, ComplainsAboutItsArguments) {
    for (const auto &[arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"nowhere.modla"}, "modla: cannot read nowhere.modla"},
             {{"."}, "modla: cannot read ."},
             {{"--unknown"}, "modla: unknown option --unknown"},
             {{"-x", "file"}, "modla: unknown option -x"},
             {{"-e"}, "modla: -e needs a value"},
             {{"stdin.mtx"}, "modla: stdin.mtx is no script. If it is a Matrix"},
             {{"--library", "nowhere.so", "-e", "1"}, "modla: nowhere.so"},
             {{"--library", "stdin", "-e", "1"}, "modla: stdin"}}) {
        const Result result = console(arguments);
        EXPECT_EQ(result.status, 2) << arguments[0];
        EXPECT_EQ(result.output, "") << arguments[0];
        EXPECT_EQ(result.errors.substr(0, message.size()), message);
    }
}

TEST_F(Program, DescribesItself) {
    const Result help = console({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.errors, "");
    for (const char *word : {"usage: modla", "-e TEXT", "--library", "ReadMatrix", "print(", "WriteMatrix"}) {
        EXPECT_NE(help.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(console({"--version"}).output.substr(0, 6), "modla ");
    EXPECT_NE(help.output.find(console({"-e", "help()"}).output), std::string::npos);
    EXPECT_TRUE(console({"-e", "help(ForSub)"}).output.ends_with("    \"unknown error\"\n"));  // the header's list
}

TEST_F(Program, TellsWhenItsOutputIsLost) {
    for (const char *arguments : {"-e 1", "-e 'print(1)'", "--help", "--version"}) {
        const std::string command = std::string(MODLA_CONSOLE) + " " + arguments + " > /dev/full 2> " + path("errors");
        EXPECT_NE(std::system(command.c_str()), 0) << arguments;
        EXPECT_EQ(contents_of(path("errors")), "modla: cannot write standard output\n") << arguments;
    }
}

TEST_F(Program, LoadsTheNamedLibrary) {
    expect(console({"--library", MODLA_LIBRARY, "-e", "Create(7, 1, 2, 3, integer)"}), 0, "[3 3]\n", "");
}

TEST_F(Program, ReadsAndWritesMatricesByStandardStreams) {
    const std::string file = "%%MatrixMarket matrix array integer general\n1 2\n1\n5\n";
    write("convert.modla", "WriteMatrix(\"-\", ReadMatrix(7, \"-\", float[8]))\n");
    expect(console({"convert.modla"}, "1 2 M\n1 1 1\n1 2 -2\n0 0 0\n"), 0, file, "");
}

// Writing takes no longer than reading twice.  The best of several turns counts: the machine does other things beside.
TEST_F(Files, AreWrittenFast) {
    for (const char *datatype : {"integer[4]", "float[8]", "integer"}) {
        const std::string file = "\"" + path("a.mtx") + "\"";
        EXPECT_EQ(run("A := Create(65521, 400, 400, random, " + std::string(datatype) +
                      "); w := 100; r := 100; for i to 5 do t := time(WriteMatrix(" + file +
                      ", A)); if t < w then w := t end; t := time(ReadMatrix(65521, " + file + ", " + datatype +
                      ")); if t < r then r := t end end; if w < 2*r then true else [w, r] end"),
                  "true\n")
            << datatype;
    }
}

TEST_F(Program, FindsFilesBesideTheScript) {
    std::filesystem::create_directory(path("scripts"));
    write("scripts/data", "1 2\n");
    write("scripts/run.modla", "ReadLists(\"data\")\n");
    expect(console({"scripts/run.modla"}), 0, "[[1, 2]]\n", "");
}

// Programs that ask for too much: whatever happens, it is no crash, and a failure has a message.
TEST_F(Program, SurvivesEverything) {
    std::vector<std::string> programs = {std::string("bytes: 1 \0 2 \xc3\xa9 \xff", 17)};
    std::ifstream file(MODLA_TESTS "/too_much.txt");
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        for (size_t at; (at = line.find("<<")) != std::string::npos;) {
            const size_t bar = line.find('|', at), end = line.find(">>", at);
            line.replace(at, end + 2 - at,
                         repeated(line.substr(bar + 1, end - bar - 1), std::stoul(line.substr(at + 2))));
        }
        programs.push_back(line);
    }
    EXPECT_GT(programs.size(), 50u);
    for (const std::string &each : programs) {
        const std::string name = each.substr(0, each.find(": "));
        const Result result = console({}, each.substr(name.size() + 2));
        EXPECT_TRUE(result.status == 0 || result.status == 1) << name << ": status " << result.status;
        EXPECT_EQ(result.errors.empty(), result.status == 0) << name;
        if (result.status == 1) {
            EXPECT_NE(result.errors.find("Error: "), std::string::npos) << name << result.errors;
        }
    }
}

// ---- The prompt ----

class Prompt : public Program {
  protected:
    Prompt() {
        child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            setenv("TERM", "dumb", 1);
            setenv("INPUTRC", "/dev/null", 1);
            setenv("MODLA_HISTORY", path("history").c_str(), 1);
            if (chdir(directory_.c_str())) _exit(127);
            limit_time();
            execute({});
        }
    }
    ~Prompt() override {
        close(terminal_);
        if (child_ > 0) kill(child_, SIGKILL), waitpid(child_, nullptr, 0);
    }

    // Reads up to a text, or to the end of the session.
    std::string read_until(const std::string &wanted) {
        std::string text;
        while (text.find(wanted) == std::string::npos) {
            pollfd readable = {terminal_, POLLIN, 0};
            char buffer[4096];
            if (poll(&readable, 1, 20000) <= 0) break;
            const ssize_t count = read(terminal_, buffer, sizeof buffer);
            if (count <= 0) break;
            for (const char c : std::string(buffer, static_cast<size_t>(count))) {
                if (c != '\r') text += c;
            }
        }
        return text;
    }

    // What is shown between a line and the prompt that follows it.
    std::string enter(const std::string &line, const std::string &prompt = "\n> ") {
        send(line + "\n");
        std::string text = read_until(prompt);
        const size_t echo = text.find(line);
        if (echo != std::string::npos) text.erase(0, echo + line.size());
        if (text.size() >= prompt.size()) text.resize(text.size() - prompt.size() + 1);
        return text.substr(text.find_first_not_of('\n') == std::string::npos ? 0 : text.find_first_not_of('\n'));
    }

    void send(const std::string &text) {
        EXPECT_EQ(::write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    int finish() {
        send("\x04");
        read_until("never shown");
        const int status = status_of(child_);
        child_ = 0;
        return status;
    }

    int terminal_ = -1;
    pid_t child_ = 0;
};

TEST_F(Prompt, GoesOnAfterErrors) {
    EXPECT_NE(read_until("\n> ").find("modLA console"), std::string::npos);
    EXPECT_EQ(enter("1 + 1"), "2\n");
    EXPECT_EQ(enter("v := 1/0"), "Error: division by zero\n");
    EXPECT_EQ(enter(")"), "Error: expected an expression, got ')'\n");
    EXPECT_EQ(enter("\"abc"), "Error: a string is not closed\n");
    EXPECT_EQ(enter("ForSub(7)"), "Error: incorrect number of arguments\n  usage: ForSub(p, L, B, unit)\n");
    EXPECT_EQ(enter("?rows").substr(0, 29), "rows(A)\n\nThe number of rows.\n");
    EXPECT_EQ(enter("w := 5; w"), "5\n");
    EXPECT_EQ(finish(), 0);
}

TEST_F(Prompt, ReadsStatementsOfSeveralLines) {
    read_until("\n> ");
    enter("f := proc(x)", "\n... ");
    enter("return x * 2", "\n... ");
    EXPECT_EQ(enter("end"), "\n");
    EXPECT_EQ(enter("f(21)"), "42\n");
    enter("[1,", "\n... ");
    EXPECT_EQ(enter("2]"), "[1, 2]\n");
    enter("if true then", "\n... ");
    EXPECT_EQ(enter(""), "Error: expected an expression before the end\n") << "an empty line gives it up";
    EXPECT_EQ(enter("3"), "3\n");
    EXPECT_EQ(finish(), 0);
}

TEST_F(Prompt, CompletesAndRemembers) {
    write("history", "#1\nf := proc(x)\n    2*x\nend\n#2\nw := 20\n");
    write("some_script.modla", "v := 6\n1/0\n");
    read_until("\n> ");
    enter("\x1b[A\x1b[A");  // two entries up, of three lines
    EXPECT_EQ(enter("f(3)"), "6\n");
    EXPECT_NE(enter("print(RowRed\t)").find("RowReduce)\n<procedure>\n"), std::string::npos);
    EXPECT_NE(enter("some_long_name := 5; run(\"some_sc\t)").find("Error: some_script.modla:2: division by zero\n"),
              std::string::npos);
    EXPECT_NE(enter("some_l\t + v").find("\n11\n"), std::string::npos);
    EXPECT_NE(enter("timer(true); 5").find(" s)\n"), std::string::npos);
    EXPECT_EQ(enter("timer(false); variables()"), "f            <procedure>\nsome_long_name 5\nv            6\n");
    send("quit()\n");
    EXPECT_EQ(status_of(child_), 0);
    child_ = 0;
    EXPECT_NE(contents_of(path("history")).find("quit"), 0u);
    EXPECT_NE(contents_of(path("history")).find("\nf(3)\n"), std::string::npos);
}

TEST_F(Prompt, IsInterrupted) {
    read_until("\n> ");
    enter("v := [1,", "\n... ");
    send("half a li");
    read_until("half a li");
    send("\x03");
    read_until("> ");
    EXPECT_EQ(enter("v"), "v\n") << "both lines were given up";
    for (const char *program :
         {"while true do end", "for i do L := sort([i, 3, 2]) end", "f := proc() while true do f end end; f()"}) {
        send("w := 7; print(\"runs\"); " + std::string(program) + "\n");
        read_until("\nruns");
        send("\x03");
        EXPECT_NE(read_until("\n> ").find("Error: interrupted\n"), std::string::npos) << program;
        EXPECT_EQ(enter("w; w := 0"), "7\n");
    }
    EXPECT_EQ(finish(), 0);
}

// One interrupt waits for the library, two leave it: at once, or when the host's callback has returned.
TEST_F(Prompt, InterruptsCallsOfTheLibrary) {
    const auto start = [&](const std::string &matrix, const std::string &p) {
        enter("A := Create(" + p + ", " + matrix + ")");
        send("print(\"runs\"); ZigZag(" + p + ", A); x := 5; print(\"not reached\")\n");
        read_until("\nruns");
        usleep(20000);
        send("\x03");
        EXPECT_NE(read_until("abandons it\n").find("ZigZag is running: the interrupt takes effect when it returns"),
                  std::string::npos);
    };
    read_until("\n> ");
    start("800, 800, random, integer[4]", "65521");
    EXPECT_NE(read_until("\n> ").find("Error: interrupted\n"), std::string::npos);
    EXPECT_EQ(enter("x; rows(A)"), "x\n800\n");
    for (const auto &[matrix, p] :
         {std::pair("2500, 2500, random, float[8]", "65521"), {"160, 160, random, integer", "2^127 - 1"}}) {
        start(matrix, p);
        send("\x03");
        EXPECT_NE(read_until("\n> ").find("ZigZag was abandoned, and the entries of A are unreliable now\n"),
                  std::string::npos);
        EXPECT_EQ(enter("rows(A) > 5; Mod(7, [1/3], float[8])"), "true\n[5.0]\n");
    }
    EXPECT_EQ(finish(), 0);
}

// Every abandoned call is as the first one, and the process does not grow.
TEST_F(Prompt, AbandonsCallsWithoutATrace) {
    const auto abandon = [&] {
        send("print(\"runs\"); Multiply(65521, A, A)\n");
        read_until("\nruns");
        usleep(20000);
        send("\x03");
        read_until("abandons it\n");
        send("\x03");
        EXPECT_NE(read_until("\n> ").find("Multiply was abandoned\n"), std::string::npos);
    };
    const auto megabytes = [&] {
        size_t pages = 0;
        std::ifstream("/proc/" + std::to_string(child_) + "/statm") >> pages;
        return pages >> 8;
    };
    read_until("\n> ");
    enter("A := Create(65521, 2500, 2500, random, float[8]); B := Create(65521, 100, 100, random, float[8])");
    enter("C := Multiply(65521, B, B)");
    for (int i = 0; i < 5; i++) abandon();
    const size_t before = megabytes();
    for (int i = 0; i < 20; i++) abandon();
#if !defined(MODLA_SANITIZED)  // the sanitizer's heap is not the console's
    EXPECT_LT(megabytes(), before + 100) << "before: " << before;
#endif
    EXPECT_EQ(enter("equal(C, Multiply(65521, B, B))"), "true\n");
    EXPECT_EQ(finish(), 0);
}

}  // namespace
