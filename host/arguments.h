// Reading the arguments that several entry points share, each with its fixed messages.
//
// Readers return false after they raised an error.  Positions count from 1, as the host's users do.
#pragma once

#include "host/object.h"
#include "host/raise.h"
#include "host/table.h"
#include "modla.h"

namespace modla {

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

// All of these: check_rtable, read_settings, "argument N must be a Matrix".
bool read_matrix(const HostApi *api, const HostObject *args, int32_t position, const char *role, Block *matrix);

// A permutation as a Vector of transpositions, each entry a line counted from 1, in words or immediate host integers:
// "argument N must have integer datatype", "... has invalid storage", "... must be a Vector".
struct Permutation {
    int32_t *entries;
    bool host_integers;
    int32_t length;
};
bool read_permutation(const HostApi *api, const HostObject *args, int32_t position, Permutation *permutation);

}  // namespace modla
