#include "console/interpreter.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "console/algebra.h"
#include "console/compare.h"
#include "console/host.h"
#include "console/number.h"
#include "console/print.h"
#include "console/reference.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr int deepest_calls = 400;  // of procedures of the language
constexpr int most_callers = 10;    // that an error tells

// The local variables of a running procedure.
struct Frame {
    Roots locals;
    const ProcedureBody *body = nullptr;
};

enum class Flow { normal, break_loop, next_turn, returned };

// Where a run stands: the procedure's frame, or the top.
struct Run {
    Frame *frame = nullptr;
    const Printer *print = nullptr;  // null: statements print nothing
    Roots result;                    // the value of the last statement, or the one returned
    Flow flow = Flow::normal;

    Run() { result.values.push_back(null_value()); }
    Object &value() { return result.values[0]; }
};

Object value_of(Run &run, const Node &node);

bool condition(Run &run, const Node &node) {
    const Object value = value_of(run, node);
    if (value == global_name("true")) return true;
    if (value == global_name("false")) return false;
    if (has_type(value, type_equation)) return same_value(words(value)[1], words(value)[2]);
    throw HostError("a condition must be true or false, not " + to_line(value));
}

// The values of nodes; the elements of sequences stand for themselves, so NULL vanishes.
void collect_values(Run &run, const Node &node, size_t first, std::vector<Object> &values) {
    for (size_t i = first; i < node.parts.size(); i++) {
        const Object value = value_of(run, *node.parts[i]);
        if (!has_type(value, type_sequence)) {
            values.push_back(value);
        } else {
            for (const Object x : elements_of(value)) values.push_back(x);
        }
    }
}

Object name_value(Run &run, const Node &node) {
    if (node.slot < 0) return evaluate(node.value);
    const Object value = run.frame->locals.values[static_cast<size_t>(node.slot)];
    if (value == 0) throw HostError("the local variable " + node.text + " has no value");
    return expressions_change() && is_expression(value) ? evaluate_expression(value) : value;
}

Object set_of(const std::vector<Object> &values) {
    std::vector<Object> unique;
    for (const Object value : values) {
        const auto is_same = [=](Object other) { return same_value(value, other); };
        if (std::ranges::none_of(unique, is_same)) unique.push_back(value);
    }
    return new_collection(type_set, unique);
}

Object binary_value(Run &run, const Node &node) {
    Object value = value_of(run, *node.parts[0]);
    for (size_t i = 1; i < node.parts.size(); i++) {
        value = node.operations[i - 1](value, value_of(run, *node.parts[i]));
    }
    return value;
}

// A name with indices; where they can stand in an expression, the same name and indices give the same object.
Object indexed_name(Object name, const std::vector<Object> &indices) {
    const auto is_plain = [](Object x) { return is_operand(x) || has_type(x, type_string) || has_type(x, type_name); };
    const Object result = new_pair(type_indexed, name, new_sequence(indices));
    return std::all_of(indices.begin(), indices.end(), is_plain) ? unique_value(result) : result;
}

int32_t position_in(Object index, int32_t bound) {
    const int32_t i = small_integer(index, "an index");
    return i < 0 ? bound + i + 1 : i;
}

// The row and column that indices select in a table.
std::pair<int32_t, int32_t> table_position(const Table &table, const std::vector<Object> &indices) {
    if (indices.size() != static_cast<size_t>(table.settings.num_dimensions)) {
        throw HostError("a " + describe_table(table) + " takes " + std::to_string(table.settings.num_dimensions) +
                        (table.settings.num_dimensions == 1 ? " index" : " indices"));
    }
    if (indices.size() == 2) {
        return {position_in(indices[0], table.bounds[0]), position_in(indices[1], table.bounds[1])};
    }
    const int32_t i = position_in(indices[0], table.bounds[0]);
    return table.settings.subtype == MODLA_ROW_VECTOR ? std::pair(1, i) : std::pair(i, 1);
}

