// Mod and the reading of its input, against GMP's integers modulo p.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <optional>

#include "blocks.h"
#include "console/number.h"
#include "console/print.h"
#include "watching_host.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::pick, modla_test::Random;
using modla_test::Block, modla_test::Layout, modla_test::Placement, modla_test::Size, modla_test::Storage;
using modla_test::call, modla_test::check_view, modla_test::entries_of, modla_test::random_block;
using modla_test::Callback, modla_test::make_table, modla_test::set_name, modla_test::storage_of;
using modla_test::entry_bytes, modla_test::join, modla_test::make_selection, modla_test::random_size,
    modla_test::repeat;
using modla_test::eval, modla_test::message_of, modla_test::raised_messages, modla_test::run;
using modla_test::watch, modla_test::watching_host;

namespace {

constexpr int32_t datatypes[] = {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8};

mpz_class residue_of(const mpz_class &x, const mpz_class &p) {
    mpz_class r;
    mpz_fdiv_r(r.get_mpz_t(), x.get_mpz_t(), p.get_mpz_t());
    return r;
}
bool is_invertible(const mpz_class &x, const mpz_class &p) {
    return gcd(x, p) == 1;
}
mpz_class power_of(const mpz_class &x, int32_t e, const mpz_class &p) {
    mpz_class r;
    mpz_powm(r.get_mpz_t(), x.get_mpz_t(), mpz_class(e).get_mpz_t(), p.get_mpz_t());
    return r;
}

Object raw_object(uint32_t type_id, const std::vector<Object> &parts) {
    const Object x = new_object(static_cast<uint32_t>(parts.size()) + 1, type_id);
    std::copy(parts.begin(), parts.end(), words(x) + 1);
    return x;
}

// ---- Random entries and what they are modulo p ----

// A call, with the values that it makes sense of.
struct Trial {
    Random &random;
    Storage &storage;
    mpz_class p;
    int temper = 0;                                    // of doubles: 0 small, 1 whole, 2 any
    Object evaluations = 0;                            // the argument; 0: none
    std::vector<std::pair<Object, mpz_class>> values;  // what it says, in its order
    std::map<Object, mpz_class> meaning;               // the residues of values that are no integers
    const mpz_class *value_of(Object left) const {
        const auto at = std::find_if(values.begin(), values.end(), [&](const auto &v) { return v.first == left; });
        return at == values.end() ? nullptr : &at->second;
    }
    Object make(uint32_t type_id, const std::vector<Object> &parts) { return storage.keep(raw_object(type_id, parts)); }
    // A list or set, with its elements in a sequence or its own.
    Object make_list(const std::vector<Object> &elements) {
        const uint32_t type_id = pick(random, {MODLA_TYPE_LIST, MODLA_TYPE_SET});
        if (chance(random, 50)) return make(type_id, elements);
        return make(type_id, {make(MODLA_TYPE_SEQUENCE, elements)});
    }
};

mpz_class random_integer(Trial &t) {
    const int sign = chance(t.random, 50) ? 1 : -1;
    if (chance(t.random, 30)) return sign * (t.p * below(t.random, 1000000) + pick(t.random, {-1, 0, 0, 1}));
    if (chance(t.random, 50)) return sign * below(t.random, 1 << 30 >> below(t.random, 30));
    mpz_class x;
    const unsigned bits = 1 + below(t.random, chance(t.random, 90) ? 70u : 4000u);
    for (unsigned k = 0; k < bits; k += 30) x = (x << 30) + below(t.random, 1 << 30);
    return sign * (chance(t.random, 20) ? mpz_class(x * t.p) : x);
}

// Equations for x, y (the first of two counts), y^2 and the complex unit, or one for x.
void give_evaluations(Trial &t) {
    const Object x = global_name("x"), y = global_name("y");
    std::vector<Object> lefts = {x, y, y, t.make(MODLA_TYPE_POWER, {y, immediate(2)}),
                                 t.make(MODLA_TYPE_COMPLEX, {immediate(1)})};
    std::shuffle(lefts.begin(), lefts.end(), t.random);
    if (chance(t.random, 20)) lefts = {x};
    std::vector<Object> equations;
    for (const Object left : lefts) {
        t.values.emplace_back(left, residue_of(random_integer(t), t.p));
        const Object right = t.storage.keep(integer_object(t.values.back().second));
        equations.push_back(t.storage.keep(new_pair(type_equation, left, right)));
    }
    t.evaluations = equations.size() == 1 && chance(t.random, 50) ? equations[0] : t.make_list(equations);
}

// x^e, where the list may have a value of its own for it.
std::optional<mpz_class> listed_power(const Trial &t, Object name, int32_t e) {
    for (const auto &[left, value] : t.values) {
        if (e != 1 && has_type(left, static_cast<Type>(MODLA_TYPE_POWER)) && words(left)[1] == name &&
            words(left)[2] == immediate(e)) {
            return value;
        }
    }
    if (e < 0 && !is_invertible(*t.value_of(name), t.p)) return std::nullopt;
    return power_of(*t.value_of(name), e, t.p);
}

Object random_value(Trial &t, mpz_class *residue) {
    const mpz_class a = random_integer(t), b = random_integer(t), a_mod = residue_of(a, t.p);
    const Object a_object = t.storage.keep(integer_object(a)), b_object = t.storage.keep(integer_object(b));
    const int kind = below(t.random, t.evaluations ? 12 : 8);
    Object value = a_object;
    *residue = a_mod;
    if (kind == 7 && b != 0 && is_invertible(b, t.p)) {
        value = t.storage.keep(rational_object(mpq_class(a) / mpq_class(b)));
        *residue = residue_of(a_mod * power_of(b, -1, t.p), t.p);
    } else if (kind >= 8) {
        const Object x = global_name("x"), y = t.values.size() > 1 ? global_name("y") : x;
        const int32_t e = pick(t.random, {-3, -1, 0, 1, 2, 2, 5, 16, 17, 100000});
        const auto x_to_e = listed_power(t, x, e), y_to_e = listed_power(t, y, e);
        if (kind == 8) {
            value = y;
            *residue = *t.value_of(y);
        } else if (kind == 9 && x_to_e && y_to_e) {
            value = t.make(MODLA_TYPE_POWER, {x, immediate(e), immediate(-3), immediate(1), y, immediate(e)});
            *residue = residue_of(-3 * *x_to_e * *y_to_e, t.p);
        } else if (kind == 10) {
            value = t.make(MODLA_TYPE_SUM, {x, a_object, b_object, immediate(1), y, immediate(-1)});
            *residue = residue_of(a * *t.value_of(x) + b - *t.value_of(y), t.p);
        } else if (kind == 11 && t.values.size() > 1) {
            const auto is_unit = [](const auto &v) { return has_type(v.first, static_cast<Type>(MODLA_TYPE_COMPLEX)); };
            const mpz_class &i = std::find_if(t.values.begin(), t.values.end(), is_unit)->second;
            const bool real = chance(t.random, 50);
            value = real ? t.make(MODLA_TYPE_COMPLEX, {a_object, b_object}) : t.make(MODLA_TYPE_COMPLEX, {b_object});
            *residue = residue_of((real ? a : mpz_class(0)) + b * i, t.p);
        }
    }
    if (!is_integer(value)) t.meaning[value] = *residue;
    return value;
}

double random_double(Trial &t) {
    const double p = t.p < 1 << 25 ? t.p.get_d() : 97, sign = chance(t.random, 50) ? 1 : -1;
    const double multiple = p * below(t.random, 1000), two_to_30 = 1 << 30, two_to_50 = std::ldexp(1, 50);
    const double any = static_cast<double>((uint64_t{t.random()} << 32 | t.random()) >> (11 + below(t.random, 40)));
    if (t.temper == 0 || chance(t.random, 30)) return sign * (multiple + below(t.random, 3) - 1);
    if (t.temper == 1 || chance(t.random, 30)) {
        return sign * pick(t.random, {any, two_to_50 - 1, two_to_50, two_to_50 + 1, 4 * two_to_50 + 1,
                                      8 * two_to_50 - 1, two_to_30 - 1, two_to_30});
    }
    return sign * pick(t.random, {multiple + 0.5, multiple + 0.25, std::ldexp(any, -below(t.random, 60)),
                                  two_to_30 - 0.5, two_to_30 - 1.5, two_to_30 + 0.5, two_to_50 + 0.5,
                                  4 * two_to_50 - 0.5, 0.49999999999999994, 4.9e-324});
}

// A random entry in the storage; returns its residue.
mpz_class put_entry(Trial &t, int32_t datatype, uint32_t offset) {
    if (datatype == MODLA_INTEGER) {
        mpz_class residue;
        t.storage.put(offset, random_value(t, &residue));
        return residue;
    }
    if (datatype == MODLA_INTEGER4) {
        const int32_t p = t.p < 1 << 25 ? static_cast<int32_t>(t.p.get_si()) : 97;
        const int32_t word = pick(t.random, {0, 1, -1, p, -p, p - 1, 60 * p, INT32_MAX, INT32_MIN,
                                             static_cast<int32_t>(t.random()), static_cast<int32_t>(t.random())});
        t.storage.put(offset, word);
        return residue_of(word, t.p);
    }
    const double real = random_double(t);
    t.storage.put(offset, real);
    return residue_of(integer_of(t.storage.keep(floattoTolvexInt_32(&host_api(), real))), t.p);
}

// ---- Random inputs ----

struct Input {
    std::vector<Object> arguments;
    Size size;                        // of the result
    std::vector<mpz_class> residues;  // row by row
    std::optional<Block> block;       // of a table
    const mpz_class &at(int32_t i, int32_t j) const {
        return residues[static_cast<size_t>(i * std::max(size.columns, 1) + j)];
    }
};

Input table_input(Trial &t, Placement &where, Size size) {
    Input input;
    input.size = size;
    input.block = random_block(t.random, t.storage, where, size, chance(t.random, 50));
    input.arguments = input.block->arguments;
    for (const uint32_t offset : input.block->offsets) input.residues.push_back(put_entry(t, where.datatype, offset));
    return input;
}

enum class Form { table, values, lists, row_vectors, column_vectors };

// A list with the selected part of this size, before any transposition.
Input list_input(Trial &t, Placement &where, Size size, Form form) {
    Random &random = t.random;
    if (form == Form::values) size.columns = 0;
    const int32_t first_row = pick(random, {0, 0, 1, 3}),
                  first_column = form == Form::values ? 0 : pick(random, {0, 0, 1, 3});
    const int32_t rows = first_row + std::max(size.rows, 1) + pick(random, {0, 0, 2});
    const int32_t columns =
        form == Form::values ? 1 : first_column + std::max(size.columns, 1) + pick(random, {0, 0, 2});
    std::vector<mpz_class> grid(static_cast<size_t>(rows * columns));
    const auto cell = [&](int32_t i, int32_t j) -> mpz_class & { return grid[static_cast<size_t>(i * columns + j)]; };
    std::vector<Object> elements;
    if (form == Form::values || form == Form::lists) {
        const int32_t longest = below(random, rows);
        for (int32_t i = 0; i < rows; i++) {
            std::vector<Object> line;
            const int32_t length =
                form == Form::values || i == longest || chance(random, 60) ? columns : below(random, columns + 1);
            for (int32_t j = 0; j < length; j++) line.push_back(random_value(t, &cell(i, j)));
            elements.push_back(form == Form::values ? line[0] : t.make_list(line));
        }
    } else {
        const bool as_rows = form == Form::row_vectors;
        const int32_t count = as_rows ? rows : columns, length = as_rows ? columns : rows;
        const auto entry = [&](int32_t k, int32_t i) -> mpz_class & { return as_rows ? cell(k, i) : cell(i, k); };
        const uint32_t pitch = static_cast<uint32_t>(length + below(random, 3)) * entry_bytes(where.datatype);
        const uint32_t start = 4 * below(random, static_cast<uint32_t>(count) * pitch / 8 + 1);
        for (int32_t k = 0; k < count; k++) {
            if (k > 0 && chance(random, 10)) {  // a Vector may stand in the list twice
                const int32_t twin = below(random, k);
                elements.push_back(elements[static_cast<size_t>(twin)]);
                for (int32_t i = 0; i < length; i++) entry(k, i) = entry(twin, i);
                continue;
            }
            RtableSettings settings = default_settings();
            settings.datatype = where.datatype;
            settings.subtype = as_rows ? MODLA_ROW_VECTOR : MODLA_COLUMN_VECTOR;
            settings.num_dimensions = 1;
            const int32_t bounds[2] = {length, 1};
            const uint32_t offset = start + static_cast<uint32_t>(k) * pitch;
            elements.push_back(t.storage.keep(new_table(settings, bounds, t.storage.base + offset)));
            for (int32_t i = 0; i < length; i++) {
                entry(k, i) =
                    put_entry(t, where.datatype, offset + static_cast<uint32_t>(i) * entry_bytes(where.datatype));
            }
        }
    }
    Input input;
    input.arguments = {t.make_list(elements)};
    const bool all_columns = form == Form::values || (size.columns == columns && chance(random, 50));
    if (!all_columns || size.rows != rows || chance(random, 50)) {
        input.arguments.push_back(make_selection(random, t.storage, first_row, size.rows, rows));
    }
    if (!all_columns) input.arguments.push_back(make_selection(random, t.storage, first_column, size.columns, columns));
    const bool transpose = chance(random, 50);
    if (transpose) {
        input.arguments.push_back(global_name("transpose"));
        std::swap(size.rows, size.columns);
    }
    input.size = size;
    for (int32_t i = 0; i < std::max(size.rows, 1); i++) {
        for (int32_t j = 0; j < std::max(size.columns, 1); j++) {
            input.residues.push_back(transpose ? cell(first_row + j, first_column + i)
                                               : cell(first_row + i, first_column + j));
        }
    }
    return input;
}

// ---- The callbacks of datatype "integer" ----

struct Expected {
    const Trial *trial = nullptr;
    Object modulus = 0;
    Size size = {};                // of the output block
    const Block *block = nullptr;  // null: a new object
    int calls = 0;
};
Expected expected;

Object reduce_by_callback(const std::vector<Object> &arguments) {
    const Trial &t = *expected.trial;
    expected.calls++;
    EXPECT_EQ(arguments.size(), t.evaluations ? 7u : 6u);
    EXPECT_EQ(arguments[0], expected.modulus);
    EXPECT_EQ(arguments.back(), t.evaluations ? t.evaluations : arguments[5]);
    const Table &view = table_of(arguments[5]);
    const int32_t top = immediate_value(arguments[1]), left = immediate_value(arguments[3]);
    const int32_t bottom = immediate_value(arguments[2]), right = immediate_value(arguments[4]);
    EXPECT_EQ(bottom - top + 1, std::max(expected.size.rows, 1));
    EXPECT_EQ(right - left + 1, std::max(expected.size.columns, 1));
    EXPECT_TRUE(top >= 1 && left >= 1 && bottom <= table_rows(view) && right <= table_columns(view));
    if (testing::Test::HasFailure()) return null_value();
    if (expected.block) check_view(*expected.block, t.storage.base, arguments[5], top - 1, left - 1);
    for (int32_t i = top; i <= bottom; i++) {
        for (int32_t j = left; j <= right; j++) {
            const Object x = get_entry(view, i, j);
            const mpz_class r = is_integer(x) ? residue_of(integer_of(x), t.p) : t.meaning.at(x);
            set_entry(view, i, j, integer_object(r));
        }
    }
    return null_value();
}

// ---- Calls ----

// A stored residue, or -1 when it is not stored as it must be.
mpz_class stored_residue(int32_t datatype, const char *at) {
    if (datatype == MODLA_FLOAT8) {
        double d;
        std::memcpy(&d, at, sizeof d);
        return d >= 0 && !std::signbit(d) && std::floor(d) == d ? mpz_class(d) : mpz_class(-1);
    }
    uint32_t word;
    std::memcpy(&word, at, sizeof word);
    if (datatype == MODLA_INTEGER4) return word;
    return is_integer(word) ? integer_of(word) : mpz_class(-1);
}

mpz_class random_modulus(Random &random, int32_t datatype) {
    uint32_t p = pick(random, {2u, 3u, 7u, 251u, 46349u, 65521u, 65535u, 2 + below(random, 65534u)});
    if (datatype == MODLA_FLOAT8 && chance(random, 50))
        p = pick(random, {33554431u, 33554393u, 2 + below(random, 33554430u)});
    if (datatype == MODLA_INTEGER && chance(random, 30)) return (mpz_class(1) << 100) + p;
    return p;
}

void mod_once(Random &random, Storage &storage) {
    const int32_t from = pick(random, datatypes), to = pick(random, datatypes);
    const Form form = chance(random, 40) ? Form::table : static_cast<Form>(below(random, 5));
    const bool host_values = from == MODLA_INTEGER || form == Form::values || form == Form::lists;
    Trial t = {random, storage, random_modulus(random, to), below(random, 3), 0, {}, {}};
    if (host_values && chance(random, 40)) give_evaluations(t);
    Placement source = {from, pick(random, {Layout::apart, Layout::overlapping, Layout::same_table})};
    Size size = chance(random, 3) ? Size{0, 0} : random_size(random);
    if (host_values) size = {size.rows % 24, size.columns % 24};
    const Input input = form == Form::table ? table_input(t, source, size) : list_input(t, source, size, form);
    size = input.size;

    std::vector<Object> arguments = {storage.keep(integer_object(t.p))};
    arguments = join(arguments, input.arguments);
    if (t.evaluations) arguments.push_back(t.evaluations);
    SCOPED_TRACE("form " + std::to_string(static_cast<int>(form)) + ", datatypes " + std::to_string(from) + " to " +
                 std::to_string(to) + ", layout " + std::to_string(static_cast<int>(source.layout)));
    expected = {&t, arguments[0], size};
    const bool create = (size.rows > 0 || size.columns > 0) && chance(random, 30);
    std::optional<Block> block;
    int32_t order = MODLA_C_ORDER;
    if (create) {
        arguments.push_back(storage.keep(eval(to == MODLA_INTEGER  ? "integer"
                                              : to == MODLA_FLOAT8 ? "float[8]"
                                                                   : "integer[4]")));
        if (chance(random, 70)) {
            order = pick(random, {MODLA_C_ORDER, MODLA_FORTRAN_ORDER});
            arguments.push_back(global_name(order == MODLA_C_ORDER ? "C_order" : "Fortran_order"));
        }
    } else {
        Placement target = {to, source.layout, 4, 0, 1};
        const bool larger = chance(random, 40);
        if (larger && chance(random, 60)) expected.size.rows = std::max(size.rows, 1) + below(random, 4);
        if (larger && chance(random, 60)) expected.size.columns = std::max(size.columns, 1) + below(random, 4);
        const Block elsewhere = {};
        const Block *const earlier = input.block && from == to ? &*input.block : &elsewhere;
        block = random_block(random, storage, target, expected.size, false, earlier, !larger);
        expected.block = &*block;
        arguments = join(arguments, block->arguments);
    }
    storage.take_shadow();
    Object result = 0;
    {
        const Callback reduce(t.evaluations ? "cbModEval" : "cbMod", reduce_by_callback);
        result = storage.keep(call(modLA_Mod, arguments, random));
    }
    EXPECT_EQ(expected.calls, to == MODLA_INTEGER);

    const auto check = [&](int32_t i, int32_t j, const char *at) {
        const bool within = i < std::max(size.rows, 1) && j < std::max(size.columns, 1);
        ASSERT_EQ(stored_residue(to, at), within ? input.at(i, j) : mpz_class(0)) << i << ", " << j << " mod " << t.p;
    };
    if (create) {
        const auto check_all = [&](const auto &entries) {
            for (size_t k = 0; k < entries.size() && !testing::Test::HasFailure(); k++) {
                const int32_t n = std::max(size.columns, 1), at = static_cast<int32_t>(k);
                check(at / n, at % n, reinterpret_cast<const char *>(&entries[k]));
            }
        };
        EXPECT_EQ(table_of(result).settings.datatype, to);
        to == MODLA_FLOAT8 ? check_all(entries_of<uint64_t>(result, size, order))
                           : check_all(entries_of<uint32_t>(result, size, order));
    } else {
        EXPECT_EQ(result, null_value());
        for (int32_t i = 0; i < block->rows; i++) {
            for (int32_t j = 0; j < block->columns && !testing::Test::HasFailure(); j++) {
                check(i, j, storage.base + block->at(i, j));
                std::memcpy(&storage.shadow[block->at(i, j)], storage.base + block->at(i, j), entry_bytes(to));
            }
        }
    }
    ASSERT_EQ(storage.difference(), -1) << "outside the block";
}

TEST(Mod, OfEveryInputIntoEveryOutput) {
    repeat(
        4000,
        [](Random &random, Storage &storage, int i) {
            set_collect_always(i % 512 == 5);
            mod_once(random, storage);
            set_collect_always(false);
        },
        MODLA_INTEGER);
}

// Beyond the caches, where tables of different orders are moved in tiles.
TEST(Mod, OfLargeTables) {
    Roots made;
    const int32_t n = 1104, p = 65521;
    for (const int32_t from : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t to : {MODLA_INTEGER4, MODLA_FLOAT8}) {
            made.values = {make_table(from, MODLA_MATRIX, MODLA_C_ORDER, n, n)};
            made.values.push_back(make_table(to, MODLA_MATRIX, MODLA_FORTRAN_ORDER, n, n));
            const auto value = [](int32_t k) { return static_cast<int32_t>(static_cast<uint32_t>(k) * 2654435761u); };
            void *const source = table_of(made.values[0]).data;
            for (int32_t k = 0; k < n * n; k++) {
                if (from == MODLA_INTEGER4) static_cast<int32_t *>(source)[k] = value(k);
                if (from == MODLA_FLOAT8) static_cast<double *>(source)[k] = value(k) + (k == n ? 0.5 : 0);
            }
            call_entry_point(modLA_Mod, {immediate(p), made.values[0], made.values[1]});
            const void *const target = table_of(made.values[1]).data;
            int wrong = 0;
            for (int32_t i = 0; i < n; i++) {
                for (int32_t j = 0; j < n; j++) {
                    const int32_t at = j * n + i, k = i * n + j;
                    const int64_t r = ((int64_t{value(k)} + (from == MODLA_FLOAT8 && k == n)) % p + p) % p;
                    wrong += r != (to == MODLA_FLOAT8 ? static_cast<int64_t>(static_cast<const double *>(target)[at])
                                                      : static_cast<const int32_t *>(target)[at]);
                }
            }
            EXPECT_EQ(wrong, 0) << from << " to " << to;
        }
    }
}

