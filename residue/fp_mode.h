// The floating-point mode that residue arithmetic needs: round to nearest, nothing flushed, nothing trapping.
//
// A host may call with any MXCSR and x87 control word.  Arithmetic runs inside with_standard_mode, which sets the
// mode and puts the caller's back.  The body must not call the host, which might unwind and leave the mode changed,
// except through in_host_mode.
#pragma once

#include <cstdint>
#include <type_traits>

// Not inlined and not analysed, so that no arithmetic can move across a change of the mode.
#if defined(__clang__)
#define MODLA_OPAQUE gnu::noinline, clang::optnone
#else
#define MODLA_OPAQUE gnu::noipa
#endif

namespace modla {

struct FpMode {
    uint32_t mxcsr;
    uint16_t x87_control;
};

inline FpMode enter_standard_mode() {
    FpMode saved;
    const uint32_t standard_mxcsr = 0x1f80;  // all exceptions masked, round to nearest, no FTZ, no DAZ
    const uint16_t standard_x87 = 0x037f;    // all exceptions masked, round to nearest, extended precision
    asm volatile("stmxcsr %0" : "=m"(saved.mxcsr) : : "memory");
    asm volatile("fnstcw %0" : "=m"(saved.x87_control) : : "memory");
    asm volatile("ldmxcsr %0" : : "m"(standard_mxcsr) : "memory");
    asm volatile("fldcw %0" : : "m"(standard_x87) : "memory");
    return saved;
}

inline void leave_standard_mode(const FpMode &saved) {
    // An exception flag that we raised would trap as soon as the caller's control word unmasks it.
    uint16_t status;
    asm volatile("fnstsw %0" : "=m"(status) : : "memory");
    if (status & ~saved.x87_control & 0x3f) asm volatile("fnclex" : : : "memory");
    asm volatile("fldcw %0" : : "m"(saved.x87_control) : "memory");
    asm volatile("ldmxcsr %0" : : "m"(saved.mxcsr) : "memory");
}

template <class Body>
[[MODLA_OPAQUE]] void run_in_standard_mode(Body &body) {
    body();
}

template <class Body>
auto with_standard_mode(Body body) {
    if constexpr (std::is_void_v<decltype(body())>) {
        const FpMode saved = enter_standard_mode();
        run_in_standard_mode(body);
        leave_standard_mode(saved);
    } else {
        decltype(body()) result;
        with_standard_mode([&] { result = body(); });
        return result;
    }
}

// with_standard_mode for a body that takes the caller's mode, to hand it to in_host_mode.
template <class Body>
auto with_standard_mode_around(Body body) {
    FpMode host_mode = enter_standard_mode();
    decltype(body(host_mode)) result;
    auto run = [&] { result = body(host_mode); };
    run_in_standard_mode(run);
    leave_standard_mode(host_mode);
    return result;
}

// A call of the host from within the standard mode, made in the host's own.
template <class Call>
[[MODLA_OPAQUE]] auto in_host_mode(FpMode &host_mode, Call call) {
    leave_standard_mode(host_mode);
    const auto result = call();
    host_mode = enter_standard_mode();
    return result;
}

}  // namespace modla
