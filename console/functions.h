// The console's own functions.
#pragma once

#include <gmpxx.h>

#include <string>

namespace modla::console {

// Defines them as protected names, and the callbacks as names that programs may give other procedures.
void define_functions();

// The source of random host integers; native entries come from rand().
gmp_randclass &random_source();

// Files that are not found in the working directory are looked for here: the directory of the running script.
void set_file_directory(const std::string &directory);

// One line per function: its call and what it does.
std::string describe_functions();

}  // namespace modla::console
