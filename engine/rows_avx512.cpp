// Row operations with AVX-512: F, BW, DQ, VL and VNNI.
//
// Everything here has internal linkage and includes nothing that instantiates code elsewhere: the linker must not keep a
// copy of a shared function that only this processor can run.
#include <immintrin.h>
#include <stdint.h>

#include "engine/row_operations.h"

namespace modla {
namespace {

using Words = __m512i;
using Doubles = __m512d;
using Floats = __m512;
constexpr int32_t word_lanes = 16, double_lanes = 8;

// For 1 to 32 lanes.
uint32_t first(int32_t count) {
    return UINT32_MAX >> (32 - count);
}

Words load(const uint32_t *row) {
    return _mm512_loadu_si512(row);
}
Words load(const uint32_t *row, int32_t count) {
    return _mm512_maskz_loadu_epi32(static_cast<__mmask16>(first(count)), row);
}
void store(uint32_t *row, Words v) {
    _mm512_storeu_si512(row, v);
}
void store(uint32_t *row, Words v, int32_t count) {
    _mm512_mask_storeu_epi32(row, static_cast<__mmask16>(first(count)), v);
}
Words load(const uint16_t *row) {
    return _mm512_loadu_si512(row);
}
Words load(const uint16_t *row, int32_t count) {
    return _mm512_maskz_loadu_epi16(first(count), row);
}
void store(uint16_t *row, Words v) {
    _mm512_storeu_si512(row, v);
}
void store(uint16_t *row, Words v, int32_t count) {
    _mm512_mask_storeu_epi16(row, first(count), v);
}
Doubles load(const double *row) {
    return _mm512_loadu_pd(row);
}
Doubles load(const double *row, int32_t count) {
    return _mm512_maskz_loadu_pd(static_cast<__mmask8>(first(count)), row);
}
void store(double *row, Doubles v) {
    _mm512_storeu_pd(row, v);
}
void store(double *row, Doubles v, int32_t count) {
    _mm512_mask_storeu_pd(row, static_cast<__mmask8>(first(count)), v);
}

Words all(uint32_t x) {
    return _mm512_set1_epi32(static_cast<int>(x));
}
Doubles all(double x) {
    return _mm512_set1_pd(x);
}
Floats all(float x) {
    return _mm512_set1_ps(x);
}

Words add(Words a, Words b) {
    return _mm512_add_epi32(a, b);
}
Words subtract(Words a, Words b) {
    return _mm512_sub_epi32(a, b);
}
Words multiply(Words a, Words b) {
    return _mm512_mullo_epi32(a, b);
}
Words smaller(Words a, Words b) {
    return _mm512_min_epu32(a, b);
}
bool are_below(Words a, Words b) {
    return _mm512_cmpge_epu32_mask(a, b) == 0;
}
Words difference(Words a, Words b) {
    return _mm512_xor_si512(a, b);
}
Words odd_lanes(Words a) {
    return _mm512_srli_epi64(a, 32);
}
Words multiply_wide(Words a, Words b) {
    return _mm512_mul_epu32(a, b);
}
Words add_wide(Words a, Words b) {
    return _mm512_add_epi64(a, b);
}
uint64_t total(Words a) {
    return static_cast<uint64_t>(_mm512_reduce_add_epi64(a));
}
// The upper halves of 64-bit products.
Words high_product(Words a, Words b) {
    const __m512 even = _mm512_castsi512_ps(_mm512_mul_epu32(a, b));
    const __m512 odd = _mm512_castsi512_ps(_mm512_mul_epu32(_mm512_srli_epi64(a, 32), b));
    return _mm512_castps_si512(_mm512_mask_movehdup_ps(odd, 0x5555, even));
}
// Signed 16-bit halves.
Words add_pairs(Words sum, Words a, Words b) {
    return _mm512_dpwssd_epi32(sum, a, b);
}
Words join_halves(Words low, Words high) {
    return _mm512_or_si512(low, _mm512_slli_epi32(high, 16));
}
Floats to_floats(Words a) {
    return _mm512_cvtepi32_ps(a);
}
Floats multiply(Floats a, Floats b) {
    return _mm512_mul_ps(a, b);
}
Words nearest(Floats a) {
    return _mm512_cvtps_epi32(a);
}

Doubles add(Doubles a, Doubles b) {
    return _mm512_add_pd(a, b);
}
Doubles subtract(Doubles a, Doubles b) {
    return _mm512_sub_pd(a, b);
}
Doubles multiply(Doubles a, Doubles b) {
    return _mm512_mul_pd(a, b);
}
Doubles multiply_add(Doubles a, Doubles b, Doubles c) {
    return _mm512_fmadd_pd(a, b, c);
}
Doubles subtract_product(Doubles a, Doubles b, Doubles c) {
    return _mm512_fnmadd_pd(b, c, a);
}
// a + b where a is negative, else a.
Doubles lift(Doubles a, Doubles b) {
    return _mm512_mask_add_pd(a, _mm512_movepi64_mask(_mm512_castpd_si512(a)), a, b);
}
// As bits, so that negative numbers, -0 and NaN are above all others.
bool are_below(Doubles a, Doubles b) {
    return _mm512_cmpge_epu64_mask(_mm512_castpd_si512(a), _mm512_castpd_si512(b)) == 0;
}
bool are_equal(Doubles a, Doubles b) {
    return _mm512_cmp_pd_mask(a, b, _CMP_NEQ_UQ) == 0;
}
double total(Doubles a) {
    return _mm512_reduce_add_pd(a);
}
double lowest(Doubles a) {
    return _mm512_cvtsd_f64(a);
}

#include "engine/row_loops.inc"

}  // namespace

const RowInstructions rows_with_avx512 = row_table;

}  // namespace modla
