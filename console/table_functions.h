// The console's functions that make tables of given entries, as they are: nothing is reduced.
#pragma once

#include <vector>

#include "console/heap.h"

namespace modla::console {

// row_vector(list [, datatype]), column_vector(list [, datatype]), matrix(lists [, datatype [, order]])
Object make_row_vector(const std::vector<Object> &arguments);
Object make_column_vector(const std::vector<Object> &arguments);
Object make_matrix(const std::vector<Object> &arguments);

// The codes of modla.h for argument i, counted from 1; those of integer and C_order when it is not there.
int32_t datatype_argument(const std::vector<Object> &arguments, size_t i);
int32_t order_argument(const std::vector<Object> &arguments, size_t i);

}  // namespace modla::console
