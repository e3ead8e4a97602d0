// The library as a guest: everything that it exports, called with any stack alignment and floating-point modes, on a
// small stack, and left by the host at any call of its operations.  The calls are those of exports.txt and random ones.
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/calls.h"
#include "tests/support/grid.h"

using namespace modla_test;

namespace {

struct Export {
    std::string name, moduli, result;
    std::vector<std::string> arguments;
    bool calls_host() const { return arguments[0] == "@"; }
};

const std::vector<Export> &all_exports() {
    static const std::vector<Export> exports = [] {
        std::vector<Export> list;
        std::ifstream file(MODLA_TESTS "/exports.txt");
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream words(line);
            Export each;
            words >> each.name >> each.moduli >> each.result;
            for (std::string word; words >> word;) each.arguments.push_back(word);
            list.push_back(each);
        }
        return list;
    }();
    return exports;
}

// The words of a call, in memory of its own, and what it leaves.
struct Maker {
    Random random{1};
    bool words;  // the representation
    int32_t p;
    ArgumentWords out = {};
    std::vector<std::unique_ptr<std::vector<uint32_t>>> memory = {}, given_back = {};
    std::string texts[4] = {};

    uint32_t *block(size_t entries, bool of_words, std::vector<std::unique_ptr<std::vector<uint32_t>>> *list) {
        const size_t zone = 16, misaligned = host.aligned_data ? 0 : 1;
        const size_t bytes = entries * (of_words ? 4 : 8);
        list->push_back(std::make_unique<std::vector<uint32_t>>(bytes / 4 + 2 * zone + 1, 0xa5a5a5a5));
        uint32_t *const start = list->back()->data() + zone + misaligned;
        std::memset(start, 0, bytes);
        return start;
    }
    void put(uint32_t *block, size_t k, int64_t value) const {
        const double real = static_cast<double>(value);
        if (words)
            block[k] = static_cast<uint32_t>(value);
        else
            std::memcpy(block + 2 * k, &real, 8);
    }
    void add_entry(double value) {
        words ? out.add(static_cast<uint32_t>(static_cast<int64_t>(value))) : out.add(value);
    }
    uint32_t *powers(size_t tables) {
        uint32_t *const table = block(32 * tables, words, &memory);
        for (size_t k = 0; k < 32 * tables; k++) put(table, k, k % 32 == 0 ? 5 % p : words ? 65536 : -1);
        return table;
    }

    void add(const std::string &token) {
        const std::string rest = token.substr(1);
        const size_t n = std::strtoul(rest.c_str(), nullptr, 10);
        switch (token[0]) {
            case 'p':
                return add_entry(p);
            case 'i':
                return out.add(reciprocal(p));
            case 'b':
                return out.add(words ? sum_bound<uint32_t>(p) : sum_bound<double>(p));
            case 'h':
                return add_entry(static_cast<double>((int64_t{1} << (words ? 32 : 53)) - 1 - int64_t{p - 1} * (p - 1)));
            case '@':
                return out.add(api());
            case 'd':
                return out.add(std::strtod(rest.c_str(), nullptr));
            case '$':
                return out.add(arguments(rest)[0]);
            case '&':
                return out.add(entry_at(arguments(rest)[0], 2, 3));
            case 'P':
                return out.add(powers(1));
            case 'Q':
                return out.add(powers(2));
            case 'I': {  // a position
                uint32_t *const position = block(1, true, &given_back);
                *position = 1;
                return out.add(position);
            }
            case 'N':
                return out.add(block(n, true, &given_back));
            case 'O':
                return out.add(block(n, words, &given_back));
            case 'S':
                return out.add(block(n, false, &memory));
            case '\'':
                return texts[0] = rest, out.add(texts[0].c_str());
            case '#': {
                const bool value = rest.ends_with("+1");
                const Object array = argument_array(arguments(value ? rest.substr(0, rest.size() - 2) : rest));
                return out.add(modla::console::words(array) + value);
            }
            case 'E': {
                const Object names = argument_array({global_name("x"), complex_unit()});
                return out.add(modla::console::words(names) + 1);
            }
            case '%': {
                const Object poly = new_object(44, 17);
                argument_array({poly});
                modla::console::words(poly)[1] = global_name("x");
                modla::console::words(poly)[2] = immediate(p);
                for (uint32_t k = 3; k < 44; k++) {
                    const int32_t c = below(random, p);
                    modla::console::words(poly)[k] = p > 46327 ? immediate(c) : static_cast<uint32_t>(c);
                }
                return out.add(poly);
            }
            case 'A':
            case 'T': {
                const bool square = token[0] == 'T';
                uint32_t *const A = block(square ? n * n : n, words, &given_back);
                for (size_t k = 0; k < (square ? n * n : n); k++) {
                    put(A, k, square && k % (n + 1) == 0 ? 1 : chance(random, 10) ? 0 : below(random, p));
                }
                return out.add(A);
            }
            default:
                return out.add(static_cast<int32_t>(std::strtol(token.c_str(), nullptr, 10)));
        }
    }
};

