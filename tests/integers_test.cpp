// Matrices of host integers: the console's callbacks beside the native kernels, FLINT and plain models.
#include <flint/flint.h>
#include <flint/fmpz_mat.h>
#include <flint/fmpz_mod.h>
#include <flint/fmpz_mod_mat.h>
#include <flint/fmpz_mod_poly.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "console/callbacks.h"
#include "console/integer_block.h"
#include "console/number.h"
#include "fake_host.h"
#include "session.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::error_of, modla_test::eval, modla_test::make_table;
using modla_test::pick, modla_test::Random, modla_test::run, modla_test::set_name, modla_test::storage_of;
using modla_test::unassign;

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int share = 8;  // rounds are divided by it
#else
constexpr int share = 1;
#endif

std::string str(const mpz_class &x) {
    return x.get_str();
}

// ---- The same calls in every datatype ----

// A table with its entries row by row.
struct Operand {
    std::string name;
    int32_t subtype, order, rows, columns;
    std::vector<int64_t> entries;
    std::string datatype;  // where it is always the same
};

struct Call {
    std::string text;  // @ stands for the datatype
    std::vector<Operand> operands;
    std::vector<std::string> outputs;
};

const std::map<std::string, int32_t> datatypes = {
    {"integer[4]", MODLA_INTEGER4}, {"float[8]", MODLA_FLOAT8}, {"integer", MODLA_INTEGER}};

std::string describe_value(Object x) {
    if (has_type(x, type_float)) return str(integral_float(x));
    if (!has_type(x, type_table)) return to_line(x);
    const Table &table = table_of(x);
    std::string text = std::to_string(table.settings.subtype) + "/" + std::to_string(table.settings.order) + "/" +
                       std::to_string(table_rows(table)) + "x" + std::to_string(table_columns(table)) + ":";
    for (int32_t i = 1; i <= table_rows(table); i++) {
        for (int32_t j = 1; j <= table_columns(table); j++) {
            text += " " + to_line(get_entry_integer(table, i, j));
        }
    }
    return text;
}

// What a call leaves behind: its result or error, the tables, the outputs.
std::vector<std::string> traces_of(const Call &call, const std::string &datatype) {
    for (const Operand &operand : call.operands) {
        const std::string &own = operand.datatype.empty() ? datatype : operand.datatype;
        const Object table =
            make_table(datatypes.at(own), operand.subtype, operand.order, operand.rows, operand.columns);
        set_name(operand.name, table);
        auto entry = operand.entries.begin();
        for (int32_t i = 1; i <= table_rows(table_of(table)); i++) {
            for (int32_t j = 1; j <= table_columns(table_of(table)); j++) {
                set_entry(table_of(table), i, j, integer_object(*entry++));
            }
        }
    }
    for (const std::string &output : call.outputs) unassign(output);
    std::string text = call.text;
    for (size_t at; (at = text.find('@')) != std::string::npos;) text.replace(at, 1, datatype);
    std::vector<std::string> traces;
    try {
        traces.push_back(describe_value(eval(text)));
    } catch (const HostError &error) {
        traces.push_back(std::string("Error: ") + error.what());
    }
    for (const Operand &operand : call.operands) traces.push_back(describe_value(eval(operand.name)));
    for (const std::string &output : call.outputs) traces.push_back(to_line(evaluate(global_name(output))));
    EXPECT_EQ(lent_count(), 0u) << call.text;
    return traces;
}

class CallMaker {
  public:
    CallMaker(unsigned seed, const std::vector<int64_t> &moduli, bool signed_entries)
        : random(seed), p(pick(random, moduli)), signed_entries_(signed_entries) {}

    Random random;
    int64_t p;

    // Residues; some entries beyond 0..p-1.
    std::vector<int64_t> entries(int64_t count) {
        std::vector<int64_t> result;
        const bool residues = chance(random, 60), sparse = chance(random, 40);
        for (int64_t k = 0; k < count; k++) {
            int64_t x = below(random, p);
            if (!residues && chance(random, 30)) x = below(random, int64_t{1} << 31);
            if (!residues && signed_entries_ && chance(random, 50))
                x = below(random, int64_t{1} << pick(random, {5, 31, 52}));
            if (signed_entries_ && !residues && chance(random, 50)) x = -x;
            result.push_back(sparse && chance(random, 60) ? 0 : x);
        }
        return result;
    }

    int32_t size() { return 1 + below(random, chance(random, 80) ? 5 : 9); }
    int32_t order() { return below(random, 2); }
    Operand matrix(const std::string &name, int32_t rows, int32_t columns) {
        Operand operand = {name, MODLA_MATRIX, order(), rows, columns, entries(rows * columns), ""};
        // Rows that depend on others.
        for (int32_t i = 1; i < rows; i++) {
            if (!chance(random, 25)) continue;
            for (int32_t j = 0; j < columns; j++) {
                operand.entries[static_cast<size_t>(i * columns + j)] = operand.entries[static_cast<size_t>(j)];
            }
        }
        return operand;
    }
    Operand any(const std::string &name, int32_t rows, int32_t columns) {
        const int kind = below(random, 5);
        if (kind == 0) return {name, MODLA_COLUMN_VECTOR, order(), rows, 1, entries(rows), ""};
        if (kind == 1) return {name, MODLA_ROW_VECTOR, order(), 1, columns, entries(columns), ""};
        return matrix(name, rows, columns);
    }

    std::string selection(int32_t bound) {
        const auto index = [&] { return below(random, 20) ? 1 + below(random, bound) : pick(random, {0, -1, -2, 9}); };
        const int32_t a = index(), b = index();
        if (chance(random, 40)) return std::to_string(a);
        if (chance(random, 30)) return "1..-1";
        return chance(random, 90) ? std::to_string(std::min(a, b)) + ".." + std::to_string(std::max(a, b))
                                  : std::to_string(a) + ".." + std::to_string(b);
    }

    // The operand's name, some of its rows and columns, "transpose".
    std::string block(const Operand &operand, bool transpose) {
        std::string text = operand.name;
        if (chance(random, 60)) {
            if (operand.subtype != MODLA_ROW_VECTOR) text += ", " + selection(operand.rows);
            if (operand.subtype != MODLA_COLUMN_VECTOR && chance(random, 80)) {
                text += ", " + selection(operand.columns);
            }
        }
        return text + (transpose && chance(random, 30) ? ", transpose" : "");
    }
    // Often of a given shape.
    std::string fitting_block(const Operand &operand) {
        return chance(random, 50) ? operand.name : block(operand, false);
    }

    std::string range(int32_t bound) { return chance(random, 50) ? "-1" : selection(bound); }
    std::string output(Call *call, const std::string &name) {
        if (chance(random, 40)) return "0";
        call->outputs.push_back(name);
        return "'" + name + "'";
    }

