#include "tests/support/calls.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "tests/support/models.h"

namespace modla_test {

uint64_t stored(int32_t datatype, int64_t value) {
    uint64_t cell = 0;
    const double real = static_cast<double>(value);
    if (datatype == MODLA_FLOAT8)
        std::memcpy(&cell, &real, 8);
    else
        cell = datatype == MODLA_INTEGER ? immediate(static_cast<int32_t>(value)) : static_cast<uint32_t>(value);
    return cell;
}
uint64_t stored_at(int32_t datatype, const char *at) {
    uint64_t cell = 0;
    std::memcpy(&cell, at, entry_bytes(datatype));
    return cell;
}

bool in_triangle(int kind, int32_t i, int32_t j) {
    return kind == 0 || (kind == 1 && j >= i) || (kind == 2 && j > i) || (kind == 3 && j <= i) || (kind == 4 && j < i);
}

namespace {

using Shape = std::pair<int32_t, int32_t>;  // 0: a row (column) object

// Entries of a table as arguments select them.
struct Block {
    Object table;
    int32_t top, left, rows, columns;  // at least 1 each; after a transposition
    bool transposed;
    char *at(int32_t i, int32_t j) const {
        return transposed ? entry_at(table, top + j, left + i) : entry_at(table, top + i, left + j);
    }
    int64_t number(int32_t i, int32_t j) const {
        return transposed ? get_number(table, top + j, left + i) : get_number(table, top + i, left + j);
    }
    int32_t order() const { return table_of(table).settings.order; }
    int32_t datatype() const { return table_of(table).settings.datatype; }
    template <class Visit>
    void for_each(Visit visit) const {
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) visit(i, j);
        }
    }
    Grid grid() const {
        Grid A = make_grid(static_cast<size_t>(rows), static_cast<size_t>(columns));
        for_each([&](int32_t i, int32_t j) { A[static_cast<size_t>(i)][static_cast<size_t>(j)] = number(i, j); });
        return A;
    }
};

int64_t &cell(Grid &A, int32_t i, int32_t j) {
    return A[static_cast<size_t>(i)][static_cast<size_t>(j)];
}

// A residue as the library draws it from rand().
int64_t drawn_residue(int32_t p) {
    const uint32_t modulus = static_cast<uint32_t>(p), limit = 0x80000000u / modulus * modulus - 1;
    uint32_t r;
    do r = static_cast<uint32_t>(std::rand());
    while (r > limit);
    return r % modulus;
}

struct Generator {
    Random random;
    Variation variation;
    uint32_t seed;
    RandomCall c = {};
    int32_t datatype = 0, order = 0;
    Shadow *shadow = nullptr;
    std::function<void()> model = {};  // finds the outcome, when everything is drawn

    // ---- Choices

    bool maybe(int percent) { return chance(random, percent); }
    int32_t number(int32_t low, int32_t high) { return between(random, low, high); }
    void add(Object value) { c.arguments.push_back(value); }
    Object integer(int64_t value) { return held(integer_object(value)); }
    Object held(Object value) { return argument_array({value}), value; }
    void keyword(const char *text) { add(global_name(text)); }
    int32_t varied(int32_t its_order) const { return variation.other_order ? 1 - its_order : its_order; }
    Object order_name(int32_t its_order) { return global_name(order_keyword(varied(its_order))); }

    RandomCall draw(Shadow *expected) {
        const char *const entries[] = {"Create",      "Fill",      "Copy",      "Swap",     "Permute", "Mod",
                                       "AddMult",     "Multiply",  "RowReduce", "LUDecomp", "ForSub",  "BackSub",
                                       "Determinant", "MatBasis",  "MatGcd",    "ZigZag",   "Mod",     "AddMult",
                                       "Multiply",    "RowReduce", "Register"};
        c.entry = pick(random, entries);
        datatype = pick(random, {MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER});
        c.p = pick(random, {2, 3, 7, 12, 30, 251, 46337, 65521, 65535, 65536, 33554393, 33554431});
        if (variation.datatype >= 0) datatype = variation.datatype;
        c.datatype = datatype;
        order = number(0, 1);
        add(c.entry == "Register" ? global_name("x") : integer(c.p));
        draw_arguments();
        if (maybe(35)) replace_arguments();
        Shadow whole;
        *expected = std::move(whole);
        shadow = expected;
        const bool too_large = datatype == MODLA_INTEGER4 && c.p > 65535;
        if (!c.valid) return std::move(c);
        if (too_large && c.entry != "Register" && c.message.empty()) {
            c.message = "modulus is too large for 'integer[4]' datatype, must be < 65536";
        }
        c.any_message = !c.clean && c.entry != "Copy" && c.entry != "Swap" && c.entry != "Permute";
        if (c.message.empty() && !c.any_message) model();
        return std::move(c);
    }

