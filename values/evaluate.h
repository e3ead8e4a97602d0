// Host expressions to residues.
//
// An expression is built from integers, rationals, complex numbers, sums, products, powers and modp1 polynomials over
// names that an evaluation list gives values to.  The recursion is as deep as the expression is nested.
#pragma once

#include <cstddef>
#include <type_traits>

#include "host/object.h"
#include "host/raise.h"
#include "host/unknown.h"
#include "residue/fp_mode.h"
#include "residue/power.h"
#include "values/digits.h"
#include "values/polynomial.h"

namespace modla {

constexpr int32_t power_table_length = 32;

// What an evaluation works with, and why it failed.
template <class Ring>
struct Evaluation {
    const HostApi *api;
    Ring ring;
    const HostObject *names;       // left-hand sides: names, powers of names, the complex unit
    typename Ring::Entry *tables;  // their power tables, end to end; entry 0 is the value
    int32_t count;
    FpMode *host_mode = nullptr;      // the caller's, when the arithmetic runs in the standard mode
    DigitWeights *weights = nullptr;  // for many integers, in the standard mode

    const char *message = nullptr;  // set by a failure
    HostObject culprit = 0;         // %1 of the message
};

template <class Ring>
bool fail_evaluation(Evaluation<Ring> &evaluation, const char *message, HostObject culprit = 0) {
    evaluation.message = message;
    evaluation.culprit = culprit;
    return false;
}

// Raises the error that an evaluation failed with.
template <class Ring>
bool raise_failure(const Evaluation<Ring> &evaluation) {
    if (evaluation.culprit) return fail(evaluation.api, evaluation.message, evaluation.culprit);
    return fail(evaluation.api, evaluation.message);
}

template <class Ring>
bool evaluate(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value);

template <class Ring>
typename Ring::Entry *table_of_unknown(const Evaluation<Ring> &evaluation, int32_t index) {
    return evaluation.tables + static_cast<ptrdiff_t>(index) * power_table_length;
}

// A host integer that is not immediate; a negative multiple of p gives p.
template <class Ring>
typename Ring::Value evaluate_integer(const Evaluation<Ring> &evaluation, HostObject integer) {
    using Value = typename Ring::Value;
    if constexpr (std::is_arithmetic_v<Value>) {
        // Through a signed integer, which is what the processor converts to.
        if (evaluation.weights) {
            return static_cast<Value>(static_cast<int32_t>(reduce_weighted_digits(*evaluation.weights, integer)));
        }
    }
    return reduce_digits(evaluation.ring, integer);
}

template <class Ring>
bool evaluate_rational(Evaluation<Ring> &evaluation, const HostObject *words, typename Ring::Value *value) {
    typename Ring::Value denominator, inverse;
    if (!evaluate(evaluation, words[1], value) || !evaluate(evaluation, words[2], &denominator)) return false;
    if (!evaluation.ring.invert(denominator, &inverse)) return fail_evaluation(evaluation, "division by zero");
    *value = evaluation.ring.multiply(*value, inverse);
    return true;
}

inline bool is_complex_unit(HostObject object) {
    return has_type(object, MODLA_TYPE_COMPLEX) && object_length(object) == 2 &&
           object_words(object)[1] == immediate_integer(1);
}

template <class Ring>
bool evaluate_complex(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value) {
    int32_t unit = 0;
    while (unit < evaluation.count && !is_complex_unit(evaluation.names[unit])) unit++;
    if (unit == evaluation.count) return fail_evaluation(evaluation, "unable to evaluate to modp values");
    const uint32_t length = object_length(object);
    if (length != 2 && length != 3) return fail_evaluation(evaluation, "internal error");
    typename Ring::Value real = 0, imaginary;
    if (length == 3 && !evaluate(evaluation, object_words(object)[1], &real)) return false;
    if (!evaluate(evaluation, object_words(object)[length - 1], &imaginary)) return false;
    *value = evaluation.ring.multiply_add(imaginary, table_of_unknown(evaluation, unit)[0], real);
    return true;
}

// base^exponent, a factor of a product.
template <class Ring>
bool evaluate_factor(Evaluation<Ring> &evaluation, HostObject base, HostObject exponent, typename Ring::Value *value) {
    const Ring &ring = evaluation.ring;
    if (is_immediate(base)) {
        if (exponent != immediate_integer(1)) return fail_evaluation(evaluation, "internal error 2");
        *value = ring.of_immediate(integer_value(base));
        return true;
    }
    if (!is_immediate(exponent)) return fail_evaluation(evaluation, "exponent too large");
    const int32_t e = integer_value(exponent);
    if (e != 1) {
        const int32_t listed = index_of_unknown(base, exponent, evaluation.names, evaluation.count);
        if (listed >= 0) {
            *value = table_of_unknown(evaluation, listed)[0];
            return true;
        }
    }
    const int32_t listed = index_of_unknown(base, immediate_integer(1), evaluation.names, evaluation.count);
    if (listed >= 0) {
        *value = power_from_table(ring, table_of_unknown(evaluation, listed), e);
    } else {
        if (!evaluate(evaluation, base, value)) return false;
        *value = power(ring, *value, e);
    }
    return *value != Ring::no_inverse || fail_evaluation(evaluation, "division by zero");
}

template <class Ring>
bool evaluate_product(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value) {
    const HostObject *const words = object_words(object);
    const uint32_t pairs = (object_length(object) - 1) / 2;
    *value = 1;
    for (uint32_t k = 0; k < pairs; k++) {
        typename Ring::Value factor;
        if (!evaluate_factor(evaluation, words[1 + 2 * k], words[2 + 2 * k], &factor)) return false;
        *value = evaluation.ring.multiply(*value, factor);
    }
    return true;
}

template <class Ring>
bool evaluate_sum(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value) {
    const Ring &ring = evaluation.ring;
    const HostObject *const words = object_words(object);
    const uint32_t pairs = (object_length(object) - 1) / 2;
    *value = 0;
    for (uint32_t k = 0; k < pairs; k++) {
        const HostObject coefficient = words[2 + 2 * k];
        typename Ring::Value c = 1, term;
        if (is_immediate(coefficient)) {
            c = ring.of_immediate(integer_value(coefficient));
        } else {
            const auto is_integer = [&] { return evaluation.api->IsInteger(coefficient); };
            if (!(evaluation.host_mode ? in_host_mode(*evaluation.host_mode, is_integer) : is_integer())) {
                return fail_evaluation(evaluation, "internal error");
            }
            c = evaluate_integer(evaluation, coefficient);
        }
        if (!evaluate(evaluation, words[1 + 2 * k], &term)) return false;
        if (coefficient != immediate_integer(1)) term = ring.multiply(term, c);
        *value = ring.add(*value, term);
    }
    return true;
}

template <class Ring>
bool evaluate_modp1(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value) {
    const HostObject variable = object_words(object)[1], modulus = object_words(object)[2];
    if (has_type(variable, MODLA_TYPE_SEQUENCE) && object_length(variable) == 3) {
        return fail_evaluation(evaluation, "unable to mod input containing modp2 polynomials");
    }
    if (!is_immediate(modulus) || !evaluation.ring.is_modulus(integer_value(modulus))) {
        return fail_evaluation(evaluation, "modp1 polynomial modulus must be the same as the modp modulus");
    }
    const int32_t listed = index_of_unknown(variable, immediate_integer(1), evaluation.names, evaluation.count);
    if (listed < 0) {
        return fail_evaluation(evaluation, "unable to mod input, cannot evaluate %1 to an integer", variable);
    }
    *value = evaluate_polynomial(evaluation.ring, object, table_of_unknown(evaluation, listed));
    return *value != Ring::no_inverse || fail_evaluation(evaluation, "internal error");
}

// The residue of an expression, or p for a negative multiple of p that stands alone; false, with the message noted,
// when there is none.
template <class Ring>
bool evaluate(Evaluation<Ring> &evaluation, HostObject object, typename Ring::Value *value) {
    if (is_immediate(object)) {
        *value = evaluation.ring.of_immediate(integer_value(object));
        return true;
    }
    const int32_t listed = index_of_unknown(object, immediate_integer(1), evaluation.names, evaluation.count);
    if (listed >= 0) {
        *value = table_of_unknown(evaluation, listed)[0];
        return true;
    }
    switch (object_type(object)) {
        case MODLA_TYPE_NEGATIVE_INTEGER:
        case MODLA_TYPE_POSITIVE_INTEGER:
            *value = evaluate_integer(evaluation, object);
            return true;
        case MODLA_TYPE_RATIONAL:
            return evaluate_rational(evaluation, object_words(object), value);
        case MODLA_TYPE_COMPLEX:
            return evaluate_complex(evaluation, object, value);
        case MODLA_TYPE_SYMBOLIC_POWER:
            return fail_evaluation(evaluation, "unable to mod input containing variable exponents");
        case MODLA_TYPE_POWER:
            return evaluate_product(evaluation, object, value);
        case MODLA_TYPE_SUM:
            return evaluate_sum(evaluation, object, value);
        case MODLA_TYPE_POLYNOMIAL:
            return evaluate_modp1(evaluation, object, value);
        default:
            return fail_evaluation(evaluation, "unable to mod input, cannot evaluate %1 to an integer", object);
    }
}

}  // namespace modla