    Call make(int kind);

  private:
    bool signed_entries_;
};

constexpr int call_kinds = 16;

Call CallMaker::make(int kind) {
    Call call;
    const std::string q = std::to_string(p);
    const auto operand = [&](const Operand &x) -> const Operand & { return call.operands.emplace_back(x); };
    call.operands.reserve(4);
    const int32_t n = size();
    switch (kind) {
        case 0: {
            const std::string fill = pick<std::string>(random, {"", "identity, ", "1, ", std::to_string(p - 1) + ", "});
            const int32_t columns = chance(random, 50) ? n : below(random, 4);
            call.text = "Create(" + q + ", " + std::to_string(n) + ", " + std::to_string(columns) + ", " + fill + "@" +
                        pick<std::string>(random, {"", ", Fortran_order"}) + ")";
            break;
        }
        case 1:
            operand(any("A", n, size()));
            call.text = "Fill(" + q + ", " + pick<std::string>(random, {"", "1, ", q + ", "}) +
                        block(call.operands[0], false) + ")";
            break;
        case 2:
        case 3: {
            operand(any("A", n, chance(random, 50) ? n : size()));
            const Operand copy = chance(random, 60) ? call.operands[0] : any("B", n, size());
            const std::string type =
                pick<std::string>(random, {"", "", "upper, ", "uppernodiag, ", "lower, ", "lowernodiag, "});
            if (copy.name == "A" && chance(random, 50)) {
                operand({"B", copy.subtype, order(), copy.rows, copy.columns, entries(copy.rows * copy.columns), ""});
            } else if (copy.name == "B") {
                operand(copy);
            }
            const Operand &target = call.operands.back();
            const std::string second = kind == 3 || chance(random, 60) ? ", " + fitting_block(target) : "";
            call.text =
                (kind == 2 ? "Copy(" : "Swap(") + q + ", " + type + block(call.operands[0], true) + second + ")";
            break;
        }
        case 4: {
            operand(any("A", n, size()));
            std::vector<int64_t> steps;
            for (int k = 0; k < 9; k++) steps.push_back(chance(random, 97) ? 1 + below(random, n) : 0);
            operand({"P", MODLA_COLUMN_VECTOR, 1, 9, 1, steps, pick<std::string>(random, {"integer", "integer[4]"})});
            call.text = "Permute(" + q + ", P, A, " + pick<std::string>(random, {"true", "false"}) + ", " +
                        pick<std::string>(random, {"true", "false"}) + ")";
            break;
        }
        case 5: {
            operand(any("A", n, size()));
            const bool given = chance(random, 50);
            if (given && chance(random, 50)) operand(any("B", n, size()));
            call.text = "Mod(" + q + ", " + block(call.operands[0], true) + ", " +
                        (given ? fitting_block(call.operands.back())
                               : "@" + pick<std::string>(random, {"", ", Fortran_order"})) +
                        ")";
            break;
        }
        case 6:
        case 7: {
            const int32_t k = size(), columns = size();
            operand(any("A", n, kind == 6 ? columns : k));
            if (chance(random, 70)) operand(any("B", kind == 6 ? n : k, columns));
            const std::string second = call.operands.back().name;
            if (chance(random, 50)) operand(any("C", n, columns));
            const std::string scalar =
                kind == 6 || chance(random, 20)
                    ? pick<std::string>(random, {"", "1, ", std::to_string(p - 1) + ", ", "3, ", "0, ", "-1, "})
                    : "";
            const std::string a = chance(random, 50) ? "A" : block(call.operands[0], true);
            const std::string b = chance(random, 50) ? second : block(call.operands[second == "A" ? 0 : 1], true);
            std::string rest;
            if (chance(random, 40))
                rest = ", " + fitting_block(call.operands.back());
            else
                rest = pick<std::string>(random, {"", ", C_order", ", Fortran_order"});
            if (chance(random, 20)) rest += ", sparse";
            call.text = kind == 6        ? "AddMult(" + q + ", " + scalar + a + ", " + b + rest + ")"
                        : scalar.empty() ? "Multiply(" + q + ", " + a + ", " + b + rest + ")"
                                         : "Multiply(" + q + ", " + scalar + a + rest + ")";
            break;
        }
        case 8:
        case 9: {
            const Operand &A = operand(matrix("A", n, size()));
            call.text = "RowReduce(" + q + ", A, " + range(A.rows) + ", " + range(A.columns) + ", " +
                        std::to_string(chance(random, 50) ? 0 : below(random, A.columns + 1));
            for (const char *name : {"det", "pivprod", "rank", "pivsig", "extra"}) {
                const bool square = A.rows <= A.columns || chance(random, 10) || name[0] == 'r' || name[0] == 'e';
                call.text += ", " + (square ? output(&call, name) : "0");
            }
            call.text += ", " + pick<std::string>(random, {"true", "false", "0", "1", "2", "2"}) + ")";
            break;
        }
        case 10: {
            operand(matrix("A", n, n));
            operand({"P", chance(random, 50) ? MODLA_ROW_VECTOR : MODLA_COLUMN_VECTOR, 1, n, n,
                     std::vector<int64_t>(static_cast<size_t>(n), 7),
                     pick<std::string>(random, {"integer", "integer[4]"})});
            call.text = "LUDecomp(" + q + ", A, P, ";
            call.text += output(&call, "det") + ")";
            break;
        }
        case 11:
        case 12: {
            Operand T = matrix("A", n, n);
            for (int32_t i = 0; i < n; i++) {
                if (chance(random, 92)) T.entries[static_cast<size_t>(i * (n + 1))] = 1 + p * below(random, 3);
            }
            operand(T);
            Operand B = chance(random, 50) ? matrix("B", n, size()) : any("B", n, size());
            if (chance(random, 95)) B.order = T.order;
            operand(B);
            call.text = kind == 11 ? "ForSub(" + q + ", A, B, " + pick<std::string>(random, {"true", "false"}) + ")"
                                   : "BackSub(" + q + ", A, B)";
            break;
        }
        case 13: {
            const Operand &A = operand(matrix("A", n, chance(random, 80) ? n : size()));
            const std::string rows = range(A.rows);
            call.text = "Determinant(" + q + ", A, " + rows + ", " +
                        (chance(random, 80) && A.rows == A.columns ? rows : range(A.columns)) + ", 'det')";
            call.outputs.push_back("det");
            break;
        }
        case 14: {
            const Operand &A = operand(matrix("A", n, chance(random, 60) ? 1 + below(random, n) : size()));
            call.text = "MatBasis(" + q + ", A, " + std::to_string(chance(random, 90) ? below(random, n + 1) : -2) +
                        ", " + (A.columns <= A.rows ? pick<std::string>(random, {"true", "false"}) : "false") + ")";
            break;
        }
        default: {
            const bool gcd = chance(random, 50);
            operand(matrix("A", n, gcd ? size() : n));
            call.text =
                gcd ? "MatGcd(" + q + ", A, " + std::to_string(1 + below(random, n)) + ")" : "ZigZag(" + q + ", A)";
            break;
        }
    }
    return call;
}

