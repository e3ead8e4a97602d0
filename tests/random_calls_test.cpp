// Random calls of every entry point: valid, nearly valid and absurd ones, each in four hosts.
//
// Whatever the arguments are, nothing is written outside of the selected blocks, nothing at all when a check fails, no
// work memory is left, and modes and registers stay as they are.  The same call must end in the same way on tables in the
// other storage order and where errors return; a valid one also on doubles instead of words.
//
// MODLA_TEST_CALLS sets the number of calls, MODLA_TEST_FIRST the seed of the first one.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

#include "tests/library_calls.h"

namespace {

using namespace modla_test;
using namespace modla_test::strict;

// What is different from the call as it was drawn.
struct Variation {
    bool other_order = false, other_representation = false;
};

// Entries top..top+rows-1, left..left+columns-1 of a table.
struct Cells {
    HostObject table;
    int32_t top, rows, left, columns;
};

struct RandomCall {
    std::string entry;
    std::vector<HostObject> arguments;
    std::vector<HostObject> tables;  // all that there are
    std::vector<Cells> outputs;      // what a valid call may write
    int32_t p = 0;
    bool valid = true;   // as far as the generator knows
    bool draws = false;  // random entries in storage order
    bool clean = true;   // all tables hold residues
    bool knows_modulus = true;
    int32_t datatype = 0;
};

// Draws calls.  The same seed draws the same call for every variation.
class Generator {
  public:
    Generator(uint32_t seed, const Variation &variation) : random_(seed), variation_(variation) {}

    RandomCall draw() {
        static const std::set<std::string> names = entry_point_names();
        static const std::vector<std::string> list(names.begin(), names.end());
        call_.entry = list[below(random_, list.size())];
        choose_setting();
        add(call_.entry == "modLA_Register" ? name("x") : modulus());
        draw_arguments(call_.entry.substr(6));
        if (chance(random_, 40)) mutate();
        return std::move(call_);
    }

  private:
    using Shape = std::pair<int32_t, int32_t>;  // 0: a row (column) object

    int32_t number(int32_t from, int32_t to) { return from + below(random_, to - from + 1); }
    bool maybe(int percent) { return chance(random_, percent); }
    void add(HostObject value) { call_.arguments.push_back(value); }
    void keyword(const char *text) { add(name(text)); }
    HostObject integer(int64_t value) { return integer_object(value); }
    HostObject order_name(int32_t order) {
        return name((order == MODLA_C_ORDER) != variation_.other_order ? "C_order" : "Fortran_order");
    }
    HostObject modulus() { return integer(call_.p); }

    void choose_setting() {
        datatype_ = pick(random_, {MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER});
        const std::vector<int32_t> moduli = {2, 3, 7, 12, 46337, 65521, 65535, 65536, 33554393, 33554431};
        call_.p = moduli[below(random_, moduli.size())];
        if (variation_.other_representation && datatype_ != MODLA_INTEGER) {
            datatype_ = MODLA_INTEGER4 + MODLA_FLOAT8 - datatype_;
        }
        call_.datatype = datatype_;
        order_ = number(0, 1);
    }

    // ---- Tables

    HostObject new_table(int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns,
                         int32_t storage = MODLA_RECTANGULAR) {
        const HostObject object =
            strict::new_table(datatype, subtype, variation_.other_order ? 1 - order : order, rows, columns, storage);
        call_.tables.push_back(object);
        const bool clean = maybe(95);
        if (!clean) call_.clean = false;
        const Table &table = table_of(object);
        for (int32_t i = 0; i < table.rows(); i++) {
            for (int32_t j = 0; j < table.columns(); j++) {
                const int64_t value = maybe(25) ? 0 : below(random_, call_.p);
                const uint32_t odd = random_();
                set_entry(table, i, j, value);
                if (!clean && maybe(50)) set_odd_entry(table, i, j, odd);
            }
        }
        return object;
    }

