#include "console/integer_block.h"

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

mpz_class reduce_digits(const BigResidue &residue, Object x) {
    mpz_class value;
    read_magnitude(x, value.get_mpz_t());
    if (value >= residue.p) value = residue.reduce(value);
    if (type_of(x) == type_negative) value = residue.p - value;
    return value;
}

}  // namespace modla::console
