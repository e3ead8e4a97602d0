// Programs of the console's language as trees.
//
//   program     statements separated by line ends or ';'
//   statement   target := expression | expression | return [expression] | break | next
//               if c then .. [elif c then ..] [else ..] end
//               for x [from a] [to b] [by s] do .. end | for x in collection do .. end | while c do .. end
//   expression  or, and, not, = <> < <= > >=, .., + -, * / mod, unary -, ^, calls f(..) and indices a[..]
//   primary     123, 2.5, "text", name, 'name' (the name itself), [list], {set}, (expression), proc(x, y) .. end
//
// A name without a value stands for itself: x^2 + 3*x*y - 1/2 is an expression, kept in the normal form that algebra.h
// describes.  Names that get a value later are replaced when a name or a variable is read whose value is an expression;
// elements of lists, sets and tables stay as they were put in, until eval is applied.  'x' is the name itself, with or
// without a value, and x := 'x' takes the value away.  I is the imaginary unit; infinity and nan are floats.
//
// Inside a procedure its parameters, its loop variables and the names that it assigns are local.  An output name that
// is handed to the library is always the global name, so a procedure reads an output through a name that it does not
// assign itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "console/heap.h"
#include "console/lexer.h"

namespace modla::console {

enum class NodeKind {
    constant,      // value
    name,          // value: the global name; slot: the local variable, or -1
    list,          // parts
    set,           // parts
    call,          // parts: procedure, arguments
    index,         // parts: object, indices
    negation,      // parts: operand
    logical_not,   // parts: operand
    disjunction,   // parts: conditions
    conjunction,   // parts: conditions
    binary,        // operations between the parts: applied from the left
    procedure,     // body
    assignment,    // parts: target, expression
    block,         // parts: statements
    conditional,   // parts: condition, block, ..., [block]
    for_range,     // parts: variable, from, to (or null), by, block
    for_in,        // parts: variable, collection, block
    while_loop,    // parts: condition, block
    return_value,  // parts: [expression]
    break_loop,
    next_turn
};

using Operation = Object (*)(Object, Object);

struct ProcedureBody;

struct Node {
    NodeKind kind;
    int line;
    Object value = 0;
    int slot = -1;
    std::string text = {};
    std::vector<Operation> operations = {};
    std::shared_ptr<ProcedureBody> body = {};
    std::vector<std::unique_ptr<Node>> parts = {};
};
using NodePointer = std::unique_ptr<Node>;

// The body of a procedure of the language.
struct ProcedureBody {
    std::string name = "a procedure";  // that it was assigned to where it was written
    std::vector<std::string> locals;   // the parameters first
    size_t parameters = 0;
    NodePointer block;
    std::shared_ptr<Roots> constants;  // of the text that the body was read from
};

// Reads a program: each call gives the next statement, null at the end.  Constants of the text live as long as this or
// a procedure of the text does.
std::function<NodePointer()> parse(const std::string &text);

}  // namespace modla::console