    // What no call of the library would leave.
    void set_odd_entry(const Table &table, int32_t i, int32_t j, uint32_t bits) {
        char *const at = table.entry(i, j);
        const double doubles[] = {-1,
                                  -0.0,
                                  0.5,
                                  1e15,
                                  1e17,
                                  -1e300,
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::denorm_min()};
        if (table.settings.datatype == MODLA_FLOAT8) {
            std::memcpy(at, &doubles[bits % std::size(doubles)], 8);
        } else {
            const HostObject object = bits % 2 ? integer(-123456789123) : name("y");
            std::memcpy(at, table.settings.datatype == MODLA_INTEGER ? &object : &bits, 4);
        }
    }

    // A table that holds a block of the size with a margin, or one that is there already.
    HostObject table_for(int32_t subtype, int32_t rows, int32_t columns, bool margins) {
        if (maybe(30)) {
            for (const HostObject object : call_.tables) {
                const Table &table = table_of(object);
                const bool fits = margins ? table.rows() >= rows && table.columns() >= columns
                                          : table.rows() == rows && table.columns() == columns;
                if (table.settings.subtype == subtype && table.settings.datatype == datatype_ && fits && maybe(70)) {
                    return object;
                }
            }
        }
        const int32_t more_rows = margins && subtype != MODLA_ROW_VECTOR && maybe(60) ? number(0, 3) : 0;
        const int32_t more_columns = margins && subtype != MODLA_COLUMN_VECTOR && maybe(60) ? number(0, 3) : 0;
        return new_table(datatype_, subtype, maybe(80) ? order_ : 1 - order_, rows + more_rows, columns + more_columns);
    }

    HostObject index(int32_t i, int32_t bound) { return integer(maybe(20) ? i - bound - 1 : i); }

    // Rows (columns) first..first+count-1 of bound, from 1.
    HostObject selection(int32_t first, int32_t count, int32_t bound, bool single) {
        return single ? index(first, bound) : range(index(first, bound), index(first + count - 1, bound));
    }

    // Adds a block of the shape: its table, selections, and perhaps "transpose".  required: earlier arguments fix the
    // shape, so that a single index may stand for it.
    void block(Shape shape, bool required, bool may_transpose, bool output) {
        const bool transpose = may_transpose && maybe(25);
        if (transpose) std::swap(shape.first, shape.second);
        const auto [rows, columns] = shape;
        int32_t subtype = MODLA_MATRIX;
        if (rows == 0 && (columns > 0 || maybe(30)) && maybe(60)) subtype = MODLA_ROW_VECTOR;
        if (columns == 0 && subtype == MODLA_MATRIX && maybe(60)) subtype = MODLA_COLUMN_VECTOR;
        const int32_t height = std::max(rows, 1), width = std::max(columns, 1);
        const HostObject object = table_for(subtype, height, width, true);
        const Table &table = table_of(object);
        const int32_t top = number(0, table.rows() - height), left = number(0, table.columns() - width);
        if (output) call_.outputs.push_back({object, top, height, left, width});
        add(object);
        const bool has_rows = subtype != MODLA_ROW_VECTOR, has_columns = subtype != MODLA_COLUMN_VECTOR;
        const auto select = [&](int32_t count, int32_t first, int32_t bound) {
            add(selection(first + 1, std::max(count, 1), bound, count == 0 || (required && maybe(50))));
        };
        const bool all_columns = columns > 0 && width == table.columns() && maybe(70);
        const bool all_rows = rows > 0 && height == table.rows() && (all_columns || !has_columns) && maybe(70);
        if (has_rows && !all_rows) select(rows, top, table.rows());
        // Without a selection of rows, one of columns would be taken for it.
        if (has_columns && !(all_columns || (has_rows && all_rows))) select(columns, left, table.columns());
        if (transpose) keyword("transpose");
    }

    Shape any_shape() {
        const Shape shape = {number(1, 5), number(1, 5)};
        if (maybe(70)) return shape;
        return maybe(50) ? Shape{0, shape.second} : Shape{shape.first, 0};
    }

