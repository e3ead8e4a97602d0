// Doubles to integers, as the host's conversion rounds.
#pragma once

#include "residue/ring.h"

namespace modla {

constexpr int32_t immediate_limit = (1 << 30) - 1;

// A double rounded to an integer: halves upward where it is immediate, away from zero beyond.
struct RoundedDouble {
    enum { too_large, immediate, big } kind;
    bool negative;
    uint64_t magnitude;
};

inline RoundedDouble round_double(double d) {
    if (d != d) return {RoundedDouble::immediate, false, 0};
    if (d > two_to_53 - 1 || d < -(two_to_53 - 1)) return {RoundedDouble::too_large, false, 0};
    if (d >= -immediate_limit && d <= immediate_limit) {
        const double r = floor_double(d + 0.5);
        return {RoundedDouble::immediate, r < 0, static_cast<uint64_t>(r < 0 ? -r : r)};
    }
    const double magnitude = d < 0 ? -d : d;
    const double whole = floor_nonnegative(magnitude < two_to_52 ? magnitude : 0.0);
    if (magnitude >= two_to_52) return {RoundedDouble::big, d < 0, static_cast<uint64_t>(magnitude)};
    return {RoundedDouble::big, d < 0, static_cast<uint64_t>(whole) + (magnitude - whole >= 0.5 ? 1 : 0)};
}

}  // namespace modla
