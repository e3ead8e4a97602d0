// Operands that share memory: every result is the one that reading all operands first would give, copies are made only
// where entries are shared, and kernels take steps of either sign.
#include <algorithm>
#include <set>

#include "blocks.h"

namespace modla_test {
namespace {

constexpr int32_t p = 97;

// ---- Entries of a storage, as integers ----

int32_t get(int32_t datatype, const char *at) {
    if (datatype == MODLA_FLOAT8) {
        double x;
        std::memcpy(&x, at, sizeof x);
        return static_cast<int32_t>(x);
    }
    uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return datatype == MODLA_INTEGER ? static_cast<int32_t>(word) >> 1 : static_cast<int32_t>(word);
}

void set(int32_t datatype, char *at, int32_t value) {
    const double x = value;
    const uint32_t word = datatype == MODLA_INTEGER ? immediate(value) : static_cast<uint32_t>(value);
    datatype == MODLA_FLOAT8 ? std::memcpy(at, &x, sizeof x) : std::memcpy(at, &word, sizeof word);
}

int32_t inverse(int32_t a) {
    int32_t x = 1;
    while (a * x % p != 1) x++;
    return x;
}

using Values = std::vector<std::vector<int32_t>>;

Values values_of(int32_t datatype, const std::vector<char> &memory, const Block &block) {
    Values values;
    for (int32_t i = 0; i < block.rows; i++) {
        values.emplace_back();
        for (int32_t j = 0; j < block.columns; j++) values[i].push_back(get(datatype, memory.data() + block.at(i, j)));
    }
    return values;
}

// X with T*X = B for a triangular T, by definition.
Values solve(const Values &T, Values B, bool forward, bool unit_diagonal) {
    const int32_t n = static_cast<int32_t>(T.size());
    for (int32_t s = 0; s < n; s++) {
        const int32_t i = forward ? s : n - 1 - s;
        for (size_t c = 0; c < B[i].size(); c++) {
            int32_t x = B[i][c];
            for (int32_t j = forward ? 0 : i + 1; j < (forward ? i : n); j++) x += (p - T[i][j]) * B[j][c];
            B[i][c] = x % p * (unit_diagonal ? 1 : inverse(T[i][i])) % p;
        }
    }
    return B;
}

// ---- Callbacks that read and write entry by entry ----

struct Cells {
    const Table *table;
    int32_t row, column;
    Object &at(int32_t i, int32_t j) const {
        const Geometry g = {0, MODLA_MATRIX, table->settings.order, table_rows(*table), table_columns(*table), 0};
        EXPECT_TRUE(row + i < g.rows && column + j < g.columns);
        return *reinterpret_cast<Object *>(static_cast<char *>(table->data) +
                                           entry_offset(g, MODLA_INTEGER, row + i, column + j));
    }
    int32_t value(int32_t i, int32_t j) const { return static_cast<int32_t>(at(i, j)) >> 1; }
};

// The tables of a callback from arguments[first] on, with their shifts where there are some.
std::vector<Cells> tables_of(const std::vector<Object> &arguments, size_t first) {
    std::vector<Cells> tables;
    for (size_t k = first; k < arguments.size(); k++) {
        if (has_type(arguments[k], type_table)) {
            const bool shifted = k + 1 < arguments.size() && !has_type(arguments[k + 1], type_table);
            tables.push_back({&table_of(arguments[k]), shifted ? immediate_value(arguments[k + 1]) : 0,
                              shifted ? immediate_value(arguments[k + 2]) : 0});
        }
    }
    return tables;
}

Object add_mult(const std::vector<Object> &arguments) {
    const std::vector<Cells> t = tables_of(arguments, 4);
    for (int32_t i = 0; i < immediate_value(arguments[1]); i++) {
        for (int32_t j = 0; j < immediate_value(arguments[2]); j++) {
            const int32_t c = immediate_value(arguments[3]);
            t[2].at(i, j) = immediate((t[0].value(i, j) + c * t[1].value(i, j)) % p);
        }
    }
    return null_value();
}

Object scale(const std::vector<Object> &arguments) {
    const std::vector<Cells> t = tables_of(arguments, 4);
    for (int32_t i = 0; i < immediate_value(arguments[1]); i++) {
        for (int32_t j = 0; j < immediate_value(arguments[2]); j++) {
            t[1].at(i, j) = immediate(immediate_value(arguments[3]) * t[0].value(i, j) % p);
        }
    }
    return null_value();
}

Object multiply(const std::vector<Object> &arguments) {
    const std::vector<Cells> t = tables_of(arguments, 4);
    for (int32_t i = 0; i < immediate_value(arguments[1]); i++) {
        for (int32_t j = 0; j < immediate_value(arguments[3]); j++) {
            t[2].at(i, j) = immediate(0);
            for (int32_t k = 0; k < immediate_value(arguments[2]); k++) {
                t[2].at(i, j) = immediate((t[2].value(i, j) + t[0].value(i, k) * t[1].value(k, j)) % p);
            }
        }
    }
    return null_value();
}

Object substitute(const std::vector<Object> &arguments, bool forward) {
    const Cells T = {&table_of(arguments[0]), 0, 0}, B = {&table_of(arguments[2]), 0, 0};
    const int32_t n = immediate_value(arguments[1]), columns = std::max(immediate_value(arguments[3]), 1);
    const bool unit = forward && arguments[5] == global_name("true");
    for (int32_t s = 0; s < n; s++) {
        const int32_t i = forward ? s : n - 1 - s;
        for (int32_t c = 0; c < columns; c++) {
            for (int32_t j = forward ? 0 : i + 1; j < (forward ? i : n); j++) {
                B.at(i, c) = immediate((B.value(i, c) + (p - T.value(i, j)) * B.value(j, c)) % p);
            }
            if (!unit) B.at(i, c) = immediate(B.value(i, c) * inverse(T.value(i, i)) % p);
        }
    }
    return immediate(0);
}

// ---- A host that counts what is asked for, and whose default settings are its own affair ----

int copies;  // memory and new tables
int32_t wanted_datatype;

HostApi counting_host() {
    HostApi api = host_api();
    api.Alloc = [](uint32_t bytes) {
        copies++;
        return host_api().Alloc(bytes);
    };
    api.RtableGetDefaults = [](RtableSettings *settings) {
        host_api().RtableGetDefaults(settings);
        settings->datatype = settings->storage = settings->subtype = settings->num_dimensions = 3;
    };
    api.RtableCreate = [](RtableSettings *settings, void *data, int32_t *bounds) {
        copies += data == nullptr;
        EXPECT_EQ(settings->datatype, wanted_datatype);
        EXPECT_EQ(settings->storage, MODLA_RECTANGULAR);
        EXPECT_EQ(settings->num_dimensions, settings->subtype == MODLA_MATRIX ? 2 : 1);
        if (data) {
            EXPECT_TRUE(settings->view == 1 && settings->subtype == MODLA_MATRIX);
        }
        return host_api().RtableCreate(settings, data, bounds);
    };
    return api;
}

bool share_entries(const Block &a, const Block &b) {
    const std::set<uint32_t> places(a.offsets.begin(), a.offsets.end());
    return std::any_of(b.offsets.begin(), b.offsets.end(), [&](uint32_t at) { return places.count(at) != 0; });
}

// A whole table somewhere in the storage.
Block whole_table(Random &random, Storage &storage, int32_t datatype, int32_t order, int32_t rows, int32_t columns) {
    Block block;
    block.rows = rows;
    block.columns = std::max(columns, 1);
    RtableSettings settings = default_settings();
    settings.datatype = datatype;
    settings.subtype = columns ? MODLA_MATRIX : MODLA_COLUMN_VECTOR;
    settings.order = order;
    settings.num_dimensions = columns ? 2 : 1;
    const int32_t bounds[2] = {rows, columns};
    const uint32_t offset = below(random, 40u) * entry_bytes(datatype);
    const Object table = storage.keep(new_table(settings, bounds, storage.base + offset));
    block.geometry = {table, settings.subtype, order, rows, block.columns, offset};
    for (int32_t i = 0; i < rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            block.offsets.push_back(entry_offset(block.geometry, datatype, i, j));
        }
    }
    return block;
}

struct AliasedCall {
    EntryPoint entry;
    std::vector<Object> arguments;
    Block output;
    Values expected;
    int copies;
};

AliasedCall random_call(Random &random, Storage &storage, int32_t datatype) {
    const std::vector<char> &memory = storage.shadow;
    const int32_t m = 1 + below(random, 5), k = 1 + below(random, 5), n = 1 + below(random, 5);
    const int32_t c = 1 + below(random, p - 1);
    Placement where = {datatype, pick(random, {Layout::overlapping, Layout::same_table}), entry_bytes(datatype)};
    const auto copied = [&](const Block &operand, const Block &output, bool entrywise) {
        return share_entries(operand, output) && !(entrywise && operand.offsets == output.offsets) ? 1 : 0;
    };
    const int kind = below(random, 4);
    if (kind < 2) {  // sums and multiples
        const Block A = random_block(random, storage, where, {m, n}, chance(random, 30));
        const Block B = kind == 0 ? random_block(random, storage, where, {m, n}, chance(random, 30), &A, false) : A;
        const Block C = random_block(random, storage, where, {m, n}, false, &B, false);
        const Values a = values_of(datatype, memory, A), b = values_of(datatype, memory, B);
        Values sum = b;
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) sum[i][j] = ((kind == 0 ? a[i][j] : 0) + c * b[i][j]) % p;
        }
        const int count = (kind == 0 ? copied(A, C, true) : 0) + copied(B, C, true);
        const std::vector<Object> operands = kind == 0 ? join(A.arguments, B.arguments) : B.arguments;
        const std::vector<Object> arguments = join(join({immediate(p), immediate(c)}, operands), C.arguments);
        return {kind == 0 ? modLA_AddMult : modLA_Multiply, arguments, C, sum, count};
    }
    if (kind == 2) {  // products
        const Block A = random_block(random, storage, where, {m, k}, chance(random, 30));
        const Block B = random_block(random, storage, where, {k, n}, chance(random, 30), &A, false);
        const Block C = random_block(random, storage, where, {m, n}, false, &A, false);
        const Values a = values_of(datatype, memory, A), b = values_of(datatype, memory, B);
        Values product(m, std::vector<int32_t>(n, 0));
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) {
                for (int32_t t = 0; t < k; t++) product[i][j] = (product[i][j] + a[i][t] * b[t][j]) % p;
            }
        }
        const std::vector<Object> arguments = join(join(join({immediate(p)}, A.arguments), B.arguments), C.arguments);
        return {modLA_Multiply, arguments, C, product, copied(A, C, false) + copied(B, C, false)};
    }
    const int32_t order = pick(random, orders);
    const bool forward = chance(random, 50), unit_diagonal = forward && chance(random, 50);
    const Block T = whole_table(random, storage, datatype, order, m, m);
    const Block B = chance(random, 30) ? T : whole_table(random, storage, datatype, order, m, below(random, 4));
    std::vector<Object> arguments = {immediate(p), T.geometry.table, B.geometry.table};
    if (forward) arguments.push_back(global_name(unit_diagonal ? "true" : "false"));
    return {forward ? modLA_ForSub : modLA_BackSub, arguments, B,
            solve(values_of(datatype, memory, T), values_of(datatype, memory, B), forward, unit_diagonal),
            copied(T, B, false)};
}

