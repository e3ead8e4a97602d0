// Packed products with AVX-512: F, BW, DQ and VL, and VNNI or IFMA as a route needs them.
//
// Everything here has internal linkage and includes nothing that instantiates code elsewhere: the linker must not keep a
// copy of a shared function that only this processor can run.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "engine/gemm_task.h"

extern "C" {
void modla_avx512_bytes(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
void modla_avx512_pairs(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
void modla_avx512_bits(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
void modla_avx512_wide(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
}

namespace modla {
namespace {

#include "engine/avx512_entries.inc"

// ---- Residues in 32-bit lanes

// Constants are full vectors in memory: a broadcast from a general register is slower, and vector registers are few.
struct Modulus {
    __m512i p, half;    // half: the largest balanced residue
    __m512i fold;       // 16-bit pairs (1, 2^16 balanced)
    __m512i low, bias;  // 2^15 in the low half; 2^15 mod p
    __m512 reciprocal;

    explicit Modulus(uint32_t modulus) {
        p = _mm512_set1_epi32(static_cast<int>(modulus));
        half = _mm512_set1_epi32(static_cast<int>((modulus - 1) / 2));
        fold = pair(1, balanced(1u << 16, modulus));
        low = _mm512_set1_epi32(1 << 15);
        bias = _mm512_set1_epi32(static_cast<int>((1u << 15) % modulus));
        reciprocal = _mm512_set1_ps(1.0f / static_cast<float>(modulus));
    }

    static uint32_t balanced(uint64_t x, uint32_t modulus) {
        const uint32_t r = static_cast<uint32_t>(x % modulus);
        return r > (modulus - 1) / 2 ? r - modulus : r;
    }
    static __m512i pair(uint32_t low_half, uint32_t high_half) {
        return _mm512_set1_epi32(static_cast<int>(high_half << 16 | (low_half & 0xffff)));
    }
    // Residues in -(p/2)..p/2.
    __m512i balanced(__m512i r) const { return _mm512_mask_sub_epi32(r, _mm512_cmpgt_epi32_mask(r, half), r, p); }
    // t mod p for |t| <= 2^15 p.  Each of the three roundings of the quotient adds at most 2^15 * 2^-24 to its error, so
    // that the rounded quotient leaves |r| < p.
    __m512i remainder(__m512i t) const {
        const __m512i q = _mm512_cvt_roundps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(t), reciprocal),
                                                   _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m512i r = _mm512_sub_epi32(t, _mm512_mullo_epi32(q, p));
        return _mm512_min_epu32(r, _mm512_add_epi32(r, p));
    }
    // x mod p for any signed x = 2^16 h + l + 2^15 with signed 16-bit h and l: l + h * (2^16 balanced) + 2^15 mod p is at
    // most 2^15 (p/2 + 1) + p in magnitude.
    __m512i reduced(__m512i x) const { return remainder(_mm512_dpwssd_epi32(bias, _mm512_xor_si512(x, low), fold)); }
};

// ---- Forms

#include "engine/packing.inc"

constexpr int vector_bytes = 64, tile_rows = 7, plane_bytes = tile_rows * vector_bytes;

// Rows of B, 0 where there are none.
template <class Storage>
__m512i load_row(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t i, int32_t rows,
                 __mmask16 some) {
    return i < rows ? Storage::load(b + i * row_step, step, some) : _mm512_setzero_si512();
}

__m512i joined(__m512i low, __m512i high) {
    return _mm512_mask_blend_epi16(0xaaaaaaaa, low, _mm512_slli_epi32(high, 16));
}

// Four vectors of bytes in 32-bit lanes as one of bytes.
__m512i joined(__m512i a, __m512i b, __m512i c, __m512i d) {
    return _mm512_or_si512(_mm512_or_si512(a, _mm512_slli_epi32(b, 8)),
                           _mm512_or_si512(_mm512_slli_epi32(c, 16), _mm512_slli_epi32(d, 24)));
}

// Bytes: A balanced, B in 0..p-1 <= 255.  A product is at most 128 * 255, so that 65,791 of them fit a signed 32-bit sum.
struct Bytes {
    using Mask = __mmask16;
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 16, planes = 1, stride = 1088;
    static constexpr int products[1] = {4}, entry[1] = {1};
    static constexpr int32_t group_products = 16, group_rows = 4, block_rows = 448, block_columns = 256;
    static constexpr bool across_first = false, doubles = false;
    static constexpr bool folds = false;
    static constexpr int32_t depth = 1024;
    Modulus modulus;

    explicit Bytes(uint32_t p) : modulus(p) {}

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 16) {
            const __m512i r = modulus.balanced(Storage::load(a + i * step, step, first(count - i)));
            _mm_store_si128(reinterpret_cast<__m128i *>(to[0] + i), _mm512_cvtepi32_epi8(r));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        const __mmask16 some = first(columns_left);
        const auto load = [&](int32_t i) { return load_row<Storage>(b, row_step, step, i, count, some); };
        _mm512_store_si512(to[0], joined(load(0), load(1), load(2), load(3)));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_bytes(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }
    __m512i residues(const char *tile) const { return modulus.reduced(_mm512_load_si512(tile)); }
    void restart(char *tile, __m512i r) const { _mm512_store_si512(tile, r); }
};

// Pairs: both balanced; `depth` products of at most (p/2)^2 and a residue fit a signed 32-bit sum.
struct Pairs {
    using Mask = __mmask16;
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 16, planes = 1, stride = 1088;
    static constexpr int products[1] = {2}, entry[1] = {2};
    static constexpr int32_t group_products = 8, group_rows = 2, block_rows = 224, block_columns = 256;
    static constexpr bool across_first = false, doubles = false;
    static constexpr bool folds = true;
    int32_t depth;
    Modulus modulus;

    explicit Pairs(uint32_t p) : modulus(p) {
        const uint32_t bound = (0x7fffffff - p) / ((p / 2) * (p / 2));
        depth = bound > 512 ? 512 : static_cast<int32_t>(bound / 32 * 32);
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 16) {
            const __m512i r = modulus.balanced(Storage::load(a + i * step, step, first(count - i)));
            _mm256_store_si256(reinterpret_cast<__m256i *>(to[0] + 2 * i), _mm512_cvtepi32_epi16(r));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        const __mmask16 some = first(columns_left);
        const auto load = [&](int32_t i) {
            return modulus.balanced(load_row<Storage>(b, row_step, step, i, count, some));
        };
        _mm512_store_si512(to[0], joined(load(0), load(1)));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_pairs(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }
    __m512i residues(const char *tile) const { return modulus.reduced(_mm512_load_si512(tile)); }
    void restart(char *tile, __m512i r) const { _mm512_store_si512(tile, r); }
};

// The sum C of products of balanced residues, twice: plane 0 has u = C mod 2^32 by pairs that wrap around, plane 1 has
// v = C modulo 255 by bytes.  With C = u + 2^32 t and 2^8 = 2^32 = 1 modulo 255, t = v - (the sum of u's bytes) modulo
// 255, and |t| <= 127 as |C| <= 448 * 2^30 + 2^16 < 127 * 2^32.  A's bytes are balanced, B's in 0..255: v stays below
// 448 * 127 * 255 + 510 < 2^24.
struct Triple {
    using Mask = __mmask16;
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 16, planes = 2, stride = 1088;
    static constexpr int products[2] = {2, 4}, entry[2] = {2, 1};
    static constexpr int32_t group_products = 16, group_rows = 4, block_rows = 224, block_columns = 256;
    static constexpr bool across_first = false, doubles = false;
    static constexpr bool folds = true;
    static constexpr int32_t depth = 448;
    Modulus modulus;
    __m512i ones, minus_ones;  // bytes
    __m512i lift;              // a multiple of 255 that makes what bytes are summed of nonnegative
    __m512i lift_residue;
    __m512i largest, modulus255;
    __m512i halves, unsigned_bias;  // 2^15 in both halves; 2^15 + 2^31 mod p
    __m512i high_fold;              // 16-bit pairs (2^32 balanced, 0)

    explicit Triple(uint32_t p) : modulus(p) {
        ones = _mm512_set1_epi32(0x01010101);
        minus_ones = _mm512_set1_epi32(-1);
        lift = _mm512_set1_epi32(255 << 17);
        lift_residue = _mm512_set1_epi32(255 * 129);
        largest = _mm512_set1_epi32(127);
        modulus255 = _mm512_set1_epi32(255);
        halves = _mm512_set1_epi32(static_cast<int>(0x80008000));
        unsigned_bias = _mm512_set1_epi32(static_cast<int>(0x80008000u % p));
        high_fold = Modulus::pair(Modulus::balanced(uint64_t{1} << 32, p), 0);
    }

    __m512i sum_of_bytes(__m512i x) const { return _mm512_dpbusd_epi32(_mm512_setzero_si512(), x, ones); }
    // A balanced residue modulo 255, in 0..255: with the lift it is below 2^16 + 2^7, which rules out the one sum of
    // bytes, 511, that would leave 256.
    __m512i modulo255(__m512i r) const { return sum_of_bytes(sum_of_bytes(_mm512_add_epi32(r, lift_residue))); }
    // The same number of x in 0..258 modulo 255, in -127..127.
    __m512i balanced255(__m512i x) const {
        return _mm512_mask_sub_epi32(x, _mm512_cmpgt_epi32_mask(x, largest), x, modulus255);
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 16) {
            const __m512i r = modulus.balanced(Storage::load(a + i * step, step, first(count - i)));
            _mm256_store_si256(reinterpret_cast<__m256i *>(to[0] + 2 * i), _mm512_cvtepi32_epi16(r));
            _mm_store_si128(reinterpret_cast<__m128i *>(to[1] + i), _mm512_cvtepi32_epi8(balanced255(modulo255(r))));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        const __mmask16 some = first(columns_left);
        const auto load = [&](int32_t i) {
            return modulus.balanced(load_row<Storage>(b, row_step, step, i, count, some));
        };
        const __m512i b0 = load(0), b1 = load(1), b2 = load(2), b3 = load(3);
        _mm512_store_si512(to[0], joined(b0, b1));
        _mm512_store_si512(to[0] + 64, joined(b2, b3));
        _mm512_store_si512(to[1], joined(modulo255(b0), modulo255(b1), modulo255(b2), modulo255(b3)));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_pairs(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
        modla_avx512_bytes(a[1], b[1], tile + plane_bytes, steps[1] / 16, steps[1] % 16 / 4, accumulate);
    }
    // With u = 2^16 h + l + 2^15 + 2^31, h and l signed: l + h * (2^16 balanced) + t * (2^32 balanced) + 2^15 + 2^31
    // mod p is at most 2^15 (p/2 + 1) + 127 p/2 + p in magnitude.
    __m512i residues(const char *tile) const {
        const __m512i u = _mm512_load_si512(tile), v = _mm512_load_si512(tile + plane_bytes);
        const __m512i difference = _mm512_add_epi32(_mm512_dpbusd_epi32(v, u, minus_ones), lift);
        const __m512i t = balanced255(sum_of_bytes(sum_of_bytes(difference)));
        const __m512i low = _mm512_dpwssd_epi32(unsigned_bias, _mm512_xor_si512(u, halves), modulus.fold);
        return modulus.remainder(_mm512_dpwssd_epi32(low, t, high_fold));
    }
    void restart(char *tile, __m512i r) const {
        _mm512_store_si512(tile, r);
        _mm512_store_si512(tile + plane_bytes, sum_of_bytes(r));
    }
};

// Two limbs, three products, p <= 2^20: a = 256 a1 + a0 and b = 256 b1 + b0 balanced, a0 a signed byte, b0 an unsigned
// one, |a1| and |b1| <= 2^11.  Planes: c1, the sum of a1 b1; the sum of (a1 + a0)(b1 + b0) modulo 2^32; c0, the sum of
// a0 b0.  c1 stays within 448 * 2^22 < 2^31; the middle c = a1 b0 + a0 b1, what the second exceeds c1 + c0 by, within
// 448 * 2^11 (255 + 128) < 2^31; 2^16 c1 + 2^8 c + c0 within 2^53: doubles hold it.
struct Limbs {
    using Mask = __mmask16;
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 16, planes = 3, stride = 1088;
    static constexpr int products[3] = {2, 2, 4}, entry[3] = {2, 2, 1};
    static constexpr int32_t group_products = 16, group_rows = 4, block_rows = 112, block_columns = 256;
    static constexpr bool across_first = false, doubles = false;
    static constexpr bool folds = true;
    static constexpr int32_t depth = 448;
    Modulus modulus;
    __m512i byte;
    __m512d wide_p, wide_reciprocal, two8, two16;

    explicit Limbs(uint32_t p) : modulus(p) {
        byte = _mm512_set1_epi32(255);
        wide_p = _mm512_set1_pd(p);
        wide_reciprocal = _mm512_set1_pd(1.0 / p);
        two8 = _mm512_set1_pd(256.0);
        two16 = _mm512_set1_pd(65536.0);
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 16) {
            const __m512i r = modulus.balanced(Storage::load(a + i * step, step, first(count - i)));
            const __m512i low = _mm512_srai_epi32(_mm512_slli_epi32(r, 24), 24);
            const __m512i high = _mm512_srai_epi32(_mm512_sub_epi32(r, low), 8);
            _mm256_store_si256(reinterpret_cast<__m256i *>(to[0] + 2 * i), _mm512_cvtepi32_epi16(high));
            _mm256_store_si256(reinterpret_cast<__m256i *>(to[1] + 2 * i),
                               _mm512_cvtepi32_epi16(_mm512_add_epi32(high, low)));
            _mm_store_si128(reinterpret_cast<__m128i *>(to[2] + i), _mm512_cvtepi32_epi8(low));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        const __mmask16 some = first(columns_left);
        const auto load = [&](int32_t i) {
            return modulus.balanced(load_row<Storage>(b, row_step, step, i, count, some));
        };
        const __m512i b0 = load(0), b1 = load(1), b2 = load(2), b3 = load(3);
        const auto low = [&](__m512i x) { return _mm512_and_si512(x, byte); };
        const auto high = [](__m512i x) { return _mm512_srai_epi32(x, 8); };
        const auto sum = [&](__m512i x) { return _mm512_add_epi32(high(x), low(x)); };
        _mm512_store_si512(to[0], joined(high(b0), high(b1)));
        _mm512_store_si512(to[0] + 64, joined(high(b2), high(b3)));
        _mm512_store_si512(to[1], joined(sum(b0), sum(b1)));
        _mm512_store_si512(to[1] + 64, joined(sum(b2), sum(b3)));
        _mm512_store_si512(to[2], joined(low(b0), low(b1), low(b2), low(b3)));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_pairs(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
        modla_avx512_pairs(a[1], b[1], tile + plane_bytes, steps[1] / 16, steps[1] % 16 / 4, accumulate);
        modla_avx512_bytes(a[2], b[2], tile + 2 * plane_bytes, steps[2] / 16, steps[2] % 16 / 4, accumulate);
    }
    __m256i combined(__m256i c1, __m256i c, __m256i c0) const {
        const __m512d low = _mm512_fmadd_pd(_mm512_cvtepi32_pd(c), two8, _mm512_cvtepi32_pd(c0));
        const __m512d x = _mm512_fmadd_pd(_mm512_cvtepi32_pd(c1), two16, low);
        const __m512d q = _mm512_roundscale_pd(_mm512_mul_pd(x, wide_reciprocal), 8);
        return _mm512_cvtpd_epi32(_mm512_fnmadd_pd(q, wide_p, x));
    }
    __m512i residues(const char *tile) const {
        const __m512i c1 = _mm512_load_si512(tile), c0 = _mm512_load_si512(tile + 2 * plane_bytes);
        const __m512i c = _mm512_sub_epi32(_mm512_load_si512(tile + plane_bytes), _mm512_add_epi32(c1, c0));
        const auto high = [](__m512i x) { return _mm512_extracti64x4_epi64(x, 1); };
        const __m256i r0 = combined(_mm512_castsi512_si256(c1), _mm512_castsi512_si256(c), _mm512_castsi512_si256(c0));
        const __m512i r = _mm512_inserti64x4(_mm512_castsi256_si512(r0), combined(high(c1), high(c), high(c0)), 1);
        return _mm512_min_epu32(r, _mm512_add_epi32(r, modulus.p));
    }
    void restart(char *tile, __m512i r) const {
        _mm512_store_si512(tile, _mm512_setzero_si512());
        _mm512_store_si512(tile + plane_bytes, r);
        _mm512_store_si512(tile + 2 * plane_bytes, r);
    }
};

// 52-bit integers: products below 2^50, of which 2^14 fit an unsigned 64-bit sum.  The instruction ignores the upper 12
// bits of its factors, so that x + 2^52 is x.
struct Wide {
    using Mask = __mmask8;
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 8, planes = 1, stride = 2112;
    static constexpr int products[1] = {1}, entry[1] = {8};
    static constexpr int32_t group_products = 4, group_rows = 1, block_rows = 112, block_columns = 128;
    static constexpr bool across_first = false, doubles = false;
    static constexpr bool folds = false;
    static constexpr int32_t depth = 256;
    struct {
        __m256i p;
    } modulus;
    __m512i wide_p;
    __m512d reciprocal, two52;

    explicit Wide(uint32_t p) {
        modulus.p = _mm256_set1_epi32(static_cast<int>(p));
        wide_p = _mm512_set1_epi64(p);
        reciprocal = _mm512_set1_pd(1.0 / p);
        two52 = _mm512_set1_pd(4503599627370496.0);
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 8) {
            const __m512d r = Storage::load8(a + i * step, step, static_cast<__mmask8>(first(count - i)));
            _mm512_store_pd(to[0] + 8 * i, _mm512_add_pd(r, two52));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t, ptrdiff_t step, int32_t count, int32_t columns_left,
                    char *const *to) const {
        __m512d r = _mm512_setzero_pd();
        if (count > 0) r = Storage::load8(b, step, static_cast<__mmask8>(first(columns_left)));
        _mm512_store_pd(to[0], _mm512_add_pd(r, two52));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_wide(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }
    // The quotient is below 2^64 / 2^16 and wrong by at most 3 * 2^48 * 2^-53 before it is rounded; the remainder's low
    // half is all of it.
    __m256i residues(const char *tile) const {
        const __m512i x = _mm512_load_si512(tile);
        const __m512i q = _mm512_cvt_roundpd_epi64(_mm512_mul_pd(_mm512_cvtepu64_pd(x), reciprocal),
                                                   _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m256i r = _mm512_cvtepi64_epi32(_mm512_sub_epi64(x, _mm512_mul_epu32(q, wide_p)));
        return _mm256_min_epu32(r, _mm256_add_epi32(r, modulus.p));
    }
    void restart(char *tile, __m256i r) const { _mm512_store_si512(tile, _mm512_cvtepu32_epi64(r)); }
};

// Bits, p = 2: an entry of A is a block of 8 x 8 bits, a byte of B a column of 8, and their product by the instruction for
// affine maps of GF(2)^8 another column.
struct Bits {
    static constexpr int rows = 32, vectors = 4, line_rows = 8, columns = 64, planes = 1, stride = 1088;
    static constexpr int products[1] = {8}, entry[1] = {1};
    static constexpr int32_t group_products = 32, group_rows = 8, block_rows = 512, block_columns = 512;
    static constexpr bool across_first = true, doubles = false;
    static constexpr bool folds = false;
    static constexpr int32_t depth = 1024;
    __m512i turn;  // the transposition of 8 x 8 bytes
    __m512i one;

    explicit Bits(uint32_t) {
        alignas(64) uint8_t from[64];
        for (int i = 0; i < 64; i++) from[i] = static_cast<uint8_t>(i % 8 * 8 + i / 8);
        turn = _mm512_load_si512(from);
        one = _mm512_set1_epi32(1);
    }

    // The instruction takes the last byte of a block as its first row.
    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t row_step, ptrdiff_t step, int32_t rows_left,
                   int32_t count, char *const *to) const {
        alignas(64) uint16_t lines[8][4];
        for (int32_t i = 0; i < count; i += 64) {
            for (int32_t row = 0; row < 8; row++) {
                for (int32_t part = 0; part < 4; part++) {
                    const int32_t from = i + part * 16;
                    uint16_t bits = 0;
                    if (row < rows_left && from < count) {
                        const __m512i x = Storage::load(a + row * row_step + from * step, step, first(count - from));
                        bits = _mm512_test_epi32_mask(x, x);
                    }
                    lines[7 - row][part] = bits;
                }
            }
            _mm512_store_si512(to[0] + i, _mm512_permutexvar_epi8(turn, _mm512_load_si512(lines)));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        for (int32_t part = 0; part < 4; part++) {
            __m512i sum = _mm512_setzero_si512();
            const __mmask16 some = first(columns_left - part * 16 > 0 ? columns_left - part * 16 : 0);
            for (int32_t i = smaller(count, 8) - 1; i >= 0; i--) {
                sum = _mm512_or_si512(_mm512_add_epi32(sum, sum),
                                      Storage::load(b + i * row_step + part * 16 * step, step, some));
            }
            _mm_store_si128(reinterpret_cast<__m128i *>(to[0] + part * 16), _mm512_cvtepi32_epi8(sum));
        }
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx512_bits(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }

    template <class Storage>
    void finish(const char *tile, typename Storage::Entry *c, ptrdiff_t row_step, ptrdiff_t step, int32_t rows_left,
                int32_t columns_left, int update) const {
        for (int32_t octet = 0; octet < 4; octet++) {
            for (int32_t part = 0; part < 4 && part * 16 < columns_left; part++) {
                const __mmask16 some = first(columns_left - part * 16);
                __m512i bits = _mm512_cvtepu8_epi32(
                    _mm_load_si128(reinterpret_cast<const __m128i *>(tile + octet * 64 + part * 16)));
                typename Storage::Entry *to = c + octet * 8 * row_step + part * 16 * step;
                for (int32_t i = octet * 8; i < octet * 8 + 8 && i < rows_left; i++, to += row_step) {
                    __m512i r = _mm512_and_si512(bits, one);
                    if (update) r = _mm512_xor_si512(r, Storage::load(to, step, some));
                    Storage::store(to, step, some, r);
                    bits = _mm512_srli_epi32(bits, 1);
                }
            }
        }
    }
};

template <class Form>
void fold_tile(const Form &form, char *tile) {
    for (int i = 0; i < tile_rows; i++) form.restart(tile + i * 64, form.residues(tile + i * 64));
}

template <class Storage, class Form>
void finish_tile(const Form &form, const char *tile, typename Storage::Entry *c, ptrdiff_t row_step, ptrdiff_t step,
                 int32_t rows, int32_t columns, int update) {
    if constexpr (Form::line_rows > 1) {
        form.template finish<Storage>(tile, c, row_step, step, rows, columns, update);
    } else {
        const auto some = static_cast<typename Form::Mask>(first(columns));
        for (int32_t i = 0; i < tile_rows && i < rows; i++, c += row_step) {
            auto r = form.residues(tile + i * 64);
            if (update) r = updated(Storage::load(c, step, some), r, form.modulus.p, update);
            Storage::store(c, step, some, r);
        }
    }
}

#include "engine/packed_product.inc"

template <class Form>
bool multiply_entries(const GemmTask &task) {
    return task.doubles ? packed_product<Form, Doubles<false>>(task) : packed_product<Form, Words<false>>(task);
}

}  // namespace

bool multiply_with_avx512(Route route, const GemmTask &task) {
    switch (route) {
        case Route::bytes:
            return multiply_entries<Bytes>(task);
        case Route::pairs:
            return multiply_entries<Pairs>(task);
        case Route::triple:
            return multiply_entries<Triple>(task);
        case Route::bits:
            return multiply_entries<Bits>(task);
        case Route::limbs:
            return packed_product<Limbs, Doubles<false>>(task);
        case Route::wide:
            return packed_product<Wide, Doubles<false>>(task);
        default:
            return false;
    }
}

}  // namespace modla
