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

}  // namespace modla::console
