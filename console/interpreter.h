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

// An error in a program, with the line of the statement, and that of the statement that runs it in the outer procedure.
struct ProgramError : HostError {
    ProgramError(int at_line, const std::string &message) : HostError(message), line(at_line), outer_line(at_line) {}
    int line, outer_line;
    int calls = 0;  // of procedures that it went through
};

// Runs the statements of a text in order.  Statements at the top print their value through the printer unless it is
// NULL; assignments print nothing.  The first error ends the run as ProgramError, IncompleteText or SyntaxError.
void run_program(const std::string &text, const Printer &print);

// An error as it is shown: "Error: message", and lines about where it arose.  The text has some lines before it.
struct ErrorReport {
    int line;
    std::string text;
};
ErrorReport report_error(const std::exception &error, int lines_before = 0);

// The value of an expression's text.
Object evaluate_text(const std::string &text);

}  // namespace modla::console