struct Result {
    bool returned;
    std::string message, found;
    bool operator==(const Result &) const = default;
};

void define_tables() {
    reset();
    for (const char *name : {"x", "y", "r", "t"}) unassign(name);
    const Grid A = {{1, 2, 3, 4, 5}, {6, 0, 1, 2, 3}, {4, 5, 6, 0, 1}, {2, 3, 4, 5, 6}};
    define("A", A, {MODLA_INTEGER4, 1}), define("D", A, {MODLA_INTEGER4, 0}), define("Z", A, {MODLA_INTEGER, 1});
    define("V", {{1}, {2}, {3}, {4}}, {MODLA_INTEGER4, 1}, MODLA_COLUMN_VECTOR);
    define("R", {{1, 2, 3, 4}}, {MODLA_INTEGER4, 1}, MODLA_ROW_VECTOR);
    define("P", {{3}, {2}, {4}, {4}}, {MODLA_INTEGER4, 1}, MODLA_COLUMN_VECTOR);
    define("Q", {{1, 2, 3, 4}, {5, 6, 0, 1}, {2, 3, 5, 5}, {6, 0, 1, 3}}, {MODLA_INTEGER4, 1});
}

Result make_call(const Export &call, int32_t p) {
    define_tables();
    std::srand(1);
    Maker maker{Random(1), call.moduli != "f" && call.name.find("_f") == std::string::npos, p};
    for (const std::string &token : call.arguments) maker.add(token);
    Trampoline record = {};
    record.function = library_symbol(call.name.c_str());
    record.words = maker.out.words;
    record.count = maker.out.count;
    record.returns_double = call.result == "d";
    const Outcome outcome = attempt([&] { run_trampoline(&record); });
    Result result = {outcome.returned, outcome.message, ""};
    if (call.name == "modLA_Register") load_library(MODLA_LIBRARY);
    for (const auto *list : {&maker.memory, &maker.given_back}) {
        for (const auto &block : *list) {
            const bool intact =
                std::all_of(block->begin(), block->begin() + 16, [](uint32_t x) { return x == 0xa5a5a5a5; }) &&
                std::all_of(block->end() - 16, block->end(), [](uint32_t x) { return x == 0xa5a5a5a5; });
            if (!intact) host.violations.push_back("a kernel wrote outside of its memory");
        }
    }
    if (!outcome.returned) return result;
    if (call.result == "u") result.found = std::to_string(record.eax);
    if (call.result == "d") result.found = std::to_string(record.st0[0]) + "," + std::to_string(record.st0[1]);
    if (call.result == "a" && record.eax)
        result.found = std::to_string(record.eax - reinterpret_cast<uint32_t>(entry_at(eval("A"), 0, 0)));
    if (call.result == "a" && !call.arguments[1].starts_with("#A")) result.found = "";
    if (call.result == "o" && record.eax) result.found = to_line(record.eax);
    if (call.result == "o" && record.eax && has_type(record.eax, type_table) && !call.name.starts_with("modLA_Mat") &&
        !call.name.starts_with("new")) {
        for (const auto &row : grid_of(record.eax)) result.found += testing::PrintToString(row);
    }
    for (const auto &block : maker.given_back) {
        const size_t misaligned = host.aligned_data ? 0 : 1;
        for (size_t k = 16 + misaligned; k + 17 - misaligned <= block->size(); k++)
            result.found += " " + std::to_string((*block)[k]);
    }
    for (const char *name : {"A", "D", "V", "Q"}) result.found += testing::PrintToString(grid_of(name));
    return result;
}

std::vector<int32_t> moduli_of(const Export &call) {
    if (call.moduli == "w") return {46337, 65521, 12};
    if (call.moduli == "f") return {65521, 33554393, 12};
    return {7};
}