// ---- Big integers ----

TEST(Mod, OfBigIntegers) {
    Random random(1);
    for (const int32_t p : {2, 3, 7, 251, 65521, 65535, 10000, 33554393, 33554431}) {
        Roots made;
        std::vector<mpz_class> values;
        for (int k = 0; k < 60; k++) {
            const uint32_t digits = k < 40 ? 1 + below(random, 140u) : 1 + below(random, 5000u);
            mpz_class x = 0;
            for (uint32_t i = 0; i < digits; i++) x = x * 10 + (chance(random, 20) ? 9 : below(random, 10));
            if (chance(random, 30)) x *= p;
            x += (x < 1 << 30 ? mpz_class(1 << 30) * p : mpz_class(0));  // not immediate
            values.push_back(chance(random, 50) ? x : mpz_class(-x));
            const Object object = integer_object(values.back());
            made.values.push_back(object);
            const mpz_class r = residue_of(values.back(), p), negative = values.back() < 0 && r == 0 ? mpz_class(p) : r;
            EXPECT_EQ(modtolvexint_f(object, p, 0, 1.0000000000000002 / p), negative);
            if (p < 65536) {
                const uint32_t word = static_cast<uint32_t>(p);
                EXPECT_EQ(modtolvexint_iw(object, word), negative);
                EXPECT_EQ(modeval_iw(&host_api(), word, object, nullptr, nullptr, 0), negative);
            }
            EXPECT_EQ(modeval_f(&host_api(), p, 0, object, nullptr, nullptr, 0, 1.0000000000000002 / p), negative);
        }
        made.values.push_back(new_sequence(made.values));
        const Object list = new_collection(type_list, made.values.back());
        for (const char *datatype : {"integer[4]", "float[8]"}) {
            if (p > 65535 && *datatype == 'i') continue;
            const Object result = call_entry_point(modLA_Mod, {immediate(p), list, eval(datatype)});
            for (int32_t k = 0; k < 60; k++) {
                ASSERT_EQ(integer_of(get_entry_integer(table_of(result), k + 1, 1)),
                          residue_of(values[static_cast<size_t>(k)], p))
                    << k << " mod " << p;
            }
        }
    }
}

