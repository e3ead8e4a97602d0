// A session of the console inside a test: the shared library, called by programs of the console's language.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/print.h"
#include "console/table.h"

extern "C" void *__libc_stack_end;  // above every frame of the process

namespace modla_test {

using modla::console::Object;

// raw(A, list): puts entries into a table, row by row, that programs cannot put there.
inline Object put_raw_entries(const std::vector<Object> &arguments) {
    const modla::console::Table &table = modla::console::table_of(arguments[0]);
    const int32_t columns = modla::console::table_columns(table);
    for (int32_t k = 0; k < columns * modla::console::table_rows(table); k++) {
        set_entry(table, k / columns + 1, k % columns + 1,
                  modla::console::element(arguments[1], static_cast<uint32_t>(k)));
    }
    return arguments[0];
}

// Before the first value is made.  Values live in names, in Roots or in frames of the tests; those in other
// memory are collected.
inline void start_session() {
    [[maybe_unused]] static const bool started = [] {
        modla::console::set_stack_base(__libc_stack_end);
        modla::console::parse_text = modla::console::evaluate_text;
        modla::console::load_library(MODLA_LIBRARY);
        modla::console::define_functions();
        modla::console::define_protected("raw", modla::console::make_native("raw", put_raw_entries));
        return true;
    }();
}

struct SessionEnvironment : testing::Environment {
    void SetUp() override { start_session(); }
};
inline testing::Environment *const session_environment = testing::AddGlobalTestEnvironment(new SessionEnvironment);

// The value of an expression.
inline Object eval(const std::string &text) {
    return modla::console::evaluate_text(text);
}

// What a program prints, and the message that ended it ("" when none did).
struct Outcome {
    std::string output, error;
    bool operator==(const Outcome &) const = default;
};
inline std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return out << '"' << outcome.output << (outcome.error.empty() ? "\"" : "\", then: " + outcome.error);
}

inline Outcome outcome_of(const std::string &program) {
    std::ostringstream output;
    std::streambuf *const terminal = std::cout.rdbuf(output.rdbuf());
    std::string error;
    try {
        modla::console::run_program(program, [&](Object value) { output << modla::console::to_text(value) << "\n"; });
    } catch (const std::exception &failure) {
        error = failure.what();
    }
    std::cout.rdbuf(terminal);
    return {output.str(), error};
}

// What a program prints; an error is part of it.
inline std::string run(const std::string &program) {
    const Outcome outcome = outcome_of(program);
    return outcome.output + (outcome.error.empty() ? "" : "Error: " + outcome.error + "\n");
}

inline std::string error_of(const std::string &program) {
    return outcome_of(program).error;
}

// An entry point, and the argument array of a call in the console's language.
inline modla::console::EntryPoint entry_point(const std::string &name) {
    return reinterpret_cast<modla::console::EntryPoint>(modla::console::library_symbol(("modLA_" + name).c_str()));
}
inline Object argument_array(const std::string &arguments) {
    return modla::console::sequence_of(eval("[" + arguments + "]"));
}
inline std::string joined(const std::vector<std::string> &parts) {
    std::string text;
    for (const std::string &part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

// The message of the error that a call ends with.
template <class Call>
std::string message_of(Call call) {
    try {
        call();
    } catch (const modla::console::HostError &error) {
        return error.what();
    }
    return "";
}

// Gives a global name a value.
inline void set_name(const std::string &name, Object value) {
    modla::console::assign_global(modla::console::global_name(name), value);
}
inline bool is_assigned(const std::string &name) {
    return modla::console::words(modla::console::global_name(name))[1] != 0;
}
inline void unassign(const std::string &name) {
    modla::console::words(modla::console::global_name(name))[1] = 0;
}

// ---- Tables ----

constexpr int32_t datatypes[] = {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8};
constexpr int32_t orders[] = {MODLA_FORTRAN_ORDER, MODLA_C_ORDER};

inline Object make_table(int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns,
                         int32_t storage = MODLA_RECTANGULAR) {
    RtableSettings settings = modla::console::default_settings();
    settings.datatype = datatype;
    settings.subtype = subtype;
    settings.order = order;
    settings.storage = storage;
    const bool is_vector = subtype == MODLA_COLUMN_VECTOR || subtype == MODLA_ROW_VECTOR;
    settings.num_dimensions = is_vector ? 1 : 2;
    const int32_t bounds[2] = {subtype == MODLA_ROW_VECTOR ? columns : rows, is_vector ? 1 : columns};
    return modla::console::new_table(settings, bounds, nullptr);
}

inline uint32_t entry_bytes(int32_t datatype) {
    return datatype == MODLA_FLOAT8 ? 8 : 4;
}

// The whole storage of a table, with the slack behind its entries.
inline std::vector<char> storage_of(Object table) {
    const modla::console::DataBlock &block = *modla::console::table_of(table).block;
    return {block.base, block.base + block.bytes};
}

// Puts a C++ procedure in the place of a callback for a while.
class Callback {
  public:
    Callback(const std::string &name, std::function<Object(const std::vector<Object> &)> run) : name_(name) {
        held_.values.push_back(modla::console::words(modla::console::global_name(name))[1]);
        set_name(name, modla::console::make_native(name, std::move(run)));
    }
    ~Callback() { modla::console::words(modla::console::global_name(name_))[1] = held_.values[0]; }
    Callback(const Callback &) = delete;
    Callback &operator=(const Callback &) = delete;

  private:
    std::string name_;
    modla::console::Roots held_;
};

// ---- A host whose RaiseError returns ----

inline std::vector<std::string> raised_messages;

inline void raise_and_record(const char *format, ...) {
    int count = 0;
    for (const char *at = format; *at; at++) {
        if (*at == '%' && at[1] >= '1' && at[1] <= '9' && at[1] - '0' > count) count = at[1] - '0';
    }
    std::vector<Object> values;
    va_list arguments;
    va_start(arguments, format);
    for (int i = 0; i < count; i++) values.push_back(va_arg(arguments, Object));
    va_end(arguments);
    raised_messages.push_back(modla::console::fill_placeholders(format, values));
}

inline HostApi recording_host() {
    HostApi api = modla::console::host_api();
    api.RaiseError = raise_and_record;
    raised_messages.clear();
    return api;
}

}  // namespace modla_test
