// Host integers to residues, and machine numbers to host integers.
#include "host/object.h"
#include "host/raise.h"
#include "modla.h"
#include "scalar/fp_mode.h"
#include "scalar/residue.h"

using namespace modla;

namespace {

constexpr int32_t immediate_limit = (1 << 30) - 1;

// Horner over base-10000 digits.  A negative integer gives p - r, so p itself for a multiple of p.
template <class Residue>
typename Residue::Value reduce_digits(const Residue &residue, HostObject integer) {
    using Value = typename Residue::Value;
    const HostObject *words = object_words(integer);
    Value r = 0;
    for (uint32_t i = object_length(integer) - 1; i >= 1 && i < object_length(integer); i--) {
        r = residue.multiply_add(r, Value(10000), Value(words[i]));
    }
    return object_type(integer) == MODLA_TYPE_NEGATIVE_INTEGER ? residue.p - r : r;
}

HostObject build_integer(const HostApi *api, bool negative, uint64_t magnitude) {
    uint32_t digits[5];
    uint32_t count = 0;
    for (; magnitude != 0; magnitude /= 10000) digits[count++] = static_cast<uint32_t>(magnitude % 10000);
    const HostObject integer =
        api->NewObject(count + 1, negative ? MODLA_TYPE_NEGATIVE_INTEGER : MODLA_TYPE_POSITIVE_INTEGER);
    HostObject *words = object_words(integer);
    for (uint32_t i = 0; i < count; i++) words[i + 1] = digits[i];
    return api->NormalizeInteger(integer);
}

struct RoundedDouble {
    enum { too_large, immediate, big } kind;
    bool negative;
    uint64_t magnitude;
};

RoundedDouble round_double(double d) {
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

}  // namespace

uint32_t modtolvexint_iw(HostObject integer, uint32_t p) {
    return reduce_digits(make_word(p), integer);
}

double modtolvexint_f(HostObject integer, double p, uint32_t, double pinv) {
    return with_standard_mode([&] { return reduce_digits(Float{p, pinv}, integer); });
}

HostObject M_INTtoTolvexInt(const HostApi *api, int32_t value) {
    if (value >= -immediate_limit && value <= immediate_limit) return immediate_integer(value);
    const bool negative = value < 0;
    const uint32_t magnitude = negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    return build_integer(api, negative, magnitude);
}

HostObject floattoTolvexInt_32(const HostApi *api, double value) {
    const RoundedDouble rounded = with_standard_mode([&] { return round_double(value); });
    if (rounded.kind == RoundedDouble::too_large) return fail(api, "float too large"), api->NullValue();
    if (rounded.kind == RoundedDouble::big) return build_integer(api, rounded.negative, rounded.magnitude);
    const int32_t magnitude = static_cast<int32_t>(rounded.magnitude);
    return immediate_integer(rounded.negative ? -magnitude : magnitude);
}
