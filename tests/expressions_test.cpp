// Expressions of the console: their values against GMP before and after simplification, their normal form, their text,
// and their way through Mod.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "console/algebra.h"
#include "console/compare.h"
#include "console/number.h"
#include "console/polynomial.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

// ---- Random expressions as trees ----

struct Tree {
    enum Kind { number, unit, variable, polynomial, sum, difference, product, quotient, power, negation } kind;
    mpz_class value = 0;  // number
    int index = 0;        // variable; of a polynomial, too
    int exponent = 0;     // power
    std::vector<mpz_class> coefficients = {};
    std::vector<Tree> parts = {};
};

const std::vector<std::string> variables = {"x", "y", "z", "v[1]"};

struct Kinds {
    bool unit = false, polynomials = false;
    mpz_class modulus = 0;  // of polynomials
    bool constants = false;
};

mpz_class random_number(Random &random) {
    mpz_class value = static_cast<unsigned long>(below(random, 10));
    if (chance(random, 10)) value += (mpz_class(1) << 30) - 5;
    if (chance(random, 10)) value *= mpz_class("987654321987654321987654321");
    return value;
}

Tree random_tree(Random &random, int depth, const Kinds &kinds) {
    if (depth == 0 || chance(random, 20)) {
        if (kinds.unit && chance(random, 15)) return {Tree::unit};
        if (kinds.polynomials && chance(random, 15)) {
            Tree result{Tree::polynomial, 0, below(random, 4)};
            for (size_t n = below(random, pick(random, {4, 40})); n > 0; n--) {
                result.coefficients.push_back(chance(random, 50) ? random_number(random) : mpz_class(0));
            }
            return result;
        }
        if (kinds.constants || chance(random, 35)) return {Tree::number, random_number(random)};
        return {Tree::variable, 0, below(random, 4)};
    }
    const auto kind = pick(random, {Tree::sum, Tree::sum, Tree::difference, Tree::product, Tree::product,
                                    Tree::quotient, Tree::power, Tree::negation});
    Tree result{kind};
    const bool many = kind == Tree::sum || kind == Tree::product;
    const int count = many ? 2 + below(random, 2) : kind == Tree::power || kind == Tree::negation ? 1 : 2;
    if (kind == Tree::power) result.exponent = pick(random, {-3, -2, -1, 0, 2, 3, 4});
    for (int i = 0; i < count; i++) result.parts.push_back(random_tree(random, depth - 1, kinds));
    return result;
}

std::string polynomial_text(const Tree &tree) {
    std::string result = "0";
    for (size_t i = 0; i < tree.coefficients.size(); i++) {
        result += " + " + tree.coefficients[i].get_str() + "*" + variables[static_cast<size_t>(tree.index)] + "^" +
                  std::to_string(i);
    }
    return result;
}

// Every operation in parentheses.  Shuffled, the same value in another way: terms of a sum in any order and grouping,
// the factors of a product of two exchanged.
std::string text_of(const Tree &tree, const Kinds &kinds, Random *shuffle = nullptr) {
    const auto part = [&](size_t i) { return text_of(tree.parts[i], kinds, shuffle); };
    switch (tree.kind) {
        case Tree::number:
            return tree.value.get_str();
        case Tree::unit:
            return "I";
        case Tree::variable:
            return variables[static_cast<size_t>(tree.index)];
        case Tree::polynomial:
            return "modp1(" + polynomial_text(tree) + ", " + kinds.modulus.get_str() + ", " +
                   variables[static_cast<size_t>(tree.index)] + ")";
        case Tree::power:
            return "(" + part(0) + "^" + std::to_string(tree.exponent) + ")";
        case Tree::negation:
            return "(-" + part(0) + ")";
        default:
            break;
    }
    std::vector<std::string> parts;
    for (size_t i = 0; i < tree.parts.size(); i++) parts.push_back(part(i));
    const bool sum = tree.kind == Tree::sum, pair = tree.kind == Tree::product && parts.size() == 2;
    if (shuffle && (sum || pair)) std::shuffle(parts.begin(), parts.end(), *shuffle);
    const std::string op = sum                             ? " + "
                           : tree.kind == Tree::product    ? " * "
                           : tree.kind == Tree::difference ? " - "
                                                           : " / ";
    if (shuffle && sum && parts.size() == 3) return "(" + parts[0] + op + "(" + parts[1] + op + parts[2] + "))";
    std::string result = "(" + parts[0];
    for (size_t i = 1; i < parts.size(); i++) result += op + parts[i];
    return result + ")";
}

// ---- The ring to evaluate in; an inverse that does not exist is no value ----

