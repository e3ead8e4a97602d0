// Products of random n x n matrices by the general kernels, and by the classical kernel alone, beside FLINT's.
#include <benchmark/benchmark.h>
#include <flint/nmod_mat.h>

#include <random>
#include <vector>

#include "console/host.h"
#include "modla.h"

namespace {

template <class W>
std::vector<W> random_entries(int32_t n, uint32_t p, uint32_t seed) {
    std::mt19937 source(seed);
    std::vector<W> entries(static_cast<size_t>(n) * static_cast<size_t>(n));
    for (W &entry : entries) entry = static_cast<W>(source() % p);
    return entries;
}

// product(p, n, A, B, C) multiplies row-major matrices.
template <class W, class Product>
void multiply(benchmark::State &state, Product product) {
    const uint32_t p = static_cast<uint32_t>(state.range(0));
    const int32_t n = static_cast<int32_t>(state.range(1));
    const std::vector<W> A = random_entries<W>(n, p, 1), B = random_entries<W>(n, p, 2);
    std::vector<W> C(A.size());
    for (auto _ : state) {
        product(static_cast<W>(p), n, A.data(), B.data(), C.data());
        benchmark::DoNotOptimize(C.data());
    }
    const double operations = 2.0 * n * n * n;
    state.counters["Gop/s"] = benchmark::Counter(operations * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

void general_words(benchmark::State &state) {
    const HostApi &api = modla::console::host_api();
    multiply<uint32_t>(state, [&](uint32_t p, int32_t n, const uint32_t *A, const uint32_t *B, uint32_t *C) {
        modLA_MatMult_iw(&api, p, 0, n, n, n, A, n, 1, B, n, 1, C, n, 1, 0, nullptr, 0, 20);
    });
}

void classical_words(benchmark::State &state) {
    multiply<uint32_t>(state, [](uint32_t p, int32_t n, const uint32_t *A, const uint32_t *B, uint32_t *C) {
        modLA_MatMatMult_iw(p, 0, n, n, n, A, n, 1, B, n, 1, C, n, 1, 1, 0, 0);
    });
}

void general_floats(benchmark::State &state) {
    const HostApi &api = modla::console::host_api();
    multiply<double>(state, [&](double p, int32_t n, const double *A, const double *B, double *C) {
        const double pinv = 1.0000000000000002 / p;
        modLA_MatMult_f(&api, p, pinv, n, n, n, A, n, 1, B, n, 1, C, n, 1, 0, nullptr, 0);
    });
}

void classical_floats(benchmark::State &state) {
    multiply<double>(state, [](double p, int32_t n, const double *A, const double *B, double *C) {
        const double pinv = 1.0000000000000002 / p;
        modLA_MatMatMult_f(p, pinv, n, n, n, A, n, 1, B, n, 1, C, n, 1, 1, 0, 0);
    });
}

void flint_product(benchmark::State &state) {
    const uint32_t p = static_cast<uint32_t>(state.range(0));
    const int32_t n = static_cast<int32_t>(state.range(1));
    const std::vector<uint32_t> a = random_entries<uint32_t>(n, p, 1), b = random_entries<uint32_t>(n, p, 2);
    nmod_mat_t A, B, C;
    for (nmod_mat_struct *matrix : {A, B, C}) nmod_mat_init(matrix, n, n, p);
    for (int32_t i = 0; i < n * n; i++) {
        nmod_mat_entry(A, i / n, i % n) = a[static_cast<size_t>(i)];
        nmod_mat_entry(B, i / n, i % n) = b[static_cast<size_t>(i)];
    }
    for (auto _ : state) nmod_mat_mul(C, A, B);
    const double operations = 2.0 * n * n * n;
    state.counters["Gop/s"] = benchmark::Counter(operations * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
    for (nmod_mat_struct *matrix : {A, B, C}) nmod_mat_clear(matrix);
}

void sizes(benchmark::internal::Benchmark *bench, const std::vector<int64_t> &moduli) {
    for (const int64_t p : moduli) {
        for (const int64_t n : {64, 256, 1024}) bench->Args({p, n});
    }
    bench->Unit(benchmark::kMillisecond);
}

void word_sizes(benchmark::internal::Benchmark *bench) {
    sizes(bench, {2, 251, 4093, 65521});
}
void float_sizes(benchmark::internal::Benchmark *bench) {
    sizes(bench, {2, 251, 4093, 65521, 1048573, 33554393});
}

BENCHMARK(general_words)->Apply(word_sizes);
BENCHMARK(classical_words)->Apply(word_sizes);
BENCHMARK(general_floats)->Apply(float_sizes);
BENCHMARK(classical_floats)->Apply(float_sizes);
BENCHMARK(flint_product)->Apply(float_sizes);

}  // namespace
