// Create, Fill and RowReduce as programs call them: values, messages, and what a failing call leaves alone.
#include <flint/flint.h>
#include <flint/nmod_mat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "tests/fault_pairs.h"

using namespace modla::console;
using modla_test::argument_array, modla_test::Callback, modla_test::datatypes, modla_test::entry_point,
    modla_test::joined;
using modla_test::below, modla_test::chance, modla_test::pick, modla_test::Random;
using modla_test::error_of, modla_test::eval, modla_test::is_assigned, modla_test::make_table;
using modla_test::message_of, modla_test::raised_messages, modla_test::recording_host, modla_test::run;
using modla_test::no_integers, modla_test::orders, modla_test::Subject;
using modla_test::set_name, modla_test::storage_of, modla_test::unassign;

namespace {

int32_t between(Random &random, int32_t low, int32_t high) {
    return low + static_cast<int32_t>(below(random, static_cast<uint64_t>(high - low + 1)));
}

const char *keyword_of(int32_t datatype) {
    return datatype == MODLA_INTEGER ? "integer" : datatype == MODLA_INTEGER4 ? "integer[4]" : "float[8]";
}
const char *order_keyword(int32_t order) {
    return order == MODLA_C_ORDER ? "C_order" : "Fortran_order";
}

// What a table holds, row by row.
std::vector<std::string> entries_of(Object x) {
    std::vector<std::string> entries;
    const Table &table = table_of(x);
    for (int32_t i = 1; i <= table_rows(table); i++) {
        for (int32_t j = 1; j <= table_columns(table); j++) entries.push_back(to_text(get_entry(table, i, j)));
    }
    return entries;
}

// An entry's text in a datatype.
std::string entry_text(int32_t datatype, int64_t value) {
    return std::to_string(value) + (datatype == MODLA_FLOAT8 ? ".0" : "");
}

void set_integer(const Table &table, int32_t i, int32_t j, int64_t value) {
    set_entry(table, i, j, integer_object(value));
}
int64_t get_integer(const Table &table, int32_t i, int32_t j) {
    return integer_of(get_entry_integer(table, i, j)).get_si();
}

// ---- Errors: every check, in its order, with nothing written ----

const std::string fill_message = "fill value must be an integral numeric value in the range 0..modulus-1";
const std::string datatype_message = "expected datatype ('integer[4]', 'float[8]', or 'integer'), for argument ";
const std::vector<std::string> no_datatypes = {"float", "float[4]", "integer[8]", "foo", "C_order", "x[4]"};

std::vector<std::string> bad_fills(int32_t datatype) {
    std::vector<std::string> fills = {"7", "-1", "10^20", "-10^20"};
    if (datatype == MODLA_INTEGER)
        fills.insert(fills.end(), {"2.0", "1/2", "6.4"});
    else
        fills.insert(fills.end(), {"6.5", "-0.51", "13/2", "0/0.0", "1/0.0", "-1/0.0"});
    return fills;
}

// Fill value given, identity, random, or nothing between the sizes and the datatype.
std::vector<Subject> create_subjects() {
    std::vector<Subject> subjects;
    for (const int32_t datatype : datatypes) {
        for (const std::string content : {"3", "identity", "random", ""}) {
            const size_t next = content.empty() ? 4 : 5;
            const auto number = [](size_t n) { return std::to_string(n); };
            Subject s{"Create", {"7", "2", "2"}};
            if (!content.empty()) s.arguments.push_back(content);
            s.arguments.insert(s.arguments.end(), {keyword_of(datatype), "Fortran_order"});
            for (const size_t keep : {0u, 1u, 2u}) s.only(keep, "too few arguments");
            s.at(1, no_integers, "argument 1, the modulus, must be an integer");
            s.at(2, no_integers, "argument 2, the number of rows, must be an integer");
            s.at(3, no_integers, "argument 3, the number of columns, must be an integer");
            s.at(2, {"-1", "-2^30+1"}, "number of rows must be nonnegative");
            s.at(3, {"-1", "-2^30+1"}, "number of columns must be nonnegative");
            s.with({{2, "0"}, {3, "0"}},
                   "at least one of 'rows' or 'columns' (second and third arguments) must be nonzero");
            s.only(3, "too few arguments, expected output object or fill value for argument 4");
            s.at(4, {"\"3\"", "[3]", "1..2", "{}", "Target"}, fill_message);
            if (next == 5) s.only(4, "too few arguments, expected output object for argument 5");
            s.at(next, no_datatypes, datatype_message + number(next) + ", got %a");
            if (next == 5) s.at(next, {"3", "[4]", "2.5"}, datatype_message + number(next) + ", got %a");
            s.at(next + 1, {"integer", "row_major", "3", "[1]", "C_order[1]"},
                 "expected ordering for argument " + number(next + 1) + ", got %a");
            s.and_also("C_order", "too many arguments, starting at argument " + number(next + 2) + ", C_order");
            if (content == "identity") {
                const std::string message = "when requesting identity, input must be specified as a square Matrix";
                s.at(2, {"3", "5"}, message).at(3, {"1", "4"}, message);
            }
            s.modulus(datatype);
            if (content == "3") s.at(4, bad_fills(datatype), fill_message);
            subjects.push_back(s);
        }
    }
    return subjects;
}

std::vector<Subject> fill_subjects() {
    std::vector<Subject> subjects;
    for (const int32_t datatype : datatypes) {
        for (const std::string content : {"3", "random", ""}) {
            const size_t next = content.empty() ? 2 : 3;
            const std::string argument = "argument " + std::to_string(next);
            Subject s{"Fill", {"7"}};
            if (!content.empty()) s.arguments.push_back(content);
            s.arguments.insert(s.arguments.end(), {"Target" + std::to_string(datatype), "2..3", "-2..-1"});
            for (const size_t keep : {0u, 1u}) s.only(keep, "too few arguments");
            s.at(1, no_integers, "argument 1, the modulus, must be an integer");
            s.at(2, {"\"3\"", "[3]", "1..2", "{}", "x[1]"}, fill_message);
            if (next == 3) s.only(2, "too few arguments, expected output object for argument 3");
            if (next == 3)
                s.at(next, {"5", "\"Target\"", "[Target]", "10^20"}, argument + " must be a modp Matrix or Vector");
            s.at(next, {"foo", "identity"}, argument + " must be a modp Matrix or Vector");
            s.at(next, {"OddDatatype", "AllOdd"}, argument + " has invalid datatype");
            s.at(next, {"OddStorage", "OddStorageAndSubtype"}, argument + " has invalid storage");
            s.at(next, {"OddSubtype"}, argument + " must be a Matrix or Vector");
            s.at(next + 1, {"0", "4", "-4", "0..2", "1..4", "-4..2", "4..1", "10^20", "-10^20..2", "1..2.0", "'x'..2"},
                 "Matrix index out of range");
            s.at(next + 1, {"3..2", "-1..-2", "2..1"}, "row range cannot be empty");
            s.at(next + 2, {"0", "5", "-5", "2..5", "0..0", "10^20"}, "Matrix index out of range");
            s.at(next + 2, {"3..2", "-1..1"}, "column range cannot be empty");
            const std::string surplus = "too many arguments, starting at argument ";
            s.at(next + 2, {"transpose", "foo", "[1]", "1.0"}, surplus + std::to_string(next + 2) + ", %a");
            s.and_also("3", surplus + std::to_string(next + 3) + ", 3");
            s.modulus(datatype);
            if (content == "3") s.at(2, bad_fills(datatype), fill_message);
            subjects.push_back(s);
        }
    }
    return subjects;
}

const std::vector<std::string> output_names = {"out_det", "out_pivprod", "out_rank", "out_pivsig", "out_extra"};

std::vector<Subject> row_reduce_subjects() {
    std::vector<Subject> subjects;
    for (const int32_t datatype : datatypes) {
        Subject s{"RowReduce", {"7", "Target" + std::to_string(datatype), "3", "1..-1", "0"}};
        for (const std::string &name : output_names) s.arguments.push_back("'" + name + "'");
        s.arguments.push_back("true");
        s.counted();
        s.at(1, no_integers, "argument 1, the modulus, must be an integer");
        s.at(2, {"5", "foo", "\"Target\"", "[Target]", "10^20"}, "argument 2, the matrix, must be an rtable");
        s.at(2, {"OddDatatype", "AllOdd"}, "argument 2 has invalid datatype");
        s.at(2, {"OddStorage", "OddStorageAndSubtype"}, "argument 2 has invalid storage");
        s.at(2, {"OddSubtype", "RowVector", "ColumnVector"}, "argument 2 must be a Matrix");
        s.at(3, {"0", "4", "-4", "0..2", "1..4", "-4..2", "3..2", "-1..-2", "2..0"}, "row range is out of bounds");
        s.at(3, {"1..2.0", "'x'..2", "1..10^20", "-10^20..1"}, "row range must be an integer or integer range");
        s.at(3, {"'x'", "2.0", "\"2\"", "[1, 2]", "10^20", "1/2"}, "row range must be an integer or integer range");
        s.at(4, {"0", "5", "-5", "0..2", "1..5", "-5..2", "3..2"}, "column range is out of bounds");
        s.at(4, {"1..2.0", "'x'..2", "1..10^20", "-10^20..1"}, "column range, must be an integer or integer range");
        s.at(4, {"'x'", "2.0", "\"2\"", "[1, 2]", "10^20"}, "column range must be an integer or integer range");
        s.at(5, {"-1", "'x'", "2.0", "\"2\"", "1..2", "10^20", "-10^20"},
             "number of reducible columns must be a nonnegative integer value");
        const std::string exceeds = "number of reducible columns exceeds the number of columns in the specified matrix";
        s.at(5, {"5", "2^30-1"}, exceeds);
        s.with({{4, "2"}, {5, "3"}}, exceeds).with({{4, "3..-1"}, {5, "3"}}, exceeds);
        s.modulus(datatype);
        for (size_t n = 6; n <= 10; n++) {
            s.at(n, {"1", "-1", "\"d\"", "0.0", "[0]", "foo[1]", "10^20", "Target", "{}"},
                 "argument " + std::to_string(n) + " must be a name or the value 0");
        }
        s.at(11, {"3", "-1", "10^20", "-10^20", "'yes'", "\"true\"", "1.0", "[1]", "1 = 1"},
             "argument 11 must be 'true' or 'false'");
        subjects.push_back(s);
    }
    return subjects;
}

struct Subjects {
    const char *name;
    std::vector<Subject> (*make)();
};

class Errors : public modla_test::FaultPairs, public testing::WithParamInterface<Subjects> {
  protected:
    Errors() {
        for (const int32_t datatype : datatypes) {
            const std::string name = "Target" + std::to_string(datatype);
            define(name, make_table(datatype, MODLA_MATRIX, MODLA_C_ORDER, 3, 4));
            for (int32_t k = 0; k < 12; k++) set_integer(table_of(eval(name)), k / 4 + 1, k % 4 + 1, (k * k + 5) % 7);
        }
        set_name("Target", eval("Target4"));
    }
};

TEST_P(Errors, TheEarliestFaultIsReportedAndNothingIsWritten) {
    check(GetParam().make(), 3000);
}

TEST_P(Errors, WithoutFaultsTheCallSucceeds) {
    for (const Subject &subject : GetParam().make()) check_success(subject);
}

INSTANTIATE_TEST_SUITE_P(Of, Errors,
                         testing::Values(Subjects{"Create", create_subjects}, Subjects{"Fill", fill_subjects},
                                         Subjects{"RowReduce", row_reduce_subjects}),
                         [](const auto &test) { return std::string(test.param.name); });

// ---- Create ----

TEST(Create, MakesEveryShapeInEveryDatatypeAndOrder) {
    const std::vector<std::pair<std::string, int64_t>> fills = {
        {"", 0}, {"0", 0}, {"6", 6}, {"3", 3}, {"3.6", 4}, {"2.5", 3}, {"2.4", 2}, {"-0.5", 0}, {"13/3", 4}};
    for (const int32_t datatype : datatypes) {
        for (const std::string order : {"", "C_order", "Fortran_order"}) {
            for (const auto &[rows, columns] : {std::pair(3, 0), {0, 3}, {1, 1}, {2, 3}, {3, 1}, {1, 4}, {17, 5}}) {
                for (const auto &[fill, value] : fills) {
                    const bool integral = fill.find_first_of("./") == std::string::npos;
                    if (datatype == MODLA_INTEGER && !integral) continue;
                    std::vector<std::string> arguments = {"7", std::to_string(rows), std::to_string(columns)};
                    for (const std::string &optional : {fill, std::string(keyword_of(datatype)), order}) {
                        if (!optional.empty()) arguments.push_back(optional);
                    }
                    const std::string call = "Create(" + joined(arguments) + ")";
                    const Object A = eval(call);
                    const std::string size = rows == 0 ? std::to_string(columns) + " row Vector, "
                                             : columns == 0
                                                 ? std::to_string(rows) + " column Vector, "
                                                 : std::to_string(rows) + " x " + std::to_string(columns) + " Matrix, ";
                    EXPECT_EQ(to_line(A),
                              "<" + size + keyword_of(datatype) + ", " + (order.empty() ? "C_order" : order) + ">")
                        << call;
                    const size_t count = static_cast<size_t>(std::max(rows, 1) * std::max(columns, 1));
                    EXPECT_EQ(entries_of(A), std::vector(count, entry_text(datatype, value))) << call;
                }
            }
        }
    }
}

TEST(Create, Identity) {
    for (const int32_t datatype : datatypes) {
        for (const int32_t order : orders) {
            for (const int32_t n : {1, 2, 3, 8, 33}) {
                const Object A = eval("Create(7, " + std::to_string(n) + ", " + std::to_string(n) + ", identity, " +
                                      keyword_of(datatype) + ", " + order_keyword(order) + ")");
                std::vector<std::string> expected;
                for (int32_t k = 0; k < n * n; k++) expected.push_back(entry_text(datatype, k / n == k % n));
                EXPECT_EQ(entries_of(A), expected);
            }
        }
    }
}

TEST(Create, TakesTheLargestModuli) {
    for (const char *call :
         {"Create(65535, 2, 2, 65534, integer[4])", "Create(33554431, 2, 2, 33554430, float[8])",
          "Create(2, 2, 2, 1, integer[4])", "Create(2, 2, 2, 1, float[8])", "Create(65536, 2, 2, integer)",
          "Create(10^30, 2, 2, 10^30 - 1, integer)", "Create(7, 2, 2, 3, integer[])"}) {
        EXPECT_EQ(error_of(call), "") << call;
    }
    EXPECT_EQ(run("print(Create(10^30, 1, 2, 10^30 - 1, integer))"),
              "[999999999999999999999999999999 "
              "999999999999999999999999999999]\n");
}

TEST(Create, StoresTheVeryFillObject) {
    const Object fill = eval("10^20"), call = eval("[10^30, 2, 3]");
    Roots arguments;
    for (uint32_t i = 0; i < 3; i++) arguments.values.push_back(element(call, i));
    arguments.values.push_back(fill);
    arguments.values.push_back(global_name("integer"));
    const Object A = call_entry_point(modLA_Create, arguments.values);
    for (int k = 0; k < 6; k++) EXPECT_EQ(static_cast<const Object *>(table_of(A).data)[k], fill);
}

TEST(Create, KeywordsAreTheHostsOwnNames) {
    Roots arguments;
    for (const int value : {7, 2, 2}) arguments.values.push_back(immediate(value));
    arguments.values.push_back(eval("integer[4]"));
    arguments.values.push_back(local_name("C_order"));
    const HostApi api = recording_host();
    modLA_Create(&api, words(new_sequence(arguments.values)));
    EXPECT_EQ(raised_messages, std::vector<std::string>{"expected ordering for argument 5, got C_order"});
}

// A residue as the library draws it from rand().
uint32_t drawn_residue(uint32_t p) {
    const uint32_t limit = 0x80000000u / p * p - 1;
    uint32_t r;
    do r = static_cast<uint32_t>(std::rand());
    while (r > limit);
    return r % p;
}

TEST(Create, RandomEntriesAreDrawnInStorageOrder) {
    for (const auto &[datatype, p] :
         {std::pair(MODLA_INTEGER4, 7), {MODLA_INTEGER4, 65535}, {MODLA_FLOAT8, 2}, {MODLA_FLOAT8, 33554431}}) {
        for (const int32_t order : orders) {
            for (const auto &[rows, columns] : {std::pair(3, 4), {5, 0}, {0, 5}}) {
                std::srand(5);
                const Object A =
                    eval("Create(" + std::to_string(p) + ", " + std::to_string(rows) + ", " + std::to_string(columns) +
                         ", random, " + keyword_of(datatype) + ", " + order_keyword(order) + ")");
                std::srand(5);
                const Table &table = table_of(A);
                for (int32_t k = 0; k < std::max(rows, 1) * std::max(columns, 1); k++) {
                    const double entry = datatype == MODLA_FLOAT8 ? static_cast<const double *>(table.data)[k]
                                                                  : static_cast<const int32_t *>(table.data)[k];
                    EXPECT_EQ(entry, drawn_residue(static_cast<uint32_t>(p)));
                }
            }
        }
    }
}

TEST(Create, RandomIntegersAreTheCallbacks) {
    std::vector<std::string> calls;
    Object seen = 0;
    const Callback callback("cbRandMat", [&](const std::vector<Object> &arguments) {
        std::string call;
        for (const Object argument : arguments) call += to_line(argument) + ";";
        seen = arguments.back();
        for (const std::string &entry : entries_of(seen)) call += entry;
        calls.push_back(call);
        set_entry(table_of(seen), 1, 1, immediate(5));
        return immediate(17);
    });
    EXPECT_EQ(eval("Create(7, 2, 2, random, integer)"), seen);
    EXPECT_EQ(entries_of(seen), (std::vector<std::string>{"5", "0", "0", "0"}));
    const Object p = eval("10^30");
    set_name("p", p);
    EXPECT_EQ(eval("Create(p, 3, 0, random, integer, Fortran_order)"), seen);
    EXPECT_EQ(eval("Create(p, 0, 2, random, integer)"), seen);
    EXPECT_EQ(calls, (std::vector<std::string>{"7;0;2;0;2;<2 x 2 Matrix, integer, C_order>;0000",
                                               to_text(p) + ";0;3;0;0;<3 column Vector, integer, Fortran_order>;000",
                                               to_text(p) + ";0;0;0;2;<2 row Vector, integer, C_order>;00"}));
}

TEST(Create, ErrorsOfTheCallbackReachTheProgram) {
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        const Callback callback("cbRandMat",
                                [&](const std::vector<Object> &) -> Object { throw HostError("out of luck"); });
        EXPECT_EQ(error_of("Create(7, 2, 2, random, integer)"), "out of luck");
        EXPECT_EQ(error_of("Fill(7, random, Create(7, 2, 2, integer))"), "out of luck");
        EXPECT_EQ(lent_count(), 0u);
    }
    set_unwinding(Unwinding::exception);
    run("saved := cbRandMat; cbRandMat := 3");
    EXPECT_NE(error_of("Create(7, 2, 2, random, integer)"), "");
    run("cbRandMat := saved");
    EXPECT_EQ(error_of("Create(7, 2, 2, random, integer)"), "");
}