class Guest : public testing::Test {
  protected:
    Guest() { host = {}; }
    ~Guest() override { host = {}; }
};

std::set<std::string> words_before(const char *path, const std::string &mark, const std::string &end) {
    std::ifstream file(path);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    text = text.substr(0, text.find(end));
    std::set<std::string> words;
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        size_t begin = at;
        while (begin > 0 && (std::isalnum(static_cast<unsigned char>(text[begin - 1])) || text[begin - 1] == '_'))
            begin--;
        words.insert(text.substr(begin, at - begin));
    }
    return words;
}

TEST_F(Guest, IsCalledThroughEveryExport) {
    std::set<std::string> called;
    for (const Export &call : all_exports()) called.insert(call.name);
    const std::set<std::string> exported = words_before(MODLA_EXPORTS, ";", "local:");
    EXPECT_GT(exported.size(), 70u);
    for (const std::string &name : exported) EXPECT_TRUE(called.count(name)) << name;
}

// The deepest byte of the stack below this frame that a call changes.
constexpr size_t painted = size_t{400} << 10;
[[gnu::noinline]] void paint_stack() {
    volatile char *const area = static_cast<char *>(__builtin_alloca(painted));
    for (size_t k = 0; k < painted; k++) area[k] = 0x3c;
}
[[gnu::noinline]] size_t painted_left() {
    const volatile char *const area = static_cast<char *>(__builtin_alloca(painted));
    size_t k = 0;
    while (k < painted && area[k] == 0x3c) k++;
    return k;
}

TEST_F(Guest, BearsAnyConditionsOnASmallStack) {
    const std::vector<FpMode> modes = foreign_fp_modes(true);
    size_t next = 0;
    for (const Export &call : all_exports()) {
        for (const int32_t p : moduli_of(call)) {
            host = {};
            host.aligned_data = true;
            const Result expected = make_call(call, p);
            ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name;
            for (int k = 0; k < (call.calls_host() ? 8 : 48) / std::min(slowness, 4); k++, next++) {
                host.conditions = {4 * static_cast<uint32_t>(next % 3 + 1), modes[next * 7 % modes.size()]};
                host.leaving = next % 2 ? Leaving::exception : Leaving::long_jump;
                host.aligned_data = next % 5 == 0;
#if !defined(MODLA_SANITIZED)
                if (k == 0) paint_stack();
#endif
                const Result result = make_call(call, p);
#if !defined(MODLA_SANITIZED)
                ASSERT_TRUE(k > 0 || painted - painted_left() < size_t{140} << 10)
                    << call.name << ": 40 KB of them are the host's";
#endif
                ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name << " mod " << p;
                ASSERT_TRUE(result == expected) << call.name << " mod " << p << ": " << result.message << result.found
                                                << "\nnot " << expected.message << expected.found;
            }
        }
    }
}

// ---- A host that gives up in any of its operations, at any call of it ----

const std::string gave_up = "the host gave up";

TEST_F(Guest, LeavesNothingBehindWhereverAnExportIsLeft) {
    host.conditions = {12, {0x7f80, 0x007f}};
    int faults = 0;
    for (const Export &call : all_exports()) {
        if (!call.calls_host()) continue;
        const int32_t p = moduli_of(call)[0];
        host.failing_call = 0;
        host.leaving = Leaving::exception;
        const Result expected = make_call(call, p);
        const int operations = static_cast<int>(host.operations.size());
        for (const Leaving leaving : {Leaving::exception, Leaving::long_jump}) {
            host.leaving = leaving;
            for (host.failing_call = 1; host.failing_call <= operations; host.failing_call++, faults++) {
                const Result failed = make_call(call, p);
                ASSERT_FALSE(failed.returned) << call.name << host.failing_call;
                ASSERT_EQ(failed.message, gave_up) << call.name << host.failing_call;
            }
            host.failing_call = 0;
            ASSERT_TRUE(make_call(call, p) == expected) << call.name << ": not the same afterwards";
            ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name;
        }
    }
    EXPECT_GT(faults, 1000);
}