void check_calls(int32_t datatype, int calls) {
    const HostApi api = counting_host();
    wanted_datatype = datatype;
    repeat(
        calls,
        [&](Random &random, Storage &storage, int) {
            for (uint32_t at = 0; at < storage_bytes; at += entry_bytes(datatype)) {
                if (at < 16384) set(datatype, storage.base + at, 1 + below(random, p - 1));
            }
            storage.take_shadow();
            const AliasedCall call = random_call(random, storage, datatype);
            for (int32_t i = 0; i < call.output.rows; i++) {
                for (int32_t j = 0; j < call.output.columns; j++) {
                    set(datatype, storage.shadow.data() + call.output.at(i, j), call.expected[i][j]);
                }
            }
            Roots held;
            held.values.push_back(new_sequence(call.arguments));
            copies = 0;
            EXPECT_EQ(call.entry(&api, words(held.values[0])), null_value());
            EXPECT_EQ(copies, call.copies) << describe(call.arguments);
            EXPECT_EQ(storage.difference(), -1) << describe(call.arguments);
        },
        datatype);
}

TEST(Aliasing, Words) {
    check_calls(MODLA_INTEGER4, 3000);
}
TEST(Aliasing, Doubles) {
    check_calls(MODLA_FLOAT8, 3000);
}
TEST(Aliasing, HostIntegersThroughEntrywiseCallbacks) {
    const Callback sum("cbAddMult", add_mult), shifted_sum("cbAddMultShift", add_mult);
    const Callback multiple("cbScalMult", scale), shifted_multiple("cbScalMultShift", scale);
    const Callback product("cbMatMult", multiply), shifted_product("cbMatMultShift", multiply);
    const Callback forward("cbForSub", [](const auto &arguments) { return substitute(arguments, true); });
    const Callback backward("cbBackSub", [](const auto &arguments) { return substitute(arguments, false); });
    check_calls(MODLA_INTEGER, 6000);
}

