#include "console/polynomial.h"

#include <algorithm>
#include <map>
#include <unordered_set>

#include "console/algebra.h"
#include "console/error.h"
#include "console/number.h"
#include "console/print.h"

namespace modla::console {

namespace {

constexpr uint32_t largest_plain_modulus = 46327;  // above, coefficients are immediate integers
constexpr uint64_t most_coefficients = 1000000;
constexpr uint64_t most_steps = 20000000;  // multiplications of coefficients for one polynomial

using Exponents = std::pair<uint32_t, uint32_t>;
using Terms = std::map<Exponents, uint64_t>;  // no coefficient is 0

bool is_variable(Object x) {
    return has_type(x, type_name) || has_type(x, type_indexed);
}

// Reads an expression as a polynomial.
class Reader {
  public:
    Reader(Object modulus, Object x, Object y) : p_(static_cast<uint64_t>(immediate_value(modulus))), x_(x), y_(y) {
        modulus_ = modulus;
    }

    Terms read(Object e) {
        check_stack();
        if (is_number(e)) return constant(e);
        if (e == x_) return {{{1, 0}, 1}};
        if (e == y_) return {{{0, 1}, 1}};
        if (has_type(e, type_sum)) return sum(e);
        if (has_type(e, type_product)) return product(e);
        throw HostError("expected a polynomial in " + to_line(x_) + (y_ ? " and " + to_line(y_) : "") +
                        " with integer coefficients, got " + to_line(e));
    }

  private:
    Terms constant(Object number) {
        const int32_t residue = immediate_value(modulo(number, modulus_));
        if (residue == 0) return {};
        return {{{0, 0}, static_cast<uint64_t>(residue)}};
    }

    Terms sum(Object e) {
        Terms result;
        for (uint32_t i = 1; i < length_of(e); i += 2) {
            for (const auto &[exponents, c] : times(read(words(e)[i]), constant(words(e)[i + 1]))) {
                add(result, exponents, c);
            }
        }
        return result;
    }

    Terms product(Object e) {
        Terms result = {{{0, 0}, 1}};
        for (uint32_t i = 1; i < length_of(e); i += 2) {
            const Object exponent = words(e)[i + 1];
            const bool natural = is_immediate(exponent) && immediate_value(exponent) >= 0;
            if (!natural) throw HostError("the exponent " + to_line(exponent) + " makes it no polynomial");
            result = times(result, power(read(words(e)[i]), static_cast<uint32_t>(immediate_value(exponent))));
        }
        return result;
    }

    Terms power(Terms base, uint32_t exponent) {
        Terms result = {{{0, 0}, 1}};
        for (; exponent > 0; exponent /= 2) {
            if (exponent % 2) result = times(result, base);
            if (exponent > 1) base = times(base, base);
        }
        return result;
    }

    Terms times(const Terms &a, const Terms &b) {
        steps_ += (a.size() + 1) * (b.size() + 1);
        if (steps_ > most_steps) throw HostError("polynomial too large");
        Terms result;
        for (const auto &[e, c] : a) {
            for (const auto &[f, d] : b) {
                const uint64_t i = uint64_t{e.first} + f.first, j = uint64_t{e.second} + f.second;
                if (std::max(i, j) >= most_coefficients) throw HostError("polynomial too large");
                add(result, {static_cast<uint32_t>(i), static_cast<uint32_t>(j)}, c * d % p_);
            }
        }
        return result;
    }

    void add(Terms &terms, Exponents exponents, uint64_t c) const {
        const auto [at, is_new] = terms.try_emplace(exponents, c);
        if (!is_new) at->second = (at->second + c) % p_;
        if (at->second == 0) terms.erase(at);
    }

