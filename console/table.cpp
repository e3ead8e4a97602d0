#include "console/table.h"

#include <cmath>
#include <cstring>

#include "console/algebra.h"
#include "console/error.h"
#include "console/number.h"
#include "console/print.h"

namespace modla::console {

namespace {

size_t entry_index(const Table &table, int32_t i, int32_t j) {
    const int32_t rows = table_rows(table), columns = table_columns(table);
    if (i < 1 || i > rows || j < 1 || j > columns) {
        throw HostError("index " + std::to_string(i) + ", " + std::to_string(j) + " is outside a " +
                        describe_table(table));
    }
    const size_t row = static_cast<size_t>(i - 1), column = static_cast<size_t>(j - 1);
    return table.settings.order == MODLA_C_ORDER ? row * static_cast<size_t>(columns) + column
                                                 : column * static_cast<size_t>(rows) + row;
}

}  // namespace

int32_t table_rows(const Table &table) {
    return table.settings.subtype == MODLA_ROW_VECTOR ? 1 : table.bounds[0];
}

int32_t table_columns(const Table &table) {
    return table.settings.subtype == MODLA_ROW_VECTOR ? table.bounds[0] : table.bounds[1];
}

Object get_entry(const Table &table, int32_t i, int32_t j) {
    const size_t k = entry_index(table, i, j);
    switch (table.settings.datatype) {
        case MODLA_INTEGER4:
            return integer_object(int64_t{static_cast<const int32_t *>(table.data)[k]});
        case MODLA_FLOAT8:
            return new_float(static_cast<const double *>(table.data)[k]);
        default:
            return static_cast<const Object *>(table.data)[k];
    }
}

void set_entry(const Table &table, int32_t i, int32_t j, Object value) {
    const size_t k = entry_index(table, i, j);
    const auto refuse = [&] { throw HostError(to_line(value) + " is no entry for a " + describe_table(table)); };
    switch (table.settings.datatype) {
        case MODLA_INTEGER4: {
            if (!is_integer(value)) refuse();
            const mpz_class integer = integer_of(value);
            if (integer < -2147483647 - 1 || integer > 2147483647) refuse();
            static_cast<int32_t *>(table.data)[k] = static_cast<int32_t>(integer.get_si());
            break;
        }
        case MODLA_FLOAT8:
            if (!is_number(value)) refuse();
            static_cast<double *>(table.data)[k] = to_double(value);
            break;
        default:
            // Host values: what has a value modulo p, once its names have values.
            if (!is_operand(value) || has_type(value, type_float)) refuse();
            static_cast<Object *>(table.data)[k] = value;
    }
}

void enter(const Table &table, int32_t i, int32_t j, Object value, const char *way_out) {
    const int32_t datatype = table.settings.datatype;
    const bool native = datatype == MODLA_INTEGER4 || datatype == MODLA_FLOAT8;
    const double number = native && is_number(value) ? to_double(value) : 0;
    const double largest = datatype == MODLA_INTEGER4 ? 65534 : 33554430;  // below the largest modulus
    if (!(number >= 0 && number <= largest && number == std::floor(number))) {
        throw HostError(to_line(value) + " is no residue, as the entries of a " + describe_table(table) +
                        " must be: " + way_out + ", or give no datatype and let Mod reduce the Matrix");
    }
    set_entry(table, i, j, value);
}

Object get_entry_integer(const Table &table, int32_t i, int32_t j) {
    const Object entry = get_entry(table, i, j);
    if (is_integer(entry)) return entry;
    if (!has_type(entry, type_float)) throw HostError(to_line(entry) + " is no integer");
    return integer_object(integral_float(entry));
}

std::string integer_text(const Table &table, int32_t i, int32_t j) {
    const size_t k = entry_index(table, i, j);
    if (table.settings.datatype == MODLA_INTEGER4) return std::to_string(static_cast<const int32_t *>(table.data)[k]);
    if (table.settings.datatype == MODLA_FLOAT8) {
        const double value = static_cast<const double *>(table.data)[k];
        if (value >= 0 && value < 1e15 && value == std::floor(value))
            return std::to_string(static_cast<int64_t>(value));
    }
    const Object value = get_entry_integer(table, i, j);
    return is_immediate(value) ? std::to_string(immediate_value(value)) : integer_of(value).get_str();
}

std::string describe_table(const Table &table) {
    static const char *const subtypes[] = {"Array", "Matrix", "column Vector", "row Vector"};
    const int32_t datatype = table.settings.datatype;
    std::string result = std::to_string(table.bounds[0]);
    if (table.settings.num_dimensions > 1) result += " x " + std::to_string(table.bounds[1]);
    return result + " " + subtypes[table.settings.subtype & 3] + ", " +
           (datatype == MODLA_INTEGER4  ? "integer[4]"
            : datatype == MODLA_FLOAT8  ? "float[8]"
            : datatype == MODLA_INTEGER ? "integer"
                                        : "other datatype") +
           (table.settings.order == MODLA_C_ORDER ? ", C_order" : ", Fortran_order");
}

RtableSettings default_settings() {
    RtableSettings settings;
    std::memset(&settings, 0, sizeof settings);
    settings.storage = MODLA_RECTANGULAR;
    settings.num_dimensions = 2;
    settings.subtype = MODLA_MATRIX;
    settings.order = MODLA_FORTRAN_ORDER;
    for (uint32_t &field : settings.host_fields) field = 0x600dcafe;  // a caller must leave them alone
    return settings;
}

Object new_matrix(int32_t rows, int32_t columns, int32_t datatype, int32_t order) {
    RtableSettings settings = default_settings();
    settings.datatype = datatype;
    settings.order = order;
    const int32_t bounds[2] = {rows, columns};
    return new_table(settings, bounds, nullptr);
}

}  // namespace modla::console
