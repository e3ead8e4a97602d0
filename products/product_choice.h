// Which product kernel suits a size.
#pragma once

#include <cstdint>

namespace modla {

// Is one more level of Strassen's recursion worth its sums, against the classical product of doubles?  The constants
// decide whether a host sees a workspace object, so they are part of the contract: better ones would change it.
inline bool strassen_pays(int32_t m, int32_t k, int32_t n) {
    const double rows = m, inner = k, columns = n;
    const double gain = (columns - 39.49) * rows * inner - columns * (11.13 * inner + 51.57 * rows);
    return gain >= 0;
}

// Words: above this size Multiply provides a workspace object, which hosts see.
constexpr int32_t strassen_words_threshold = 20;

// Words: the recursion itself pays above this size: bench/product_bench.cpp's strassen_words beside classical_words.
constexpr int32_t strassen_words_break_even = 100;
static_assert(strassen_words_break_even >= strassen_words_threshold);

// Doubles: CBLAS is worth a recursion until k <= L when the blocks that are then left have more entries than this; part
// of the contract too.
constexpr int32_t blas_recursion_least = 63;

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