TEST(Create, RefusesWhatMemoryCannotHold) {
    // Sizes whose product passes 2^32 and 2^64 in several ways.
    for (const auto &[rows, columns] : std::vector<std::pair<int64_t, int64_t>>{{65536, 65536},
                                                                                {65536, 65537},
                                                                                {1 << 30, 4},
                                                                                {1 << 30, 1 << 30},
                                                                                {2147483647, 2147483647},
                                                                                {1073807362, 2147352580},
                                                                                {536870912, 2},
                                                                                {1 << 29, 2}}) {
        for (const int32_t datatype : datatypes) {
            for (const char *content : {"", "3, ", "random, "}) {
                const std::string call = "Create(7, " + std::to_string(rows) + ", " + std::to_string(columns) + ", " +
                                         content + keyword_of(datatype) + ")";
                EXPECT_TRUE(error_of(call).starts_with("object too large: ")) << call;
            }
        }
    }
    for (const std::string size : {"2^31", "10^20", "-10^20"}) {
        EXPECT_NE(error_of("Create(7, " + size + ", 2, integer)"), "") << size;
        EXPECT_NE(error_of("Create(7, 2, " + size + ", integer)"), "") << size;
    }
    EXPECT_EQ(lent_count(), 0u);
}

// ---- Fill ----

