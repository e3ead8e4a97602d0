// The verbs of the command line: modla rank -p 7 FILE, and so on.
#pragma once

#include <string>

namespace modla::console {

bool is_verb(const std::string &word);

// A line for each verb.
std::string describe_verbs();

// Runs the verb arguments[1] and returns the exit status.  prepare loads the library ("": the usual one) and defines the
// functions.
int run_verb(int count, char **arguments, void (*prepare)(const std::string &library));

}  // namespace modla::console
