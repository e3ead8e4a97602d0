// Copy, Swap and AddMult of n x n Matrices through the console's host: plain, and transposing.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/session.h"

namespace {

void move_entries(benchmark::State &state, const char *datatype, const char *statement) {
    const std::string n = std::to_string(state.range(0));
    run("A := Create(251, " + n + ", " + n + ", random, " + datatype + ")");
    run("B := Create(251, " + n + ", " + n + ", random, " + datatype + ")");
    for (auto _ : state) run(statement);
    const double bytes = static_cast<double>(state.range(0)) * static_cast<double>(state.range(0)) *
                         (std::string(datatype) == "float[8]" ? 8 : 4);
    state.counters["GB/s"] = benchmark::Counter(bytes * 1e-9, benchmark::Counter::kIsIterationInvariantRate);
    run("A := 0; B := 0");
}

#define MOVE(name, datatype, statement)           \
    void name(benchmark::State &state) {          \
        move_entries(state, datatype, statement); \
    }                                             \
    BENCHMARK(name)->Arg(1000)->Arg(4000)->Arg(4096)->Unit(benchmark::kMillisecond)

MOVE(copy_words, "integer[4]", "Copy(251, A, B);");
MOVE(copy_words_transposing, "integer[4]", "Copy(251, A, transpose, B);");
MOVE(copy_floats, "float[8]", "Copy(251, A, B);");
MOVE(copy_floats_transposing, "float[8]", "Copy(251, A, transpose, B);");
MOVE(swap_words, "integer[4]", "Swap(251, A, B);");
MOVE(swap_words_transposing, "integer[4]", "Swap(251, A, transpose, B);");
MOVE(add_words, "integer[4]", "AddMult(251, 17, A, B, A);");
MOVE(add_floats, "float[8]", "AddMult(251, 17, A, B, A);");
MOVE(add_words_transposing, "integer[4]", "AddMult(251, 17, A, B, transpose, A);");

}  // namespace