// A table with a selection: which entries it means, and how it is written.
struct Target {
    Object table;
    std::vector<std::string> selectors;
    std::set<std::pair<int32_t, int32_t>> selected;
    int32_t first_row, first_column, rows, columns;  // the block; at least 1 each
};

struct Line {
    std::string text;  // of the selector; empty: none
    int32_t first, last;
};

Line random_line(Random &random, int32_t bound, bool may_be_absent) {
    const auto written = [&](int32_t i) { return std::to_string(chance(random, 30) ? i - bound - 1 : i); };
    if (may_be_absent && chance(random, 30)) return {"", 1, bound};
    int32_t first = between(random, 1, bound), last = between(random, 1, bound);
    if (chance(random, 40)) return {written(first), first, first};
    if (first > last) std::swap(first, last);
    return {written(first) + ".." + written(last), first, last};
}

Target random_target(Random &random, int32_t datatype) {
    const int32_t subtypes[] = {MODLA_MATRIX, MODLA_MATRIX, MODLA_MATRIX, MODLA_COLUMN_VECTOR, MODLA_ROW_VECTOR};
    const int32_t subtype = pick(random, subtypes);
    const int32_t m = subtype == MODLA_ROW_VECTOR ? 1 : between(random, 1, 7);
    const int32_t n = subtype == MODLA_COLUMN_VECTOR ? 1 : between(random, 1, 7);
    Target target;
    target.table = make_table(datatype, subtype, pick(random, orders), m, n);
    for (int32_t i = 1; i <= m; i++) {
        for (int32_t j = 1; j <= n; j++) set_integer(table_of(target.table), i, j, 1000 + 10 * i + j);
    }
    Line rows = {"", 1, 1}, columns = {"", 1, 1};
    if (subtype != MODLA_COLUMN_VECTOR) columns = random_line(random, n, true);
    if (subtype != MODLA_ROW_VECTOR) rows = random_line(random, m, columns.text.empty() || subtype != MODLA_MATRIX);
    for (const Line &line : {rows, columns}) {
        if (!line.text.empty()) target.selectors.push_back(line.text);
    }
    for (int32_t i = rows.first; i <= rows.last; i++) {
        for (int32_t j = columns.first; j <= columns.last; j++) target.selected.insert({i, j});
    }
    target.first_row = rows.first, target.first_column = columns.first;
    target.rows = rows.last - rows.first + 1, target.columns = columns.last - columns.first + 1;
    return target;
}

