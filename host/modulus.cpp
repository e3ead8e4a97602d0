#include "host/modulus.h"

#include <cstdio>

#include "host/object.h"
#include "host/raise.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

bool fail_fill(const HostApi *api, const char *word) {
    char message[200];
    std::snprintf(message, sizeof message, "%s value must be an integral numeric value in the range 0..modulus-1",
                  word);
    return fail(api, message);
}

// A numeric fill value as a double, halves rounded upward; -1 when it is no number.
double rounded_fill(const HostApi *api, HostObject fill) {
    if (is_immediate(fill)) return integer_value(fill);
    if (!api->IsNumeric(fill)) return -1;
    const double d = api->ToDouble(fill);
    return with_standard_mode([&] { return floor_double(d + 0.5); });
}

bool check_word_modulus(const HostApi *api, HostObject modulus, int32_t *out_modulus, const HostObject *fill,
                        int32_t *out_fill, const char *word, int32_t default_fill) {
    if (!is_immediate(modulus) || integer_value(modulus) > 65535) {
        return fail(api, "modulus is too large for '%1' datatype, must be < %2", api->ParseString("integer[4]"),
                    api->ParseString("65536"));
    }
    const int32_t p = integer_value(modulus);
    if (p < 2) return fail(api, "modulus must be at least 2");
    *out_modulus = p;
    if (!out_fill) return true;
    if (!fill) {
        *out_fill = default_fill;
        return true;
    }
    const double value = rounded_fill(api, *fill);
    const bool in_range = with_standard_mode([&] { return value >= 0 && value <= p - 0.999; });
    if (!in_range) return fail_fill(api, word);
    *out_fill = static_cast<int32_t>(value);
    return true;
}

bool check_float_modulus(const HostApi *api, HostObject modulus, double *out_modulus, const HostObject *fill,
                         double *out_fill, const char *word, int32_t default_fill) {
    if (!is_immediate(modulus) || integer_value(modulus) > 33554431) {
        return fail(api, "modulus is too large for 'float[8]' datatype, must be < 33554432");
    }
    const double p = integer_value(modulus);
    if (integer_value(modulus) < 2) return fail(api, "modulus must be at least 2");
    *reinterpret_cast<StoredDouble *>(out_modulus) = p;
    if (!out_fill) return true;
    const double value = fill ? rounded_fill(api, *fill) : default_fill;
    const bool in_range = with_standard_mode([&] { return value >= 0 && value <= p - 0.99; });
    if (!in_range) return fail_fill(api, word);
    *reinterpret_cast<StoredDouble *>(out_fill) = value;
    return true;
}

bool check_integer_modulus(const HostApi *api, HostObject modulus) {
    if (is_immediate(modulus)) return integer_value(modulus) > 1 || fail(api, "modulus must be at least 2");
    if (!api->IsInteger(modulus)) return fail(api, "modulus must be an integer > 1");
    if (object_type(modulus) == MODLA_TYPE_POSITIVE_INTEGER) return true;
    return fail(api, "modulus must be at least 2");
}

bool check_object_modulus(const HostApi *api, HostObject modulus, HostObject *out_modulus, const HostObject *fill,
                          HostObject *out_fill, const char *word, int32_t default_fill) {
    if (!check_integer_modulus(api, modulus)) return false;
    *out_modulus = modulus;
    if (!out_fill) return true;
    if (fill && !(api->IsInteger(*fill) && validate_integer_value(modulus, *fill) == 0)) {
        return fail_fill(api, word);
    }
    *out_fill = fill ? *fill : immediate_integer(default_fill);
    return true;
}

}  // namespace

bool modla::check_modulus(const HostApi *api, HostObject modulus, void *out_modulus, int32_t datatype,
                          const HostObject *fill, void *out_fill, const char *word, int32_t default_fill) {
    if (!api->IsInteger(modulus)) return fail(api, "argument 1, the modulus, must be an integer");
    switch (datatype) {
        case MODLA_INTEGER4:
            return check_word_modulus(api, modulus, static_cast<int32_t *>(out_modulus), fill,
                                      static_cast<int32_t *>(out_fill), word, default_fill);
        case MODLA_FLOAT8:
            return check_float_modulus(api, modulus, static_cast<double *>(out_modulus), fill,
                                       static_cast<double *>(out_fill), word, default_fill);
        case MODLA_INTEGER:
            return check_object_modulus(api, modulus, static_cast<HostObject *>(out_modulus), fill,
                                        static_cast<HostObject *>(out_fill), word, default_fill);
        default:
            return fail(api, "modp object has invalid datatype");
    }
}

void validate_modulus(const HostApi *api, HostObject modulus, void *out_modulus, int32_t datatype,
                      const HostObject *fill, void *out_fill, const char *word, int32_t default_fill) {
    check_modulus(api, modulus, out_modulus, datatype, fill, out_fill, word, default_fill);
}

void validate_integer_modulus(const HostApi *api, HostObject modulus) {
    check_integer_modulus(api, modulus);
}

int32_t validate_integer_value(HostObject modulus, HostObject value) {
    if (is_immediate(modulus)) {
        const bool below =
            is_immediate(value) && integer_value(value) >= 0 && integer_value(value) < integer_value(modulus);
        return below ? 0 : 1;
    }
    if (is_immediate(value)) return integer_value(value) >= 0 ? 0 : 1;
    if (object_type(modulus) != MODLA_TYPE_POSITIVE_INTEGER) return 1;
    const uint32_t length = object_length(modulus);
    if (length != object_length(value)) return length > object_length(value) ? 0 : 1;
    for (uint32_t i = length - 1; i >= 1 && i < length; i--) {
        const HostObject m = object_words(modulus)[i], v = object_words(value)[i];
        if (m != v) return m > v ? 0 : 1;
    }
    return 1;
}
