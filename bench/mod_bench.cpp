// Mod: a 1000 x 1000 list of lists of 100-digit integers beside FLINT's reduction of the same integers, and tables
// between datatypes beside a plain copy of theirs.
#include <benchmark/benchmark.h>
#include <flint/fmpz_mat.h>
#include <flint/nmod_mat.h>

#include <random>
#include <string>

#include "bench/session.h"
#include "console/heap.h"
#include "console/host.h"

namespace {

using namespace modla::console;

constexpr uint32_t size = 1000, digits = 25;  // base-10000 digits

Object random_integer(std::mt19937 &source) {
    const Object x = new_object(digits + 1, source() % 2 ? type_positive : type_negative);
    for (uint32_t i = 1; i <= digits; i++) words(x)[i] = source() % 10000;
    words(x)[digits] |= 4096;
    return x;
}

// L is the list of lists.
void make_integers() {
    std::mt19937 source(1);
    Roots lines;
    for (uint32_t i = 0; i < size; i++) {
        Roots line;
        for (uint32_t j = 0; j < size; j++) line.values.push_back(random_integer(source));
        lines.values.push_back(new_collection(type_list, line.values));
    }
    assign_global(global_name("L"), new_collection(type_list, lines.values));
}

void mod_integers(benchmark::State &state, const char *statement) {
    make_integers();
    run("A := Create(2, 1000, 1000, integer[4]); B := Create(2, 1000, 1000, float[8])");
    for (auto _ : state) run(statement);
    run("L := 0; A := 0; B := 0");
    collect_garbage();
}
BENCHMARK_CAPTURE(mod_integers, words, "Mod(65521, L, A);")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(mod_integers, floats, "Mod(33554393, L, B);")->Unit(benchmark::kMillisecond);

void mod_integers_flint(benchmark::State &state) {
    fmpz_mat_t integers;
    nmod_mat_t residues;
    fmpz_mat_init(integers, size, size);
    nmod_mat_init(residues, size, size, static_cast<mp_limb_t>(state.range(0)));
    std::mt19937 source(1);
    for (uint32_t k = 0; k < size * size; k++) {
        const bool positive = source() % 2;
        uint32_t parts[digits];
        for (uint32_t &part : parts) part = source() % 10000;
        parts[digits - 1] |= 4096;
        fmpz *const x = integers->rows[k / size] + k % size;
        for (uint32_t i = digits; i-- > 0;) {
            fmpz_mul_ui(x, x, 10000);
            fmpz_add_ui(x, x, parts[i]);
        }
        if (!positive) fmpz_neg(x, x);
    }
    for (auto _ : state) fmpz_mat_get_nmod_mat(residues, integers);
    fmpz_mat_clear(integers);
    nmod_mat_clear(residues);
}
BENCHMARK(mod_integers_flint)->Arg(65521)->Arg(33554393)->Unit(benchmark::kMillisecond);

// F holds fractions, G numbers beyond 2^51.
void make_table(const char *name, double first, double step) {
    run(std::string(name) + " := Create(2, 4000, 4000, float[8])");
    double *const entries = static_cast<double *>(table_of(evaluate(global_name(name))).data);
    for (int k = 0; k < 16000000; k++) entries[k] = first + step * k;
}

// A and B are 4000 x 4000, larger than the caches.
void mod_table(benchmark::State &state, const char *from, const char *to, const char *statement) {
    run(std::string("A := Create(65521, 4000, 4000, random, ") + from + ")");
    run(std::string("B := Create(2, 4000, 4000, ") + to + ")");
    make_table("F", -0.5, -1);
    make_table("G", 2251799813685248.5, 1);
    for (auto _ : state) run(statement);
    const auto bytes = [](const char *datatype) { return std::string(datatype) == "float[8]" ? 8 : 4; };
    const double moved = 16e6 * (bytes(from) + bytes(to));
    state.counters["GB/s"] = benchmark::Counter(moved * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
    run("A := 0; B := 0; F := 0; G := 0");
}
#define TABLE(name, from, to, statement) \
    BENCHMARK_CAPTURE(mod_table, name, from, to, statement)->Unit(benchmark::kMillisecond)
TABLE(copy_words, "integer[4]", "integer[4]", "Copy(251, A, B);");
TABLE(copy_floats, "float[8]", "float[8]", "Copy(251, A, B);");
TABLE(words_to_words, "integer[4]", "integer[4]", "Mod(251, A, B);");
TABLE(words_to_floats, "integer[4]", "float[8]", "Mod(251, A, B);");
TABLE(floats_to_words, "float[8]", "integer[4]", "Mod(251, A, B);");
TABLE(floats_to_floats, "float[8]", "float[8]", "Mod(251, A, B);");
TABLE(fractions_to_floats, "float[8]", "float[8]", "Mod(251, F, B);");
TABLE(large_to_floats, "float[8]", "float[8]", "Mod(251, G, B);");
TABLE(words_transposing, "integer[4]", "integer[4]", "Mod(251, A, transpose, B);");
TABLE(floats_transposing, "float[8]", "float[8]", "Mod(251, A, transpose, B);");

}  // namespace