    // A whole Matrix as an output.
    HostObject matrix(int32_t rows, int32_t columns) {
        const HostObject object = table_for(MODLA_MATRIX, rows, columns, false);
        call_.outputs.push_back({object, 0, rows, 0, columns});
        add(object);
        return object;
    }

    // ---- Arguments of the entry points, after the modulus

    void datatype() {
        const char *const text = datatype_ == MODLA_INTEGER  ? "integer"
                                 : datatype_ == MODLA_FLOAT8 ? "float[8]"
                                                             : "integer[4]";
        add(arguments(text)[0]);
    }
    void output_name() { add(maybe(40) ? integer(0) : name(pick(random_, {"d", "e", "r", "alias", "x"}))); }
    void boolean(bool value) { keyword(value ? "true" : "false"); }
    HostObject scalar() {
        const int32_t value = number(0, std::min(call_.p, 10) - 1);
        return maybe(70) ? integer(value) : float_object(value + pick(random_, {0.0, 0.4, -0.5}));
    }
    void triangle() { keyword(pick(random_, {"upper", "uppernodiag", "lower", "lowernodiag"})); }

    // A range for RowReduce, as k or a..b.
    void reduced_range(int32_t top, int32_t count, int32_t bound) {
        add(top == 0 && maybe(50) ? index(count, bound) : selection(top + 1, count, bound, false));
    }

    void draw_arguments(const std::string &entry) {
        if (entry == "Create") return draw_create();
        if (entry == "Fill") return draw_fill();
        if (entry == "Copy") return draw_copy();
        if (entry == "Swap") return draw_swap();
        if (entry == "Permute") return draw_permute();
        if (entry == "Mod") return draw_mod();
        if (entry == "AddMult") return draw_add_mult();
        if (entry == "Multiply") return draw_multiply();
        if (entry == "RowReduce") return draw_row_reduce();
        if (entry == "LUDecomp") return draw_lu();
        if (entry == "ForSub") return draw_substitution(true);
        if (entry == "BackSub") return draw_substitution(false);
        if (entry == "Determinant") return draw_determinant();
        if (entry == "MatBasis") return draw_basis();
        if (entry == "MatGcd") return draw_gcd();
        if (entry == "ZigZag") {
            const int32_t n = number(1, 6);
            matrix(n, n);
            return;
        }
        if (entry == "Register") return;
        ADD_FAILURE() << "no arguments are drawn for " << entry;
    }