    void draw_arguments() {
        const std::string &e = c.entry;
        if (e == "Create") draw_create();
        if (e == "Fill") draw_fill();
        if (e == "Copy") draw_move(false);
        if (e == "Swap") draw_move(true);
        if (e == "Permute") draw_permute();
        if (e == "Mod") draw_mod();
        if (e == "AddMult") draw_add_mult();
        if (e == "Multiply") draw_multiply();
        if (e == "RowReduce") draw_row_reduce();
        if (e == "LUDecomp") draw_lu();
        if (e == "ForSub") draw_substitution(true);
        if (e == "BackSub") draw_substitution(false);
        if (e == "Determinant") draw_determinant();
        if (e == "MatBasis") draw_basis();
        if (e == "MatGcd") draw_gcd();
        if (e == "ZigZag") draw_zigzag();
        if (e == "Register") c.any_message = true, model = [] {};
    }

    // ---- Tables

    Object new_table(int32_t its_datatype, int32_t subtype, int32_t its_order, int32_t rows, int32_t columns,
                     int32_t storage = MODLA_RECTANGULAR) {
        const Object object = make_table({its_datatype, varied(its_order)}, subtype, rows, columns, storage);
        c.tables.push_back(object);
        const bool clean = maybe(97), reduced = maybe(60), sparse = maybe(30);
        if (!clean) c.clean = false;
        for (int32_t i = 0; i < table_rows(table_of(object)); i++) {
            for (int32_t j = 0; j < table_columns(table_of(object)); j++) {
                int64_t value = maybe(sparse ? 60 : 20) ? 0 : below(random, c.p);
                const int64_t large = below(random, int64_t{1} << 31);
                const uint32_t odd = random();
                if (!reduced && maybe(30)) value = large;
                if (!clean && odd % 2)
                    put_odd_entry(object, i, j, odd);
                else
                    put_number(object, i, j, value);
            }
        }
        return object;
    }

    // What no call of the library would leave.
    void put_odd_entry(Object table, int32_t i, int32_t j, uint32_t bits) {
        const double doubles[] = {-1,
                                  -0.0,
                                  0.5,
                                  1e15,
                                  1e17,
                                  -1e300,
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::denorm_min()};
        if (table_of(table).settings.datatype == MODLA_FLOAT8) {
            std::memcpy(entry_at(table, i, j), &doubles[bits / 2 % std::size(doubles)], 8);
        } else {
            const Object object = bits % 4 == 1 ? integer(-123456789123) : global_name("y");
            std::memcpy(entry_at(table, i, j), table_of(table).settings.datatype == MODLA_INTEGER ? &object : &bits, 4);
        }
    }

    // A table that holds a block of the size with a margin: one that is there already, one over another's data, or new.
    Object table_for(int32_t subtype, int32_t rows, int32_t columns, bool margins) {
        const int32_t wide_rows = rows + (margins && subtype != MODLA_ROW_VECTOR && maybe(60) ? number(0, 3) : 0);
        const int32_t wide_columns =
            columns + (margins && subtype != MODLA_COLUMN_VECTOR && maybe(60) ? number(0, 3) : 0);
        const int32_t its_order = maybe(80) ? order : 1 - order;
        if (maybe(35)) {
            for (const Object object : c.tables) {
                const Table &table = table_of(object);
                const int32_t m = table_rows(table), n = table_columns(table);
                const bool fits = margins ? m >= rows && n >= columns : m == rows && n == columns;
                if (table.settings.datatype != datatype || !maybe(70)) continue;
                if (table.settings.subtype == subtype && fits) return object;
                const int32_t spare = m * n - wide_rows * wide_columns;
                if (spare < 0 || !margins || table.settings.storage != MODLA_RECTANGULAR) continue;
                c.tables.push_back(make_table(
                    {datatype, varied(its_order)}, subtype, wide_rows, wide_columns, MODLA_RECTANGULAR,
                    static_cast<char *>(table.data) + entry_bytes(datatype) * static_cast<size_t>(number(0, spare))));
                return c.tables.back();
            }
        }
        return new_table(datatype, subtype, its_order, wide_rows, wide_columns);
    }

    Object index(int32_t i, int32_t bound) { return integer(maybe(20) ? i - bound - 1 : i); }
    Object range(Object first, Object last) { return held(new_pair(type_range, first, last)); }
    // Rows (columns) first..first+count-1 of bound, from 1.
    Object selection(int32_t first, int32_t count, int32_t bound, bool single) {
        return single ? index(first, bound) : range(index(first, bound), index(first + count - 1, bound));
    }

