// An argument that is a table, or a list or set of values, of lists or of Vectors.
#pragma once

#include "modla.h"

namespace modla {

// A selection along one direction of the input.
struct Selection {
    int32_t first = 0;  // from 1; 0 along a missing dimension
    int32_t count = 0;  // 0: a single line, or a missing dimension
    int32_t step = 0;   // in entries of a table; 0 for lists
};

struct FlexInput {
    HostObject object;
    int32_t datatype;
    int32_t dimensions;  // 1 or 2
    bool is_list;        // of values, of lists or of Vectors
    bool list_of_lists;
    bool list_of_vectors;
    // Directions as they are stored: the rows and columns of a table, the elements of a list and the entries of its
    // lists or Vectors; a row Vector and its like have their entries first.  With `transposed` the first direction
    // runs along the columns of the result.
    Selection first, second;
    bool transposed;
    bool vectors_were_columns;
    bool empty;  // a table without entries: nothing may be read
};

// process_flexinput, telling whether the checks passed.
bool read_flexinput(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, bool transposed,
                    FlexInput *input);

// The rows and columns of the result, 0 for a row (column) object.
inline int32_t result_rows(const FlexInput &input) {
    return input.transposed ? input.second.count : input.first.count;
}
inline int32_t result_columns(const FlexInput &input) {
    return input.transposed ? input.first.count : input.second.count;
}

// Is the object a list or a set?
bool is_list_or_set(HostObject object);

// The elements of a list or set.
struct Elements {
    const HostObject *items;
    uint32_t count;
};
Elements elements_of(HostObject list);

}  // namespace modla
