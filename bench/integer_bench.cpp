// Matrices of host integers modulo a prime of 200 digits: the console's entry points beside FLINT.
#include <benchmark/benchmark.h>
#include <flint/fmpz_mod_mat.h>
#include <gmpxx.h>

#include <string>
#include <vector>

#include "bench/session.h"

namespace {

mpz_class prime_of_200_digits() {
    mpz_class p;
    mpz_ui_pow_ui(p.get_mpz_t(), 10, 199);
    mpz_nextprime(p.get_mpz_t(), p.get_mpz_t());
    return p;
}

// Runs the statement on fresh copies B of a random n x n Matrix A.
void run_on_copies(benchmark::State &state, const std::string &statement) {
    const std::string n = std::to_string(state.range(0));
    run("p := " + prime_of_200_digits().get_str() + "; A := Create(p, " + n + ", " + n + ", random, integer)");
    for (auto _ : state) {
        state.PauseTiming();
        run("B := Copy(p, A)");
        state.ResumeTiming();
        run(statement);
    }
}

void determinant_integers(benchmark::State &state) {
    run_on_copies(state, "Determinant(p, B, -1, -1, 'd')");
}
void reduced_form_integers(benchmark::State &state) {
    run_on_copies(state, "RowReduce(p, B, -1, -1, 0, 0, 0, 'r', 0, 0, true)");
}
void product_integers(benchmark::State &state) {
    run_on_copies(state, "C := Multiply(p, A, B)");
}

// Runs call(A) on fresh random n x n matrices of FLINT's.
template <class Call>
void run_flint(benchmark::State &state, Call call) {
    const slong n = static_cast<slong>(state.range(0));
    fmpz_t p;
    fmpz_init(p);
    fmpz_set_mpz(p, prime_of_200_digits().get_mpz_t());
    flint_rand_t random;
    flint_randinit(random);
    fmpz_mod_mat_t input, A;
    fmpz_mod_mat_init(input, n, n, p);
    fmpz_mod_mat_init(A, n, n, p);
    for (slong i = 0; i < n * n; i++) fmpz_randm(fmpz_mod_mat_entry(input, i / n, i % n), random, p);
    for (auto _ : state) {
        state.PauseTiming();
        fmpz_mod_mat_set(A, input);
        state.ResumeTiming();
        call(A);
    }
    fmpz_mod_mat_clear(input);
    fmpz_mod_mat_clear(A);
    flint_randclear(random);
    fmpz_clear(p);
}

// FLINT's fastest way to a determinant: the factors; the product of the diagonal is nothing beside them.
void determinant_flint(benchmark::State &state) {
    std::vector<slong> permutation(static_cast<size_t>(state.range(0)));
    run_flint(state, [&](fmpz_mod_mat_t A) { fmpz_mod_mat_lu(permutation.data(), A, 0); });
}
void reduced_form_flint(benchmark::State &state) {
    run_flint(state, [](fmpz_mod_mat_t A) { fmpz_mod_mat_rref(nullptr, A); });
}
void product_flint(benchmark::State &state) {
    run_flint(state, [](fmpz_mod_mat_t A) { fmpz_mod_mat_mul(A, A, A); });
}

void sizes(benchmark::internal::Benchmark *bench) {
    bench->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond);
}

BENCHMARK(determinant_integers)->Apply(sizes);
BENCHMARK(determinant_flint)->Apply(sizes);
BENCHMARK(reduced_form_integers)->Apply(sizes);
BENCHMARK(reduced_form_flint)->Apply(sizes);
BENCHMARK(product_integers)->Apply(sizes);
BENCHMARK(product_flint)->Apply(sizes);

}  // namespace
