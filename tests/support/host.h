// The console's host under watch: every operation is counted and inspected, any of them may fail, errors leave by an
// exception, by longjmp or not at all, tables and work memory lie between guard zones at addresses that are aligned to 4
// only, and the library is called with any stack alignment and any floating-point modes.
//
// What the library does wrong is collected as texts in host.violations; call() makes failures of them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/number.h"
#include "console/print.h"
#include "console/table.h"
#include "modla.h"
#include "tests/support/fp_mode.h"
#include "tests/support/random.h"

namespace modla_test {

using namespace modla::console;

// ---- A session of the console: programs in its language ----

Object eval(const std::string &text);  // the value of an expression

// What a program prints, with the error that ended it.
std::string run(const std::string &program);
std::string error_of(const std::string &program);  // "": none
// The same as a user is shown it.
std::string shown(const std::string &program);
// The message of the error that a call ends with.
std::string message_of(const std::function<void()> &call);

void set_name(const std::string &name, Object value);
bool is_assigned(const std::string &name);
void unassign(const std::string &name);
std::string joined(const std::vector<std::string> &parts);

// Puts a C++ procedure in the place of a callback for a while.
class Callback {
  public:
    using Run = std::function<Object(const std::vector<Object> &)>;
    Callback(const std::string &name, Run run);
    ~Callback();
    Callback(const Callback &) = delete;
    Callback &operator=(const Callback &) = delete;

  private:
    std::string name_;
    Roots held_;
};

struct CollectAlways {
    explicit CollectAlways(bool always = true) { set_collect_always(always); }
    ~CollectAlways() { set_collect_always(false); }
};

// ---- Tables ----

struct Kind {
    int32_t datatype, order;
};
inline const Kind all_kinds[] = {{MODLA_INTEGER, MODLA_C_ORDER},  {MODLA_INTEGER, MODLA_FORTRAN_ORDER},
                                 {MODLA_INTEGER4, MODLA_C_ORDER}, {MODLA_INTEGER4, MODLA_FORTRAN_ORDER},
                                 {MODLA_FLOAT8, MODLA_C_ORDER},   {MODLA_FLOAT8, MODLA_FORTRAN_ORDER}};
constexpr int32_t datatypes[] = {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8};
constexpr int32_t orders[] = {MODLA_FORTRAN_ORDER, MODLA_C_ORDER};
inline const char *keyword_of(int32_t datatype) {
    return datatype == MODLA_INTEGER ? "integer" : datatype == MODLA_INTEGER4 ? "integer[4]" : "float[8]";
}
inline const char *order_keyword(int32_t order) {
    return order == MODLA_C_ORDER ? "C_order" : "Fortran_order";
}
inline size_t entry_bytes(int32_t datatype) {
    return datatype == MODLA_FLOAT8 ? 8 : 4;
}

// A table between guard zones.  With data, one over another table's.
Object make_table(const Kind &kind, int32_t subtype, int32_t rows, int32_t columns, int32_t storage = MODLA_RECTANGULAR,
                  void *data = nullptr);
// The address of an entry, from 0.
char *entry_at(Object table, int32_t i, int32_t j);
int64_t get_number(Object table, int32_t i, int32_t j);  // not_a_number for what is no integer of 63 bits
constexpr int64_t not_a_number = INT64_MIN;
void put_number(Object table, int32_t i, int32_t j, int64_t value);
// All storage that belongs to a table, with its guard zones.
std::vector<char> storage_of(Object table);

// A copy of all tables' data, to work on in the place of it.
struct Shadow {
    std::vector<std::pair<char *, std::vector<char>>> blocks;
    Shadow();
    char *of(const char *address);  // the copy of what is there
    bool is_what_there_is() const;  // are data and copy equal?
};

using Grid = std::vector<std::vector<int64_t>>;
// A Matrix (or another table) under a name, and what it holds.
Object define(const std::string &name, const Grid &entries, const Kind &kind, int32_t subtype = MODLA_MATRIX);
Grid grid_of(Object table);
Grid grid_of(const std::string &name);

// ---- The host ----

enum class Leaving { exception, long_jump, returning };  // what an error of the host does

struct Conditions {
    uint32_t misalignment = 0;  // of the stack pointer at the call, mod 16
    FpMode mode = {0x1f80, 0x037f};
};

struct Host {
    // Set by tests.
    Conditions conditions;
    Leaving leaving = Leaving::exception;
    int failing_call = 0;       // from 1: this call of an operation fails; 0: none
    bool aligned_data = false;  // of new tables, to lines of the cache, and Alloc memory
    bool dirty_tables = false;  // new native tables are not zero
    uint64_t memory_limit = 1u << 26;
    bool no_checks_after_writes = false;  // note operations other than those that report results after a first write

