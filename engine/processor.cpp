#include "engine/processor.h"

#include <cpuid.h>

namespace modla {
namespace {

// The vector states that the operating system saves.
uint32_t saved_states() {
    uint32_t low, high;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

Processor ask() {
    Processor found = {};
    uint32_t a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE) || !(c & bit_AVX)) return found;
    const bool fma = c & bit_FMA;
    const uint32_t states = saved_states(), avx_states = 0x06, avx512_states = 0xe6;
    if ((states & avx_states) != avx_states || !__get_cpuid_count(7, 0, &a, &b, &c, &d)) return found;
    found.avx2 = fma && (b & bit_AVX2);
    const uint32_t needed = bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_BMI2;
    found.avx512 = found.avx2 && (states & avx512_states) == avx512_states && (b & needed) == needed;
    found.avx512_vnni = found.avx512 && (c & bit_AVX512VNNI);
    found.avx512_ifma = found.avx512 && (b & bit_AVX512IFMA);
    found.avx512_gfni = found.avx512 && (c & bit_GFNI) && (c & bit_AVX512VBMI);
    return found;
}

}  // namespace

const Processor &processor() {
    static bool known = false;
    static Processor found;
    if (!known) {
        found = ask();
        known = true;
    }
    return found;
}

}  // namespace modla
