// The binding helpers against plain models: registration, datatypes, moduli, tables, views, selections, flexible input.
#include <array>
#include <cmath>
#include <map>
#include <optional>

#include "tests/support/host.h"

using namespace modla_test;

namespace {

// The message of calls that are made in every host; the results are those where errors return.
std::string message_everywhere(const std::function<void()> &calls) {
    host = {};
    host.conditions.mode = current_fp_mode();
    std::string messages[3];
    for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
        host.leaving = leaving;
        messages[static_cast<int>(leaving)] = attempt(calls).message;
        EXPECT_LE(host.messages.size(), 1u);
    }
    EXPECT_EQ(host.violations, std::vector<std::string>{});
    EXPECT_TRUE(messages[0] == messages[1] && messages[1] == messages[2]) << messages[0];
    return messages[0];
}

// ---- Registration ----

TEST(Registration, TheLatestProcedureIsAskedWithTheParsedName) {
    const auto echo = [](int32_t marker) {
        return make_native("echo", [marker](const std::vector<Object> &arguments) {
            Roots values;
            values.values = arguments;
            values.values.insert(values.values.begin(), immediate(marker));
            return new_collection(type_list, values.values);
        });
    };
    host = {};
    for (int32_t marker = 1; marker < 4; marker++) {
        const Object procedure = echo(marker);
        EXPECT_EQ(call_entry("Register", {procedure}).result, procedure);
        for (const char *more : {"Register()", "Register(x, x)", "Register(x, x, x)"}) {
            EXPECT_EQ(call(more).message, "incorrect number of arguments");
        }
        EXPECT_EQ(to_text(modLA_getfcn(&host_api(), "f[2]")), "[" + std::to_string(marker) + ", f[2]]");
        EXPECT_EQ(element(modLA_getfcn(&host_api(), "cbX"), 1), global_name("cbX"));
    }
    call_entry("Register", {make_native("failing", [](const auto &) -> Object { throw HostError("none"); })});
    EXPECT_EQ(message_of([] { modLA_getfcn(&host_api(), "cbX"); }), "none");
    load_library(MODLA_LIBRARY);  // registers the console's procedure again
}

// ---- Datatypes ----

TEST(Datatype, OfEveryKindOfArgument) {
    Roots held;
    std::vector<std::pair<Object, int32_t>> cases;
    const auto add = [&](Object object, int32_t code) {
        held.values.push_back(object);
        cases.emplace_back(object, code);
    };
    add(eval("integer"), MODLA_INTEGER), add(eval("integer[4]"), MODLA_INTEGER4);
    add(eval("integer[]"), MODLA_INTEGER4), add(eval("float[8]"), MODLA_FLOAT8);
    for (const Object other : arguments(
             "float, float[], float[4], float[8, 8], integer[8], integer[0], integer[4, 4], integer[4.0], "
             "integer[-4], integer[10^20], integer[[4]], float['x'], foo, foo[4], foo[8], \"integer\", [4], "
             "[integer], 4, 8, 10^20, 2.5, 1/2, 1..4, integer = 4, {}, proc() end, Create(7, 2, 2, integer[4])")) {
        add(other, -1);
    }
    add(null_value(), -1);
    add(local_name("integer"), -1);
    add(new_pair(type_indexed, local_name("float"), new_sequence({immediate(8)})), -1);
    add(new_pair(type_indexed, global_name("integer"), eval("[4]")), -1);
    add(new_pair(type_indexed, eval("integer[4]"), new_sequence({immediate(4)})), -1);
    EXPECT_EQ(process_datatype(&host_api(), new_pair(type_indexed, global_name("float"), immediate(8)), 2, 1), -1);
    for (const auto &[object, code] : cases) {
        const std::string text = to_line(object);
        const std::string rest = " ('integer[4]', 'float[8]', or 'integer'), for argument 17, got " + text;
        const std::string messages[] = {"expected datatype" + rest, "expected output object or datatype" + rest};
        for (const int32_t mode : {0, 1, 2, -1, 1000}) {
            int32_t result = -2;
            EXPECT_EQ(message_everywhere([&, it = object] { result = process_datatype(api(), it, mode, 17); }),
                      code < 0 && (mode == 0 || mode == 1) ? messages[mode] : "");
            EXPECT_EQ(result, code) << text;
        }
    }
}

// ---- Moduli and fill values ----

const mpz_class most_immediate = (mpz_class(1) << 30) - 1;

