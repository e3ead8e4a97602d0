// The binding helpers against plain models: registration, datatypes, moduli, tables, views, selections.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "session.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::pick, modla_test::Random;
using modla_test::eval, modla_test::make_table, modla_test::message_of, modla_test::raised_messages;
using modla_test::recording_host;

namespace {

int32_t between(Random &random, int32_t low, int32_t high) {
    return low + static_cast<int32_t>(below(random, static_cast<uint64_t>(high - low + 1)));
}

// ---- Registration ----

// A procedure that answers with a marker and the arguments it was called with.
Object echo(int32_t marker) {
    return make_native("echo", [marker](const std::vector<Object> &arguments) {
        Roots values;
        values.values = arguments;
        values.values.insert(values.values.begin(), immediate(marker));
        return new_collection(type_list, new_sequence(values.values));
    });
}

class Registration : public testing::Test {
  protected:
    void TearDown() override { load_library(MODLA_LIBRARY); }  // registers the console's procedure again
};

TEST_F(Registration, ReturnsItsArgument) {
    for (const char *text : {"proc() end", "3", "'x'", "[1, 2]"}) {
        const Object procedure = eval(text);
        EXPECT_EQ(call_entry_point(modLA_Register, {procedure}), procedure) << text;
    }
}

TEST_F(Registration, TakesExactlyOneArgument) {
    const Object first = echo(1), other = echo(2);
    call_entry_point(modLA_Register, {first});
    for (const std::vector<Object> &arguments : {std::vector<Object>{}, {other, other}, {other, other, other}}) {
        EXPECT_EQ(message_of([&] { call_entry_point(modLA_Register, arguments); }), "incorrect number of arguments");
        const HostApi api = recording_host();
        EXPECT_EQ(modLA_Register(&api, words(new_sequence(arguments))), null_value());
        EXPECT_EQ(raised_messages, std::vector<std::string>{"incorrect number of arguments"});
        EXPECT_EQ(to_text(modLA_getfcn(&host_api(), "cbX")), "[1, cbX]") << "the first one stays registered";
    }
}

TEST_F(Registration, TheLatestProcedureIsAskedWithTheParsedName) {
    for (int32_t marker = 1; marker < 4; marker++) {
        call_entry_point(modLA_Register, {echo(marker)});
        const Object answer = modLA_getfcn(&host_api(), "cbOther");
        ASSERT_EQ(size_of(answer), 2u);
        EXPECT_EQ(element(answer, 0), immediate(marker));
        EXPECT_EQ(element(answer, 1), global_name("cbOther"));
        EXPECT_EQ(to_text(modLA_getfcn(&host_api(), "f[2]")), "[" + std::to_string(marker) + ", f[2]]");
    }
}

TEST_F(Registration, ErrorsOfTheProcedureReachTheCaller) {
    const Object failing =
        make_native("failing", [](const std::vector<Object> &) -> Object { throw HostError("no such procedure"); });
    call_entry_point(modLA_Register, {failing});
    EXPECT_EQ(message_of([] { modLA_getfcn(&host_api(), "cbX"); }), "no such procedure");
}

// ---- Datatypes ----

TEST(Datatype, OfEveryKindOfArgument) {
    struct Case {
        Object object;
        int32_t code;
    };
    Roots held;
    std::vector<Case> cases;
    const auto add = [&](Object object, int32_t code) {
        held.values.push_back(object);
        cases.push_back({object, code});
    };
    add(eval("integer"), MODLA_INTEGER);
    add(eval("integer[4]"), MODLA_INTEGER4);
    add(eval("integer[]"), MODLA_INTEGER4);
    add(eval("float[8]"), MODLA_FLOAT8);
    for (const char *text : {"float",
                             "float[]",
                             "float[4]",
                             "float[8, 8]",
                             "integer[8]",
                             "integer[0]",
                             "integer[4, 4]",
                             "integer[4.0]",
                             "integer[-4]",
                             "integer[10^20]",
                             "integer[[4]]",
                             "float['x']",
                             "foo",
                             "foo[4]",
                             "foo[8]",
                             "Integer",
                             "\"integer\"",
                             "[4]",
                             "[integer]",
                             "4",
                             "8",
                             "0",
                             "10^20",
                             "-10^20",
                             "2.5",
                             "1/2",
                             "1..4",
                             "integer = 4",
                             "{}",
                             "NULL",
                             "proc() end",
                             "Create(7, 2, 2, integer[4])"}) {
        add(eval(text), -1);
    }
    add(local_name("integer"), -1);
    add(new_pair(type_indexed, local_name("float"), new_sequence({immediate(8)})), -1);
    add(new_pair(type_indexed, global_name("integer"), eval("[4]")), -1);
    add(new_pair(type_indexed, eval("integer[4]"), new_sequence({immediate(4)})), -1);

    // An index that stands in no sequence.
    EXPECT_EQ(process_datatype(&host_api(), new_pair(type_indexed, global_name("float"), immediate(8)), 2, 1), -1);

    for (const auto &[object, code] : cases) {
        const std::string text = to_line(object);
        const std::string rest = " ('integer[4]', 'float[8]', or 'integer'), for argument 17, got " + text;
        const std::string messages[] = {"expected datatype" + rest, "expected output object or datatype" + rest};
        for (int32_t mode = 0; mode < 2; mode++) {
            int32_t result = -2;
            EXPECT_EQ(message_of([&] { result = process_datatype(&host_api(), object, mode, 17); }),
                      code < 0 ? messages[mode] : "");
            EXPECT_EQ(result, code < 0 ? -2 : code) << text;
            const HostApi api = recording_host();
            EXPECT_EQ(process_datatype(&api, object, mode, 17), code) << text;
            EXPECT_EQ(raised_messages.size(), code < 0 ? 1u : 0u) << text;
        }
        for (const int32_t mode : {2, -1, 1000}) {
            EXPECT_EQ(process_datatype(&host_api(), object, mode, 17), code) << text;
        }
    }
}

// ---- Moduli and fill values ----

const mpz_class most_immediate = (mpz_class(1) << 30) - 1;

std::string expected_modulus_message(Object modulus, int32_t datatype) {
    if (!is_integer(modulus)) return "argument 1, the modulus, must be an integer";
    const mpz_class p = integer_of(modulus);
    const bool big = abs(p) > most_immediate;
    if (datatype == MODLA_INTEGER4 && (big || p > 65535)) {
        return "modulus is too large for 'integer[4]' datatype, must be < 65536";
    }
    if (datatype == MODLA_FLOAT8 && (big || p > 33554431)) {
        return "modulus is too large for 'float[8]' datatype, must be < 33554432";
    }
    const bool known = datatype == MODLA_INTEGER || datatype == MODLA_INTEGER4 || datatype == MODLA_FLOAT8;
    if (!known) return "modp object has invalid datatype";
    return p < 2 ? "modulus must be at least 2" : "";
}

// 0 <= v < p; between two integers that are not immediate only the magnitudes count.
bool is_residue(const mpz_class &p, const mpz_class &v) {
    const bool both_big = p > most_immediate && abs(v) > most_immediate;
    return both_big ? abs(v) < p : v >= 0 && v < p;
}

// A fill value rounded with halves upward, when it is a finite number.
std::optional<mpz_class> rounded(Object fill) {
    if (is_integer(fill)) return integer_of(fill);
    if (!is_number(fill)) return std::nullopt;
    const double value = std::floor(to_double(fill) + 0.5);
    if (!std::isfinite(value)) return std::nullopt;
    return mpz_class(value);
}

// The residue that a fill value stands for, if it does.
std::optional<mpz_class> expected_residue(const mpz_class &p, int32_t datatype, Object fill) {
    if (datatype == MODLA_INTEGER) {
        if (!is_integer(fill) || !is_residue(p, integer_of(fill))) return std::nullopt;
        return integer_of(fill);
    }
    const std::optional<mpz_class> value = rounded(fill);
    return value && *value >= 0 && *value < p ? value : std::nullopt;
}

union Cell {
    int32_t word;
    double real;
    Object object;
};

mpz_class cell_value(const Cell &cell, int32_t datatype) {
    if (datatype == MODLA_INTEGER4) return cell.word;
    if (datatype == MODLA_FLOAT8) return mpz_class(cell.real);
    return integer_of(cell.object);
}

Cell sentinel() {
    Cell cell;
    std::memset(&cell, 0xa5, sizeof cell);
    return cell;
}

bool is_sentinel(const Cell &cell) {
    const Cell untouched = sentinel();
    return std::memcmp(&cell, &untouched, sizeof cell) == 0;
}

const char *const moduli[] = {"-10^30", "-10^12",    "-2^30",    "1-2^30",  "-7",    "-1",      "0",
                              "1",      "2",         "3",        "5",       "101",   "65534",   "65535",
                              "65536",  "65537",     "33554430", "2^25-1",  "2^25",  "2^25+1",  "2^30-1",
                              "2^30",   "2^30+1",    "10^12",    "10^12+1", "10^30", "2.0",     "7/2",
                              "'p'",    "\"seven\"", "[7]",      "NULL",    "7..7",  "integer", "7.5"};

// Fill values near the ends of 0..p-1, and things that are none.
std::vector<std::string> fills_for(const std::string &p) {
    std::vector<std::string> fills = {
        "0",       "1",     "-1",      "0.5",   "-0.5",   "-0.50000001", "-0.49999", "0.49999999999999994",
        "-0.0",    "2.5",   "1/2",     "-1/2",  "-2/3",   "7/3",         "1e300",    "-1e300",
        "0/0.0",   "1/0.0", "-1/0.0",  "2^30",  "-2^30",  "10^12",       "-10^12",   "1-10^12",
        "10^12-1", "10^29", "-10^29",  "10^30", "-10^30", "9*10^400",    "'x'",      "\"3\"",
        "[1]",     "NULL",  "integer", "1e-320"};
    for (const char *offset : {"-1", "+0", "+1", "-0.5", "-0.50000001", "-1.5", "-1/2", "-2/3", "-0.999", "-0.99"}) {
        fills.push_back("(" + p + ")" + offset);
    }
    return fills;
}

bool computes(const std::string &text) {
    return message_of([&] { eval(text); }).empty();
}

TEST(Modulus, AndFillValuesOfEveryDatatype) {
    int accepted = 0, refused = 0;
    for (const std::string modulus_text : moduli) {
        const Object modulus = eval(modulus_text);
        for (const int32_t datatype : {0, 4, 6, 1, 5, -1}) {
            const std::string modulus_message = expected_modulus_message(modulus, datatype);
            for (const std::string &fill_text : fills_for(modulus_text)) {
                if (!computes(fill_text)) continue;
                const Object fill = eval(fill_text);
                std::string expected = modulus_message;
                std::optional<mpz_class> residue;
                if (expected.empty()) {
                    residue = expected_residue(integer_of(modulus), datatype, fill);
                    if (!residue) expected = "weight value must be an integral numeric value in the range 0..modulus-1";
                }
                (residue ? accepted : refused)++;
                const std::string context = modulus_text + ", " + fill_text + ", datatype " + std::to_string(datatype);

                Cell out_modulus = sentinel(), out_fill = sentinel();
                const auto call = [&](const HostApi &api) {
                    validate_modulus(&api, modulus, &out_modulus, datatype, &fill, &out_fill, "weight", 0);
                };
                ASSERT_EQ(message_of([&] { call(host_api()); }), expected) << context;
                if (residue) {
                    EXPECT_EQ(cell_value(out_modulus, datatype), integer_of(modulus)) << context;
                    EXPECT_EQ(cell_value(out_fill, datatype), *residue) << context;
                    if (datatype == MODLA_INTEGER) {
                        EXPECT_EQ(out_modulus.object, modulus) << context;
                        EXPECT_EQ(out_fill.object, fill) << context;
                    }
                    if (datatype == MODLA_FLOAT8) {
                        EXPECT_FALSE(std::signbit(out_fill.real)) << context;
                    }
                } else {
                    EXPECT_TRUE(is_sentinel(out_fill)) << context;
                    if (!modulus_message.empty()) {
                        EXPECT_TRUE(is_sentinel(out_modulus)) << context;
                    }
                    const HostApi api = recording_host();
                    call(api);
                    EXPECT_EQ(raised_messages, std::vector{expected}) << context;
                    EXPECT_TRUE(is_sentinel(out_fill)) << context;
                }
            }
        }
    }
    EXPECT_GT(accepted, 300);
    EXPECT_GT(refused, 1000);
}

TEST(Modulus, WithoutAFillValue) {
    for (const std::string text : moduli) {
        const Object modulus = eval(text);
        for (const int32_t datatype : {0, 4, 6, 2}) {
            const std::string message = expected_modulus_message(modulus, datatype);
            for (const int32_t default_fill : {0, 1}) {
                for (const bool fill_is_wanted : {false, true}) {
                    // Where no residue is wanted, a bad fill value is not looked at.
                    const Object bad_fill = immediate(-1);
                    Cell out_modulus = sentinel(), out_fill = sentinel();
                    EXPECT_EQ(message_of([&] {
                                  validate_modulus(&host_api(), modulus, &out_modulus, datatype,
                                                   fill_is_wanted ? nullptr : &bad_fill,
                                                   fill_is_wanted ? &out_fill : nullptr, "fill", default_fill);
                              }),
                              message)
                        << text;
                    const bool stored = fill_is_wanted && message.empty();
                    EXPECT_EQ(is_sentinel(out_fill), !stored) << text;
                    if (stored) {
                        EXPECT_EQ(cell_value(out_fill, datatype), default_fill) << text;
                    }
                    if (message.empty()) {
                        EXPECT_EQ(cell_value(out_modulus, datatype), integer_of(modulus)) << text;
                    }
                }
            }
        }
    }
}

// Only the float representation looks at a default fill value.
TEST(Modulus, DefaultFillValuesOutOfRange) {
    for (const int32_t default_fill : {3, 5, -1}) {
        for (const int32_t datatype : {0, 4, 6}) {
            Cell out_modulus, out_fill = sentinel();
            const std::string error = message_of([&] {
                validate_modulus(&host_api(), immediate(3), &out_modulus, datatype, nullptr, &out_fill, "fill",
                                 default_fill);
            });
            if (datatype == MODLA_FLOAT8) {
                EXPECT_EQ(error, "fill value must be an integral numeric value in the range 0..modulus-1");
                EXPECT_TRUE(is_sentinel(out_fill));
            } else {
                EXPECT_EQ(error, "");
                EXPECT_EQ(cell_value(out_fill, datatype), default_fill);
            }
        }
    }
}

TEST(Modulus, RoleWordsFillABufferOf200Characters) {
    const std::string text = " value must be an integral numeric value in the range 0..modulus-1";
    for (const std::string &word : {std::string("multiplier"), std::string(), std::string(132, 'x'),
                                    std::string(133, 'x'), std::string(134, 'x'), std::string(5000, 'x')}) {
        for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}) {
            const Object fill = immediate(7);
            Cell out_modulus, out_fill;
            EXPECT_EQ(message_of([&] {
                          validate_modulus(&host_api(), immediate(7), &out_modulus, datatype, &fill, &out_fill,
                                           word.c_str(), 0);
                      }),
                      (word + text).substr(0, 199));
        }
    }
}