void compare_datatypes(unsigned first_seed, int rounds, const std::vector<int64_t> &moduli, bool signed_entries) {
    int errors = 0;
    std::map<std::string, int> successes;
    for (int round = 0; round < rounds; round++) {
        CallMaker maker(first_seed + static_cast<unsigned>(round), moduli, signed_entries);
        const Call call = maker.make(round % call_kinds);
        const std::vector<std::string> expected = traces_of(call, "integer");
        set_word_moduli(false);
        const std::vector<std::string> big = traces_of(call, "integer");
        set_word_moduli(true);
        ASSERT_EQ(big, expected) << call.text << " with big integers, round " << round;
        if (maker.p < 33554432) {
            ASSERT_EQ(traces_of(call, "float[8]"), expected) << call.text << " round " << round;
        }
        if (maker.p < 65536 && !signed_entries) {
            ASSERT_EQ(traces_of(call, "integer[4]"), expected) << call.text << " round " << round;
        }
        const bool failed = expected[0].starts_with("Error: ");
        errors += failed;
        successes[call.text.substr(0, call.text.find('('))] += !failed;
    }
    EXPECT_LT(errors, rounds / 2);
    EXPECT_GT(errors, rounds / 50);
    EXPECT_EQ(successes.size(), 16u);
    for (const auto &[entry, count] : successes) EXPECT_GT(count, rounds / 200) << entry;
}

const std::vector<int64_t> word_moduli = {2, 2, 3, 7, 251, 65521, 4, 6, 8, 12, 30, 45056, 65535};

TEST(HostIntegers, AllDatatypesGiveTheSame) {
    compare_datatypes(1, 24000 / share, word_moduli, false);
}

TEST(HostIntegers, NegativeAndHugeEntriesAreReducedAsDoublesAre) {
    compare_datatypes(1000000, 12000 / share, word_moduli, true);
}

TEST(HostIntegers, ModuliBetweenTheRepresentations) {
    compare_datatypes(2000000, 12000 / share,
                      {65536, 33554393, 16777216, 2147483647, 2147483648, 4294967291, 4294967295}, true);
}

// ---- Large moduli ----

using Numbers = std::vector<mpz_class>;

// A matrix of mpz, row by row.
struct Grid {
    int32_t rows, columns;
    Numbers entries;

    Grid(int32_t m, int32_t n) : rows(m), columns(n), entries(static_cast<size_t>(m) * static_cast<size_t>(n)) {}
    mpz_class &at(int32_t i, int32_t j) { return entries[static_cast<size_t>(i * columns + j)]; }
    const mpz_class &at(int32_t i, int32_t j) const { return entries[static_cast<size_t>(i * columns + j)]; }
    bool operator==(const Grid &) const = default;
};

mpz_class mod(const mpz_class &x, const mpz_class &p) {
    mpz_class r;
    mpz_mod(r.get_mpz_t(), x.get_mpz_t(), p.get_mpz_t());
    return r;
}

Grid product(const Grid &A, const Grid &B, const mpz_class &p) {
    Grid C(A.rows, B.columns);
    for (int32_t i = 0; i < A.rows; i++) {
        for (int32_t j = 0; j < B.columns; j++) {
            for (int32_t t = 0; t < A.columns; t++) C.at(i, j) += A.at(i, t) * B.at(t, j);
            C.at(i, j) = mod(C.at(i, j), p);
        }
    }
    return C;
}

class Numberer {
  public:
    explicit Numberer(unsigned seed) : random(seed), source_(gmp_randinit_mt) { source_.seed(seed); }

    Random random;

    mpz_class below_number(const mpz_class &n) { return source_.get_z_range(n); }
    // Residues, or any integers; some zeros.
    Grid grid(int32_t rows, int32_t columns, const mpz_class &p, bool residues = false) {
        Grid result(rows, columns);
        const bool plain = residues || chance(random, 60);
        for (mpz_class &x : result.entries) {
            x = chance(random, 15) ? mpz_class(0) : below_number(p);
            if (!plain && chance(random, 30)) x = below_number(p * p * p) - p * p;
            if (!plain && chance(random, 20)) x = -p * below(random, 4);
        }
        return result;
    }
    // Of a rank that is likely to be `rank`.
    Grid of_rank(int32_t rows, int32_t columns, int32_t rank, const mpz_class &p) {
        return product(grid(rows, rank, p, true), grid(rank, columns, p, true), p);
    }

  private:
    gmp_randclass source_;
};

Object make_integers(const std::string &name, const Grid &grid, int32_t order, int32_t subtype = MODLA_MATRIX) {
    const Object table = make_table(MODLA_INTEGER, subtype, order, grid.rows, grid.columns);
    set_name(name, table);
    for (int32_t i = 0; i < grid.rows; i++) {
        for (int32_t j = 0; j < grid.columns; j++)
            set_entry(table_of(table), i + 1, j + 1, integer_object(grid.at(i, j)));
    }
    return table;
}

// The entries, each of them a residue in the host's normal form.
Grid residues_of(Object table, const mpz_class &p) {
    const Table &t = table_of(table);
    Grid result(table_rows(t), table_columns(t));
    for (int32_t i = 0; i < result.rows; i++) {
        for (int32_t j = 0; j < result.columns; j++) {
            const Object x = get_entry(t, i + 1, j + 1);
            const mpz_class value = integer_of(x);
            EXPECT_TRUE(value >= 0 && value < p) << value;
            EXPECT_EQ(is_immediate(x), value <= immediate_limit) << value;
            if (!is_immediate(x)) {
                EXPECT_EQ(type_of(x), type_positive);
                EXPECT_NE(words(x)[length_of(x) - 1], 0u);
                for (uint32_t k = 1; k < length_of(x); k++) EXPECT_LT(words(x)[k], 10000u);
            }
            result.at(i, j) = value;
        }
    }
    return result;
}
Grid residues_of(const std::string &name, const mpz_class &p) {
    return residues_of(eval(name), p);
}

struct Modulus {
    mpz_class p;
    bool prime;
};

