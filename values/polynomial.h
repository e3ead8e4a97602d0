// Evaluation of the host's modp1 polynomials at a residue.
#pragma once

#include "host/object.h"
#include "residue/power.h"

namespace modla {

// c_0 + c_1 x + ... + c_d x^d.  Powers up to x^16 are taken from and added to the table of x; beyond, a sparse tail
// uses the table's squarings and a dense one a running power.
template <class Ring>
typename Ring::Value evaluate_polynomial(const Ring &ring, HostObject poly, typename Ring::Entry *table) {
    using Value = typename Ring::Value;
    const HostObject *words = object_words(poly);
    const int32_t degree = static_cast<int32_t>(object_length(poly)) - 4;
    if (degree < 0) return 0;
    const bool immediate = integer_value(words[2]) > 46327;
    const auto coefficient = [&](int32_t i) -> Value {
        const HostObject word = words[3 + i];
        return static_cast<Value>(immediate ? static_cast<uint32_t>(integer_value(word)) : word);
    };
    const auto add_term = [&](Value sum, int32_t i, auto power_of_x) {
        const Value c = coefficient(i);
        return c != 0 ? ring.multiply_add(c, power_of_x(), sum) : sum;
    };

    const Value x = table[0];
    Value sum = coefficient(0);
    if (degree > 0) sum = add_term(sum, 1, [&] { return x; });
    for (int32_t i = 2; i <= degree && i <= 16; i++) {
        if (table[i - 1] == Ring::no_inverse) table[i - 1] = ring.multiply(table[i - 2], x);
        sum = add_term(sum, i, [&] { return Value(table[i - 1]); });
    }
    if (degree < 17) return sum;

    int32_t count = 16;
    if (degree > 32) {
        count = 0;
        for (int32_t i = 17; i <= degree; i++) count += coefficient(i) != 0;
    }
    const bool sparse = count <= (degree - 16) / 4;
    Value running = table[15];
    for (int32_t i = 17; i <= degree; i++) {
        if (!sparse) running = ring.multiply(running, x);
        sum = add_term(sum, i, [&] { return sparse ? power_from_table(ring, table, i) : running; });
    }
    return sum;
}

}  // namespace modla