// Every entry is as `value` says where it was selected, as before elsewhere; the memory behind is untouched.
template <class Value>
void expect_filled(const Target &target, const std::vector<char> &before, const std::string &call, Value value) {
    const Table &table = table_of(target.table);
    for (int32_t i = 1; i <= table_rows(table); i++) {
        for (int32_t j = 1; j <= table_columns(table); j++) {
            const int64_t expected = target.selected.contains({i, j}) ? value(i, j) : 1000 + 10 * i + j;
            ASSERT_EQ(to_text(get_entry(table, i, j)), entry_text(table.settings.datatype, expected))
                << call << " on " << to_line(target.table) << " at " << i << ", " << j;
        }
    }
    const std::vector<char> after = storage_of(target.table);
    const size_t entries = static_cast<size_t>(table_rows(table) * table_columns(table)) *
                           modla_test::entry_bytes(table.settings.datatype);
    ASSERT_TRUE(std::equal(before.begin() + static_cast<ptrdiff_t>(entries), before.end(),
                           after.begin() + static_cast<ptrdiff_t>(entries)))
        << call;
}

std::string fill_call(const std::string &p, const std::string &content, const Target &target) {
    std::vector<std::string> arguments = {p};
    if (!content.empty()) arguments.push_back(content);
    arguments.push_back("F");
    arguments.insert(arguments.end(), target.selectors.begin(), target.selectors.end());
    set_name("F", target.table);
    return "Fill(" + joined(arguments) + ")";
}

TEST(Fill, WritesTheSelectedEntriesOnly) {
    Random random(21);
    const std::vector<std::pair<std::string, int64_t>> fills = {{"", 0},    {"0", 0},   {"6", 6},   {"5", 5},
                                                                {"2.5", 3}, {"6.4", 6}, {"1/2", 1}, {"-0.5", 0}};
    for (int round = 0; round < 6000; round++) {
        const int32_t datatype = pick(random, datatypes);
        const Target target = random_target(random, datatype);
        auto [fill, value] = pick(random, fills);
        if (datatype == MODLA_INTEGER && fill.find_first_of("./") != std::string::npos) fill = "", value = 0;
        const std::vector<char> before = storage_of(target.table);
        const std::string call = fill_call("7", fill, target);
        ASSERT_EQ(run("print([" + call + "])"), "[]\n") << call << ": NULL is returned";
        expect_filled(target, before, call, [value = value](int32_t, int32_t) { return value; });
    }
}

TEST(Fill, RandomEntriesAreDrawnRowByRow) {
    Random random(22);
    for (int round = 0; round < 3000; round++) {
        const int32_t datatype = chance(random, 50) ? MODLA_INTEGER4 : MODLA_FLOAT8;
        const int32_t p = datatype == MODLA_INTEGER4 ? 65535 : 33554431;
        const Target target = random_target(random, datatype);
        const std::vector<char> before = storage_of(target.table);
        const std::string call = fill_call(std::to_string(p), "random", target);
        std::srand(static_cast<unsigned>(round));
        ASSERT_EQ(run(call), "") << call;
        std::srand(static_cast<unsigned>(round));
        std::map<std::pair<int32_t, int32_t>, int64_t> drawn;
        for (const auto &place : target.selected) drawn[place] = drawn_residue(static_cast<uint32_t>(p));
        expect_filled(target, before, call, [&](int32_t i, int32_t j) { return drawn[{i, j}]; });
    }
}

TEST(Fill, RandomIntegersAreTheCallbacksThroughAView) {
    Random random(23);
    std::vector<Object> seen;
    const Callback callback("cbRandMat", [&](const std::vector<Object> &arguments) {
        seen = arguments;
        const Table &view = table_of(arguments[5]);
        for (int32_t i = 1; i <= immediate_value(arguments[2]); i++) {
            for (int32_t j = 1; j <= immediate_value(arguments[4]); j++) {
                const int32_t row = immediate_value(arguments[1]) + i, column = immediate_value(arguments[3]) + j;
                set_entry(view, row, column, immediate(100 * i + j));
            }
        }
        return null_value();
    });
    set_name("p", eval("10^30"));
    int views = 0;
    for (int round = 0; round < 6000; round++) {
        const Target target = random_target(random, MODLA_INTEGER);
        const std::vector<char> before = storage_of(target.table);
        const std::string call = fill_call("p", "random", target);
        seen.clear();
        ASSERT_EQ(error_of(call), "") << call << " on " << to_line(target.table);
        ASSERT_EQ(seen.size(), 6u);
        EXPECT_EQ(seen[0], eval("p"));
        EXPECT_EQ(seen[2], immediate(target.rows)) << call;
        EXPECT_EQ(seen[4], immediate(target.columns)) << call;
        views += seen[5] != target.table;
        expect_filled(target, before, call, [&](int32_t i, int32_t j) {
            return 100 * (i - target.first_row + 1) + (j - target.first_column + 1);
        });
    }
    EXPECT_GT(views, 2000);
}

TEST(Fill, TheConsolesOwnCallbackFillsEveryBlock) {
    Random random(24);
    for (int round = 0; round < 1500; round++) {
        const Target target = random_target(random, MODLA_INTEGER);
        const std::vector<char> before = storage_of(target.table);
        const std::string call = fill_call("2", "random", target);
        ASSERT_EQ(error_of(call), "") << call << " on " << to_line(target.table);
        expect_filled(target, before, call, [&](int32_t i, int32_t j) {
            const int64_t entry = get_integer(table_of(target.table), i, j);
            EXPECT_TRUE(entry == 0 || entry == 1);
            return entry;
        });
    }
}