// ---- Evaluation ----

template <class Word>
void check_powers(Word none, const std::function<Word(Object, Object *, Word *)> &evaluate) {
    Roots made;
    const auto make = [&](uint32_t type_id, std::vector<Object> parts) {
        made.values.push_back(raw_object(type_id, parts));
        return made.values.back();
    };
    Object names[] = {global_name("y"), global_name("x")};
    std::vector<Word> tables(64, none);
    tables[0] = 3;
    tables[32] = 5;
    const Object x_to_6 = make(MODLA_TYPE_POWER, {names[1], immediate(6)});
    EXPECT_EQ(evaluate(x_to_6, names, tables.data()), 15625 % 251);
    EXPECT_EQ(tables[32 + 16], 25) << "x^2 is known";
    EXPECT_EQ(tables[32 + 17], 625 % 251) << "x^4 is known";
    tables[32 + 17] = 2;
    EXPECT_EQ(evaluate(x_to_6, names, tables.data()), 50) << "and used by the next call";
    std::vector<Object> polynomial = {names[1], immediate(251), 1, 0, 0, 1};  // 1 + x^3
    const Object raw =
        reinterpret_cast<Object>(polynomial.insert(polynomial.begin(), MODLA_TYPE_POLYNOMIAL << 26 | 7).base());
    EXPECT_EQ(evaluate(raw, names, tables.data()), 126);
    EXPECT_EQ(tables[32 + 2], 125) << "x^3 is known";
    tables[32 + 2] = 9;
    EXPECT_EQ(evaluate(make(MODLA_TYPE_POWER, {names[1], immediate(3)}), names, tables.data()), 9);
    EXPECT_EQ(tables[1], none) << "y's table is its own";
}