uint32_t element_position(Object collection, const std::vector<Object> &indices) {
    const int32_t bound = static_cast<int32_t>(size_of(collection));
    if (indices.size() != 1) throw HostError("a list or set takes one index");
    const int32_t i = position_in(indices[0], bound);
    if (i < 1 || i > bound) throw HostError("index " + to_line(indices[0]) + " is outside 1.." + std::to_string(bound));
    return static_cast<uint32_t>(i - 1);
}

// The elements a..b of a list, a set or a sequence, as the same kind; none when b = a - 1.
Object slice(Object collection, Object range) {
    const int32_t bound = static_cast<int32_t>(size_of(collection));
    const int32_t first = position_in(words(range)[1], bound), last = position_in(words(range)[2], bound);
    if (first < 1 || last > bound || first > last + 1) {
        throw HostError("range " + to_line(range) + " is outside 1.." + std::to_string(bound));
    }
    const Object *const all = words(sequence_of(collection)) + 1;
    const std::vector<Object> elements(all + first - 1, all + last);
    if (!is_collection(collection)) return new_sequence(elements);
    return new_collection(static_cast<Type>(type_of(collection)), elements);
}

Object index_value(Run &run, const Node &node) {
    const Object object = value_of(run, *node.parts[0]);
    Roots indices;
    collect_values(run, node, 1, indices.values);
    if (has_type(object, type_table)) {
        const auto [i, j] = table_position(table_of(object), indices.values);
        return get_entry(table_of(object), i, j);
    }
    if (is_collection(object) || has_type(object, type_sequence)) {
        if (indices.values.size() == 1 && has_type(indices.values[0], type_range)) {
            return slice(object, indices.values[0]);
        }
        return element(object, element_position(object, indices.values));
    }
    if (has_type(object, type_name)) return indexed_name(object, indices.values);
    throw HostError(to_line(object) + " cannot be indexed");
}

// time(a): the seconds that a takes.
bool is_timing(const Node &node) {
    return node.parts.size() == 2 && node.parts[0]->kind == NodeKind::name && node.parts[0]->slot < 0 &&
           node.parts[0]->text == "time";
}

