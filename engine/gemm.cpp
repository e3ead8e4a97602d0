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
        case Route::slices:
            return has.avx512_vnni && p == 3;
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

namespace {

// Rows of A, B and C with unit steps are read and written fastest.  The transposed product has the same entries.
void turn_to_rows(GemmTask *task) {
    const int plain = (task->a_column == 1) + (task->b_column == 1) + (task->c_column == 1);
    const int exchanged = (task->a_row == 1) + (task->b_row == 1) + (task->c_row == 1);
    if (exchanged <= plain) return;
    std::swap(task->m, task->n);
    std::swap(task->A, task->B);
    std::swap(task->a_row, task->b_column);
    std::swap(task->a_column, task->b_row);
    std::swap(task->c_row, task->c_column);
}

}  // namespace

bool gemm_with(Route route, GemmTask task) {
    if (task.m <= 0 || task.n <= 0 || task.k <= 0 || !route_takes(route, task.p, task.doubles)) return false;
    turn_to_rows(&task);
    if (route == Route::slices) return multiply_by_slices(task);
    const bool avx2 = route == Route::pairs2 || route == Route::balanced2;
    return avx2 ? multiply_with_avx2(route, task) : multiply_with_avx512(route, task);
}

namespace {

// What a call, an entry of A and an entry of B cost the engine, in products of the plain route: packing, and for B that
// rows are multiplied by the tile.
struct Cost {
    int32_t call, left, right;
};

// Fitted to products of all shapes with sides from 2 to 256, against the plain routes: CBLAS for sums of doubles that stay
// below 2^53, else the classical product.
Cost cost_of(Route route, bool with_blas) {
    switch (route) {
        case Route::bits:
            return with_blas ? Cost{200, 2, 1} : Cost{130, 0, 1};
        case Route::slices:
        case Route::bytes:
        case Route::pairs:
            return with_blas ? Cost{200, 2, 1} : Cost{100, 0, 1};
        case Route::triple:
            return with_blas ? Cost{1000, 3, 1} : Cost{100, 0, 2};
        case Route::limbs:
        case Route::wide:
            return with_blas ? Cost{400, 2, 2} : Cost{80, 0, 1};
        case Route::pairs2:
            return with_blas ? Cost{600, 10, 0} : Cost{60, 0, 3};
        case Route::balanced2:
            return with_blas ? Cost{8000, 20, 3} : Cost{60, 0, 3};
    }
    return {};
}

bool has_blas(const GemmTask &task) {
    const uint64_t largest = uint64_t{task.p - 1} * (task.p - 1);
    uint64_t sum;
    return task.doubles && task.k > 1 && !__builtin_mul_overflow(largest, static_cast<uint64_t>(task.k), &sum) &&
           sum <= FloatRing::limit - task.p;
}

// Slices are 512 columns wide, and their tables serve all rows.  Fitted as above, against bytes.
bool slices_pay(int64_t m, int64_t n) {
    const int64_t panels = (n + 511) / 512;
    return m * (n - 100 * panels) >= 13000 * panels;
}

// The fastest route for rows, where there is one that pays.
bool choose(const GemmTask &task, Route *route) {
    const int64_t m = task.m, k = task.k, n = task.n, products = m * k * n;
    // Limbs take three packed forms of each operand, which thin ones do not repay.
    const bool thin = m < 32 || k < 32 || n < 32;
    const Route by_speed[] = {
        Route::bits,  Route::slices, Route::bytes,  Route::pairs,    Route::triple, thin ? Route::wide : Route::limbs,
        Route::limbs, Route::wide,   Route::pairs2, Route::balanced2};
    for (const Route candidate : by_speed) {
        if (!route_takes(candidate, task.p, task.doubles)) continue;
        if (candidate == Route::slices && !slices_pay(m, n)) continue;
        *route = candidate;
        const Cost cost = cost_of(candidate, has_blas(task));
        return products > cost.call + k * (cost.left * m + cost.right * n);
    }
    return false;
}

// Asked first, so that the smallest products do not wait for the choice.  One row or column is for rows.h.
template <class Entry>
bool may_pay(int32_t m, int32_t k, int32_t n) {
    return int64_t{m} * k * n > (sizeof(Entry) == sizeof(double) ? 100 : 64) && m != 1 && n != 1;
}

void reduce_words(uint32_t p, void *entries, int32_t count) {
    for (uint32_t *x = static_cast<uint32_t *>(entries); count > 0; count--, x++) *x %= p;
}

void reduce_doubles(uint32_t p, void *entries, int32_t count) {
    const FloatRing ring = float_ring(p);
    for (StoredDouble *x = static_cast<StoredDouble *>(entries); count > 0; count--, x++) *x = ring.canonical(*x);
}

template <class Entry>
GemmTask task_of(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const Entry> A,
                 Operand<const Entry> B, Operand<Entry> C) {
    GemmTask task = {p,
                     static_cast<int>(update),
                     m,
                     k,
                     n,
                     sizeof(Entry) == sizeof(double),
                     A.data,
                     A.steps.row,
                     A.steps.column,
                     B.data,
                     B.steps.row,
                     B.steps.column,
                     C.data,
                     C.steps.row,
                     C.steps.column,
                     nullptr};
    turn_to_rows(&task);
    return task;
}

template <class Entry>
bool multiply(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const Entry> A,
              Operand<const Entry> B, Operand<Entry> C, bool any_entries) {
    if (!may_pay<Entry>(m, k, n)) return false;
    GemmTask task = task_of(p, update, m, k, n, A, B, C);
    if (any_entries) task.reduce = task.doubles ? reduce_doubles : reduce_words;
    Route route;
    return choose(task, &route) && gemm_with(route, task);
}

template <class Entry>
bool serves(uint32_t p, int32_t m, int32_t k, int32_t n, Operand<const Entry> A, Operand<const Entry> B,
            Operand<Entry> C) {
    Route route;
    return may_pay<Entry>(m, k, n) && choose(task_of(p, Update::store, m, k, n, A, B, C), &route);
}

}  // namespace

bool gemm_serves(uint32_t p, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A, Operand<const uint32_t> B,
                 Operand<uint32_t> C) {
    return serves(p, m, k, n, A, B, C);
}

bool gemm_serves(uint32_t p, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
                 Operand<const StoredDouble> B, Operand<StoredDouble> C) {
    return serves(p, m, k, n, A, B, C);
}

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A,
          Operand<const uint32_t> B, Operand<uint32_t> C, bool any_entries) {
    return multiply(p, update, m, k, n, A, B, C, any_entries);
}

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
          Operand<const StoredDouble> B, Operand<StoredDouble> C, bool any_entries) {
    return multiply(p, update, m, k, n, A, B, C, any_entries);
}

}  // namespace modla