    // Noted.
    std::vector<const char *> operations;
    std::vector<std::string> messages, violations;
    std::vector<uint32_t> allocated;  // bytes that Alloc gave
    int copies = 0;                   // blocks of Alloc, new tables
    uint32_t asked_bytes = 0;         // of the last Alloc, also of one that failed
};
extern Host host;
const HostApi *api();

// How a call ended.
struct Outcome {
    bool returned = false;  // else an error left the library
    Object result = 0;
    std::string message;  // the first one; "" without an error
};

// Runs calls of the library; they end early when the host leaves them.
Outcome attempt(const std::function<void()> &calls);

using EntryPoint = modla::console::EntryPoint;
EntryPoint entry_point(const std::string &name);           // without the prefix
Object argument_array(const std::vector<Object> &values);  // held until the next reset()
std::vector<Object> arguments(const std::string &text);    // "7, A, 2..3, transpose"
Outcome call_entry(const std::string &entry, const std::vector<Object> &values);
// "Multiply(7, A, B)": the arguments in the console's language, the call under watch.
Outcome call(const std::string &text);

// Forgets tables and arguments of earlier calls.
void reset();

// ---- The trampoline ----

struct Trampoline {
    const void *function;
    const uint32_t *words;
    uint32_t count, misalignment, mxcsr;
    uint16_t x87_control, unused;
    uint32_t returns_double;
    uint32_t eax, edx;
    uint32_t st0[2];
    uint32_t ebx, esi, edi, frame_intact, eflags, mxcsr_after;
    uint16_t x87_control_after, unused_after;
    uint32_t x87_environment[7];
    uint32_t pattern_intact;
};
static_assert(offsetof(Trampoline, st0) == 36 && offsetof(Trampoline, eflags) == 60 &&
              offsetof(Trampoline, x87_environment) == 72 && offsetof(Trampoline, pattern_intact) == 100);

// Calls through the trampoline under the host's conditions and notes violations.
void run_trampoline(Trampoline *call);

// Words of a call; no destructor: the host may jump over them.
struct ArgumentWords {
    uint32_t words[32];
    uint32_t count = 0;

    template <class T>
    void add(T value) {
        static_assert(sizeof(T) == 4 || sizeof(T) == 8);
        std::memcpy(words + count, &value, sizeof value);
        count += sizeof value / 4;
    }
};

// A call of an export, inside attempt().
template <class Result, class... Parameters>
Result watched_call(Result (*function)(Parameters...), std::type_identity_t<Parameters>... values) {
    ArgumentWords words;
    (words.add(values), ...);
    constexpr bool is_double = std::is_same_v<Result, double>;
    Trampoline record = {};
    record.function = reinterpret_cast<const void *>(function);
    record.words = words.words;
    record.count = words.count;
    record.returns_double = is_double;
    run_trampoline(&record);
    if constexpr (!std::is_void_v<Result>) {
        Result result;
        std::memcpy(&result, is_double ? record.st0 : &record.eax, sizeof result);
        return result;
    }
}

}  // namespace modla_test
