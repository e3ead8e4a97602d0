// The console as a host: the operation table that the library is handed, and calls of the library under its rules.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "console/error.h"
#include "console/heap.h"

namespace modla::console {

using EntryPoint = Object (*)(const HostApi *, const Object *);

// A procedure of the host: what CallProcedure and the console's calls run.
struct Procedure {
    std::string name;
    std::function<Object(const std::vector<Object> &arguments)> run;
    bool is_entry_point = false;  // of the library
    bool is_prelude = false;      // one of the console's own functions in its own language
};

const HostApi &host_api();

// How an error leaves the library's frames.
enum class Unwinding { exception, long_jump };
void set_unwinding(Unwinding unwinding);

// Calls an entry point.  An error reaches the caller as HostError, after the work memory that the library still held
// was taken back.
Object call_entry_point(EntryPoint entry_point, const std::vector<Object> &arguments, const char *name = "the call");

// What a call of the library asks of the C library is an operation of the host too, if it is not to be left within.
// False when no call runs, or an operation of the host for it.
bool enter_operation();
void leave_operation();  // and the call with it, when that is to be abandoned

// From now on an interrupt (SIGINT) does not end the program.  It ends what the interpreter runs with the error
// "interrupted"; a call of the library goes on until it returns, unless a second one abandons it: that leaves the
// library as an error of the host would.
void catch_interrupts();
bool take_interrupt();  // was there one since this was last asked?

Object call_procedure(Object procedure, const std::vector<Object> &arguments);

// Full evaluation: the value of a name that has one.
Object evaluate(Object x);

// Gives a name a value; a protected name is refused, and what is no name.
void assign_global(Object name, Object value);

// Gives a global name a value (or none, 0) that programs cannot change.
void define_protected(const std::string &name, Object value);

// A procedure that runs C++ code.
Object make_native(const std::string &name, std::function<Object(const std::vector<Object> &arguments)> run);

// The value of a text in the console's language; set by the interpreter.
extern Object (*parse_text)(const std::string &text);

// A message with its placeholders %1, %2, ... replaced by the values' texts.
std::string fill_placeholders(const std::string &format, const std::vector<Object> &values);

}  // namespace modla::console
