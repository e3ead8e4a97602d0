// Matrices of host integers: the console's callbacks beside the native kernels, FLINT and plain models.
#include <flint/flint.h>
#include <flint/fmpz_mat.h>
#include <flint/fmpz_mod.h>
#include <flint/fmpz_mod_mat.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <functional>
#include <map>

#include "console/callbacks.h"
#include "console/integer_block.h"
#include "console/number.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

constexpr int share = 2 * slowness;  // rounds are divided by it

std::string str(const mpz_class &x) {
    return x.get_str();
}

// ---- Large moduli ----

using Numbers = std::vector<mpz_class>;

// A matrix of mpz, row by row.
struct BigGrid {
    int32_t rows, columns;
    Numbers entries;

    BigGrid(int32_t m, int32_t n) : rows(m), columns(n), entries(static_cast<size_t>(m) * static_cast<size_t>(n)) {}
    mpz_class &at(int32_t i, int32_t j) { return entries[static_cast<size_t>(i * columns + j)]; }
    const mpz_class &at(int32_t i, int32_t j) const { return entries[static_cast<size_t>(i * columns + j)]; }
    bool operator==(const BigGrid &) const = default;
};

mpz_class mod(const mpz_class &x, const mpz_class &p) {
    mpz_class r;
    mpz_mod(r.get_mpz_t(), x.get_mpz_t(), p.get_mpz_t());
    return r;
}

BigGrid product(const BigGrid &A, const BigGrid &B, const mpz_class &p) {
    BigGrid C(A.rows, B.columns);
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
    BigGrid grid(int32_t rows, int32_t columns, const mpz_class &p, bool residues = false) {
        BigGrid result(rows, columns);
        const bool plain = residues || chance(random, 60);
        for (mpz_class &x : result.entries) {
            x = chance(random, 15) ? mpz_class(0) : below_number(p);
            if (!plain && chance(random, 30)) x = below_number(p * p * p) - p * p;
            if (!plain && chance(random, 20)) x = -p * below(random, 4);
        }
        return result;
    }
    // Of a rank that is likely to be `rank`.
    BigGrid of_rank(int32_t rows, int32_t columns, int32_t rank, const mpz_class &p) {
        return product(grid(rows, rank, p, true), grid(rank, columns, p, true), p);
    }

  private:
    gmp_randclass source_;
};

Object make_integers(const std::string &name, const BigGrid &grid, int32_t order, int32_t subtype = MODLA_MATRIX) {
    const Object table = make_table({MODLA_INTEGER, order}, subtype, grid.rows, grid.columns);
    set_name(name, table);
    for (int32_t i = 0; i < grid.rows; i++) {
        for (int32_t j = 0; j < grid.columns; j++)
            set_entry(table_of(table), i + 1, j + 1, integer_object(grid.at(i, j)));
    }
    return table;
}