TEST(IntegerModulus, MustBeAtLeastTwo) {
    for (const std::string text : moduli) {
        const Object modulus = eval(text);
        const std::string expected = !is_integer(modulus)      ? "modulus must be an integer > 1"
                                     : integer_of(modulus) < 2 ? "modulus must be at least 2"
                                                               : "";
        EXPECT_EQ(message_of([&] { validate_integer_modulus(&host_api(), modulus); }), expected) << text;
        const HostApi api = recording_host();
        validate_integer_modulus(&api, modulus);
        EXPECT_EQ(raised_messages.size(), expected.empty() ? 0u : 1u) << text;
    }
}

// An integer around the places where the representation changes.
mpz_class random_integer(Random &random) {
    const mpz_class edges[] = {0,
                               1,
                               most_immediate,
                               most_immediate + 1,
                               mpz_class("9999999999"),
                               mpz_class("10000000000"),
                               mpz_class("999999999999"),
                               mpz_class("1000000000000"),
                               mpz_class("10000000000000000")};
    mpz_class value = chance(random, 40) ? pick(random, edges) : mpz_class(0);
    if (chance(random, 60)) {
        mpz_class tail = 0;
        for (uint64_t bits = below(random, 160); bits > 0; bits--) tail = 2 * tail + chance(random, 50);
        value += tail;
    }
    if (chance(random, 30)) value += between(random, -2, 2);
    return chance(random, 50) ? value : mpz_class(-value);
}