TEST(Evaluation, KnownPowersAreUsedAgain) {
    check_powers<uint32_t>(65536, [](Object x, Object *names, uint32_t *tables) {
        return modeval_iw(&host_api(), 251, x, names, tables, 2);
    });
    check_powers<double>(-1, [](Object x, Object *names, double *tables) {
        return modeval_f(&host_api(), 251, 0, x, names, tables, 2, 1.0000000000000002 / 251);
    });
}

// ---- process_flexinput ----

struct Kind {
    const char *text;
    int32_t datatype, dimensions;
    bool is_list, list_of_lists, columns;
    int32_t rows, row_step, column_count, column_step;  // -1: the dimension is missing
};

TEST(FlexInput, DescribesEveryKindOfInput) {
    run("rv := Create(7, 0, 6, integer); cv := Create(7, 4, 0, float[8])");
    const Kind kinds[] = {
        {"Create(7, 4, 6, integer[4])", 4, 2, false, false, false, 4, 6, 6, 1},
        {"Create(7, 4, 6, float[8], Fortran_order)", 6, 2, false, false, false, 4, 1, 6, 4},
        {"Create(7, 4, 6, integer)", 0, 2, false, false, false, 4, 6, 6, 1},
        {"cv", 6, 1, false, false, false, 4, 1, -1, 0},
        {"rv", 0, 1, false, false, false, -1, 0, 6, 1},
        {"[1, rv, 10^20, x]", 0, 1, true, false, false, 4, 0, -1, 0},
        {"{x, 2, 3, 4}", 0, 1, true, false, false, 4, 0, -1, 0},
        {"[[1], [1, 2, 3, 4, 5, 6], [], {7}]", 0, 2, true, true, false, 4, 0, 6, 0},
        {"[rv, rv, rv, rv]", 0, 2, true, false, false, 4, 0, 6, 0},
        {"[cv, cv, cv, cv, cv, cv]", 6, 2, true, false, true, 4, 0, 6, 0},
    };
    struct Selection {
        const char *text;
        int32_t from, to;  // negative ends and missing selections are those of the bound; to = 0: single
    };
    const Selection selections[] = {{"", 1, -1}, {"3", 3, 0}, {"-2", -2, 0}, {"2..3", 2, 3}, {"-3..-1", -3, -1}};
    Random random(1);
    for (const Kind &kind : kinds) {
        for (const Selection &row : selections) {
            for (const Selection &column : selections) {
                if ((kind.rows < 0 && *row.text) || (kind.column_count < 0 && *column.text)) continue;
                if (kind.rows >= 0 && *column.text && !*row.text) continue;
                for (int flags = 0; flags < 4; flags++) {
                    const bool given = flags & 1, transpose = flags & 2;
                    std::string text = "[0, 1, " + std::string(kind.text);
                    for (const char *more : {row.text, column.text, transpose ? "transpose" : ""}) {
                        if (*more) text += std::string(", ") + more;
                    }
                    SCOPED_TRACE(text + (given ? "], transposed before" : "]"));
                    const Object list = eval(text + ", 'rest']");
                    using Triple = std::array<int32_t, 3>;
                    const auto triple = [](int32_t bound, const Selection &s, int32_t step) -> Triple {
                        if (bound < 0) return {0, 0, 0};
                        const int32_t from = s.from < 0 ? bound + s.from + 1 : s.from,
                                      to = s.to < 0 ? bound + s.to + 1 : s.to;
                        return {from, s.to == 0 ? 0 : to - from + 1, step};
                    };
                    const Triple rows = triple(kind.rows, row, kind.row_step);
                    const Triple columns = triple(kind.column_count, column, kind.column_step);
                    const bool before = given || kind.columns, row_vector = kind.rows < 0;
                    const Triple first = before != row_vector ? columns : rows,
                                 second = before != row_vector ? rows : columns;
                    const int32_t transposed = (before != row_vector) != transpose;
                    const int32_t wanted[] = {kind.datatype, kind.dimensions, kind.is_list, kind.list_of_lists,
                                              first[0],      first[1],        first[2],     second[0],
                                              second[1],     second[2],       transposed,   kind.columns};
                    for (int repetition = 0; repetition < 2; repetition++) {
                        int32_t got[12], *out[12], position = 2;
                        for (int k = 0; k < 12; k++) {
                            got[k] = k == 10 ? given : -77;
                            const bool wants = repetition == 0 || chance(random, 70) || (k == 10 && given);
                            out[k] = wants ? &got[k] : nullptr;
                        }
                        process_flexinput(&host_api(), words(sequence_of(list)) + 1, &position,
                                          static_cast<int32_t>(size_of(list)) - 1, out[0], out[1], out[2], out[3],
                                          out[4], out[5], out[6], out[7], out[8], out[9], out[10], out[11]);
                        EXPECT_EQ(position, static_cast<int32_t>(size_of(list)) - 1);
                        for (int k = 0; k < 12; k++) {
                            ASSERT_EQ(got[k], out[k] ? wanted[k] : k == 10 ? given : -77) << "result " << k;
                        }
                    }
                }
            }
        }
    }
}

