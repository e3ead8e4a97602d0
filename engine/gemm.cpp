#include "engine/gemm.h"

#include <utility>

#include "engine/gemm_task.h"
#include "engine/processor.h"

namespace modla {

bool route_takes(Route route, uint32_t p, bool doubles) {
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
            return has.avx512_ifma && doubles && p > 65535;
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
    return multiply_with_avx512(route, task);
}

namespace {

// Routes in the order of their speed.
constexpr Route routes[] = {Route::bits, Route::bytes, Route::pairs, Route::triple, Route::limbs, Route::wide};

template <class Entry>
bool multiply(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Strided<const Entry> A,
              Strided<const Entry> B, Strided<Entry> C, bool doubles) {
    // Thin and small products lose more by packing than they gain.
    if (m < 8 || n < 8 || k < 8) return false;
    const GemmTask task = {p,
                           static_cast<int>(update),
                           m,
                           k,
                           n,
                           doubles,
                           A.data,
                           A.row_step,
                           A.column_step,
                           B.data,
                           B.row_step,
                           B.column_step,
                           C.data,
                           C.row_step,
                           C.column_step};
    for (const Route route : routes) {
        if (route_takes(route, p, doubles)) return gemm_with(route, task);
    }
    return false;
}

}  // namespace

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Strided<const uint32_t> A,
          Strided<const uint32_t> B, Strided<uint32_t> C) {
    return multiply(p, update, m, k, n, A, B, C, false);
}

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Strided<const StoredDouble> A,
          Strided<const StoredDouble> B, Strided<StoredDouble> C) {
    return multiply(p, update, m, k, n, A, B, C, true);
}

}  // namespace modla