TEST(IntegerValue, LiesBelowTheModulus) {
    Random random(5);
    int counts[2] = {}, near = 0;
    for (int round = 0; round < 20000; round++) {
        mpz_class m = abs(random_integer(random)) + 2;
        mpz_class v = random_integer(random);
        if (chance(random, 40)) {
            v = m + between(random, -2, 2);
            if (chance(random, 40)) v = -v;
            near++;
        }
        const Object modulus = integer_object(m), value = integer_object(v);
        const int32_t expected = is_residue(m, v) ? 0 : 1;
        ASSERT_EQ(validate_integer_value(modulus, value), expected) << m << ", " << v;
        counts[expected]++;
    }
    EXPECT_GT(std::min(counts[0], counts[1]), 3000);
    EXPECT_GT(near, 3000);
}

TEST(IntegerValue, ThatIsNoIntegerIsNoResidueOfASmallModulus) {
    for (const char *text : {"2.0", "1/2", "'x'", "[1]", "\"1\"", "NULL"}) {
        EXPECT_EQ(validate_integer_value(immediate(7), eval(text)), 1) << text;
    }
}

TEST(IntegerValue, IsNotComparedWithAModulusOfAnotherKind) {
    const Object negative = eval("-10^12");
    EXPECT_EQ(validate_integer_value(negative, eval("10^11")), 1);
    EXPECT_EQ(validate_integer_value(negative, eval("-10^11")), 1);
    EXPECT_EQ(validate_integer_value(negative, immediate(5)), 0);
    EXPECT_EQ(validate_integer_value(negative, immediate(-5)), 1);
}

