#include "tests/library_calls.h"

#include <dlfcn.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

namespace modla_test::strict {

// ---- What there is to call ----

namespace {

std::string contents(const char *path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The word that ends at a place in a text.
std::string word_before(const std::string &text, size_t end) {
    size_t begin = end;
    while (begin > 0 && (std::isalnum(static_cast<unsigned char>(text[begin - 1])) || text[begin - 1] == '_')) begin--;
    return text.substr(begin, end - begin);
}

// The words before every occurrence of a mark.
std::set<std::string> words_before(const std::string &text, const std::string &mark) {
    std::set<std::string> words;
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        words.insert(word_before(text, at));
    }
    return words;
}

}  // namespace

std::set<std::string> exported_names() {
    const std::string map = contents(MODLA_EXPORTS);
    return words_before(map.substr(0, map.find("local:")), ";");
}

std::set<std::string> entry_point_names() {
    return words_before(contents(MODLA_HEADER), "(const HostApi *api, const HostObject *args);");
}

std::set<std::string> host_caller_names() {
    return words_before(contents(MODLA_HEADER), "(const HostApi *");
}

EntryPoint entry_point(const std::string &name) {
    static void *const library = dlopen(MODLA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<EntryPoint>(dlsym(library, name.c_str()));
}

// ---- Tables and memory ----

namespace {

std::vector<std::pair<std::string, HostObject>> tables;

HostObject add_table(const std::string &word, int32_t datatype, int32_t subtype, int32_t order, int32_t rows,
                     int32_t columns) {
    const HostObject table = new_table(datatype, subtype, order, rows, columns);
    tables.emplace_back(word, table);
    define(word, table);
    return table;
}

HostObject datatype_object(int32_t datatype) {
    if (datatype == MODLA_INTEGER) return name("integer");
    return arguments(datatype == MODLA_INTEGER4 ? "integer[4]" : "float[8]")[0];
}

}  // namespace

void define_tables(int32_t p, int32_t datatype, int32_t order, Random &random) {
    tables.clear();
    const auto add = [&](const char *word, int32_t subtype, int32_t its_order, int32_t rows, int32_t columns) {
        const Table &table = table_of(add_table(word, datatype, subtype, its_order, rows, columns));
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) set_entry(table, i, j, chance(random, 20) ? 0 : below(random, p));
        }
    };
    const int32_t other = 1 - order;
    add("A", MODLA_MATRIX, order, 4, 5), add("B", MODLA_MATRIX, order, 4, 5), add("D", MODLA_MATRIX, other, 4, 5);
    add("S", MODLA_MATRIX, order, 4, 4), add("T", MODLA_MATRIX, order, 4, 4), add("Empty", MODLA_MATRIX, order, 0, 5);
    add("V", MODLA_COLUMN_VECTOR, order, 4, 1), add("N", MODLA_COLUMN_VECTOR, order, 5, 1);
    add("R", MODLA_ROW_VECTOR, order, 1, 4);
    const auto add_permutation = [&](const char *word, int32_t its_datatype, int32_t last) {
        const Table &table = table_of(add_table(word, its_datatype, MODLA_COLUMN_VECTOR, order, 4, 1));
        const int32_t entries[] = {3, 2, 4, last};
        for (int32_t i = 0; i < 4; i++) set_entry(table, i, 0, entries[i]);
    };
    add_permutation("P", MODLA_INTEGER4, 4), add_permutation("Q", MODLA_INTEGER, 4);
    add_permutation("Bad", MODLA_INTEGER4, 9);
    set_entry(table_of(tables.back().second), 2, 0, 9);
    define("p", integer_object(p));
    define("datatype", datatype_object(datatype));
}

std::string all_tables() {
    std::string text;
    for (const auto &[word, table] : tables) text += word + ": " + to_text(table) + "\n";
    return text;
}

template <class W>
W *Runner::block(size_t count, uint32_t p) {
    const auto memory_block = std::make_shared<GuardedBlock>(count * sizeof(W), host.aligned_data);
    W *const data = reinterpret_cast<W *>(memory_block->data);
    for (size_t k = 0; k < count; k++) {
        const W value = p == 0 || chance(random, 10) ? 0 : static_cast<W>(below(random, p));
        std::memcpy(data + k, &value, sizeof value);
    }
    blocks.push_back(memory_block);
    memory.push_back(memory_block);
    return data;
}