TEST(Fill, DocumentedCalls) {
    const std::pair<const char *, const char *> cases[] = {
        {"A := Create(7, 3, 3, 1, integer[4]); Fill(7, A); print(A)", "[0 0 0]\n[0 0 0]\n[0 0 0]\n"},
        {"A := Create(7, 3, 3, integer[4]); Fill(7, 3, A, 2, 1..2); print(A)", "[0 0 0]\n[3 3 0]\n[0 0 0]\n"},
        {"A := Create(7, 3, 3, integer[4]); Fill(7, 3, A, 2..3, 2); print(A)", "[0 0 0]\n[0 3 0]\n[0 3 0]\n"},
        {"A := Create(7, 3, 3, integer[4]); Fill(7, 7, A)",
         "Error: fill value must be an integral numeric value in "
         "the range 0..modulus-1\n"},
        {"A := Create(7, 3, 3, integer[4]); Fill(7, 6.5, A)",
         "Error: fill value must be an integral numeric value in "
         "the range 0..modulus-1\n"},
        {"A := Create(7, 4, 2, integer); saved := cbRandMat;"
         "cbRandMat := proc(p, i, m, j, n, V) print(p, i, m, j, n, rows(V), columns(V)); V[2, 2] := 6 end;"
         "Fill(7, random, A, 3..4); cbRandMat := saved; print(A)",
         "7 0 2 0 2 2 2\n[0 0]\n[0 0]\n[0 0]\n[0 6]\n"},
        {"V := Create(7, 4, 0, integer); Fill(7, 2, V, 2..3); print(V)", "[0]\n[2]\n[2]\n[0]\n"},
        {"V := Create(7, 0, 4, float[8]); Fill(7, 2, V, -1); print(V)", "[0.0 0.0 0.0 2.0]\n"},
        {"V := Create(7, 0, 4, float[8]); Fill(7, 2, V, 1, 1)",
         "Error: too many arguments, starting at argument 5, "
         "1\n"},
        {"V := Create(7, 0, 4, float[8]); Fill(7, 2, V, 5)", "Error: Vector index out of range\n"},
    };
    for (const auto &[program, expected] : cases) EXPECT_EQ(run(program), expected) << program;
}

// Tables without entries: nothing behind their (empty) storage may change.
TEST(Fill, OfATableWithoutEntriesWritesNothing) {
    int callbacks = 0;
    const Callback callback("cbRandMat", [&](const std::vector<Object> &) {
        callbacks++;
        return null_value();
    });
    for (const int32_t datatype : datatypes) {
        for (const int32_t order : orders) {
            for (const auto &[subtype, rows, columns] : {std::tuple(MODLA_MATRIX, 0, 3),
                                                         {MODLA_MATRIX, 3, 0},
                                                         {MODLA_MATRIX, 0, 0},
                                                         {MODLA_MATRIX, 0, 1},
                                                         {MODLA_COLUMN_VECTOR, 0, 1},
                                                         {MODLA_ROW_VECTOR, 1, 0}}) {
                const Object table = make_table(datatype, subtype, order, rows, columns);
                set_name("Empty", table);
                for (const std::string content : {"", "3, ", "random, "}) {
                    for (const std::string selectors : {"", ", 1", ", 1..1", ", -1", ", 1, 1", ", 1..3", ", 1..3, 1"}) {
                        const std::vector<char> before = storage_of(table);
                        const std::string call = "Fill(7, " + content + "Empty" + selectors + ")";
                        const std::string error = error_of(call);
                        if (selectors.empty()) {
                            EXPECT_EQ(error, "") << call << to_line(table);
                        }
                        ASSERT_EQ(storage_of(table), before) << call << to_line(table);
                    }
                }
                EXPECT_EQ(error_of("RowReduce(7, Empty, -1, -1, 0, 0, 0, 0, 0, 0, true)"),
                          subtype != MODLA_MATRIX ? "argument 2 must be a Matrix"
                          : rows == 0             ? "row range is out of bounds"
                                                  : "column range is out of bounds");
            }
        }
    }
    EXPECT_EQ(callbacks, 0);
}

// ---- RowReduce ----

using Grid = std::vector<std::vector<int64_t>>;

// A matrix of FLINT.
class Nmod {
  public:
    Nmod(const Grid &grid, size_t columns, uint32_t p) {
        nmod_mat_init(mat_, static_cast<slong>(grid.size()), static_cast<slong>(columns), p);
        for (size_t i = 0; i < grid.size(); i++) {
            for (size_t j = 0; j < columns; j++) at(i, j) = static_cast<mp_limb_t>(grid[i][j]);
        }
    }
    ~Nmod() { nmod_mat_clear(mat_); }
    Nmod(const Nmod &) = delete;
    Nmod &operator=(const Nmod &) = delete;

    mp_limb_t &at(size_t i, size_t j) { return nmod_mat_entry(mat_, i, j); }
    int64_t determinant() { return static_cast<int64_t>(nmod_mat_det(mat_)); }
    // The reduced row echelon form; its nonzero rows.
    Grid echelon() {
        const slong rank = nmod_mat_rref(mat_);
        Grid grid(static_cast<size_t>(rank), std::vector<int64_t>(static_cast<size_t>(nmod_mat_ncols(mat_))));
        for (size_t i = 0; i < grid.size(); i++) {
            for (size_t j = 0; j < grid[i].size(); j++) grid[i][j] = static_cast<int64_t>(at(i, j));
        }
        return grid;
    }

  private:
    nmod_mat_t mat_;
};

Grid echelon(const Grid &grid, size_t columns, uint32_t p) {
    return Nmod(grid, columns, p).echelon();
}

// A random matrix mod p, often of low rank and with zero columns.
Grid random_grid(Random &random, size_t rows, size_t columns, uint32_t p) {
    const auto matrix = [&](size_t m, size_t n) {
        Grid grid(m, std::vector<int64_t>(n));
        for (auto &row : grid) {
            for (int64_t &x : row) x = chance(random, 30) ? 0 : static_cast<int64_t>(below(random, p));
        }
        return grid;
    };
    Grid grid = matrix(rows, columns);
    if (chance(random, 50)) {
        const size_t rank = below(random, std::min(rows, columns) + 1);
        const Grid left = matrix(rows, rank), right = matrix(rank, columns);
        for (size_t i = 0; i < rows; i++) {
            for (size_t j = 0; j < columns; j++) {
                grid[i][j] = 0;
                for (size_t k = 0; k < rank; k++) grid[i][j] = (grid[i][j] + left[i][k] * right[k][j]) % p;
            }
        }
    }
    if (chance(random, 30)) {
        const size_t zero = below(random, columns);
        for (auto &row : grid) row[zero] = 0;
    }
    return grid;
}

// A block of a Matrix, and how a call of RowReduce names it.
struct BlockCall {
    Object table;
    int32_t p;
    Line rows, columns;
    int32_t nred;  // in effect
    std::string nred_text;
    bool wanted[5];  // outputs
    std::string form;
    int32_t mode;
    int32_t m() const { return rows.last - rows.first + 1; }
    int32_t n() const { return columns.last - columns.first + 1; }
    std::string call() const {
        std::vector<std::string> arguments = {std::to_string(p), "R", rows.text, columns.text, nred_text};
        for (size_t k = 0; k < 5; k++) arguments.push_back(wanted[k] ? "'" + output_names[k] + "'" : "0");
        arguments.push_back(form);
        return "RowReduce(" + joined(arguments) + ")";
    }
};