    // Adds a block of the shape: its table, selections, and perhaps "transpose".  required: earlier arguments fix the
    // rows (the columns), so that a single index may stand for them.
    struct Required {
        bool rows, columns;
    };
    static constexpr Required none = {false, false}, both = {true, true};
    Block block(Shape shape, Required required, bool may_transpose) {
        const bool transpose = may_transpose && maybe(25);
        if (transpose) std::swap(shape.first, shape.second), std::swap(required.rows, required.columns);
        const auto [rows, columns] = shape;
        int32_t subtype = MODLA_MATRIX;
        if (rows == 0 && (columns > 0 || maybe(30)) && maybe(60)) subtype = MODLA_ROW_VECTOR;
        if (columns == 0 && subtype == MODLA_MATRIX && maybe(60)) subtype = MODLA_COLUMN_VECTOR;
        const int32_t height = std::max(rows, 1), width = std::max(columns, 1);
        const Object object = table_for(subtype, height, width, true);
        const int32_t m = table_rows(table_of(object)), n = table_columns(table_of(object));
        const int32_t top = number(0, m - height), left = number(0, n - width);
        add(object);
        const bool has_rows = subtype != MODLA_ROW_VECTOR, has_columns = subtype != MODLA_COLUMN_VECTOR;
        const auto select = [&](int32_t count, int32_t first, int32_t bound, bool is_required) {
            add(selection(first + 1, std::max(count, 1), bound, count == 0 || (is_required && maybe(50))));
        };
        const bool all_columns = columns > 0 && width == n && maybe(70);
        const bool all_rows = rows > 0 && height == m && (all_columns || !has_columns) && maybe(70);
        if (has_rows && !all_rows) select(rows, top, m, required.rows);
        // Without a selection of rows, one of columns would be taken for it.
        if (has_columns && !(all_columns || (has_rows && all_rows))) select(columns, left, n, required.columns);
        if (transpose) keyword("transpose");
        return {object, top, left, transpose ? width : height, transpose ? height : width, transpose};
    }

    Shape any_shape() {
        const Shape shape = {number(1, 5), number(1, 5)};
        if (maybe(4)) return {shape.first + number(10, 30), shape.second + number(10, 30)};
        if (maybe(70)) return shape;
        return maybe(50) ? Shape{0, shape.second} : Shape{shape.first, 0};
    }

    // A whole Matrix.
    Block matrix(int32_t rows, int32_t columns) {
        const Object object = table_for(MODLA_MATRIX, rows, columns, false);
        add(object);
        return {object, 0, 0, rows, columns, false};
    }

    // ---- Outcomes

    void set(const Block &block, int32_t i, int32_t j, uint64_t value) {
        std::memcpy(shadow->of(block.at(i, j)), &value, entry_bytes(block.datatype()));
    }
    // (What stays may be larger than any residue.)
    void set(const Block &block, const Grid &A) {
        block.for_each([&](int32_t i, int32_t j) {
            const int64_t value = A[static_cast<size_t>(i)][static_cast<size_t>(j)];
            if (value != block.number(i, j)) set(block, i, j, stored(block.datatype(), value));
        });
    }
    void set_free(const Block &block) {
        block.for_each([&](int32_t i, int32_t j) { c.free_cells.push_back(block.at(i, j)); });
    }
    void create(Shape shape, int32_t its_order, const Grid &A) {
        c.created = Created{shape.first, shape.second, its_order, {}};
        for (const Row &row : A) {
            for (const int64_t x : row) c.created->cells.push_back(stored(datatype, x));
        }
    }
    // The result: into the block, or a new object.
    void give(const std::optional<Block> &output, Shape shape, int32_t its_order, const Grid &A) {
        output ? set(*output, A) : create(shape, its_order, A);
    }
    // An operand that shares entries with the output is copied, unless it coincides with the output of an entrywise
    // operation.
    static int copies_for(const Block &operand, const Block &output, bool entrywise) {
        std::set<const char *> places;
        bool shared = false, same = entrywise;
        operand.for_each([&](int32_t i, int32_t j) { places.insert(operand.at(i, j)); });
        output.for_each([&](int32_t i, int32_t j) {
            shared |= places.count(output.at(i, j)) != 0;
            same = same && operand.at(i, j) == output.at(i, j);
        });
        return shared && !same;
    }
    int64_t residue(const Block &block, int32_t i, int32_t j) const { return mod(block.number(i, j), c.p); }

    // ---- Arguments of the entry points, after the modulus, and their models

    void datatype_name() { add(arguments(keyword_of(datatype))[0]); }
    Object boolean(bool value) { return global_name(value ? "true" : "false"); }
    // A residue, perhaps as a number to be rounded.
    Object scalar(int64_t *value, bool may_be_float) {
        *value = maybe(30) ? c.p - 1 : number(0, std::min(c.p, 10) - 1);
        const double fraction = pick(random, {0.0, 0.4, -0.5});
        if (maybe(70) || !may_be_float) return integer(*value);
        return held(new_float(static_cast<double>(*value) + fraction));
    }

    void draw_create() {
        const int content = number(0, 3);
        const Shape shape = {number(0, 5), content == 1 ? -1 : number(0, 5)};
        const int32_t rows = shape.first, columns = shape.second < 0 ? std::max(rows, 1) : shape.second;
        const int32_t real_rows = content == 1 ? columns : rows;
        add(integer(real_rows)), add(integer(columns));
        int64_t value = 0;
        c.native_only = content == 0;
        if (content == 0) add(scalar(&value, datatype != MODLA_INTEGER));
        if (content == 1) keyword("identity");
        if (content == 2) keyword("random");
        c.draws = content == 2;
        datatype_name();
        int32_t its_order = MODLA_C_ORDER;
        if (maybe(60)) add(order_name(order)), its_order = varied(order);
        if (real_rows == 0 && columns == 0) {
            c.message = "at least one of 'rows' or 'columns' (second and third arguments) must be nonzero";
        }
        model = [=, this] {
            Grid A = make_grid(static_cast<size_t>(std::max(real_rows, 1)), static_cast<size_t>(std::max(columns, 1)),
                               value);
            for (size_t k = 0; content == 1 && k < A.size(); k++) A[k][k] = 1;
            std::srand(seed);
            for (size_t k = 0; content == 2 && k < A.size() * A[0].size(); k++) {  // in storage order
                const bool by_rows = its_order == MODLA_C_ORDER;
                A[by_rows ? k / A[0].size() : k % A.size()][by_rows ? k % A[0].size() : k / A.size()] =
                    drawn_residue(c.p);
            }
            if (content == 2 && datatype == MODLA_INTEGER) c.any_message = true;  // the callback's numbers
            create({real_rows, columns}, its_order, A);
        };
    }

