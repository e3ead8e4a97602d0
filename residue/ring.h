// The two rings Z/p that every kernel is written over.
//
// A ring knows its modulus and offers, on values of type Value (stored as Entry):
//   reduce(t)             t mod p, for any t that is a sum of products within the representation's limit
//   is_canonical(t)       is a stored entry in 0..p-1?
//   canonical(t)          t mod p for any stored entry, also one that no validated source would hold
//   multiply(a, b)        a*b mod p
//   multiply_add(a, b, c) (a*b + c) mod p, c may be unreduced
//   negate(a)             -a mod p
//   add(a, b)             a + b, less p when that is not below p
//   of_immediate(v)       v mod p for |v| < 2^30
//   is_modulus(v)         v = p, for |v| < 2^30
//   quotient(a, b)        floor(a / b), b != 0
//   invert(a, &inverse)   false, and the no-inverse mark, when a has no inverse
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

namespace modla {

// How many products of residues may be added to a residue before it must be reduced: floor((limit - p) / (p-1)^2),
// capped; 1 for p < 2, which no host can pass.
template <class Ring>
int32_t delay_bound(uint32_t p) {
    if (p < 2) return 1;
    const uint64_t square = static_cast<uint64_t>(p - 1) * (p - 1);
    const uint64_t bound = (Ring::limit - p) / square;
    return bound > 2147483646 ? 2147483646 : static_cast<int32_t>(bound);
}

// The inverse of a mod p, for p below half of the type's range, by Euclid's algorithm with remainders of least magnitude,
// which takes two thirds of the divisions; 0 when there is none.
template <class Unsigned>
Unsigned euclid_inverse(Unsigned a, Unsigned p) {
    if (a == 0 || p == 0) return 0;
    Unsigned r0 = p, r1 = a;
    Unsigned t0 = 0, t1 = 1;  // cofactors of a, modulo the type's range; |t1| r0 <= 2p, so that |t1| < p where r1 = 1
    while (true) {
        const Unsigned q = r0 / r1;
        Unsigned r2 = r0 - q * r1;
        if (r2 == 0) break;
        Unsigned t2 = t0 - q * t1;
        const bool nearer = 2 * r2 > r1;  // to the next multiple of r1
        r2 = nearer ? r1 - r2 : r2;
        t2 = nearer ? t1 - t2 : t2;
        r0 = r1, r1 = r2;
        t0 = t1, t1 = t2;
    }
    if (r1 != 1) return 0;
    return static_cast<std::make_signed_t<Unsigned>>(t1) > 0 ? t1 : p + t1;
}

// Unsigned 32-bit words, 2 <= p <= 65535.
struct WordRing {
    using Value = uint32_t;
    using Entry = uint32_t;
    static constexpr Value no_inverse = 65536;
    static constexpr uint64_t limit = uint64_t{1} << 32;  // sums of products stay below it

    uint32_t p;
    uint32_t reciprocal;  // floor(2^32 / p)

    Value reduce(Value t) const {
        // q is t/p less at most 1 + t/2^32 < 2, rounded down: one correction suffices.
        const uint32_t q = static_cast<uint32_t>(static_cast<uint64_t>(t) * reciprocal >> 32);
        const uint32_t r = t - q * p;
        return r >= p ? r - p : r;
    }
    bool is_canonical(Value t) const { return t < p; }
    Value canonical(Value t) const { return reduce(t); }
    Value multiply(Value a, Value b) const { return reduce(a * b); }
    Value multiply_add(Value a, Value b, Value c) const { return reduce(a * b + c); }
    Value negate(Value a) const { return a ? p - a : 0; }
    Value add(Value a, Value b) const { return a + b >= p ? a + b - p : a + b; }
    bool is_modulus(int32_t v) const { return v >= 0 && static_cast<uint32_t>(v) == p; }
    Value of_immediate(int32_t v) const {
        const uint32_t u = static_cast<uint32_t>(v);
        return v < 0 ? negate(reduce(0u - u)) : reduce(u);
    }
    Value quotient(Value a, Value b) const { return a / b; }
    bool invert(Value a, Value *inverse) const {
        const uint32_t r = euclid_inverse(a, p);
        *inverse = r ? r : no_inverse;
        return r != 0;
    }
};

inline WordRing word_ring(uint32_t p) {
    return {p, p > 1 ? static_cast<uint32_t>(WordRing::limit / p) : 0xffffffff};
}

// A double in storage that may be aligned to 4 bytes only.
struct [[gnu::packed, gnu::aligned(4)]] StoredDouble {
    double value;
    operator double() const {
        return value;
    }
    StoredDouble &operator=(double x) {
        value = x;
        return *this;
    }
};
static_assert(sizeof(StoredDouble) == sizeof(double) && alignof(StoredDouble) == 4);

constexpr double two_to_52 = 4503599627370496.0;
constexpr double two_to_53 = 9007199254740992.0;

// floor(x) for 0 <= x <= 2^52, without SSE4.1.
inline double floor_nonnegative(double x) {
    const double nearest = (x + two_to_52) - two_to_52;
    return nearest - (nearest > x ? 1.0 : 0.0);
}

// floor(x) for any double.
inline double floor_double(double x) {
    if (!(x < two_to_52 && x > -two_to_52)) return x;
    if (x >= 0) return floor_nonnegative(x);
    const double below = -floor_nonnegative(-x);  // rounded toward zero
    return below - (below > x ? 1.0 : 0.0);
}

// Doubles holding integers, 2 <= p < 2^25.
struct FloatRing {
    using Value = double;
    using Entry = StoredDouble;
    static constexpr Value no_inverse = -1.0;
    static constexpr uint64_t limit = uint64_t{1} << 53;  // sums of products stay below it

