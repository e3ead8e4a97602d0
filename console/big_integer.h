// Host integers from and to GMP's, digit by digit.
#pragma once

#include <gmpxx.h>

#include "console/heap.h"

namespace modla::console {

mpz_class integer_of(Object x);                // x is an integer
void read_magnitude(Object x, mpz_ptr value);  // of an integer that is not immediate
Object host_integer(const mpz_class &value);
Object host_integer(int64_t value);

}  // namespace modla::console