    void draw_fill() {
        const int content = number(0, 2);
        int64_t value = 0;
        c.native_only = content == 0;
        if (content == 0) add(scalar(&value, datatype != MODLA_INTEGER));
        if (content == 1) keyword("random");
        c.draws = content == 1;
        const Block target = block(any_shape(), none, false);
        model = [=, this] {
            if (content == 1 && datatype == MODLA_INTEGER) return set_free(target);
            std::srand(seed);
            target.for_each([&](int32_t i, int32_t j) {
                set(target, i, j, stored(datatype, content == 1 ? drawn_residue(c.p) : value));
            });
        };
    }

    // Copy and Swap.
    void draw_move(bool swap) {
        const int triangle = maybe(40) ? number(1, 4) : 0;
        const char *const names[] = {"", "upper", "uppernodiag", "lower", "lowernodiag"};
        if (triangle) keyword(names[triangle]);
        const int32_t n = number(1, 5);
        const Shape shape = triangle ? Shape{n, n} : any_shape();
        const Block source = block(shape, none, true);
        std::optional<Block> target;
        int32_t its_order = source.order();
        if (swap || maybe(60))
            target = block(shape, both, false);
        else if (maybe(50))
            add(order_name(order)), its_order = varied(order);
        model = [=, this] {
            std::vector<uint64_t> cells;
            const auto at = [&](const Block &block, int32_t i, int32_t j) {
                return stored_at(datatype, swap ? shadow->of(block.at(i, j)) : block.at(i, j));
            };
            source.for_each([&](int32_t i, int32_t j) {
                const bool moved = in_triangle(triangle, i, j);
                const uint64_t x = at(source, i, j);
                if (!target) return cells.push_back(moved ? x : stored(datatype, 0));
                if (!moved) return;
                if (swap) set(source, i, j, at(*target, i, j));
                set(*target, i, j, x);
            });
            if (!target) c.created = Created{shape.first, shape.second, its_order, cells};
        };
    }

    // A Vector of integers; perhaps of one or two kinds of line numbers that are none.
    Block permutation(int32_t length, int32_t lines) {
        const int32_t its_datatype = maybe(70) ? MODLA_INTEGER4 : MODLA_INTEGER;
        const bool column = maybe(50), clean = c.clean;
        const Object object = new_table(its_datatype, column ? MODLA_COLUMN_VECTOR : MODLA_ROW_VECTOR, 1,
                                        column ? length : 1, column ? 1 : length);
        c.clean = clean;
        const Block P = {object, 0, 0, column ? length : 1, column ? 1 : length, false};
        for (int32_t k = 0; k < length; k++) {
            const int32_t line = maybe(3) ? pick(random, {lines + 1, 0, -1}) : number(k < lines ? k + 1 : 1, lines);
            put_number(object, column ? k : 0, column ? 0 : k, line);
        }
        add(object);
        return P;
    }

    void draw_permute() {
        const bool rows = maybe(50), reverse = maybe(50), vector = maybe(30);
        const int32_t m = vector && !rows ? 1 : number(1, 6), n = vector && rows ? 1 : number(1, 6),
                      lines = rows ? m : n;
        Block P = permutation(std::max(lines - 1, 1) + number(0, 1), lines);
        const int32_t subtype = !vector ? MODLA_MATRIX : rows ? MODLA_COLUMN_VECTOR : MODLA_ROW_VECTOR;
        const Block object = {new_table(datatype, subtype, order, m, n), 0, 0, m, n, false};
        // Entries are read when their step comes, also when they lie in the object itself.
        const int32_t length = P.rows * P.columns;
        if (datatype != MODLA_FLOAT8 && maybe(30) && length <= m * n) {
            c.clean = true;
            c.native_only = true;
            object.for_each([&](int32_t i, int32_t j) { put_number(object.table, i, j, number(1, lines)); });
            const Object inside = make_table({datatype, 1}, MODLA_COLUMN_VECTOR, length, 1, MODLA_RECTANGULAR,
                                             entry_at(object.table, 0, 0));
            P = {inside, 0, 0, length, 1, false};
            c.arguments.back() = inside;
        }
        add(object.table), add(boolean(rows)), add(boolean(reverse));
        model = [=, this] {
            for (int32_t s = 1; s < lines; s++) {
                const int32_t k = (reverse ? lines - s : s) - 1;
                uint32_t word;
                std::memcpy(&word, shadow->of(P.columns == 1 ? P.at(k, 0) : P.at(0, k)), 4);
                const int32_t t = P.datatype() == MODLA_INTEGER ? immediate_value(word) : static_cast<int32_t>(word);
                if (t < 1 || t > lines) return void(c.message = "invalid permutation vector");
                for (int32_t e = 0; e < (rows ? n : m); e++) {
                    char *const x = shadow->of(rows ? object.at(k, e) : object.at(e, k));
                    char *const y = shadow->of(rows ? object.at(t - 1, e) : object.at(e, t - 1));
                    if (x != y) std::swap_ranges(x, x + entry_bytes(datatype), y);
                }
            }
        };
    }

