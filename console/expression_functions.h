// The console's functions on expressions.
#pragma once

#include <vector>

#include "console/heap.h"

namespace modla::console {

// The operands of a value as a sequence: elements of a list or set, terms of a sum, factors of a product, base and
// exponent of a power, numerator and denominator, real and imaginary part, sides of an equation or a range.
Object operands(const std::vector<Object> &arguments);
Object size_value(const std::vector<Object> &arguments);

Object make_modp1(const std::vector<Object> &arguments);
Object make_modp2(const std::vector<Object> &arguments);

Object expand_value(const std::vector<Object> &arguments);
Object coefficient_value(const std::vector<Object> &arguments);
Object eval_value(const std::vector<Object> &arguments);

}  // namespace modla::console
