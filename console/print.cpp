#include "console/print.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

#include "console/number.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr int32_t most_rows = 30, most_columns = 30;  // of a table that is printed whole
constexpr int deepest = 200;                          // nesting that is printed

std::string text(Object x, int depth);

std::string float_text(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-infinity" : "infinity";
    char buffer[40];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    std::string result(buffer, end);
    return result.find_first_of(".e") == std::string::npos ? result + ".0" : result;
}

std::string elements_text(Object sequence, int depth) {
    std::string result;
    for (uint32_t i = 0; i < size_of(sequence); i++) {
        if (i) result += ", ";
        result += text(element(sequence, i), depth);
    }
    return result;
}

std::string grid_text(const Table &table) {
    const int32_t rows = table_rows(table), columns = table_columns(table);
    std::vector<std::string> cells;
    std::vector<size_t> widths(static_cast<size_t>(columns), 0);
    for (int32_t i = 1; i <= rows; i++) {
        for (int32_t j = 1; j <= columns; j++) {
            cells.push_back(text(get_entry(table, i, j), 0));
            size_t &width = widths[static_cast<size_t>(j - 1)];
            width = std::max(width, cells.back().size());
        }
    }
    std::string result;
    for (size_t k = 0; k < cells.size(); k++) {
        const size_t j = k % static_cast<size_t>(columns);
        if (j == 0) result += k ? "\n[" : "[";
        result += std::string(widths[j] - cells[k].size() + (j ? 1 : 0), ' ') + cells[k];
        if (j + 1 == static_cast<size_t>(columns)) result += "]";
    }
    return result;
}

std::string table_text(const Table &table, int depth) {
    const int32_t rows = table_rows(table), columns = table_columns(table);
    if (depth == 0 && rows > 0 && columns > 0 && rows <= most_rows && columns <= most_columns) {
        return grid_text(table);
    }
    return "<" + describe_table(table) + ">";
}

std::string text(Object x, int depth) {
    if (is_immediate(x)) return std::to_string(immediate_value(x));
    if (depth > deepest) return "...";
    const auto part = [&](uint32_t i) { return text(words(x)[i], depth + 1); };
    switch (type_of(x)) {
        case type_negative:
        case type_positive:
            return integer_of(x).get_str();
        case type_rational:
            return part(1) + "/" + part(2);
        case type_float:
            return float_text(float_value(x));
        case type_string:
            return "\"" + text_of(x) + "\"";
        case type_name:
            return text_of(x);
        case type_indexed:
            return part(1) + "[" + elements_text(words(x)[2], depth + 1) + "]";
        case type_equation:
            return part(1) + " = " + part(2);
        case type_sequence:
            return elements_text(x, depth + 1);
        case type_list:
            return "[" + elements_text(x, depth + 1) + "]";
        case type_range:
            return part(1) + ".." + part(2);
        case type_set:
            return "{" + elements_text(x, depth + 1) + "}";
        case type_procedure:
            return "<procedure>";
        case type_table:
            return table_text(table_of(x), depth);
        default:
            return "<object of type " + std::to_string(type_of(x)) + ">";
    }
}

}  // namespace

std::string to_text(Object x) {
    return text(x, 0);
}

std::string to_line(Object x) {
    return has_type(x, type_string) ? text_of(x) : text(x, 1);
}

}  // namespace modla::console