    uint64_t p_;
    Object modulus_, x_, y_;
    uint64_t steps_ = 0;
};

void collect_variables(Object e, std::unordered_set<Object> &seen, std::vector<Object> &variables) {
    check_stack();
    if (is_immediate(e) || !seen.insert(e).second) return;
    if (is_variable(e)) variables.push_back(e);
    if (!is_expression(e)) return;
    for (uint32_t i = 1; i < length_of(e); i++) collect_variables(words(e)[i], seen, variables);
}

std::vector<Object> variables_of(Object e) {
    std::unordered_set<Object> seen;
    std::vector<Object> variables;
    collect_variables(e, seen, variables);
    std::sort(variables.begin(), variables.end(), [](Object a, Object b) { return compare_expressions(a, b) < 0; });
    return variables;
}

void check_arguments(Object expression, Object modulus) {
    if (!is_operand(expression)) throw HostError("expected a polynomial, got " + to_line(expression));
    if (!is_immediate(modulus) || immediate_value(modulus) < 2) {
        throw HostError("the modulus of a polynomial must be an integer from 2 to 1073741823");
    }
}

Object stored(uint64_t residue, Object modulus) {
    const bool plain = static_cast<uint32_t>(immediate_value(modulus)) <= largest_plain_modulus;
    return plain ? static_cast<Object>(residue) : immediate(static_cast<int32_t>(residue));
}

uint32_t coefficient(Object x, uint32_t word) {
    const bool plain = static_cast<uint32_t>(immediate_value(polynomial_modulus(x))) <= largest_plain_modulus;
    return plain ? words(x)[word] : static_cast<uint32_t>(immediate_value(words(x)[word]));
}

// "3*x^2*y"
std::string term_text(uint32_t c, const std::vector<std::pair<std::string, uint32_t>> &powers) {
    std::string result;
    for (const auto &[name, exponent] : powers) {
        if (exponent == 0) continue;
        result += (result.empty() ? "" : "*") + name + (exponent > 1 ? "^" + std::to_string(exponent) : "");
    }
    if (result.empty()) return std::to_string(c);
    return c == 1 ? result : std::to_string(c) + "*" + result;
}

}  // namespace

Object modp1_object(Object expression, Object modulus, Object variable) {
    check_arguments(expression, modulus);
    if (!variable) {
        const std::vector<Object> variables = variables_of(expression);
        if (variables.size() != 1) {
            throw HostError("expected a polynomial in one variable, got " + to_line(expression) +
                            (variables.empty() ? "; name the variable in argument 3" : ""));
        }
        variable = variables[0];
    }
    if (!is_variable(variable) || !is_operand(variable)) throw HostError(to_line(variable) + " is no variable");
    const Terms terms = Reader(modulus, variable, 0).read(expression);
    const uint32_t degree = terms.empty() ? 0 : terms.rbegin()->first.first;
    std::vector<Object> parts(3 + degree, stored(0, modulus));
    parts[0] = variable;
    parts[1] = modulus;
    for (const auto &[exponents, c] : terms) parts[2 + exponents.first] = stored(c, modulus);
    return unique_object(type_polynomial, parts);
}

Object modp2_object(Object expression, Object modulus, Object variables) {
    check_arguments(expression, modulus);
    std::vector<Object> both = variables_of(expression);
    if (variables) {
        both.clear();
        for (uint32_t i = 0; i < size_of(variables); i++) both.push_back(element(variables, i));
    }
    if (both.size() != 2 || both[0] == both[1] ||
        !std::all_of(both.begin(), both.end(), [](Object x) { return is_variable(x) && is_operand(x); })) {
        throw HostError("expected a polynomial in two variables, got " + to_line(expression) +
                        (variables ? " and " + to_line(variables) : ""));
    }
    const HoldCollection hold;
    const Terms terms = Reader(modulus, both[0], both[1]).read(expression);
    uint32_t rows = 1, width = 1;
    for (const auto &[exponents, c] : terms) {
        rows = std::max(rows, exponents.first + 1);
        width = std::max(width, exponents.second + 1);
    }
    if (uint64_t{rows} * width > most_coefficients) throw HostError("polynomial too large");
    std::vector<Object> parts(3 + size_t{rows} * width, stored(0, modulus));
    parts[0] = unique_object(type_sequence, both);
    parts[1] = modulus;
    parts[2] = immediate(static_cast<int32_t>(width));
    for (const auto &[exponents, c] : terms) {
        parts[3 + size_t{exponents.first} * width + exponents.second] = stored(c, modulus);
    }
    return unique_object(type_polynomial, parts);
}

bool is_bivariate(Object x) {
    return has_type(polynomial_variable(x), type_sequence);
}
Object polynomial_variable(Object x) {
    return words(x)[1];
}
Object polynomial_modulus(Object x) {
    return words(x)[2];
}

std::string polynomial_text(Object x) {
    std::string result;
    const auto put = [&](uint32_t c, const std::vector<std::pair<std::string, uint32_t>> &powers) {
        if (c > 0) result += (result.empty() ? "" : " + ") + term_text(c, powers);
    };
    const Object variable = polynomial_variable(x);
    if (!is_bivariate(x)) {
        const std::string name = to_line(variable);
        for (uint32_t word = length_of(x) - 1; word >= 3; word--) put(coefficient(x, word), {{name, word - 3}});
    } else {
        const std::string first = to_line(element(variable, 0)), second = to_line(element(variable, 1));
        const uint32_t width = static_cast<uint32_t>(immediate_value(words(x)[3]));
        for (uint32_t word = length_of(x) - 1; word >= 4; word--) {
            put(coefficient(x, word), {{first, (word - 4) / width}, {second, (word - 4) % width}});
        }
    }
    return result.empty() ? "0" : result;
}

}  // namespace modla::console