// A callback may keep what it was handed.
TEST(Aliasing, ScalarPlaceOutlivesTheCall) {
    EXPECT_EQ(run("cbMatMult := proc(p, m, k, n, A, B, C) assign('saved', C); Fill(p, 3, C) end\n"
                  "Multiply(7, Create(7, 0, 3, 1, integer), Create(7, 3, 0, 2, integer))\n"
                  "f := proc(a, b) Fill(7, 5, saved); a + b end\n"
                  "f(1, 2); saved; cbMatMult := 'cbMatMult'; saved := 'saved'\n"),
              "3\n3\n[5]\n");
}

// ---- Steps of either sign ----

// A matrix with any steps, in storage that is larger than it.
template <class T>
struct Strided {
    std::vector<T> memory = std::vector<T>(400, T(5));
    int32_t rows, columns, row_step, column_step;
    T *data;

    Strided(Random &random, int32_t r, int32_t c) : rows(r), columns(c) {
        row_step = (c + below(random, 3)) * pick(random, {1, -1});
        column_step = pick(random, {1, -1});
        if (chance(random, 50)) {
            row_step = pick(random, {1, -1});
            column_step = (r + below(random, 3)) * pick(random, {1, -1});
        }
        data = memory.data() + 200;
        for (int32_t i = 0; i < r; i++) {
            for (int32_t j = 0; j < c; j++) at(i, j) = static_cast<T>(1 + below(random, p - 1));
        }
    }
    T &at(int32_t i, int32_t j) { return data[i * row_step + j * column_step]; }
};