std::string expected_modulus_message(Object modulus, int32_t datatype) {
    if (!is_integer(modulus)) return "argument 1, the modulus, must be an integer";
    const mpz_class p = integer_of(modulus);
    const bool big = abs(p) > most_immediate;
    if (datatype == MODLA_INTEGER4 && (big || p > 65535))
        return "modulus is too large for 'integer[4]' datatype, must be < 65536";
    if (datatype == MODLA_FLOAT8 && (big || p > 33554431))
        return "modulus is too large for 'float[8]' datatype, must be < 33554432";
    if (datatype != 0 && datatype != 4 && datatype != 6) return "modp object has invalid datatype";
    return p < 2 ? "modulus must be at least 2" : "";
}

// 0 <= v < p; between two integers that are not immediate only the magnitudes count.
bool is_residue(const mpz_class &p, const mpz_class &v) {
    return p > most_immediate && abs(v) > most_immediate ? abs(v) < p : v >= 0 && v < p;
}

// The residue that a fill value stands for, rounded with halves upward, if it does.
std::optional<mpz_class> expected_residue(const mpz_class &p, int32_t datatype, Object fill) {
    if (datatype == MODLA_INTEGER) {
        if (!is_integer(fill) || !is_residue(p, integer_of(fill))) return std::nullopt;
        return integer_of(fill);
    }
    if (!is_number(fill)) return std::nullopt;
    const double value = std::floor(to_double(fill) + 0.5);
    const std::optional<mpz_class> rounded = is_integer(fill)       ? std::optional(integer_of(fill))
                                             : std::isfinite(value) ? std::optional(mpz_class(value))
                                                                    : std::nullopt;
    return rounded && *rounded >= 0 && *rounded < p ? rounded : std::nullopt;
}

// What validate_modulus stores.
struct Cell {
    uint32_t words[2] = {0xa5a5a5a5, 0xa5a5a5a5};
    bool untouched() const { return words[0] == 0xa5a5a5a5 && words[1] == words[0]; }
    double real() const {
        double value;
        std::memcpy(&value, words, 8);
        return value;
    }
    mpz_class value(int32_t datatype) const {
        if (datatype == MODLA_FLOAT8) return mpz_class(std::signbit(real()) ? -1e9 : real());
        return datatype == MODLA_INTEGER4 ? mpz_class(static_cast<int32_t>(words[0])) : integer_of(words[0]);
    }
};

const char *const moduli[] = {"-10^30",   "-10^12", "-2^30", "1-2^30", "-7",     "-1",    "0",      "1",
                              "2",        "3",      "5",     "101",    "65534",  "65535", "65536",  "65537",
                              "33554430", "2^25-1", "2^25",  "2^25+1", "2^30-1", "2^30",  "10^12",  "10^30",
                              "2.0",      "7/2",    "'p'",   "[7]",    "NULL",   "7..7",  "integer"};

TEST(Modulus, AndFillValuesOfEveryDatatype) {
    int accepted = 0, refused = 0;
    for (const std::string modulus_text : moduli) {
        const Object modulus = eval(modulus_text);
        std::vector<std::string> fills = {
            "0",     "1",      "-1",     "0.5",  "-0.5",  "-0.50000001", "0.49999999999999994",
            "-0.0",  "2.5",    "1/2",    "-2/3", "7/3",   "1e300",       "-1e300",
            "0/0.0", "1/0.0",  "-1/0.0", "2^30", "-2^30", "10^12-1",     "-10^12",
            "10^29", "-10^29", "10^30",  "'x'",  "\"3\"", "[1]",         "NULL"};
        for (const char *offset : {"-1", "+0", "+1", "-0.5", "-0.50000001", "-1.5", "-1/2", "-0.999", "-0.99"}) {
            if (is_number(modulus)) fills.push_back("(" + modulus_text + ")" + offset);
        }
        for (const int32_t datatype : {0, 4, 6, 1, -1}) {
            const std::string modulus_message = expected_modulus_message(modulus, datatype);
            for (const std::string &fill_text : fills) {
                const Object fill = eval(fill_text);
                std::string expected = modulus_message;
                std::optional<mpz_class> residue;
                if (expected.empty()) residue = expected_residue(integer_of(modulus), datatype, fill);
                if (expected.empty() && !residue)
                    expected = "weight value must be an integral numeric value in the range 0..modulus-1";
                (residue ? accepted : refused)++;
                const std::string context = modulus_text + ", " + fill_text + ", datatype " + std::to_string(datatype);
                Cell p, value;
                ASSERT_EQ(message_everywhere(
                              [&] { validate_modulus(api(), modulus, &p, datatype, &fill, &value, "weight", 0); }),
                          expected)
                    << context;
                ASSERT_EQ(value.untouched(), !residue) << context;
                ASSERT_EQ(p.untouched(), !modulus_message.empty()) << context;
                if (!residue) continue;
                ASSERT_EQ(p.value(datatype), integer_of(modulus)) << context;
                ASSERT_EQ(value.value(datatype), *residue) << context;
                ASSERT_TRUE(datatype != 0 || (p.words[0] == modulus && value.words[0] == fill)) << context;
            }
            // A default, and no residue where none is wanted: a bad fill value is not looked at then.
            for (const int32_t default_fill : {0, 1}) {
                const Object bad_fill = immediate(-1);
                Cell p, value, none;
                EXPECT_EQ(message_everywhere([&] {
                              validate_modulus(api(), modulus, &p, datatype, nullptr, &value, "fill", default_fill);
                              if (modulus_message.empty())
                                  validate_modulus(api(), modulus, &none, datatype, &bad_fill, nullptr, "fill", 0);
                          }),
                          modulus_message);
                EXPECT_TRUE(value.untouched() ? !modulus_message.empty() : value.value(datatype) == default_fill);
            }
        }
        const std::string message = !is_integer(modulus)      ? "modulus must be an integer > 1"
                                    : integer_of(modulus) < 2 ? "modulus must be at least 2"
                                                              : "";
        EXPECT_EQ(message_everywhere([&] { validate_integer_modulus(api(), modulus); }), message) << modulus_text;
    }
    EXPECT_GT(accepted, 200);
    EXPECT_GT(refused, 1000);
    // Only the float representation looks at a default fill value.
    for (const int32_t default_fill : {3, 5, -1}) {
        for (const int32_t datatype : datatypes) {
            Cell p, value;
            const std::string range = "fill value must be an integral numeric value in the range 0..modulus-1";
            EXPECT_EQ(message_everywhere([&] {
                          validate_modulus(api(), immediate(3), &p, datatype, nullptr, &value, "fill", default_fill);
                      }),
                      datatype == MODLA_FLOAT8 ? range : "");
        }
    }
}

