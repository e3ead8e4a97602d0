// Native entries of any value to residues.
#pragma once

#include "engine/strided.h"
#include "scalar/residue.h"
#include "scalar/rounding.h"

namespace modla {

// Entries are converted in chunks that stay in the first cache.
constexpr int32_t conversion_chunk = 64;

// Signed words: counted from the most negative one they are unsigned.
inline void reduce_words(const Word &residue, const int32_t *from, uint32_t *to, int32_t count) {
    const uint32_t lowest = uint32_t{1} << 31;
    const uint32_t shift = residue.reduce(lowest);
    for (int32_t k = 0; k < count; k++) {
        const uint32_t r = residue.reduce(static_cast<uint32_t>(from[k]) ^ lowest);
        to[k] = r - shift + (r < shift ? residue.p : 0);
    }
}

inline void reduce_words(const Float &residue, const int32_t *from, double *to, int32_t count) {
    const double lowest = 2147483648.0;
    const double shift = residue.reduce(lowest);
    for (int32_t k = 0; k < count; k++) {
        const double r = residue.reduce(from[k] + lowest) - shift;
        to[k] = r + (r < 0 ? residue.p : 0.0);
    }
}

// A double that the conversion to integers takes.
inline bool is_convertible(double d) {
    return d <= two_to_53 - 1 && d >= -(two_to_53 - 1);
}

// Doubles of magnitude below 2^53, rounded to integers first.
inline void reduce_doubles(const Float &residue, const double *from, double *to, int32_t count) {
    bool whole = true;  // all are integers below 2^52
    for (int32_t k = 0; k < count; k++) {
        const double magnitude = std::fabs(from[k]);
        whole &= magnitude < two_to_52 && (magnitude + two_to_52) - two_to_52 == magnitude;
    }
    if (whole) {
        for (int32_t k = 0; k < count; k++) {
            const double r = residue.reduce(std::fabs(from[k]));
            to[k] = from[k] < 0 && r != 0 ? residue.p - r : r;
        }
        return;
    }
    for (int32_t k = 0; k < count; k++) {
        const RoundedDouble rounded = round_double(from[k]);
        const double r = residue.reduce(static_cast<double>(rounded.magnitude));
        to[k] = rounded.negative ? residue.negate(r) : r;
    }
}

inline Float float_residue(const Word &residue) {
    return {static_cast<double>(residue.p), pinv_of(residue.p)};
}
inline Float float_residue(const Float &residue) {
    return residue;
}

// from[0], from[from_step], ... as residues at to[0], to[to_step], ...
template <class Residue>
void convert_line(const Residue &residue, const int32_t *from, ptrdiff_t from_step, typename Residue::Entry *to,
                  ptrdiff_t to_step, int32_t count) {
    int32_t source[conversion_chunk];
    typename Residue::Value target[conversion_chunk];
    for (int32_t done = 0; done < count; done += conversion_chunk) {
        const int32_t n = std::min(count - done, conversion_chunk);
        for (int32_t k = 0; k < n; k++) source[k] = from[(done + k) * from_step];
        reduce_words(residue, source, target, n);
        for (int32_t k = 0; k < n; k++) to[(done + k) * to_step] = target[k];
    }
}

template <class Residue>
void convert_line(const Residue &residue, const StoredDouble *from, ptrdiff_t from_step, typename Residue::Entry *to,
                  ptrdiff_t to_step, int32_t count) {
    const Float reducer = float_residue(residue);
    double source[conversion_chunk], target[conversion_chunk];
    for (int32_t done = 0; done < count; done += conversion_chunk) {
        const int32_t n = std::min(count - done, conversion_chunk);
        for (int32_t k = 0; k < n; k++) source[k] = from[(done + k) * from_step];
        reduce_doubles(reducer, source, target, n);
        if constexpr (std::is_same_v<Residue, Word>) {
            for (int32_t k = 0; k < n; k++) {
                to[(done + k) * to_step] = static_cast<uint32_t>(static_cast<int32_t>(target[k]));
            }
        } else {
            for (int32_t k = 0; k < n; k++) to[(done + k) * to_step] = target[k];
        }
    }
}

// The same for blocks, which may be one and the same but must not overlap otherwise.
template <class Residue, class From>
void convert_entries(const Residue &residue, const Shape &shape, const From *from, Steps from_steps,
                     typename Residue::Entry *to, Steps to_steps) {
    walk<2>(shape, {from_steps, to_steps}, false,
            [&](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                const ptrdiff_t from_step = unit ? 1 : inner[0], to_step = unit ? 1 : inner[1];
                convert_line(residue, from + offsets[0], from_step, to + offsets[1], to_step, count);
            });
}

}  // namespace modla
