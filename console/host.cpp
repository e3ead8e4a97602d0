#include "console/host.h"

#include <setjmp.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cfenv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "console/algebra.h"
#include "console/library.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"

namespace modla::console {

Object (*parse_text)(const std::string &text) = nullptr;

namespace {

Unwinding unwinding = Unwinding::exception;
std::string error_message;

// A call of the library: where errors and interrupts land.
struct LibraryCall {
    const char *name;
    LibraryCall *outer;
    bool jumps;                            // errors land by longjmp
    volatile sig_atomic_t operations = 0;  // of the host that are running for it
    sigjmp_buf landing = {};
};
LibraryCall *volatile innermost = nullptr;

volatile sig_atomic_t interrupts = 0;  // since the last statement of the prompt began
constexpr int abandoning = 2;          // as many abandon a call

// The way out of a call is no part of the library: its memory is not the call's to lose.
void begin_leaving() {
    if (innermost) innermost->operations = 1;
}

// Leaves the library's frames with the stored message.  No frame between here and the landing is the console's, other
// than operations that hold nothing.
[[noreturn]] void leave() {
    begin_leaving();
    if (innermost && innermost->jumps) siglongjmp(innermost->landing, 1);
    throw HostError(error_message);
}

// While one is alive, no interrupt leaves the call that runs.
struct Operation {
    LibraryCall *call = innermost;
    Operation() {
        if (call) call->operations = call->operations + 1;
    }
    ~Operation() {
        if (call) call->operations = call->operations - 1;
    }
};

// Runs the body of an operation; its errors leave the library in the chosen way, and so does an interrupt that came
// too early to leave from where it was.
template <class Body>
auto operation(Body body) -> decltype(body()) {
    try {
        const Operation running;
        if (innermost && interrupts >= abandoning) throw HostError("interrupted");
        return body();
    } catch (const std::exception &error) {
        begin_leaving();
        error_message = error.what();
    }
    leave();
}

void put(const char *text) {
    if (write(STDOUT_FILENO, text, std::strlen(text)) < 0) return;
}

// The library holds nothing but what the host lent it: its frames may be left anywhere.  Operations of the host may not,
// nor those of the C heap (library_heap.cpp).
void on_interrupt(int) {
    interrupts = interrupts + 1;
    LibraryCall *const call = innermost;
    if (!call) return;
    if (interrupts < abandoning) {
        put("\n");
        put(call->name);
        put(" is running: the interrupt takes effect when it returns, and one more abandons it\n");
    } else if (call->operations == 0) {
        siglongjmp(call->landing, 1);
    }
}

// Which tables a call may have left half done: those behind the ones that it only reads.
std::string abandoned_message(const char *name, const std::vector<Object> &arguments) {
    const std::string_view entry = name;
    const bool scalar = arguments.size() > 1 && !has_type(arguments[1], type_table);
    int inputs = entry == "AddMult" || entry == "Multiply" ? (scalar ? 1 : 2) : 0;
    for (const char *one : {"Copy", "Permute", "Mod", "ForSub", "BackSub"}) inputs += entry == one;
    std::string unreliable;
    for (const Object x : arguments) {
        if (has_type(x, type_table) && inputs-- <= 0)
            unreliable += (unreliable.empty() ? "" : " and ") + name_with_value(x);
    }
    return "interrupted: " + std::string(name) + " was abandoned" +
           (unreliable.empty() ? "" : ", and the entries of " + unreliable + " are unreliable now");
}

// The values behind a format's placeholders; the highest number tells how many there are.
std::vector<Object> placeholder_values(const char *format, va_list arguments) {
    int count = 0;
    for (const char *at = std::strchr(format, '%'); at; at = std::strchr(at + 1, '%')) {
        if (at[1] >= '1' && at[1] <= '9') count = std::max(count, at[1] - '0');
    }
    std::vector<Object> values;
    for (int i = 0; i < count; i++) values.push_back(va_arg(arguments, Object));
    return values;
}

const Table &checked_table(Object x) {
    if (!has_type(x, type_table)) throw HostError("expected a table, got " + to_line(x));
    return table_of(x);
}

int32_t checked_int(Object x) {
    if (x == global_name("true")) return 1;
    if (x == global_name("false")) return 0;
    if (!is_integer(x)) throw HostError("expected an integer, got " + to_line(x));
    const mpz_class value = integer_of(x);
    if (!value.fits_sint_p()) throw HostError("integer too large in context");
    return static_cast<int32_t>(value.get_si());
}

Object create_table(const RtableSettings &settings, void *data, const int32_t *bounds) {
    const int32_t n = settings.num_dimensions;
    if (n != 1 && n != 2) throw HostError("a table has 1 or 2 dimensions");
    int32_t upper[2] = {1, 1};
    for (int32_t i = 0; i < n; i++) {
        if (bounds[2 * i] != 1 || bounds[2 * i + 1] < 0) throw HostError("invalid bounds of a table");
        upper[i] = bounds[2 * i + 1];
    }
    return new_table(settings, upper, data);
}

int32_t upper_bound(Object x, uint32_t dimension) {
    const Table &table = checked_table(x);
    if (dimension < 1 || static_cast<int32_t>(dimension) > table.settings.num_dimensions) {
        throw HostError("table dimension out of range");
    }
    return table.bounds[dimension - 1];
}

void raise_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    operation([&] { error_message = fill_placeholders(format, placeholder_values(format, arguments)); });
    va_end(arguments);
    leave();
}

Object call_with_values(Object procedure, uint32_t n, ...) {
    va_list arguments;
    va_start(arguments, n);
    const Object result = operation([&] {
        Roots values;
        for (uint32_t i = 0; i < n; i++) values.values.push_back(va_arg(arguments, Object));
        if (procedure == 0) throw HostError("no procedure was registered");
        values.values.push_back(call_procedure(procedure, values.values));
        if (interrupts >= abandoning) throw HostError("interrupted");
        return values.values.back();
    });
    va_end(arguments);
    return result;
}

// An operation that the library has no business with.
template <size_t slot>
void reserved_operation() {
    std::fprintf(stderr, "modla: the library called the host's reserved operation %zu\n", slot);
    std::abort();
}

template <size_t... slots>
HostApi reserved_api(std::index_sequence<slots...>) {
    void *const table[] = {reinterpret_cast<void *>(&reserved_operation<slots>)...};
    HostApi api;
    static_assert(sizeof api == sizeof table);
    std::memcpy(&api, table, sizeof api);
    return api;
}

HostApi make_api() {
    HostApi api = reserved_api(std::make_index_sequence<sizeof(HostApi) / sizeof(void *)>());
    api.Alloc = [](uint32_t bytes) { return operation([&] { return lend_memory(bytes); }); };
    api.NewObject = [](uint32_t length, uint32_t type) { return operation([&] { return new_object(length, type); }); };
    api.AssignName = [](Object name, Object value) { operation([&] { assign_global(name, value); }); };
    api.Free = [](void *memory) {
        operation([&] {
            if (memory && !return_memory(memory)) throw HostError("released memory that was not allocated");
        });
    };
    api.RaiseError = raise_error;
    api.Evaluate = [](Object x) { return operation([&] { return evaluate(x); }); };
    api.CallProcedure = call_with_values;
    api.CheckName = [](Object) { return uint32_t{0}; };  // names given for outputs are assigned as they are
    api.IsInteger = [](Object x) { return uint32_t{is_integer(x)}; };
    api.IsName = [](Object x) { return uint32_t{has_type(x, type_name)}; };
    api.IsNumeric = [](Object x) { return uint32_t{is_number(x)}; };
    api.IsRtable = [](Object x) { return uint32_t{has_type(x, type_table)}; };
    api.ToDouble = [](Object x) {
        return operation([&] {
            if (!is_number(x)) throw HostError("expected a number, got " + to_line(x));
            return to_double(x);
        });
    };
    api.ToInt = [](Object x) { return operation([&] { return checked_int(x); }); };
    api.NumArgs = [](const Object *arguments) { return size_of(reinterpret_cast<Object>(arguments)); };
    api.RtableCreate = [](RtableSettings *settings, void *data, int32_t *bounds) {
        return operation([&] { return create_table(*settings, data, bounds); });
    };
    api.RtableData = [](Object x) { return operation([&] { return checked_table(x).data; }); };
    api.RtableGetDefaults = [](RtableSettings *settings) { *settings = default_settings(); };
    api.RtableGetSettings = [](RtableSettings *settings, Object x) {
        operation([&] { *settings = checked_table(x).settings; });
    };
    api.RtableNumDims = [](Object x) {
        return operation([&] { return static_cast<uint32_t>(checked_table(x).settings.num_dimensions); });
    };
    api.RtableUpperBound = [](Object x, uint32_t dimension) {
        return operation([&] { return upper_bound(x, dimension); });
    };
    // A finished integer without leading zeros, immediate when it is small.
    api.NormalizeInteger = [](Object x) { return operation([&] { return integer_object(integer_of(x)); }); };
    api.ToInteger = [](int32_t value) { return operation([&] { return integer_object(int64_t{value}); }); };
    api.ToFloat = [](double value) { return operation([&] { return new_float(value); }); };
    api.ToName = [](const char *text, uint32_t global) {
        return operation([&] { return global ? global_name(text) : local_name(text); });
    };
    api.NullValue = [] { return null_value(); };
    api.ParseString = [](const char *text) { return operation([&] { return parse_text(text); }); };
    api.NameTarget = [](Object name) { return name; };
    return api;
}

// Did the library return?  Otherwise it was left by a jump.
bool enter_library(LibraryCall &call, EntryPoint entry_point, const Object *arguments, Object *result) {
    if (sigsetjmp(call.landing, 0) != 0) return false;
    innermost = &call;
    *result = entry_point(&host_api(), arguments);
    return true;
}

}  // namespace