std::vector<Modulus> large_moduli() {
    mpz_class digits_200;
    mpz_ui_pow_ui(digits_200.get_mpz_t(), 10, 199);
    mpz_nextprime(digits_200.get_mpz_t(), digits_200.get_mpz_t());
    const mpz_class above_word = (mpz_class(1) << 64) + 13, mersenne = (mpz_class(1) << 61) - 1;
    return {{2, true},
            {65536, false},
            {2147483647, true},
            {mpz_class(1) << 31, false},
            {mpz_class("4294967291"), true},
            {mpz_class("4294967311"), true},
            {mpz_class(1) << 32, false},
            {above_word, true},
            {digits_200, true},
            {above_word * mersenne, false},
            {mpz_class("100000000000000000000"), false},
            {digits_200 * 6, false}};
}

// Calls body(p, prime, numbers, where) often; the modulus is the name p.
void repeat(unsigned seed, int rounds, const std::function<void(const Modulus &, Numberer &)> &body) {
    const std::vector<Modulus> moduli = large_moduli();
    for (int round = 0; round < rounds / share; round++) {
        Numberer numbers(seed + static_cast<unsigned>(round));
        const Modulus &modulus = moduli[static_cast<size_t>(round) % moduli.size()];
        set_name("p", integer_object(modulus.p));
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round) + ", p = " + str(modulus.p));
        body(modulus, numbers);
        if (testing::Test::HasFailure()) return;
    }
}

struct FlintMatrix {
    fmpz_mat_t mat;
    explicit FlintMatrix(const Grid &grid) {
        fmpz_mat_init(mat, grid.rows, grid.columns);
        for (int32_t i = 0; i < grid.rows; i++) {
            for (int32_t j = 0; j < grid.columns; j++)
                fmpz_set_mpz(fmpz_mat_entry(mat, i, j), grid.at(i, j).get_mpz_t());
        }
    }
    ~FlintMatrix() { fmpz_mat_clear(mat); }
    FlintMatrix(const FlintMatrix &) = delete;
    FlintMatrix &operator=(const FlintMatrix &) = delete;
};

struct FlintNumber {
    fmpz_t value;
    explicit FlintNumber(const mpz_class &x = 0) {
        fmpz_init(value);
        fmpz_set_mpz(value, x.get_mpz_t());
    }
    ~FlintNumber() { fmpz_clear(value); }
    FlintNumber(const FlintNumber &) = delete;
    FlintNumber &operator=(const FlintNumber &) = delete;
    operator mpz_class() const {
        mpz_class x;
        fmpz_get_mpz(x.get_mpz_t(), value);
        return x;
    }
};

int32_t any_size(Random &random, int32_t usual, int32_t most) {
    return 1 + below(random, chance(random, 95) ? usual : most);
}

TEST(LargeModuli, ProductsAndSums) {
    repeat(1, 1200, [](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t m = any_size(random, 5, 30), k = any_size(random, 5, 30), n = any_size(random, 5, 30);
        const Grid A = numbers.grid(m, k, p), B = numbers.grid(k, n, p), D = numbers.grid(m, k, p);
        make_integers("A", A, below(random, 2));
        make_integers("B", B, below(random, 2));
        make_integers("D", D, below(random, 2));
        EXPECT_EQ(residues_of("Multiply(p, A, B)", p), product(A, B, p));
        const mpz_class c = pick<mpz_class>(random, {0, 1, p - 1, numbers.below_number(p)});
        set_name("c", integer_object(c));
        Grid scaled = A, sum = A;
        for (size_t i = 0; i < A.entries.size(); i++) {
            scaled.entries[i] = mod(c * A.entries[i], p);
            sum.entries[i] = mod(A.entries[i] + c * D.entries[i], p);
        }
        EXPECT_EQ(residues_of("Multiply(p, c, A)", p), scaled);
        EXPECT_EQ(residues_of("AddMult(p, c, A, D, C_order)", p), sum);
    });
}

TEST(LargeModuli, DeterminantsForAnyModulus) {
    repeat(2, 1200, [](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        const int32_t n = any_size(numbers.random, 6, 20);
        const Grid A = chance(numbers.random, 70) ? numbers.grid(n, n, p) : numbers.of_rank(n, n, n - 1, p);
        const FlintMatrix flint(A);
        FlintNumber det;
        fmpz_mat_det(det.value, flint.mat);
        make_integers("A", A, below(numbers.random, 2));
        EXPECT_EQ(error_of("Determinant(p, A, -1, -1, 'd')"), "");
        EXPECT_EQ(integer_of(eval("d")), mod(det, p));
        residues_of("A", p);
    });
}

TEST(LargeModuli, ReducedFormsOfPrimesAndTheirRank) {
    repeat(3, 1200, [](const Modulus &modulus, Numberer &numbers) {
        if (!modulus.prime) return;
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t m = any_size(random, 7, 20), n = any_size(random, 7, 20), low = std::min(m, n);
        const Grid A = chance(random, 50) ? numbers.grid(m, n, p) : numbers.of_rank(m, n, 1 + below(random, low), p);
        FlintNumber flint_p(p);
        fmpz_mod_mat_t flint;
        fmpz_mod_mat_init(flint, m, n, flint_p.value);
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) {
                fmpz_set_mpz(fmpz_mod_mat_entry(flint, i, j), mod(A.at(i, j), p).get_mpz_t());
            }
        }
        const slong rank = fmpz_mod_mat_rref(nullptr, flint);
        Grid form(m, n);
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) fmpz_get_mpz(form.at(i, j).get_mpz_t(), fmpz_mod_mat_entry(flint, i, j));
        }
        fmpz_mod_mat_clear(flint);
        make_integers("A", A, below(random, 2));
        EXPECT_EQ(error_of("RowReduce(p, A, -1, -1, 0, 0, 0, 'r', 0, 0, true)"), "");
        EXPECT_EQ(eval("r"), immediate(static_cast<int32_t>(rank)));
        EXPECT_EQ(residues_of("A", p), form);
        // The nullspace after the basis, in a square Matrix.
        Grid square(std::max(m, n), n);
        std::copy(A.entries.begin(), A.entries.end(), square.entries.begin());
        make_integers("N", square, below(random, 2));
        EXPECT_EQ(eval("MatBasis(p, N, " + std::to_string(m) + ", true)"), immediate(static_cast<int32_t>(rank)));
        const Grid basis = residues_of("N", p);
        for (int32_t k = static_cast<int32_t>(rank); k < n; k++) {
            for (int32_t i = 0; i < m; i++) {
                mpz_class sum;
                for (int32_t j = 0; j < n; j++) sum += A.at(i, j) * basis.at(k, j);
                EXPECT_EQ(mod(sum, p), 0);
            }
        }
    });
}

