// Which product kernel suits a size.
#pragma once

#include <cstdint>

namespace modla {

// The measured break-even of one more level of Strassen's recursion against the classical product of doubles.
inline bool strassen_pays(int32_t m, int32_t k, int32_t n) {
    const double rows = m, inner = k, columns = n;
    const double gain = (columns - 39.49) * rows * inner - columns * (11.13 * inner + 51.57 * rows);
    return gain >= 0;
}

// Words: the recursion pays above this size, measured; smaller thresholds of a caller decide whether it is entered.
constexpr int32_t strassen_words_break_even = 100;

// Workspace for the recursion down to whatever size, in entries.
inline int64_t strassen_workspace(int32_t m, int32_t k, int32_t n) {
    return (int64_t{2} * n * m + (int64_t{n} + m) * k + 2) / 3;
}

// Workspace for the recursion until the inner dimension is at most L; the sizes that are left.
struct BlasRecursion {
    int64_t workspace;
    int32_t m, n;
};
inline BlasRecursion blas_recursion(int32_t m, int32_t k, int32_t n, int32_t L) {
    BlasRecursion recursion = {0, m, n};
    do {
        recursion.m /= 2, k /= 2, recursion.n /= 2;
        recursion.workspace += (int64_t{recursion.n} + recursion.m) * k + int64_t{2} * recursion.n * recursion.m + 2;
    } while (k > L);
    return recursion;
}

}  // namespace modla