// ---- Unknowns ----

TEST(Unknown, IsTheFirstMatch) {
    Random random(6);
    Roots atoms;  // what lists and powers are made of
    for (const char *text : {"'x'", "'y'", "x[1]", "1", "2", "3", "-1", "10^20", "10^20"}) {
        atoms.values.push_back(eval(text));
    }
    int found = 0;
    for (int round = 0; round < 5000; round++) {
        Roots list;
        struct Entry {
            Object plain, base, exponent;  // plain, or a power
        };
        std::vector<Entry> entries;
        const auto atom = [&] { return pick(random, atoms.values); };
        for (uint64_t n = below(random, 8); n > 0; n--) {
            Entry entry = {atom(), 0, 0};
            if (chance(random, 60)) {
                entry = {0, atom(), atom()};
                list.values.push_back(new_object(chance(random, 80) ? 3 : 5, MODLA_TYPE_POWER));
                words(list.values.back())[1] = entry.base;
                words(list.values.back())[2] = entry.exponent;
                if (length_of(list.values.back()) != 3) entry = {list.values.back(), 0, 0};
            } else if (chance(random, 20)) {
                entry.plain = new_pair(type_equation, atom(), atom());  // as long as a power
                list.values.push_back(entry.plain);
            } else {
                list.values.push_back(entry.plain);
            }
            entries.push_back(entry);
        }
        const Object x = atom(), e = chance(random, 50) ? immediate(1) : atom();
        const auto match = std::find_if(entries.begin(), entries.end(), [&](const Entry &entry) {
            return e == immediate(1) ? entry.plain == x : entry.base == x && entry.exponent == e;
        });
        const int32_t expected = match == entries.end() ? -1 : static_cast<int32_t>(match - entries.begin());
        const int32_t n = static_cast<int32_t>(entries.size());
        ASSERT_EQ(isUnkn(x, e, list.values.data(), n), expected);
        if (expected >= 0) {
            ASSERT_EQ(isUnkn(x, e, list.values.data(), expected), -1) << "beyond the list";
        }
        found += expected >= 0;
    }
    EXPECT_GT(found, 200);
}

// ---- New tables ----

TEST(NewTable, HasTheShapeThatTheSizesAskFor) {
    for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t order : {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}) {
            for (const int32_t rows : {0, 1, 2, 7}) {
                for (const int32_t columns : {0, 1, 2, 7}) {
                    if (rows == 0 && columns == 0) continue;
                    const Table &table = table_of(new_modLA_rtable(&host_api(), rows, columns, datatype, order));
                    RtableSettings expected = default_settings();
                    expected.datatype = datatype;
                    expected.order = order;
                    expected.storage = MODLA_RECTANGULAR;
                    expected.subtype = columns == 0 ? MODLA_COLUMN_VECTOR : rows == 0 ? MODLA_ROW_VECTOR : MODLA_MATRIX;
                    expected.num_dimensions = rows == 0 || columns == 0 ? 1 : 2;
                    EXPECT_EQ(std::memcmp(&table.settings, &expected, sizeof expected), 0)
                        << rows << " x " << columns << ": " << describe_table(table);
                    EXPECT_EQ(table_rows(table), std::max(rows, 1));
                    EXPECT_EQ(table_columns(table), std::max(columns, 1));
                }
            }
        }
    }
}

TEST(NewTable, HasADimension) {
    const std::string message = "object for create cannot be zero dimensional";
    for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}) {
        EXPECT_EQ(message_of([&] { new_modLA_rtable(&host_api(), 0, 0, datatype, MODLA_C_ORDER); }), message);
        const HostApi api = recording_host();
        EXPECT_EQ(new_modLA_rtable(&api, 0, 0, datatype, MODLA_C_ORDER), null_value());
        EXPECT_EQ(raised_messages, std::vector{message});
    }
}

// ---- Selections ----

constexpr int32_t unset = -12345;

