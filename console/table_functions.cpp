#include "console/table_functions.h"

#include <algorithm>

#include "console/error.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"

namespace modla::console {

namespace {

using Arguments = std::vector<Object>;

// name[n], or name[] for n = 0
bool is_indexed_name(Object x, const char *name, int32_t n) {
    if (!has_type(x, type_indexed) || words(x)[1] != global_name(name)) return false;
    const Object indices = words(x)[2];
    return n == 0 ? size_of(indices) == 0 : size_of(indices) == 1 && element(indices, 0) == immediate(n);
}

Object list_argument(Object x, const char *what) {
    if (!has_type(x, type_list)) throw HostError(std::string("expected ") + what + ", got " + to_line(x));
    return x;
}

Object new_vector(int32_t subtype, const Arguments &arguments) {
    const Object list = list_argument(arguments[0], "a list of entries");
    RtableSettings settings = default_settings();
    settings.subtype = subtype;
    settings.order = MODLA_C_ORDER;
    settings.num_dimensions = 1;
    settings.datatype = datatype_argument(arguments, 2);
    const int32_t bounds[2] = {static_cast<int32_t>(size_of(list)), 1};
    const Object vector = new_table(settings, bounds, nullptr);
    for (int32_t i = 1; i <= bounds[0]; i++) {
        const bool row = subtype == MODLA_ROW_VECTOR;
        set_entry(table_of(vector), row ? 1 : i, row ? i : 1, element(list, static_cast<uint32_t>(i - 1)));
    }
    return vector;
}

}  // namespace

int32_t datatype_argument(const Arguments &arguments, size_t i) {
    if (arguments.size() < i || arguments[i - 1] == global_name("integer")) return MODLA_INTEGER;
    const Object x = arguments[i - 1];
    if (is_indexed_name(x, "integer", 4) || is_indexed_name(x, "integer", 0)) return MODLA_INTEGER4;
    if (is_indexed_name(x, "float", 8)) return MODLA_FLOAT8;
    throw HostError("expected a datatype, integer, integer[4] or float[8], got " + to_line(x));
}

int32_t order_argument(const Arguments &arguments, size_t i) {
    if (arguments.size() < i || arguments[i - 1] == global_name("C_order")) return MODLA_C_ORDER;
    if (arguments[i - 1] == global_name("Fortran_order")) return MODLA_FORTRAN_ORDER;
    throw HostError("expected C_order or Fortran_order, got " + to_line(arguments[i - 1]));
}

Object make_row_vector(const Arguments &arguments) {
    return new_vector(MODLA_ROW_VECTOR, arguments);
}

Object make_column_vector(const Arguments &arguments) {
    return new_vector(MODLA_COLUMN_VECTOR, arguments);
}

Object make_matrix(const Arguments &arguments) {
    const Object rows = list_argument(arguments[0], "a list of rows");
    const uint32_t m = size_of(rows), n = m > 0 ? size_of(list_argument(element(rows, 0), "a row as a list")) : 0;
    const Object matrix = new_matrix(static_cast<int32_t>(m), static_cast<int32_t>(n), datatype_argument(arguments, 2),
                                     order_argument(arguments, 3));
    for (uint32_t i = 0; i < m; i++) {
        const Object row = list_argument(element(rows, i), "a row as a list");
        if (size_of(row) != n) throw HostError("the rows of a Matrix must have the same number of entries");
        for (uint32_t j = 0; j < n; j++) {
            set_entry(table_of(matrix), static_cast<int32_t>(i + 1), static_cast<int32_t>(j + 1), element(row, j));
        }
    }
    return matrix;
}

}  // namespace modla::console
