// A console session in which benchmarks run statements.
#pragma once

#include <string>

// Runs a text of the console's language; an error ends the program.
void run(const std::string &text);