// ---- Messages ----

const char *const tables =
    "x := 'x'; y := 'y'; z := 'z'\n"
    "W := Create(7, 3, 3, 2, integer[4]); F := Create(7, 3, 3, 2, float[8]); N := Create(7, 3, 3, integer)\n"
    "V := Create(7, 3, 0, 1, integer[4]); R := Create(7, 0, 3, 1, float[8]); L := [x, 10, 3]\n"
    "Inf := raw(Create(7, 3, 0, float[8]), [-2^53, infinity, nan])\n"
    "NaN := raw(Create(7, 3, 3, float[8]), [0, 0, 0, 0, 0, nan, -2.0^60, 0, 0])\n";

void define_tables() {
    run(tables);
    set_name("Bytes", make_table(3, MODLA_MATRIX, MODLA_C_ORDER, 3, 3));
    set_name("Packed", make_table(MODLA_INTEGER4, MODLA_MATRIX, MODLA_C_ORDER, 3, 3, 1));
    set_name("Array", make_table(MODLA_INTEGER4, MODLA_ARRAY, MODLA_C_ORDER, 3, 3));
    set_name("ByteVector", make_table(3, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 3, 1));
    set_name("PackedVector", make_table(MODLA_INTEGER4, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 3, 1, 1));
    set_name("Empty", make_table(MODLA_INTEGER4, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 0, 1));
    const Object X = global_name("x"), two = immediate(2), Y = global_name("y");
    set_name("half", raw_object(3, {immediate(1), two}));
    set_name("big", integer_object(mpz_class(1) << 70));
    const auto define = [](const char *name, uint32_t type_id, std::vector<Object> parts) {
        set_name(name, raw_object(type_id, parts));
    };
    define("symbolic", MODLA_TYPE_SYMBOLIC_POWER, {two, X});
    define("root", MODLA_TYPE_POWER, {X, evaluate(global_name("half"))});
    define("huge", MODLA_TYPE_POWER, {X, evaluate(global_name("big"))});
    define("square", MODLA_TYPE_POWER, {two, two});
    define("reciprocal", MODLA_TYPE_POWER, {X, immediate(-1)});
    define("reciprocal14", MODLA_TYPE_POWER, {raw_object(MODLA_TYPE_SUM, {X, immediate(14)}), immediate(-1)});
    define("halves", MODLA_TYPE_SUM, {X, evaluate(global_name("half"))});
    define("complex", MODLA_TYPE_COMPLEX, {two, two});
    define("long", MODLA_TYPE_COMPLEX, {two, two, two});
    define("poly5", MODLA_TYPE_POLYNOMIAL, {X, immediate(5), two});
    define("poly7y", MODLA_TYPE_POLYNOMIAL, {Y, immediate(7), 3});
    define("poly_xy", MODLA_TYPE_POLYNOMIAL, {raw_object(MODLA_TYPE_SEQUENCE, {X, Y}), immediate(5), two});
}

