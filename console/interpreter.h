// Running programs of the console's language.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "console/heap.h"
#include "console/syntax.h"

namespace modla::console {

// A procedure value with this body.
Object make_procedure(std::shared_ptr<ProcedureBody> body);

// Receives the values of statements that print theirs.
using Printer = std::function<void(Object)>;

// An error in a program, with the line of the statement.
struct ProgramError : HostError {
    ProgramError(int at_line, const std::string &message) : HostError(message), line(at_line) {}
    int line;
};

// Runs the statements of a text in order.  Statements at the top print their value through the printer unless it is
// NULL; assignments print nothing.  The first error ends the run as ProgramError, IncompleteText or SyntaxError.
void run_program(const std::string &text, const Printer &print);

// The value of an expression's text.
Object evaluate_text(const std::string &text);

}  // namespace modla::console