const HostApi &host_api() {
    static const HostApi api = make_api();
    return api;
}

bool enter_operation() {
    if (!innermost || innermost->operations > 0) return false;
    innermost->operations = 1;
    return true;
}

void leave_operation() {
    innermost->operations = 0;
    if (interrupts >= abandoning) siglongjmp(innermost->landing, 1);
}

void set_unwinding(Unwinding chosen) {
    unwinding = chosen;
}

Object call_entry_point(EntryPoint entry_point, const std::vector<Object> &arguments, const char *name) {
    Roots held;
    held.values.push_back(new_sequence(arguments));  // an argument array is a sequence: element 0 is its header
    const size_t lent = lent_count();
    std::fenv_t modes;
    std::fegetenv(&modes);
    LibraryCall call = {name, innermost, unwinding == Unwinding::long_jump};
    Object result = 0;
    try {
        const bool returned = enter_library(call, entry_point, words(held.values[0]), &result);
        innermost = call.outer;
        if (returned) return result;
    } catch (...) {
        innermost = call.outer;
        reclaim_memory(lent);
        if (interrupts == 0) throw;
    }
    reclaim_memory(lent);
    if (interrupts == 0) throw HostError(error_message);
    std::fesetenv(&modes);
    if (!innermost) unload_library();  // OpenBLAS counts memory as used that it was working with
    throw HostError(abandoned_message(name, arguments));
}

