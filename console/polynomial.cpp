#include "console/polynomial.h"

#include <algorithm>
#include <unordered_set>

#include "console/algebra.h"
#include "console/error.h"
#include "console/number.h"
#include "console/print.h"

namespace modla::console {

namespace {

constexpr int32_t largest_plain_modulus = 46327;  // above, coefficients are immediate integers
constexpr int32_t most_coefficients = 1000000;

bool is_variable(Object x) {
    return has_type(x, type_name) || has_type(x, type_indexed);
}

struct Term {
    uint32_t exponents[2];
    Object coefficient;  // as it is stored
};

bool is_plain(Object modulus) {
    return immediate_value(modulus) <= largest_plain_modulus;
}

Object stored(Object residue, Object modulus) {
    return is_plain(modulus) ? static_cast<Object>(immediate_value(residue)) : residue;
}

// An expression multiplied out, as a polynomial in one or two variables.
std::vector<Term> read_terms(Object expression, Object modulus, const std::vector<Object> &variables) {
    std::vector<Term> result;
    visit_terms(expression, [&](Object number, const Pairs &factors) {
        const auto refuse = [&](Object part) {
            throw HostError("expected a polynomial in " + to_line(variables[0]) +
                            (variables.size() > 1 ? " and " + to_line(variables[1]) : "") +
                            " with integer coefficients, got " + to_line(part));
        };
        if (!is_number(number)) refuse(number);
        Term term = {{0, 0}, stored(modulo(number, modulus), modulus)};
        for (size_t i = 0; i < factors.size(); i += 2) {
            const auto found = std::find(variables.begin(), variables.end(), factors[i]);
            const Object exponent = factors[i + 1];
            if (found == variables.end()) refuse(factors[i]);
            const bool natural = is_integer(exponent) && !is_negative(exponent);
            if (!natural) throw HostError("the exponent " + to_line(exponent) + " makes it no polynomial");
            if (compare_numbers(exponent, immediate(most_coefficients)) >= 0) throw HostError("polynomial too large");
            term.exponents[found - variables.begin()] = static_cast<uint32_t>(immediate_value(exponent));
        }
        if (term.coefficient != stored(immediate(0), modulus)) result.push_back(term);
    });
    return result;
}

// The object of a polynomial in one or two variables.
Object polynomial_object(Object expression, Object modulus, const std::vector<Object> &variables) {
    const std::vector<Term> terms = read_terms(expression, modulus, variables);
    uint32_t rows = 1, width = 1;
    for (const Term &term : terms) {
        rows = std::max(rows, term.exponents[0] + 1);
        width = std::max(width, term.exponents[1] + 1);
    }
    if (uint64_t{rows} * width > uint64_t{most_coefficients}) throw HostError("polynomial too large");
    const HoldCollection hold;
    const bool two = variables.size() == 2;
    const size_t first = two ? 3 : 2;
    std::vector<Object> parts(first + size_t{rows} * width, stored(immediate(0), modulus));
    parts[0] = two ? unique_object(type_sequence, variables) : variables[0];
    parts[1] = modulus;
    if (two) parts[2] = immediate(static_cast<int32_t>(width));
    for (const Term &term : terms) {
        parts[first + size_t{term.exponents[0]} * width + term.exponents[1]] = term.coefficient;
    }
    return unique_object(type_polynomial, parts);
}

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
    return polynomial_object(expression, modulus, {variable});
}

Object modp2_object(Object expression, Object modulus, Object variables) {
    check_arguments(expression, modulus);
    const std::vector<Object> both = variables ? elements_of(variables) : variables_of(expression);
    if (both.size() != 2 || both[0] == both[1] ||
        !std::all_of(both.begin(), both.end(), [](Object x) { return is_variable(x) && is_operand(x); })) {
        throw HostError("expected a polynomial in two variables, got " + to_line(expression) +
                        (variables ? " and " + to_line(variables) : ""));
    }
    return polynomial_object(expression, modulus, both);
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

void visit_polynomial(Object x, const TermVisitor &visit) {
    const Object variables = polynomial_variable(x), modulus = polynomial_modulus(x);
    const bool two = is_bivariate(x);
    const int32_t width = two ? immediate_value(words(x)[3]) : 1;
    const uint32_t first = two ? 4 : 3;
    for (uint32_t k = length_of(x); k-- > first;) {
        const Object coefficient = words(x)[k];
        if (coefficient == stored(immediate(0), modulus)) continue;
        const int32_t at = static_cast<int32_t>(k - first), exponents[] = {at / width, at % width};
        Pairs factors;
        for (uint32_t i = 0; i < 2; i++) {
            if (exponents[i] == 0) continue;
            factors.push_back(two ? element(variables, i) : variables);
            factors.push_back(immediate(exponents[i]));
        }
        visit(is_plain(modulus) ? immediate(static_cast<int32_t>(coefficient)) : coefficient, factors);
    }
}

}  // namespace modla::console
