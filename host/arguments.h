// Reading the arguments that several entry points share, each with its fixed messages.
//
// Readers return false after they raised an error.  Positions count from 1, as the host's users do.
#pragma once

#include "host/object.h"
#include "host/raise.h"
#include "modla.h"

namespace modla {

inline bool is_datatype(int32_t code) {
    return code == MODLA_INTEGER || code == MODLA_INTEGER4 || code == MODLA_FLOAT8;
}

inline bool is_big_integer(HostObject object) {
    return has_type(object, MODLA_TYPE_NEGATIVE_INTEGER) || has_type(object, MODLA_TYPE_POSITIVE_INTEGER);
}

// An index counted from the end when it is negative.
inline int32_t from_end(int32_t index, int32_t bound) {
    return index < 0 ? bound + index + 1 : index;
}

// What selects lines of an object: an index, a range, or nothing when the argument is neither.  Ends are counted from
// the end where they are negative; those that are no small integers are 0, which is never within bounds.
struct LineSelection {
    enum { nothing, index, range } kind;
    int32_t first, last;  // the same for an index
};
LineSelection line_selection(HostObject argument, int32_t bound);
inline bool is_within(const LineSelection &selection, int32_t bound) {
    return selection.first >= 1 && selection.first <= bound && selection.last >= 1 && selection.last <= bound;
}

// Is the argument the host's name for this text?
inline bool is_keyword(const HostApi *api, HostObject object, const char *text) {
    return !is_immediate(object) && api->IsName(object) && object == api->ToName(text, 1);
}

// "argument N " followed by the text, without placeholders.
bool fail_argument(const HostApi *api, int32_t argno, const char *text);

// Argument 1 is an integer: "argument 1, the modulus, must be an integer".
bool check_modulus_argument(const HostApi *api, const HostObject *args);

// Nothing stands at the position or after: "too many arguments, starting at argument %1, %2".
bool check_no_more(const HostApi *api, const HostObject *args, int32_t position, int32_t n);

// "C_order" or "Fortran_order" at the position: "expected ordering for argument %1, got %2".
bool read_ordering(const HostApi *api, const HostObject *args, int32_t position, int32_t *order);

// Is the argument "C_order" or "Fortran_order"?
bool is_ordering(const HostApi *api, HostObject argument, int32_t *order);

// The name true or false: "argument N must be 'true' or 'false'".
bool read_boolean(const HostApi *api, const HostObject *args, int32_t position, int32_t *value);

// The name of an output, or 0 for none: "argument N must be a name or the value 0".
struct Output {
    HostObject name;    // as given; 0 when no output is wanted
    HostObject target;  // what a callback receives: the name, its target, or the immediate integer 0
};
bool read_output(const HostApi *api, const HostObject *args, int32_t position, Output *output);

// The argument is a table: "argument N, the <role>, must be an rtable".
bool check_rtable(const HostApi *api, const HostObject *args, int32_t position, const char *role);

// The settings of a table with one of the three datatypes and rectangular storage: "argument N has invalid datatype",
// "argument N has invalid storage".
bool read_settings(const HostApi *api, const HostObject *args, int32_t position, RtableSettings *settings);

// A Matrix argument that is worked on in place.
struct MatrixArgument {
    HostObject object;
    int32_t datatype, order;
    int32_t rows, columns;
    void *data;
};
MatrixArgument matrix_argument(const HostApi *api, HostObject matrix, const RtableSettings &settings);

// All of these: check_rtable, read_settings, "argument N must be a Matrix".
bool read_matrix(const HostApi *api, const HostObject *args, int32_t position, const char *role,
                 MatrixArgument *matrix);

// A permutation as a Vector of transpositions, each entry a line counted from 1, in words or immediate host integers:
// "argument N must have integer datatype", "... has invalid storage", "... must be a Vector".
struct Permutation {
    int32_t *entries;
    bool host_integers;
    int32_t length;
};
bool read_permutation(const HostApi *api, const HostObject *args, int32_t position, Permutation *permutation);

// Rows and columns of a Matrix, each given as k (1..k) or a..b, negative ends counted from the end.  first..last are
// within 1..bound and not empty: "row range is out of bounds", "row range must be an integer or integer range", ...
struct Range {
    int32_t first, last;
};
bool read_row_range(const HostApi *api, HostObject argument, int32_t bound, Range *range);
bool read_column_range(const HostApi *api, HostObject argument, int32_t bound, Range *range);
inline int32_t range_length(Range range) {
    return range.last - range.first + 1;
}

}  // namespace modla
