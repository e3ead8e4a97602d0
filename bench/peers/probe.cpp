// What the core can do at most: loops of one instruction on registers, eight as 32-bit code has.  All values are 0.
// Every turn starts new sums, so that eight registers hide the latency.
//
// Answers each line "peaks" with instruction=Gop/s and "clock" with the clock in GHz.
#include <cstring>

#include "driver.h"

namespace {

using Loop = void (*)(int);

#define EIGHT(step) step(0) step(1) step(2) step(3) step(4) step(5) step(6) step(7)
#define FOUR(step) step(0) step(1) step(2) step(3)
#define ZERO(i) "vpxor %%xmm" #i ",%%xmm" #i ",%%xmm" #i "\n"
#define LOOP(body)                                                                                             \
    [](int turns) {                                                                                            \
        asm volatile("vzeroall\n.p2align 4\n1:\n" EIGHT(ZERO) body body body body "dec %0\njnz 1b\nvzeroupper" \
                     : "+r"(turns)                                                                             \
                     :                                                                                         \
                     : "cc", "memory", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7");        \
    }
#define ONE(op, r, i) op " %%" r #i ",%%" r #i ",%%" r #i "\n"
#define STEP_DOUBLE256(i) ONE("vfmadd231pd", "ymm", i)
#define STEP_DOUBLE512(i) ONE("vfmadd231pd", "zmm", i)
#define STEP_FLOAT256(i) ONE("vfmadd231ps", "ymm", i)
#define STEP_FLOAT512(i) ONE("vfmadd231ps", "zmm", i)
#define STEP_IFMA512(i) ONE("vpmadd52luq", "zmm", i)
#define STEP_PAIRS512(i) ONE("vpdpwssd", "zmm", i)
#define STEP_BYTES512(i) ONE("vpdpbusd", "zmm", i)
#define STEP_PAIRS256V(i) ONE("%{vex%} vpdpwssd", "ymm", i)
#define STEP_BYTES256V(i) ONE("%{vex%} vpdpbusd", "ymm", i)
#define STEP_PAIRS256(i) "vpmaddwd %%ymm7,%%ymm6,%%ymm5\nvpaddd %%ymm5,%%ymm" #i ",%%ymm" #i "\n"
#define STEP_BITS512(i) "vgf2p8affineqb $0,%%zmm7,%%zmm6,%%zmm5\nvpxord %%zmm5,%%zmm" #i ",%%zmm" #i "\n"
#define STEP_BITS256(i) "vpand %%ymm7,%%ymm6,%%ymm5\nvpxor %%ymm5,%%ymm" #i ",%%ymm" #i "\n"

void double128(int turns) {
    asm volatile(
        "xorps %%xmm6,%%xmm6\nxorps %%xmm7,%%xmm7\nxorps %%xmm0,%%xmm0\nxorps %%xmm1,%%xmm1\n"
        "xorps %%xmm2,%%xmm2\nxorps %%xmm3,%%xmm3\n1:\n"
#define STEP_DOUBLE128(i) "movapd %%xmm7,%%xmm5\nmulpd %%xmm6,%%xmm5\naddpd %%xmm5,%%xmm" #i "\n"
        FOUR(STEP_DOUBLE128) FOUR(STEP_DOUBLE128) "dec %0\njnz 1b"
        : "+r"(turns)
        :
        : "cc", "xmm0", "xmm1", "xmm2", "xmm3", "xmm5", "xmm6", "xmm7");
}

const struct Probe {
    const char *name;
    bool usable;
    Loop loop;
    int operations;  // of one turn
} probes[] = {
    {"double128", true, double128, 8 * 4},
    {"double256", __builtin_cpu_supports("fma") != 0, LOOP(EIGHT(STEP_DOUBLE256)), 32 * 8},
    {"double512", __builtin_cpu_supports("avx512f") != 0, LOOP(EIGHT(STEP_DOUBLE512)), 32 * 16},
    {"float256", __builtin_cpu_supports("fma") != 0, LOOP(EIGHT(STEP_FLOAT256)), 32 * 16},
    {"float512", __builtin_cpu_supports("avx512f") != 0, LOOP(EIGHT(STEP_FLOAT512)), 32 * 32},
    {"ifma512", __builtin_cpu_supports("avx512ifma") != 0, LOOP(EIGHT(STEP_IFMA512)), 32 * 16},
    {"pairs256", __builtin_cpu_supports("avx2") != 0, LOOP(FOUR(STEP_PAIRS256)), 16 * 32},
    {"pairs256vnni", false, LOOP(EIGHT(STEP_PAIRS256V)), 32 * 32},
    {"pairs512", __builtin_cpu_supports("avx512vnni") != 0, LOOP(EIGHT(STEP_PAIRS512)), 32 * 64},
    {"bytes256vnni", false, LOOP(EIGHT(STEP_BYTES256V)), 32 * 64},
    {"bytes512", __builtin_cpu_supports("avx512vnni") != 0, LOOP(EIGHT(STEP_BYTES512)), 32 * 128},
    {"bits256", __builtin_cpu_supports("avx2") != 0, LOOP(FOUR(STEP_BITS256)), 16 * 512},
    {"bits512", __builtin_cpu_supports("gfni") && __builtin_cpu_supports("avx512f"), LOOP(FOUR(STEP_BITS512)),
     16 * 8192},
};

double best_seconds(Loop loop, int turns) {
    double best = 1e9;
    for (int round = 0; round < 7; round++) {
        const double start = bench::seconds_of(CLOCK_MONOTONIC);
        loop(turns);
        best = std::min(best, bench::seconds_of(CLOCK_MONOTONIC) - start);
    }
    return best;
}

// A chain of multiplications, three cycles each: no processor removes them, as some do with additions.
void chain(int turns) {
    asm volatile("mov $1,%%eax\n1:\n.rept 32\nimul %%eax,%%eax\n.endr\ndec %0\njnz 1b" : "+r"(turns) : : "eax", "cc");
}

}  // namespace

// Arguments: the flags of AVX-VNNI, which the compiler cannot ask for.
int main(int argc, char **argv) {
    const bool avx_vnni = argc > 1 && std::strcmp(argv[1], "avx_vnni") == 0;
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line == "peaks") {
            for (const Probe &probe : probes) {
                if (!probe.usable && !(avx_vnni && std::strstr(probe.name, "256vnni"))) continue;
                std::cout << probe.name << '=' << probe.operations * 100e3 / best_seconds(probe.loop, 100000) * 1e-9
                          << ' ';
            }
        } else {
            std::cout << 3 * 32 * 10e3 / best_seconds(chain, 10000) * 1e-9;
        }
        std::cout << std::endl;
    }
    return 0;
}
