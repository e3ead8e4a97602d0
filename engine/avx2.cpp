// Packed products with AVX2 and FMA.
//
// As in avx512.cpp, everything here has internal linkage and includes nothing that instantiates code elsewhere.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "engine/gemm_task.h"

extern "C" {
void modla_avx2_pairs(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
void modla_avx2_doubles(const void *a, const void *b, void *tile, int segments, int quads, int accumulate);
}

namespace modla {
namespace {

#include "engine/packing.inc"

// ---- Entries of matrices, up to `count` <= 8 of them as 32-bit integers

// All ones in the lanes below count.
__m256i first(int32_t count) {
    return _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
}

__m256i updated(__m256i c, __m256i r, __m256i p, int update) {
    if (update == 1) {
        const __m256i sum = _mm256_add_epi32(c, r);
        return _mm256_min_epu32(sum, _mm256_sub_epi32(sum, p));
    }
    const __m256i difference = _mm256_sub_epi32(c, r);
    return _mm256_min_epu32(difference, _mm256_add_epi32(difference, p));
}

template <bool unit>
struct Words {
    using Entry = uint32_t;
    using Unit = Words<true>;

    static __m256i load(const Entry *e, ptrdiff_t step, int32_t count) {
        if (unit) {
            if (count >= 8) return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(e));
            return _mm256_maskload_epi32(reinterpret_cast<const int *>(e), first(count));
        }
        alignas(32) uint32_t values[8] = {};
        for (int32_t i = 0; i < 8 && i < count; i++) values[i] = e[i * step];
        return _mm256_load_si256(reinterpret_cast<const __m256i *>(values));
    }
    static bool are_residues(const Entry *e, ptrdiff_t step, int32_t count, uint32_t p) {
        const __m256i bound = _mm256_set1_epi32(static_cast<int>(p - 1));
        __m256i largest = bound;
        for (; count > 0; count -= 8, e += 8 * step) largest = _mm256_max_epu32(largest, load(e, step, count));
        return _mm256_movemask_epi8(_mm256_cmpeq_epi32(largest, bound)) == -1;
    }
    static void store(Entry *e, ptrdiff_t step, int32_t count, __m256i r) {
        if (unit) return _mm256_maskstore_epi32(reinterpret_cast<int *>(e), first(count), r);
        alignas(32) uint32_t values[8];
        _mm256_store_si256(reinterpret_cast<__m256i *>(values), r);
        for (int32_t i = 0; i < 8 && i < count; i++) e[i * step] = values[i];
    }
};

struct [[gnu::packed, gnu::aligned(4)]] Double {
    double value;
};

template <bool unit>
struct Doubles {
    using Entry = Double;
    using Unit = Doubles<true>;

    // As with AVX-512.
    static bool are_residues(const Entry *e, ptrdiff_t step, int32_t count, uint32_t p) {
        const __m256d two52 = _mm256_set1_pd(4503599627370496.0), bound = _mm256_set1_pd(4503599627370496.0 + p);
        __m256d other = _mm256_setzero_pd();
        for (; count > 0; count -= 4, e += 4 * step) {
            alignas(32) double values[4] = {};
            for (int32_t i = 0; !(unit && count >= 4) && i < 4 && i < count; i++) values[i] = e[i * step].value;
            const __m256d x =
                unit && count >= 4 ? _mm256_loadu_pd(reinterpret_cast<const double *>(e)) : _mm256_load_pd(values);
            const __m256d sum = _mm256_add_pd(x, two52);
            const __m256d outside =
                _mm256_or_pd(_mm256_cmp_pd(sum, two52, _CMP_LT_OQ), _mm256_cmp_pd(sum, bound, _CMP_GE_OQ));
            other =
                _mm256_or_pd(other, _mm256_or_pd(outside, _mm256_cmp_pd(_mm256_sub_pd(sum, two52), x, _CMP_NEQ_UQ)));
        }
        return !_mm256_movemask_pd(other);
    }
    static __m256i load(const Entry *e, ptrdiff_t step, int32_t count) {
        if (unit && (count == 4 || count >= 8)) {
            const __m128i low = _mm256_cvtpd_epi32(_mm256_loadu_pd(reinterpret_cast<const double *>(e)));
            if (count == 4) return _mm256_zextsi128_si256(low);
            return _mm256_set_m128i(_mm256_cvtpd_epi32(_mm256_loadu_pd(reinterpret_cast<const double *>(e + 4))), low);
        }
        alignas(32) double values[8] = {};
        for (int32_t i = 0; i < 8 && i < count; i++) values[i] = e[i * step].value;
        return _mm256_set_m128i(_mm256_cvtpd_epi32(_mm256_load_pd(values + 4)),
                                _mm256_cvtpd_epi32(_mm256_load_pd(values)));
    }
    static void store(Entry *e, ptrdiff_t step, int32_t count, __m256i r) {
        const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(r));
        const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(r, 1));
        if (unit && count >= 4) {
            _mm256_storeu_pd(reinterpret_cast<double *>(e), low);
            if (count >= 8) return _mm256_storeu_pd(reinterpret_cast<double *>(e + 4), high);
        }
        alignas(32) double values[8];
        _mm256_store_pd(values, low);
        _mm256_store_pd(values + 4, high);
        for (int32_t i = 0; i < 8 && i < count; i++) e[i * step].value = values[i];
    }
};