template <class T, class General, class... Kernels>
void check_product_steps(const General &general, const Kernels &...kernels) {
    Random random(5);
    const double pinv = 1.0000000000000002 / p;
    for (int i = 0; i < 2000 && !testing::Test::HasFailure(); i++) {
        const int32_t m = 1 + below(random, 6), k = 1 + below(random, 6), n = 1 + below(random, 6);
        Strided<T> A(random, m, k), B(random, k, n), C(random, m, n);
        Strided<T> expected = C;
        expected.data = expected.memory.data() + 200;
        for (int32_t r = 0; r < m; r++) {
            for (int32_t c = 0; c < n; c++) {
                uint32_t sum = 0;
                for (int32_t t = 0; t < k; t++) sum += static_cast<uint32_t>(A.at(r, t) * B.at(t, c));
                expected.at(r, c) = static_cast<T>(sum % p);
            }
        }
        const auto run = [&](const auto &kernel) {
            const std::vector<T> before = C.memory;
            kernel(p, pinv, m, k, n, A.data, A.row_step, A.column_step, B.data, B.row_step, B.column_step, C.data,
                   C.row_step, C.column_step);
            EXPECT_EQ(C.memory, expected.memory) << m << " " << k << " " << n;
            C.memory = before;
        };
        run(general);
        (run(kernels), ...);
    }
}

TEST(Steps, Products) {
    check_product_steps<uint32_t>(
        [](auto... operands) { modLA_MatMult_iw(&host_api(), operands..., 0, nullptr, 0, 20); },
        [](auto... operands) { modLA_MatMatMult_iw(operands..., 100, 100, 0); });
    check_product_steps<double>([](auto... operands) { modLA_MatMult_f(&host_api(), operands..., 0, nullptr, 0); },
                                [](auto... operands) { modLA_MatMatMult_f(operands..., 100, 100, 0); },
                                [](auto... operands) { modLA_MatMatBLAS(operands..., 100, 100, 0); });
}

// One kernel of each direction, in the order in which the matrices of its row step and column step are stored.
template <class T, class ForKernel, class BackKernel>
void check_substitution_steps(bool c_order, ForKernel for_kernel, BackKernel back_kernel) {
    Random random(6);
    for (int i = 0; i < 2000 && !testing::Test::HasFailure(); i++) {
        const int32_t n = 1 + below(random, 6), columns = below(random, 4);
        Strided<T> M(random, n, n), B(random, n, std::max(columns, 1));
        const auto lay = [&](Strided<T> &X, bool by_rows) {
            const int32_t ld = (std::max(X.rows, X.columns) + below(random, 2)) * pick(random, {1, -1});
            X.row_step = by_rows ? ld : 1, X.column_step = by_rows ? 1 : ld;
            for (int32_t r = 0; r < X.rows; r++) {
                for (int32_t c = 0; c < X.columns; c++) X.at(r, c) = static_cast<T>(1 + below(random, p - 1));
            }
            return ld;
        };
        const int32_t ldT = lay(M, c_order), ldB = lay(B, c_order || columns == 0);
        Values t, b;
        for (int32_t r = 0; r < n; r++) {
            t.emplace_back(), b.emplace_back();
            for (int32_t c = 0; c < n; c++) t[r].push_back(static_cast<int32_t>(M.at(r, c)));
            for (int32_t c = 0; c < B.columns; c++) b[r].push_back(static_cast<int32_t>(B.at(r, c)));
        }
        const bool forward = chance(random, 50);
        const Values x = solve(t, b, forward, false);
        Strided<T> expected = B;
        expected.data = expected.memory.data() + 200;
        for (int32_t r = 0; r < n; r++) {
            for (int32_t c = 0; c < B.columns; c++) expected.at(r, c) = static_cast<T>(x[r][c]);
        }
        const double pinv = 1.0000000000000002 / p;
        const int32_t limit = 2 + below(random, 100);
        EXPECT_EQ(forward ? for_kernel(M.data, n, ldT, B.data, columns, ldB, p, pinv, 0, limit)
                          : back_kernel(M.data, n, ldT, B.data, columns, ldB, p, pinv, limit),
                  0u);
        EXPECT_EQ(B.memory, expected.memory) << n << " " << columns << " " << ldT << " " << ldB;
    }
}

