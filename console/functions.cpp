#include "console/functions.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "console/callbacks.h"
#include "console/compare.h"
#include "console/expression_functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/matrix_file.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"
#include "console/table_functions.h"

namespace modla::console {

namespace {

using Arguments = std::vector<Object>;

std::string &file_directory() {
    static auto *const directory = new std::string;
    return *directory;
}

std::string string_argument(Object x, const char *what) {
    if (!has_type(x, type_string)) throw HostError(std::string(what) + " must be a string, not " + to_line(x));
    return text_of(x);
}

std::ifstream open_input(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    if (!file && !file_directory().empty() && name[0] != '/') {
        file.open(file_directory() + "/" + name, std::ios::binary);
    }
    if (!file) throw HostError("cannot open " + name);
    return file;
}

const Table &table_argument(Object x) {
    if (!has_type(x, type_table)) throw HostError("expected a Matrix or Vector, got " + to_line(x));
    return table_of(x);
}

Object collection_argument(Object x) {
    if (!is_collection(x)) throw HostError("expected a list or set, got " + to_line(x));
    return x;
}

std::vector<Object> elements_of(Object x) {
    std::vector<Object> elements;
    for (uint32_t i = 0; i < size_of(x); i++) elements.push_back(element(x, i));
    return elements;
}

Object print_values(const Arguments &arguments) {
    std::string line;
    for (size_t i = 0; i < arguments.size(); i++) {
        if (i) line += " ";
        line += has_type(arguments[i], type_string) ? text_of(arguments[i]) : to_text(arguments[i]);
    }
    std::cout << line << std::endl;
    return null_value();
}

Object pad_text(const Arguments &arguments) {
    const std::string text = to_plain(arguments[0]);
    const int32_t width = small_integer(arguments[1], "a width");
    const size_t wanted = std::min<size_t>(static_cast<size_t>(std::abs(width)), 1000);
    const std::string blanks(wanted > text.size() ? wanted - text.size() : 0, ' ');
    return new_string(width < 0 ? text + blanks : blanks + text);
}

Object join_text(const Arguments &arguments) {
    std::string text;
    for (const Object x : arguments) text += to_plain(x);
    return new_string(text);
}

// A number with so many digits after the point.
Object fixed_text(const Arguments &arguments) {
    if (!is_number(arguments[0])) throw HostError("expected a number, got " + to_line(arguments[0]));
    char buffer[400];  // the largest double has 309 digits
    const int digits = std::clamp(small_integer(arguments[1], "a number of digits"), 0, 20);
    std::snprintf(buffer, sizeof buffer, "%.*f", digits, to_double(arguments[0]));
    return new_string(buffer);
}

Object sort_values(const Arguments &arguments) {
    std::vector<Object> elements = elements_of(collection_argument(arguments[0]));
    std::stable_sort(elements.begin(), elements.end(), [](Object a, Object b) { return compare_values(a, b) < 0; });
    return new_collection(type_list, new_sequence(elements));
}

// A sorted list without repetitions.
Object unique_values(const Arguments &arguments) {
    const Object sorted = sort_values(arguments);
    std::vector<Object> elements = elements_of(sorted);
    const auto end = std::unique(elements.begin(), elements.end(), same_value);
    elements.erase(end, elements.end());
    return new_collection(type_list, new_sequence(elements));
}

Object find_position(const Arguments &arguments) {
    const Object list = collection_argument(arguments[1]);
    for (uint32_t i = 0; i < size_of(list); i++) {
        if (same_value(element(list, i), arguments[0])) return integer_object(int64_t{i} + 1);
    }
    return immediate(0);
}

// The position in a list that `sort` or `unique` made, by bisection.
Object find_sorted(const Arguments &arguments) {
    const Object list = collection_argument(arguments[1]);
    uint32_t low = 0, high = size_of(list);
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const int order = compare_values(element(list, middle), arguments[0]);
        if (order == 0) return integer_object(int64_t{middle} + 1);
        (order < 0 ? low : high) = order < 0 ? middle + 1 : middle;
    }
    return immediate(0);
}

// The list without its element at a position.
Object without(const Arguments &arguments) {
    std::vector<Object> elements = elements_of(collection_argument(arguments[0]));
    const int32_t i = small_integer(arguments[1], "a position");
    if (i < 1 || static_cast<size_t>(i) > elements.size()) throw HostError("position outside the list");
    elements.erase(elements.begin() + (i - 1));
    return new_collection(type_list, new_sequence(elements));
}

// A list with the elements of all the given lists.
Object concatenate(const Arguments &arguments) {
    std::vector<Object> elements;
    for (const Object list : arguments) {
        for (const Object x : elements_of(collection_argument(list))) elements.push_back(x);
    }
    return new_collection(type_list, new_sequence(elements));
}

Object rows_value(const Arguments &arguments) {
    return integer_object(int64_t{table_rows(table_argument(arguments[0]))});
}

Object columns_value(const Arguments &arguments) {
    return integer_object(int64_t{table_columns(table_argument(arguments[0]))});
}

Object equal_values(const Arguments &arguments) {
    return global_name(same_value(arguments[0], arguments[1]) ? "true" : "false");
}

Object time_value(const Arguments &) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return new_float(std::chrono::duration<double>(now).count());
}

