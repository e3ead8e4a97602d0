#include "console/print.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <vector>

#include "console/algebra.h"
#include "console/error.h"
#include "console/number.h"
#include "console/polynomial.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr int32_t most_rows = 30, most_columns = 30;  // of a table that is printed whole
constexpr int deepest = 500;                          // nesting that is printed
constexpr size_t most_parts = 4000000;                // that are printed: values may share parts

// How tightly the operators of a text bind, the loosest first.
enum Level { level_equation, level_range, level_sum, level_product, level_sign, level_power, level_primary };

std::string float_text(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-infinity" : "infinity";
    char buffer[40];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
    std::string result(buffer, end);
    return result.find_first_of(".e") == std::string::npos ? result + ".0" : result;
}

std::string number_text(Object x) {
    if (is_immediate(x)) return std::to_string(immediate_value(x));
    if (has_type(x, type_float)) return float_text(float_value(x));
    if (has_type(x, type_rational)) return number_text(words(x)[1]) + "/" + number_text(words(x)[2]);
    return integer_of(x).get_str();
}

// Writes values so that reading the text gives them again, as far as the language can write them.
struct Writer {
    bool abridged;  // values that are too long are cut short, else they are an error
    std::string text = {};
    size_t parts = 0;

    void write(Object x, int depth, Level needed = level_equation) {
        if (++parts > most_parts && !abridged) throw HostError("too long to print");
        if (depth > deepest || parts > most_parts) {
            text += "...";
            return;
        }
        const bool enclosed = level_of(x) < needed;
        if (enclosed) text += "(";
        write_open(x, depth);
        if (enclosed) text += ")";
    }

    static Level level_of(Object x) {
        if (is_number(x)) {
            if (is_negative(x)) return level_sign;
            return has_type(x, type_rational) ? level_product : level_primary;
        }
        const uint32_t type = type_of(x);
        if (type == type_equation) return level_equation;
        if (type == type_range) return level_range;
        if (type == type_power) return level_power;
        if (type == type_complex && length_of(x) == 3) return level_sum;
        if (type == type_complex) return x == complex_unit() ? level_primary : level_product;
        if (type == type_sum) return length_of(x) > 3 ? level_sum : level_product;
        if (type != type_product) return level_primary;
        return length_of(x) > 3 || is_negative_number(words(x)[2]) ? level_product : level_power;
    }

    static bool is_negative_number(Object x) { return is_number(x) && is_negative(x); }

    void write_open(Object x, int depth) {
        const uint32_t type = is_number(x) ? type_float : type_of(x);
        if (is_number(x)) {
            text += number_text(x);
        } else if (type == type_string) {
            write_string(text_of(x));
        } else if (type == type_name) {
            text += text_of(x);
        } else if (type == type_indexed) {
            write(words(x)[1], depth + 1);
            write_elements("[", words(x)[2], "]", depth);
        } else if (type == type_equation || type == type_range) {
            const bool range = type == type_range;
            const Level level = range ? level_sum : level_range;
            write(words(x)[1], depth + 1, level);
            text += range ? ".." : " = ";
            write(words(x)[2], depth + 1, level);
        } else if (type == type_sequence) {
            write_elements("", x, "", depth);
        } else if (type == type_list) {
            write_elements("[", x, "]", depth);
        } else if (type == type_set) {
            write_elements("{", x, "}", depth);
        } else if (type == type_procedure) {
            text += "<procedure>";
        } else if (type == type_table) {
            write_table(table_of(x), depth);
        } else if (type == type_complex || type == type_sum) {
            write_sum(x, depth);
        } else if (type == type_product || type == type_power) {
            write_term(x, immediate(1), depth, true);
        } else if (type == type_polynomial) {
            const bool two = is_bivariate(x);
            text += two ? "modp2(" : "modp1(";
            bool first = true;
            visit_polynomial(x, [&](Object coefficient, const Pairs &factors) {
                write_factors(coefficient, factors, depth, std::exchange(first, false));
            });
            text += (first ? "0, " : ", ") + number_text(polynomial_modulus(x)) + (two ? ", [" : ", ");
            write(polynomial_variable(x), depth + 1);
            text += two ? "])" : ")";
        } else {
            text += "<object of type " + std::to_string(type) + ">";
        }
    }

    void write_elements(const char *opening, Object collection, const char *closing, int depth) {
        text += opening;
        for (uint32_t i = 0; i < size_of(collection) && parts <= most_parts; i++) {
            if (i) text += ", ";
            write(element(collection, i), depth + 1);
        }
        text += closing;
    }

    void write_string(const std::string &contents) {
        text += '"';
        for (const char c : contents) {
            if (c == '"' || c == '\\') text += '\\';
            text += c == '\n' ? "\\n" : std::string(1, c);
        }
        text += '"';
    }

    void write_sum(Object x, int depth) {
        if (has_type(x, type_complex)) {
            const bool real = real_part(x) != immediate(0);
            if (real) write_factors(real_part(x), {}, depth, true);
            return write_factors(complex_object(immediate(0), imaginary_part(x)), {}, depth, !real);
        }
        for (uint32_t i = 1; i < length_of(x) && parts <= most_parts; i += 2) {
            write_term(words(x)[i], words(x)[i + 1], depth, i == 1);
        }
    }

    // A signed term of a sum: number * factor * ... / factor ...
    void write_term(Object x, Object coefficient, int depth, bool first) {
        const HoldCollection hold;
        Object number;
        Pairs factors;
        split_product(x, &number, &factors);
        write_factors(multiply(number, coefficient), factors, depth, first);
    }

