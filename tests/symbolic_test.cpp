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
#include "fake_host.h"
#include "session.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::pick, modla_test::Random;
using modla_test::error_of, modla_test::eval, modla_test::run, modla_test::set_name, modla_test::unassign;

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
        if (chance(random, 35)) return {Tree::number, random_number(random)};
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

// ---- Rings to evaluate in; an inverse that does not exist is no value ----

struct Undefined {};

struct Gaussian {
    mpq_class re = 0, im = 0;
    bool operator==(const Gaussian &) const = default;
};

struct Rationals {
    using Element = Gaussian;
    std::vector<Gaussian> point;

    Gaussian integer(const mpz_class &n) const { return {mpq_class(n), 0}; }
    Gaussian unit() const { return {0, 1}; }
    Gaussian add(const Gaussian &a, const Gaussian &b) const { return {a.re + b.re, a.im + b.im}; }
    Gaussian multiply(const Gaussian &a, const Gaussian &b) const {
        return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
    }
    Gaussian inverse(const Gaussian &a) const {
        const mpq_class norm = a.re * a.re + a.im * a.im;
        if (norm == 0) throw Undefined();
        return {a.re / norm, -a.im / norm};
    }
};

struct Residues {
    using Element = mpz_class;
    std::vector<mpz_class> point;
    mpz_class p, unit_value;

    mpz_class reduce(const mpz_class &n) const {
        mpz_class r;
        mpz_mod(r.get_mpz_t(), n.get_mpz_t(), p.get_mpz_t());
        return r;
    }
    mpz_class integer(const mpz_class &n) const { return reduce(n); }
    mpz_class unit() const { return unit_value; }
    mpz_class add(const mpz_class &a, const mpz_class &b) const { return reduce(a + b); }
    mpz_class multiply(const mpz_class &a, const mpz_class &b) const { return reduce(a * b); }
    mpz_class inverse(const mpz_class &a) const {
        mpz_class r;
        if (mpz_invert(r.get_mpz_t(), a.get_mpz_t(), p.get_mpz_t()) == 0) throw Undefined();
        return r;
    }
};

template <class Ring>
typename Ring::Element to_power(const Ring &ring, const typename Ring::Element &base, int exponent) {
    auto result = ring.integer(1);
    for (int i = 0; i < std::abs(exponent); i++) result = ring.multiply(result, base);
    return exponent < 0 ? ring.inverse(result) : result;
}

template <class Ring>
typename Ring::Element horner(const Ring &ring, const std::vector<mpz_class> &coefficients, int index) {
    auto result = ring.integer(0);
    for (size_t i = coefficients.size(); i-- > 0;) {
        result = ring.add(ring.multiply(result, ring.point[static_cast<size_t>(index)]), ring.integer(coefficients[i]));
    }
    return result;
}

template <class Ring>
typename Ring::Element value_of(const Ring &ring, const Tree &tree) {
    std::vector<typename Ring::Element> parts;
    for (const Tree &part : tree.parts) parts.push_back(value_of(ring, part));
    const auto minus = [&](const auto &a) { return ring.multiply(ring.integer(-1), a); };
    switch (tree.kind) {
        case Tree::number:
            return ring.integer(tree.value);
        case Tree::unit:
            return ring.unit();
        case Tree::variable:
            return ring.point[static_cast<size_t>(tree.index)];
        case Tree::polynomial:
            return horner(ring, tree.coefficients, tree.index);
        case Tree::difference:
            return ring.add(parts[0], minus(parts[1]));
        case Tree::quotient:
            return ring.multiply(parts[0], ring.inverse(parts[1]));
        case Tree::power:
            return to_power(ring, parts[0], tree.exponent);
        case Tree::negation:
            return minus(parts[0]);
        default:
            break;
    }
    auto result = ring.integer(tree.kind == Tree::sum ? 0 : 1);
    for (const auto &part : parts) {
        result = tree.kind == Tree::sum ? ring.add(result, part) : ring.multiply(result, part);
    }
    return result;
}