// Entry points: by an exception, by longjmp, or by an operation that comes back with nothing.
TEST_F(Guest, LeavesNothingBehindWhereverAnEntryPointIsLeft) {
    std::map<std::string, int> faults;
    int refusals = 0;
    for (uint32_t seed = 1; seed < 1200u / slowness && !HasFailure(); seed++) {
        Shadow shadow;
        const auto draw = [&] {
            reset();
            for (const char *name : {"d", "e", "alias", "s", "t", "target", "x"}) unassign(name);
            RandomCall call = draw_call(seed, {}, &shadow);
            std::srand(seed);
            return call;
        };
        host = {};
        RandomCall call = draw();
        if (!call.valid || call.any_message || !call.free_cells.empty() || call.entry == "Register") continue;
        host.conditions = {4 * (seed % 4), {0x7f80, 0x007f}};
        host.no_checks_after_writes = call.entry != "Mod";
        call_entry(call.entry, call.arguments);
        const std::vector<const char *> operations = host.operations;
        for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
            host.leaving = leaving;
            for (size_t n = 1; n <= operations.size(); n++) {
                const std::string operation = operations[n - 1];
                const bool may_fail = operation == "Alloc" || operation == "RtableCreate" || operation == "NewObject";
                if (leaving == Leaving::returning && !may_fail) continue;
                const std::string context = describe(call) + operation + ", call " + std::to_string(n);
                call = draw();
                host.failing_call = static_cast<int>(n);
                const Outcome outcome = call_entry(call.entry, call.arguments);
                host.failing_call = 0;
                ASSERT_EQ(outcome.returned, leaving == Leaving::returning) << context;
                ASSERT_EQ(host.messages, std::vector<std::string>{gave_up}) << context;
                // Memory of no bytes is not missed.
                const bool missed = leaving == Leaving::returning && (operation != "Alloc" || host.asked_bytes > 0);
                ASSERT_TRUE(!missed || outcome.result == null_value()) << context;
                ASSERT_EQ(host.violations, std::vector<std::string>{}) << context;
                faults[call.entry]++;
                refusals += leaving == Leaving::returning;
            }
            call = draw();
            ASSERT_EQ(call_entry(call.entry, call.arguments).message, call.message) << describe(call);
            ASSERT_TRUE(shadow.is_what_there_is()) << describe(call) << ": not the same afterwards";
            ASSERT_EQ(host.violations, std::vector<std::string>{}) << describe(call);
        }
    }
    EXPECT_EQ(faults.size(), 16u);
    for (const auto &[entry, count] : faults) EXPECT_GT(count, 300 / slowness) << entry;
    EXPECT_GT(refusals, 100 / slowness);
}

// ---- Sizes whose products pass 2^31 and 2^32 ----

double nothing[2];

class BigSizes : public Guest {
  protected:
    BigSizes() { start(); }
    ~BigSizes() override { reset(); }

    static void start() {
        reset();
        host = {};
        host.memory_limit = 0x7fffffff;  // what a host of 32 bits can give at best
    }
    // A table that claims to be large.  Its entries are not there.
    static void claim(const char *name, const Kind &kind, int32_t subtype, int32_t rows, int32_t columns) {
        const Object table = make_table(kind, subtype, 1, 1);
        table_of(table).bounds[0] = subtype == MODLA_ROW_VECTOR ? columns : rows;
        if (subtype == MODLA_MATRIX) table_of(table).bounds[1] = columns;
        set_name(name, table);
    }
    static void expect_refused(const std::vector<std::string> &calls, const std::string &message) {
        for (const std::string &text : calls) {
            for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
                host.leaving = leaving;
                const Outcome outcome = call(text);
                EXPECT_EQ(host.messages.size(), 1u) << text;
                EXPECT_TRUE(outcome.message.starts_with(message)) << text << outcome.message;
                EXPECT_EQ(outcome.returned, leaving == Leaving::returning);
                EXPECT_TRUE(!outcome.returned || outcome.result == null_value()) << text;
            }
        }
    }
};