// ---- Forms

constexpr int vector_bytes = 32, tile_rows = 6;

// How many products of balanced residues fit a sum beside a residue: a multiple of 32, at most `most`.
int32_t depth_below(double largest_sum, uint32_t p, int32_t most) {
    const uint32_t largest = p / 2;
    const double half = largest, bound = (largest_sum - p) / (half * half);
    return bound > most ? most : static_cast<int32_t>(bound) / 32 * 32;
}

__m256i balanced(__m256i r, __m256i half, __m256i p) {
    return _mm256_sub_epi32(r, _mm256_and_si256(_mm256_cmpgt_epi32(r, half), p));
}

template <class Form>
void fold_tile(const Form &form, char *tile) {
    for (int i = 0; i < tile_rows; i++) form.restart(tile + i * 32, form.residues(tile + i * 32));
}

template <class Storage, class Form>
void finish_tile(const Form &form, const char *tile, typename Storage::Entry *c, ptrdiff_t row_step, ptrdiff_t step,
                 int32_t rows, int32_t columns, int update) {
    const int32_t count = smaller(columns, Form::columns);
    for (int32_t i = 0; i < tile_rows && i < rows; i++, c += row_step) {
        __m256i r = form.residues(tile + i * 32);
        if (update) r = updated(Storage::load(c, step, count), r, form.p, update);
        Storage::store(c, step, count, r);
    }
}

// Pairs, as with AVX-512.
struct Pairs {
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 8, planes = 1, stride = 1088;
    static constexpr int products[1] = {2}, entry[1] = {2};
    static constexpr int32_t group_products = 8, group_rows = 2, block_rows = 192, block_columns = 256;
    static constexpr bool across_first = false, doubles = false, folds = true;
    int32_t depth;
    __m256i p, half, pair, low, bias;
    __m256 reciprocal;

    explicit Pairs(uint32_t modulus) {
        depth = depth_below(2147483647.0, modulus, 512);
        const uint32_t largest = (modulus - 1) / 2, r = 65536 % modulus;
        p = _mm256_set1_epi32(static_cast<int>(modulus));
        half = _mm256_set1_epi32(static_cast<int>(largest));
        pair = _mm256_set1_epi32(static_cast<int>((r > largest ? r - modulus : r) << 16 | 1));
        low = _mm256_set1_epi32(1 << 15);
        bias = _mm256_set1_epi32(static_cast<int>((1u << 15) % modulus));
        reciprocal = _mm256_set1_ps(1.0f / static_cast<float>(modulus));
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 8) {
            const __m256i r = balanced(Storage::load(a + i * step, step, count - i), half, p);
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(r, r), 0x08);
            _mm_store_si128(reinterpret_cast<__m128i *>(to[0] + 2 * i), _mm256_castsi256_si128(packed));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t row_step, ptrdiff_t step, int32_t count,
                    int32_t columns_left, char *const *to) const {
        __m256i even = _mm256_setzero_si256(), odd = even;
        if (count > 0) even = balanced(Storage::load(b, step, columns_left), half, p);
        if (count > 1) odd = balanced(Storage::load(b + row_step, step, columns_left), half, p);
        _mm256_store_si256(reinterpret_cast<__m256i *>(to[0]),
                           _mm256_blend_epi16(even, _mm256_slli_epi32(odd, 16), 0xaa));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx2_pairs(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }
    __m256i residues(const char *tile) const {
        const __m256i halves = _mm256_xor_si256(_mm256_load_si256(reinterpret_cast<const __m256i *>(tile)), low);
        const __m256i t = _mm256_add_epi32(_mm256_madd_epi16(halves, pair), bias);
        const __m256i q = _mm256_cvtps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(t), reciprocal));
        const __m256i r = _mm256_sub_epi32(t, _mm256_mullo_epi32(q, p));
        return _mm256_min_epu32(r, _mm256_add_epi32(r, p));
    }
    void restart(char *tile, __m256i r) const { _mm256_store_si256(reinterpret_cast<__m256i *>(tile), r); }
};

