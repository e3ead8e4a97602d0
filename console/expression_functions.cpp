#include <unordered_map>

#include "console/algebra.h"
#include "console/compare.h"
#include "console/functions.h"
#include "console/host.h"
#include "console/number.h"
#include "console/polynomial.h"
#include "console/print.h"

namespace modla::console {

namespace {

// The factors of a product, or base and exponent of a power.
void list_factors(Object x, Roots &parts) {
    Object number;
    Roots factors;
    const HoldCollection hold;
    split_product(x, &number, &factors.values);
    if (number == immediate(1) && factors.values.size() == 2) {
        parts.values = factors.values;
        return;
    }
    if (number != immediate(1)) parts.values.push_back(number);
    for (size_t i = 0; i < factors.values.size(); i += 2) {
        parts.values.push_back(to_power(factors.values[i], factors.values[i + 1]));
    }
}

void list_operands(Object x, Roots &parts) {
    if (is_immediate(x)) throw HostError(to_line(x) + " has no operands");
    switch (type_of(x)) {
        case type_list:
        case type_set:
            parts.values = elements_of(x);
            break;
        case type_sum:
            if (length_of(x) == 3) return list_factors(x, parts);
            for (uint32_t i = 1; i < length_of(x); i += 2) {
                parts.values.push_back(times(words(x)[i], words(x)[i + 1]));
            }
            break;
        case type_product:
        case type_power:
            return list_factors(x, parts);
        case type_complex:
            parts.values = {real_part(x), imaginary_part(x)};
            break;
        case type_rational:
        case type_equation:
        case type_range:
            parts.values = {words(x)[1], words(x)[2]};
            break;
        default:
            throw HostError(to_line(x) + " has no operands");
    }
}

Object operands(const Arguments &arguments) {
    if (is_collection(arguments[0])) return sequence_of(arguments[0]);
    Roots parts;
    list_operands(arguments[0], parts);
    return new_sequence(parts.values);
}

Object size_value(const Arguments &arguments) {
    if (has_type(arguments[0], type_string)) return integer_object(int64_t{words(arguments[0])[1]});
    if (is_collection(arguments[0])) return integer_object(int64_t{size_of(arguments[0])});
    Roots parts;
    list_operands(arguments[0], parts);
    return integer_object(static_cast<int64_t>(parts.values.size()));
}

Object make_modp1(const Arguments &arguments) {
    return modp1_object(arguments[0], arguments[1], arguments.size() > 2 ? arguments[2] : 0);
}

Object make_modp2(const Arguments &arguments) {
    if (arguments.size() > 2 && !has_type(arguments[2], type_list)) {
        throw HostError("argument 3 must be a list of two variables, not " + to_line(arguments[2]));
    }
    return modp2_object(arguments[0], arguments[1], arguments.size() > 2 ? arguments[2] : 0);
}

Object expand_value(const Arguments &arguments) {
    if (!is_operand(arguments[0])) throw HostError("cannot compute with " + to_line(arguments[0]));
    return expand(arguments[0]);
}

// The highest exponent of x, at least 0.
Object degree_value(const Arguments &arguments) {
    Roots expanded;
    expanded.values.push_back(expand_value(arguments));
    const HoldCollection hold;
    Object number, result = immediate(0);
    Pairs terms;
    split_sum(expanded.values[0], &number, &terms);
    for (size_t i = 0; i < terms.size(); i += 2) {
        Pairs factors;
        split_product(terms[i], &number, &factors);
        for (size_t k = 0; k < factors.size(); k += 2) {
            const bool higher = factors[k] == arguments[1] && compare_numbers(factors[k + 1], result) > 0;
            if (higher) result = factors[k + 1];
        }
    }
    return result;
}

// coefficient(e, x, n): what the terms of e with x^n have besides it.
Object coefficient_value(const Arguments &arguments) {
    Roots expanded;
    expanded.values.push_back(expand_value(arguments));
    const Object variable = arguments[1], exponent = arguments[2];
    if (!has_type(variable, type_name) && !has_type(variable, type_indexed)) {
        throw HostError(to_line(variable) + " is no variable");
    }
    if (!is_integer(exponent)) throw HostError("the exponent must be an integer, not " + to_line(exponent));
    const HoldCollection hold;
    Object constant;
    Pairs terms;
    split_sum(expanded.values[0], &constant, &terms);
    terms.insert(terms.end(), {immediate(1), constant});
    Object result = immediate(0);
    for (size_t i = 0; i < terms.size(); i += 2) {
        Object number, found = immediate(0);
        Pairs factors, rest;
        split_product(terms[i], &number, &factors);
        for (size_t k = 0; k < factors.size(); k += 2) {
            if (factors[k] == variable)
                found = factors[k + 1];
            else
                rest.insert(rest.end(), {factors[k], factors[k + 1]});
        }
        if (!is_scalar(found) || !same_value(found, exponent)) continue;
        result = plus(result, times(terms[i + 1], build_product(number, rest)));
    }
    return result;
}

// eval(a): with the values that names have now.  eval(a, x = b) or eval(a, [x = b, y = c]): with these instead.
Object eval_value(const Arguments &arguments) {
    if (arguments.size() == 1) return substitute(arguments[0], evaluate);
    const Object given = arguments[1];
    const bool one = has_type(given, type_equation);
    if (!one && !is_collection(given)) throw HostError("argument 2 must be an equation or a list of them");
    std::unordered_map<Object, Object> values;
    for (const Object equation : one ? std::vector<Object>{given} : elements_of(given)) {
        if (!has_type(equation, type_equation) || !has_type(words(equation)[1], type_name)) {
            throw HostError("expected an equation name = value, got " + to_line(equation));
        }
        values.emplace(words(equation)[1], words(equation)[2]);
    }
    return substitute(arguments[0], [&](Object name) {
        const auto found = values.find(name);
        return found == values.end() ? name : found->second;
    });
}

}  // namespace

std::vector<Function> expression_functions() {
    return {
        {"size", 1, 1, size_value},
        {"op", 1, 1, operands},
        {"eval", 1, 2, eval_value},
        {"expand", 1, 1, expand_value},
        {"coefficient", 3, 3, coefficient_value},
        {"degree", 2, 2, degree_value},
        {"modp1", 2, 3, make_modp1},
        {"modp2", 2, 3, make_modp2},
    };
}

}  // namespace modla::console