// What process_subspec reports.
struct Selection {
    int32_t position, datatype = unset, order = unset;
    int32_t rows = unset, row_step = unset, columns = unset, column_step = unset;
    const char *data = nullptr;
    bool operator==(const Selection &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Selection &s) {
    return out << "position " << s.position << ", datatype " << s.datatype << ", order " << s.order << ", rows "
               << s.rows << " by " << s.row_step << ", columns " << s.columns << " by " << s.column_step << " at "
               << static_cast<const void *>(s.data);
}

struct Requirement {
    int32_t datatype = -1, rows = -1, columns = -1, transpose = 1;
};

// Calls process_subspec with the wanted out pointers (bits of `wanted`).
Selection select(const HostApi &api, Object arguments, int32_t position, int32_t n, const Requirement &required,
                 unsigned wanted = ~0u) {
    Selection s{position};
    const auto out = [&](unsigned bit, int32_t &cell) { return wanted >> bit & 1 ? &cell : nullptr; };
    s.data = static_cast<const char *>(process_subspec(&api, words(arguments), &s.position, n, required.datatype,
                                                       required.rows, required.columns, required.transpose,
                                                       out(0, s.datatype), out(1, s.order), out(2, s.rows),
                                                       out(3, s.row_step), out(4, s.columns), out(5, s.column_step)));
    return s;
}

// One dimension of the model: the indices that were selected, from 0.
struct Indices {
    enum class How { absent, all, range, single } how = How::absent;
    int32_t bound = 0;
    std::vector<int32_t> chosen = {0};  // of an absent dimension: its only one
};

struct Message {
    std::string text;
};

std::vector<int32_t> run_of(int32_t first, int32_t count) {
    std::vector<int32_t> indices;
    for (int32_t k = 0; k < count; k++) indices.push_back(first + k);
    return indices;
}

// The position from 0 that an end of a selection names.
int32_t place(Object end, int32_t bound, const std::string &out_of_range) {
    mpz_class i = is_integer(end) ? integer_of(end) : mpz_class(0);
    if (i < 0) i += bound + 1;
    if (i < 1 || i > bound) throw Message{out_of_range};
    return static_cast<int32_t>(i.get_si()) - 1;
}

Indices read_indices(const std::vector<Object> &arguments, size_t *at, int32_t bound, const std::string &kind,
                     const std::string &out_of_range) {
    Indices result{Indices::How::all, bound, run_of(0, bound)};
    if (*at == arguments.size()) return result;
    const Object argument = arguments[*at];
    if (is_integer(argument)) {
        result = {Indices::How::single, bound, {place(argument, bound, out_of_range)}};
    } else if (has_type(argument, type_range)) {
        const int32_t first = place(words(argument)[1], bound, out_of_range);
        const int32_t last = place(words(argument)[2], bound, out_of_range);
        if (first > last) throw Message{kind + " range cannot be empty"};
        result = {Indices::How::range, bound, run_of(first, last - first + 1)};
    } else {
        return result;
    }
    ++*at;
    return result;
}

// Brings the indices to the required number; returns the reported count.
int32_t require(Indices *indices, int32_t required, int32_t argno, const std::string &kind) {
    const std::string argument = "argument " + std::to_string(argno);
    const std::string prior = " required by prior arguments", where = " where prior arguments require a " + kind + " ";
    const int32_t count = static_cast<int32_t>(indices->chosen.size());
    switch (indices->how) {
        case Indices::How::absent:
            if (required > 0) throw Message{argument + " is a " + kind + " object" + where + "dimension"};
            return 0;
        case Indices::How::all:
            if (required == 0) throw Message{argument + " has a " + kind + " dimension" + where + "object"};
            if (required > 0 && required != count) {
                throw Message{argument + " has a different number of " + kind + "s than" + prior};
            }
            return count;
        case Indices::How::range:
            if (required == 0) throw Message{argument + " has a " + kind + " dimension" + where + "object"};
            if (required > 0 && required != count) {
                throw Message{argument + " has " + (count > required ? "more " : "fewer ") + kind + "s than" + prior};
            }
            return count;
        default:
            if (required <= 0) return 0;
            indices->chosen = run_of(indices->chosen[0], required);
            if (indices->chosen.back() >= indices->bound) {
                throw Message{argument + " shortcut specification has fewer " + kind + "s than" + prior};
            }
            return required;
    }
}

// The selected cells of a table, found by listing them; throws Message.
struct Model {
    Selection reported;
    std::vector<std::vector<const char *>> cells;
};

Model model_selection(std::vector<Object> arguments, int32_t position, int32_t n, const Requirement &required) {
    arguments.resize(static_cast<size_t>(n));
    const std::string argument = "argument " + std::to_string(position);
    const Object object = arguments[static_cast<size_t>(position - 1)];
    if (!has_type(object, type_table)) throw Message{argument + " must be a modp Matrix or Vector"};
    const Table &table = table_of(object);
    const RtableSettings &settings = table.settings;
    if (required.datatype != -1 && required.datatype != settings.datatype) {
        throw Message{argument + " has incorrect datatype"};
    }
    if (settings.datatype != 0 && settings.datatype != 4 && settings.datatype != 6) {
        throw Message{argument + " has invalid datatype"};
    }
    if (settings.storage != 4) throw Message{argument + " has invalid storage"};
    if (settings.subtype < 1 || settings.subtype > 3) throw Message{argument + " must be a Matrix or Vector"};

    size_t at = static_cast<size_t>(position);
    const bool is_matrix = settings.subtype == MODLA_MATRIX;
    const std::string out_of_range = is_matrix ? "Matrix index out of range" : "Vector index out of range";
    Indices rows, columns;
    if (settings.subtype != MODLA_ROW_VECTOR) {
        rows = read_indices(arguments, &at, table.bounds[0], "row", out_of_range);
    }
    if (settings.subtype != MODLA_COLUMN_VECTOR) {
        columns = read_indices(arguments, &at, is_matrix ? table.bounds[1] : table.bounds[0], "column", out_of_range);
    }
    const int32_t m = table.bounds[0], k = table.bounds[1];
    int32_t row_step = is_matrix ? (settings.order == MODLA_C_ORDER ? k : 1) : 1;
    int32_t column_step = is_matrix ? (settings.order == MODLA_C_ORDER ? 1 : m) : 1;
    if (rows.how == Indices::How::absent) row_step = 0;
    if (columns.how == Indices::How::absent) column_step = 0;
    const bool transposed = required.transpose && at < arguments.size() && arguments[at] == global_name("transpose");
    if (transposed) {
        at++;
        std::swap(rows, columns);
        std::swap(row_step, column_step);
    }
    Model model;
    const int32_t row_count = require(&rows, required.rows, position, "row");
    const int32_t column_count = require(&columns, required.columns, position, "column");
    const auto cell = [&](int32_t i, int32_t j) {
        if (transposed) std::swap(i, j);
        const int32_t index = !is_matrix ? i + j : settings.order == MODLA_C_ORDER ? i * k + j : j * m + i;
        return static_cast<const char *>(table.data) +
               index * static_cast<int32_t>(modla_test::entry_bytes(settings.datatype));
    };
    for (const int32_t i : rows.chosen) {
        model.cells.emplace_back();
        for (const int32_t j : columns.chosen) model.cells.back().push_back(cell(i, j));
    }
    model.reported = {static_cast<int32_t>(at) + 1,
                      settings.datatype,
                      settings.order,
                      row_count,
                      row_step,
                      column_count,
                      column_step,
                      nullptr};
    return model;
}

Object random_table(Random &random) {
    const int32_t datatypes[] = {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8};
    const int32_t subtypes[] = {MODLA_MATRIX, MODLA_MATRIX, MODLA_COLUMN_VECTOR, MODLA_ROW_VECTOR};
    const int32_t odd_datatypes[] = {1, 2, 3, 5, 7, -1}, odd_subtypes[] = {MODLA_ARRAY, 4, -1};
    const int32_t datatype = chance(random, 3) ? pick(random, odd_datatypes) : pick(random, datatypes);
    const int32_t subtype = chance(random, 3) ? pick(random, odd_subtypes) : pick(random, subtypes);
    const int32_t storage = chance(random, 3) ? between(random, 0, 3) : MODLA_RECTANGULAR;
    const auto size = [&] { return chance(random, 4) ? 0 : between(random, 1, 6); };
    const int32_t rows = size(), columns = size();
    return make_table(datatype, subtype, between(random, 0, 1), rows, columns, storage);
}

Object random_selector(Random &random, int32_t bound) {
    const auto index = [&]() -> Object {
        if (chance(random, 3)) return eval(chance(random, 50) ? "10^20" : "-10^20");
        const int32_t reach = chance(random, 80) ? bound : bound + 2;
        const int32_t i = between(random, 0, reach);
        return immediate(chance(random, 30) ? -i : i);
    };
    if (chance(random, 25)) return global_name("transpose");
    if (chance(random, 8)) {
        const char *const others[] = {"\"transpose\"", "2.0",   "1/2",     "'x'", "[1, 2]",
                                      "NULL",          "1 = 2", "C_order", "x[1]"};
        return eval(pick(random, others));
    }
    if (chance(random, 40)) return index();
    Roots ends;
    for (int side = 0; side < 2; side++) ends.values.push_back(index());
    if (chance(random, 4)) ends.values[below(random, 2)] = eval(chance(random, 50) ? "1.0" : "'x'");
    return new_pair(type_range, ends.values[0], ends.values[1]);
}

// Random arguments: some others, then at `position` mostly a table, then selections.
int32_t random_arguments(Random &random, Roots *arguments) {
    const int32_t position = between(random, 1, 4);
    for (int32_t i = 1; i < position; i++) arguments->values.push_back(immediate(i));
    arguments->values.push_back(chance(random, 97) ? random_table(random) : random_selector(random, 3));
    for (int32_t count = between(random, 0, 4); count > 0; count--) {
        arguments->values.push_back(random_selector(random, 5));
    }
    return position;
}

TEST(Subspec, SelectsTheCellsOfTheModel) {
    Random random(7);
    std::map<std::string, int> messages;
    int blocks = 0, transposed = 0;
    for (int round = 0; round < 60000; round++) {
        Roots arguments;
        const int32_t position = random_arguments(random, &arguments);
        const int32_t length = static_cast<int32_t>(arguments.values.size());
        const int32_t n = chance(random, 80) ? length : between(random, position, length);
        const int32_t datatypes[] = {-1, -1, -1, -1, 0, 4, 6};
        const auto count = [&] { return chance(random, 40) ? -1 : between(random, 0, 4); };
        const Requirement required = {pick(random, datatypes), count(), count(), between(random, 0, 1)};
        const Object array = new_sequence(arguments.values);
        std::string context = "(";
        for (const Object argument : arguments.values) context += to_line(argument) + "; ";
        context += ") position " + std::to_string(position) + " of " + std::to_string(n) + ", required: datatype " +
                   std::to_string(required.datatype) + ", rows " + std::to_string(required.rows) + ", columns " +
                   std::to_string(required.columns) + ", transpose " + std::to_string(required.transpose);

        std::string expected;
        Model model;
        try {
            model = model_selection(arguments.values, position, n, required);
        } catch (const Message &message) {
            expected = message.text;
        }
        Selection selection{position};
        ASSERT_EQ(message_of([&] { selection = select(host_api(), array, position, n, required); }), expected)
            << context;
        messages[expected.substr(std::min(expected.size(), expected.find_first_not_of("argument 0123456789")))]++;
        if (!expected.empty()) {
            const HostApi api = recording_host();
            selection = select(api, array, position, n, required);
            ASSERT_EQ(raised_messages, std::vector{expected}) << context;
            selection.position = position;
            ASSERT_EQ(selection, Selection{position}) << context;
            continue;
        }
        Selection reported = selection;
        reported.data = nullptr;
        ASSERT_EQ(reported, model.reported) << context;
        const int32_t bytes = static_cast<int32_t>(modla_test::entry_bytes(selection.datatype));
        for (size_t i = 0; i < model.cells.size(); i++) {
            for (size_t j = 0; j < model.cells[i].size(); j++) {
                const int32_t offset =
                    static_cast<int32_t>(i) * selection.row_step + static_cast<int32_t>(j) * selection.column_step;
                ASSERT_EQ(selection.data + offset * bytes, model.cells[i][j]) << context << i << ", " << j;
            }
        }
        blocks++;
        transposed += selection.position > position + 1 &&
                      arguments.values[static_cast<size_t>(selection.position - 2)] == global_name("transpose");

        // Out pointers are optional, each by itself.
        const unsigned wanted = static_cast<unsigned>(below(random, 64));
        const Selection part = select(host_api(), array, position, n, required, wanted);
        int32_t Selection::*const fields[] = {&Selection::datatype, &Selection::order,   &Selection::rows,
                                              &Selection::row_step, &Selection::columns, &Selection::column_step};
        for (unsigned bit = 0; bit < 6; bit++) {
            const auto field = fields[bit];
            ASSERT_EQ(part.*field, wanted >> bit & 1 ? selection.*field : unset) << context;
        }
        ASSERT_EQ(part.data, selection.data);
        ASSERT_EQ(part.position, selection.position);
    }
    EXPECT_GT(blocks, 5000);
    EXPECT_GT(transposed, 1000);
    EXPECT_EQ(messages.size(), 1u + 7u + 2u * 7u);
    for (const auto &[message, times] : messages) EXPECT_GT(times, 20) << message;
}

// ---- Views ----

struct View {
    Object object;
    int32_t row_shift = unset, column_shift = unset;
};

View make_view(const HostApi &api, Object parent, void *data, int32_t rows, int32_t columns, int32_t row_step,
               int32_t column_step) {
    View view;
    view.object = data_to_modLA_rtable(&api, parent, data, rows, columns, row_step, column_step, &view.row_shift,
                                       &view.column_shift);
    return view;
}

Object *entries_of(Object table) {
    return static_cast<Object *>(table_of(table).data);
}

// A table of distinct host integers.
Object numbered_table(int32_t subtype, int32_t order, int32_t rows, int32_t columns) {
    const Object table = make_table(MODLA_INTEGER, subtype, order, rows, columns);
    for (int32_t k = 0; k < rows * columns; k++) entries_of(table)[k] = immediate(k);
    return table;
}

TEST(View, ShowsTheBlockAtTheReportedShifts) {
    Random random(8);
    int shifted = 0, parents = 0, views = 0;
    for (int round = 0; round < 60000; round++) {
        const int32_t subtypes[] = {MODLA_MATRIX, MODLA_MATRIX, MODLA_MATRIX, MODLA_COLUMN_VECTOR, MODLA_ROW_VECTOR};
        const int32_t subtype = pick(random, subtypes);
        const int32_t rows = subtype == MODLA_ROW_VECTOR ? 1 : between(random, 1, 6);
        const int32_t columns = subtype == MODLA_COLUMN_VECTOR ? 1 : between(random, 1, 6);
        Roots arguments;
        arguments.values.push_back(numbered_table(subtype, between(random, 0, 1), rows, columns));
        while (chance(random, 70)) {
            arguments.values.push_back(random_selector(random, std::min(rows, columns)));
        }
        const Object parent = arguments.values[0];
        Model model;
        try {
            model = model_selection(arguments.values, 1, static_cast<int32_t>(arguments.values.size()), {});
        } catch (const Message &) {
            continue;
        }
        const auto &[position, datatype, order, m, row_step, n, column_step, none] = model.reported;
        if (row_step == 1 && column_step == 1) continue;  // see below
        void *const data = const_cast<char *>(model.cells[0][0]);
        const View view = make_view(host_api(), parent, data, std::max(m, 1), std::max(n, 1), row_step, column_step);
        const Table &table = table_of(view.object);
        std::string context = to_line(view.object) + " of";
        for (const Object argument : arguments.values) context += " " + to_line(argument);

        // Reading and writing through the view reaches the block's cells.
        for (size_t i = 0; i < model.cells.size(); i++) {
            for (size_t j = 0; j < model.cells[i].size(); j++) {
                const int32_t r = static_cast<int32_t>(i) + 1 + view.row_shift;
                const int32_t c = static_cast<int32_t>(j) + 1 + view.column_shift;
                const Object *const cell = reinterpret_cast<const Object *>(model.cells[i][j]);
                ASSERT_EQ(message_of([&] { ASSERT_EQ(get_entry(table, r, c), *cell) << context; }), "") << context;
                const Object old = *cell;
                set_entry(table, r, c, immediate(-1));
                ASSERT_EQ(*cell, immediate(-1)) << context;
                set_entry(table, r, c, old);
            }
        }
        // All of the view lies within the parent's entries.
        const Object *const first = static_cast<const Object *>(table.data);
        ASSERT_GE(first, entries_of(parent)) << context;
        ASSERT_LE(first + table_rows(table) * table_columns(table), entries_of(parent) + rows * columns) << context;

        const bool whole = subtype == MODLA_MATRIX && data == entries_of(parent) &&
                           (order == MODLA_C_ORDER ? column_step : row_step) == 1;
        ASSERT_EQ(view.object == parent, whole) << context;
        if (!whole) {
            RtableSettings expected = default_settings();
            expected.datatype = MODLA_INTEGER;
            expected.view = 1;
            const bool along_lines = row_step != 0 && column_step != 0;
            expected.order = !along_lines ? order : row_step == 1 ? MODLA_FORTRAN_ORDER : MODLA_C_ORDER;
            ASSERT_EQ(std::memcmp(&table.settings, &expected, sizeof expected), 0) << context;
        }
        shifted += view.row_shift > 0 || view.column_shift > 0;
        (whole ? parents : views)++;
    }
    EXPECT_GT(shifted, 800);
    EXPECT_GT(parents, 500);
    EXPECT_GT(views, 3000);
}

TEST(View, OfDocumentedBlocks) {
    Roots held;
    const Object rows = numbered_table(MODLA_MATRIX, MODLA_C_ORDER, 4, 6);
    const Object columns = numbered_table(MODLA_MATRIX, MODLA_FORTRAN_ORDER, 4, 6);
    held.values = {rows, columns};
    View view = make_view(host_api(), rows, entries_of(rows) + 12, 2, 6, 6, 1);
    EXPECT_EQ(to_line(view.object), "<2 x 6 Matrix, integer, C_order>");
    EXPECT_EQ(table_of(view.object).data, entries_of(rows) + 12);
    EXPECT_EQ(view.row_shift, 0);
    EXPECT_EQ(view.column_shift, 0);
    view = make_view(host_api(), columns, entries_of(columns) + 2 * 4 + 3, 1, 4, 1, 4);
    EXPECT_EQ(to_line(view.object), "<4 x 4 Matrix, integer, Fortran_order>");
    EXPECT_EQ(view.row_shift, 3);
    EXPECT_EQ(view.column_shift, 0);
    EXPECT_EQ(table_of(view.object).data, entries_of(columns) + 2 * 4);
    // The size does not matter when the block starts where its parent starts.
    EXPECT_EQ(make_view(host_api(), rows, entries_of(rows), 100, 1, 6, 1).object, rows);
    EXPECT_EQ(make_view(host_api(), columns, entries_of(columns), 1, 100, 1, 4).object, columns);
    // Both steps 1: by columns of one entry.
    const Object narrow = numbered_table(MODLA_MATRIX, MODLA_C_ORDER, 4, 1);
    view = make_view(host_api(), narrow, entries_of(narrow) + 2, 1, 1, 1, 1);
    EXPECT_EQ(to_line(view.object), "<1 x 1 Matrix, integer, Fortran_order>");
}

TEST(View, WithoutAParentTakesTheDataAsItLies) {
    const Object store = numbered_table(MODLA_MATRIX, MODLA_FORTRAN_ORDER, 4, 6);
    const struct {
        int32_t rows, columns, row_step, column_step;
        const char *description;
    } cases[] = {{1, 5, 0, 1, "<1 x 5 Matrix, integer, C_order>"},
                 {3, 1, 1, 0, "<3 x 1 Matrix, integer, C_order>"},
                 {2, 3, 1, 4, "<4 x 3 Matrix, integer, Fortran_order>"},
                 {2, 3, 4, 1, "<2 x 4 Matrix, integer, C_order>"}};
    for (const auto &[rows, columns, row_step, column_step, description] : cases) {
        const View view = make_view(host_api(), 0, entries_of(store) + 1, rows, columns, row_step, column_step);
        EXPECT_EQ(to_line(view.object), description);
        EXPECT_EQ(table_of(view.object).data, entries_of(store) + 1);
        EXPECT_EQ(view.row_shift, 0);
        EXPECT_EQ(view.column_shift, 0);
    }
}

TEST(View, OfAnImpossibleBlockIsRefused) {
    const Object A = numbered_table(MODLA_MATRIX, MODLA_C_ORDER, 3, 3);
    const Object B = make_table(MODLA_FLOAT8, MODLA_MATRIX, MODLA_C_ORDER, 3, 3);
    const Object V = make_table(MODLA_INTEGER4, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 3);
    char *const b = static_cast<char *>(table_of(B).data);
    const struct {
        Object parent;
        void *data;
        int32_t rows, columns, row_step, column_step;
        const char *message;
    } cases[] = {
        {B, b + 8, 1, 1, 3, 1, "invalid datatype for new rtable"},
        {B, b, 1, 1, 1, 3, "invalid datatype for new rtable"},
        {V, table_of(V).data, 1, 3, 0, 1, "invalid datatype for new rtable"},
        {V, table_of(V).data, 2, 3, 0, 1, "invalid datatype for new rtable"},
        {A, entries_of(A), 2, 3, 0, 1, "invalid input (row use) for new rtable"},
        {A, entries_of(A), 0, 3, 0, 1, "invalid input (row use) for new rtable"},
        {A, entries_of(A), 2, 3, 0, 0, "invalid input (row use) for new rtable"},
        {0, entries_of(A), 2, 3, 0, 1, "invalid input (row use) for new rtable"},
        {A, entries_of(A), 2, 3, 1, 0, "invalid input (column use) for new rtable"},
        {0, entries_of(A), 2, 3, 3, 0, "invalid input (column use) for new rtable"},
        {A, entries_of(A), 2, 3, 3, 2, "invalid input (ordering parameters) for new rtable"},
        {0, entries_of(A), 2, 3, 2, 2, "invalid input (ordering parameters) for new rtable"},
        {A, entries_of(A) + 1, 2, 4, 1, 3, "internal error"},
        {A, entries_of(A) + 8, 4, 1, 3, 1, "internal error"},
    };
    for (const auto &[parent, data, rows, columns, row_step, column_step, message] : cases) {
        EXPECT_EQ(message_of([&] { make_view(host_api(), parent, data, rows, columns, row_step, column_step); }),
                  message);
        const HostApi api = recording_host();
        const View view = make_view(api, parent, data, rows, columns, row_step, column_step);
        EXPECT_EQ(view.object, null_value()) << message;
        EXPECT_EQ(raised_messages, std::vector<std::string>{message});
        EXPECT_EQ(view.row_shift, 0);
        EXPECT_EQ(view.column_shift, 0);
    }
    EXPECT_EQ(make_view(host_api(), B, b, 3, 3, 3, 1).object, B) << "its datatype does not matter";
}

}  // namespace
