#include "console/integer_block.h"

#include <algorithm>
#include <cstdlib>

#include "console/error.h"
#include "console/print.h"
#include "console/table.h"

namespace modla::console {

void check_table(Object x) {
    if (!has_type(x, type_table) || table_of(x).settings.datatype != MODLA_INTEGER) {
        throw HostError("expected a Matrix or Vector of host integers, got " + to_line(x));
    }
}

IntegerBlock integer_block(Object object, int32_t row, int32_t rows, int32_t column, int32_t columns) {
    check_table(object);
    const Table &table = table_of(object);
    const int32_t all_rows = table_rows(table), all_columns = table_columns(table);
    const auto fits = [](int32_t first, int32_t count, int32_t all) {
        return first >= 0 && count >= 0 && first <= all && count <= all - first;
    };
    if (!fits(row, rows, all_rows) || !fits(column, columns, all_columns)) {
        throw HostError("the block is outside the " + describe_table(table));
    }
    const bool c_order = table.settings.order == MODLA_C_ORDER;
    const ptrdiff_t row_step = c_order ? all_columns : 1, column_step = c_order ? 1 : all_rows;
    return {static_cast<Object *>(table.data) + row * row_step + column * column_step, row_step, column_step, rows,
            columns};
}

void check_integer(Object x) {
    if (!is_integer(x)) throw HostError("matrices of host integers cannot be worked on with the entry " + to_line(x));
}

void check_memory(uint64_t bytes) {
    void *const probe = bytes <= SIZE_MAX / 2 ? std::malloc(static_cast<size_t>(bytes)) : nullptr;
    if (!probe && bytes > 0) throw HostError("out of memory");
    std::free(probe);
}

namespace {

// A host's digit, base 10000, is two digits of base 100, in which GMP reads and writes bytes.
constexpr uint32_t byte_base = 100;

// Bytes on the stack for most integers.
struct Bytes {
    unsigned char few[256];
    std::vector<unsigned char> many;

    unsigned char *of(size_t count) {
        if (count <= sizeof few) return few;
        many.resize(count);
        return many.data();
    }
};

// The magnitude of a host integer of several words.
void read_digits(Object x, mpz_ptr value) {
    uint32_t digits = length_of(x) - 1;
    while (digits > 0 && words(x)[digits] == 0) digits--;
    if (digits == 0) return mpz_set_ui(value, 0);
    Bytes memory;
    unsigned char *const bytes = memory.of(2 * size_t{digits});
    unsigned char *at = bytes;
    for (uint32_t i = digits; i >= 1; i--) {
        const uint32_t digit = words(x)[i];
        *at++ = static_cast<unsigned char>(digit / byte_base);
        *at++ = static_cast<unsigned char>(digit % byte_base);
    }
    const unsigned char *const first = bytes + (*bytes == 0);
    const size_t count = static_cast<size_t>(at - first);
    const mp_size_t limbs = static_cast<mp_size_t>(8 * count / GMP_NUMB_BITS + 2);
    mpz_limbs_finish(value, mpn_set_str(mpz_limbs_write(value, limbs), first, count, byte_base));
}

}  // namespace

void read_integer(Object x, mpz_class *value) {
    if (is_immediate(x)) {
        *value = immediate_value(x);
        return;
    }
    read_digits(x, value->get_mpz_t());
    if (type_of(x) == type_negative) mpz_neg(value->get_mpz_t(), value->get_mpz_t());
}

Object host_integer(const mpz_class &value) {
    if (value >= -immediate_limit && value <= immediate_limit) return immediate(static_cast<int32_t>(value.get_si()));
    mpz_class limbs = value;  // destroyed by the conversion
    const mp_size_t size = static_cast<mp_size_t>(mpz_size(value.get_mpz_t()));
    Bytes memory;
    unsigned char *const bytes = memory.of(static_cast<size_t>(size) * GMP_NUMB_BITS / 6 + 2);
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

Object host_integer(uint64_t value) {
    if (value <= immediate_limit) return immediate(static_cast<int32_t>(value));
    uint32_t digits[5], count = 0;
    for (; value > 0; value /= 10000) digits[count++] = static_cast<uint32_t>(value % 10000);
    const Object x = new_object(count + 1, type_positive);
    std::copy_n(digits, count, words(x) + 1);
    return x;
}

mpz_class reduce_digits(const BigResidue &residue, Object x) {
    mpz_class value;
    read_digits(x, value.get_mpz_t());
    if (value >= residue.p) value = residue.reduce(value);
    if (type_of(x) == type_negative) value = residue.p - value;
    return value;
}

}  // namespace modla::console