void catch_interrupts() {
    struct sigaction action = {};
    action.sa_handler = on_interrupt;
    action.sa_flags = SA_NODEFER;  // it may jump away
    sigaction(SIGINT, &action, nullptr);
    set_guard([] {
        if (interrupts > 0) throw HostError("interrupted");
    });
}

bool take_interrupt() {
    const bool interrupted = interrupts > 0;
    interrupts = 0;
    return interrupted;
}

Object call_procedure(Object procedure, const std::vector<Object> &arguments) {
    if (!has_type(procedure, type_procedure)) throw HostError(to_line(procedure) + " is not a procedure");
    const std::shared_ptr<Procedure> called = procedure_of(procedure);  // it may be reassigned while it runs
    return called->run(arguments);
}

Object evaluate(Object x) {
    for (int steps = 0; has_type(x, type_name) && words(x)[1] != 0 && words(x)[1] != x; steps++) {
        if (steps == 1000) throw HostError("recursive assignment of " + text_of(x));
        x = words(x)[1];
    }
    return expressions_change() && is_expression(x) ? evaluate_expression(x) : x;
}

void assign_global(Object name, Object value) {
    if (!has_type(name, type_name)) throw HostError("cannot assign to " + to_line(name));
    if (is_protected(name)) throw HostError("the name " + text_of(name) + " is protected");
    if (is_in_expressions(name) && is_expression(value) && contains_name(value, name)) {
        throw HostError("recursive assignment of " + text_of(name));
    }
    set_value(name, value);
}

void define_protected(const std::string &text, Object value) {
    const Object name = global_name(text);
    set_value(name, value);
    protect(name);
}

Object make_native(const std::string &name, std::function<Object(const std::vector<Object> &arguments)> run) {
    return new_procedure(std::make_shared<Procedure>(Procedure{name, std::move(run)}));
}

std::string fill_placeholders(const std::string &format, const std::vector<Object> &values) {
    std::string result;
    for (size_t i = 0; i < format.size(); i++) {
        const size_t k = i + 1 < format.size() ? static_cast<size_t>(format[i + 1] - '1') : values.size();
        if (format[i] == '%' && k < values.size()) {
            result += to_line(values[k]);
            i++;
        } else {
            result += format[i];
        }
    }
    return result;
}

}  // namespace modla::console
