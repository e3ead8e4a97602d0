#include "console/compare.h"

#include <algorithm>
#include <set>
#include <utility>

#include "console/algebra.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"

namespace modla::console {

namespace {

// Values may share parts, so that a pair of them can meet very often: pairs that were found equal are remembered.
using Known = std::set<std::pair<Object, Object>>;

bool same(Object a, Object b, Known &known);

bool same_tables(const Table &a, const Table &b, Known &known) {
    if (table_rows(a) != table_rows(b) || table_columns(a) != table_columns(b)) return false;
    for (int32_t i = 1; i <= table_rows(a); i++) {
        for (int32_t j = 1; j <= table_columns(a); j++) {
            if (!same(get_entry(a, i, j), get_entry(b, i, j), known)) return false;
        }
    }
    return true;
}

bool same(Object a, Object b, Known &known) {
    check_stack();
    if (a == b) return true;
    if (is_number(a) && is_number(b)) return compare_numbers(a, b) == 0;
    if (is_number(a) || is_number(b) || type_of(a) != type_of(b)) return false;
    if (has_type(a, type_string)) return text_of(a) == text_of(b);
    if (has_type(a, type_table)) return same_tables(table_of(a), table_of(b), known);
    if (has_type(a, type_name) || has_type(a, type_procedure) || has_type(a, type_polynomial)) return false;
    if (length_of(a) != length_of(b) || (is_collection(a) && size_of(a) != size_of(b))) return false;
    if (known.contains({a, b})) return true;
    for (uint32_t i = 1; i < length_of(a); i++) {
        if (!same(words(a)[i], words(b)[i], known)) return false;
    }
    if (!is_unique(a)) known.insert({a, b});
    return true;
}

int compare(Object a, Object b, Known &known) {
    check_stack();
    if (a == b) return 0;
    if (is_number(a) && is_number(b)) return compare_numbers(a, b);
    const auto rank = [](Object x) { return is_number(x) ? 0 : is_operand(x) ? 1 : is_collection(x) ? 2 : 3; };
    if (rank(a) != rank(b)) return rank(a) - rank(b);
    if (rank(a) == 1) return compare_expressions(unique_value(a), unique_value(b));
    if (rank(a) == 3) return to_line(a).compare(to_line(b));
    if (known.contains({a, b})) return 0;
    for (uint32_t i = 0; i < std::min(size_of(a), size_of(b)); i++) {
        if (const int order = compare(element(a, i), element(b, i), known)) return order;
    }
    if (size_of(a) != size_of(b)) return size_of(a) < size_of(b) ? -1 : 1;
    known.insert({a, b});
    return 0;
}

}  // namespace

bool same_value(Object a, Object b) {
    Known known;
    return same(a, b, known);
}

int compare_values(Object a, Object b) {
    Known known;
    return compare(a, b, known);
}

}  // namespace modla::console