    void draw_create() {
        const int content = number(0, 3);
        const int32_t rows = number(0, 5), columns = content == 1 ? rows : number(0, 5);
        add(integer(rows)), add(integer(columns));
        if (content == 0) add(datatype_ == MODLA_INTEGER ? integer(1) : scalar());
        if (content == 1) keyword("identity");
        if (content == 2) keyword("random");
        call_.draws = content == 2;
        datatype();
        if (maybe(60)) add(order_name(number(0, 1)));
    }
    void draw_fill() {
        const int content = number(0, 2);
        if (content == 0) add(datatype_ == MODLA_INTEGER ? integer(1) : scalar());
        if (content == 1) keyword("random");
        block(any_shape(), false, false, true);
    }
    Shape triangle_shape() {
        const bool special = maybe(40);
        if (special) triangle();
        const int32_t n = number(1, 5);
        return special ? Shape{n, n} : any_shape();
    }
    // The shape of what the arguments selected so far.
    void draw_copy() {
        const Shape shape = triangle_shape();
        block(shape, false, true, false);
        if (maybe(60)) return block(shape, true, false, true);
        if (maybe(50)) add(order_name(number(0, 1)));
    }
    void draw_swap() {
        const Shape shape = triangle_shape();
        block(shape, false, true, true);
        block(shape, true, false, true);
    }
    HostObject permutation(int32_t length, int32_t lines) {
        const int32_t its_datatype = maybe(70) ? MODLA_INTEGER4 : MODLA_INTEGER;
        const HostObject object =
            new_table(its_datatype, maybe(50) ? MODLA_COLUMN_VECTOR : MODLA_ROW_VECTOR, 1, length, length);
        Table &table = table_of(object);
        for (int32_t k = 0; k < length; k++) {
            const bool bad = maybe(3);
            const int32_t line = bad ? lines + 1 : number(k < lines ? k + 1 : 1, lines);
            set_entry(table, table.columns() == 1 ? k : 0, table.columns() == 1 ? 0 : k, line);
        }
        permutations_.insert(object);
        return object;
    }
    void draw_permute() {
        const bool rows = maybe(50);
        const int kind = number(0, 2);
        const int32_t m = kind == 0 && !rows ? 1 : number(1, 6), n = kind == 0 && rows ? 1 : number(1, 6);
        const int32_t lines = rows ? m : n;
        add(permutation(std::max(lines - 1, 1) + number(0, 1), lines));
        const int32_t subtype = kind != 0 ? MODLA_MATRIX : rows ? MODLA_COLUMN_VECTOR : MODLA_ROW_VECTOR;
        const HostObject object = new_table(datatype_, subtype, order_, m, n);
        call_.outputs.push_back({object, 0, m, 0, n});
        add(object);
        boolean(rows), boolean(maybe(50));
    }
    void draw_add_mult() {
        if (maybe(60))
            add(datatype_ == MODLA_INTEGER || maybe(60) ? integer(number(0, std::min(call_.p, 10) - 1)) : scalar());
        const Shape shape = any_shape();
        block(shape, false, true, false);
        block(shape, true, true, false);
        if (maybe(50)) {
            block(shape, true, false, true);
        } else if (maybe(60)) {
            add(order_name(number(0, 1)));
        }
        if (maybe(20)) keyword("sparse");
    }
    void draw_multiply() {
        Shape shape;
        if (maybe(30)) {
            add(integer(number(0, std::min(call_.p, 10) - 1)));
            shape = any_shape();
            block(shape, false, true, false);
        } else {
            const int32_t m = maybe(15) ? 0 : number(1, 5), k = number(1, 5), n = maybe(15) ? 0 : number(1, 5);
            const bool large = maybe(2);
            const int32_t scale = large ? number(4, 12) : 1;
            shape = {m * scale, n * scale};
            block({m * scale, k * scale}, false, true, false);
            block({k * scale, n * scale}, true, true, false);
        }
        if (maybe(25)) add(order_name(number(0, 1)));
        const bool sparse = maybe(20);
        if (sparse) keyword("sparse");
        if (!maybe(50)) return;
        block(shape, true, false, true);
        if (!sparse && maybe(20)) keyword("sparse");
    }
    void draw_row_reduce() {
        const int32_t m = number(1, 6), n = number(1, 6);
        const HostObject object = matrix(m, n);
        const int32_t top = number(0, m - 1), rows = number(1, m - top), left = number(0, n - 1),
                      columns = number(1, n - left);
        call_.outputs.back() = {object, top, rows, left, columns};
        reduced_range(top, rows, m), reduced_range(left, columns, n);
        add(integer(number(0, columns)));
        for (int k = 0; k < 5; k++) output_name();
        if (maybe(30)) {
            add(integer(number(0, 2)));
        } else {
            boolean(maybe(50));
        }
    }
    void draw_lu() {
        const int32_t n = number(1, 6);
        matrix(n, n);
        const HostObject p = permutation(n - 1 + number(0, 2), n);
        call_.outputs.push_back({p, 0, table_of(p).rows(), 0, table_of(p).columns()});
        add(p);
        output_name();
    }
    void draw_substitution(bool forward) {
        const int32_t n = number(1, 6);
        const HostObject triangle = new_table(datatype_, MODLA_MATRIX, order_, n, n);
        for (int32_t i = 0; i < n; i++) {
            if (maybe(95)) set_entry(table_of(triangle), i, i, 1);
        }
        const int32_t columns = number(1, 4);
        const bool vector = maybe(30);
        const HostObject rhs =
            new_table(datatype_, vector ? MODLA_COLUMN_VECTOR : MODLA_MATRIX, order_, n, vector ? 1 : columns);
        call_.outputs.push_back({rhs, 0, n, 0, vector ? 1 : columns});
        add(triangle), add(rhs);
        if (forward) boolean(maybe(50));
    }
    void draw_determinant() {
        const int32_t m = number(1, 6), n = number(1, 6), size = number(1, std::min(m, n));
        const HostObject object = matrix(m, n);
        const int32_t top = number(0, m - size), left = number(0, n - size);
        call_.outputs.back() = {object, top, size, left, size};
        reduced_range(top, size, m), reduced_range(left, size, n);
        keyword("d");
    }
    void draw_basis() {
        const int32_t m = number(1, 6), n = number(1, 6);
        matrix(m, n);
        add(integer(number(-1, m)));
        boolean(n <= m && maybe(50));
    }
    void draw_gcd() {
        const int32_t m = number(1, 5), n = number(1, 8);
        matrix(m, n);
        add(integer(number(1, m)));
    }