// k or a..b; k means 1..k.
Line random_range(Random &random, int32_t bound) {
    const auto written = [&](int32_t i) { return std::to_string(chance(random, 30) ? i - bound - 1 : i); };
    int32_t first = between(random, 1, bound), last = between(random, 1, bound);
    if (chance(random, 40)) return {written(last), 1, last};
    if (first > last) std::swap(first, last);
    return {written(first) + ".." + written(last), first, last};
}

BlockCall random_block_call(Random &random, int32_t datatype, int32_t p, int32_t most) {
    BlockCall call;
    const int32_t rows = between(random, 1, most), columns = between(random, 1, most);
    call.table = make_table(datatype, MODLA_MATRIX, pick(random, orders), rows, columns);
    const Grid grid =
        random_grid(random, static_cast<size_t>(rows), static_cast<size_t>(columns), static_cast<uint32_t>(p));
    for (int32_t i = 1; i <= rows; i++) {
        for (int32_t j = 1; j <= columns; j++) {
            set_integer(table_of(call.table), i, j, grid[static_cast<size_t>(i - 1)][static_cast<size_t>(j - 1)]);
        }
    }
    call.p = p;
    call.rows = random_range(random, rows);
    call.columns = random_range(random, columns);
    const int32_t chosen = chance(random, 50) ? 0 : between(random, 1, call.n());
    call.nred = chosen == 0 ? call.n() : chosen;
    call.nred_text = std::to_string(chosen);
    for (size_t k = 0; k < 5; k++) call.wanted[k] = chance(random, 50);
    const std::pair<const char *, int32_t> forms[] = {{"true", 1}, {"false", 0}, {"0", 0}, {"1", 1}, {"2", 2}};
    std::tie(call.form, call.mode) = pick(random, forms);
    return call;
}

Grid block_of(const BlockCall &call) {
    Grid grid;
    for (int32_t i = call.rows.first; i <= call.rows.last; i++) {
        grid.emplace_back();
        for (int32_t j = call.columns.first; j <= call.columns.last; j++) {
            grid.back().push_back(get_integer(table_of(call.table), i, j));
        }
    }
    return grid;
}

// The storage with the block blanked out.
std::vector<char> storage_around(const BlockCall &call) {
    const Table &table = table_of(call.table);
    std::vector<char> bytes = storage_of(call.table);
    const int32_t size = static_cast<int32_t>(modla_test::entry_bytes(table.settings.datatype));
    for (int32_t i = call.rows.first - 1; i < call.rows.last; i++) {
        for (int32_t j = call.columns.first - 1; j < call.columns.last; j++) {
            const int32_t at =
                table.settings.order == MODLA_C_ORDER ? i * table.bounds[1] + j : j * table.bounds[0] + i;
            std::fill_n(bytes.begin() + at * size, size, '\0');
        }
    }
    return bytes;
}

bool is_zero(const std::vector<int64_t> &row, size_t first, size_t last) {
    return std::all_of(row.begin() + static_cast<ptrdiff_t>(first), row.begin() + static_cast<ptrdiff_t>(last),
                       [](int64_t x) { return x == 0; });
}

const std::string composite = "no inverse exists: modulus is composite", singular = "matrix is singular",
                  more_rows = "matrix has more rows than columns, cannot compute determinant";

// Checks a call with a prime modulus against FLINT.
void check_reduction(const BlockCall &q, std::map<std::string, int> *errors) {
    const uint32_t p = static_cast<uint32_t>(q.p);
    const size_t m = static_cast<size_t>(q.m()), n = static_cast<size_t>(q.n()), nred = static_cast<size_t>(q.nred);
    const std::string call = q.call() + " on " + to_text(q.table);
    set_name("R", q.table);
    for (const std::string &name : output_names) unassign(name);
    const std::vector<char> whole = storage_of(q.table), around = storage_around(q);
    const Grid before = block_of(q);
    const Grid form = echelon(before, n, p), reducible = echelon(before, nred, p);
    const size_t rank = reducible.size();
    const auto &[det, pivprod, wants_rank, pivsig, extra] = q.wanted;

    const std::string expected = (det || pivprod) && m > n ? more_rows : form.size() > rank && !extra ? singular : "";
    const std::string error = error_of(q.call());
    ASSERT_EQ(error, expected) << call;
    ASSERT_EQ(storage_around(q), around) << call;
    ASSERT_EQ(lent_count(), 0u) << call;
    (*errors)[error]++;
    for (size_t k = 0; k < 5; k++) {
        ASSERT_EQ(is_assigned(output_names[k]), q.wanted[k] && error.empty()) << call << output_names[k];
    }
    if (error == more_rows) {
        ASSERT_EQ(storage_of(q.table), whole) << call;
    }
    if (!error.empty()) return;

    const Grid after = block_of(q);
    ASSERT_EQ(echelon(after, n, p), form) << call << ": the row space is the same";
    int64_t signature = 0;
    for (size_t r = 0; r < rank; r++) {
        size_t c = 0;
        while (reducible[r][c] == 0) c++;
        signature += static_cast<int64_t>((r + 1) * c);
        ASSERT_EQ(after[r][c], 1) << call;
        ASSERT_TRUE(is_zero(after[r], 0, c)) << call;
        if (q.mode == 0) continue;
        ASSERT_TRUE(std::equal(reducible[r].begin(), reducible[r].end(), after[r].begin())) << call;
    }
    for (size_t r = rank; r < m; r++) ASSERT_TRUE(is_zero(after[r], 0, nred)) << call;
    const auto output = [](size_t k) { return integer_of(evaluate(global_name(output_names[k]))).get_si(); };
    if (det) {
        const int64_t leading = rank == m ? Nmod(before, m, p).determinant() : 0;
        ASSERT_EQ(output(0), leading) << call;
    }
    if (pivprod) {
        if (m == n && rank == m) {
            ASSERT_EQ(output(1), Nmod(before, m, p).determinant()) << call;
        }
        ASSERT_TRUE(output(1) > 0 && output(1) < q.p) << call;
        if (rank == 0) {
            ASSERT_EQ(output(1), 1) << call;
        }
    }
    if (wants_rank) {
        ASSERT_EQ(output(2), static_cast<int64_t>(rank)) << call;
    }
    if (pivsig) {
        ASSERT_EQ(output(3), signature) << call;
    }
    if (extra) {
        const size_t count = static_cast<size_t>(output(4));
        ASSERT_EQ(count == 0, form.size() == rank) << call;
        ASSERT_GE(count, form.size() - rank) << call;
        for (size_t r = rank; r < m; r++) ASSERT_EQ(is_zero(after[r], nred, n), r >= rank + count) << call;
    }
}

TEST(RowReduce, AgreesWithFlintOnRandomBlocks) {
    Random random(31);
    const std::pair<int32_t, std::vector<int32_t>> moduli[] = {
        {MODLA_INTEGER4, {2, 3, 7, 251, 4093, 46337, 46349, 65521}},
        {MODLA_FLOAT8, {2, 3, 7, 65521, 1048573, 33554393}}};
    std::map<std::string, int> errors;
    for (int round = 0; round < 12000 && !testing::Test::HasFatalFailure(); round++) {
        const auto &[datatype, primes] = moduli[round % 2];
        check_reduction(random_block_call(random, datatype, pick(random, primes), round % 20 == 0 ? 40 : 8), &errors);
    }
    EXPECT_EQ(errors.size(), 3u);
    for (const auto &[error, times] : errors) EXPECT_GT(times, 300) << error;
}