    void draw_add_mult() {
        int64_t f = 1;
        if (maybe(70)) add(scalar(&f, true));
        const Shape shape = any_shape();
        const Block A = block(shape, none, true), B = block(shape, both, true);
        std::optional<Block> output;
        int32_t its_order = A.order();
        if (maybe(50)) {
            output = block(shape, both, false);
        } else if (maybe(60)) {
            add(order_name(order)), its_order = varied(order);
        } else if (A.order() != B.order()) {
            c.message = "must specify output ordering when input arguments have different ordering";
        }
        if (maybe(20)) keyword("sparse");
        model = [=, this] {
            Grid sum = A.grid();
            A.for_each(
                [&](int32_t i, int32_t j) { cell(sum, i, j) = (residue(A, i, j) + f * residue(B, i, j)) % c.p; });
            if (output) c.copies = copies_for(A, *output, true) + copies_for(B, *output, true);
            give(output, shape, its_order, sum);
        };
    }

    void draw_multiply() {
        const bool scaled = maybe(30);
        int64_t f = 0;
        const int32_t scale = maybe(3) ? number(4, 12) : 1, k = number(1, 5) * scale;
        Shape shape =
            scaled ? any_shape() : Shape{maybe(15) ? 0 : number(1, 5) * scale, maybe(15) ? 0 : number(1, 5) * scale};
        Block A, B;
        if (scaled) {
            add(scalar(&f, false));
            A = B = block(shape, none, true);
        } else {
            A = block({shape.first, k}, none, true);
            B = block({k, shape.second}, {true, false}, true);
        }
        int32_t its_order = A.order();
        if (maybe(25)) add(order_name(order)), its_order = varied(order);
        const bool sparse = maybe(20);
        if (sparse) keyword("sparse");
        std::optional<Block> output;
        if (maybe(50)) {
            output = block(shape, both, false);
            if (!sparse && maybe(20)) keyword("sparse");
        }
        model = [=, this] {
            Grid C = make_grid(static_cast<size_t>(scaled ? A.rows : std::max(shape.first, 1)),
                               static_cast<size_t>(scaled ? A.columns : std::max(shape.second, 1)));
            for (int32_t i = 0; i < static_cast<int32_t>(C.size()); i++) {
                for (int32_t j = 0; j < static_cast<int32_t>(C[0].size()); j++) {
                    int64_t &x = cell(C, i, j);
                    if (scaled) x = f * residue(B, i, j) % c.p;
                    for (int32_t t = 0; !scaled && t < k; t++) x = (x + residue(A, i, t) * residue(B, t, j)) % c.p;
                }
            }
            // Large products take a workspace, and numbers that are no residues are copied as well.
            bool plain = scale == 1;
            A.for_each([&](int32_t i, int32_t j) { plain = plain && A.number(i, j) < c.p; });
            B.for_each([&](int32_t i, int32_t j) { plain = plain && B.number(i, j) < c.p; });
            if (output && plain) {
                c.copies = (scaled ? 0 : copies_for(A, *output, false)) + copies_for(B, *output, scaled);
            }
            if (!output && shape == Shape{0, 0})
                c.number = C[0][0];
            else
                give(output, shape, its_order, C);
        };
    }

    void output_name(bool wanted, size_t k) { add(wanted ? global_name(output_names[k]) : immediate(0)); }
    // Callbacks assign to what the host says of a name.
    void assign(size_t k, int64_t value) {
        const std::string name = output_names[k];
        c.outputs[datatype == MODLA_INTEGER && name == "alias" && c.entry != "Determinant" ? "target" : name] = value;
    }
    // A range as k or a..b.
    void reduced_range(int32_t top, int32_t count, int32_t bound) {
        add(top == 0 && maybe(50) ? index(count, bound) : selection(top + 1, count, bound, false));
    }

    void draw_row_reduce() {
        const int32_t m = number(1, 6), n = number(1, 6);
        Block A = matrix(m, n);
        A.top = number(0, m - 1), A.rows = number(1, m - A.top), A.left = number(0, n - 1),
        A.columns = number(1, n - A.left);
        reduced_range(A.top, A.rows, m), reduced_range(A.left, A.columns, n);
        const int32_t nred = maybe(50) ? 0 : number(0, A.columns);
        add(integer(nred));
        bool wanted[5];
        for (size_t k = 0; k < 5; k++) output_name(wanted[k] = maybe(k < 2 ? 40 : 70), k);
        const int32_t mode = number(0, 2);
        add(mode == 2 || maybe(50) ? integer(mode) : boolean(mode == 1));
        const Reduction q = {c.p,       A.rows,    A.columns, nred ? nred : A.columns,
                             mode,      false,     wanted[0], wanted[1],
                             wanted[2], wanted[3], wanted[4]};
        model = [=, this] {
            const Reduced found = reduce_model(q, A.grid());
            const char *const messages[] = {"", "no inverse exists: modulus is composite", "matrix is singular",
                                            "matrix has more rows than columns, cannot compute determinant"};
            c.message = messages[found.status];
            set(A, found.A);
            const int64_t values[] = {found.det, found.pivprod, found.rank, found.pivsig, found.extra};
            for (size_t k = 0; k < 5; k++) {
                if (found.status == 0 && q.*(std::array{&Reduction::det, &Reduction::pivprod, &Reduction::rank,
                                                        &Reduction::pivsig, &Reduction::extra}[k]))
                    assign(k, values[k]);
            }
        };
    }

