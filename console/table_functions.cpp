#include <fstream>
#include <iostream>
#include <sstream>

#include "console/functions.h"
#include "console/gzip.h"
#include "console/host.h"
#include "console/matrix_file.h"
#include "console/number.h"
#include "console/print.h"
#include "console/spy.h"
#include "console/table.h"

namespace modla::console {

namespace {

std::string file_directory;

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
        enter(table_of(vector), row ? 1 : i, row ? i : 1, element(list, static_cast<uint32_t>(i - 1)));
    }
    return vector;
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
            enter(table_of(matrix), static_cast<int32_t>(i + 1), static_cast<int32_t>(j + 1), element(row, j));
        }
    }
    return matrix;
}

const Table &table_argument(Object x) {
    if (!has_type(x, type_table)) throw HostError("expected a Matrix or Vector, got " + to_line(x));
    return table_of(x);
}

// A row, a column or a range of them; all without an argument.
std::pair<int32_t, int32_t> lines_argument(const Arguments &arguments, size_t i, int32_t bound) {
    if (i >= arguments.size() || arguments[i] == immediate(-1)) return {1, bound};
    const bool range = has_type(arguments[i], type_range);
    const auto end = [&](uint32_t side) {
        const int32_t k = small_integer(range ? words(arguments[i])[side] : arguments[i], "a row or column");
        return k < 0 ? bound + k + 1 : k;
    };
    const std::pair<int32_t, int32_t> lines = {end(1), end(2)};
    if (lines.first < 1 || lines.second > bound || lines.first > lines.second) {
        throw HostError(to_line(arguments[i]) + " is outside 1.." + std::to_string(bound));
    }
    return lines;
}

Object show_part(const Arguments &arguments) {
    const Table &table = table_argument(arguments[0]);
    const auto rows = lines_argument(arguments, 1, table_rows(table));
    const auto columns = lines_argument(arguments, 2, table_columns(table));
    std::cout << part_text(table, rows, columns) << std::endl;
    return null_value();
}

// A fresh Matrix made by the library's own Create, which checks modulus, datatype and order.
Object create_matrix(Object modulus, const MatrixFile &file, const Arguments &description) {
    Roots arguments;
    arguments.values = {modulus, integer_object(int64_t{file.rows}), integer_object(int64_t{file.columns})};
    arguments.values.insert(arguments.values.end(), description.begin(), description.end());
    return call_procedure(evaluate(global_name("Create")), arguments.values);
}

MatrixFile read_file(Object argument, const char *what) {
    const std::string name = string_argument(argument, what);
    return read_matrix_file(*open_input(name), name == "-" ? "standard input" : name);
}

// Puts the entries of a file into a Matrix of zeros, reduced when there is a modulus.
Object fill_matrix(Object matrix, const MatrixFile &file, Object modulus) {
    const Table &table = table_of(matrix);
    const auto put = [&](int32_t row, int32_t column, Object value) {
        const Object entry = modulus ? modulo(value, modulus) : value;
        enter(table, row, column, entry, "give a modulus as argument 1");
    };
    for (const auto &[row, column, value] : file.entries) put(row, column, integer_object(value));
    for (const auto &[place, fraction] : file.fractions) {
        const auto [row, column] = place;
        if (modulus && gcd(fraction.get_den(), integer_of(modulus)) != 1) {
            throw HostError(fraction.get_str() + " at row " + std::to_string(row) + ", column " +
                            std::to_string(column) + " has no value mod " + to_line(modulus));
        }
        put(row, column, add(get_entry_integer(table, row, column), rational_object(fraction)));
    }
    return matrix;
}

// ReadMatrix("file" [, datatype [, order]]): the entries as they are.  ReadMatrix(p, "file", datatype [, order])
Object read_matrix(const Arguments &arguments) {
    if (has_type(arguments[0], type_string)) {
        const int32_t datatype = datatype_argument(arguments, 2), order = order_argument(arguments, 3);
        const MatrixFile file = read_file(arguments[0], "argument 1, the file,");
        return fill_matrix(new_matrix(file.rows, file.columns, datatype, order), file, 0);
    }
    if (arguments.size() < 3) throw HostError("usage: ReadMatrix(p, \"file\", datatype [, order])");
    const Object modulus = arguments[0];
    if (!is_integer(modulus)) throw HostError("argument 1, the modulus, must be an integer");
    const MatrixFile file = read_file(arguments[1], "argument 2, the file,");
    const Object matrix = create_matrix(modulus, file, Arguments(arguments.begin() + 2, arguments.end()));
    return fill_matrix(matrix, file, modulus);
}