// All sums of multiples of the rows.
std::set<std::vector<int64_t>> span_of(const Grid &grid, int64_t p) {
    std::set<std::vector<int64_t>> span = {std::vector<int64_t>(grid[0].size(), 0)};
    for (const auto &row : grid) {
        std::set<std::vector<int64_t>> larger;
        for (std::vector<int64_t> sum : span) {
            for (int64_t f = 0; f < p; f++) {
                larger.insert(sum);
                for (size_t j = 0; j < sum.size(); j++) sum[j] = (sum[j] + row[j]) % p;
            }
        }
        span = larger;
    }
    return span;
}

TEST(RowReduce, KeepsTheRowModuleForCompositeModuli) {
    Random random(32);
    std::map<std::string, int> errors;
    for (int round = 0; round < 4000; round++) {
        const int32_t moduli[] = {4, 6, 8, 9, 10, 12};
        BlockCall q = random_block_call(random, round % 2 ? MODLA_INTEGER4 : MODLA_FLOAT8, pick(random, moduli), 3);
        std::fill_n(q.wanted, 2, false);
        set_name("R", q.table);
        const std::vector<char> around = storage_around(q);
        const auto before = span_of(block_of(q), q.p);
        const std::string error = error_of(q.call());
        errors[error]++;
        ASSERT_TRUE(error.empty() || error == singular || (error == composite && q.mode != 2)) << q.call() << error;
        ASSERT_EQ(span_of(block_of(q), q.p), before) << q.call();
        ASSERT_EQ(storage_around(q), around) << q.call();
    }
    EXPECT_GT(errors[composite], 30);
    EXPECT_GT(errors[singular], 30);
    EXPECT_GT(errors[""], 1000);
}

TEST(RowReduce, DocumentedCalls) {
    const std::string outputs = "0, 0, 0, 0, 0, ";
    const std::string two_by_one = "A := Create(6, 2, 1, integer[4]); A[1, 1] := 2; A[2, 1] := 4; ";
    const std::pair<std::string, std::string> cases[] = {
        {two_by_one + "RowReduce(6, A, 2, 1, 0, " + outputs + "false)", "Error: " + composite + "\n"},
        {two_by_one + "RowReduce(6, A, 2, 1, 0, " + outputs + "true)", "Error: " + composite + "\n"},
        {two_by_one + "RowReduce(6, A, 2, 1, 0, " + outputs + "2); print(A)", "[2]\n[0]\n"},
        {"A := Create(7, 3, 4, integer[4]); RowReduce(7, A, 3, 4, 0, 'd', 0, 0, 0, 0, true); print(d)", "0\n"},
        {"A := Create(7, 4, 3, integer[4]); RowReduce(7, A, 4, 3, 0, 'e', 0, 0, 0, 0, true)",
         "Error: " + more_rows + "\n"},
        {"A := Create(7, 4, 3, float[8]); RowReduce(7, A, 4, 3, 0, 0, 'e', 0, 0, 0, true)",
         "Error: " + more_rows + "\n"},
        {"A := Create(7, 2, 2, integer[4]); A[1, 2] := 1; RowReduce(7, A, 2, 2, 1, " + outputs + "true)",
         "Error: " + singular + "\n"},
        {"A := Create(7, 2, 2, integer[4]); A[2, 2] := 3; RowReduce(7, A, 2, 2, 1, 0, 0, 'r', 0, 'e', true); "
         "print(r, e); print(A)",
         "0 1\n[0 3]\n[0 0]\n"},
        {"A := Create(7, 2, 2, 3, float[8]); print([RowReduce(7, A, -1, 2..-1, 0, " + outputs + "true)]); print(A)",
         "[]\n[3.0 1.0]\n[3.0 0.0]\n"},
    };
    for (const auto &[program, expected] : cases) EXPECT_EQ(run(program), expected) << program;
    unassign("e");
}

// Outputs are assigned in the order determinant, pivot product, rank, signature, rows left.
TEST(RowReduce, OutputsToOneNameComeInTheirOrder) {
    const std::string setup =
        "A := Create(7, 2, 3, float[8], Fortran_order); A[1, 1] := 2; A[1, 2] := 1; "
        "A[2, 2] := 5; A[2, 3] := 1; ";
    const char *const values[] = {"3", "3", "2", "2", "0"};
    for (unsigned wanted = 0; wanted < 32; wanted++) {
        std::string names, expected = "one";
        for (unsigned k = 0; k < 5; k++) {
            names += wanted >> k & 1 ? "'one', " : "0, ";
            if (wanted >> k & 1) expected = values[k];
        }
        unassign("one");
        EXPECT_EQ(run(setup + "RowReduce(7, A, 2, 3, 2, " + names + "true); print(one)"), expected + "\n") << names;
    }
}

TEST(RowReduce, FailsAfterTheKernelWhenAnOutputIsRefused) {
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        unassign("r");
        EXPECT_EQ(run("A := Create(7, 2, 2, 3, float[8]); RowReduce(7, A, 2, 2, 0, 0, 0, 'integer', 'r', 0, true)"),
                  "Error: the name integer is protected\n");
        EXPECT_EQ(run("print(A)"), "[1.0 1.0]\n[0.0 0.0]\n");
        EXPECT_FALSE(is_assigned("r"));
        EXPECT_EQ(lent_count(), 0u);
    }
    set_unwinding(Unwinding::exception);
}

TEST(RowReduce, NamesAreReplacedForCallbacksOnly) {
    HostApi api = host_api();
    api.CheckName = [](Object name) -> uint32_t { return text_of(name)[0] == 'a'; };
    api.NameTarget = [](Object name) { return global_name("target_of_" + text_of(name)); };
    std::string seen;
    const Callback callback("cbReduce", [&](const std::vector<Object> &arguments) {
        for (size_t i = 7; i < 12; i++) seen += to_line(arguments[i]) + " ";
        return immediate(0);
    });
    const std::string outputs = "'a1', 'b2', 0, 'a4', 'b5', true";
    for (const char *name : {"a1", "b2", "a4", "b5"}) unassign(name);
    modLA_RowReduce(&api, words(argument_array("7, Create(7, 2, 2, integer), 2, 2, 0, " + outputs)));
    EXPECT_EQ(seen, "target_of_a1 b2 0 target_of_a4 b5 ");
    for (const char *name : {"a1", "b2", "a4", "b5"}) EXPECT_FALSE(is_assigned(name)) << name;
    modLA_RowReduce(&api, words(argument_array("7, Create(7, 2, 2, integer[4]), 2, 2, 0, " + outputs)));
    for (const char *name : {"a1", "b2", "a4", "b5"}) {
        EXPECT_TRUE(is_assigned(name)) << name;
        EXPECT_FALSE(is_assigned(std::string("target_of_") + name)) << name;
    }
}