namespace {

bool tables_hold_residues(int32_t p) {
    for (const auto &[word, object] : tables) {
        const Table &table = table_of(object);
        if (word == "P" || word == "Q" || word == "Bad") continue;
        for (int32_t i = 0; i < table.rows(); i++) {
            for (int32_t j = 0; j < table.columns(); j++) {
                const double value = entry_value(table, i, j);
                if (!(value >= 0 && value < p && value == std::floor(value))) return false;
            }
        }
    }
    return true;
}

}  // namespace

Result make_call(const LibraryCall &call) {
    reset();
    register_stand_ins();
    std::srand(1);
    Runner runner;
    define_tables(call.p, call.datatype, call.order, runner.random);
    const Outcome outcome = attempt([&] { call.run(runner); });
    reclaim();
    for (const auto &block : runner.blocks) {
        if (!block->intact()) host.violations.push_back("a kernel wrote outside of its memory");
    }
    std::string found = runner.found;
    if (outcome.returned) {
        for (const auto &block : runner.memory) {
            for (size_t k = 0; k < block->bytes; k += 4) {
                uint32_t word;
                std::memcpy(&word, block->data + k, 4);
                found += std::to_string(word) + (k % 8 ? " " : ":");
            }
        }
        found += all_tables();
        for (const std::string &word : host.assigned) {
            found += word + " := " + to_text(reinterpret_cast<const HostObject *>(name(word))[1]) + "\n";
        }
    }
    return {outcome.returned, outcome.messages, found, runner.called, tables_hold_residues(call.p)};
}

// ---- The calls ----

namespace {

constexpr uint32_t word_primes[] = {46337, 65521};
constexpr uint32_t float_primes[] = {65521, 33554393};

template <class W>
constexpr bool is_float = std::is_same_v<W, double>;

template <class W>
int32_t pending(uint32_t p) {
    const uint64_t limit = uint64_t{1} << (is_float<W> ? 53 : 32);
    const uint64_t bound = (limit - p) / (uint64_t{p - 1} * (p - 1));
    return static_cast<int32_t>(std::min<uint64_t>(bound, 2147483646));
}
template <class W>
W headroom(uint32_t p) {
    const uint64_t limit = uint64_t{1} << (is_float<W> ? 53 : 32);
    return static_cast<W>(static_cast<int64_t>(limit - 1 - uint64_t{p - 1} * (p - 1)));
}
double reciprocal(uint32_t p) {
    return 1.0000000000000002 / p;
}

std::string text_of(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    return std::to_string(bits);
}
std::string text_of(uint32_t value) {
    return std::to_string(value);
}
std::string text_of(int32_t value) {
    return std::to_string(value);
}

struct List {
    std::vector<LibraryCall> calls;