struct Undefined {};

struct Residues {
    std::vector<mpz_class> point;
    mpz_class p, unit;

    mpz_class reduce(const mpz_class &n) const {
        mpz_class r;
        mpz_mod(r.get_mpz_t(), n.get_mpz_t(), p.get_mpz_t());
        return r;
    }
    mpz_class inverse(const mpz_class &a) const {
        mpz_class r;
        if (mpz_invert(r.get_mpz_t(), a.get_mpz_t(), p.get_mpz_t()) == 0) throw Undefined();
        return r;
    }
};

mpz_class to_power(const Residues &ring, const mpz_class &base, int exponent) {
    mpz_class result = 1;
    for (int i = 0; i < std::abs(exponent); i++) result = ring.reduce(result * base);
    return exponent < 0 ? ring.inverse(result) : result;
}

mpz_class horner(const Residues &ring, const std::vector<mpz_class> &coefficients, int index) {
    mpz_class result = 0;
    for (size_t i = coefficients.size(); i-- > 0;) {
        result = ring.reduce(result * ring.point[static_cast<size_t>(index)] + coefficients[i]);
    }
    return result;
}

mpz_class value_of(const Residues &ring, const Tree &tree) {
    std::vector<mpz_class> parts;
    for (const Tree &part : tree.parts) parts.push_back(value_of(ring, part));
    switch (tree.kind) {
        case Tree::number:
            return ring.reduce(tree.value);
        case Tree::unit:
            return ring.unit;
        case Tree::variable:
            return ring.point[static_cast<size_t>(tree.index)];
        case Tree::polynomial:
            return horner(ring, tree.coefficients, tree.index);
        case Tree::difference:
            return ring.reduce(parts[0] - parts[1]);
        case Tree::quotient:
            return ring.reduce(parts[0] * ring.inverse(parts[1]));
        case Tree::power:
            return to_power(ring, parts[0], tree.exponent);
        case Tree::negation:
            return ring.reduce(-parts[0]);
        default:
            break;
    }
    mpz_class result = tree.kind == Tree::sum ? 0 : 1;
    for (const mpz_class &part : parts) {
        result = tree.kind == Tree::sum ? mpz_class(result + part) : mpz_class(result * part);
    }
    return ring.reduce(result);
}

// The same for values of the console, read from their words as a user of the library's interface would.
mpz_class value_of(const Residues &ring, Object x) {
    for (size_t i = 0; i < variables.size(); i++) {
        if (x == eval(variables[i])) return ring.point[i];
    }
    if (is_integer(x)) return ring.reduce(integer_of(x));
    const auto part = [&](uint32_t i) { return value_of(ring, words(x)[i]); };
    const uint32_t length = length_of(x);
    switch (type_of(x)) {
        case 3:
            return ring.reduce(part(1) * ring.inverse(part(2)));
        case 6:
            return ring.reduce((length == 3 ? part(1) : mpz_class(0)) + part(length - 1) * ring.unit);
        case 14:
        case 16: {
            const bool sum = type_of(x) == 16;
            mpz_class result = sum ? 0 : 1;
            for (uint32_t i = 1; i < length; i += 2) {
                if (sum)
                    result += part(i) * part(i + 1);
                else
                    result *= to_power(ring, part(i), immediate_value(words(x)[i + 1]));
            }
            return ring.reduce(result);
        }
        case 17: {
            std::vector<mpz_class> coefficients;
            const bool raw = immediate_value(words(x)[2]) <= 46327;
            for (uint32_t i = 3; i < length; i++) {
                coefficients.push_back(raw ? mpz_class(words(x)[i]) : mpz_class(immediate_value(words(x)[i])));
            }
            int index = 0;
            while (words(x)[1] != eval(variables[static_cast<size_t>(index)])) index++;
            return horner(ring, coefficients, index);
        }
        default:
            ADD_FAILURE() << "type " << type_of(x);
            throw Undefined();
    }
}

template <class Source>
std::optional<mpz_class> try_value(const Residues &ring, const Source &source) {
    try {
        return value_of(ring, source);
    } catch (const Undefined &) {
        return std::nullopt;
    }
}

// The value of a text; none when it divides by 0.
std::optional<Object> evaluated(const std::string &text) {
    try {
        return eval(text);
    } catch (const HostError &error) {
        EXPECT_EQ(std::string(error.what()), "division by zero") << text;
        return std::nullopt;
    }
}