TEST(LargeModuli, SystemsAreSolved) {
    int solved = 0;
    repeat(4, 1200, [&](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t n = any_size(random, 6, 20), columns = any_size(random, 4, 10);
        const bool vector = chance(random, 40);
        const Grid A = numbers.grid(n, n, p), b = numbers.grid(n, vector ? 1 : columns, p);
        const int32_t order = below(random, 2);
        make_integers("A", A, order);
        make_integers("B", b, order, vector ? MODLA_COLUMN_VECTOR : MODLA_MATRIX);
        const std::string error =
            error_of("P := Create(2, " + std::to_string(n) + ", 0, integer); LUDecomp(p, A, P, 'd')");
        if (!error.empty()) {
            EXPECT_TRUE(error == "matrix is singular" ||
                        (!modulus.prime && error == "no LU decomposition exists: modulus is composite"))
                << error;
            return;
        }
        EXPECT_EQ(error_of("Permute(p, P, B, true, false); ForSub(p, A, B, true); BackSub(p, A, B)"), "");
        Grid reduced = b;
        for (mpz_class &x : reduced.entries) x = mod(x, p);
        EXPECT_EQ(product(A, residues_of("B", p), p), reduced);
        FlintNumber det;
        fmpz_mat_det(det.value, FlintMatrix(A).mat);
        EXPECT_EQ(integer_of(eval("d")), mod(det, p));
        solved++;
    });
    EXPECT_GT(solved, 400 / share);
}

TEST(LargeModuli, GcdsOfPolynomials) {
    repeat(5, 900, [](const Modulus &modulus, Numberer &numbers) {
        if (!modulus.prime) return;
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t rows = any_size(random, 4, 6), common = below(random, 4), rest = below(random, 4);
        FlintNumber flint_p(p);
        fmpz_mod_ctx_t context;
        fmpz_mod_ctx_init(context, flint_p.value);
        fmpz_mod_poly_t gcd, factor, other;
        for (auto *f : {gcd, factor, other}) fmpz_mod_poly_init(f, context);
        const auto set = [&](fmpz_mod_poly_t f, const Grid &coefficients) {
            fmpz_mod_poly_zero(f, context);
            for (int32_t j = 0; j < coefficients.columns; j++) {
                fmpz_mod_poly_set_coeff_fmpz(f, j, FlintNumber(coefficients.at(0, j)).value, context);
            }
        };
        set(factor, numbers.grid(1, common + 1, p, true));
        Grid A(rows, common + rest + 1);
        for (int32_t i = 0; i < rows; i++) {
            set(other, numbers.grid(1, rest + 1, p, true));
            fmpz_mod_poly_mul(other, other, factor, context);
            fmpz_mod_poly_gcd(gcd, gcd, other, context);
            for (int32_t j = 0; j < A.columns; j++) {
                FlintNumber c;
                fmpz_mod_poly_get_coeff_fmpz(c.value, other, j, context);
                A.at(i, j) = c;
            }
        }
        make_integers("A", A, below(random, 2));
        EXPECT_EQ(eval("MatGcd(p, A, " + std::to_string(rows) + ")"),
                  immediate(static_cast<int32_t>(fmpz_mod_poly_degree(gcd, context))));
        const Grid left = residues_of("A", p);
        set(other, left);
        if (!fmpz_mod_poly_is_zero(other, context)) fmpz_mod_poly_make_monic(other, other, context);
        EXPECT_TRUE(fmpz_mod_poly_equal(other, gcd, context));
        for (int32_t i = 1; i < rows; i++) {
            for (int32_t j = 0; j < A.columns; j++) EXPECT_EQ(left.at(i, j), 0);
        }
        for (auto *f : {gcd, factor, other}) fmpz_mod_poly_clear(f, context);
        fmpz_mod_ctx_clear(context);
    });
}

// The coefficients of the characteristic polynomial.
Numbers characteristic_polynomial(const Grid &A, const mpz_class &p) {
    fmpz_poly_t polynomial;
    fmpz_poly_init(polynomial);
    fmpz_mat_charpoly(polynomial, FlintMatrix(A).mat);
    Numbers coefficients;
    for (slong k = 0; k <= A.rows; k++) {
        FlintNumber c;
        fmpz_poly_get_coeff_fmpz(c.value, polynomial, k);
        coefficients.push_back(mod(c, p));
    }
    fmpz_poly_clear(polynomial);
    return coefficients;
}

TEST(LargeModuli, ZigZagFormsAreSimilar) {
    int formed = 0;
    repeat(6, 900, [&](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        const int32_t n = any_size(numbers.random, 7, 14);
        const Grid A =
            chance(numbers.random, 50) ? numbers.grid(n, n, p) : numbers.of_rank(n, n, 1 + below(numbers.random, n), p);
        make_integers("A", A, below(numbers.random, 2));
        const std::string error = error_of("ZigZag(p, A)");
        const Grid form = residues_of("A", p);
        if (!error.empty()) {
            EXPECT_FALSE(modulus.prime) << error;
            EXPECT_EQ(error, "cannot obtain zigzag form: modulus is composite");
            return;
        }
        EXPECT_EQ(characteristic_polynomial(form, p), characteristic_polynomial(A, p));
        formed++;
    });
    EXPECT_GT(formed, 400 / share);
}

TEST(LargeModuli, RandomEntriesCoverTheRange) {
    repeat(7, 120, [](const Modulus &modulus, Numberer &) {
        mpz_class sum;
        const Grid A = residues_of("Create(p, 30, 30, random, integer)", modulus.p);
        for (const mpz_class &x : A.entries) sum += x;
        const double mean = mpz_class(sum * 1000 / (modulus.p * 900)).get_d() / 1000;
        EXPECT_NEAR(mean, modulus.p == 2 ? 0.25 : 0.5, 0.08);
    });
}

// ---- Conversions ----

TEST(Conversions, DigitsAndBack) {
    Numberer numbers(8);
    Roots held;
    for (int round = 0; round < 4000 / share; round++) {
        const unsigned bits = round % 100 == 0 ? 60000 : 1 + below(numbers.random, 1500u);
        mpz_class x = numbers.below_number(mpz_class(1) << bits);
        if (chance(numbers.random, 20)) mpz_ui_pow_ui(x.get_mpz_t(), 100, bits / 8);
        if (chance(numbers.random, 10)) x = immediate_limit + below(numbers.random, 3);
        if (chance(numbers.random, 20)) x -= 1;
        if (chance(numbers.random, 50)) x = -x;
        const Object object = integer_object(x);
        held.values = {object};
        EXPECT_EQ(is_immediate(object), abs(x) <= immediate_limit);
        EXPECT_EQ(integer_of(object), x);
        if (is_immediate(object)) continue;
        // Words are groups of four decimal digits.
        EXPECT_EQ(type_of(object), x < 0 ? uint32_t{type_negative} : uint32_t{type_positive});
        std::string text = mpz_class(abs(x)).get_str();
        while (text.size() % 4 != 0) text.insert(0, "0");
        ASSERT_EQ(length_of(object) - 1, text.size() / 4) << x;
        for (size_t i = 1; i < length_of(object); i++) {
            ASSERT_EQ(words(object)[i], std::stoul(text.substr(text.size() - 4 * i, 4))) << x << ", word " << i;
        }
        const uint64_t word = below(numbers.random, uint64_t{1} << pick(numbers.random, {29, 30, 31, 45}));
        EXPECT_EQ(integer_of(host_integer(word)), mpz_class(std::to_string(word)));
    }
}