    void add(const std::string &name, int32_t p, std::function<void(Runner &)> run, int repetitions = 4) {
        calls.push_back(
            {name + " mod " + std::to_string(p), std::move(run), p, MODLA_INTEGER4, MODLA_C_ORDER, repetitions});
    }
    // A kernel whose call makes all it needs: run(runner, p).
    template <class W, class Run>
    void add_kernel(const char *name, Run run, int repetitions = 4) {
        for (const uint32_t p : is_float<W> ? float_primes : word_primes) {
            add(
                name, static_cast<int32_t>(p), [=](Runner &r) { run(r, p); }, repetitions);
        }
        add(
            name, 12, [=](Runner &r) { run(r, 12); }, repetitions);
    }
};

#define EXPORT(f) #f, f

template <class W, class... More>
void add_reduce(List *list, const char *name, uint32_t (*f)(MODLA_REDUCE_ARGUMENTS(W), More...)) {
    list->add_kernel<W>(name, [=](Runner &r, uint32_t p) {
        const int32_t rows = 7, columns = 9;
        for (const bool nullspace : {false, true}) {
            W *const A = r.block<W>(81, p), *const det = r.block<W>(1), *const product = r.block<W>(1);
            int32_t *const numbers = r.block<int32_t>(3), *const pivots = r.block<int32_t>(9);
            const auto run = [&](auto... more) {
                const uint32_t status =
                    r.call(name, f, A, rows, columns, nullspace ? 7 : 6, 9, static_cast<W>(p), reciprocal(p),
                           nullspace ? nullptr : det, nullspace ? nullptr : product, numbers, numbers + 1,
                           nullspace ? nullptr : numbers + 2, nullspace ? pivots : nullptr, nullspace, 0, more...);
                r.note(text_of(status));
            };
            if constexpr (sizeof...(More) == 0) {
                run();
            } else {
                run(r.block<int32_t>(9), pending<W>(p));
            }
        }
    });
}

template <class W>
void add_lu(List *list, const char *name, uint32_t (*f)(MODLA_LU_ARGUMENTS(W))) {
    list->add_kernel<W>(name, [=](Runner &r, uint32_t p) {
        W *const A = r.block<W>(64, p), *const det = r.block<W>(1);
        r.note(text_of(r.call(name, f, A, r.block<int32_t>(7), 8, 8, static_cast<W>(p), reciprocal(p), det,
                              r.block<int32_t>(8), pending<W>(p))));
    });
}

template <class W, class... More>
void add_substitution(List *list, const char *name,
                      uint32_t (*f)(const W *, int32_t, int32_t, W *, int32_t, int32_t, W, double, More...)) {
    list->add_kernel<W>(name, [=](Runner &r, uint32_t p) {
        for (const int32_t columns : {0, 3}) {
            W *const T = r.block<W>(64, p), *const B = r.block<W>(8 * 8, p);
            const W one = 1;
            for (size_t k = 0; k < 8; k++) std::memcpy(T + 9 * k, &one, sizeof one);
            const auto run = [&](auto... more) {
                r.note(text_of(r.call(name, f, T, 8, 8, B, columns, columns == 0 ? 1 : 8, static_cast<W>(p),
                                      reciprocal(p), more...)));
            };
            if constexpr (sizeof...(More) == 2) {
                run(columns == 0, pending<W>(p));
            } else {
                run(pending<W>(p));
            }
        }
    });
}

template <class W>
void add_gcd(List *list, const char *name, int32_t (*f)(MODLA_ROW_GCD_ARGUMENTS(W))) {
    list->add_kernel<W>(name, [=](Runner &r, uint32_t p) {
        r.note(
            text_of(r.call(name, f, r.block<W>(7 * 7, p), 4, 7, 7, static_cast<W>(p), reciprocal(p), pending<W>(p))));
    });
}

template <class W>
void add_zigzag(List *list, const char *name, int32_t (*f)(MODLA_ZIGZAG_ARGUMENTS(W))) {
    list->add_kernel<W>(name, [=](Runner &r, uint32_t p) {
        r.note(text_of(r.call(name, f, r.block<W>(64, p), 8, static_cast<W>(p), reciprocal(p), 0)));
    });
}

// An m x k and a k x n factor, the second stored by columns, and their product.
template <class W>
struct Operands {
    W *A, *B, *C, p, T;
    int32_t m, k, n, L;
    Operands(Runner &r, uint32_t modulus, int32_t rows, int32_t inner, int32_t columns)
        : A(r.block<W>(static_cast<size_t>(rows * inner), modulus)),
          B(r.block<W>(static_cast<size_t>(inner * columns), modulus)),
          C(r.block<W>(static_cast<size_t>(rows * columns))),
          p(static_cast<W>(modulus)),
          T(headroom<W>(modulus)),
          m(rows),
          k(inner),
          n(columns),
          L(pending<W>(modulus)) {}
};

#define OPERANDS o.p, reciprocal(p), o.m, o.k, o.n, o.A, o.k, 1, o.B, 1, o.k, o.C, o.n, 1
#define ADD_PRODUCT(W, f, ...)                                  \
    list->add_kernel<W>(#f, [](Runner &r, uint32_t p) {         \
        const Operands<W> o(r, p, 9, 11, 10);                   \
        r.call(EXPORT(f), OPERANDS __VA_OPT__(, ) __VA_ARGS__); \
    })
#define ADD_LARGE_PRODUCT(W, f, size, workspace_size, ...)       \
    list->add_kernel<W>(                                         \
        #f,                                                      \
        [](Runner &r, uint32_t p) {                              \
            const Operands<W> o(r, p, size, size + 1, size);     \
            W *const workspace = r.block<W>(workspace_size);     \
            r.call(EXPORT(f), OPERANDS, workspace, __VA_ARGS__); \
            r.memory.pop_back();                                 \
        },                                                       \
        1)
// The host provides the workspace.
#define ADD_GENERAL_PRODUCT(W, f, size, ...)                                                      \
    list->add_kernel<W>(                                                                          \
        #f,                                                                                       \
        [](Runner &r, uint32_t p) {                                                               \
            const Operands<W> o(r, p, size, size, size);                                          \
            r.note(is_table(r.call(EXPORT(f), api(), OPERANDS, __VA_ARGS__)) ? "workspace" : ""); \
        },                                                                                        \
        1)
