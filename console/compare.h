// Equality and order of values.
#pragma once

#include "console/heap.h"

namespace modla::console {

// Equality of values: numbers by value, names by identity, the rest by their parts.
bool same_value(Object a, Object b);

// An order for sorting, negative, 0 or positive: numbers by value, then expressions in their order (algebra.h), then
// lists and sets by their elements, then the rest by its text.
int compare_values(Object a, Object b);

}  // namespace modla::console
