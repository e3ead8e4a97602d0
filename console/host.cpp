#include "console/host.h"

#include <algorithm>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "console/algebra.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"

namespace modla::console {

Object (*parse_text)(const std::string &text) = nullptr;

namespace {

Unwinding unwinding = Unwinding::exception;
std::jmp_buf *landing = nullptr;  // of the innermost call of the library, when errors jump
std::string *landing_message() {
    static std::string *const message = new std::string;
    return message;
}

// Leaves the library's frames with the stored message.  No frame between here and the landing is the console's, other
// than operations that hold nothing.
[[noreturn]] void leave() {
    if (landing) std::longjmp(*landing, 1);
    throw HostError(*landing_message());
}

// Runs the body of an operation; its errors leave the library in the chosen way.
template <class Body>
auto operation(Body body) -> decltype(body()) {
    try {
        return body();
    } catch (const std::exception &error) {
        *landing_message() = error.what();
    }
    leave();
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
    operation([&] { *landing_message() = fill_placeholders(format, placeholder_values(format, arguments)); });
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
        return call_procedure(procedure, values.values);
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
    api.AssignName = [](Object name, Object value) {
        operation([&] {
            if (!has_type(name, type_name)) throw HostError("cannot assign to " + to_line(name));
            assign_global(name, value);
        });
    };
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

// A call whose errors come back by longjmp: true when the library returned.
bool call_with_landing(EntryPoint entry_point, const Object *arguments, Object *result) {
    std::jmp_buf here;
    std::jmp_buf *const outer = landing;
    if (setjmp(here) != 0) {
        landing = outer;
        return false;
    }
    landing = &here;
    *result = entry_point(&host_api(), arguments);
    landing = outer;
    return true;
}

}  // namespace

const HostApi &host_api() {
    static const HostApi api = make_api();
    return api;
}

void set_unwinding(Unwinding chosen) {
    unwinding = chosen;
}

Object call_entry_point(EntryPoint entry_point, const std::vector<Object> &arguments) {
    Roots call;
    call.values.push_back(new_sequence(arguments));  // an argument array is a sequence: element 0 is its header
    const Object *const array = words(call.values[0]);
    const size_t lent = lent_count();
    if (unwinding == Unwinding::long_jump) {
        Object result = 0;
        if (call_with_landing(entry_point, array, &result)) return result;
        reclaim_memory(lent);
        throw HostError(*landing_message());
    }
    std::jmp_buf *const outer = std::exchange(landing, nullptr);
    try {
        const Object result = entry_point(&host_api(), array);
        landing = outer;
        return result;
    } catch (...) {
        landing = outer;
        reclaim_memory(lent);
        throw;
    }
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
    auto procedure = std::make_shared<Procedure>();
    procedure->name = name;
    procedure->run = std::move(run);
    return new_procedure(std::move(procedure));
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