#define ADD_BLOCK_SUM(W, f)                                            \
    list->add_kernel<W>(#f, [](Runner &r, uint32_t p) {                \
        const Operands<W> o(r, p, 7, 7, 7);                            \
        r.call(EXPORT(f), o.p, 7, 7, o.A, 7, 1, o.B, 1, 7, o.C, 7, 1); \
    })

void add_products(List *list) {
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_SE);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_SN, o.L);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_S1);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_NE);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_NN, o.L);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw_N1);
    ADD_PRODUCT(double, modLA_MatMatMult_f_SN, o.L, o.T);
    ADD_PRODUCT(double, modLA_MatMatMult_f_S1);
    ADD_PRODUCT(double, modLA_MatMatMult_f_NN, o.L, o.T);
    ADD_PRODUCT(double, modLA_MatMatMult_f_N1);
    ADD_PRODUCT(uint32_t, modLA_MatMatMult_iw, o.L, o.T, 0);
    ADD_PRODUCT(double, modLA_MatMatMult_f, o.L, o.T, 1);
    ADD_PRODUCT(double, modLA_MatMatBLAS, o.L, o.T, 0);
    ADD_LARGE_PRODUCT(uint32_t, modLA_StrMatMult_iw, 25, 1200, o.L, o.T, 0, 5);
    ADD_LARGE_PRODUCT(double, modLA_StrMatMult_f, 25, 1200, o.L, o.T, 0, 1);
    ADD_GENERAL_PRODUCT(uint32_t, modLA_MatMult_iw, 104, 0, nullptr, 0, 20);
    ADD_GENERAL_PRODUCT(double, modLA_MatMult_f, 30, 0, nullptr, 0);
    ADD_BLOCK_SUM(uint32_t, modLA_MatMatAdd_iw);
    ADD_BLOCK_SUM(double, modLA_MatMatAdd_f);
    ADD_BLOCK_SUM(uint32_t, modLA_MatMatSub_iw);
    ADD_BLOCK_SUM(double, modLA_MatMatSub_f);
}

void add_eliminations(List *list) {
    add_reduce<uint32_t>(list, EXPORT(modLA_reduce_C_iw));
    add_reduce<uint32_t>(list, EXPORT(modLA_reduce_F_iw));
    add_reduce<uint32_t>(list, EXPORT(modLA_reduce_C_iw_nop));
    add_reduce<uint32_t>(list, EXPORT(modLA_reduce_F_iw_nop));
    add_reduce<double>(list, EXPORT(modLA_reduce_C_f_nop));
    add_reduce<double>(list, EXPORT(modLA_reduce_F_f_nop));
    add_lu<uint32_t>(list, EXPORT(modLA_LU_C_iw_nop));
    add_lu<uint32_t>(list, EXPORT(modLA_LU_F_iw_nop));
    add_lu<double>(list, EXPORT(modLA_LU_C_f_nop));
    add_lu<double>(list, EXPORT(modLA_LU_F_f_nop));
    add_substitution<uint32_t>(list, EXPORT(modLA_ForSub_C_iw_nop));
    add_substitution<uint32_t>(list, EXPORT(modLA_ForSub_F_iw_nop));
    add_substitution<double>(list, EXPORT(modLA_ForSub_C_f_nop));
    add_substitution<double>(list, EXPORT(modLA_ForSub_F_f_nop));
    add_substitution<uint32_t>(list, EXPORT(modLA_BackSub_C_iw_nop));
    add_substitution<uint32_t>(list, EXPORT(modLA_BackSub_F_iw_nop));
    add_substitution<double>(list, EXPORT(modLA_BackSub_C_f_nop));
    add_substitution<double>(list, EXPORT(modLA_BackSub_F_f_nop));
    add_gcd<uint32_t>(list, EXPORT(modLA_RowGcd_C_iw));
    add_gcd<uint32_t>(list, EXPORT(modLA_RowGcd_F_iw));
    add_gcd<double>(list, EXPORT(modLA_RowGcd_C_f));
    add_gcd<double>(list, EXPORT(modLA_RowGcd_F_f));
    add_zigzag<uint32_t>(list, EXPORT(modLA_ZigZag_C_iw));
    add_zigzag<uint32_t>(list, EXPORT(modLA_ZigZag_F_iw));
    add_zigzag<double>(list, EXPORT(modLA_ZigZag_C_f));
    add_zigzag<double>(list, EXPORT(modLA_ZigZag_F_f));
}

// ---- Scalars

constexpr int32_t exponents[] = {0, 1, 5, -1, -3, 1000003};

