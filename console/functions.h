// The console's own functions.
#pragma once

#include <gmpxx.h>

#include <istream>
#include <memory>
#include <string>
#include <vector>

#include "console/heap.h"

namespace modla::console {

using Arguments = std::vector<Object>;

struct Function {
    const char *name;
    size_t least, most;  // arguments
    Object (*run)(const Arguments &arguments);
};

// The functions by what they do, each list with its own file.
std::vector<Function> value_functions();
std::vector<Function> table_functions();  // Matrices and files
std::vector<Function> expression_functions();
std::vector<Function> multimodular_functions();  // what the prelude's functions over the integers stand on

// Defines them as protected names, and the callbacks as names that programs may give other procedures.
void define_functions();

// The source of random host integers; native entries come from rand() (random.cpp).
gmp_randclass &random_source();

// Files that are not found in the working directory are looked for here: the directory of the running script.
void set_file_directory(const std::string &directory);

bool timer_is_on();  // at the prompt

// A file, looked for beside the script too; throws HostError.
std::unique_ptr<std::istream> open_input(const std::string &name);

std::string string_argument(Object x, const char *what);

}  // namespace modla::console