// ---- Entries that are no integers, misuse ----

// A Matrix of host integers with a value of another kind in it.
void make_spoilt(const std::string &name, const std::string &value) {
    run(name + " := Create(10^20, 3, 3, 5, integer); " + name + "[1, 1] := 10^25");
    set_name("value", eval(value));
    static_cast<Object *>(table_of(eval(name)).data)[4] = eval("value");
}

TEST(HostIntegers, OtherEntriesAreRefusedAndNothingIsLost) {
    const char *const calls[] = {"Determinant(p, A, -1, -1, 'd')",
                                 "RowReduce(p, A, 2..3, -1, 0, 'd', 'd', 'd', 'd', 'd', true)",
                                 "MatBasis(p, A, 2, true)",
                                 "MatGcd(p, A, 3)",
                                 "ZigZag(p, A)",
                                 "LUDecomp(p, A, P, 'd')",
                                 "ForSub(p, E, A, true)",
                                 "BackSub(p, A, B)",
                                 "Multiply(p, A, E)",
                                 "Multiply(p, E, A, A)",
                                 "Multiply(p, 3, A, A)",
                                 "AddMult(p, A, E, A)",
                                 "AddMult(p, E, A, transpose, E)"};
    run("P := Create(7, 3, 0, 4, integer); B := Create(7, 3, 0, 6, integer)");
    for (const std::string value : {"'x'", "1/2", "2.5", "\"text\"", "[1]"}) {
        for (const char *p : {"7", "10^20", "10^20 + 39"}) {
            make_spoilt("A", value);
            run(std::string("E := Create(10^20, 3, 3, identity, integer); E[2, 2] := 10^30; p := ") + p);
            unassign("d");
            const auto everything = [] {
                return std::vector{storage_of(eval("A")), storage_of(eval("B")), storage_of(eval("P")),
                                   storage_of(eval("E"))};
            };
            const auto before = everything();
            for (const char *call : calls) {
                const std::string error = error_of(call);
                EXPECT_EQ(error,
                          "matrices of host integers cannot be worked on with the entry " + to_line(eval("value")))
                    << call;
                EXPECT_EQ(everything(), before) << call << " with " << value;
                EXPECT_FALSE(modla_test::is_assigned("d")) << call;
            }
        }
    }
    // Entries that are not read may be anything.
    make_spoilt("A", "'x'");
    EXPECT_EQ(error_of("RowReduce(7, A, 1..1, -1, 0, 0, 0, 0, 0, 0, true); Determinant(7, A, 1..2, 2..3, 'd')"),
              "matrices of host integers cannot be worked on with the entry x");
    EXPECT_EQ(error_of("ForSub(7, A, B, true)"), "");
}

// ---- Calls within calls ----

// A statement over tables of its own, of n rows; # stands for the tables' number, p and t for modulus and datatype.
struct Instance {
    int number, n;
    std::string p, datatype;
};

std::string instantiate(std::string text, const Instance &instance) {
    const std::pair<char, std::string> marks[] = {{'#', std::to_string(instance.number)},
                                                  {'%', instance.p},
                                                  {'@', instance.datatype},
                                                  {'~', std::to_string(instance.n)}};
    for (const auto &[mark, replacement] : marks) {
        for (size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, 1, replacement);
    }
    return text;
}

std::string run_instance(const std::string &statement, const Instance &instance) {
    const char *const frame =
        "A# := Create(%, ~, ~, 1, @); B# := Create(%, ~, ~, 2, @); C# := Create(%, ~, ~, 0, @); d# := 0; r# := 0\n"
        "P# := Create(7, ~, 0, 0, integer)\n"
        "for i to ~ do for j to ~ do A#[i, j] := (i^3 + 2^(i*j)) mod 97 + 1; B#[i, j] := (5*i + j*j) mod 89 end "
        "end;";
    run(instantiate(frame, instance));
    const std::string printed = run(instantiate(statement, instance));
    return printed + run(instantiate("print(A#, B#, C#, P#, d#, r#)", instance));
}

TEST(HostIntegers, CallbacksMayCallTheLibraryAgain) {
    const std::pair<const char *, const char *> statements[] = {
        {"cbRandMat", "Fill(%, random, A#); Fill(%, 3, A#)"},
        {"cbAddMult", "C# := AddMult(%, 3, A#, B#)"},
        {"cbAddMultShift", "AddMult(%, A#, 2..-1, 2..-1, B#, 2..-1, 2..-1, C#, 2..-1, 2..-1)"},
        {"cbMod", "C# := Mod(%, B#, 2..-1, @)"},
        {"cbModEval", "C# := Mod(%, [x, x^2, 3*y], [x = 2, y = ~], @)"},
        {"cbScalMult", "C# := Multiply(%, 5, A#)"},
        {"cbScalMultShift", "Multiply(%, 5, A#, 2..-1, 2..-1, C#, 2..-1, 2..-1)"},
        {"cbMatMult", "C# := Multiply(%, A#, B#)"},
        {"cbMatMultShift", "Multiply(%, A#, 2..-1, 2..-1, B#, 2..-1, 2..-1, C#, 2..-1, 2..-1)"},
        {"cbReduce", "RowReduce(%, A#, -1, -1, 0, 'd#', 0, 'r#', 0, 0, true)"},
        {"cbReduce", "Determinant(%, A#, -1, -1, 'd#')"},
        {"cbReduce", "r# := MatBasis(%, A#, 0, false)"},
        {"cbLUDecomp", "LUDecomp(%, A#, P#, 'd#')"},
        {"cbForSub", "ForSub(%, A#, B#, true)"},
        {"cbBackSub", "BackSub(%, A#, B#)"},
        {"cbMatGcd", "r# := MatGcd(%, A#, 3)"},
        {"cbZigZag", "ZigZag(%, A#)"},
    };
    for (const auto &[name, statement] : statements) {
        SCOPED_TRACE(statement);
        // Words, then host integers, which call again, two levels deep.
        const Instance instances[] = {
            {1, 4, "10^20 + 39", "integer"}, {2, 6, "10^30 + 57", "integer"}, {3, 3, "101", "integer"},
            {4, 5, "65521", "integer[4]"},   {5, 5, "65521", "float[8]"},
        };
        std::vector<std::string> expected;
        for (const Instance &instance : instances) {
            expected.push_back(run_instance(statement, instance));
            EXPECT_EQ(expected.back().find("Error"), std::string::npos) << expected.back();
        }
        size_t depth = 0, calls = 0;
        const modla_test::Callback callback(name, [&, name = std::string(name)](const std::vector<Object> &arguments) {
            Roots held;
            held.values = arguments;
            calls++;
            if (depth < 2) {
                depth++;
                for (const size_t inner : {depth, size_t{3}, size_t{4}}) {
                    EXPECT_EQ(run_instance(statement, instances[inner]), expected[inner]);
                }
                depth--;
            }
            return call_procedure(own_callback(name), arguments);
        });
        EXPECT_EQ(run_instance(statement, instances[0]), expected[0]);
        EXPECT_EQ(calls, 3u);
    }
}