template <class W>
W *power_table(Runner &r, uint32_t p) {
    W *const table = r.block<W>(32);
    for (size_t k = 0; k < 32; k++) {
        const W value = static_cast<W>(k == 0 ? 5 % p : 0);
        const W unknown = is_float<W> ? static_cast<W>(-1) : static_cast<W>(65536);
        std::memcpy(table + k, k == 0 ? &value : &unknown, sizeof(W));
    }
    return table;
}

// Of degree 40, dense.
HostObject polynomial(Runner &r, uint32_t p) {
    std::vector<uint32_t> words = {name("x"), immediate(static_cast<int32_t>(p))};
    for (int i = 0; i <= 40; i++) {
        const uint32_t c = below(r.random, p);
        words.push_back(p > 46327 ? immediate(static_cast<int32_t>(c)) : c);
    }
    return new_object(17, words);
}

void add_scalars(List *list) {
    list->add_kernel<uint32_t>("powers and inverses of words", [](Runner &r, uint32_t p) {
        const HostObject big = integer_object(-987654321987654321), poly = polynomial(r, p);
        for (const int32_t e : exponents) {
            r.note(text_of(r.call(EXPORT(modpow_iw), 5 % p, e, p)));
            r.note(text_of(r.call(EXPORT(modinverse_iw), static_cast<uint32_t>(e) % p, p)));
            if (e != 0) r.note(text_of(r.call(EXPORT(modunknpow_iw), power_table<uint32_t>(r, p), e, p)));
        }
        r.note(text_of(r.call(EXPORT(modtolvexint_iw), big, p)));
        r.note(text_of(r.call(EXPORT(modzppolyeval_iw), poly, power_table<uint32_t>(r, p), p)));
    });
    list->add_kernel<double>("powers and inverses of floats", [](Runner &r, uint32_t p) {
        const HostObject big = integer_object(-987654321987654321), poly = polynomial(r, p);
        const double q = p, inverse = reciprocal(p);
        for (const int32_t e : exponents) {
            r.note(text_of(r.call(EXPORT(modpow_f), 5, e, q, inverse)));
            r.note(text_of(r.call(EXPORT(modinverse_f), static_cast<uint32_t>(e) % p, q, inverse)));
            if (e != 0) r.note(text_of(r.call(EXPORT(modunknpow_f), power_table<double>(r, p), e, q, inverse)));
        }
        r.note(text_of(r.call(EXPORT(modtolvexint_f), big, q, 0, inverse)));
        r.note(text_of(r.call(EXPORT(modzppolyeval_f), poly, power_table<double>(r, p), q, inverse)));
    });
    list->add("conversions", 7, [](Runner &r) {
        for (const int32_t value : {0, -5, 1073741823, 1073741824, -2147483647}) {
            r.note(to_text(r.call(EXPORT(M_INTtoTolvexInt), api(), value)));
        }
        for (const double value :
             {0.0, 2.5, -2.5, 1e9, 1073741823.5, -4.5e15, 9007199254740991.0, std::numeric_limits<double>::quiet_NaN(),
              std::numeric_limits<double>::denorm_min()}) {
            r.note(to_text(r.call(EXPORT(floattoTolvexInt_32), api(), value)));
        }
    });
    for (const double value : {1e16, -std::numeric_limits<double>::infinity()}) {
        list->add("conversion of what is too large", 7,
                  [=](Runner &r) { r.note(to_text(r.call(EXPORT(floattoTolvexInt_32), api(), value))); });
    }
    for (const uint32_t p : {7u, 1u}) {
        list->add("random fills", static_cast<int32_t>(p) + 1, [=](Runner &r) {
            r.call(EXPORT(rand_fill_iw), api(), 3, 4, r.block<uint32_t>(12), 4, 1, p);
            r.call(EXPORT(rand_fill_f), api(), 3, 4, r.block<double>(12), 1, 3, p);
        });
        list->add("random fills of floats", static_cast<int32_t>(p) + 1,
                  [=](Runner &r) { r.call(EXPORT(rand_fill_f), api(), 3, 4, r.block<double>(12), 1, 3, p); });
    }
}

// ---- Binding

