#include "engine/gemm.h"

#include <utility>

#include "engine/gemm_task.h"
#include "engine/processor.h"

namespace modla {

bool route_takes(Route route, uint32_t p, bool doubles) {
    if (p < 2) return false;  // which a kernel may be called with
    const Processor &has = processor();
    switch (route) {
        case Route::bits:
            return has.avx512_gfni && p == 2;
        case Route::bytes:
            return has.avx512_vnni && p <= 256;
        case Route::pairs:
            return has.avx512_vnni && p <= 8191;
        case Route::triple:
            return has.avx512_vnni && p <= 65535;
        case Route::limbs:
            return has.avx512_vnni && doubles && p > 65535 && p <= 1u << 20;
        case Route::wide:
            return has.avx512_ifma && doubles && p > 65535 && p < 1u << 25;
        case Route::pairs2:
            return has.avx2 && p <= 8191;
        case Route::balanced2:
            return has.avx2 && p < 1u << 25 && (doubles || p <= 65535);
    }
    return false;
}

bool gemm_with(Route route, GemmTask task) {
    if (task.m <= 0 || task.n <= 0 || task.k <= 0 || !route_takes(route, task.p, task.doubles)) return false;
    // Rows of A, B and C with unit steps are read and written fastest.  The transposed product has the same entries.
    const int plain = (task.a_column == 1) + (task.b_column == 1) + (task.c_column == 1);
    const int exchanged = (task.a_row == 1) + (task.b_row == 1) + (task.c_row == 1);
    if (exchanged > plain) {
        std::swap(task.m, task.n);
        std::swap(task.A, task.B);
        std::swap(task.a_row, task.b_column);
        std::swap(task.a_column, task.b_row);
        std::swap(task.c_row, task.c_column);
    }
    const bool avx2 = route == Route::pairs2 || route == Route::balanced2;
    return avx2 ? multiply_with_avx2(route, task) : multiply_with_avx512(route, task);
}

namespace {

// Is the product large enough for its packing to pay?  Measured against the plain products of n x n and thin operands:
// those of words are slower than CBLAS, which doubles leave when its sums would be too short.
bool pays(Route route, uint32_t p, int32_t m, int32_t k, int32_t n, bool doubles) {
    const int64_t products = int64_t{m} * k * n;
    const bool with_blas = doubles && p <= 1u << 22;
    int32_t rows = doubles ? 3 : 2, columns = with_blas ? 5 : 2, least = doubles ? 700 : 64;
    switch (route) {
        case Route::pairs2:
            if (doubles) least = 4000;
            break;
        case Route::balanced2:
            rows = with_blas ? 16 : 6;
            if (doubles) least = with_blas ? 14000 : 1000;
            break;
        case Route::limbs:
        case Route::wide:
            if (with_blas) rows = 8;
            break;
        default:
            break;
    }
    return m >= rows && n >= columns && products >= least && (!with_blas || int64_t{m} * n >= 64);
}

// The fastest route, where there is one that pays.
bool choose(uint32_t p, int32_t m, int32_t k, int32_t n, bool doubles, Route *route) {
    // Limbs take three packed forms of each operand, which thin ones do not repay.
    const bool thin = m < 32 || k < 32 || n < 32;
    const Route by_speed[] = {
        Route::bits,  Route::bytes, Route::pairs,  Route::triple,   thin ? Route::wide : Route::limbs,
        Route::limbs, Route::wide,  Route::pairs2, Route::balanced2};
    for (const Route candidate : by_speed) {
        if (!route_takes(candidate, p, doubles)) continue;
        *route = candidate;
        return pays(candidate, p, m, k, n, doubles);
    }
    return false;
}

template <class Entry>
bool multiply(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const Entry> A,
              Operand<const Entry> B, Operand<Entry> C) {
    constexpr bool doubles = sizeof(Entry) == sizeof(double);
    Route route;
    if (!choose(p, m, k, n, doubles, &route)) return false;
    const GemmTask task = {p,
                           static_cast<int>(update),
                           m,
                           k,
                           n,
                           doubles,
                           A.data,
                           A.steps.row,
                           A.steps.column,
                           B.data,
                           B.steps.row,
                           B.steps.column,
                           C.data,
                           C.steps.row,
                           C.steps.column};
    return gemm_with(route, task);
}

}  // namespace

bool gemm_serves(uint32_t p, int32_t m, int32_t k, int32_t n, bool doubles) {
    // Below what any route repays, so that the smallest products do not wait for the choice.
    if (int64_t{m} * k * n < (doubles ? 700 : 64)) return false;
    Route route;
    return choose(p, m, k, n, doubles, &route);
}

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A,
          Operand<const uint32_t> B, Operand<uint32_t> C) {
    return multiply(p, update, m, k, n, A, B, C);
}

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
          Operand<const StoredDouble> B, Operand<StoredDouble> C) {
    return multiply(p, update, m, k, n, A, B, C);
}

}  // namespace modla
