// A session of the console for a fuzzer: bounded in time and memory, without files, and the same for every input.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/print.h"
#include "tests/support/fp_mode.h"

extern "C" void *__libc_stack_end;  // above every frame of the process

namespace modla_fuzz {

using namespace modla::console;
using modla_test::current_fp_mode;
using modla_test::FpMode;

// An input breaks a promise: libFuzzer records it.
inline void require(bool condition, const char *promise) {
    if (condition) return;
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}

constexpr size_t most_bytes = size_t{1} << 20;
constexpr uint32_t most_steps = 1000000;
constexpr double most_seconds = 0.1;

inline uint32_t steps = 0;
inline double deadline = 0;

inline double now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// An endless loop is a program like any other.
inline void count_step() {
    if (++steps > most_steps || (steps % 64 == 0 && now() > deadline)) throw HostError("out of time");
}

inline Checkpoint start;

inline void start_session() {
    set_stack_base(__libc_stack_end);
    parse_text = evaluate_text;
    load_library(MODLA_LIBRARY);
    define_functions();
    set_heap_limit(most_bytes);
    set_guard(count_step);
    std::cout.rdbuf(nullptr);
    start = make_checkpoint();
}

// Runs one input's work in the session.
template <class Work>
void in_session(Work work) {
    steps = 0;
    deadline = now() + most_seconds;
    std::srand(1);
    const FpMode before = current_fp_mode();
    try {
        work();
    } catch (const std::exception &error) {
        require(error.what()[0] != '\0', "an error has a message");
    }
    set_collect_always(false);
    require(lent_count() == 0, "work memory is given back");
    require(current_fp_mode() == before, "floating-point modes are as before");
    go_back(start);
}

}  // namespace modla_fuzz
