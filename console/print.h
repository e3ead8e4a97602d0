// Values as text.
#pragma once

#include <string>
#include <utility>

#include "console/heap.h"

namespace modla::console {

// One line, except for tables, which take a line a row, large ones only their corners; strings are quoted.  Reading the text gives an expression again.
// Throws HostError when a value has too many parts, as one may whose parts are shared.
std::string to_text(Object x);

// A part of a table, line by line: the first and last row and column.
std::string part_text(const Table &table, std::pair<int32_t, int32_t> rows, std::pair<int32_t, int32_t> columns);

// Always one line: tables are described, strings stand without quotes.
std::string to_plain(Object x);

// The same for an error message: cut short when it is too long.
std::string to_line(Object x);

}  // namespace modla::console
