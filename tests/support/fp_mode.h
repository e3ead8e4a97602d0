// The floating-point modes of other programs.
#pragma once

#include <cstdint>
#include <vector>

#include "residue/fp_mode.h"

namespace modla_test {

// The control and mask bits of MXCSR and the x87 control word.
struct FpMode {
    uint32_t mxcsr;
    uint16_t x87_control;
    bool operator==(const FpMode &) const = default;
};

inline FpMode current_fp_mode() {
    FpMode mode;
    asm volatile("stmxcsr %0" : "=m"(mode.mxcsr) : : "memory");
    asm volatile("fnstcw %0" : "=m"(mode.x87_control) : : "memory");
    mode.mxcsr &= 0xffc0;
    return mode;
}

inline void set_fp_mode(const FpMode &mode) {
    asm volatile("fnclex" : : : "memory");
    asm volatile("fldcw %0" : : "m"(mode.x87_control) : "memory");
    asm volatile("ldmxcsr %0" : : "m"(mode.mxcsr) : "memory");
}

// Every rounding, with and without flushed subnormals, with masked and with trapping exceptions, and x87 in each
// precision: the first 16 cover each setting of MXCSR.
inline std::vector<FpMode> foreign_fp_modes(bool all = false) {
    std::vector<FpMode> modes;
    for (const int precision : {0x000, 0x200, 0x300}) {
        for (uint32_t rounding = 0; rounding < 4; rounding++) {
            for (const uint32_t flushing : {0x0000u, 0x8040u}) {
                for (const bool masked : {true, false}) {
                    const int control = precision | static_cast<int>(rounding) << 10 | 0x40 | (masked ? 0x3f : 0);
                    modes.push_back(
                        {rounding << 13 | flushing | (masked ? 0x1f80 : 0), static_cast<uint16_t>(control)});
                }
            }
        }
        if (!all) break;
    }
    return modes;
}

// Runs call in a mode; is that mode still set when it returns?  Not inlined, so that no arithmetic moves in or out.
template <class Call>
[[MODLA_OPAQUE]] bool keeps_fp_mode(const FpMode &mode, const Call &call) {
    const FpMode own = current_fp_mode();
    set_fp_mode(mode);
    call();
    const FpMode left = current_fp_mode();
    set_fp_mode(own);
    return left == mode;
}

}  // namespace modla_test