TEST(Modulus, RoleWordsFillABufferOf200Characters) {
    const std::string text = " value must be an integral numeric value in the range 0..modulus-1";
    for (const size_t length : {0u, 10u, 132u, 133u, 134u, 5000u}) {
        for (const int32_t datatype : datatypes) {
            const Object fill = immediate(7);
            const std::string word(length, 'x');
            Cell p, value;
            EXPECT_EQ(message_everywhere(
                          [&] { validate_modulus(api(), immediate(7), &p, datatype, &fill, &value, word.c_str(), 0); }),
                      (word + text).substr(0, 199));
        }
    }
}

TEST(IntegerValue, LiesBelowTheModulus) {
    Random random(5);
    int counts[2] = {};
    // Around the places where the representation changes.
    const auto integer = [&] {
        const mpz_class large("10000000000"),
            edges[] = {0, 1, (1 << 30) - 1, 1 << 30, large - 1, large, 100 * large - 1, 100 * large, 1000000 * large};
        mpz_class value = chance(random, 40) ? pick(random, edges) : mpz_class(0);
        for (int bits = chance(random, 60) ? below(random, 160) : 0; bits > 0; bits--)
            value = 2 * value + chance(random, 50);
        return mpz_class(value + between(random, -2, 2));
    };
    for (int round = 0; round < 20000; round++) {
        const mpz_class m = abs(integer()) + 2;
        mpz_class v = chance(random, 40) ? mpz_class(m + between(random, -2, 2)) : integer();
        if (chance(random, 40)) v = -v;
        const Object modulus = integer_object(m), value = integer_object(v);
        const int32_t expected = is_residue(m, v) ? 0 : 1;
        ASSERT_EQ(validate_integer_value(modulus, value), expected) << m << ", " << v;
        counts[expected]++;
    }
    EXPECT_GT(std::min(counts[0], counts[1]), 3000);
    for (const char *text : {"2.0", "1/2", "'x'", "[1]", "\"1\"", "NULL"}) {
        EXPECT_EQ(validate_integer_value(immediate(7), eval(text)), 1) << text;
    }
    const Object negative = eval("-10^12");
    EXPECT_EQ(validate_integer_value(negative, eval("10^11")), 1);
    EXPECT_EQ(validate_integer_value(negative, eval("-10^11")), 1);
    EXPECT_EQ(validate_integer_value(negative, immediate(5)), 0);
    EXPECT_EQ(validate_integer_value(negative, immediate(-5)), 1);
}

