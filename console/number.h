// Integers, rationals, floats and complex numbers of the console.
#pragma once

#include <gmpxx.h>

#include "console/big_integer.h"

namespace modla::console {

Object integer_object(const mpz_class &value);
inline Object integer_object(int64_t value) {
    return host_integer(value);
}
Object rational_object(const mpq_class &value);  // an integer when the denominator is 1

mpz_class integral_float(Object x);  // of a float without fraction

bool is_number(Object x);  // integer, rational or float
double to_double(Object x);

// Complex numbers: the parts are numbers.  One without imaginary part is a plain number, and the unit is one object.
Object complex_unit();
Object complex_object(Object real, Object imaginary);
bool is_complex(Object x);
bool is_scalar(Object x);  // a number or a complex number
Object real_part(Object x);
Object imaginary_part(Object x);

bool is_zero(Object x);      // of a number
bool is_negative(Object x);  // a number with a minus sign

// Exact on integers, rationals and complex numbers of them, doubles as soon as one operand has a float.
Object add(Object a, Object b);
Object subtract(Object a, Object b);
Object multiply(Object a, Object b);
Object divide(Object a, Object b);
Object power(Object a, Object b);   // b an integer, or one of both a float
Object modulo(Object a, Object b);  // into 0..b-1; a float must be integral
Object negate(Object a);
int compare_numbers(Object a, Object b);  // negative, 0, positive; complex numbers have no order

// A small integer used by the console itself: an index, a size.
int32_t small_integer(Object x, const char *what);

}  // namespace modla::console