    void write_factors(Object number, const Pairs &factors, int depth, bool first) {
        // A purely imaginary number is written as one factor more.
        const bool imaginary = is_complex(number) && length_of(number) == 2;
        Object real = imaginary ? imaginary_part(number) : number;
        const bool negative = is_negative_number(real);
        if (negative) real = negate(real);
        text += first ? (negative ? "-" : "") : (negative ? " - " : " + ");
        bool written = false;
        const auto divider = [&] { text += std::exchange(written, true) ? "*" : ""; };
        const Object leading = first_numerator(factors);
        const bool alone = !imaginary && leading == 0;
        if (real != immediate(1) || alone) {
            divider();
            write(real, depth + 1, level_product);
        }
        if (imaginary) {
            divider();
            text += "I";
        }
        // Read from the left, a number would be multiplied into a sum that follows it.
        const bool enclosed = number != immediate(1) && leading != 0 && has_type(leading, type_sum);
        if (enclosed) {
            divider();
            text += "(";
            written = false;
        }
        for (size_t i = 0; i < factors.size(); i += 2) {
            if (is_negative_number(factors[i + 1])) continue;
            divider();
            write_factor(factors[i], factors[i + 1], depth);
        }
        for (size_t i = 0; i < factors.size(); i += 2) {
            if (!is_negative_number(factors[i + 1])) continue;
            text += "/";
            write_factor(factors[i], negate(factors[i + 1]), depth);
        }
        if (enclosed) text += ")";
    }

    // A short Vector <column, column> or <row | row>; what does not fit into a line is described.
    void write_table(const Table &table, int depth) {
        const int32_t count = table.bounds[0];
        const bool row = table.settings.subtype == MODLA_ROW_VECTOR;
        if (abridged || table.settings.num_dimensions != 1 || count > most_columns) {
            text += "<" + describe_table(table) + ">";
            return;
        }
        text += "<";
        for (int32_t i = 1; i <= count; i++) {
            if (i > 1) text += row ? " | " : ", ";
            write(row ? get_entry(table, 1, i) : get_entry(table, i, 1), depth + 1);
        }
        text += ">";
    }

    // The first factor that stands before the divisors, 1 when it has an exponent; 0 when there is none.
    static Object first_numerator(const Pairs &factors) {
        for (size_t i = 0; i < factors.size(); i += 2) {
            const Object exponent = factors[i + 1];
            if (!is_negative_number(exponent)) return exponent == immediate(1) ? factors[i] : immediate(1);
        }
        return 0;
    }

    void write_factor(Object base, Object exponent, int depth) {
        if (exponent == immediate(1)) return write(base, depth + 1, level_power);
        write(base, depth + 1, level_primary);
        text += "^";
        write(exponent, depth + 1, level_primary);
    }
};

std::string text_at(Object x, int depth, bool abridged = false) {
    Writer writer{abridged};
    writer.write(x, depth);
    return std::move(writer.text);
}

using Lines = std::vector<int32_t>;  // rows or columns; 0 stands for some that are left out

std::string grid_text(const Table &table, const Lines &rows, const Lines &columns) {
    std::vector<std::string> cells;
    std::vector<size_t> widths(columns.size(), 0);
    for (const int32_t i : rows) {
        for (size_t j = 0; j < columns.size(); j++) {
            cells.push_back(i && columns[j] ? text_at(get_entry(table, i, columns[j]), 1) : "...");
            widths[j] = std::max(widths[j], cells.back().size());
        }
    }
    std::string result;
    for (size_t k = 0; k < cells.size(); k++) {
        const size_t j = k % columns.size();
        if (j == 0) result += k ? "\n[" : "[";
        result += std::string(widths[j] - cells[k].size() + (j ? 1 : 0), ' ') + cells[k];
        if (j + 1 == columns.size()) result += "]";
    }
    return result;
}

Lines lines_from(int32_t first, int32_t last) {
    Lines lines(static_cast<size_t>(last - first + 1));
    std::iota(lines.begin(), lines.end(), first);
    return lines;
}

// All, or the first and the last ones.
Lines shown_lines(int32_t count, int32_t most) {
    constexpr int32_t first = 6, last = 3;
    if (count <= most) return lines_from(1, count);
    Lines lines = lines_from(1, first), end = lines_from(count - last + 1, count);
    lines.push_back(0);
    lines.insert(lines.end(), end.begin(), end.end());
    return lines;
}

}  // namespace

std::string to_text(Object x) {
    if (!has_type(x, type_table)) return text_at(x, 0);
    const Table &table = table_of(x);
    const int32_t rows = table_rows(table), columns = table_columns(table);
    if (rows == 0 || columns == 0) return text_at(x, 0);
    const bool whole = rows <= most_rows && columns <= most_columns;
    return grid_text(table, shown_lines(rows, most_rows), shown_lines(columns, most_columns)) +
           (whole ? "" : "\n(a part of a " + describe_table(table) + "; show(A, rows, columns) shows any other)");
}

std::string part_text(const Table &table, std::pair<int32_t, int32_t> rows, std::pair<int32_t, int32_t> columns) {
    return grid_text(table, lines_from(rows.first, rows.second), lines_from(columns.first, columns.second));
}

std::string to_plain(Object x) {
    return has_type(x, type_string) ? text_of(x) : text_at(x, 1);
}

std::string to_line(Object x) {
    return has_type(x, type_string) ? text_of(x) : text_at(x, 1, true);
}

}  // namespace modla::console
