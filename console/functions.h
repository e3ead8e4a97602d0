// The console's own functions.
#pragma once

#include <string>

namespace modla::console {

// Defines them as protected names.
void define_functions();

// Files that are not found in the working directory are looked for here: the directory of the running script.
void set_file_directory(const std::string &directory);

// One line per function: its call and what it does.
std::string describe_functions();

}  // namespace modla::console
