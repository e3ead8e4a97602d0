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
Object list_factors(Object x) {
    const HoldCollection hold;
    Object number;
    Pairs factors;
    split_product(x, &number, &factors);
    if (number == immediate(1) && factors.size() == 2) return new_sequence(factors);
    std::vector<Object> parts;
    if (number != immediate(1)) parts.push_back(number);
    for (size_t i = 0; i < factors.size(); i += 2) parts.push_back(to_power(factors[i], factors[i + 1]));
    return new_sequence(parts);
}

Object list_terms(Object x) {
    const HoldCollection hold;
    std::vector<Object> parts;
    for (uint32_t i = 1; i < length_of(x); i += 2) parts.push_back(times(words(x)[i], words(x)[i + 1]));
    return new_sequence(parts);
}

Object operands(const Arguments &arguments) {
    const Object x = arguments[0];
    if (is_collection(x)) return sequence_of(x);
    if (has_type(x, type_sum) && length_of(x) > 3) return list_terms(x);
    if (is_expression(x)) return list_factors(x);
    if (is_complex(x)) return new_sequence({real_part(x), imaginary_part(x)});
    const bool pair = has_type(x, type_rational) || has_type(x, type_equation) || has_type(x, type_range);
    if (!pair) throw HostError(to_line(x) + " has no operands");
    return new_sequence({words(x)[1], words(x)[2]});
}

Object size_value(const Arguments &arguments) {
    if (has_type(arguments[0], type_string)) return integer_object(int64_t{words(arguments[0])[1]});
    return integer_object(int64_t{size_of(operands(arguments))});
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

Object operand_argument(Object x) {
    if (!is_operand(x)) throw HostError("cannot compute with " + to_line(x));
    return x;
}

// The highest exponent of x, at least 0.
Object degree_value(const Arguments &arguments) {
    Object result = immediate(0);
    visit_terms(operand_argument(arguments[0]), [&](Object, const Pairs &factors) {
        for (size_t k = 0; k < factors.size(); k += 2) {
            const bool higher = factors[k] == arguments[1] && compare_numbers(factors[k + 1], result) > 0;
            if (higher) result = factors[k + 1];
        }
    });
    return result;
}

// coefficient(e, x, n): what the terms of e with x^n have besides it.
Object coefficient_value(const Arguments &arguments) {
    const Object expression = operand_argument(arguments[0]), variable = arguments[1], exponent = arguments[2];
    if (!has_type(variable, type_name) && !has_type(variable, type_indexed)) {
        throw HostError(to_line(variable) + " is no variable");
    }
    if (!is_integer(exponent)) throw HostError("the exponent must be an integer, not " + to_line(exponent));
    Object result = immediate(0);
    visit_terms(expression, [&](Object number, const Pairs &factors) {
        Object found = immediate(0);
        Pairs rest;
        for (size_t k = 0; k < factors.size(); k += 2) {
            if (factors[k] == variable)
                found = factors[k + 1];
            else
                rest.insert(rest.end(), {factors[k], factors[k + 1]});
        }
        if (is_scalar(found) && same_value(found, exponent)) result = plus(result, build_product(number, rest));
    });
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
        {"expand", 1, 1, [](const Arguments &arguments) { return expand(operand_argument(arguments[0])); }},
        {"coefficient", 3, 3, coefficient_value},
        {"degree", 2, 2, degree_value},
        {"modp1", 2, 3, make_modp1},
        {"modp2", 2, 3, make_modp2},
    };
}

}  // namespace modla::console