    void draw_lu() {
        const int32_t n = number(1, 6);
        const Block A = matrix(n, n), P = permutation(n - 1 + number(0, 2), n);
        const bool det = maybe(60);
        output_name(det, 2);
        model = [=, this] {
            const Factored found = factor_model(A.grid(), c.p);
            const char *const messages[] = {"", "no LU decomposition exists: modulus is composite",
                                            "matrix is singular"};
            c.message = messages[found.status];
            set(A, found.A);
            for (int32_t k = 0; k + 1 < n; k++) {
                const int64_t line = found.perm[static_cast<size_t>(k)];
                const bool zero = found.status != 0 && P.datatype() == MODLA_INTEGER;
                if (!zero && line == untouched) continue;
                set(P, P.columns == 1 ? k : 0, P.columns == 1 ? 0 : k, stored(P.datatype(), zero ? 0 : line));
            }
            if (det && found.status == 0) assign(2, found.det);
        };
    }

    void draw_substitution(bool forward) {
        const int32_t n = number(1, 6), columns = number(1, 4);
        const bool vector = maybe(30), unit = maybe(50);
        const Block T = {new_table(datatype, MODLA_MATRIX, order, n, n), 0, 0, n, n, false};
        for (int32_t i = 0; i < n; i++) {
            if (maybe(95)) put_number(T.table, i, i, 1 + int64_t{c.p} * number(0, 2));
        }
        Block B = {0, 0, 0, n, vector ? 1 : columns, false};
        B.table = new_table(datatype, vector ? MODLA_COLUMN_VECTOR : MODLA_MATRIX, order, n, B.columns);
        if (!vector && maybe(10)) B = T;
        add(T.table), add(B.table);
        if (forward) add(boolean(unit));
        model = [=, this] {
            Grid X = B.grid();
            size_t solved;
            const uint32_t status = solve_model({c.p, forward, forward && unit, T.grid()}, &X, &solved);
            const std::string composite = forward ? "cannot forward substitute: modulus is composite"
                                                  : "cannot backward substitute: modulus is composite";
            c.message = status == 0 ? "" : status == 1 ? composite : "matrix is singular";
            c.copies = T.table == B.table;
            status == 0 ? set(B, X) : set_free(B);
        };
    }

    void draw_determinant() {
        const int32_t m = number(1, 6), n = number(1, 6), size = number(1, std::min(m, n));
        Block A = matrix(m, n);
        A.top = number(0, m - size), A.left = number(0, n - size), A.rows = A.columns = size;
        reduced_range(A.top, size, m), reduced_range(A.left, size, n);
        output_name(true, 2);
        model = [=, this] {
            const Reduced found = reduce_model({c.p, size, size, size, 0, true, true}, A.grid());
            set(A, found.A);
            assign(2, found.det);
        };
    }

    void draw_basis() {
        const int32_t m = number(1, 6), n = number(1, 6), k = number(-1, m);
        const Block A = matrix(m, n);
        add(integer(k));
        const bool nullspace = n <= m && maybe(50);
        add(boolean(nullspace));
        model = [=, this] {
            const int32_t used = k < 0 ? 0 : k == 0 ? m : k;
            Reduction q = {c.p, used, n, n, 2};
            q.rank = true, q.pivcols = nullspace;
            Grid whole = A.grid();
            const Reduced found = reduce_model(q, Grid(whole.begin(), whole.begin() + used));
            for (size_t i = 0; i < found.A.size(); i++) {
                if (std::count(found.A[i].begin(), found.A[i].end(), untouched) == 0) whole[i] = found.A[i];
            }
            Block changed = A;
            changed.rows = static_cast<int32_t>(found.A.size());
            set(changed, whole);
            if (found.status == 4)
                c.message = "unable to compute nullspace: modulus is composite";
            else
                c.number = found.rank;
        };
    }

    void draw_gcd() {
        const int32_t m = number(1, 5), n = number(1, 8), k = number(1, m);
        Block A = matrix(m, n);
        A.rows = k;
        add(integer(k));
        model = [=, this] {
            const Formed found = gcd_model(A.grid(), c.p);
            set(A, found.A);
            if (found.status == -2)
                c.message = "unable to compute gcd: modulus is composite";
            else
                c.number = found.status;
        };
    }

    void draw_zigzag() {
        const int32_t n = number(1, 6);
        const Block A = matrix(n, n);
        model = [=, this] {
            const Formed found = ZigZagModel(A.grid(), c.p).run();
            set(A, found.A);
            if (found.status == 1) c.message = "cannot obtain zigzag form: modulus is composite";
        };
    }