TEST_F(BigSizes, OfNewObjectsAreTheHostsToRefuse) {
    const std::string too_large = "object too large";
    const int32_t sizes[][2] = {{65536, 65536},           {65536, 65537},  {46341, 46341},
                                {1073741823, 1073741823}, {1073741823, 0}, {0, 1073741823},
                                {1, 1073741823},          {536870912, 1},  {3, 1431655766 / 2}};
    for (const auto &[rows, columns] : sizes) {
        for (const std::string content : {"", "5, ", "random, "}) {
            for (const int32_t datatype : datatypes) {
                expect_refused({"Create(7, " + std::to_string(rows) + ", " + std::to_string(columns) + ", " + content +
                                keyword_of(datatype) + ")"},
                               too_large);
            }
        }
    }
    for (const int32_t datatype : datatypes) {
        claim("H", {datatype, 1}, MODLA_MATRIX, 65536, 65537), claim("V", {datatype, 1}, MODLA_COLUMN_VECTOR, 65536, 1);
        claim("R", {datatype, 1}, MODLA_ROW_VECTOR, 1, 65537),
            claim("L", {datatype, 1}, MODLA_COLUMN_VECTOR, INT_MAX, 1);
        expect_refused({"Copy(7, H)", "Copy(7, H, transpose, Fortran_order)", "Copy(7, H, 1..65535, 2..65537)",
                        "Copy(7, L)", "AddMult(7, 3, H, H)", "Multiply(7, V, R)", "Multiply(7, 3, H)",
                        "Multiply(7, 3, L)", "Multiply(7, H, 1..65535, 1..65536, H, 1..65536, 2..65537)",
                        "Mod(7, H, float[8])", "Mod(7, L, integer[4])"},
                       too_large);
    }
}

// Copies of blocks that overlap, counters for rows: byte counts that are a little more than a multiple of 2^32.
TEST_F(BigSizes, OfWorkMemoryAreTheHostsToRefuse) {
    for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t order : orders) {
            start();
            const Kind kind = {datatype, order};
            claim("H", kind, MODLA_MATRIX, 65537, 65536), claim("S", kind, MODLA_MATRIX, 32768, 32768);
            claim("N", kind, MODLA_MATRIX, 1 << 30, 1 << 30), claim("Tall", kind, MODLA_MATRIX, (1 << 30) + 1, 3);
            claim("Thin", kind, MODLA_MATRIX, (1 << 30) + 1, 0);
            claim("P", {MODLA_INTEGER4, order}, MODLA_COLUMN_VECTOR, 1 << 30, 1);
            expect_refused(
                {"Copy(7, H, 1..65536, H, 2)", "AddMult(7, 2, H, 1..65536, H, 2..65537, H, 2)",
                 "AddMult(7, 2, H, 2..65537, H, 1..65536, H, 2)", "Multiply(7, 3, H, 1..65536, H, 2)",
                 "Multiply(7, S, S, S)", "LUDecomp(7, N, P, 0)", "RowReduce(7, Tall, -1, 2, 0, 0, 0, 0, 0, 0, true)",
                 "Determinant(7, N, -1, -1, 'd')", "MatBasis(7, Tall, 0, false)", "MatBasis(7, Thin, 0, false)"},
                "out of memory");
            // Doubles are looked at first.
            if (datatype == MODLA_INTEGER4) expect_refused({"Mod(7, H, 1..65536, H, 2)"}, "out of memory");
        }
    }
}

// Strassen's recursion asks for about 4/3 n^2 entries: 24086 more than 2^32 for n = 56756.
TEST_F(BigSizes, OfWorkspacesAreTheHostsToRefuse) {
    uint32_t word = 0;
    const int32_t n = 56756;
    for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
        host.leaving = leaving;
        Object workspace = 0;
        const auto refused = [&](const std::function<void()> &calls) {
            workspace = 0;
            const Outcome outcome = attempt(calls);
            EXPECT_TRUE(outcome.message.starts_with("object too large")) << outcome.message;
            EXPECT_EQ(workspace, outcome.returned ? null_value() : 0);
        };
        refused([&] {
            workspace = watched_call(modLA_MatMult_iw, api(), 7, 1. / 7, n, n, n, &word, n, 1, &word, n, 1, &word, n, 1,
                                     0, nullptr, 0, 20);
        });
        for (const int32_t k : {n, 2 * n}) {
            refused([&] {
                workspace = watched_call(modLA_MatMult_f, api(), 33554393, reciprocal(33554393), n, k, n, nothing, k, 1,
                                         nothing, n, 1, nothing, n, 1, 0, nullptr, 0);
            });
        }
    }
    EXPECT_EQ(host.violations, std::vector<std::string>{});
    EXPECT_EQ(word + nothing[0], 0);
}

