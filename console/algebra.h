// Expressions: sums, products and powers of names, numbers and polynomials, always in a normal form.
//
// Their objects are unique (heap.h).  The normal form:
//   sum      pairs (term, coefficient) of at least two terms, or of one whose coefficient is not 1.  Terms are no sums
//            and differ; coefficients are integers or floats.  A number is the pair (number, 1), the last one.
//   product  pairs (base, exponent) of at least two factors, or of one whose exponent is not 1.  Bases differ;
//            exponents are numbers.  A rational or complex factor of the product is the pair (number, 1), the first one;
//            an integer or float factor makes it a sum of one term.  A number factor of a sum is multiplied out.
//            Powers of numbers with fractional exponents stay as they are: 2^(1/2).
//   power    base and exponent, which is no number: x^n.  In a product it is the pair (x^n, 1).
//
// Terms and factors are ordered, whatever order they were written in: terms by falling degree, then as their factors
// are; factors with numbers first, then names, indexed names and other bases; names by their letters; equal bases by
// falling exponent.
#pragma once

#include <functional>
#include <vector>

#include "console/heap.h"

namespace modla::console {

bool is_expression(Object x);  // a sum, a product or a power
bool is_operand(Object x);     // what one can compute with: the above, numbers, polynomials, names but keywords

Object plus(Object a, Object b);
Object minus(Object a, Object b);
Object times(Object a, Object b);
Object quotient(Object a, Object b);
Object to_power(Object a, Object b);
Object opposite(Object a);

// The order above; 0 for equal expressions only.
int compare_expressions(Object a, Object b);

// Pairs, one behind the other.  They stand where the collector does not see them: hold it.
using Pairs = std::vector<Object>;

// x as a number times factors; a factor's exponent may be an expression.
void split_product(Object x, Object *number, Pairs *factors);

// x as a number plus terms with coefficients that are numbers.
void split_sum(Object x, Object *number, Pairs *terms);

// A product with that number and those factors, in order and with different bases.
Object build_product(Object number, const Pairs &factors);

// The expression, or a list, set, equation or range of them, with names replaced and simplified anew; value gives a
// name's replacement, or the name itself.
Object substitute(Object x, const std::function<Object(Object name)> &value);

// The expression with the values of its names.
Object evaluate_expression(Object x);
bool contains_name(Object x, Object name);

// Products and powers of sums multiplied out.
Object expand(Object x);

// The terms of the expression multiplied out, each a number times factors, without values being collected meanwhile; its
// number, 0 if it has none, comes first.
using TermVisitor = std::function<void(Object number, const Pairs &factors)>;
void visit_terms(Object x, const TermVisitor &visit);

}  // namespace modla::console