    // ---- Mod

    static constexpr int64_t undefined = -1;

    // A value of the host and its residue, where x has a value.
    std::pair<Object, int64_t> host_value(int64_t x) {
        const int64_t p = c.p;
        const auto pair = [&](uint32_t type, std::vector<Object> parts) {
            const Object object = held(new_object(static_cast<uint32_t>(parts.size()) + 1, type));
            std::copy(parts.begin(), parts.end(), words(object) + 1);
            return object;
        };
        const Object name = global_name("x");
        const int32_t a = number(-9, 9), b = number(2, 9), e = number(-3, 20);
        switch (number(0, 6)) {
            case 0: {
                const int64_t big = pick(random, {int64_t{-123456789123456}, p * 10000000000, -p * 10000000000 - 1});
                return {integer(big), mod(big, p)};
            }
            case 1:
                return {x < 0 ? integer(a) : name, x < 0 ? mod(a, p) : x};
            case 2: {
                const mpq_class q(a % b == 0 ? a + 1 : a, b);
                mpq_class canonical = q;
                canonical.canonicalize();
                const int64_t d = mpz_class(canonical.get_den()).get_si(), u = inverse(d, p);
                if (d == 1 || u == 0) return {integer(a), mod(a, p)};
                return {held(rational_object(canonical)), mod(mpz_class(canonical.get_num()).get_si() * u, p)};
            }
            case 3:
                if (x < 0) break;
                return {pair(MODLA_TYPE_SUM, {name, integer(b), immediate(1), integer(a)}), mod(x * b + a, p)};
            case 4: {
                if (x < 0 || e == 0 || e == 1) break;
                int64_t power = 1;
                for (int32_t i = 0; i < std::abs(e); i++) power = power * x % p;
                if (e < 0) power = inverse(power, p);
                if (e < 0 && power == 0) return {pair(MODLA_TYPE_POWER, {name, immediate(e)}), undefined};
                return {pair(MODLA_TYPE_POWER, {name, immediate(e)}), power};
            }
            default:
                break;
        }
        return {integer(a), mod(a, p)};
    }

    void draw_mod() {
        Shape shape = any_shape();
        if (shape.first > 9) shape = {4, 5};
        const int kind = number(0, 3);
        const int32_t output_type = datatype;
        Grid residues;
        std::optional<Block> source;
        const auto list = [&](const std::vector<Object> &elements) {
            return held(new_collection(maybe(80) ? type_list : type_set, elements));
        };
        const int64_t x = kind != 0 && kind != 3 && maybe(80) ? below(random, std::min(c.p, 10)) : -1;
        bool undefined_entry = false;
        const auto value = [&](int64_t *residue) {
            const auto [object, r] = host_value(x);
            undefined_entry |= r == undefined;
            *residue = r;
            return object;
        };
        if (kind == 0) {
            datatype = variation.datatype >= 0 ? pick(random, datatypes) : pick(random, datatypes);
            source = block(shape, none, true);
            datatype = output_type;
        } else if (kind == 3) {  // Vectors
            shape = {std::max(shape.first, 1), std::max(shape.second, 1)};
            const bool by_columns = maybe(50);
            const int32_t its_datatype = pick(random, datatypes), count = by_columns ? shape.second : shape.first;
            const int32_t length = by_columns ? shape.first : shape.second;
            residues = make_grid(static_cast<size_t>(shape.first), static_cast<size_t>(shape.second));
            std::vector<Object> vectors;
            for (int32_t k = 0; k < count; k++) {
                vectors.push_back(by_columns ? new_table(its_datatype, MODLA_COLUMN_VECTOR, 1, length, 1)
                                             : new_table(its_datatype, MODLA_ROW_VECTOR, 1, 1, length));
                for (int32_t i = 0; i < length; i++) {
                    const int64_t entry = get_number(vectors.back(), by_columns ? i : 0, by_columns ? 0 : i);
                    by_columns ? cell(residues, i, k) = mod(entry, c.p) : cell(residues, k, i) = mod(entry, c.p);
                }
            }
            add(list(vectors));
        } else {  // values, or lists of values
            shape = {std::max(shape.first, 1), kind == 1 ? 0 : std::max(shape.second, 1)};
            residues = make_grid(static_cast<size_t>(shape.first), static_cast<size_t>(std::max(shape.second, 1)));
            std::vector<Object> elements;
            for (int32_t i = 0; i < shape.first; i++) {
                const int32_t length = i == 0 ? shape.second : number(0, shape.second);  // missing entries are 0
                std::vector<Object> row;
                for (int32_t j = 0; j < length; j++) row.push_back(value(&cell(residues, i, j)));
                elements.push_back(kind == 2 ? list(row) : value(&cell(residues, i, 0)));
            }
            add(list(elements));
            if (maybe(20)) {
                keyword("transpose");
                std::swap(shape.first, shape.second);
                Grid turned = make_grid(residues[0].size(), residues.size());
                for (size_t i = 0; i < residues.size(); i++) {
                    for (size_t j = 0; j < residues[i].size(); j++) turned[j][i] = residues[i][j];
                }
                residues = turned;
            }
            if (x >= 0) {
                const Object equation = held(new_pair(type_equation, global_name("x"), integer(x)));
                add(maybe(50) ? equation : list({equation}));
            }
        }
        std::optional<Block> output;
        int32_t its_order = MODLA_C_ORDER;
        if (maybe(50)) {
            const bool larger = maybe(30);
            const Shape size = larger ? Shape{shape.first ? shape.first + number(0, 2) : 0,
                                              shape.second ? shape.second + number(0, 2) : 0}
                                      : shape;
            output = block(size, larger ? none : both, false);
        } else {
            datatype_name();
            if (maybe(50)) add(order_name(order)), its_order = varied(order);
        }
        model = [=, this] {
            Grid A = residues;
            if (source) {
                A = source->grid();
                for (Row &row : A) {
                    for (int64_t &entry : row) {
                        if (source->datatype() == MODLA_INTEGER4) entry = static_cast<int32_t>(entry);  // signed
                        entry = mod(entry, c.p);
                    }
                }
            }
            if (undefined_entry) c.message = "division by zero";
            if (undefined_entry && output) return set_free(*output), void(c.any_message = true);
            if (undefined_entry) return;
            for (Row &row : A) row.resize(static_cast<size_t>(output ? output->columns : std::max(shape.second, 1)));
            if (output) A.resize(static_cast<size_t>(output->rows), Row(static_cast<size_t>(output->columns)));
            give(output, shape, its_order, A);
        };
    }