Object seed_random(const Arguments &arguments) {
    const unsigned seed = static_cast<unsigned>(small_integer(arguments[0], "a seed"));
    std::srand(seed);
    random_source().seed(seed);
    return null_value();
}

// A fresh Matrix made by the library's own Create, which checks modulus, datatype and order.
Object create_matrix(Object modulus, int32_t rows, int32_t columns, const Arguments &description) {
    Roots arguments;
    arguments.values = {modulus, integer_object(int64_t{rows}), integer_object(int64_t{columns})};
    arguments.values.insert(arguments.values.end(), description.begin(), description.end());
    return call_procedure(evaluate(global_name("Create")), arguments.values);
}

MatrixFile read_file(Object argument, const char *what) {
    const std::string name = string_argument(argument, what);
    std::ifstream input = open_input(name);
    return read_matrix_file(input, name);
}

// ReadMatrix("file" [, datatype [, order]]): the entries as they are.
Object read_unreduced(const Arguments &arguments) {
    const int32_t datatype = datatype_argument(arguments, 2), order = order_argument(arguments, 3);
    const MatrixFile file = read_file(arguments[0], "argument 1, the file,");
    const Object matrix = new_matrix(file.rows, file.columns, datatype, order);
    for (const MatrixEntry &entry : file.entries) {
        const Object value = integer_object(entry.value);
        if (datatype == MODLA_FLOAT8 && mpz_class(to_double(value)) != entry.value) {
            throw HostError(to_line(value) + " is no float");
        }
        set_entry(table_of(matrix), entry.row, entry.column, value);
    }
    return matrix;
}

// ReadMatrix(p, "file", datatype [, order])
Object read_matrix(const Arguments &arguments) {
    if (has_type(arguments[0], type_string)) return read_unreduced(arguments);
    if (arguments.size() < 3) throw HostError("usage: ReadMatrix(p, \"file\", datatype [, order])");
    const Object modulus = arguments[0];
    if (!is_integer(modulus)) throw HostError("argument 1, the modulus, must be an integer");
    const MatrixFile file = read_file(arguments[1], "argument 2, the file,");
    Roots held;
    held.values.push_back(
        create_matrix(modulus, file.rows, file.columns, Arguments(arguments.begin() + 2, arguments.end())));
    const mpz_class p = integer_of(modulus);
    const Table &table = table_of(held.values[0]);
    for (const MatrixEntry &entry : file.entries) {
        mpz_class residue;
        mpz_mod(residue.get_mpz_t(), entry.value.get_mpz_t(), p.get_mpz_t());
        set_entry(table, entry.row, entry.column, integer_object(residue));
    }
    return held.values[0];
}

// WriteMatrix("file", A): SMS when the name ends in .sms, else Matrix Market.
Object write_matrix(const Arguments &arguments) {
    const std::string name = string_argument(arguments[0], "argument 1, the file,");
    const Table &table = table_argument(arguments[1]);
    const int32_t rows = table_rows(table), columns = table_columns(table);
    const auto text = [&](int32_t i, int32_t j) { return integer_of(get_entry_integer(table, i, j)).get_str(); };
    // All entries are looked at before the file is touched: one that is no integer leaves it as it is.
    for (int32_t i = 1; i <= rows; i++) {
        for (int32_t j = 1; j <= columns; j++) get_entry_integer(table, i, j);
    }
    std::ofstream output(name, std::ios::binary);
    if (!output) throw HostError("cannot write " + name);
    const bool sms = name.size() > 4 && name.compare(name.size() - 4, 4, ".sms") == 0;
    (sms ? write_sms : write_matrix_market)(output, rows, columns, text);
    output.close();
    if (!output) throw HostError("cannot write " + name);
    return null_value();
}

// ReadLists("file"): a list of integers for every line; # starts a comment.
Object read_lists(const Arguments &arguments) {
    const std::string name = string_argument(arguments[0], "argument 1, the file,");
    std::ifstream input = open_input(name);
    Roots lists;
    std::string line;
    for (int number = 1; std::getline(input, line); number++) {
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
        lists.values.push_back(new_collection(type_list, new_sequence(list.values)));
    }
    if (input.bad()) throw HostError("cannot read " + name);
    return new_collection(type_list, new_sequence(lists.values));
}

Object assign_value(const Arguments &arguments) {
    if (!has_type(arguments[0], type_name)) throw HostError("cannot assign to " + to_line(arguments[0]));
    assign_global(arguments[0], arguments[1]);
    return null_value();
}