    HostObject host_value() {
        switch (number(0, 6)) {
            case 0:
                return integer(-123456789123456);
            case 1:
                return name("x");
            case 2:
                return new_object(MODLA_TYPE_RATIONAL, {integer(number(-9, 9)), integer(number(2, 9))});
            case 3:
                return new_object(MODLA_TYPE_SUM, {name("x"), integer(number(1, 5)), integer(1), integer(-3)});
            case 4:
                return new_object(MODLA_TYPE_POWER, {name("x"), integer(number(-3, 3))});
            default:
                return integer(number(-20, 20));
        }
    }
    HostObject list_of(int32_t count, const std::function<HostObject()> &element) {
        std::vector<HostObject> elements;
        for (int32_t k = 0; k < count; k++) elements.push_back(element());
        return collection(maybe(80) ? MODLA_TYPE_LIST : MODLA_TYPE_SET, elements);
    }
    void draw_mod() {
        Shape shape = any_shape();
        const int kind = number(0, 3);
        const auto [rows, columns] = shape;
        const int32_t output = datatype_;
        if (kind == 0) {
            datatype_ = pick(random_, {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8});
            block(shape, false, true, false);
            datatype_ = output;
        } else if (kind == 1) {
            shape = {std::max(rows, 1), 0};
            add(list_of(shape.first, [this] { return host_value(); }));
        } else if (kind == 2) {
            shape = {std::max(rows, 1), std::max(columns, 1)};
            bool longest = true;
            add(list_of(shape.first, [&] {
                const int32_t length = longest ? shape.second : number(0, shape.second);
                longest = false;
                return list_of(length, [this] { return host_value(); });
            }));
        } else {
            shape = {std::max(rows, 1), std::max(columns, 1)};
            const bool by_columns = maybe(50);
            const int32_t its_datatype = pick(random_, {MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER});
            add(list_of(by_columns ? shape.second : shape.first, [&] {
                const int32_t length = by_columns ? shape.first : shape.second;
                return new_table(its_datatype, by_columns ? MODLA_COLUMN_VECTOR : MODLA_ROW_VECTOR, 1,
                                 by_columns ? length : 1, by_columns ? 1 : length);
            }));
        }
        if ((kind == 1 || kind == 2) && maybe(80)) {
            const HostObject x =
                new_object(MODLA_TYPE_EQUATION, {name("x"), integer(below(random_, std::min(call_.p, 10)))});
            add(maybe(50) ? x : collection(MODLA_TYPE_LIST, {x}));
        }
        if (maybe(50)) return block(shape, true, false, true);
        datatype();
        if (maybe(50)) add(order_name(number(0, 1)));
    }

    // ---- Faults