    // ---- Faults

    Object absurd() {
        const int32_t sizes[] = {0, 1, -1, 2, 5, 100000, (1 << 30) - 1, 1 - (1 << 30)};
        const auto size = [&] { return integer(pick(random, sizes)); };
        const double doubles[] = {0.5, -1e300, 7.0, std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity()};
        const char *const names[] = {"true",     "false",   "transpose", "sparse", "upper", "random",
                                     "identity", "integer", "float",     "x",      "foo",   "alias"};
        switch (number(0, 15)) {
            case 0:
            case 1:
                return size();
            case 2:
                return integer(pick(random, {int64_t{1} << 40, -(int64_t{1} << 40), int64_t{2147483648}}));
            case 3:
                return held(new_float(pick(random, doubles)));
            case 4:
                return maybe(15) ? order_name(number(0, 1)) : global_name(pick(random, names));
            case 5:
            case 6:
                return range(size(), size());
            case 7:
                return range(maybe(50) ? global_name("x") : integer(1),
                             maybe(50) ? held(new_float(2)) : integer(int64_t{1} << 40));
            case 8:
                return arguments(pick(random, {"[]", "[1, x]", "[[1], [2, 3]]", "[[1], 2]", "{x}"}))[0];
            case 9:
                return held(new_string("text"));
            case 10:
                return new_table(datatype, MODLA_ARRAY, order, 3, 3);
            case 11:
                return new_table(pick(random, {5, 9, -1}), MODLA_MATRIX, order, 3, 3);
            case 12:
                return new_table(datatype, MODLA_MATRIX, order, 3, 3, number(0, 3));
            case 13:
                return new_table(datatype, MODLA_MATRIX, order, number(0, 1) * 3, 0);
            case 14: {
                const int32_t subtype = pick(random, {MODLA_MATRIX, MODLA_COLUMN_VECTOR, MODLA_ROW_VECTOR});
                return new_table(pick(random, datatypes), subtype, order, number(0, 4), number(0, 4));
            }
            default:
                return arguments(pick(random, {"integer[4]", "float[8]", "float[4]", "foo[1]", "x = 3", "{}"}))[0];
        }
    }

    void replace_arguments() {
        c.valid = false;
        std::vector<Object> &list = c.arguments;
        for (int32_t count = number(1, 3); count > 0; count--) {
            const auto position = [&] { return below(random, static_cast<ptrdiff_t>(list.size())); };
            const int what = number(0, 5);
            if (list.empty() || what == 0)
                list.insert(list.begin() + (list.empty() ? 0 : position()), absurd());
            else if (what == 1)
                list.erase(list.begin() + position());
            else if (what == 2)
                list.push_back(list[static_cast<size_t>(position())]);
            else if (what == 3)
                std::iter_swap(list.begin() + position(), list.begin() + position());
            else
                list[static_cast<size_t>(position())] = absurd();
        }
    }
};

}  // namespace

RandomCall draw_call(uint32_t seed, const Variation &variation, Shadow *shadow) {
    Generator generator{Random(seed), variation, seed};
    return generator.draw(shadow);
}

std::string describe(const RandomCall &call) {
    std::string text = call.entry + "(";
    for (const Object argument : call.arguments) text += to_line(argument) + ", ";
    text += ") mod " + std::to_string(call.p) + ", " + keyword_of(call.datatype);
    for (const Object table : call.tables) {
        text += "\n" + describe_table(table_of(table));
        for (const auto &row : grid_of(table)) {
            text += ";";
            for (const int64_t x : row) text += " " + (x == not_a_number ? "?" : std::to_string(x));
        }
    }
    return text;
}

}  // namespace modla_test