// WriteMatrix("file", A): SMS when the name ends in .sms, Matrix Market for .mtx and, on standard output, for "-"; packed
// when .gz follows.
Object write_matrix(const Arguments &arguments) {
    const std::string name = string_argument(arguments[0], "argument 1, the file,");
    const bool packed = name.ends_with(".gz"), to_output = name == "-";
    const std::string_view ending = std::string_view(name).substr(0, name.size() - (packed ? 3 : 0));
    const bool sms = ending.ends_with(".sms");
    if (!sms && !to_output && !ending.ends_with(".mtx")) throw HostError(name + " must end in .mtx or .sms");
    const Table &table = table_argument(arguments[1]);
    const int32_t rows = table_rows(table), columns = table_columns(table);
    const auto text = [&](int32_t i, int32_t j) { return integer_text(table, i, j); };
    // All entries are looked at before the file is touched: one that is no integer leaves it as it is.
    for (int32_t i = 1; i <= rows; i++) {
        for (int32_t j = 1; j <= columns; j++) text(i, j);
    }
    const auto write = sms ? write_sms : write_matrix_market;
    if (to_output) {
        write(std::cout, rows, columns, text);
        std::cout.flush();
    } else if (packed) {
        std::ostringstream output;
        write(output, rows, columns, text);
        write_gzip(name, output.view());
    } else {
        std::ofstream output(name, std::ios::binary);
        if (output) write(output, rows, columns, text);
        output.close();
        if (!output) throw HostError("cannot write " + name);
    }
    return null_value();
}

// Spy(A, "file.png") or Spy([A, B, ...], "file.png")
Object draw_spy(const Arguments &arguments) {
    std::vector<Pattern> patterns;
    const bool several = has_type(arguments[0], type_list) && size_of(arguments[0]) > 0;
    for (uint32_t i = 0; i < (several ? size_of(arguments[0]) : 1); i++)
        patterns.push_back(pattern_of(table_argument(several ? element(arguments[0], i) : arguments[0])));
    write_spy(patterns, string_argument(arguments[1], "argument 2, the file,"));
    return null_value();
}

// ReadLists("file"): a list of integers for every line; # starts a comment.
Object read_lists(const Arguments &arguments) {
    const std::string name = string_argument(arguments[0], "argument 1, the file,");
    const auto input = open_input(name);
    Roots lists;
    std::string line;
    for (int number = 1; std::getline(*input, line); number++) {
        std::istringstream items(line.substr(0, line.find('#')));
        Roots list;
        for (std::string item; items >> item;) {
            mpz_class value;
            if (value.set_str(item[0] == '+' ? item.substr(1) : item, 10) != 0) {
                throw HostError(name + ":" + std::to_string(number) + ": '" + item + "' is no integer");
            }
            list.values.push_back(integer_object(value));
        }
        if (list.values.empty()) continue;
        lists.values.push_back(new_collection(type_list, list.values));
    }
    if (input->bad()) throw HostError("cannot read " + name);
    return new_collection(type_list, lists.values);
}

}  // namespace

std::unique_ptr<std::istream> open_input(const std::string &name) {
    if (name == "-") {
        std::unique_ptr<std::istream> unpacked = unpack_gzip(std::cin, "standard input");
        return unpacked ? std::move(unpacked) : std::make_unique<std::istream>(std::cin.rdbuf());
    }
    std::string place = name;
    auto file = std::make_unique<std::ifstream>(place, std::ios::binary);
    if (!*file && !file_directory.empty() && name[0] != '/') {
        place = file_directory + "/" + name;
        file->open(place, std::ios::binary);
    }
    if (!*file) throw HostError("cannot open " + name);
    std::unique_ptr<std::istream> unpacked = unpack_gzip(*file, name);
    return unpacked ? std::move(unpacked) : std::move(file);
}

void set_file_directory(const std::string &directory) {
    file_directory = directory;
}

std::vector<Function> table_functions() {
    return {
        {"is_matrix", 1, 1,
         [](const Arguments &A) { return truth(table_argument(A[0]).settings.num_dimensions == 2); }},
        {"show", 1, 3, show_part},
        {"rows", 1, 1, [](const Arguments &A) { return integer_object(int64_t{table_rows(table_argument(A[0]))}); }},
        {"columns", 1, 1,
         [](const Arguments &A) { return integer_object(int64_t{table_columns(table_argument(A[0]))}); }},
        {"row_vector", 1, 2, [](const Arguments &L) { return new_vector(MODLA_ROW_VECTOR, L); }},
        {"column_vector", 1, 2, [](const Arguments &L) { return new_vector(MODLA_COLUMN_VECTOR, L); }},
        {"matrix", 1, 3, make_matrix},
        {"ReadMatrix", 1, 4, read_matrix},
        {"WriteMatrix", 2, 2, write_matrix},
        {"ReadLists", 1, 1, read_lists},
        {"Spy", 2, 2, draw_spy},
    };
}

}  // namespace modla::console
