// The prompt on a terminal.
#pragma once

#include <functional>
#include <string>

namespace modla::console {

// Reads statements and has them run, until the end or quit; errors and interrupts do not end the session.
void run_prompt(const std::function<void(const std::string &text)> &run);

// Is the text a whole number of statements, or wrong?
bool is_complete(const std::string &text);

}  // namespace modla::console