Object timing_value(Run &run, const Node &node) {
    const auto start = std::chrono::steady_clock::now();
    value_of(run, *node.parts[1]);
    return new_float(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

// After an error of a function of the library: how it is called, and what stood where the message points to.
void explain_call(HostError &error, const Procedure &procedure, const Node &node, const std::vector<Object> &values) {
    const ReferenceEntry *const entry =
        procedure.is_entry_point || procedure.is_prelude ? find_reference(procedure.name) : nullptr;
    const std::string message = error.what();
    if (!entry || !error.details.empty() || message.starts_with("interrupted")) return;
    error.details = "  usage: " + entry->call + "\n";
    size_t position = 0;
    if (std::sscanf(message.c_str(), "argument %zu", &position) != 1 || position - 1 >= values.size()) return;
    const std::string value = to_line(values[position - 1]);
    error.details += "  argument " + std::to_string(position) + " is " + value + "\n";
    const bool named = node.parts.size() == values.size() + 1 && node.parts[position]->kind == NodeKind::name;
    if (message.find("must be a name") == std::string::npos || !named) return;
    const std::string &name = node.parts[position]->text;
    error.details += "  " + name + " has the value " + value + "; the name itself is written '" + name + "'\n";
}

Object call_value(Run &run, const Node &node) {
    if (is_timing(node)) return timing_value(run, node);
    const Object called = value_of(run, *node.parts[0]);
    if (!has_type(called, type_procedure)) {
        const std::string name = to_line(called);
        throw HostError("there is no function " + name + nearest_function(name));
    }
    Roots arguments;
    collect_values(run, node, 1, arguments.values);
    try {
        return call_procedure(called, arguments.values);
    } catch (ProgramError &error) {
        const Procedure &procedure = *procedure_of(called);
        if (procedure.is_prelude) {
            HostError inner(error.what());
            explain_call(inner, procedure, node, arguments.values);
            throw inner;
        }
        if (++error.calls <= most_callers) {
            error.details += "  in line " + std::to_string(error.outer_line) + " of " + procedure.name + "\n";
        }
        error.outer_line = node.line;
        throw;
    } catch (HostError &error) {
        explain_call(error, *procedure_of(called), node, arguments.values);
        throw;
    }
}

Object value_of(Run &run, const Node &node) {
    check_stack();
    switch (node.kind) {
        case NodeKind::constant:
            return node.value;
        case NodeKind::procedure:
            return make_procedure(node.body);
        case NodeKind::name:
            return name_value(run, node);
        case NodeKind::list:
        case NodeKind::set: {
            Roots values;
            collect_values(run, node, 0, values.values);
            if (node.kind == NodeKind::set) return set_of(values.values);
            return new_collection(type_list, values.values);
        }
        case NodeKind::call:
            return call_value(run, node);
        case NodeKind::index:
            return index_value(run, node);
        case NodeKind::negation:
            return opposite(value_of(run, *node.parts[0]));
        case NodeKind::logical_not:
            return truth(!condition(run, *node.parts[0]));
        case NodeKind::disjunction:
        case NodeKind::conjunction: {
            const auto holds = [&](const auto &part) { return condition(run, *part); };
            const bool any = node.kind == NodeKind::disjunction;
            return truth(any ? std::ranges::any_of(node.parts, holds) : std::ranges::all_of(node.parts, holds));
        }
        case NodeKind::binary:
            return binary_value(run, node);
        default:
            throw HostError("internal error: a statement in an expression");
    }
}

void assign_name(Run &run, const Node &name, Object value) {
    if (name.slot >= 0) {
        run.frame->locals.values[static_cast<size_t>(name.slot)] = value;
        return;
    }
    assign_global(name.value, value);
}

void assign(Run &run, const Node &target, Object value) {
    if (target.kind == NodeKind::name) return assign_name(run, target, value);
    const Node &name = *target.parts[0];
    const Object object = name_value(run, name);
    Roots indices;
    collect_values(run, target, 1, indices.values);
    if (has_type(object, type_table)) {
        const auto [i, j] = table_position(table_of(object), indices.values);
        enter(table_of(object), i, j, value);
    } else if (has_type(object, type_list)) {
        // Lists are values: the name gets a changed copy.
        std::vector<Object> elements = elements_of(object);
        elements[element_position(object, indices.values)] = value;
        assign_name(run, name, new_collection(type_list, elements));
    } else {
        throw HostError("cannot assign to an element of " + to_line(object));
    }
}

void execute(Run &run, const Node &node);

void execute_block(Run &run, const Node &node) {
    for (const NodePointer &statement : node.parts) {
        execute(run, *statement);
        if (run.flow != Flow::normal) return;
    }
}

// One turn of a loop: false when the loop is to end.
bool loop_turn(Run &run, const Node &body) {
    check_stack();  // for the guard: the body may be empty
    execute_block(run, body);
    if (run.flow == Flow::next_turn) run.flow = Flow::normal;
    if (run.flow == Flow::normal) return true;
    if (run.flow == Flow::break_loop) run.flow = Flow::normal;
    return false;
}

void execute_for_range(Run &run, const Node &node) {
    Object current = value_of(run, *node.parts[1]);
    const Object end = node.parts[2] ? value_of(run, *node.parts[2]) : null_value();
    const Object step = value_of(run, *node.parts[3]);
    const int direction = compare_numbers(step, immediate(0));
    if (direction == 0) throw HostError("a loop needs a step other than 0");
    while (!node.parts[2] || compare_numbers(current, end) * (direction > 0 ? 1 : -1) <= 0) {
        assign_name(run, *node.parts[0], current);
        if (!loop_turn(run, *node.parts[4])) return;
        current = add(current, step);
    }
}

void execute_for_in(Run &run, const Node &node) {
    const Object object = value_of(run, *node.parts[1]);
    if (!is_collection(object) && !has_type(object, type_sequence)) {
        throw HostError("cannot loop over " + to_line(object));
    }
    for (uint32_t i = 0; i < size_of(object); i++) {
        assign_name(run, *node.parts[0], element(object, i));
        if (!loop_turn(run, *node.parts[2])) return;
    }
}

void execute_conditional(Run &run, const Node &node) {
    const size_t cases = node.parts.size() / 2;
    for (size_t i = 0; i < cases; i++) {
        if (condition(run, *node.parts[2 * i])) return execute_block(run, *node.parts[2 * i + 1]);
    }
    if (node.parts.size() % 2) execute_block(run, *node.parts.back());
}

void execute_statement(Run &run, const Node &node) {
    switch (node.kind) {
        case NodeKind::assignment:
            assign(run, *node.parts[0], value_of(run, *node.parts[1]));
            run.value() = null_value();
            break;
        case NodeKind::conditional:
            execute_conditional(run, node);
            break;
        case NodeKind::for_range:
            execute_for_range(run, node);
            break;
        case NodeKind::for_in:
            execute_for_in(run, node);
            break;
        case NodeKind::while_loop:
            while (condition(run, *node.parts[0]) && loop_turn(run, *node.parts[1])) continue;
            break;
        case NodeKind::break_loop:
            run.flow = Flow::break_loop;
            break;
        case NodeKind::next_turn:
            run.flow = Flow::next_turn;
            break;
        case NodeKind::return_value:
            run.value() = node.parts.empty() ? null_value() : value_of(run, *node.parts[0]);
            run.flow = Flow::returned;
            break;
        default:
            run.value() = value_of(run, node);
            if (run.print && !is_null(run.value())) (*run.print)(run.value());
    }
}

// An error is reported with the line of the innermost statement.
void execute(Run &run, const Node &node) {
    check_stack();
    try {
        execute_statement(run, node);
    } catch (const ProgramError &) {
        throw;
    } catch (const std::bad_alloc &) {
        throw ProgramError(node.line, "out of memory");
    } catch (const HostError &error) {
        ProgramError at_line(node.line, error.what());
        at_line.details = error.details;
        throw at_line;
    } catch (const std::exception &error) {
        throw ProgramError(node.line, error.what());
    }
}

Object run_procedure(const ProcedureBody &body, const std::vector<Object> &arguments) {
    static int depth = 0;
    struct Depth {
        Depth() { depth++; }
        ~Depth() { depth--; }
    };
    if (arguments.size() != body.parameters) {
        throw HostError("the procedure takes " + std::to_string(body.parameters) + " arguments, got " +
                        std::to_string(arguments.size()));
    }
    const Depth counted;
    if (depth > deepest_calls) throw HostError("too many procedure calls within each other");
    Frame frame;
    frame.body = &body;
    frame.locals.values = arguments;
    frame.locals.values.resize(body.locals.size(), 0);
    Run run;
    run.frame = &frame;
    execute_block(run, *body.block);
    return run.value();
}

}  // namespace

Object make_procedure(std::shared_ptr<ProcedureBody> body) {
    return make_native(body->name,
                       [body](const std::vector<Object> &arguments) { return run_procedure(*body, arguments); });
}

void run_program(const std::string &text, const Printer &print) {
    const auto next_statement = parse(text);
    while (const NodePointer statement = next_statement()) {
        Run run;
        run.print = &print;
        execute(run, *statement);
        if (run.flow != Flow::normal) throw ProgramError(statement->line, "only loops and procedures can be left");
    }
}

ErrorReport report_error(const std::exception &error, int lines_before) {
    ErrorReport report = {0, "Error: " + std::string(error.what()) + "\n"};
    if (const auto *host_error = dynamic_cast<const HostError *>(&error)) report.text += host_error->details;
    if (const auto *syntax_error = dynamic_cast<const SyntaxError *>(&error)) report.line = syntax_error->line;
    if (const auto *program_error = dynamic_cast<const ProgramError *>(&error)) {
        report.line = program_error->line;
        const int line = lines_before + program_error->outer_line;
        if (program_error->calls > 0) report.text += "  called in line " + std::to_string(line) + "\n";
    }
    report.line += lines_before;
    return report;
}

Object evaluate_text(const std::string &text) {
    const auto next_statement = parse(text);
    const NodePointer statement = next_statement();
    if (!statement || next_statement()) throw HostError("expected one expression");
    Run run;
    return value_of(run, *statement);
}

}  // namespace modla::console