TEST(RowReduce, PassesAnIntegerMatrixOnWithFifteenArguments) {
    Random random(33);
    std::vector<Object> seen;
    const Callback callback("cbReduce", [&](const std::vector<Object> &arguments) {
        seen = arguments;
        return immediate(0);
    });
    for (int round = 0; round < 2000; round++) {
        const BlockCall q = random_block_call(random, MODLA_INTEGER, 7, 6);
        set_name("R", q.table);
        for (const std::string &name : output_names) unassign(name);
        const std::vector<char> before = storage_of(q.table);
        ASSERT_EQ(run(q.call()), "") << q.call();
        std::vector<Object> expected = {q.table};
        for (const int32_t value : {q.rows.first, q.rows.last, q.columns.first, q.columns.last, q.nred + 1, q.p}) {
            expected.push_back(immediate(value));
        }
        for (size_t k = 0; k < 5; k++) expected.push_back(q.wanted[k] ? global_name(output_names[k]) : immediate(0));
        expected.insert(expected.end(), {immediate(0), immediate(q.mode), global_name("false")});
        ASSERT_EQ(seen, expected) << q.call();
        ASSERT_EQ(storage_of(q.table), before);
        for (const std::string &name : output_names) ASSERT_FALSE(is_assigned(name));
    }
}

TEST(RowReduce, CallsAProcedureOfTheProgram) {
    EXPECT_EQ(run("cbReduce := proc(A, i, j, k, l, n, p, d, pp, r, s, e, piv, mode, detonly)"
                  "  print(i, j, k, l, n, p, d, pp, r, s, e, piv, mode, detonly); A[1, 1] := 42; return 0 end\n"
                  "A := Create(10^20, 3, 4, integer)\n"
                  "RowReduce(10^20, A, 2..-1, -2, 2, 'd', 0, 'r', 0, 'e', 2); print(A[1, 1])"),
              "2 3 1 3 3 100000000000000000000 d 0 r 0 e 0 2 false\n42\n");
    EXPECT_EQ(error_of("RowReduce(10^20, A, 1, 1, 0, 0, 0, 0, 0, 0, 'maybe')"),
              "argument 11 must be 'true' or 'false'");
    run("cbReduce := 3");
    EXPECT_NE(error_of("RowReduce(7, A, 3, 4, 0, 0, 0, 0, 0, 0, true)"), "") << "no procedure";
    run("cbReduce := 'cbReduce'");
    EXPECT_EQ(run("RowReduce(7, A, 3, 4, 0, 0, 0, 'r', 0, 0, true); print(r, A[1, 1])"), "0 0\n")
        << "the console's own";
}

TEST(RowReduce, TurnsTheCallbacksStatusIntoAMessage) {
    int32_t status = 0;
    const Callback callback("cbReduce", [&](const std::vector<Object> &) { return immediate(status); });
    const std::map<int32_t, std::string> messages = {
        {0, ""}, {1, composite}, {2, singular}, {3, more_rows}, {10, "not implemented yet"}};
    for (const int32_t value : {0, 1, 2, 3, 4, 5, 9, 10, 11, 100, -1, -10, 1 << 29, -(1 << 29)}) {
        status = value;
        const std::string expected = messages.contains(value) ? messages.at(value) : "unknown error";
        for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
            set_unwinding(unwinding);
            EXPECT_EQ(error_of("RowReduce(7, Create(7, 2, 2, integer), 2, 2, 0, 0, 0, 0, 0, 0, true)"), expected)
                << value;
        }
        const HostApi api = recording_host();
        const std::string arguments = "7, Create(7, 2, 2, integer), 2, 2, 0, 0, 0, 0, 0, 0, true";
        EXPECT_EQ(modLA_RowReduce(&api, words(argument_array(arguments))), null_value());
        EXPECT_EQ(raised_messages.size(), value == 0 ? 0u : 1u) << value;
    }
    set_unwinding(Unwinding::exception);
}

// A failing kernel, or its refusal, in a host whose RaiseError returns.
TEST(RowReduce, AssignsNothingAfterAFailureThatReturns) {
    const std::pair<std::string, std::string> cases[] = {
        {"6, Create(6, 1, 2, 2, DATATYPE), 1, 2, 0", composite},
        {"7, Create(7, 3, 2, 2, DATATYPE), 3, 2, 0", more_rows},
    };
    for (const auto &[arguments, message] : cases) {
        for (const std::string datatype : {"integer[4]", "float[8]"}) {
            std::string text = arguments;
            text.replace(text.find("DATATYPE"), 8, datatype);
            for (const std::string &name : output_names) {
                unassign(name);
                text += ", '" + name + "'";
            }
            const HostApi api = recording_host();
            EXPECT_EQ(modLA_RowReduce(&api, words(argument_array(text + ", true"))), null_value());
            EXPECT_EQ(raised_messages, std::vector{message});
            for (const std::string &name : output_names) EXPECT_FALSE(is_assigned(name)) << name;
            EXPECT_EQ(lent_count(), 0u);
        }
    }
}

// Row reductions inside the callback of another one.
TEST(RowReduce, IsReentrant) {
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        EXPECT_EQ(run("B := Create(7, 2, 2, 3, integer[4])\n"
                      "cbReduce := proc(A, i, j, k, l, n, p, d, pp, r, s, e, piv, mode, detonly)"
                      "  if n > 3 then RowReduce(p, B, 2, 2, 0, 0, 0, 'inner', 0, 0, true); return inner end;"
                      "  RowReduce(p, A, 2, 3, 0, d, pp, r, s, e, mode); return 0 end\n"
                      "A := Create(7, 2, 3, integer)\n"
                      "RowReduce(7, A, 2, 3, 1, 0, 0, 0, 0, 0, true)"),
                  "Error: " + composite + "\n");
        EXPECT_EQ(run("print(B)"), "[1 1]\n[0 0]\n");
        EXPECT_EQ(lent_count(), 0u);
    }
    set_unwinding(Unwinding::exception);
    run("cbReduce := 'cbReduce'");
}

// ---- What the host sees ----

// Work memory: a counter a row, for the delayed kernels only, and returned.
TEST(Host, LendsCountersToDelayedKernelsOnly) {
    static std::vector<uint32_t> lent;
    HostApi api = host_api();
    api.Alloc = [](uint32_t bytes) {
        lent.push_back(bytes);
        return host_api().Alloc(bytes);
    };
    const struct {
        const char *p, *datatype;
        bool delayed;
    } cases[] = {{"2", "integer[4]", true},      {"46337", "integer[4]", true}, {"46349", "integer[4]", false},
                 {"65521", "integer[4]", false}, {"65521", "float[8]", true},   {"33554393", "float[8]", true}};
    for (const auto &[p, datatype, delayed] : cases) {
        for (const std::string order : {"C_order", "Fortran_order"}) {
            lent.clear();
            const std::string matrix = std::string("Create(") + p + ", 5, 6, 1, " + datatype + ", " + order + ")";
            const std::string arguments = std::string(p) + ", " + matrix + ", 2..4, 6, 0, 0, 0, 0, 0, 0, true";
            modLA_RowReduce(&api, words(argument_array(arguments)));
            EXPECT_EQ(lent, delayed ? std::vector{12u} : std::vector<uint32_t>{}) << arguments;
            EXPECT_EQ(lent_count(), 0u);
        }
    }
}

}  // namespace