// The call's message, and that it leaves nothing behind, for every way of leaving the library.
void expect_message(const std::string &arguments, const std::string &message, bool unwritten = true) {
    SCOPED_TRACE(arguments);
    const Object list = eval("[" + arguments + "]");
    std::vector<Object> values;
    for (uint32_t i = 0; i < size_of(list); i++) values.push_back(element(list, i));
    const auto storages = [] {
        std::vector<std::vector<char>> all;
        for (const char *name : {"W", "F", "N", "V", "R"}) all.push_back(storage_of(eval(name)));
        return all;
    };
    const auto before = storages();
    for (const Unwinding way : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(way);
        EXPECT_EQ(message_of([&] { call_entry_point(modLA_Mod, values); }), message);
        EXPECT_EQ(lent_count(), 0u);
    }
    set_unwinding(Unwinding::exception);
    HostApi api = modla_test::recording_host();
    EXPECT_EQ(modLA_Mod(&api, words(new_sequence(values))), null_value()) << "where errors return";
    EXPECT_EQ(raised_messages, std::vector<std::string>{message});
    EXPECT_EQ(lent_count(), 0u);
    EXPECT_TRUE(!unwritten || storages() == before);
    EXPECT_EQ(
        run("print(Mod(7, [x, 10, 3/2], [x = 3], V)); print(V[1], V[2], V[3]); for i from 1 to 3 do V[i] := 1 end"),
        "\n3 3 5\n");
}

TEST(Mod, MessagesOfSingleFaults) {
    define_tables();
    const std::string row = "argument 2 row specification out of range";
    const std::string column = "argument 2 column specification out of range";
    const std::string kinds = "argument 2 list/set elements must be lists, sets or vectors";
    const std::string uniform = "argument 2 vectors must be of uniform type";
    const std::string range = "rhs of evaluation must be an integer in the range 0..modulus-1";
    const std::string many_rows = "input has too many rows for specified output";
    const std::string many_columns = "input has too many columns for specified output";
    const std::string too_few = "too few arguments, expected output object or description for argument ";
    const std::string no_value = "unable to mod input, cannot evaluate ";
    const std::pair<std::string, std::string> cases[] = {
        {"", "argument 1, the modulus, must be an integer"},
        {"7", "too few arguments, expected input object for argument 2"},
        {"7, W", too_few + "3"},
        {"7, L, 1..2, transpose, [x = 3]", too_few + "6"},
        // The input.
        {"7, Bytes, integer[4]", "argument 2 has invalid datatype"},
        {"7, Packed, integer[4]", "argument 2 must have rectangular storage"},
        {"7, Array, integer[4]", "argument 2 cannot be an 'Array', use 'Matrix' or 'Vector' instead"},
        {"7, [], integer[4]", "argument 2 cannot be an empty list/set"},
        {"7, [[], []], integer[4]", "argument 2 cannot be an empty list/set"},
        {"7, [[1], 2], integer[4]", "argument 2 cannot be a list/set with mixed object types"},
        {"7, [V, 2], integer[4]", kinds},
        {"7, [V, [2]], integer[4]", kinds},
        {"7, [V, W], integer[4]", kinds},
        {"7, [W], integer[4]", kinds},
        {"7, [ByteVector], integer[4]", "argument 2 vectors have invalid datatype"},
        {"7, [PackedVector], integer[4]", "argument 2 vectors must have rectangular storage"},
        {"7, [Empty], integer[4]", "argument 2 vectors cannot be empty"},
        {"7, [V, Empty], integer[4]", "argument 2 vectors cannot be empty"},
        {"7, [V, Create(7, 3, 0, float[8])], integer[4]", uniform},
        {"7, [V, Create(7, 2, 0, integer[4])], integer[4]",
         "argument 2 vectors must have a uniform number of elements"},
        {"7, W, 0, integer[4]", row},
        {"7, W, -4, integer[4]", row},
        {"7, W, 10^20, integer[4]", row},
        {"7, W, 1..4, integer[4]", row},
        {"7, W, 1..x, integer[4]", row},
        {"7, W, 1, 4, integer[4]", column},
        {"7, R, -4..1, integer[4]", column},
        {"7, W, 1, 3..2, integer[4]", "argument 2 cannot have empty column range"},
        {"7, [V, V], 1, 3, integer[4]", column},
        {"7, V, 1, 1, integer[4]",
         "expected output object or datatype ('integer[4]', 'float[8]', or 'integer'), for "
         "argument 4, got 1"},
        {"7, W, 2, 2, integer[4]", "object for create cannot be zero dimensional"},
        // The output.
        {"7, W, x",
         "expected output object or datatype ('integer[4]', 'float[8]', or 'integer'), for argument 3, got x"},
        {"7, W, integer[4], 3", "expected ordering for argument 4, got 3"},
        {"7, W, integer[4], C_order, x", "too many arguments, starting at argument 5, x"},
        {"7, W, W, transpose", "too many arguments, starting at argument 4, transpose"},
        {"7, W, W, 4", "Matrix index out of range"},
        {"7, V, W, 1..2, 3..2", "column range cannot be empty"},
        {"7, R, R, 2", "argument 3 shortcut specification has fewer columns than required by prior arguments"},
        {"7, W, V", many_columns},
        {"7, W, R", many_rows},
        {"7, W, W, 1..2", many_rows},
        {"7, W, W, 1..3, 2..3", many_columns},
        {"7, V, transpose, V", many_columns},
        {"7, [V, V, V, V], W", many_columns},
        {"7, [V, V, V, V], transpose, W", many_rows},
        {"7, V, Empty", many_rows},
        {"2^25, W, F", "modulus is too large for 'float[8]' datatype, must be < 33554432"},
        {"1, W, N", "modulus must be at least 2"},
        // The evaluations.
        {"7, [V, V], x = 1, W", "evaluation list/set can only be specified for algebraic input"},
        {"7, L, {x}, N", "evaluations must be a list/set of equations"},
        {"7, L, [x = 1, y = -1], W", range},
        {"7, L, x = 10^20, F", range},
        {"7, L, x = y, F", range},
        {"7, L, x = 7, N", range},
        {"7, L, x = 1.0, N", range},
        {"10^20, L, {x = 10^20}, N", range},
        // The entries.
        {"7, NaN, W", "invalid input type"},
        {"7, NaN, 3, transpose, F", "float too large"},
        {"7, NaN, N", "invalid input type"},
        {"7, [V, Inf], W", uniform},
        {"7, [Inf], F", "float too large"},
        {"7, Inf, 1, W, 1, 1", "float too large"},
        {"7, Inf, 2, F, 1, 1", "float too large"},
        {"7, Inf, 3, N, 2, 2", "invalid input type"},
    };
    for (const auto &[arguments, message] : cases) expect_message(arguments, message);
    const std::pair<std::string, std::string> values[] = {
        {"z", no_value + "z to an integer"},
        {"2.5", no_value + "2.5 to an integer"},
        {"1/7", "division by zero"},
        {"symbolic", "unable to mod input containing variable exponents"},
        {"root", "exponent too large"},
        {"huge", "exponent too large"},
        {"square", "internal error 2"},
        {"halves", "internal error"},
        {"long", "internal error"},
        {"poly_xy", "unable to mod input containing modp2 polynomials"},
        {"poly5", "modp1 polynomial modulus must be the same as the modp modulus"},
    };
    for (const auto &[value, message] : values) {
        for (const std::string output : {"W", "F", "integer[4]", "float[8]"}) {
            if (!message.empty())
                expect_message("7, [1, " + value + "], [x = 3, y = 2, I = 2], " + output, message, false);
        }
    }
    expect_message("7, [1, complex], x = 3, W", "unable to evaluate to modp values", false);
    expect_message("7, [poly7y], x = 3, W", no_value + "y to an integer", false);
    expect_message("7, [reciprocal], x = 0, W", "division by zero", false);
    expect_message("7, [reciprocal14], x = 0, F", "division by zero", false);
    // A list of host values is taken as it is for host integers.
    const Callback nothing("cbMod", [](const std::vector<Object> &) { return null_value(); });
    EXPECT_EQ(run("print(Mod(7, [z, 2.5], N)); N[1, 1]; N[2, 1]; N[3, 3]"), "\nz\n2.5\n0\n");
}

