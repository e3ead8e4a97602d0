// Row operations with AVX2 and FMA.
//
// Everything here has internal linkage and includes nothing that instantiates code elsewhere: the linker must not keep a
// copy of a shared function that only this processor can run.
#include <immintrin.h>
#include <stdint.h>

#include "engine/row_operations.h"

namespace modla {
namespace {

using Words = __m256i;
using Doubles = __m256d;
using Floats = __m256;
constexpr int32_t word_lanes = 8, double_lanes = 4;

__m256i first_words(int32_t count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_set_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}
__m256i first_doubles(int32_t count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_set_epi32(3, 3, 2, 2, 1, 1, 0, 0));
}
const __m256i *vector(const void *row) {
    return static_cast<const __m256i *>(row);
}
__m256i *vector(void *row) {
    return static_cast<__m256i *>(row);
}

Words load(const uint32_t *row) {
    return _mm256_loadu_si256(vector(row));
}
Words load(const uint32_t *row, int32_t count) {
    return _mm256_maskload_epi32(static_cast<const int *>(static_cast<const void *>(row)), first_words(count));
}
void store(uint32_t *row, Words v) {
    _mm256_storeu_si256(vector(row), v);
}
void store(uint32_t *row, Words v, int32_t count) {
    _mm256_maskstore_epi32(static_cast<int *>(static_cast<void *>(row)), first_words(count), v);
}
Words load(const uint16_t *row) {
    return _mm256_loadu_si256(vector(row));
}
Words load(const uint16_t *row, int32_t count) {
    alignas(32) uint16_t some[16] = {};
    for (int32_t k = 0; k < count; k++) some[k] = row[k];
    return load(some);
}
void store(uint16_t *row, Words v) {
    _mm256_storeu_si256(vector(row), v);
}
void store(uint16_t *row, Words v, int32_t count) {
    alignas(32) uint16_t some[16];
    store(some, v);
    for (int32_t k = 0; k < count; k++) row[k] = some[k];
}
Doubles load(const double *row) {
    return _mm256_loadu_pd(row);
}
Doubles load(const double *row, int32_t count) {
    return _mm256_maskload_pd(row, first_doubles(count));
}
void store(double *row, Doubles v) {
    _mm256_storeu_pd(row, v);
}
void store(double *row, Doubles v, int32_t count) {
    _mm256_maskstore_pd(row, first_doubles(count), v);
}

Words all(uint32_t x) {
    return _mm256_set1_epi32(static_cast<int>(x));
}
Doubles all(double x) {
    return _mm256_set1_pd(x);
}
Floats all(float x) {
    return _mm256_set1_ps(x);
}

Words add(Words a, Words b) {
    return _mm256_add_epi32(a, b);
}
Words subtract(Words a, Words b) {
    return _mm256_sub_epi32(a, b);
}
Words multiply(Words a, Words b) {
    return _mm256_mullo_epi32(a, b);
}
Words smaller(Words a, Words b) {
    return _mm256_min_epu32(a, b);
}
bool are_below(Words a, Words b) {
    return _mm256_testz_si256(_mm256_cmpeq_epi32(_mm256_max_epu32(a, b), a), _mm256_set1_epi32(-1));
}
Words difference(Words a, Words b) {
    return _mm256_xor_si256(a, b);
}
Words odd_lanes(Words a) {
    return _mm256_srli_epi64(a, 32);
}
Words multiply_wide(Words a, Words b) {
    return _mm256_mul_epu32(a, b);
}
Words add_wide(Words a, Words b) {
    return _mm256_add_epi64(a, b);
}
uint64_t total(Words a) {
    alignas(32) uint64_t lanes_of[4];
    _mm256_store_si256(vector(lanes_of), a);
    return lanes_of[0] + lanes_of[1] + lanes_of[2] + lanes_of[3];
}
// The upper halves of 64-bit products.
Words high_product(Words a, Words b) {
    const Words even = _mm256_mul_epu32(a, b), odd = _mm256_mul_epu32(_mm256_srli_epi64(a, 32), b);
    return _mm256_blend_epi32(_mm256_srli_epi64(even, 32), odd, 0xaa);
}
// Signed 16-bit halves.
Words add_pairs(Words sum, Words a, Words b) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}
Words join_halves(Words low, Words high) {
    return _mm256_or_si256(low, _mm256_slli_epi32(high, 16));
}
Floats to_floats(Words a) {
    return _mm256_cvtepi32_ps(a);
}
Floats multiply(Floats a, Floats b) {
    return _mm256_mul_ps(a, b);
}
Words nearest(Floats a) {
    return _mm256_cvtps_epi32(a);
}

Doubles add(Doubles a, Doubles b) {
    return _mm256_add_pd(a, b);
}
Doubles subtract(Doubles a, Doubles b) {
    return _mm256_sub_pd(a, b);
}
Doubles multiply(Doubles a, Doubles b) {
    return _mm256_mul_pd(a, b);
}
Doubles multiply_add(Doubles a, Doubles b, Doubles c) {
    return _mm256_fmadd_pd(a, b, c);
}
Doubles subtract_product(Doubles a, Doubles b, Doubles c) {
    return _mm256_fnmadd_pd(b, c, a);
}
// a + b where a is negative, else a.
Doubles lift(Doubles a, Doubles b) {
    return _mm256_blendv_pd(a, _mm256_add_pd(a, b), a);
}
// Negative numbers, -0 and NaN are not below.
bool are_below(Doubles a, Doubles b) {
    return _mm256_movemask_pd(_mm256_or_pd(a, _mm256_cmp_pd(a, b, _CMP_NLT_UQ))) == 0;
}
bool are_equal(Doubles a, Doubles b) {
    return _mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_NEQ_UQ)) == 0;
}
double total(Doubles a) {
    alignas(32) double lanes_of[4];
    _mm256_store_pd(lanes_of, a);
    return (lanes_of[0] + lanes_of[1]) + (lanes_of[2] + lanes_of[3]);
}
double lowest(Doubles a) {
    return _mm256_cvtsd_f64(a);
}

#include "engine/row_loops.inc"

}  // namespace

const RowInstructions rows_with_avx2 = row_table;

}  // namespace modla