void add_validation(List *list) {
    for (const char *text : {"integer", "integer[]", "integer[4]", "float[8]", "float[4]", "x", "5"}) {
        for (const int32_t mode : {0, 1, 2}) {
            list->add(std::string("process_datatype ") + text, 7, [=](Runner &r) {
                const HostObject object = arguments(text)[0];
                r.note(text_of(r.call(EXPORT(process_datatype), api(), object, mode, 3)));
            });
        }
    }
    for (const int32_t datatype : {int32_t{MODLA_INTEGER}, int32_t{MODLA_INTEGER4}, int32_t{MODLA_FLOAT8}, 9}) {
        for (const char *modulus : {"7", "65521", "100000", "100000000", "1000000000000", "-1000000000000", "1", "x"}) {
            for (const char *fill : {"3", "2.5", "6.5", "x", "-1000000000000"}) {
                list->add(std::string("validate_modulus ") + modulus + " " + fill, 7, [=](Runner &r) {
                    const HostObject p = arguments(modulus)[0];
                    HostObject *const value = r.block<uint32_t>(1);
                    value[0] = arguments(fill)[0];
                    r.memory.clear();
                    void *const out_modulus = r.block<double>(1), *const out_fill = r.block<double>(1);
                    if (datatype == MODLA_INTEGER) r.memory.clear();  // addresses of objects
                    r.call(EXPORT(validate_modulus), api(), p, out_modulus, datatype, value, out_fill, "fill", 0);
                });
            }
            list->add(std::string("validate_integer_modulus ") + modulus, 7, [=](Runner &r) {
                const HostObject p = arguments(modulus)[0];
                r.call(EXPORT(validate_integer_modulus), api(), p);
            });
        }
    }
    list->add("comparisons", 7, [](Runner &r) {
        for (const int64_t modulus : {int64_t{7}, int64_t{1000000000001}}) {
            for (const int64_t value : {int64_t{-1}, int64_t{3}, int64_t{7}, int64_t{1000000000000}}) {
                const HostObject p = integer_object(modulus), x = integer_object(value);
                r.note(text_of(r.call(EXPORT(validate_integer_value), p, x)));
            }
        }
        HostObject *const names = r.block<uint32_t>(2);
        names[0] = name("x");
        names[1] = new_object(MODLA_TYPE_POWER, {name("x"), immediate(2)});
        r.memory.clear();
        for (const int32_t e : {1, 2, 3}) r.note(text_of(r.call(EXPORT(isUnkn), name("x"), immediate(e), names, 2)));
    });
    const int32_t sizes[][2] = {{3, 4}, {3, 0}, {0, 4}, {0, 0}};
    for (const auto &[rows, columns] : sizes) {
        list->add("new_modLA_rtable", 7, [rows = rows, columns = columns](Runner &r) {
            host.fill_new_tables = true;
            r.note(to_text(r.call(EXPORT(new_modLA_rtable), api(), rows, columns, MODLA_FLOAT8, MODLA_FORTRAN_ORDER)));
        });
    }
    for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4}) {
        for (const int32_t step : {1, 5, 2}) {
            list->calls.push_back({"data_to_modLA_rtable",
                                   [=](Runner &r) {
                                       const HostObject parent = arguments("A")[0];
                                       int32_t *const shifts = r.block<int32_t>(2);
                                       char *const data = table_of(parent).entry(2, 3);
                                       r.note(to_text(r.call(EXPORT(data_to_modLA_rtable), api(), parent, data, 2, 2,
                                                             step, step == 1 ? 4 : 1, shifts, shifts + 1)));
                                   },
                                   7, datatype, MODLA_C_ORDER, 4});
        }
    }
    for (const char *text :
         {"A", "A, 2..3, -1", "A, 2, 9", "A, 3..2", "D, 1, 2..4, transpose", "V, 2", "R, 1..2", "5", "x", "Empty"}) {
        list->add(std::string("process_subspec ") + text, 7, [=](Runner &r) {
            const HostObject *const args = argument_array(arguments(text));
            const int32_t n = static_cast<int32_t>(arguments(text).size());
            int32_t *const cells = r.block<int32_t>(7);
            cells[0] = 1;
            const void *const data = r.call(EXPORT(process_subspec), api(), args, cells, n, MODLA_INTEGER4, -1, -1, 1,
                                            cells + 1, cells + 2, cells + 3, cells + 4, cells + 5, cells + 6);
            if (data) r.note(text_of(static_cast<const char *>(data) - table_of(args[1]).data));
        });
    }
}