// The same for values of the console, read from their words as a user of the library's interface would.
template <class Ring>
typename Ring::Element value_of(const Ring &ring, Object x) {
    for (size_t i = 0; i < variables.size(); i++) {
        if (x == eval(variables[i])) return ring.point[i];
    }
    if (is_integer(x)) return ring.integer(integer_of(x));
    const auto part = [&](uint32_t i) { return value_of(ring, words(x)[i]); };
    const uint32_t length = length_of(x);
    switch (type_of(x)) {
        case 3:
            return ring.multiply(part(1), ring.inverse(part(2)));
        case 6:
            return ring.add(length == 3 ? part(1) : ring.integer(0), ring.multiply(part(length - 1), ring.unit()));
        case 14:
        case 16: {
            const bool sum = type_of(x) == 16;
            auto result = ring.integer(sum ? 0 : 1);
            for (uint32_t i = 1; i < length; i += 2) {
                if (sum)
                    result = ring.add(result, ring.multiply(part(i), part(i + 1)));
                else
                    result = ring.multiply(result, to_power(ring, part(i), immediate_value(words(x)[i + 1])));
            }
            return result;
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

template <class Ring, class Source>
std::optional<typename Ring::Element> try_value(const Ring &ring, const Source &source) {
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

Gaussian random_rational(Random &random, bool zero) {
    mpq_class value(below(random, 19) - 9, 1 + below(random, 6));
    value.canonicalize();
    return {value == 0 && !zero ? mpq_class(1) : value, 0};
}

void forget_variables() {
    for (const char *name : {"x", "y", "z", "v", "n", "m"}) unassign(name);
}

// ---- Values, normal form and text ----

TEST(Expressions, HaveTheirValuesBeforeAndAfterSimplification) {
    forget_variables();
    Random random(1);
    const Kinds kinds{true};
    int compared = 0;
    for (int round = 0; round < 3000; round++) {
        const Tree tree = random_tree(random, 1 + round % 8, kinds);
        const std::string text = text_of(tree, kinds);
        if (text.size() > 2000) continue;
        const auto object = evaluated(text);
        if (object) expect_normal_form(*object);
        if (HasFatalFailure()) FAIL() << text;
        for (int k = 0; k < 3; k++) {
            Rationals ring;
            for (size_t i = 0; i < variables.size(); i++) ring.point.push_back(random_rational(random, k == 2));
            const auto expected = try_value(ring, tree);
            if (!expected) continue;
            ASSERT_TRUE(object) << text;
            const auto value = try_value(ring, *object);
            ASSERT_TRUE(value == expected) << text << " became " << to_text(*object);
            compared++;
        }
    }
    EXPECT_GT(compared, 4000);
}

TEST(Expressions, AreTheSameObjectHoweverTheyWereWritten) {
    forget_variables();
    Random random(2);
    const Kinds kinds{true, true, 65521};
    for (int round = 0; round < 3000; round++) {
        const Tree tree = random_tree(random, 1 + round % 7, kinds);
        const std::string text = text_of(tree, kinds), shuffled = text_of(tree, kinds, &random);
        if (text.size() > 2000) continue;
        const auto a = evaluated(text), b = evaluated(shuffled);
        ASSERT_EQ(a.has_value(), b.has_value()) << text;
        if (!a) continue;
        ASSERT_TRUE(is_scalar(*a) ? same_value(*a, *b) : *a == *b) << to_text(*a) << " and " << to_text(*b);
    }
}

// Every kind of value that has a text to be read.
std::string random_text(Random &random, int depth) {
    if (depth == 0 || chance(random, 15)) {
        static const std::vector<std::string> leaves = {"x",
                                                        "y",
                                                        "n",
                                                        "v[1]",
                                                        "v[x, 2]",
                                                        "I",
                                                        "2",
                                                        "7",
                                                        "10^20",
                                                        "1.5",
                                                        "1e300",
                                                        "0.25",
                                                        "infinity",
                                                        "(-3)",
                                                        "modp1(x^2 + 3*x, 7)",
                                                        "modp2(x*y^2 + 40000, 65521, [y, x])",
                                                        "modp1(5, 46327, y)"};
        return pick(random, leaves);
    }
    const std::string a = random_text(random, depth - 1), b = random_text(random, depth - 1);
    switch (below(random, 9)) {
        case 0:
            return "(" + a + ")^(" + pick<std::string>(random, {"1/2", "-2/3", "n", "2*n + 1", "10^20", "0.5", "y"}) +
                   ")";
        case 1:
            return "(" + a + ")^" + std::to_string(below(random, 4));
        case 2:
            return "-(" + a + ")";
        default:
            return "(" + a + pick<std::string>(random, {" + ", " - ", " * ", " / ", "*"}) + b + ")";
    }
}

TEST(Expressions, TheirTextGivesThemAgain) {
    forget_variables();
    Random random(3);
    std::set<uint32_t> types;
    for (int round = 0; round < 6000; round++) {
        const std::string source = random_text(random, 1 + round % 6);
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

TEST(Expressions, SimplifyAsAReaderExpects) {
    forget_variables();
    const std::pair<const char *, const char *> cases[] = {
        {"x^2 + 3*x*y - 1/2", "x^2 + 3*x*y - 1/2"},
        {"2*x; 2*x - 2*x; x + 0; 1*x; 0*x; x - x/3", "2*x|0|x|x|0|2/3*x"},
        {"x*x; x/x; x^3/x; (x^2)^3; x^0; x^1; 1/x/y; y^2*x", "x^2|1|x^2|x^6|1|x|1/x/y|x*y^2"},
        {"(2*x)^3; (2*x)^-2; (-x)^3; (-x)^(10^20); (x*y)^2", "8*x^3|1/4/x^2|-x^3|x^100000000000000000000|x^2*y^2"},
        {"x/2; 1.5*x; 2*(x + y); (x + y)/3; (x + y)^2/(x + y)", "1/2*x|1.5*x|2*x + 2*y|1/3*x + 1/3*y|x + y"},
        {"(x + 1)^2; 2*((x + 1)*(y + 1)); -((x + 1)*y)", "(x + 1)^2|2*((x + 1)*(y + 1))|-y*(x + 1)"},
        {"x^n; x^n*x; x^n*x^n; x^n/x^n; (x^n)^2; (x^n)^m", "x^n|x^(n + 1)|x^(2*n)|1|x^(2*n)|(x^n)^m"},
        {"x^(1/2)*x^(1/2); x^(1/2)^2; (x*y)^(1/2)*(x*y)^(1/2)*x", "x|x^(1/4)|x^2*y"},
        {"2^(1/2); 2^(3/2); 2^(-1/2); 2^(1/2)*2^(1/2); 8^(2/3)", "2^(1/2)|2^(3/2)|1/2^(1/2)|2|8^(2/3)"},
        {"(-4)^(1/2); (2/3)^(-1/2); 1^(1/2); 0^(1/2); x*2^(1/2)*2^(3/2)", "(-4)^(1/2)|1/(2/3)^(1/2)|1|0|4*x"},
        {"I^2; I^3; I^(10^20 + 1); 1/I; (2 + 3*I)*(2 - 3*I); (1 + I)^-2", "-1|-I|I|-I|13|-1/2*I"},
        {"I*x; (1 + 2*I)*x; x + I - 1; 1.5*I; I - I; 2*I/4", "I*x|(1 + 2*I)*x|x + (-1 + I)|1.5*I|0|1/2*I"},
        {"2^x; 0^x; 1^x; 2*2^x; 2^I; (1 + I)^(1/2)", "2^x|0^x|1|2*2^x|2^I|(1 + I)^(1/2)"},
        {"y + x + x^2 + y^2 + x*y + 1", "x^2 + x*y + y^2 + x + y + 1"},
        {"v[1] + v[1]; v[2] - v[1]; v[\"a\"]/2", "2*v[1]|-v[1] + v[2]|1/2*v[\"a\"]"},
        {"modp1(2*x^2 + 9*x - 1, 7); modp1(3, 5, x); modp1(7*x, 7)",
         "modp1(2*x^2 + 2*x + 6, 7, x)|modp1(3, 5, x)|modp1(0, 7, x)"},
        {"modp1((x + 1)^5 - x^5, 65521); modp2(2*x*y + y/2, 3)",
         "modp1(5*x^4 + 10*x^3 + 10*x^2 + 5*x + 1, 65521, x)|modp2(2*x*y + 2*y, 3, [x, y])"},
        {"expand((x + y)^3 - (x - y)*(x + y)); expand(((x + 1)^2 + I)^2)",
         "x^3 + 3*x^2*y + 3*x*y^2 + y^3 - x^2 + y^2|x^4 + 4*x^3 + (6 + 2*I)*x^2 + (4 + 4*I)*x + 2*I"},
        {"coefficient((x + 2*y)^5, x, 3); coefficient(x^2 + 7, x, 0); coefficient(y/x, x, -1); coefficient(y, x, 1)",
         "40*y^2|7|y|0"},
        {"op(x^2 + 3*x - 1/2); op(3*x*y); op(x^2); op(x^n); op(2/3); op(1 + 2*I); op(x = 1); size(x + y + 1)",
         "x^2, 3*x, -1/2|3, x, y|x, 2|x, n|2, 3|1, 2|x, 1|3"},
        {"sort([x^2, [1], y, 3, x, I, x = 1]); unique([x + y, y + x, 2*I, 2*I]); bisect(x, sort([y, x, x^2]))",
         "[3, I, x^2, x, y, [1], x = 1]|[2*I, x + y]|2"},
        {"if x + y = y + x then 1 end; equal(x^2 - 1, (x - 1)*(x + 1)); equal(expand((x - 1)*(x + 1)), x^2 - 1)",
         "1|false|true"},
    };
    for (const auto &[program, outputs] : cases) {
        std::string expected = std::string(outputs) + "\n";
        std::replace(expected.begin(), expected.end(), '|', '\n');
        EXPECT_EQ(run(program), expected) << program;
    }
}

TEST(Expressions, NamesThatGetAValueAreReplaced) {
    forget_variables();
    EXPECT_EQ(run("e := x^2 + y; L := [x, e]; x := 3; e; L; eval(L); e*y; x := y + 1; e; x := 'x'; e"),
              "y + 9\n[x, x^2 + y]\n[3, y + 9]\ny*(y + 9)\n(y + 1)^2 + y\nx^2 + y\n");
    EXPECT_EQ(run("eval(x^2 + y, x = 1/2); eval([x = y, x..2], [x = y, y = x])"), "y + 1/4\n[y = x, y..2]\n");
    EXPECT_EQ(run("f := proc(t) s := t + x; x; s end; f(y)"), "x + y\n");
    EXPECT_EQ(run("x := 2; f(y); 'x' + 1; x := 'x'"), "y + 2\nx + 1\n");
    EXPECT_EQ(error_of("x := x + 1"), "recursive assignment of x");
    EXPECT_EQ(error_of("x := 'y' + 1; y := 'x' + 1; x"), "recursive assignment in y + 1");
    run("x := 'x'; y := 'y'");
    // A chain of names that mention the next one twice: each is evaluated once.
    std::string chain;
    for (int i = 1; i <= 60; i++) {
        const std::string next = "c" + std::to_string(i + 1);
        chain += "c" + std::to_string(i) + " := " + next + "^2 - " + next + "\n";
    }
    EXPECT_EQ(run(chain + "c61 := 2; c1"), "2\n");
    for (int i = 1; i <= 61; i++) unassign("c" + std::to_string(i));
}

TEST(Expressions, Errors) {
    forget_variables();
    const std::pair<const char *, const char *> cases[] = {
        {"x + \"a\"", "cannot compute with a"},
        {"x*[1]", "cannot compute with [1]"},
        {"integer[4] + 1", "cannot compute with integer[4]"},
        {"v[[1]] + 1", "cannot compute with v[[1]]"},
        {"-print", "cannot compute with <procedure>"},
        {"x/0", "division by zero"},
        {"0^(-1/2)", "division by zero"},
        {"(x - x)^-1", "division by zero"},
        {"2^(10^9)", "result too large"},
        {"2^(10^10)", "result too large"},
        {"(2*x)^(10^9)", "result too large"},
        {"(1 + I)^(10^8)", "result too large"},
        {"I < 1", "cannot compute with I"},
        {"x < 1", "cannot compute with x"},
        {"expand((x + y + z + 1)^(10^6))", "expression too large"},
        {"e := x; for i to 1000 do e := e^2 + 1 end", "expression nested too deeply"},
        {"e := x; for i to 1000 do e := e*e + e end", "expression too large"},
        {"modp1(x*y, 7)", "expected a polynomial in one variable, got x*y"},
        {"modp1(5, 7)", "expected a polynomial in one variable, got 5; name the variable in argument 3"},
        {"modp1(1/x, 7)", "the exponent -1 makes it no polynomial"},
        {"modp1(x + y, 7, x)", "expected a polynomial in x with integer coefficients, got y"},
        {"modp1(x/7, 7)", "the denominator has no inverse modulo 7"},
        {"modp1(x, 1)", "the modulus of a polynomial must be an integer from 2 to 1073741823"},
        {"modp1(x^(10^7), 7)", "polynomial too large"},
        {"modp1((x^3 + x + 1)^(10^5), 65521)", "expression too large"},
        {"modp2(x, 7)", "expected a polynomial in two variables, got x"},
        {"modp2(x, 7, [x, 3])", "expected a polynomial in two variables, got x and [x, 3]"},
        {"coefficient(x, 3, 1)", "3 is no variable"},
        {"op(3)", "3 has no operands"},
        {"eval(x, 3)", "argument 2 must be an equation or a list of them"},
        {"matrix([[1, 2], [3]])", "the rows of a Matrix must have the same number of entries"},
        {"matrix([[1]], float)", "expected a datatype, integer, integer[4] or float[8], got float"},
        {"matrix([[1.5]])", "1.5 is no entry for a 1 x 1 Matrix, integer, C_order"},
    };
    for (const auto &[program, message] : cases) EXPECT_EQ(error_of(program), message) << program;
}

// ---- Memory ----

TEST(Expressions, SurviveCollections) {
    forget_variables();
    const auto everything = [] {
        return run(
            "e := x; for i to 6 do e := (e + 10^20*i*y/3)^2 - x^(1/2)*2^n*I*v[i, \"t\"] + 1.5*z end; e\n"
            "L := [modp1(10^20*x^3 + x, 65521), modp2(6*x*y + 4, 7), modp1(46326*x + 40000, 46327), 2.5*I]; for i to "
            "50 do [i*x] end; L\n"
            "f := expand((x + y/2 + I)^4); f; coefficient(f, y, 2); eval([f, f = x], x = 2); op(f)\n"
            "matrix([[x + 1, 10^30], [I, y/2]]); sort([op(f), op(L)])");
    };
    const std::string expected = everything();
    set_collect_always(true);
    const std::string again = everything();
    set_collect_always(false);
    EXPECT_EQ(again, expected);
    EXPECT_EQ(expected.find("Error"), std::string::npos) << expected;
}

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
    for (int round = 0; round < 2500; round++) {
        const bool words_only = chance(random, 50);
        const mpz_class p = words_only ? pick(random, {2, 5, 13, 25, 65, 210, 46327, 46328, 65521, 65535})
                                       : pick(random, {2, 5, 13, 65521, 65536, 10000019, 33554393, 33554431});
        const Kinds kinds{true, true, p};
        bool root = false;
        Residues ring{{}, p, 0};
        ring.unit_value = random_unit(random, p, &root);
        for (size_t i = 0; i < variables.size(); i++) ring.point.push_back(ring.reduce(random_number(random)));
        std::string list, values = "[I = " + ring.unit_value.get_str();
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
        set_name("expressions", new_collection(type_list, new_sequence(objects.values)));
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
    EXPECT_GT(compared, 2000);
    EXPECT_GT(refused, 100);
}

TEST(Mod, EveryKindOfInputCanBeTyped) {
    forget_variables();
    const std::pair<const char *, const char *> cases[] = {
        {"Mod(7, [x^2, x], [x = 3, x^2 = 5], integer[4])", "[5]|[3]"},
        {"Mod(7, {x^2 + 1, x}, x = 3, float[8])", "[3.0]|[3.0]"},
        {"Mod(7, [[1, x], [-1]], {x = 3}, integer[4])", "[1 3]|[6 0]"},
        {"Mod(7, [[1, 2], [3, 4]], transpose, integer[4])", "[1 3]|[2 4]"},
        {"Mod(7, row_vector([-1, 10^20, 1/2, x, I]), [x = 3, I = 2], integer[4])", "[6 2 4 3 2]"},
        {"Mod(7, raw(Create(7, 2, 0, integer[4]), [-7, 13]), float[8])", "[0.0]|[6.0]"},
        {"Mod(7, raw(Create(7, 2, 2, float[8]), [-1, 2.5, 1e15, 2^53 - 1]), integer[4])", "[6 3]|[6 3]"},
        {"Mod(7, matrix([[1, 2, 3], [4, 5, 6]], integer, Fortran_order), 2, 2..3, integer[4])", "[5 6]"},
        {"Mod(7, [row_vector([1, 9], integer[4]), row_vector([4, 4], integer[4])], integer[4])", "[1 2]|[4 4]"},
        {"Mod(7, [column_vector([1, 9]), column_vector([-3, 4])], float[8])", "[1.0 4.0]|[2.0 4.0]"},
        {"A := matrix([[0, 0], [0, 0]], integer[4]); Mod(7, [[9, x]], x = 1, A, 2..2); A", "[0 0]|[2 1]"},
    };
    for (const auto &[program, outputs] : cases) {
        std::string expected = std::string(outputs) + "\n";
        std::replace(expected.begin(), expected.end(), '|', '\n');
        EXPECT_EQ(run(program), expected) << program;
    }
}

TEST(Mod, EveryMessageIsReached) {
    forget_variables();
    const std::string rhs = "rhs of evaluation must be an integer in the range 0..modulus-1";
    const std::string no_value = "unable to mod input, cannot evaluate ",
                      algebraic = "evaluation list/set can only be specified for algebraic input";
    const std::pair<std::string, std::string> inputs[] = {
        {"[x/7], x = 1", "division by zero"},
        {"[1/x], x = 0", "division by zero"},
        {"[1/(x + 1)], x = 6", "division by zero"},
        {"[x + I], x = 0", "unable to evaluate to modp values"},
        {"[x^n], [x = 2, n = 2]", "unable to mod input containing variable exponents"},
        {"[y*x^n], [x = 2, y = 2]", "unable to mod input containing variable exponents"},
        {"[x^(1/2)], x = 2", "exponent too large"},
        {"[x^(10^20)], x = 2", "exponent too large"},
        {"[2^(1/2)]", "internal error 2"},
        {"[1.5*x], x = 2", "internal error"},
        {"[modp2(x*y, 7)], [x = 1, y = 2]", "unable to mod input containing modp2 polynomials"},
        {"[modp1(x, 5)], x = 1", "modp1 polynomial modulus must be the same as the modp modulus"},
        {"[modp1(x, 7)]", no_value + "x to an integer"},
        {"[x*y], x = 1", no_value + "y to an integer"},
        {"[x + v[1]], x = 1", no_value + "v[1] to an integer"},
        {"[x^2 + 1.5], x = 1", no_value + "1.5 to an integer"},
        {"[\"text\"]", no_value + "text to an integer"},
        {"[x], []", "empty evaluation list/set not allowed"},
        {"[x], [3]", "evaluations must be a list/set of equations"},
        {"[x], x = 7", rhs},
        {"[x], [x = -1]", rhs},
        {"[x], [x = 1/2]", rhs},
        {"[x], [x = y]", rhs},
        {"row_vector([1], float[8]), x = 1", algebraic},
        {"matrix([[1]], integer[4]), [x = 1]", algebraic},
        {"raw(Create(7, 0, 1, float[8]), [2^53])", "float too large"},
        {"raw(Create(7, 0, 1, float[8]), [-infinity])", "float too large"},
        {"raw(Create(7, 0, 1, float[8]), [nan])", "invalid input type"},
        {"3", "argument 2 must be a set, list, or Matrix/Vector"},
        {"[]", "argument 2 cannot be an empty list/set"},
        {"[[], []]", "argument 2 cannot be an empty list/set"},
        {"[[1], 2]", "argument 2 cannot be a list/set with mixed object types"},
        {"[row_vector([1]), 2]", "argument 2 list/set elements must be lists, sets or vectors"},
        {"[row_vector([1]), column_vector([1])]", "argument 2 vectors must be of uniform type"},
        {"[row_vector([1]), row_vector([1], float[8])]", "argument 2 vectors must be of uniform type"},
        {"[row_vector([1]), row_vector([1, 2])]", "argument 2 vectors must have a uniform number of elements"},
        {"[row_vector([])]", "argument 2 vectors cannot be empty"},
        {"[[1, 2]], 2", "argument 2 row specification out of range"},
        {"[[1, 2], [3, 4]], 2..1", "argument 2 cannot have empty row range"},
        {"[[1, 2]], 1, 3", "argument 2 column specification out of range"},
        {"[[1, 2]], 1, 2..1", "argument 2 cannot have empty column range"},
    };
    for (const auto &[input, message] : inputs) {
        for (const char *datatype : {"integer[4]", "float[8]"}) {
            EXPECT_EQ(error_of("Mod(7, " + input + ", " + datatype + ")"), message) << input;
        }
    }
    const std::pair<std::string, std::string> calls[] = {
        {"Mod(7.0, [1], float[8])", "argument 1, the modulus, must be an integer"},
        {"Mod(7)", "too few arguments, expected input object for argument 2"},
        {"Mod(7, [1])", "too few arguments, expected output object or description for argument 3"},
        {"Mod(7, [1], float[8], 3)", "expected ordering for argument 4, got 3"},
        {"Mod(7, [1], float[8], C_order, 3)", "too many arguments, starting at argument 5, 3"},
        {"Mod(65536, [1], integer[4])", "modulus is too large for 'integer[4]' datatype, must be < 65536"},
        {"Mod(7, [[1], [2]], Create(7, 1, 1, integer[4]))", "input has too many rows for specified output"},
        {"Mod(7, [[1, 2]], Create(7, 1, 1, integer[4]))", "input has too many columns for specified output"},
    };
    for (const auto &[call, message] : calls) EXPECT_EQ(error_of(call), message) << call;
}

}  // namespace
