#include "console/big_integer.h"

#include <algorithm>
#include <vector>

#include "values/digits.h"

namespace modla::console {

namespace {

// A host's digit, base 10000, is two digits of base 100, in which GMP reads and writes bytes.
constexpr uint32_t byte_base = 100;

// Memory for so many bytes, until the next call.
unsigned char *take_bytes(size_t count) {
    static auto *const bytes = new std::vector<unsigned char>;
    if (bytes->size() < count) bytes->resize(count);
    return bytes->data();
}

}  // namespace

void read_magnitude(Object x, mpz_ptr value) {
    uint32_t digits = length_of(x) - 1;
    while (digits > 0 && words(x)[digits] == 0) digits--;
    if (digits == 0) return mpz_set_ui(value, 0);
    unsigned char *const bytes = take_bytes(2 * size_t{digits});
    unsigned char *at = bytes;
    for (uint32_t i = digits; i >= 1; i--) {
        const uint32_t digit = words(x)[i];
        *at++ = static_cast<unsigned char>(digit / byte_base);
        *at++ = static_cast<unsigned char>(digit % byte_base);
    }
    const unsigned char *const first = bytes + (*bytes == 0);
    const size_t count = static_cast<size_t>(at - first);
    const mp_size_t limbs = static_cast<mp_size_t>(count) / (GMP_NUMB_BITS / 8) + 2;
    mpz_limbs_finish(value, mpn_set_str(mpz_limbs_write(value, limbs), first, count, byte_base));
}

mpz_class integer_of(Object x) {
    if (is_immediate(x)) return immediate_value(x);
    mpz_class value;
    read_magnitude(x, value.get_mpz_t());
    if (type_of(x) == type_negative) mpz_neg(value.get_mpz_t(), value.get_mpz_t());
    return value;
}

Object host_integer(const mpz_class &value) {
    if (value >= -immediate_limit && value <= immediate_limit) return immediate(static_cast<int32_t>(value.get_si()));
    mpz_class limbs = value;  // destroyed by the conversion
    const mp_size_t size = static_cast<mp_size_t>(mpz_size(value.get_mpz_t()));
    unsigned char *const bytes = take_bytes(static_cast<size_t>(size) * GMP_NUMB_BITS / 6 + 2);
    const size_t written = mpn_get_str(bytes, byte_base, mpz_limbs_modify(limbs.get_mpz_t(), size), size);
    const unsigned char *const first = std::find_if(bytes, bytes + written, [](unsigned char b) { return b != 0; });
    const unsigned char *at = bytes + written;
    const uint32_t digits = static_cast<uint32_t>(at - first + 1) / 2;
    const Object x = new_object(digits + 1, value < 0 ? type_negative : type_positive);
    for (uint32_t i = 1; i <= digits; i++) {
        uint32_t digit = *--at;
        if (at > first) digit += byte_base * *--at;
        words(x)[i] = digit;
    }
    return x;
}

Object host_integer(int64_t value) {
    if (value >= -immediate_limit && value <= immediate_limit) return immediate(static_cast<int32_t>(value));
    uint32_t digits[5];
    const uint64_t magnitude = static_cast<uint64_t>(value);
    const uint32_t count = split_digits(value < 0 ? 0 - magnitude : magnitude, digits);
    const Object x = new_object(count + 1, value < 0 ? type_negative : type_positive);
    std::copy_n(digits, count, words(x) + 1);
    return x;
}

}  // namespace modla::console
