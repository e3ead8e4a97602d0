// What the processor can do and the operating system lets it.
#pragma once

#include <cstdint>

namespace modla {

struct Processor {
    bool avx2;         // with FMA
    bool avx512;       // F, BW, DQ, VL and BMI2
    bool avx512_vnni;  // each of these implies avx512
    bool avx512_ifma;
    bool avx512_gfni;  // and VBMI
};

// Asked once: the instruction that answers is slow in virtual machines.
const Processor &processor();

}  // namespace modla