Object raise_error(const Arguments &arguments) {
    throw HostError(to_line(arguments[0]));
}

Object show_help(const Arguments &) {
    std::cout << describe_functions() << std::flush;
    return null_value();
}

struct Function {
    const char *name;
    size_t least, most;  // arguments
    Object (*run)(const Arguments &);
    const char *call, *purpose;
};

const Function functions[] = {
    {"print", 0, 1000, print_values, "print(a, b, ...)", "prints the values on a line"},
    {"pad", 2, 2, pad_text, "pad(a, width)", "text padded with blanks: right-aligned, left-aligned if width < 0"},
    {"join", 0, 1000, join_text, "join(a, b, ...)", "one text of all the values"},
    {"fixed", 2, 2, fixed_text, "fixed(x, n)", "a number as text with n digits after the point"},
    {"size", 1, 1, size_value, "size(L)", "how many elements a list or set has, or operands an expression"},
    {"op", 1, 1, operands, "op(L)", "the elements of a list or set, the operands of an expression, as a sequence"},
    {"sort", 1, 1, sort_values, "sort(L)", "the elements in order, numbers and lists of them by value"},
    {"unique", 1, 1, unique_values, "unique(L)", "sorted, each element once"},
    {"position", 2, 2, find_position, "position(x, L)", "where x stands in L; 0 if nowhere"},
    {"bisect", 2, 2, find_sorted, "bisect(x, L)", "the same for a sorted list, faster"},
    {"without", 2, 2, without, "without(L, i)", "the list without its element i"},
    {"concat", 0, 1000, concatenate, "concat(L, M, ...)", "one list of the elements of all"},
    {"rows", 1, 1, rows_value, "rows(A)", "the number of rows"},
    {"columns", 1, 1, columns_value, "columns(A)", "the number of columns"},
    {"equal", 2, 2, equal_values, "equal(a, b)", "true when the values, or the entries of tables, are equal"},
    {"eval", 1, 2, eval_value, "eval(a [, x = b | list])", "a with the values that names have, or with those given"},
    {"expand", 1, 1, expand_value, "expand(a)", "products and powers of sums multiplied out"},
    {"coefficient", 3, 3, coefficient_value, "coefficient(a, x, n)", "the coefficient of x^n"},
    {"modp1", 2, 3, make_modp1, "modp1(a, p [, x])", "a polynomial modulo p in one variable"},
    {"modp2", 2, 3, make_modp2, "modp2(a, p [, [x, y]])", "a polynomial modulo p in two variables"},
    {"row_vector", 1, 2, make_row_vector, "row_vector(list [, datatype])", "a Vector of these entries, unreduced"},
    {"column_vector", 1, 2, make_column_vector, "column_vector(list [, datatype])", "likewise"},
    {"matrix", 1, 3, make_matrix, "matrix(lists [, datatype [, order]])", "a Matrix of these rows, unreduced"},
    {"time", 0, 0, time_value, "time()", "seconds on a clock that only goes forward"},
    {"seed", 1, 1, seed_random, "seed(n)", "starts the sequence of random entries anew"},
    {"ReadMatrix", 1, 4, read_matrix, "ReadMatrix([p,] \"file\", datatype [, order])",
     "a Matrix Market or SMS file, reduced modulo p; without p unreduced, host integers unless a datatype is given"},
    {"WriteMatrix", 2, 2, write_matrix, "WriteMatrix(\"file\", A)", "Matrix Market, or SMS for a name in .sms"},
    {"ReadLists", 1, 1, read_lists, "ReadLists(\"file\")", "a list of the integers on every line"},
    {"assign", 2, 2, assign_value, "assign('x', a)", "gives a name a value; the name may be a parameter's value"},
    {"error", 1, 1, raise_error, "error(\"text\")", "ends the statement, and a script, with this error"},
    {"help", 0, 0, show_help, "help()", "this list"},
};

}  // namespace

gmp_randclass &random_source() {
    static auto *const source = new gmp_randclass(gmp_randinit_mt);
    return *source;
}

void set_file_directory(const std::string &directory) {
    file_directory() = directory;
}

std::string describe_functions() {
    std::string result;
    for (const Function &function : functions) {
        const std::string call = function.call;
        result += call + std::string(call.size() < 44 ? 44 - call.size() : 1, ' ') + function.purpose + "\n";
    }
    return result;
}

void define_functions() {
    for (const Function &function : functions) {
        define_protected(function.name, make_native(function.name, [&function](const Arguments &arguments) {
                             if (arguments.size() < function.least || arguments.size() > function.most) {
                                 throw HostError(std::string("usage: ") + function.call);
                             }
                             return function.run(arguments);
                         }));
    }
    define_callbacks();
}

}  // namespace modla::console
