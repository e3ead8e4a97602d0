#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "bench/session.h"
#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"

void run(const std::string &text) {
    try {
        modla::console::run_program(text, [](modla::console::Object) {});
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", text.c_str(), error.what());
        std::exit(1);
    }
}

int main(int argc, char **argv) {
    modla::console::set_stack_base(__builtin_frame_address(0));
    modla::console::parse_text = modla::console::evaluate_text;
    modla::console::load_library(MODLA_LIBRARY);
    modla::console::define_functions();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