TEST(Steps, Substitution) {
    check_substitution_steps<uint32_t>(true, modLA_ForSub_C_iw_nop, modLA_BackSub_C_iw_nop);
    check_substitution_steps<uint32_t>(false, modLA_ForSub_F_iw_nop, modLA_BackSub_F_iw_nop);
    check_substitution_steps<double>(true, modLA_ForSub_C_f_nop, modLA_BackSub_C_f_nop);
    check_substitution_steps<double>(false, modLA_ForSub_F_f_nop, modLA_BackSub_F_f_nop);
}

// The same matrix with lines that run upward through memory.
template <class T, class Kernel>
void check_reduction_steps(bool c_order, Kernel kernel) {
    Random random(7);
    for (int i = 0; i < 500; i++) {
        const int32_t rows = 1 + below(random, 6), columns = 1 + below(random, 6), ld = 6 + below(random, 2);
        std::vector<T> up(200, T(5)), down = up;
        const auto at = [&](std::vector<T> &memory, int32_t step, int32_t r, int32_t c) -> T & {
            return memory[static_cast<size_t>(100 + (c_order ? r * step + c : c * step + r))];
        };
        for (int32_t r = 0; r < rows; r++) {
            for (int32_t c = 0; c < columns; c++) {
                at(up, ld, r, c) = at(down, -ld, r, c) = static_cast<T>(chance(random, 40) ? 0 : below(random, p));
            }
        }
        int32_t rank_up, rank_down, pending[6];
        const auto run = [&](std::vector<T> &memory, int32_t step, int32_t *rank) {
            kernel(memory.data() + 100, rows, columns, columns, step, p, 1.0000000000000002 / p, nullptr, nullptr, rank,
                   nullptr, nullptr, nullptr, 1, 0, pending, 100);
        };
        run(up, ld, &rank_up), run(down, -ld, &rank_down);
        EXPECT_EQ(rank_up, rank_down);
        for (int32_t r = 0; r < rows; r++) {
            for (int32_t c = 0; c < columns; c++) EXPECT_EQ(at(up, ld, r, c), at(down, -ld, r, c));
        }
    }
}

TEST(Steps, RowReduction) {
    check_reduction_steps<uint32_t>(true, modLA_reduce_C_iw_nop);
    check_reduction_steps<uint32_t>(false, modLA_reduce_F_iw_nop);
    check_reduction_steps<double>(true, modLA_reduce_C_f_nop);
    check_reduction_steps<double>(false, modLA_reduce_F_f_nop);
}

// ---- The modulus is looked at before what comes after it ----

TEST(Messages, ModulusFirst) {
    const std::pair<const char *, int> entries[] = {
        {"Create", 4},      {"Fill", 3},     {"Copy", 2},       {"Swap", 3},     {"Permute", 5}, {"Mod", 3},
        {"AddMult", 3},     {"Multiply", 3}, {"RowReduce", 11}, {"LUDecomp", 4}, {"ForSub", 4},  {"BackSub", 3},
        {"Determinant", 5}, {"MatBasis", 4}, {"MatGcd", 3},     {"ZigZag", 2}};
    for (const auto &[entry, count] : entries) {
        std::string call = std::string(entry) + "(1/2";
        for (int i = 1; i < count; i++) call += ", 1/2";
        EXPECT_EQ(error_of(call + ")"), "argument 1, the modulus, must be an integer") << entry;
    }
}

}  // namespace
}  // namespace modla_test
