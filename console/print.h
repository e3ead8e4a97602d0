// Values as text.
#pragma once

#include <string>

#include "console/heap.h"

namespace modla::console {

// One line, except for tables, which take a line a row; strings are quoted.
std::string to_text(Object x);

// Always one line, as for an error message: tables are described, strings stand without quotes.
std::string to_line(Object x);

}  // namespace modla::console
