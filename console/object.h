// The values of the console's heap, as they lie in memory.
//
// A value is a 32-bit word: an immediate integer (low bit 1) or a pointer to a header word.  The type ids below 37 that
// the library reads are those of modla.h; the others are this host's own.
#pragma once

#include <cstdint>

#include "modla.h"

namespace modla::console {

using Object = HostObject;

enum Type : uint32_t {
    type_negative = MODLA_TYPE_NEGATIVE_INTEGER,
    type_positive = MODLA_TYPE_POSITIVE_INTEGER,
    type_rational = 3,                       // words 1, 2: numerator, denominator > 1, in lowest terms
    type_float = 5,                          // words 1, 2: a double
    type_complex = 6,                        // word 1: imaginary part; or words 1, 2: real and imaginary part
    type_string = 7,                         // word 1: bytes; then the text
    type_name = 8,                           // word 1: value or 0; word 2: a string; word 3: flags, immediate
    type_indexed = MODLA_TYPE_INDEXED_NAME,  // word 1: base name; word 2: sequence of the indices
    type_power = 13,                         // words 1, 2: base, exponent that is no number
    type_product = 14,                       // pairs: base, exponent that is a number
    type_sum = 16,                           // pairs: term, coefficient
    type_polynomial = 17,                    // see polynomial.h; only word 1 is a value
    type_equation = MODLA_TYPE_EQUATION,     // words 1, 2: the sides
    type_sequence = MODLA_TYPE_SEQUENCE,     // words 1..: the elements; without elements it is NULL
    type_list = MODLA_TYPE_LIST,             // word 1: a sequence
    type_range = MODLA_TYPE_RANGE,           // words 1, 2: the ends
    type_set = MODLA_TYPE_SET,               // word 1: a sequence without duplicates
    type_procedure = 40,                     // word 1: a Procedure record
    type_table = 41                          // a Table record
};

// Flags of a name.
enum : int32_t { name_protected = 1, name_in_expressions = 2 };

// The header's accessors, by shorter names.
constexpr auto is_immediate = modla_is_immediate;
constexpr auto immediate_value = modla_integer_value;
constexpr auto immediate = modla_immediate_integer;
constexpr auto words = modla_words;
constexpr auto type_of = modla_type;
constexpr auto length_of = modla_length;
constexpr int32_t immediate_limit = (1 << 30) - 1;

inline bool has_type(Object x, Type type) {
    return !is_immediate(x) && type_of(x) == type;
}

inline bool is_integer(Object x) {
    return is_immediate(x) || type_of(x) == type_negative || type_of(x) == type_positive;
}
inline bool is_null(Object x) {
    return has_type(x, type_sequence) && length_of(x) == 1;
}
inline bool is_collection(Object x) {
    return has_type(x, type_list) || has_type(x, type_set);
}

// The elements of a sequence, a list or a set.
inline Object sequence_of(Object x) {
    return has_type(x, type_sequence) ? x : words(x)[1];
}
inline uint32_t size_of(Object x) {
    return length_of(sequence_of(x)) - 1;
}
inline Object element(Object x, uint32_t i) {
    return words(sequence_of(x))[i + 1];
}

}  // namespace modla::console
