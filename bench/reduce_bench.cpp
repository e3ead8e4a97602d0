// Row reduction of random n x n matrices by each kernel, beside FLINT's for the same matrix.
#include <benchmark/benchmark.h>
#include <flint/nmod_mat.h>

#include <random>
#include <vector>

#include "modla.h"

namespace {

int32_t true_bound(double limit, double p) {
    const double bound = (limit - p) / ((p - 1) * (p - 1));
    return bound > 2147483646.0 ? 2147483646 : static_cast<int32_t>(bound);
}

template <class W>
std::vector<W> random_entries(int32_t n, uint32_t p) {
    std::mt19937 source(1);
    std::vector<W> entries(static_cast<size_t>(n) * static_cast<size_t>(n));
    for (W &entry : entries) entry = static_cast<W>(source() % p);
    return entries;
}

template <class W, class Kernel>
void reduce(benchmark::State &state, Kernel kernel, double limit) {
    const int32_t n = static_cast<int32_t>(state.range(1));
    const uint32_t p = static_cast<uint32_t>(state.range(0));
    const std::vector<W> input = random_entries<W>(n, p);
    std::vector<int32_t> pending(static_cast<size_t>(n));
    const double pinv = 1.0000000000000002 / p;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<W> A = input;
        state.ResumeTiming();
        W det;
        int32_t rank;
        kernel(A.data(), n, n, n, n, static_cast<W>(p), pinv, &det, nullptr, &rank, nullptr, nullptr, nullptr, 0, 0,
               pending.data(), true_bound(limit, p));
        benchmark::DoNotOptimize(det);
    }
    const double operations = 2.0 / 3.0 * n * n * n;
    state.counters["Gop/s"] = benchmark::Counter(operations * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
}

void reduce_C_iw(benchmark::State &state) {
    reduce<uint32_t>(state, modLA_reduce_C_iw_nop, 4294967296.0);
}
void reduce_F_iw(benchmark::State &state) {
    reduce<uint32_t>(state, modLA_reduce_F_iw_nop, 4294967296.0);
}
void reduce_C_f(benchmark::State &state) {
    reduce<double>(state, modLA_reduce_C_f_nop, 9007199254740992.0);
}
void reduce_F_f(benchmark::State &state) {
    reduce<double>(state, modLA_reduce_F_f_nop, 9007199254740992.0);
}

void reduce_flint(benchmark::State &state) {
    const int32_t n = static_cast<int32_t>(state.range(1));
    const uint32_t p = static_cast<uint32_t>(state.range(0));
    const std::vector<uint32_t> input = random_entries<uint32_t>(n, p);
    nmod_mat_t A;
    nmod_mat_init(A, n, n, p);
    for (auto _ : state) {
        state.PauseTiming();
        for (int32_t i = 0; i < n * n; i++) nmod_mat_entry(A, i / n, i % n) = input[static_cast<size_t>(i)];
        state.ResumeTiming();
        benchmark::DoNotOptimize(nmod_mat_rref(A));
    }
    nmod_mat_clear(A);
}

void sizes(benchmark::internal::Benchmark *bench, std::vector<int64_t> moduli) {
    for (const int64_t p : moduli) {
        for (const int64_t n : {64, 256, 1000}) bench->Args({p, n});
    }
    bench->Unit(benchmark::kMillisecond);
}

void word_sizes(benchmark::internal::Benchmark *bench) {
    sizes(bench, {2, 251, 4093, 65521});
}
void float_sizes(benchmark::internal::Benchmark *bench) {
    sizes(bench, {2, 251, 4093, 65521, 1048573, 33554393});
}

BENCHMARK(reduce_C_iw)->Apply(word_sizes);
BENCHMARK(reduce_F_iw)->Apply(word_sizes);
BENCHMARK(reduce_C_f)->Apply(float_sizes);
BENCHMARK(reduce_F_f)->Apply(float_sizes);
BENCHMARK(reduce_flint)->Apply(float_sizes);

}  // namespace