    double p;
    double pinv;  // 1/p rounded up: (1 + 2^-52)/p

    // Exact for every integer 0 <= t < 2^53.  With u = 2^-53 the computed t*pinv is at least t/p at multiples of p
    // and at most (t/p)(1 + 4u) < t/p + 4/p, so its floor is k = floor(t/p) or k + 1 (for p = 2 and 3 because t < 2^53
    // is strict and p*k is hit exactly).  Taking one off makes the multiple of p that is subtracted at most t, hence
    // exact, and leaves 0 <= r < 2p.  Without that step sums from about 2^51.6 on would give -1 and -2.
    Value reduce(Value t) const {
        const double q = floor_nonnegative(t * pinv) - 1.0;
        const double r = t - q * p;
        return r - (r >= p ? p : 0.0);
    }
    bool is_canonical(Value t) const { return t >= 0 && t < p && floor_nonnegative(t) == t && !std::signbit(t); }
    Value multiply(Value a, Value b) const { return reduce(a * b); }
    Value multiply_add(Value a, Value b, Value c) const { return reduce(a * b + c); }
    Value negate(Value a) const { return a != 0 ? p - a : 0; }
    Value add(Value a, Value b) const { return a + b - (a + b >= p ? p : 0.0); }
    bool is_modulus(int32_t v) const { return v == p; }
    Value of_immediate(int32_t v) const { return v < 0 ? negate(reduce(-static_cast<Value>(v))) : reduce(v); }
    Value quotient(Value a, Value b) const {
        // Both are integers below 2^25: the rounded quotient cannot reach the next integer.
        return floor_nonnegative(a / b);
    }
    bool invert(Value a, Value *inverse) const {
        const uint32_t r = euclid_inverse(static_cast<uint32_t>(a), static_cast<uint32_t>(p));
        *inverse = r ? static_cast<double>(r) : no_inverse;
        return r != 0;
    }

    // Entries that are no nonnegative integers below 2^53: the true residue of a negative integer, of a fraction's
    // floor and of a large double; 0 for NaN and infinities, so that every computation ends.
    [[gnu::noinline]] Value canonical(Value t) const {
        if (t >= 0 && t < two_to_53) return reduce(floor_double(t));
        const double r = std::fmod(floor_double(t), p);
        if (r != r) return 0;
        return r < 0 ? p + r : r + 0.0;
    }
};

// A modulus as an integer.
inline uint32_t modulus_of(uint32_t p) {
    return p;
}
inline uint32_t modulus_of(double p) {
    return static_cast<uint32_t>(static_cast<int32_t>(p));
}

// In the standard mode.
inline FloatRing float_ring(double p) {
    return {p, 1.0000000000000002 / p};
}

template <class Ring>
int32_t delay_bound(const Ring &ring) {
    return delay_bound<Ring>(modulus_of(ring.p));
}

// The ring and the storage that an exported kernel is called with.
inline WordRing kernel_ring(uint32_t p, double) {
    return word_ring(p);
}
inline FloatRing kernel_ring(double p, double pinv) {
    return {p, pinv};
}
template <class W>
auto entries(W *data) {
    using Double = std::conditional_t<std::is_const_v<W>, const StoredDouble, StoredDouble>;
    return reinterpret_cast<std::conditional_t<std::is_floating_point_v<W>, Double, W> *>(data);
}

}  // namespace modla