void expect_normal_form(Object x) {
    if (is_scalar(x) || has_type(x, type_name) || has_type(x, type_indexed) || has_type(x, type_polynomial)) return;
    ASSERT_TRUE(is_unique(x));
    const bool sum = has_type(x, type_sum), number_last = sum;
    for (uint32_t i = 1; i < length_of(x); i++) expect_normal_form(words(x)[i]);
    if (has_type(x, type_power)) return;
    const uint32_t pairs = length_of(x) / 2;
    ASSERT_EQ(length_of(x), 2 * pairs + 1);
    if (pairs == 1) {
        ASSERT_NE(words(x)[2], immediate(1)) << to_text(x);
        ASSERT_TRUE(!sum || !is_scalar(words(x)[1])) << to_text(x);
    }
    for (uint32_t i = 0; i < pairs; i++) {
        const Object key = words(x)[2 * i + 1], value = words(x)[2 * i + 2];
        ASSERT_TRUE(is_number(value) && !is_zero(value)) << to_text(x);
        ASSERT_TRUE(!sum || is_integer(value) || has_type(value, type_float)) << to_text(x);
        ASSERT_TRUE(!has_type(key, type_sum) || (!sum && length_of(key) > 3) || !is_integer(value)) << to_text(x);
        if (is_scalar(key)) {
            ASSERT_TRUE(value == immediate(1) ? i == (number_last ? pairs - 1 : 0) : has_type(value, type_rational));
        }
        if (i + 1 < pairs && !is_scalar(words(x)[2 * i + 3])) {
            ASSERT_LT(compare_expressions(key, words(x)[2 * i + 3]), 0) << to_text(x);
        }
    }
}

void forget_variables() {
    for (const char *name : {"x", "y", "z", "v", "n", "m"}) unassign(name);
}

// ---- Values, normal form and text ----

TEST(Expressions, HaveTheirValuesBeforeAndAfterSimplification) {
    forget_variables();
    Random random(1);
    int compared = 0;
    for (int round = 0; round < 4000 / slowness; round++) {
        const Kinds kinds{true, false, 0, round % 4 == 0};
        const Tree tree = random_tree(random, 1 + round % 8, kinds);
        const std::string text = text_of(tree, kinds);
        if (text.size() > 2000) continue;
        const auto object = evaluated(text);
        if (object) expect_normal_form(*object);
        if (HasFatalFailure()) FAIL() << text;
        for (int k = 0; k < 3; k++) {
            Residues ring{{}, 998244353, 86583718};  // a prime, a square root of -1
            for (size_t i = 0; i < variables.size(); i++) {
                ring.point.push_back(k == 2 && chance(random, 20) ? 0 : below(random, 998244353));
            }
            const auto expected = try_value(ring, tree);
            if (!expected) continue;
            ASSERT_TRUE(object) << text;
            const auto value = try_value(ring, *object);
            ASSERT_TRUE(value == expected) << text << " became " << to_text(*object);
            compared++;
        }
    }
    EXPECT_GT(compared, 4000 / slowness);
}

TEST(Expressions, AreTheSameObjectHoweverTheyWereWritten) {
    forget_variables();
    Random random(2);
    const Kinds kinds{true, true, 65521};
    for (int round = 0; round < 3000 / slowness; round++) {
        const Tree tree = random_tree(random, 1 + round % 7, kinds);
        const std::string text = text_of(tree, kinds), shuffled = text_of(tree, kinds, &random);
        if (text.size() > 2000) continue;
        const auto a = evaluated(text), b = evaluated(shuffled);
        ASSERT_EQ(a.has_value(), b.has_value()) << text;
        if (!a) continue;
        ASSERT_TRUE(is_scalar(*a) ? same_value(*a, *b) : *a == *b) << to_text(*a) << " and " << to_text(*b);
    }
}

const Grammar texts = read_grammar(MODLA_TESTS "/expressions.txt");

TEST(Expressions, TheirTextGivesThemAgain) {
    forget_variables();
    Random random(3);
    std::set<uint32_t> types;
    for (int round = 0; round < 6000 / slowness; round++) {
        const std::string source = random_text(random, texts, "&E", 1 + round % 6);
        Object x;
        try {
            x = eval(source);
        } catch (const HostError &error) {
            const std::set<std::string> expected = {"division by zero", "result too large"};
            ASSERT_TRUE(expected.count(error.what())) << source << ": " << error.what();
            continue;
        }
        const std::string text = to_text(x);
        if (text.find("nan") != std::string::npos) continue;  // not equal to itself in every way
        const Object again = eval(text);
        ASSERT_TRUE(is_scalar(x) ? same_value(x, again) : x == again)
            << source << " prints as " << text << ", which gives " << to_text(again);
        if (!is_immediate(x)) types.insert(type_of(x));
        const std::string list = "[" + text + ", {" + text + "}, " + text + " = " + text + "]";
        ASSERT_TRUE(same_value(eval(list), eval(to_text(eval(list))))) << list;
    }
    for (const uint32_t type : {3u, 5u, 6u, 13u, 14u, 16u, 17u}) EXPECT_TRUE(types.count(type)) << type;
}