// Balanced residues in doubles: `depth` products of at most (p/2)^2 and a residue stay within 2^53.  The quotient is at
// most depth p/4 + 1 < 2^32 and wrong by less than 2^-19 before it is rounded.
struct Balanced {
    static constexpr int rows = tile_rows, vectors = tile_rows, line_rows = 1, columns = 4, planes = 1, stride = 2112;
    static constexpr int products[1] = {1}, entry[1] = {8};
    static constexpr int32_t group_products = 4, group_rows = 1, block_rows = 96, block_columns = 256;
    static constexpr bool across_first = false, doubles = true, folds = true;
    int32_t depth;
    __m256i p, half;
    __m256d modulus, reciprocal;

    explicit Balanced(uint32_t m) {
        depth = depth_below(9007199254740992.0, m, 256);
        p = _mm256_set1_epi32(static_cast<int>(m));
        half = _mm256_set1_epi32(static_cast<int>((m - 1) / 2));
        modulus = _mm256_set1_pd(m);
        reciprocal = _mm256_set1_pd(1.0 / m);
    }

    template <class Storage>
    void pack_line(const typename Storage::Entry *a, ptrdiff_t, ptrdiff_t step, int32_t, int32_t count,
                   char *const *to) const {
        for (int32_t i = 0; i < count; i += 8) {
            const __m256i r = balanced(Storage::load(a + i * step, step, count - i), half, p);
            double *const entries = reinterpret_cast<double *>(to[0] + 8 * i);
            _mm256_store_pd(entries, _mm256_cvtepi32_pd(_mm256_castsi256_si128(r)));
            _mm256_store_pd(entries + 4, _mm256_cvtepi32_pd(_mm256_extracti128_si256(r, 1)));
        }
    }
    template <class Storage>
    void pack_group(const typename Storage::Entry *b, ptrdiff_t, ptrdiff_t step, int32_t count, int32_t columns_left,
                    char *const *to) const {
        __m256i r = _mm256_setzero_si256();
        if (count > 0) r = balanced(Storage::load(b, step, smaller(columns_left, 4)), half, p);
        _mm256_store_pd(reinterpret_cast<double *>(to[0]), _mm256_cvtepi32_pd(_mm256_castsi256_si128(r)));
    }
    void multiply(const char *const *a, const char *const *b, char *tile, const int32_t *steps, bool accumulate) const {
        modla_avx2_doubles(a[0], b[0], tile, steps[0] / 16, steps[0] % 16 / 4, accumulate);
    }
    __m256i residues(const char *tile) const {
        const __m256d x = _mm256_load_pd(reinterpret_cast<const double *>(tile));
        const __m256d q = _mm256_round_pd(_mm256_mul_pd(x, reciprocal), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m256i r = _mm256_zextsi128_si256(_mm256_cvtpd_epi32(_mm256_fnmadd_pd(q, modulus, x)));
        return _mm256_min_epu32(r, _mm256_add_epi32(r, p));
    }
    void restart(char *tile, __m256i r) const {
        _mm256_store_pd(reinterpret_cast<double *>(tile), _mm256_cvtepi32_pd(_mm256_castsi256_si128(r)));
    }
};

#include "engine/packed_product.inc"

template <class Form>
bool multiply_entries(const GemmTask &task) {
    return task.doubles ? packed_product<Form, Doubles<false>>(task) : packed_product<Form, Words<false>>(task);
}

}  // namespace

bool multiply_with_avx2(Route route, const GemmTask &task) {
    return route == Route::pairs2 ? multiply_entries<Pairs>(task) : multiply_entries<Balanced>(task);
}

}  // namespace modla
