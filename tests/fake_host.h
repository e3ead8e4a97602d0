// What the tests share: the smallest host, the floating-point modes of other programs, random numbers.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "modla.h"

namespace modla_test {

// ---- Random numbers: a seed per case, so that a failing case can be repeated ----

using Random = std::mt19937;

// 0..n-1.
template <std::integral Integer>
Integer below(Random &random, Integer n) {
    return static_cast<Integer>(std::uniform_int_distribution<uint64_t>(0, static_cast<uint64_t>(n) - 1)(random));
}
inline bool chance(Random &random, int percent) {
    return below(random, 100) < percent;
}

template <class List>
auto pick(Random &random, const List &list) {
    return std::data(list)[below(random, std::size(list))];
}
template <class T>
T pick(Random &random, std::initializer_list<T> list) {
    return list.begin()[below(random, list.size())];
}

// ---- Floating-point modes ----

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

// Every rounding, with and without flushed subnormals, with masked and with trapping exceptions; x87 in
// single precision.
inline std::vector<FpMode> foreign_fp_modes() {
    std::vector<FpMode> modes;
    for (uint32_t rounding = 0; rounding < 4; rounding++) {
        for (const uint32_t flushing : {0x0000u, 0x8040u}) {
            for (const bool masked : {true, false}) {
                modes.push_back({rounding << 13 | flushing | (masked ? 0x1f80 : 0),
                                 static_cast<uint16_t>(rounding << 10 | 0x0040 | (masked ? 0x3f : 0))});
            }
        }
    }
    return modes;
}

// Runs call in a mode; is that mode still set when it returns?  Not inlined, so that no arithmetic moves in
// or out.
template <class Call>
[[gnu::noipa]] bool keeps_fp_mode(const FpMode &mode, const Call &call) {
    const FpMode own = current_fp_mode();
    set_fp_mode(mode);
    call();
    const FpMode left = current_fp_mode();
    set_fp_mode(own);
    return left == mode;
}

// ---- The host ----

struct HostError : std::runtime_error {
    using runtime_error::runtime_error;
};

// What the host's operations left behind; reset by make_fake_host.
struct FakeHostRecord {
    std::vector<std::unique_ptr<uint32_t[]>> objects;
    std::vector<HostObject> normalized;
    std::vector<const char *> messages;
    std::vector<FpMode> modes;  // at each call of an operation
};
inline FakeHostRecord fake_host_record;

constexpr HostObject immediate(int32_t v) {
    return static_cast<uint32_t>(v) << 1 | 1;
}
constexpr HostObject fake_null_value = immediate(-314159);

inline HostObject fake_new_object(uint32_t length, uint32_t type_id) {
    fake_host_record.modes.push_back(current_fp_mode());
    std::unique_ptr<uint32_t[]> words(new uint32_t[length]);
    std::fill_n(words.get(), length, 0xa5a5a5a5);
    words[0] = type_id << 26 | length;
    const HostObject object = reinterpret_cast<HostObject>(words.get());
    fake_host_record.objects.push_back(std::move(words));
    return object;
}

inline HostObject fake_normalize_integer(HostObject integer) {
    fake_host_record.modes.push_back(current_fp_mode());
    fake_host_record.normalized.push_back(integer);
    return integer;
}

inline void raise_and_return(const char *format, ...) {
    fake_host_record.modes.push_back(current_fp_mode());
    fake_host_record.messages.push_back(format);
}

inline void raise_and_throw(const char *format, ...) {
    raise_and_return(format);
    throw HostError(format);
}

// A host that offers object creation and errors only; any other operation is a null pointer.
inline HostApi make_fake_host(void (*raise)(const char *, ...) = raise_and_throw) {
    fake_host_record = {};
    HostApi api = {};
    api.NewObject = fake_new_object;
    api.NormalizeInteger = fake_normalize_integer;
    api.RaiseError = raise;
    api.NullValue = [] { return fake_null_value; };
    return api;
}

// A raw host object of the given words after its header.
inline HostObject host_object(uint32_t type_id, const std::vector<uint32_t> &words) {
    const HostObject object = fake_new_object(static_cast<uint32_t>(words.size()) + 1, type_id);
    std::copy(words.begin(), words.end(), reinterpret_cast<uint32_t *>(object) + 1);
    return object;
}

}  // namespace modla_test
