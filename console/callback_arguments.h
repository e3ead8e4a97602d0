// What callbacks read from their arguments.
#pragma once

#include "console/callbacks.h"
#include "console/integer_block.h"
#include "console/number.h"

namespace modla::console {

// Machine words, for a modulus below 2^32?
bool is_word_modulus(const mpz_class &p);

// The modulus, at least 2.
mpz_class modulus_argument(Object x);

// Runs body(residue) with the arithmetic modulo p.
template <class Body>
auto with_residue(Object modulus, Body body) {
    const mpz_class p = modulus_argument(modulus);
    return is_word_modulus(p) ? body(WordResidue{p.get_ui()}) : body(BigResidue{p});
}

// A number of rows or columns, or the number of one.
inline int32_t count_argument(Object x) {
    return small_integer(x, "a number of rows or columns");
}

// The rows x columns block that stands at arguments[at]: at the table's first entry, or after the row and column
// shifts that follow it.
inline IntegerBlock block_argument(const Arguments &arguments, size_t at, bool shifted, int32_t rows, int32_t columns) {
    const int32_t row = shifted ? count_argument(arguments[at + 1]) : 0;
    const int32_t column = shifted ? count_argument(arguments[at + 2]) : 0;
    return integer_block(arguments[at], row, rows, column, columns);
}

}  // namespace modla::console
