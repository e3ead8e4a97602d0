// Row operations of one set of instructions, on entries side by side.  Plain data and no inline functions: files built
// for newer processors include it.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace modla {

struct WordModulus {
    uint32_t p, reciprocal;  // 2 <= p <= 65535; floor(2^32 / p)
};

struct FloatModulus {
    double p, pinv;  // 2 <= p < 2^25; 1/p rounded up: (1 + 2^-52)/p
};

// x, g and all factors are residues; y may be an unreduced sum, below 2^32 or 2^53 with what is added to it.  Rows are
// aligned to 4 bytes, and overlap only where they are the same.  Sums of products are exact whatever their length.
template <class Entry, class Modulus>
struct RowOperations {
    void (*reduce)(Entry *y, int32_t count, Modulus modulus);
    void (*scale)(Entry *y, int32_t count, Entry f, Modulus modulus);
    bool (*is_canonical)(const Entry *y, int32_t count, Modulus modulus);
    // y += f*x, unreduced and reduced.
    void (*add_multiple)(Entry *y, const Entry *x, int32_t count, Entry f);
    void (*add_multiple_reduced)(Entry *y, const Entry *x, int32_t count, Entry f, Modulus modulus);
    // The sum of x*g mod p.
    Entry (*dot)(const Entry *x, const Entry *g, int32_t count, Modulus modulus);
    // y = (y + f*x) mod p; the sum of y*g mod p.
    Entry (*add_multiple_and_dot)(Entry *y, const Entry *x, const Entry *g, int32_t count, Entry f, Modulus modulus);
    // y = (y + f*x) mod p; then sum += g*y, reduced if so wished.
    void (*add_multiple_and_gather)(Entry *y, const Entry *x, Entry *sum, int32_t count, Entry f, Entry g, bool reduced,
                                    Modulus modulus);
};

// y = A*x for lines of A that are side by side, `step` entries from each to the next.  x and y are contiguous, x holds
// residues; y overlaps nothing.  False, with anything in y: A holds something else.
template <class Entry, class Modulus>
struct VectorProducts {
    bool (*by_rows)(int32_t rows, int32_t columns, const Entry *A, ptrdiff_t step, const Entry *x, Entry *y,
                    Modulus modulus);
    bool (*by_columns)(int32_t rows, int32_t columns, const Entry *A, ptrdiff_t step, const Entry *x, Entry *y,
                       Modulus modulus);
};

struct RowInstructions {
    RowOperations<uint32_t, WordModulus> words;
    RowOperations<double, FloatModulus> doubles;
    void (*swap)(uint32_t *a, uint32_t *b, int32_t words);
    // y[k] = (y[k] + f*x[k] + g*x[k-1]) mod p; x[-1] can be read.
    void (*add_two_multiples)(double *y, const double *x, int32_t count, double f, double g, FloatModulus modulus);
    // The same on residues stored as 16 bits, less 2^15.
    void (*add_two_packed_multiples)(uint16_t *y, const uint16_t *x, int32_t count, uint32_t f, uint32_t g, uint32_t p);
    VectorProducts<uint32_t, WordModulus> word_vectors;
    VectorProducts<double, FloatModulus> double_vectors;
};

extern const RowInstructions rows_with_avx2, rows_with_avx512;

// What this processor does best; none: plain loops.
extern const RowInstructions *best_rows;
extern bool best_rows_known;
const RowInstructions *find_best_rows();

inline const RowInstructions *row_instructions() {
    return best_rows_known ? best_rows : find_best_rows();
}

}  // namespace modla