// The entries, each of them a residue in the host's normal form.
BigGrid residues_of(Object table, const mpz_class &p) {
    const Table &t = table_of(table);
    BigGrid result(table_rows(t), table_columns(t));
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
BigGrid residues_of(const std::string &name, const mpz_class &p) {
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
    explicit FlintMatrix(const BigGrid &grid) {
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

TEST(LargeModuli, ReducedFormsOfPrimesAndTheirRank) {
    repeat(3, 1200, [](const Modulus &modulus, Numberer &numbers) {
        if (!modulus.prime) return;
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t m = any_size(random, 7, 20), n = any_size(random, 7, 20), low = std::min(m, n);
        const BigGrid A = chance(random, 50) ? numbers.grid(m, n, p) : numbers.of_rank(m, n, 1 + below(random, low), p);
        FlintNumber flint_p(p);
        fmpz_mod_mat_t flint;
        fmpz_mod_mat_init(flint, m, n, flint_p.value);
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) {
                fmpz_set_mpz(fmpz_mod_mat_entry(flint, i, j), mod(A.at(i, j), p).get_mpz_t());
            }
        }
        const slong rank = fmpz_mod_mat_rref(nullptr, flint);
        BigGrid form(m, n);
        for (int32_t i = 0; i < m; i++) {
            for (int32_t j = 0; j < n; j++) fmpz_get_mpz(form.at(i, j).get_mpz_t(), fmpz_mod_mat_entry(flint, i, j));
        }
        fmpz_mod_mat_clear(flint);
        make_integers("A", A, below(random, 2));
        EXPECT_EQ(error_of("RowReduce(p, A, -1, -1, 0, 0, 0, 'r', 0, 0, true)"), "");
        EXPECT_EQ(eval("r"), immediate(static_cast<int32_t>(rank)));
        EXPECT_EQ(residues_of("A", p), form);
        // The nullspace after the basis, in a square Matrix.
        BigGrid square(std::max(m, n), n);
        std::copy(A.entries.begin(), A.entries.end(), square.entries.begin());
        make_integers("N", square, below(random, 2));
        EXPECT_EQ(eval("MatBasis(p, N, " + std::to_string(m) + ", true)"), immediate(static_cast<int32_t>(rank)));
        const BigGrid basis = residues_of("N", p);
        for (int32_t k = static_cast<int32_t>(rank); k < n; k++) {
            for (int32_t i = 0; i < m; i++) {
                mpz_class sum;
                for (int32_t j = 0; j < n; j++) sum += A.at(i, j) * basis.at(k, j);
                EXPECT_EQ(mod(sum, p), 0);
            }
        }
    });
}

TEST(LargeModuli, DeterminantsAndSystemsForAnyModulus) {
    int solved = 0;
    repeat(4, 1200, [&](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        Random &random = numbers.random;
        const int32_t n = any_size(random, 6, 20), columns = any_size(random, 4, 10);
        const bool vector = chance(random, 40);
        const BigGrid A = chance(random, 80) ? numbers.grid(n, n, p) : numbers.of_rank(n, n, n - 1, p),
                      b = numbers.grid(n, vector ? 1 : columns, p);
        const int32_t order = below(random, 2);
        FlintNumber det;
        fmpz_mat_det(det.value, FlintMatrix(A).mat);
        make_integers("A", A, order);
        EXPECT_EQ(error_of("Determinant(p, A, -1, -1, 'd')"), "");
        EXPECT_EQ(integer_of(eval("d")), mod(det, p));
        residues_of("A", p);
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
        BigGrid reduced = b;
        for (mpz_class &x : reduced.entries) x = mod(x, p);
        EXPECT_EQ(product(A, residues_of("B", p), p), reduced);
        EXPECT_EQ(integer_of(eval("d")), mod(det, p));
        solved++;
    });
    EXPECT_GT(solved, 400 / share);
}

// The polynomial with some of the roots.
BigGrid with_roots(const Numbers &roots, unsigned chosen, const mpz_class &leading, const mpz_class &p) {
    BigGrid f(1, static_cast<int32_t>(roots.size()) + 3);
    f.at(0, 0) = leading;
    for (size_t k = 0; k < roots.size(); k++) {
        for (int32_t j = f.columns - 1; j >= 0 && chosen >> k & 1; j--) {
            f.at(0, j) = mod((j > 0 ? f.at(0, j - 1) : mpz_class(0)) - roots[k] * f.at(0, j), p);
        }
    }
    return f;
}

TEST(LargeModuli, GcdsHaveTheCommonRoots) {
    repeat(5, 900, [](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        if (!modulus.prime || p == 2) return;  // (roots differ)
        Numbers roots(6);
        for (mpz_class &x : roots) x = numbers.below_number(p);
        const int32_t rows = any_size(numbers.random, 4, 6);
        BigGrid A(rows, 9), gcd(rows, 9);
        unsigned common = 63;
        for (int32_t i = 0; i < rows; i++) {
            const unsigned chosen = numbers.random() | (1u << below(numbers.random, 6));
            const BigGrid f = with_roots(roots, chosen, 1 + numbers.below_number(p - 1), p);
            std::copy(f.entries.begin(), f.entries.end(), &A.at(i, 0));
            common &= chosen;
        }
        make_integers("A", A, below(numbers.random, 2));
        const int32_t degree = std::popcount(common);
        EXPECT_EQ(eval("MatGcd(p, A, " + std::to_string(rows) + ")"), immediate(degree));
        const BigGrid left = residues_of("A", p), f = with_roots(roots, common, left.at(0, degree), p);
        std::copy(f.entries.begin(), f.entries.end(), gcd.entries.begin());
        EXPECT_EQ(left, gcd);
    });
}

// The coefficients of the characteristic polynomial.
Numbers characteristic_polynomial(const BigGrid &A, const mpz_class &p) {
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
        const BigGrid A =
            chance(numbers.random, 50) ? numbers.grid(n, n, p) : numbers.of_rank(n, n, 1 + below(numbers.random, n), p);
        make_integers("A", A, below(numbers.random, 2));
        const std::string error = error_of("ZigZag(p, A)");
        const BigGrid form = residues_of("A", p);
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

// ---- Entries that are no integers, misuse ----

// A Matrix of host integers with a value of another kind in it.
void make_spoilt(const std::string &name, const std::string &value) {
    run(name + " := Create(10^20, 3, 3, 5, integer); " + name + "[1, 1] := 10^25");
    set_name("value", eval(value));
    static_cast<Object *>(table_of(eval(name)).data)[4] = eval("value");
}

TEST(HostIntegers, OtherEntriesAreRefusedAndNothingIsLost) {
    const std::string calls[] = {"Determinant(p, A, -1, -1, 'd')",
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
            for (const std::string &call : calls) {
                const std::string error = error_of(call);
                EXPECT_EQ(error,
                          "matrices of host integers cannot be worked on with the entry " + to_line(eval("value")))
                    << call;
                EXPECT_EQ(everything(), before) << call << " with " << value;
                EXPECT_FALSE(is_assigned("d")) << call;
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

// A statement over tables of its own: # stands for their number, ~ for their rows, % for the modulus, @ for the datatype.
using Instance = std::array<const char *, 4>;
std::string run_instance(const std::string &statement, const Instance &instance) {
    std::string text =
        "A# := Create(%, ~, ~, 1, @); B# := Create(%, ~, ~, 2, @); C# := Create(%, ~, ~, 0, @); d# := 0; r# := 0\n"
        "P# := Create(7, ~, 0, 0, integer)\n"
        "for i to ~ do for j to ~ do A#[i, j] := (i^3 + 2^(i*j)) mod 97 + 1; B#[i, j] := (5*i + j*j) mod 89 end end\n" +
        statement + "\nprint(A#, B#, C#, P#, d#, r#)";
    for (size_t k = 0; k < instance.size(); k++) {
        for (size_t at; (at = text.find("#~%@"[k])) != std::string::npos;) text.replace(at, 1, instance[k]);
    }
    return run(text);
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
        const Instance instances[] = {{"1", "4", "10^20 + 39", "integer"},
                                      {"2", "6", "10^30 + 57", "integer"},
                                      {"3", "3", "101", "integer"},
                                      {"4", "5", "65521", "integer[4]"},
                                      {"5", "5", "65521", "float[8]"}};
        std::vector<std::string> expected;
        for (const Instance &instance : instances) {
            expected.push_back(run_instance(statement, instance));
            EXPECT_EQ(expected.back().find("Error"), std::string::npos) << expected.back();
        }
        size_t depth = 0, calls = 0;
        const Callback callback(
            name, [&, name = std::string(name), statement = statement](const std::vector<Object> &arguments) {
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
        return name + "(" + joined(arguments) + ")";
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

TEST(Mod, LargeModuli) {
    repeat(9, 600, [](const Modulus &modulus, Numberer &numbers) {
        const mpz_class &p = modulus.p;
        const BigGrid A = numbers.grid(2, 3, p);
        make_integers("A", A, below(numbers.random, 2));
        BigGrid expected = A;
        for (mpz_class &x : expected.entries) x = mod(x, p);
        EXPECT_EQ(residues_of("Mod(p, A, integer)", p), expected);
        EXPECT_EQ(error_of("B := Create(p, 4, 5, 1, integer); Mod(p, A, B, 2..3, 3..5); Mod(p, A, A)"), "");
        EXPECT_EQ(residues_of("A", p), expected);
        const BigGrid B = residues_of("B", p);
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

}  // namespace
