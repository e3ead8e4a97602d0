#include "console/number.h"

#include <algorithm>
#include <cmath>
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

void need_numbers(Object a, Object b) {
    for (const Object x : {a, b}) {
        if (!is_number(x)) throw HostError("cannot compute with " + to_line(x));
    }
}

bool either_float(Object a, Object b) {
    return has_type(a, type_float) || has_type(b, type_float);
}

template <class Exact, class Inexact>
Object arithmetic(Object a, Object b, Exact exact, Inexact inexact) {
    need_numbers(a, b);
    if (either_float(a, b)) return new_float(inexact(to_double(a), to_double(b)));
    if (is_integer(a) && is_integer(b)) return integer_object(mpz_class(exact(integer_of(a), integer_of(b))));
    return rational_object(mpq_class(exact(rational_of(a), rational_of(b))));
}

}  // namespace

Object integer_object(const mpz_class &value) {
    if (value >= -immediate_limit && value <= immediate_limit) return immediate(static_cast<int32_t>(value.get_si()));
    if (mpz_sizeinbase(value.get_mpz_t(), 10) > most_digits) throw HostError("result too large");
    const std::string text = mpz_class(abs(value)).get_str();
    const size_t digits = (text.size() + 3) / 4;
    const Object x = new_object(static_cast<uint32_t>(digits) + 1, value < 0 ? type_negative : type_positive);
    for (size_t i = 0, end = text.size(); i < digits; i++, end -= std::min<size_t>(end, 4)) {
        const size_t start = end > 4 ? end - 4 : 0;
        words(x)[i + 1] = static_cast<uint32_t>(std::stoul(text.substr(start, end - start)));
    }
    return x;
}

Object integer_object(int64_t value) {
    return integer_object(mpz_class(std::to_string(value)));
}

mpz_class integer_of(Object x) {
    if (is_immediate(x)) return mpz_class(immediate_value(x));
    std::string text;
    for (uint32_t i = length_of(x) - 1; i >= 1; i--) {
        std::string digit = std::to_string(words(x)[i]);
        text += std::string(4 - std::min<size_t>(digit.size(), 4), '0') + digit;
    }
    mpz_class value(text.empty() ? "0" : text, 10);
    return type_of(x) == type_negative ? mpz_class(-value) : value;
}

Object rational_object(const mpq_class &value) {
    if (value.get_den() == 1) return integer_object(value.get_num());
    Roots parts;
    parts.values.push_back(integer_object(value.get_num()));
    parts.values.push_back(integer_object(value.get_den()));
    return new_pair(type_rational, parts.values[0], parts.values[1]);
}

bool is_number(Object x) {
    return is_integer(x) || has_type(x, type_rational) || has_type(x, type_float);
}

double to_double(Object x) {
    if (is_immediate(x)) return immediate_value(x);
    if (type_of(x) == type_float) return float_value(x);
    return rational_of(x).get_d();
}

Object add(Object a, Object b) {
    const auto sum = [](const auto &x, const auto &y) { return decltype(x + y)(x + y); };
    return arithmetic(a, b, sum, sum);
}

Object subtract(Object a, Object b) {
    const auto difference = [](const auto &x, const auto &y) { return decltype(x - y)(x - y); };
    return arithmetic(a, b, difference, difference);
}

Object multiply(Object a, Object b) {
    const auto product = [](const auto &x, const auto &y) { return decltype(x * y)(x * y); };
    return arithmetic(a, b, product, product);
}

Object divide(Object a, Object b) {
    need_numbers(a, b);
    if (either_float(a, b)) return new_float(to_double(a) / to_double(b));
    const mpq_class divisor = rational_of(b);
    if (divisor == 0) throw HostError("division by zero");
    return rational_object(mpq_class(rational_of(a) / divisor));
}

Object power(Object a, Object b) {
    need_numbers(a, b);
    if (either_float(a, b)) return new_float(std::pow(to_double(a), to_double(b)));
    if (!is_immediate(b)) throw HostError("exponent must be an integer below 2^30");
    const int32_t exponent = immediate_value(b);
    const uint32_t magnitude = static_cast<uint32_t>(std::abs(exponent));
    mpq_class base = rational_of(a);
    const size_t digits = mpz_sizeinbase(base.get_num_mpz_t(), 10) + mpz_sizeinbase(base.get_den_mpz_t(), 10);
    if (abs(base) != 1 && base != 0 && digits * static_cast<uint64_t>(magnitude) > most_digits) {
        throw HostError("result too large");
    }
    if (exponent < 0) {
        if (base == 0) throw HostError("division by zero");
        base = 1 / base;
    }
    mpz_class numerator, denominator;
    mpz_pow_ui(numerator.get_mpz_t(), base.get_num_mpz_t(), magnitude);
    mpz_pow_ui(denominator.get_mpz_t(), base.get_den_mpz_t(), magnitude);
    return rational_object(mpq_class(numerator, denominator));
}

Object modulo(Object a, Object b) {
    if (!is_integer(b) || !is_number(a)) throw HostError("mod needs a number and an integer modulus");
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
    return subtract(immediate(0), a);
}

int compare_numbers(Object a, Object b) {
    need_numbers(a, b);
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