// Expressions over x = 3 and the complex unit.
void add_expressions(List *list) {
    const auto expressions = [] {
        const HostObject x = name("x"), unit = new_object(MODLA_TYPE_COMPLEX, {immediate(1)});
        const HostObject big = integer_object(-987654321987654321), one = immediate(1);
        const HostObject power = new_object(MODLA_TYPE_POWER, {x, immediate(-3)});
        return std::vector{immediate(-5),
                           big,
                           x,
                           name("y"),
                           power,
                           new_object(MODLA_TYPE_RATIONAL, {big, immediate(6)}),
                           new_object(MODLA_TYPE_COMPLEX, {x, big}),
                           new_object(MODLA_TYPE_SUM, {power, big, unit, one, one, immediate(-7)}),
                           new_object(MODLA_TYPE_SUM, {x, name("y")}),
                           new_object(MODLA_TYPE_POWER, {x, big}),
                           new_object(MODLA_TYPE_SYMBOLIC_POWER, {x, x})};
    };
    for (size_t k = 0; k < 11; k++) {
        const auto run = [=](Runner &r, auto residue, auto evaluate) {
            using W = decltype(residue);
            const HostObject object = expressions()[k];
            HostObject *const names = r.block<uint32_t>(2);
            names[0] = name("x");
            names[1] = new_object(MODLA_TYPE_COMPLEX, {immediate(1)});
            r.memory.clear();
            W *const power_tables = r.block<W>(64);
            for (size_t i = 0; i < 64; i++) {
                const W value = i % 32 == 0 ? 3 : residue;
                std::memcpy(power_tables + i, &value, sizeof value);
            }
            r.note(text_of(evaluate(object, names, power_tables)));
        };
        const std::string text = "expression " + std::to_string(k);
        list->add_kernel<uint32_t>(text.c_str(), [=](Runner &r, uint32_t p) {
            run(r, uint32_t{65536}, [&](HostObject object, const HostObject *names, uint32_t *power_tables) {
                return r.call(EXPORT(modeval_iw), api(), p, object, names, power_tables, 2);
            });
        });
        list->add_kernel<double>(text.c_str(), [=](Runner &r, uint32_t p) {
            run(r, -1.0, [&](HostObject object, const HostObject *names, double *power_tables) {
                return r.call(EXPORT(modeval_f), api(), p, 0, object, names, power_tables, 2, reciprocal(p));
            });
        });
    }
    for (const char *text : {"A, 2..3", "[V, V], transpose", "[[1, 2], [3]], 2", "[]", "x", "R, 9"}) {
        list->add(std::string("process_flexinput ") + text, 7, [=](Runner &r) {
            const HostObject *const args = argument_array(arguments(text));
            const int32_t n = static_cast<int32_t>(arguments(text).size());
            int32_t *const c = r.block<int32_t>(13);
            c[0] = 1;
            r.call(EXPORT(process_flexinput), api(), args, c, n, c + 1, c + 2, c + 3, c + 4, c + 5, c + 6, c + 7, c + 8,
                   c + 9, c + 10, c + 11, c + 12);
        });
    }
}

// ---- Entry points

struct EntryCalls {
    const char *name;
    std::vector<const char *> texts;
};