TEST(Unknown, IsTheFirstMatch) {
    Random random(6);
    Roots atoms;
    for (const char *text : {"'x'", "'y'", "x[1]", "1", "2", "3", "-1", "10^20", "10^20"})
        atoms.values.push_back(eval(text));
    int found = 0;
    for (int round = 0; round < 5000; round++) {
        Roots list;
        const Object x = pick(random, atoms.values), e = chance(random, 50) ? immediate(1) : pick(random, atoms.values);
        int32_t expected = -1;
        const int32_t n = below(random, 8);
        for (int32_t i = 0; i < n; i++) {
            const Object a = pick(random, atoms.values), b = pick(random, atoms.values);
            const int kind = below(random, 4);  // an atom, a power, a longer one, an equation
            list.values.push_back(a);
            if (kind > 0)
                list.values.back() =
                    kind == 3 ? new_pair(type_equation, a, b) : new_object(kind == 1 ? 3 : 5, type_product);
            if (kind == 1) words(list.values.back())[1] = a, words(list.values.back())[2] = b;
            const bool match = e == immediate(1) ? list.values.back() == x : kind == 1 && a == x && b == e;
            if (match && expected < 0) expected = i;
        }
        ASSERT_EQ(isUnkn(x, e, list.values.data(), n), expected);
        ASSERT_TRUE(expected < 0 || isUnkn(x, e, list.values.data(), expected) == -1) << "beyond the list";
        found += expected >= 0;
    }
    EXPECT_GT(found, 200);
}

TEST(NewTable, HasTheShapeThatTheSizesAskFor) {
    for (const Kind &kind : all_kinds) {
        for (const int32_t rows : {0, 1, 2, 7}) {
            for (const int32_t columns : {0, 1, 2, 7}) {
                const bool none = rows == 0 && columns == 0;
                Object object = 0;
                EXPECT_EQ(message_everywhere(
                              [&] { object = new_modLA_rtable(api(), rows, columns, kind.datatype, kind.order); }),
                          none ? "object for create cannot be zero dimensional" : "");
                if (none) {
                    EXPECT_EQ(object, null_value());
                    continue;
                }
                const std::string size = rows == 0 ? std::to_string(columns) + " row Vector, "
                                         : columns == 0
                                             ? std::to_string(rows) + " column Vector, "
                                             : std::to_string(rows) + " x " + std::to_string(columns) + " Matrix, ";
                EXPECT_EQ(describe_table(table_of(object)),
                          size + keyword_of(kind.datatype) + ", " + order_keyword(kind.order));
                EXPECT_EQ(table_of(object).settings.storage, MODLA_RECTANGULAR);
            }
        }
    }
}

// ---- Selections ----

constexpr int32_t unset = -12345;

// What process_subspec reports.
struct Selection {
    int32_t position, datatype = unset, order = unset, rows = unset, row_step = unset, columns = unset,
                      column_step = unset;
    const char *data = nullptr;
    bool operator==(const Selection &) const = default;
};

struct Requirement {
    int32_t datatype = -1, rows = -1, columns = -1, transpose = 1;
};