TEST(HostIntegers, CallbacksBearAnyArguments) {
    run("A := Create(10^20, 3, 3, 5, integer); W := Create(7, 3, 3, 5, integer[4]); V := Create(7, 3, 0, 5, integer)");
    const std::vector<std::pair<std::string, std::vector<std::string>>> calls = {
        {"cbReduce", {"A", "1", "3", "1", "3", "4", "7", "0", "0", "'r'", "0", "0", "0", "1", "false"}},
        {"cbLUDecomp", {"A", "V", "3", "7", "'d'"}},
        {"cbForSub", {"A", "3", "V", "0", "7", "false"}},
        {"cbBackSub", {"A", "3", "V", "0", "7"}},
        {"cbMatGcd", {"A", "3", "3", "7"}},
        {"cbZigZag", {"A", "3", "7"}},
        {"cbMatMult", {"7", "3", "3", "3", "A", "A", "A"}},
        {"cbMatMultShift", {"7", "2", "2", "2", "A", "1", "1", "A", "0", "1", "A", "1", "0"}},
        {"cbScalMult", {"7", "3", "3", "2", "A", "A"}},
        {"cbScalMultShift", {"7", "2", "2", "2", "A", "1", "1", "A", "1", "0"}},
        {"cbAddMult", {"7", "3", "3", "2", "A", "A", "A"}},
        {"cbAddMultShift", {"7", "2", "2", "2", "A", "1", "1", "A", "0", "1", "A", "1", "0"}},
        {"cbRandMat", {"7", "0", "3", "0", "3", "A"}},
        {"cbMod", {"7", "1", "3", "1", "3", "A"}},
        {"cbModEval", {"7", "1", "3", "1", "3", "A", "['x' = 1]"}},
    };
    const auto text = [](const std::string &name, const std::vector<std::string> &arguments) {
        std::string list;
        for (const std::string &argument : arguments) list += (list.empty() ? "" : ", ") + argument;
        return name + "(" + list + ")";
    };
    int refused = 0;
    for (const auto &[name, arguments] : calls) {
        EXPECT_EQ(error_of(text(name, arguments)), "") << name;
        auto fewer = arguments, more = arguments;
        fewer.pop_back();
        more.push_back("0");
        for (const auto &wrong : {fewer, more, {}}) {
            EXPECT_EQ(error_of(text(name, wrong)), name + " takes " + std::to_string(arguments.size()) + " arguments");
        }
        for (size_t i = 0; i < arguments.size(); i++) {
            for (const std::string value :
                 {"-5", "1000000", "2^29", "10^30", "-10^30", "1/2", "W", "'q'", "true", "[]", "0", "1"}) {
                auto strange = arguments;
                strange[i] = value;
                refused += !error_of(text(name, strange)).empty();
            }
        }
        EXPECT_EQ(lent_count(), 0u);
    }
    EXPECT_GT(refused, 600);
    run("for i to 3 do for j to 3 do print(A[i, j]) end end");
    EXPECT_EQ(error_of("Determinant(10^20, A, -1, -1, 'd')"), "");
}

// ---- Mod ----

Object make_pairs(Type type, const std::vector<Object> &parts) {
    const Object x = new_object(static_cast<uint32_t>(parts.size()) + 1, type);
    std::copy(parts.begin(), parts.end(), words(x) + 1);
    return x;
}

// A value to reduce: integers, fractions, and expressions in x and y.
Object random_expression(Random &random, Roots &held, int depth) {
    const auto keep_value = [&](Object x) {
        held.values.push_back(x);
        return x;
    };
    const int kind = depth == 0 ? below(random, 5) : below(random, 8);
    if (kind == 0) return immediate(below(random, 40) - 20);
    if (kind == 1) return keep_value(eval(chance(random, 50) ? "10^24 + 7" : "-10^24"));
    if (kind == 2) return global_name(pick<const char *>(random, {"x", "y", "x", "y", "z"}));
    if (kind == 3) return keep_value(eval("-65521 * 10^10"));
    if (kind == 4) {
        const mpz_class numerator = below(random, 99) - 50, denominator = 2 + below(random, 20);
        mpq_class value(numerator, denominator);
        value.canonicalize();
        return keep_value(rational_object(value));
    }
    std::vector<Object> parts;
    for (int k = 0; k <= below(random, 3); k++) {
        parts.push_back(random_expression(random, held, depth - 1));
        const bool number = is_immediate(parts.back());
        parts.push_back(kind == 5 ? immediate(below(random, 9) - 4)
                        : number  ? immediate(1)
                                  : immediate(pick(random, {1, 2, -1, 3, 20, -40})));
    }
    return keep_value(make_pairs(static_cast<Type>(kind == 5 ? MODLA_TYPE_SUM : MODLA_TYPE_POWER), parts));
}

TEST(Mod, HostIntegersReduceLikeTheNativeOnes) {
    unassign("x"), unassign("y"), unassign("z");
    int errors = 0;
    for (int round = 0; round < 4000 / share; round++) {
        Random random(static_cast<unsigned>(round));
        Roots held, list;
        const int32_t p = pick(random, {2, 7, 10, 65521, 65535});
        for (int k = 0; k < 4; k++) list.values.push_back(random_expression(random, held, below(random, 3)));
        set_name("L", new_collection(type_list, new_sequence(list.values)));
        set_name("p", immediate(p));
        std::string equations;
        if (chance(random, 70)) {
            equations =
                ", ['x' = " + std::to_string(below(random, p)) + ", 'y' = " + std::to_string(below(random, p)) + "]";
        } else if (chance(random, 30)) {
            equations = ", 'x' = 1";
        }
        const auto traces = [&](const std::string &datatype) {
            std::vector<std::string> result;
            for (const std::string &text : {"Mod(p, L" + equations + ", " + datatype + ", Fortran_order)",
                                            "Mod(p, [L, L]" + equations + ", " + datatype + ")"}) {
                try {
                    result.push_back(describe_value(eval(text)));
                } catch (const HostError &error) {
                    result.push_back(std::string("Error: ") + error.what());
                }
            }
            return result;
        };
        const auto expected = traces("integer[4]");
        errors += expected[0].starts_with("Error");
        EXPECT_EQ(traces("integer"), expected) << round;
        set_word_moduli(false);
        EXPECT_EQ(traces("integer"), expected) << round;
        set_word_moduli(true);
        if (testing::Test::HasFailure()) break;
    }
    EXPECT_GT(errors, 300 / share);
    EXPECT_LT(errors, 3200 / share);
}

