#include "console/number.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>

#include "console/error.h"
#include "console/print.h"

namespace modla::console {

namespace {

constexpr size_t most_digits = 2000000;  // of a result

mpq_class rational_of(Object x) {
    if (is_integer(x)) return mpq_class(integer_of(x));
    return mpq_class(integer_of(words(x)[1]), integer_of(words(x)[2]));
}

void need(bool (*suits)(Object), Object a, Object b) {
    for (const Object x : {a, b}) {
        if (!suits(x)) throw HostError("cannot compute with " + to_line(x));
    }
}

bool either_float(Object a, Object b) {
    return has_type(a, type_float) || has_type(b, type_float);
}

template <class Operation>
Object arithmetic(Object a, Object b, Operation operation) {
    need(is_scalar, a, b);
    if (either_float(a, b)) return new_float(operation(to_double(a), to_double(b)));
    if (is_integer(a) && is_integer(b)) return integer_object(mpz_class(operation(integer_of(a), integer_of(b))));
    return rational_object(mpq_class(operation(rational_of(a), rational_of(b))));
}

bool both_immediate(Object a, Object b) {
    return is_immediate(a) && is_immediate(b);
}

// The double next to a rational number; of two, the even one.
double nearest_double(const mpq_class &value) {
    if (value == 0) return 0;
    mpz_class numerator = abs(value.get_num()), denominator = value.get_den();
    const auto bits = [](const mpz_class &x) { return static_cast<long>(mpz_sizeinbase(x.get_mpz_t(), 2)); };
    // A quotient of 62 or 63 bits; of a subnormal result, no more than two bits behind its last one.
    const long shift = std::min(62 - (bits(numerator) - bits(denominator)), 1076L);
    if (shift > 0)
        numerator <<= static_cast<unsigned long>(shift);
    else
        denominator <<= static_cast<unsigned long>(-shift);
    mpz_class quotient = numerator / denominator;
    if (quotient * denominator != numerator) quotient |= 1;
    uint64_t mantissa = 0;
    mpz_export(&mantissa, nullptr, -1, sizeof mantissa, 0, 0, quotient.get_mpz_t());
    const double result = std::ldexp(static_cast<double>(static_cast<int64_t>(mantissa)), static_cast<int>(-shift));
    return value < 0 ? -result : result;
}

// ---- Complex numbers

bool either_complex(Object a, Object b) {
    if (is_complex(a) || is_complex(b)) need(is_scalar, a, b);
    return is_complex(a) || is_complex(b);
}

// An exact 0 stays exact beside floats, so that a purely imaginary number stays one.
Object part_product(Object a, Object b) {
    return a == immediate(0) || b == immediate(0) ? immediate(0) : multiply(a, b);
}

Object complex_multiply(Object a, Object b) {
    const Object ra = real_part(a), ia = imaginary_part(a), rb = real_part(b), ib = imaginary_part(b);
    return complex_object(subtract(part_product(ra, rb), part_product(ia, ib)),
                          add(part_product(ra, ib), part_product(ia, rb)));
}

Object complex_divide(Object a, Object b) {
    const Object rb = real_part(b), ib = imaginary_part(b);
    const Object norm = add(part_product(rb, rb), part_product(ib, ib));
    const Object product = complex_multiply(a, complex_object(rb, negate(ib)));
    const auto part = [&](Object x) { return x == immediate(0) && !(norm == immediate(0)) ? x : divide(x, norm); };
    return complex_object(part(real_part(product)), part(imaginary_part(product)));
}

// A sum or a difference; of_parts is the whole function again, for the parts of complex numbers.
template <class Operation>
Object sum(Object a, Object b, Object (*of_parts)(Object, Object)) {
    const Operation operation;
    if (both_immediate(a, b)) {
        return integer_object(operation(int64_t{immediate_value(a)}, int64_t{immediate_value(b)}));
    }
    if (b == immediate(0) && is_scalar(a)) return a;
    if (!either_complex(a, b)) return arithmetic(a, b, operation);
    const Object real = of_parts(real_part(a), real_part(b));
    return complex_object(real, of_parts(imaginary_part(a), imaginary_part(b)));
}

size_t digits_of(Object x) {
    if (has_type(x, type_float)) return 0;
    if (is_complex(x)) return digits_of(real_part(x)) + digits_of(imaginary_part(x));
    const mpq_class value = rational_of(x);
    return mpz_sizeinbase(value.get_num_mpz_t(), 10) + mpz_sizeinbase(value.get_den_mpz_t(), 10);
}

}  // namespace

Object integer_object(const mpz_class &value) {
    const bool small = mpz_size(value.get_mpz_t()) <= 1;  // told faster than the digits
    if (!small && mpz_sizeinbase(value.get_mpz_t(), 10) > most_digits) throw HostError("result too large");
    return host_integer(value);
}

Object rational_object(const mpq_class &value) {
    if (value.get_den() == 1) return integer_object(value.get_num());
    const Object numerator = integer_object(value.get_num());
    return new_pair(type_rational, numerator, integer_object(value.get_den()));
}

Object complex_unit() {
    static const Object unit = keep(unique_object(type_complex, {immediate(1)}));
    return unit;
}

Object complex_object(Object real, Object imaginary) {
    if (is_zero(imaginary)) return real;
    if (real == immediate(0) && imaginary == immediate(1)) return complex_unit();
    return real == immediate(0) ? new_value(type_complex, {imaginary}) : new_pair(type_complex, real, imaginary);
}

bool is_complex(Object x) {
    return has_type(x, type_complex);
}
bool is_scalar(Object x) {
    return is_number(x) || is_complex(x);
}
Object real_part(Object x) {
    return !is_complex(x) ? x : length_of(x) == 2 ? immediate(0) : words(x)[1];
}
Object imaginary_part(Object x) {
    return !is_complex(x) ? immediate(0) : words(x)[length_of(x) - 1];
}

bool is_zero(Object x) {
    return x == immediate(0) || (has_type(x, type_float) && float_value(x) == 0);
}

bool is_number(Object x) {
    return is_integer(x) || has_type(x, type_rational) || has_type(x, type_float);
}

double to_double(Object x) {
    if (is_immediate(x)) return immediate_value(x);
    if (type_of(x) == type_float) return float_value(x);
    return nearest_double(rational_of(x));
}

Object add(Object a, Object b) {
    if (a == immediate(0) && is_scalar(b)) return b;  // also -0.0
    return sum<std::plus<>>(a, b, add);
}

Object subtract(Object a, Object b) {
    return sum<std::minus<>>(a, b, subtract);
}

Object multiply(Object a, Object b) {
    if (both_immediate(a, b)) return integer_object(int64_t{immediate_value(a)} * immediate_value(b));
    if (a == immediate(1) && is_scalar(b)) return b;
    if (either_complex(a, b)) return complex_multiply(a, b);
    return arithmetic(a, b, std::multiplies<>());
}

Object divide(Object a, Object b) {
    if (either_complex(a, b)) return complex_divide(a, b);
    need(is_scalar, a, b);
    if (either_float(a, b)) return new_float(to_double(a) / to_double(b));
    const mpq_class divisor = rational_of(b);
    if (divisor == 0) throw HostError("division by zero");
    return rational_object(mpq_class(rational_of(a) / divisor));
}

Object power(Object a, Object b) {
    if (!is_complex(a)) need(is_number, a, b);
    if (!is_complex(a) && either_float(a, b)) return new_float(std::pow(to_double(a), to_double(b)));
    if (!is_integer(b)) throw HostError("exponent must be an integer");
    mpz_class exponent = integer_of(b);
    if (a == immediate(0)) {
        exponent = sgn(exponent);
    } else if (const Object square = multiply(a, a); square == immediate(1) || square == immediate(-1)) {
        mpz_fdiv_r_ui(exponent.get_mpz_t(), exponent.get_mpz_t(), 4);
    } else if (!is_immediate(b) || digits_of(a) * uint64_t{mpz_get_ui(exponent.get_mpz_t())} > most_digits) {
        throw HostError("result too large");
    }
    if (exponent < 0) return divide(immediate(1), power(a, integer_object(mpz_class(-exponent))));
    Object result = immediate(1);
    for (unsigned long rest = exponent.get_ui(); rest > 0; rest /= 2) {
        if (rest % 2) result = multiply(result, a);
        if (rest > 1) a = multiply(a, a);
    }
    return result;
}

Object modulo(Object a, Object b) {
    if (!is_integer(b) || !is_number(a)) throw HostError("mod needs a number and an integer modulus");
    if (both_immediate(a, b) && immediate_value(b) > 0) {
        const int32_t r = immediate_value(a) % immediate_value(b);
        return immediate(r < 0 ? r + immediate_value(b) : r);
    }
    const mpq_class value = has_type(a, type_float) ? mpq_class(integral_float(a)) : rational_of(a);
    const mpz_class m = integer_of(b);
    if (m < 1) throw HostError("modulus must be positive");
    mpz_class r = value.get_num();
    if (value.get_den() != 1) {
        mpz_class inverse;
        if (!mpz_invert(inverse.get_mpz_t(), value.get_den_mpz_t(), m.get_mpz_t())) {
            throw HostError("the denominator has no inverse modulo " + to_line(b));
        }
        r *= inverse;
    }
    mpz_mod(r.get_mpz_t(), r.get_mpz_t(), m.get_mpz_t());
    return integer_object(r);
}

Object negate(Object a) {
    if (has_type(a, type_float)) return new_float(-float_value(a));  // of 0.0 it is -0.0
    if (is_complex(a)) return complex_object(negate(real_part(a)), negate(imaginary_part(a)));
    return subtract(immediate(0), a);
}

bool is_negative(Object x) {
    if (is_immediate(x)) return immediate_value(x) < 0;
    if (has_type(x, type_float)) return std::signbit(float_value(x)) && !std::isnan(float_value(x));
    return has_type(x, type_rational) ? is_negative(words(x)[1]) : has_type(x, type_negative);
}

int compare_numbers(Object a, Object b) {
    need(is_number, a, b);
    if (is_immediate(a) && is_immediate(b)) return immediate_value(a) - immediate_value(b);
    if (either_float(a, b)) {
        const double x = to_double(a), y = to_double(b);
        return x < y ? -1 : x > y ? 1 : 0;
    }
    return cmp(rational_of(a), rational_of(b));
}

mpz_class integral_float(Object x) {
    const double value = float_value(x);
    if (!(std::isfinite(value) && value == std::floor(value))) throw HostError(to_line(x) + " is no integer");
    return mpz_class(value);
}

int32_t small_integer(Object x, const char *what) {
    if (!is_immediate(x)) throw HostError(std::string(what) + " must be a small integer, not " + to_line(x));
    return immediate_value(x);
}

}  // namespace modla::console