// A slot of a call, a text for it that is wrong, and when that is found.
struct Fault {
    size_t slot;
    const char *text, *message;
    int rank;
};

TEST(Mod, OfTwoFaultsTheEarlierIsReported) {
    define_tables();
    const std::vector<std::string> created = {"7", "L", "1..2", "[x = 3]", "integer[4]", "C_order", ""};
    const std::vector<std::string> given = {"7", "L", "1..2", "[x = 3]", "V", "1..2", ""};
    const Fault of_both[] = {
        {0, "x", "argument 1, the modulus, must be an integer", 1},
        {1, "8", "argument 2 must be a set, list, or Matrix/Vector", 2},
        {1, "[V, R]", "argument 2 vectors must be of uniform type", 2},
        {2, "4", "argument 2 row specification out of range", 3},
        {2, "2..1", "argument 2 cannot have empty row range", 3},
        {6, "z", "too many arguments, starting at argument 7, z", 6},
        {0, "65536", "modulus is too large for 'integer[4]' datatype, must be < 65536", 7},
        {0, "1", "modulus must be at least 2", 7},
        {1, "V", "evaluation list/set can only be specified for algebraic input", 8},
        {3, "{}", "empty evaluation list/set not allowed", 9},
        {3, "[x = 1, z]", "evaluations must be a list/set of equations", 10},
        {3, "x = 7", "rhs of evaluation must be an integer in the range 0..modulus-1", 10},
        {1, "[z, 1, 2]", "unable to mod input, cannot evaluate z to an integer", 20},
    };
    const Fault of_created[] = {
        {4, "z", "expected output object or datatype ('integer[4]', 'float[8]', or 'integer'), for argument 5, got z",
         4},
        {5, "z", "expected ordering for argument 6, got z", 5},
    };
    const Fault of_given[] = {
        {4, "Bytes", "argument 5 has invalid datatype", 4},
        {4, "Packed", "argument 5 has invalid storage", 4},
        {4, "Array", "argument 5 must be a Matrix or Vector", 4},
        {5, "0", "Vector index out of range", 5},
        {5, "2..1", "row range cannot be empty", 5},
        {5, "3", "argument 5 shortcut specification has fewer rows than required by prior arguments", 5},
        {5, "2..2", "input has too many rows for specified output", 15},
    };
    int pairs = 0;
    for (const bool create : {true, false}) {
        std::vector<Fault> faults(std::begin(of_both), std::end(of_both));
        create ? faults.insert(faults.end(), std::begin(of_created), std::end(of_created))
               : faults.insert(faults.end(), std::begin(of_given), std::end(of_given));
        for (const Fault &a : faults) {
            for (const Fault &b : faults) {
                // A selection that is wrong for a Vector suits no table of another kind.
                if (a.slot >= b.slot || (a.slot == 2 && b.slot == 4 && a.rank > b.rank)) continue;
                std::vector<std::string> slots = create ? created : given;
                slots[a.slot] = a.text;
                slots[b.slot] = b.text;
                std::string text = slots[0];
                for (size_t k = 1; k < slots.size(); k++) text += (slots[k].empty() ? "" : ", ") + slots[k];
                const Fault &first = a.rank <= b.rank ? a : b;
                expect_message(text, first.message, first.rank < 20);
                pairs++;
            }
        }
    }
    EXPECT_GT(pairs, 150);
}

// ---- Failures in the middle, and the host's floating-point mode ----

// Calls that take every way through Mod, on tables that share one storage; the last ones fail.
std::vector<Object> calls_of_every_kind(Storage &storage) {
    storage.forget_values();
    std::memset(storage.base, 0, 1 << 12);
    const auto table = [&](int32_t datatype, uint32_t offset) {
        RtableSettings settings = default_settings();
        settings.datatype = datatype;
        const int32_t bounds[2] = {9, 9};
        return storage.keep(new_table(settings, bounds, storage.base + offset));
    };
    const Object doubles = table(MODLA_FLOAT8, 0), on_doubles = table(MODLA_INTEGER, 16);
    const Object integers = table(MODLA_INTEGER, 2048), words_on_integers = table(MODLA_INTEGER4, 2048 + 8);
    for (int k = 0; k < 9; k++) storage.put(8 * static_cast<uint32_t>(k), k % 5 ? 1e12 + k : -k - 0.5);
    for (uint32_t k = 0; k < 90; k++) storage.put(2048 + 4 * k, immediate(k % 2 ? -5 : 1000000));
    const Object x = global_name("x"), big = storage.keep(integer_object(mpz_class(1) << 200));
    const Object sum = storage.keep(raw_object(MODLA_TYPE_SUM, {x, big, x, immediate(-1)}));
    const auto list = [&](const std::vector<Object> &elements) {
        return storage.keep(new_collection(type_list, storage.keep(new_sequence(elements))));
    };
    const Object values = list({sum, big, x, immediate(-9)}), no_value = list({sum, global_name("z")});
    const Object listed = storage.keep(new_pair(type_equation, x, immediate(5)));
    const Object p = immediate(7), one = immediate(1), transpose = global_name("transpose");
    const Object word = storage.keep(eval("integer[4]")), real = storage.keep(eval("float[8]"));
    storage.put(2048 + 4 * 80, global_name("z"));
    const Object first_rows = storage.keep(new_pair(type_range, one, immediate(8)));
    std::vector<Object> calls;
    for (const std::vector<Object> &arguments :
         std::vector<std::vector<Object>>{{p, values, listed, word},
                                          {p, values, listed, real},
                                          {p, values, listed, on_doubles},
                                          {p, doubles, one, first_rows, word},
                                          {p, doubles, first_rows, one, doubles},
                                          {p, doubles, first_rows, one, on_doubles},
                                          {p, words_on_integers, integers},
                                          {p, integers, first_rows, words_on_integers},
                                          {p, integers, first_rows, transpose, integers},
                                          {p, no_value, listed, real},
                                          {p, no_value, listed, word},
                                          {p, integers, listed, words_on_integers},
                                          {p, integers, listed, doubles}}) {
        calls.push_back(storage.keep(new_sequence(arguments)));
    }
    return calls;
}