const std::vector<EntryCalls> entry_calls = {
    {"modLA_Register", {"x", "x, x"}},
    {"modLA_Create",
     {"p, 3, 4, datatype", "p, 3, 3, identity, datatype, Fortran_order", "p, 3, 0, 1, datatype",
      "p, 0, 4, random, datatype", "p, 3, 4, 2.5, datatype, C_order", "p, 3, 3, 1, integer[3]",
      "p, 3, 4, identity, datatype", "p, -1, 4, datatype"}},
    {"modLA_Fill",
     {"p, A", "p, 1, A, 2..3, -1", "p, random, A, 2..3, 1..2", "p, random, A, 3..4, 4", "p, 1, V, 7",
      "p, random, Empty"}},
    {"modLA_Copy",
     {"p, A", "p, A, transpose, C_order", "p, upper, S", "p, lowernodiag, S, transpose, T", "p, A, 1..2, 2..4, B, 2, 1",
      "p, A, 1..3, A, 2", "p, A, 1, B, 2", "p, R", "p, Empty", "p, A, B, 5", "p, S, A"}},
    {"modLA_Swap",
     {"p, A, 1..2, B, 3..4", "p, A, D", "p, lower, S, transpose, S", "p, A, 1..3, A, 2", "p, V, 1, V, 4", "p, A, S"}},
    {"modLA_Permute",
     {"p, P, S, true, false", "p, Q, S, false, true", "p, Bad, A, true, false", "p, P, V, true, true",
      "p, A, S, true, true"}},
    {"modLA_AddMult",
     {"p, A, B", "p, 3, A, 2..3, 2..3, B, 1..2, 4..5, C_order", "p, 2.5, A, A, A, sparse", "p, 2, S, transpose, T, S",
      "p, 1, A, 1..3, D, 2..4, A, 2", "p, 1, A, 1..3, A, 1..3, A, 2", "p, A, D", "p, Empty, Empty", "p, 1, A, S",
      "p, 1, V, 2..3, N, 3..4, N, 1..2"}},
    {"modLA_Multiply",
     {"p, 3, A", "p, S, A", "p, S, S, S", "p, S, transpose, D, B", "p, R, V", "p, R, A", "p, S, V, Fortran_order",
      "p, V, R, sparse", "p, 2, A, 2..3, 3..5, B, 1, 1", "p, 2, S, transpose, S",
      "p, A, 2..3, 1..4, S, 1..4, 2..4, T, 2, 1", "p, A, A", "p, 5, A, 1, 1"}},
    {"modLA_RowReduce",
     {"p, A, 4, 5, 0, d, e, r, s, x, true", "p, A, 2..3, 2..-1, 2, 0, e, alias, 0, x, false",
      "p, D, -1, -1, 3, d, 0, r, 0, x, 2", "p, A, 3, 3, 0, d, 0, 0, 0, 0, true", "p, A, 3, 6, 0, d, 0, 0, 0, 0, true"}},
    {"modLA_LUDecomp", {"p, S, P, d", "p, S, Q, 0", "p, A, P, d", "p, S, Bad, alias"}},
    {"modLA_ForSub", {"p, S, A, true", "p, S, B, false", "p, S, V, true", "p, S, D, true"}},
    {"modLA_BackSub", {"p, S, A", "p, T, V", "p, T, R"}},
    {"modLA_Determinant", {"p, S, 4, 4, d", "p, A, 2..3, 1..2, d", "p, A, 2, 3, d", "p, A, 2, 2, 0"}},
    {"modLA_MatBasis", {"p, S, 0, true", "p, A, 3, false", "p, A, 0, true", "p, S, -1, false"}},
    {"modLA_MatGcd", {"p, A, 3", "p, D, 4", "p, Empty, 1", "p, V, 1"}},
    {"modLA_ZigZag", {"p, S", "p, T", "p, A"}},
    {"modLA_Mod",
     {"p, A, datatype", "p, A, 2..3, transpose, datatype, Fortran_order", "p, [1, -5, 20000000000], datatype",
      "p, [[1, 2], [3]], A, 2", "p, [R, R], float[8]", "p, [V, V], B, 1, 1", "p, {x}, {x = 3}, datatype",
      "p, [x, y], [x = 3, y = 1], integer[4]", "p, [x], x = 99999999, datatype", "p, [x, 1], [x = 2], A, 1, 1..2",
      "p, S, S", "p, A, 1..3, A, 2, 1", "p, S, transpose, S", "p, D, B", "p, Empty, datatype", "p, A, V",
      "p, V, integer", "p, [2.5], datatype", "p, [x], integer[4]"}},
};

void add_entry_points(List *list) {
    list->add("modLA_getfcn", 7, [](Runner &r) { r.note(to_text(r.call(EXPORT(modLA_getfcn), api(), "cbReduce"))); });
    for (const auto &[entry_name, texts] : entry_calls) {
        for (const char *text : texts) {
            for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}) {
                for (const int32_t p : {12, datatype == MODLA_FLOAT8 ? 33554393 : 46337}) {
                    for (const int32_t order : {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}) {
                        const EntryPoint function = entry_point(entry_name);
                        const auto run = [=, entry = entry_name](Runner &r) {
                            const HostObject *const args = argument_array(arguments(text));
                            r.note(to_text(r.call(entry, function, api(), args)));
                        };
                        list->calls.push_back({std::string(entry_name) + "(" + text + "), datatype " +
                                                   std::to_string(datatype) + ", order " + std::to_string(order) +
                                                   " mod " + std::to_string(p),
                                               run, p, datatype, order, 2, std::string(entry_name) == "modLA_Mod"});
                    }
                }
            }
        }
    }
}

}  // namespace

const std::vector<LibraryCall> &library_calls() {
    static const std::vector<LibraryCall> calls = [] {
        List list;
        add_products(&list);
        add_eliminations(&list);
        add_scalars(&list);
        add_validation(&list);
        add_expressions(&list);
        add_entry_points(&list);
        return std::move(list.calls);
    }();
    return calls;
}

}  // namespace modla_test::strict