    HostObject absurd() {
        const int32_t sizes[] = {0, 1, -1, 2, 5, 100000, (1 << 30) - 1, 1 - (1 << 30)};
        const auto size = [&] { return integer(pick(random_, sizes)); };
        const double doubles[] = {0.5, -1e300, 7.0, std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity()};
        const char *const words[] = {"true",   "false",    "C_order", "Fortran_order", "transpose", "sparse", "upper",
                                     "random", "identity", "integer", "float",         "x",         "foo",    "alias"};
        switch (number(0, 15)) {
            case 0:
            case 1:
                return size();
            case 2:
                return integer(pick(random_, {int64_t{1} << 40, -(int64_t{1} << 40), int64_t{2147483648}}));
            case 3:
                return float_object(pick(random_, doubles));
            case 4: {
                const char *const word = pick(random_, words);
                if (std::strcmp(word, "C_order") == 0) return order_name(MODLA_C_ORDER);
                if (std::strcmp(word, "Fortran_order") == 0) return order_name(MODLA_FORTRAN_ORDER);
                return name(word);
            }
            case 5:
            case 6:
                return range(size(), size());
            case 7:
                return range(maybe(50) ? name("x") : integer(1),
                             maybe(50) ? float_object(2.0) : integer(int64_t{1} << 40));
            case 8:
                return list_of(number(0, 3), [this] { return host_value(); });
            case 9:
                return new_object(7, {immediate(4), immediate(0x616263)});
            case 10:
                return new_table(datatype_, MODLA_ARRAY, order_, 3, 3);
            case 11:
                return new_table(pick(random_, {5, 9, -1}), MODLA_MATRIX, order_, 3, 3);
            case 12:
                return new_table(datatype_, MODLA_MATRIX, order_, 3, 3, number(0, 3));
            case 13:
                return maybe(50) ? new_table(datatype_, MODLA_MATRIX, order_, number(0, 1) * 3, 0)
                                 : new_table(datatype_, MODLA_MATRIX, order_, 0, 3);
            case 14:
                return new_table(pick(random_, {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}),
                                 pick(random_, {MODLA_MATRIX, MODLA_COLUMN_VECTOR, MODLA_ROW_VECTOR}), order_,
                                 number(0, 4), number(0, 4));
            default:
                return arguments(pick(random_, {"integer[4]", "float[8]", "float[4]", "x[1]", "x = 3", "{}"}))[0];
        }
    }

    void mutate() {
        call_.valid = false;
        std::vector<HostObject> &list = call_.arguments;
        const int count = number(1, 3);
        for (int k = 0; k < count; k++) {
            const auto position = [&] { return static_cast<ptrdiff_t>(below(random_, list.size())); };
            const int what = number(0, 5);
            if (list.empty() || what == 0) {
                const ptrdiff_t at = list.empty() ? 0 : position();
                list.insert(list.begin() + at, absurd());
            } else if (what == 1) {
                list.erase(list.begin() + position());
            } else if (what == 2) {
                list.push_back(list[static_cast<size_t>(position())]);
            } else if (what == 3) {
                const auto a = static_cast<size_t>(position()), b = static_cast<size_t>(position());
                std::swap(list[a], list[b]);
            } else {
                list[static_cast<size_t>(position())] = absurd();
            }
        }
        call_.knows_modulus = !list.empty() && list[0] == modulus();
    }