// Steps that lead nowhere: only the product of an index and a step passes 2^31.
TEST_F(BigSizes, OfStepsThatAreNotTaken) {
    const auto check = [](auto one, auto reduce_by_rows, auto reduce_by_columns, auto lu, auto substitute, auto gcd,
                          auto multiply, auto add, auto fill) {
        using W = decltype(one);
        const double pinv = reciprocal(7);
        for (const int32_t far : {INT_MAX, INT_MIN}) {
            W line[3] = {5, 3, 1}, column[3] = {5, 3, 1}, x = 3, det = 0, result = 0;
            int32_t rank = 0, pending[3];
            reduce_by_rows(line, 1, 3, 3, far, 7, pinv, nullptr, nullptr, &rank, nullptr, nullptr, nullptr, 1, 0,
                           pending, 3);
            EXPECT_EQ(line[1], 2);  // 3/5
            reduce_by_columns(column, 3, 1, 1, far, 7, pinv, nullptr, nullptr, &rank, nullptr, nullptr, nullptr, 1, 0,
                              pending, 3);
            EXPECT_TRUE(column[0] == 1 && column[1] + column[2] == 0 && rank == 1);
            lu(&x, pending, 1, far, 7, pinv, &det, pending, 3);
            EXPECT_EQ(det, 3);
            substitute(&x, 1, far, line, 1, far, 7, pinv, 3);
            EXPECT_EQ(line[0], 5);  // 1/3
            EXPECT_EQ(gcd(line, 1, 1, far, 7, pinv, 1), 0);
            multiply(7, pinv, 1, 1, 1, &x, far, far, &x, far, far, &result, far, far);
            EXPECT_EQ(result, 2);
            add(7, 1, 1, &x, far, far, &x, far, far, &result, far, far);
            EXPECT_EQ(result, 6);
            add(7, 0, INT_MAX, &x, far, far, &x, far, far, &result, far, far);
            fill(&host_api(), 1, 1, &result, far, far, 2);
            EXPECT_LT(result, 2);
            fill(&host_api(), INT_MAX, 0, &result, far, far, 2);
        }
    };
    check(1u, modLA_reduce_C_iw_nop, modLA_reduce_F_iw_nop, modLA_LU_C_iw_nop, modLA_BackSub_C_iw_nop,
          modLA_RowGcd_C_iw, modLA_MatMatMult_iw_N1, modLA_MatMatAdd_iw, rand_fill_iw);
    check(1.0, modLA_reduce_C_f_nop, modLA_reduce_F_f_nop, modLA_LU_F_f_nop, modLA_BackSub_F_f_nop, modLA_RowGcd_F_f,
          modLA_MatMatMult_f_N1, modLA_MatMatAdd_f, rand_fill_f);
}

#if !defined(MODLA_SANITIZED)
// 576 MB a Matrix: its last entries lie beyond 2^29 bytes.
TEST_F(BigSizes, AMatrixOf12000x12000Words) {
    const int32_t n = 12000, block = 150;
    const auto result = [](const std::string &text) {
        const Outcome outcome = call(text);
        EXPECT_EQ(outcome.message, "") << text;
        return outcome.result;
    };
    const auto word = [](Object table) { return static_cast<const uint32_t *>(table_of(table).data); };
    const Object A = result("Create(65521, 12000, 12000, 3, integer[4], Fortran_order)");
    set_name("A", A);
    const ptrdiff_t count = ptrdiff_t{n} * n;
    EXPECT_EQ(std::count(word(A), word(A) + count, 3u), count);
    result("Fill(65521, random, A, -150..-1, 11851..12000)");
    set_name("B", result("Copy(65521, A, 11851..12000, 11851..12000, C_order)"));
    result("RowReduce(65521, A, 11851..12000, -150..-1, 0, 'd', 0, 'r', 0, 0, true)");
    result("RowReduce(65521, B, -1, -1, 0, 'e', 0, 's', 0, 0, true)");
    EXPECT_EQ(eval("d"), eval("e"));
    EXPECT_TRUE(eval("r") == immediate(block) && eval("s") == immediate(block));
    const Object C = result("Copy(65521, A)");
    EXPECT_EQ(std::memcmp(word(A), word(C), 4 * static_cast<size_t>(count)), 0);
    // The reduced block is the unit matrix; every other entry is still 3.
    EXPECT_EQ(std::count(word(C), word(C) + count, 3u), count - block * block);
    for (int32_t i = 0; i < block; i++) {
        for (int32_t j = 0; j < block; j++) ASSERT_EQ(get_number(C, n - block + i, n - block + j), i == j);
    }
    set_name("A", 0), set_name("B", 0);
}
#endif

}  // namespace