// ---- Memory ----

TEST(Expressions, AreGivenBackAndSoAreConstantsOfTexts) {
    const auto objects = [] {
        collect_garbage();
        collect_garbage();  // a procedure holds the constants of its text until it is collected
        return heap_statistics().objects;
    };
    const size_t before = objects();
    for (int i = 0; i < 2000; i++) {
        run("e := x^" + std::to_string(i + 2) + " + 123456789123456789*y; f := proc() 98765432109876543 - " +
            std::to_string(i) + ".5 end; f()");
    }
    // (A minute's work where sanitizers watch it.)
    if (slowness == 1) {
        EXPECT_EQ(error_of("expand((x + y + z + 1)^(10^6))"), "expression too large");
    }
    EXPECT_LT(objects(), before + 500);
    EXPECT_EQ(run("f()"), "98765432109874544.0\n") << "a procedure keeps its constants";
}

// ---- Mod ----

// A square root of -1, or any residue.
mpz_class random_unit(Random &random, const mpz_class &p, bool *root) {
    std::vector<mpz_class> roots;
    for (unsigned u = 0; u < 1000 && p > u; u++) {
        if ((mpz_class(u) * u + 1) % p == 0) roots.push_back(u);
    }
    if (p == 65521) roots.push_back(41224);
    *root = !roots.empty() && chance(random, 80);
    return *root ? pick(random, roots) : mpz_class(static_cast<unsigned long>(below(random, p.get_ui())));
}

TEST(Mod, RandomExpressionsHaveTheirResidues) {
    forget_variables();
    Random random(4);
    int compared = 0, refused = 0;
    for (int round = 0; round < 2500 / slowness; round++) {
        const bool words_only = chance(random, 50);
        const mpz_class p = words_only ? pick(random, {2, 5, 13, 25, 65, 210, 46327, 46328, 65521, 65535})
                                       : pick(random, {2, 5, 13, 65521, 65536, 10000019, 33554393, 33554431});
        const Kinds kinds{true, true, p};
        bool root = false;
        Residues ring{{}, p, 0};
        ring.unit = random_unit(random, p, &root);
        for (size_t i = 0; i < variables.size(); i++) ring.point.push_back(ring.reduce(random_number(random)));
        std::string list, values = "[I = " + ring.unit.get_str();
        for (size_t i = 0; i < variables.size(); i++) {
            values += ", " + variables[i] + " = " + ring.point[i].get_str();
        }
        Roots objects;
        std::vector<std::optional<mpz_class>> expected;
        bool defined = true;
        for (size_t count = 1 + below(random, 4); count > 0; count--) {
            const Tree tree = random_tree(random, 1 + round % 8, kinds);
            const std::string text = text_of(tree, kinds);
            const auto object = text.size() < 2000 ? evaluated(text) : std::nullopt;
            if (!object) continue;
            objects.values.push_back(*object);
            expected.push_back(try_value(ring, *object));
            defined &= expected.back().has_value();
            // What is defined before simplification keeps its value.
            const auto plain = try_value(ring, tree);
            const bool real = text.find('I') == std::string::npos;
            ASSERT_TRUE(!plain || !real || expected.back()) << text << values << " mod " << p;
            if (plain && expected.back() && (real || root)) {
                ASSERT_EQ(*expected.back(), *plain) << text << values << " mod " << p;
            }
        }
        if (objects.values.empty()) continue;
        set_name("expressions", new_collection(type_list, objects.values));
        const std::string datatype = words_only ? "integer[4]" : "float[8]";
        const std::string call = "Mod(" + p.get_str() + ", expressions, " + values + "], " + datatype + ")";
        if (!defined) {
            ASSERT_EQ(error_of(call), "division by zero") << call << to_text(eval("expressions"));
            refused++;
            continue;
        }
        const Object vector = eval(call);
        for (size_t i = 0; i < expected.size(); i++) {
            const Object residue = get_entry_integer(table_of(vector), static_cast<int32_t>(i + 1), 1);
            ASSERT_EQ(integer_of(residue), *expected[i]) << call << to_text(objects.values[i]);
            compared++;
        }
    }
    EXPECT_GT(compared, 2000 / slowness);
    EXPECT_GT(refused, 100 / slowness);
}

}  // namespace
