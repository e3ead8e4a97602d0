// Host integers to residues, and machine numbers to host integers.
#include "host/object.h"
#include "host/raise.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"
#include "residue/rounding.h"
#include "values/digits.h"

using namespace modla;

namespace {

HostObject build_integer(const HostApi *api, bool negative, uint64_t magnitude) {
    uint32_t digits[5];
    const uint32_t count = split_digits(magnitude, digits);
    const HostObject integer =
        api->NewObject(count + 1, negative ? MODLA_TYPE_NEGATIVE_INTEGER : MODLA_TYPE_POSITIVE_INTEGER);
    if (!integer) return api->NullValue();  // the host's error came back
    HostObject *words = object_words(integer);
    for (uint32_t i = 0; i < count; i++) words[i + 1] = digits[i];
    return api->NormalizeInteger(integer);
}

}  // namespace

uint32_t modtolvexint_iw(HostObject integer, uint32_t p) {
    return reduce_digits(word_ring(p), integer);
}

double modtolvexint_f(HostObject integer, double p, uint32_t, double pinv) {
    return with_standard_mode([&] { return reduce_digits(FloatRing{p, pinv}, integer); });
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
