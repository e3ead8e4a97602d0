// Polynomials modulo p as values of their own, dense, in one variable (modp1) or two (modp2).
//
// Their objects: word 1 is the variable, or the sequence of both; word 2 the modulus, immediate.  Then the coefficients
// from the lowest: the residue itself when the modulus is at most 46327, else an immediate integer.  With two variables
// word 3 is the number n of coefficients of a power of the first, immediate; the coefficient of x^i*y^j is word
// 4 + i*n + j.
#pragma once

#include "console/algebra.h"

namespace modla::console {

// From an expression: a polynomial with coefficients that have a residue.  Without variables (0) they are the names in
// it, in the order of expressions.
Object modp1_object(Object expression, Object modulus, Object variable);
Object modp2_object(Object expression, Object modulus, Object variables);

bool is_bivariate(Object x);
Object polynomial_variable(Object x);  // word 1
Object polynomial_modulus(Object x);

// The terms other than 0, the highest first.
void visit_polynomial(Object x, const TermVisitor &visit);

}  // namespace modla::console