    Random random_;
    Variation variation_;
    RandomCall call_;
    int32_t datatype_ = 0, order_ = 0;
    std::set<HostObject> permutations_;
};

// ---- What a call does ----

struct End {
    bool returned;
    std::vector<std::string> messages;
    std::string result, outputs, tables;
};

std::string texts_of(const std::vector<HostObject> &objects) {
    std::string text;
    for (const HostObject object : objects) text += to_text(object) + "\n";
    return text;
}

std::string describe(const RandomCall &call, uint32_t seed) {
    std::string text = "seed " + std::to_string(seed) + ": " + call.entry + "(";
    for (const HostObject argument : call.arguments) {
        text += to_text(argument);
        if (is_table(argument)) text += table_of(argument).settings.order == MODLA_C_ORDER ? " by rows" : " by columns";
        text += ", ";
    }
    return text + ") mod " + std::to_string(call.p);
}

End run(const RandomCall &call, uint32_t seed) {
    std::srand(seed);
    const Outcome outcome = call_entry(entry_point(call.entry), call.arguments);
    reclaim();
    End end;
    end.returned = outcome.returned;
    end.messages = outcome.messages;
    end.result = outcome.returned ? to_text(outcome.result) : "";
    for (const std::string &word : host.assigned) {
        end.outputs += word + " := " + to_text(reinterpret_cast<const HostObject *>(name(word))[1]) + "\n";
    }
    end.tables = texts_of(call.tables);
    return end;
}

void start_over() {
    reset();
    register_stand_ins();
}

// Messages of failures that are found during the work.
bool is_late(const std::string &message) {
    for (const char *late :
         {"modulus is composite", "matrix is singular", "invalid permutation vector", "unknown error"}) {
        if (message.find(late) != std::string::npos) return true;
    }
    return false;
}

using Contents = std::vector<std::vector<char>>;
Contents contents_of(const RandomCall &call) {
    Contents contents;
    for (const HostObject object : call.tables) {
        const GuardedBlock &block = *table_of(object).block;
        contents.emplace_back(block.data, block.data + block.bytes);
    }
    return contents;
}

// Does a table differ from its earlier contents in cells that are no output?
bool wrote_elsewhere(const RandomCall &call, const Contents &before) {
    for (size_t k = 0; k < call.tables.size(); k++) {
        const Table &table = table_of(call.tables[k]);
        const size_t size = table.entry_bytes();
        for (int32_t i = 0; i < table.rows(); i++) {
            for (int32_t j = 0; j < table.columns(); j++) {
                const auto offset = static_cast<size_t>(table.entry(i, j) - table.block->data);
                if (std::memcmp(table.entry(i, j), before[k].data() + offset, size) == 0) continue;
                bool selected = false;
                for (const Cells &cells : call.outputs) {
                    selected |= cells.table == call.tables[k] && i >= cells.top && i < cells.top + cells.rows &&
                                j >= cells.left && j < cells.left + cells.columns;
                }
                if (!selected) return true;
            }
        }
    }
    return false;
}

bool holds_residues(const RandomCall &call, HostObject object) {
    const Table &table = table_of(object);
    if (table.settings.datatype != call.datatype || call.datatype == MODLA_INTEGER) return true;
    for (int32_t i = 0; i < table.rows(); i++) {
        for (int32_t j = 0; j < table.columns(); j++) {
            const double value = entry_value(table, i, j);
            if (!(value >= 0 && value < call.p && value == std::floor(value) && !std::signbit(value))) return false;
        }
    }
    return true;
}

std::string replace_all(std::string text, const std::string &from, const std::string &to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::string with_orders_exchanged(std::string text) {
    text = replace_all(text, "Fortran_order", "C-order");
    text = replace_all(text, "C_order", "Fortran_order");
    return replace_all(text, "C-order", "C_order");
}

// Without what tells words from doubles.
std::string plain(std::string text) {
    text = replace_all(text, "table 4/", "table 6/");
    return replace_all(text, ".", "");
}

struct Counts {
    int valid = 0, returned = 0, checked_representations = 0;
};

void check_call(uint32_t seed, Counts *counts) {
    Random random(seed ^ 0x9e3779b9);
    // As it was drawn, in a host with modes of its own.
    start_over();
    const RandomCall call = Generator(seed, {}).draw();
    const std::string text = describe(call, seed);
    static const std::vector<FpMode> modes = foreign_fp_modes();
    host.conditions = {4 * below(random, 4u), modes[below(random, modes.size())]};
    host.leaving = chance(random, 50) ? Leaving::exception : Leaving::long_jump;
    const HostObject status = immediate(chance(random, 90) ? 0 : below(random, 12) - 2);
    host.callback_result = status;
    const Contents before = contents_of(call);
    const std::string tables_before = texts_of(call.tables);
    const End end = run(call, seed);
    ASSERT_EQ(host.violations, std::vector<std::string>{}) << text;
    ASSERT_TRUE(end.returned ? end.messages.empty() : end.messages.size() == 1) << text;
    const bool is_mod = call.entry == "modLA_Mod";
    if (!end.returned && !is_late(end.messages[0]) && !is_mod) {
        ASSERT_TRUE(contents_of(call) == before) << text << "\nraised " << end.messages[0] << " and left\n"
                                                 << end.tables;
        ASSERT_EQ(end.outputs, "") << text;
    }
    if (call.valid) {
        ASSERT_FALSE(wrote_elsewhere(call, before)) << text << "\nleft\n" << end.tables;
        if (call.clean && call.knows_modulus) {
            for (const HostObject table : call.tables) {
                ASSERT_TRUE(is_mod || call.entry == "modLA_Permute" || call.entry == "modLA_LUDecomp" ||
                            holds_residues(call, table))
                    << text << "\nleft\n"
                    << end.tables;
            }
        }
        counts->valid++;
        counts->returned += end.returned;
    }

    // Where errors return.
    start_over();
    host.conditions = {0, current_fp_mode()};
    host.leaving = Leaving::returning;
    const End survived = run(Generator(seed, {}).draw(), seed);
    ASSERT_EQ(host.violations, std::vector<std::string>{}) << text;
    ASSERT_TRUE(survived.returned);
    // A conversion that the host refuses still gives a number.
    if (end.returned || end.messages[0] != "integer too large in context") {
        ASSERT_EQ(survived.messages, end.messages) << text;
        ASSERT_EQ(survived.result, end.result) << text << " (no result after an error)";
        ASSERT_EQ(survived.tables, end.tables) << text;
        ASSERT_EQ(survived.outputs, end.outputs) << text;
    }

    // In the other storage order.
    host.leaving = Leaving::exception;
    host.aligned_data = true;
    if (!call.draws) {
        start_over();
        const RandomCall turned = Generator(seed, {true, false}).draw();
        const End other = run(turned, seed);
        ASSERT_EQ(host.violations, std::vector<std::string>{}) << text;
        ASSERT_EQ(other.returned, end.returned)
            << text << testing::PrintToString(end.messages) << testing::PrintToString(other.messages);
        if (!end.returned) {
            ASSERT_EQ(with_orders_exchanged(other.messages[0]), end.messages[0]) << text;
        }
        ASSERT_EQ(with_orders_exchanged(other.result), end.result) << text;
        ASSERT_EQ(with_orders_exchanged(other.outputs), end.outputs) << text;
        // How far the work had come when it failed is the kernels' affair.
        if (end.returned || !is_late(end.messages[0])) {
            ASSERT_EQ(other.tables, end.tables) << text;
        }
    }

    // In the other representation.
    if (call.valid && !is_mod && call.clean && end.returned && call.datatype != MODLA_INTEGER && call.p < 65536) {
        start_over();
        const End other = run(Generator(seed, {false, true}).draw(), seed);
        ASSERT_TRUE(other.returned) << text << testing::PrintToString(other.messages);
        ASSERT_EQ(plain(other.result), plain(end.result)) << text;
        ASSERT_EQ(plain(other.tables), plain(end.tables)) << text;
        ASSERT_EQ(plain(other.outputs), plain(end.outputs)) << text;
        counts->checked_representations++;
    }
    host = {};
}

uint32_t setting(const char *variable, uint32_t otherwise) {
    const char *const text = std::getenv(variable);
    return text ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

TEST(RandomCalls, DoOnlyWhatTheyMay) {
    host = {};
    const uint32_t first = setting("MODLA_TEST_FIRST", 1), count = setting("MODLA_TEST_CALLS", 10000);
    Counts counts;
    for (uint32_t k = 0; k < count; k++) {
        check_call(first + k, &counts);
        if (HasFatalFailure()) return;
    }
    // Enough of them got as far as to do something.
    if (count >= 1000) {
        EXPECT_GT(counts.returned, static_cast<int>(count / 4));
        EXPECT_GT(counts.checked_representations, static_cast<int>(count / 12));
    }
    RecordProperty("returned", counts.returned);
}

}  // namespace