void note_and_return(const char *format, ...) {
    watch.note("RaiseError");
    raised_messages.push_back(format);
}

// What the k-th call leaves, or its error, in a host whose n-th operation fails; RaiseError returns where it is told to.
std::string run_watched(Storage &storage, size_t k, int failing_call, bool returning) {
    const Object arguments = calls_of_every_kind(storage)[k];
    HostApi api = watching_host();
    if (returning) api.RaiseError = note_and_return;
    raised_messages.clear();
    watch = {};
    watch.failing_call = failing_call;
    Object result = null_value();
    std::string state = message_of([&] { result = modLA_Mod(&api, words(arguments)); });
    EXPECT_TRUE(lent_count() == 0 || !state.empty()) << k;
    reclaim_memory(0);
    if (failing_call) return state;
    for (const std::string &message : raised_messages) state += message;
    state.append(storage.base, 1 << 12);
    return result == null_value() ? state : state + to_text(result);
}

TEST(Mod, WhereTheHostFailsOrWatches) {
    Storage storage(MODLA_INTEGER);
    const auto reduce = [](const std::vector<Object> &arguments) {
        watch.note("callback");
        const Table &view = table_of(arguments[5]);
        for (int32_t i = immediate_value(arguments[1]); i <= immediate_value(arguments[2]); i++) {
            for (int32_t j = immediate_value(arguments[3]); j <= immediate_value(arguments[4]); j++) {
                const Object entry = get_entry(view, i, j);
                set_entry(view, i, j, is_integer(entry) ? modulo(entry, arguments[0]) : immediate(6));
            }
        }
        return null_value();
    };
    const Callback plain("cbMod", reduce), evaluating("cbModEval", reduce);
    for (size_t k = 0; k < 13; k++) {
        const std::string complete = run_watched(storage, k, 0, false);
        EXPECT_EQ(complete.substr(0, 13) == "unable to mod", k >= 9) << k;
        const std::string returned = run_watched(storage, k, 0, true);
        const int operations = static_cast<int>(watch.names.size());
        for (int n = 1; n <= operations; n++) {
            EXPECT_EQ(run_watched(storage, k, n, true), "the host gave up") << k << ", operation " << n;
            ASSERT_TRUE(run_watched(storage, k, 0, false) == complete) << k << " after operation " << n;
        }
        for (const modla_test::FpMode &mode : modla_test::foreign_fp_modes()) {
            std::string state;
            EXPECT_TRUE(modla_test::keeps_fp_mode(mode, [&] { state = run_watched(storage, k, 0, true); }));
            EXPECT_TRUE(state == returned) << k;
            for (const modla_test::FpMode &seen : watch.modes) ASSERT_EQ(seen, mode) << k;
        }
    }
}

// ---- Sizes at their limits ----

TEST(Mod, OfEmptyTables) {
    Storage storage(MODLA_INTEGER);
    Random random(1);
    const auto nothing = [](const std::vector<Object> &) { return null_value(); };
    const Callback plain("cbMod", nothing);
    for (const int32_t from : datatypes) {
        for (const int32_t to : datatypes) {
            for (const Size size : {Size{0, 5}, {5, 0}, {0, 0}}) {
                const auto matrix = [&](int32_t datatype, Size s, uint32_t offset) {
                    RtableSettings settings = default_settings();
                    settings.datatype = datatype;
                    const int32_t bounds[2] = {s.rows, s.columns};
                    return storage.keep(new_table(settings, bounds, storage.base + offset));
                };
                const Object p = immediate(7), empty = matrix(from, size, 0);
                std::memset(storage.base, 0x11, 4096);
                storage.take_shadow();
                const Object same = matrix(to, size, 64), full = matrix(to, {5, 5}, 2048);
                EXPECT_EQ(call(modLA_Mod, {p, empty, same}, random), null_value());
                EXPECT_EQ(call(modLA_Mod, {p, empty, empty}, random), null_value());
                EXPECT_EQ(storage.difference(), -1);
                EXPECT_EQ(call(modLA_Mod, {p, empty, full}, random), null_value());
                for (uint32_t k = 0; k < 25; k++) {
                    EXPECT_EQ(stored_residue(to, storage.base + 2048 + k * entry_bytes(to)), 0);
                    std::memcpy(&storage.shadow[2048 + k * entry_bytes(to)], storage.base + 2048 + k * entry_bytes(to),
                                entry_bytes(to));
                }
                EXPECT_EQ(storage.difference(), -1);
                EXPECT_NE(message_of([&] { call(modLA_Mod, {p, full, same}, random); }), "");
                EXPECT_EQ(storage.difference(), -1);
            }
        }
    }
}

// 2^24 tables of 256 bytes are more than the host can be asked for.
TEST(Mod, AsksForSizesBeyond32Bits) {
    static uint32_t largest;
    HostApi api = host_api();
    api.Alloc = [](uint32_t bytes) {
        largest = std::max(largest, bytes);
        if (bytes < 1 << 27 && bytes >= 1 << 26) return host_api().Alloc(bytes);
        throw HostError("no room");
    };
    Roots held;
    const uint32_t count = 1 << 24;
    held.values = {new_pair(type_equation, global_name("x"), immediate(1)), new_object(count + 1, MODLA_TYPE_LIST)};
    std::fill_n(words(held.values[1]) + 1, count, held.values[0]);
    held.values.push_back(eval("[[x]]"));
    held.values.push_back(new_sequence({immediate(7), held.values[2], held.values[1], eval("float[8]")}));
    EXPECT_EQ(message_of([&] { modLA_Mod(&api, words(held.values[3])); }), "no room");
    EXPECT_EQ(largest, UINT32_MAX);
    reclaim_memory(0);
}

}  // namespace