TEST(Mod, LargeModuli) {
    repeat(9, 600, [](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        const Grid A = numbers.grid(2, 3, p);
        make_integers("A", A, below(numbers.random, 2));
        Grid expected = A;
        for (mpz_class &x : expected.entries) x = mod(x, p);
        EXPECT_EQ(residues_of("Mod(p, A, integer)", p), expected);
        EXPECT_EQ(error_of("B := Create(p, 4, 5, 1, integer); Mod(p, A, B, 2..3, 3..5); Mod(p, A, A)"), "");
        EXPECT_EQ(residues_of("A", p), expected);
        const Grid B = residues_of("B", p);
        for (int32_t i = 0; i < 4; i++) {
            for (int32_t j = 0; j < 5; j++) {
                const bool inside = (i == 1 || i == 2) && j >= 2;
                EXPECT_EQ(B.at(i, j), inside ? expected.at(i - 1, j - 2) : mpz_class(1));
            }
        }
        // 1/n for n without a common factor, and a name's value.
        const mpz_class n = 3 + 2 * numbers.below_number(1000000), x = numbers.below_number(p);
        mpz_class inverse;
        const bool invertible = mpz_invert(inverse.get_mpz_t(), n.get_mpz_t(), p.get_mpz_t()) != 0;
        const std::string call = "Mod(p, [1/" + str(n) + ", 'x'], ['x' = " + str(x) + "], integer)";
        if (!invertible) {
            EXPECT_EQ(error_of(call), "division by zero");
        } else {
            EXPECT_EQ(residues_of(call, p).entries, (Numbers{inverse, x}));
        }
    });
}

// ---- Sessions ----

// Statements on the Matrices M1..M4, n x n, and the Vectors V1, V2.
std::string random_statement(Random &random) {
    const auto M = [&] { return "M" + std::to_string(1 + below(random, 4)); };
    const auto V = [&] { return "V" + std::to_string(1 + below(random, 2)); };
    const auto i = [&] { return std::to_string(1 + below(random, 3)); };
    const auto block = [&] { return M() + pick<std::string>(random, {"", ", 2..3, 1..3", ", 1..3", ", transpose"}); };
    const std::string a = M(), b = M(), v = V();
    switch (below(random, 17)) {
        case 0:
            return a + " := Create(q, 3, 3, random, integer" + pick<std::string>(random, {"", ", Fortran_order"}) + ")";
        case 1:
            return a + " := Multiply(q, " + b + ", " + M() + pick<std::string>(random, {"", ", transpose"}) + ")";
        case 2:
            return a + " := AddMult(q, q - 2, " + b + ", " + M() + ", C_order)";
        case 3:
            return "AddMult(q, 3, " + block() + ", " + block() + ", " + block() + ")";
        case 4:
            return "B := Copy(q, " + b + "); Determinant(q, B, -1, -1, 'd'); print(d)";
        case 5:
            return "RowReduce(q, " + a + ", " + i() + ", -1, 0, 'd', 'e', 'r', 's', 't', true); print(r, s)";
        case 6:
            return "B := Copy(q, " + b + "); LUDecomp(q, B, P, 'd'); print(d, P); ForSub(q, B, " + v + ", true)";
        case 7:
            return v + " := Multiply(q, " + b + ", " + V() + ")";
        case 8:
            return "Fill(q, random, " + a + ", " + i() + ", " + i() + "..3)";
        case 9:
            return "print(MatBasis(q, " + a + ", 2, true))";
        case 10:
            return "print(MatGcd(q, " + a + ", 3), " + a + ")";
        case 11:
            return "ZigZag(q, " + a + "); print(" + a + ")";
        case 12:
            return a + " := Mod(q, [[10^40, -1, 1/3], [q, 2^100], [5, 'x', -q]], ['x' = q - 1], integer)";
        case 13:
            return "print(Multiply(q, " + a + ", " + i() + ", " + b + ", 1..3, " + i() + "))";
        case 14:
            return "Swap(q, " + a + ", 1, " + b + ", " + i() + "); Permute(q, P, " + v + ", true, true)";
        case 15:
            return "print(" + a + "[" + i() + ", " + i() + "], " + v + ")";
        default:
            return "BackSub(q, " + a + ", " + v + ")";
    }
}

std::string run_session(unsigned seed, int statements) {
    Random random(seed);
    run("seed(5); q := " + pick<std::string>(random, {"2^64 + 13", "10^20", "7", "10^60 + 7", "2^31"}) +
        "; P := Create(7, 3, 0, 1, integer)");
    for (int k = 1; k <= 4; k++) run("M" + std::to_string(k) + " := Create(q, 3, 3, random, integer)");
    run("V1 := Create(q, 3, 0, random, integer); V2 := Create(q, 3, 0, random, integer)");
    std::string outcome;
    for (int k = 0; k < statements; k++) {
        const std::string statement = random_statement(random);
        outcome += statement + "\n" + run(statement);
    }
    return outcome;
}

TEST(Memory, SessionsSurviveCollectionsAtEveryAllocation) {
    unassign("x");
    size_t errors = 0, lines = 0;
    for (unsigned seed = 0; seed < 40; seed++) {
        const std::string expected = run_session(seed, 60);
        set_collect_always(true);
        const std::string outcome = run_session(seed, 60);
        set_collect_always(false);
        ASSERT_EQ(outcome, expected) << seed;
        for (size_t at = 0; (at = expected.find("Error: ", at)) != std::string::npos; at++) errors++;
        lines += 60;
    }
    EXPECT_GT(errors, lines / 50);
    EXPECT_LT(errors, lines / 2);
    EXPECT_EQ(lent_count(), 0u);
}

TEST(Memory, ResultsThatNothingHoldsAreCollected) {
    size_t objects = 0;
    for (unsigned seed = 100; seed < 130; seed++) {
        run_session(seed, 100 / share);
        collect_garbage();
        const size_t now = heap_statistics().objects;
        if (seed == 110) objects = now;
        if (seed > 110) {
            EXPECT_LT(now, objects + 2000) << seed;
        }
    }
}

}  // namespace