// Calls process_subspec with the wanted out pointers (bits of `wanted`).
Selection select(const HostApi *api, Object arguments, int32_t position, int32_t n, const Requirement &required,
                 unsigned wanted = ~0u) {
    Selection s{position};
    const auto out = [&](unsigned bit, int32_t &cell) { return wanted >> bit & 1 ? &cell : nullptr; };
    s.data = static_cast<const char *>(process_subspec(api, words(arguments), &s.position, n, required.datatype,
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

Indices read_indices(const std::vector<Object> &arguments, size_t *at, int32_t bound, const std::string &kind,
                     bool is_matrix) {
    const auto place = [&](Object end) {
        mpz_class i = is_integer(end) ? integer_of(end) : mpz_class(0);
        if (i < 0) i += bound + 1;
        if (i < 1 || i > bound) throw Message{is_matrix ? "Matrix index out of range" : "Vector index out of range"};
        return static_cast<int32_t>(i.get_si()) - 1;
    };
    const Object argument = *at < arguments.size() ? arguments[*at] : null_value();
    if (is_integer(argument)) return ++*at, Indices{Indices::How::single, bound, {place(argument)}};
    if (!has_type(argument, type_range)) return {Indices::How::all, bound, run_of(0, bound)};
    const int32_t first = place(words(argument)[1]), last = place(words(argument)[2]);
    if (first > last) throw Message{kind + " range cannot be empty"};
    return ++*at, Indices{Indices::How::range, bound, run_of(first, last - first + 1)};
}

// Brings the indices to the required number; returns the reported count.
int32_t require(Indices *indices, int32_t required, int32_t argno, const std::string &kind) {
    const std::string argument = "argument " + std::to_string(argno), prior = " required by prior arguments";
    const std::string where = " where prior arguments require a " + kind + " ";
    const int32_t count = static_cast<int32_t>(indices->chosen.size());
    if (indices->how == Indices::How::absent) {
        if (required > 0) throw Message{argument + " is a " + kind + " object" + where + "dimension"};
        return 0;
    }
    if (indices->how == Indices::How::single) {
        if (required <= 0) return 0;
        indices->chosen = run_of(indices->chosen[0], required);
        if (indices->chosen.back() < indices->bound) return required;
        throw Message{argument + " shortcut specification has fewer " + kind + "s than" + prior};
    }
    if (required == 0) throw Message{argument + " has a " + kind + " dimension" + where + "object"};
    if (required < 0 || required == count) return count;
    if (indices->how == Indices::How::all)
        throw Message{argument + " has a different number of " + kind + "s than" + prior};
    throw Message{argument + " has " + (count > required ? "more " : "fewer ") + kind + "s than" + prior};
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
    if (required.datatype != -1 && required.datatype != settings.datatype)
        throw Message{argument + " has incorrect datatype"};
    if (settings.datatype != 0 && settings.datatype != 4 && settings.datatype != 6)
        throw Message{argument + " has invalid datatype"};
    if (settings.storage != 4) throw Message{argument + " has invalid storage"};
    if (settings.subtype < 1 || settings.subtype > 3) throw Message{argument + " must be a Matrix or Vector"};
    size_t at = static_cast<size_t>(position);
    const bool is_matrix = settings.subtype == MODLA_MATRIX;
    Indices rows, columns;
    if (settings.subtype != MODLA_ROW_VECTOR) rows = read_indices(arguments, &at, table.bounds[0], "row", is_matrix);
    if (settings.subtype != MODLA_COLUMN_VECTOR) {
        columns = read_indices(arguments, &at, is_matrix ? table.bounds[1] : table.bounds[0], "column", is_matrix);
    }
    const int32_t m = table.bounds[0], k = table.bounds[1];
    int32_t row_step = is_matrix ? (settings.order == MODLA_C_ORDER ? k : 1) : rows.how != Indices::How::absent;
    int32_t column_step = is_matrix ? (settings.order == MODLA_C_ORDER ? 1 : m) : columns.how != Indices::How::absent;
    const bool transposed = required.transpose && at < arguments.size() && arguments[at] == global_name("transpose");
    if (transposed) at++, std::swap(rows, columns), std::swap(row_step, column_step);
    Model model;
    const int32_t row_count = require(&rows, required.rows, position, "row");
    const int32_t column_count = require(&columns, required.columns, position, "column");
    for (const int32_t i : rows.chosen) {
        model.cells.emplace_back();
        for (const int32_t j : columns.chosen)
            model.cells.back().push_back(transposed ? entry_at(object, j, i) : entry_at(object, i, j));
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

Object random_selector(Random &random, int32_t bound) {
    const auto index = [&]() -> Object {
        if (chance(random, 3)) return eval(chance(random, 50) ? "10^20" : "-10^20");
        const int32_t i = between(random, 0, chance(random, 80) ? bound : bound + 2);
        return immediate(chance(random, 30) ? -i : i);
    };
    if (chance(random, 25)) return global_name("transpose");
    const char *const others[] = {"\"transpose\"", "2.0", "1/2", "'x'", "[1, 2]", "NULL", "1 = 2", "C_order", "x[1]"};
    if (chance(random, 8)) return eval(pick(random, others));
    if (chance(random, 40)) return index();
    Roots ends;
    for (int side = 0; side < 2; side++) ends.values.push_back(index());
    if (chance(random, 4)) ends.values[below(random, size_t{2})] = eval(chance(random, 50) ? "1.0" : "'x'");
    return new_pair(type_range, ends.values[0], ends.values[1]);
}

TEST(Subspec, SelectsTheCellsOfTheModel) {
    Random random(7);
    std::map<std::string, int> messages;
    int blocks = 0;
    for (int round = 0; round < 30000 && !HasFailure(); round++) {
        reset();
        Roots arguments;
        const int32_t position = between(random, 1, 4);
        for (int32_t i = 1; i < position; i++) arguments.values.push_back(immediate(i));
        const auto size = [&] { return chance(random, 4) ? 0 : between(random, 1, 6); };
        const int32_t subtype = chance(random, 3) ? pick(random, {0, 4}) : pick(random, {1, 1, 2, 3});
        const int32_t datatype = chance(random, 3) ? pick(random, {1, 2, 3, 5, 7, -1}) : pick(random, datatypes);
        arguments.values.push_back(chance(random, 97)
                                       ? make_table({datatype, pick(random, orders)}, subtype, size(), size(),
                                                    chance(random, 3) ? between(random, 0, 3) : MODLA_RECTANGULAR)
                                       : random_selector(random, 3));
        for (int32_t count = between(random, 0, 4); count > 0; count--)
            arguments.values.push_back(random_selector(random, 5));
        const int32_t length = static_cast<int32_t>(arguments.values.size());
        const int32_t n = chance(random, 80) ? length : between(random, position, length);
        const auto count = [&] { return chance(random, 40) ? -1 : between(random, 0, 4); };
        const Requirement required = {pick(random, {-1, -1, -1, -1, 0, 4, 6}), count(), count(), between(random, 0, 1)};
        const Object array = new_sequence(arguments.values);
        std::string expected;
        Model model;
        try {
            model = model_selection(arguments.values, position, n, required);
        } catch (const Message &message) {
            expected = message.text;
        }
        std::string context = "position " + std::to_string(position) + " of " + std::to_string(n) + ":";
        for (const Object argument : arguments.values) context += " " + to_line(argument);
        Selection selection{position};
        ASSERT_EQ(message_everywhere([&] { selection = select(api(), array, position, n, required); }), expected)
            << context;
        messages[expected.substr(std::min(expected.size(), expected.find_first_not_of("argument 0123456789")))]++;
        Selection reported = selection;
        reported.data = nullptr;
        if (!expected.empty()) {
            reported.position = position;
            ASSERT_TRUE(reported == Selection{position}) << context;
            continue;
        }
        ASSERT_TRUE(reported == model.reported) << context;
        for (size_t i = 0; i < model.cells.size(); i++) {
            for (size_t j = 0; j < model.cells[i].size(); j++) {
                const int32_t offset =
                    static_cast<int32_t>(i) * selection.row_step + static_cast<int32_t>(j) * selection.column_step;
                ASSERT_EQ(selection.data + offset * static_cast<int32_t>(entry_bytes(selection.datatype)),
                          model.cells[i][j])
                    << context;
            }
        }
        blocks++;
        // Out pointers are optional, each by itself.
        const unsigned wanted = below(random, 64u);
        Selection part = select(&host_api(), array, position, n, required, wanted);
        int32_t Selection::*const fields[] = {&Selection::datatype, &Selection::order,   &Selection::rows,
                                              &Selection::row_step, &Selection::columns, &Selection::column_step};
        for (unsigned bit = 0; bit < 6; bit++) {
            ASSERT_EQ(part.*fields[bit], wanted >> bit & 1 ? selection.*fields[bit] : unset) << context;
            part.*fields[bit] = selection.*fields[bit];
        }
        ASSERT_TRUE(part == selection);
    }
    EXPECT_GT(blocks, 2500);
    EXPECT_EQ(messages.size(), 1u + 7u + 2u * 7u);
    for (const auto &[message, times] : messages) EXPECT_GT(times, 8) << message;
}

// ---- Views ----

struct View {
    Object object;
    int32_t row_shift = unset, column_shift = unset;
};

View make_view(const HostApi *api, Object parent, void *data, int32_t rows, int32_t columns, int32_t row_step,
               int32_t column_step) {
    View view;
    view.object = data_to_modLA_rtable(api, parent, data, rows, columns, row_step, column_step, &view.row_shift,
                                       &view.column_shift);
    return view;
}

TEST(View, ShowsTheBlockAtTheReportedShifts) {
    Random random(8);
    int shifted = 0, parents = 0, views = 0;
    for (int round = 0; round < 30000 && !HasFailure(); round++) {
        reset();
        const int32_t subtype = pick(random, {1, 1, 1, 2, 3});
        const int32_t rows = subtype == MODLA_ROW_VECTOR ? 1 : between(random, 1, 6);
        const int32_t columns = subtype == MODLA_COLUMN_VECTOR ? 1 : between(random, 1, 6);
        Roots arguments;
        const Object parent = make_table({MODLA_INTEGER, pick(random, orders)}, subtype, rows, columns);
        char *const first = static_cast<char *>(table_of(parent).data);
        arguments.values.push_back(parent);
        while (chance(random, 70)) arguments.values.push_back(random_selector(random, std::min(rows, columns)));
        Model model;
        try {
            model = model_selection(arguments.values, 1, static_cast<int32_t>(arguments.values.size()), {});
        } catch (const Message &) {
            continue;
        }
        const auto &[position, datatype, order, m, row_step, n, column_step, none] = model.reported;
        if (row_step == 1 && column_step == 1) continue;  // see below
        void *const data = const_cast<char *>(model.cells[0][0]);
        View view;
        ASSERT_EQ(message_everywhere([&, m = m, n = n, down = row_step, right = column_step] {
                      view = make_view(api(), parent, data, std::max(m, 1), std::max(n, 1), down, right);
                  }),
                  "");
        const Table &table = table_of(view.object);
        for (size_t i = 0; i < model.cells.size(); i++) {
            for (size_t j = 0; j < model.cells[i].size(); j++) {
                const int32_t r = static_cast<int32_t>(i) + view.row_shift,
                              c = static_cast<int32_t>(j) + view.column_shift;
                ASSERT_TRUE(r < table_rows(table) && c < table_columns(table));
                ASSERT_EQ(entry_at(view.object, r, c), model.cells[i][j])
                    << to_line(view.object) << " of " << to_line(parent);
            }
        }
        const char *const start = static_cast<char *>(table.data);
        ASSERT_TRUE(start >= first &&
                    start + 4 * table_rows(table) * table_columns(table) <= first + 4 * rows * columns);
        const bool whole =
            subtype == MODLA_MATRIX && data == first && (order == MODLA_C_ORDER ? column_step : row_step) == 1;
        ASSERT_EQ(view.object == parent, whole);
        if (!whole) {
            const bool along_lines = row_step != 0 && column_step != 0;
            ASSERT_EQ(table.settings.order, !along_lines ? order : row_step == 1 ? MODLA_FORTRAN_ORDER : MODLA_C_ORDER);
            ASSERT_TRUE(table.settings.view == 1 && table.settings.datatype == MODLA_INTEGER &&
                        table.settings.num_dimensions == 2 && table.settings.storage == MODLA_RECTANGULAR);
        }
        shifted += view.row_shift > 0 || view.column_shift > 0;
        (whole ? parents : views)++;
    }
    EXPECT_GT(shifted, 400);
    EXPECT_GT(parents, 250);
    EXPECT_GT(views, 1500);
}

TEST(View, OfGivenSteps) {
    reset();
    const Object A = make_table({MODLA_INTEGER, 1}, MODLA_MATRIX, 3, 3),
                 R = make_table({MODLA_INTEGER, 1}, MODLA_MATRIX, 4, 6);
    const Object F = make_table({MODLA_INTEGER, 0}, MODLA_MATRIX, 4, 6),
                 N = make_table({MODLA_INTEGER, 1}, MODLA_MATRIX, 4, 1);
    const Object B = make_table({MODLA_FLOAT8, 1}, MODLA_MATRIX, 3, 3),
                 V = make_table({MODLA_INTEGER4, 1}, MODLA_ROW_VECTOR, 1, 3);
    const std::string steps = "invalid input (ordering parameters) for new rtable",
                      row = "invalid input (row use) for new rtable";
    const std::string column = "invalid input (column use) for new rtable", type = "invalid datatype for new rtable";
    const struct {
        Object parent, memory;
        int32_t first, rows, columns, row_step, column_step;
        std::string outcome;  // a description, or a message
        int32_t shift = 0;
    } cases[] = {
        {R, R, 12, 2, 6, 6, 1, "2 x 6 Matrix, integer, C_order"},
        {F, F, 11, 1, 4, 1, 4, "4 x 4 Matrix, integer, Fortran_order", 3},
        {R, R, 0, 100, 1, 6, 1, "4 x 6 Matrix, integer, C_order"},  // the size does not matter at the parent's start
        {F, F, 0, 1, 100, 1, 4, "4 x 6 Matrix, integer, Fortran_order"},
        {N, N, 2, 1, 1, 1, 1, "1 x 1 Matrix, integer, Fortran_order"},  // by columns of one entry
        {0, F, 1, 1, 5, 0, 1, "1 x 5 Matrix, integer, C_order"},
        {0, F, 1, 3, 1, 1, 0, "3 x 1 Matrix, integer, C_order"},
        {0, F, 1, 2, 3, 1, 4, "4 x 3 Matrix, integer, Fortran_order"},
        {0, F, 1, 2, 3, 4, 1, "2 x 4 Matrix, integer, C_order"},
        {B, B, 0, 3, 3, 3, 1, "3 x 3 Matrix, float[8], C_order"},  // its datatype does not matter at its start
        {B, B, 2, 1, 1, 3, 1, type},
        {B, B, 0, 1, 1, 1, 3, type},
        {V, V, 0, 1, 3, 0, 1, type},
        {V, V, 0, 2, 3, 0, 1, type},
        {A, A, 0, 2, 3, 0, 1, row},
        {A, A, 0, 0, 3, 0, 1, row},
        {A, A, 0, 2, 3, 0, 0, row},
        {0, A, 0, 2, 3, 0, 1, row},
        {A, A, 0, 2, 3, 1, 0, column},
        {0, A, 0, 2, 3, 3, 0, column},
        {A, A, 0, 2, 3, 3, 2, steps},
        {0, A, 0, 2, 3, 2, 2, steps},
        {A, A, 1, 2, 4, 1, 3, "internal error"},
        {A, A, 8, 4, 1, 3, 1, "internal error"}};
    for (const auto &c : cases) {
        View view;
        char *const data = static_cast<char *>(table_of(c.memory).data) + 4 * c.first;
        const bool fails = c.outcome.find("Matrix") == std::string::npos;
        EXPECT_EQ(message_everywhere(
                      [&] { view = make_view(api(), c.parent, data, c.rows, c.columns, c.row_step, c.column_step); }),
                  fails ? c.outcome : "");
        EXPECT_EQ(view.row_shift + view.column_shift, c.shift) << c.outcome;
        EXPECT_EQ(fails ? "" : describe_table(table_of(view.object)), fails ? "" : c.outcome);
        EXPECT_TRUE(!fails || view.object == null_value());
    }
}

// ---- Flexible input ----

struct Input {
    const char *text;
    int32_t datatype, dimensions;
    bool is_list, list_of_lists, columns;
    int32_t rows, row_step, column_count, column_step;  // -1: the dimension is missing
};

TEST(FlexInput, DescribesEveryKindOfInput) {
    host = {};
    run("rv := Create(7, 0, 6, integer); cv := Create(7, 4, 0, float[8])");
    const Input inputs[] = {{"Create(7, 4, 6, integer[4])", 4, 2, false, false, false, 4, 6, 6, 1},
                            {"Create(7, 4, 6, float[8], Fortran_order)", 6, 2, false, false, false, 4, 1, 6, 4},
                            {"Create(7, 4, 6, integer)", 0, 2, false, false, false, 4, 6, 6, 1},
                            {"cv", 6, 1, false, false, false, 4, 1, -1, 0},
                            {"rv", 0, 1, false, false, false, -1, 0, 6, 1},
                            {"[1, rv, 10^20, x]", 0, 1, true, false, false, 4, 0, -1, 0},
                            {"{x, 2, 3, 4}", 0, 1, true, false, false, 4, 0, -1, 0},
                            {"[[1], [1, 2, 3, 4, 5, 6], [], {7}]", 0, 2, true, true, false, 4, 0, 6, 0},
                            {"[rv, rv, rv, rv]", 0, 2, true, false, false, 4, 0, 6, 0},
                            {"[cv, cv, cv, cv, cv, cv]", 6, 2, true, false, true, 4, 0, 6, 0}};
    struct Lines {
        const char *text;
        int32_t from, to;  // negative ends and missing selections are those of the bound; to = 0: single
    };
    const Lines lines[] = {{"", 1, -1}, {"3", 3, 0}, {"-2", -2, 0}, {"2..3", 2, 3}, {"-3..-1", -3, -1}};
    Random random(1);
    for (const Input &input : inputs) {
        for (const Lines &row : lines) {
            for (const Lines &column : lines) {
                if ((input.rows < 0 && *row.text) || (input.column_count < 0 && *column.text)) continue;
                if (input.rows >= 0 && *column.text && !*row.text) continue;
                for (int flags = 0; flags < 4; flags++) {
                    const bool given = flags & 1, transpose = flags & 2;
                    std::string text = "0, 1, " + std::string(input.text);
                    for (const char *more : {row.text, column.text, transpose ? "transpose" : ""}) {
                        if (*more) text += std::string(", ") + more;
                    }
                    const Object array = argument_array(arguments(text + ", 'rest'"));
                    const int32_t n = static_cast<int32_t>(size_of(array)) - 1;
                    const auto triple = [](int32_t bound, const Lines &s, int32_t step) -> std::array<int32_t, 3> {
                        if (bound < 0) return {0, 0, 0};
                        const int32_t from = s.from < 0 ? bound + s.from + 1 : s.from,
                                      to = s.to < 0 ? bound + s.to + 1 : s.to;
                        return {from, s.to == 0 ? 0 : to - from + 1, step};
                    };
                    const auto rows = triple(input.rows, row, input.row_step);
                    const auto columns = triple(input.column_count, column, input.column_step);
                    const bool turned = (given || input.columns) != (input.rows < 0);
                    const auto &first = turned ? columns : rows, &second = turned ? rows : columns;
                    const int32_t wanted[] = {input.datatype,
                                              input.dimensions,
                                              input.is_list,
                                              input.list_of_lists,
                                              first[0],
                                              first[1],
                                              first[2],
                                              second[0],
                                              second[1],
                                              second[2],
                                              turned != transpose,
                                              input.columns};
                    for (int repetition = 0; repetition < 2; repetition++) {
                        int32_t got[12], *out[12], position = 2;
                        for (int k = 0; k < 12; k++) {
                            got[k] = k == 10 ? given : -77;
                            out[k] = repetition == 0 || chance(random, 70) || (k == 10 && given) ? &got[k] : nullptr;
                        }
                        process_flexinput(&host_api(), words(array) + 1, &position, n, out[0], out[1], out[2], out[3],
                                          out[4], out[5], out[6], out[7], out[8], out[9], out[10], out[11]);
                        EXPECT_EQ(position, n) << text;
                        for (int k = 0; k < 12; k++)
                            ASSERT_EQ(got[k], out[k] ? wanted[k] : k == 10 ? given : -77) << text << k;
                    }
                }
            }
        }
    }
}

}  // namespace
