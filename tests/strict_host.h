// A host that watches the library: it counts and notes every call of its operations, can leave or refuse any of them,
// keeps table data between guard zones at addresses that are aligned to 4 only, and calls the library through a
// trampoline with any stack alignment and any floating-point modes.
//
// What the library does wrong is collected as texts in violations.
#pragma once

#include <csetjmp>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "modla.h"
#include "tests/fake_host.h"

namespace modla_test::strict {

// ---- Memory ----

class GuardedBlock {
  public:
    // Data at 4 mod 8, or at 0 mod 16.
    GuardedBlock(size_t bytes, bool aligned);
    ~GuardedBlock();
    GuardedBlock(const GuardedBlock &) = delete;
    GuardedBlock &operator=(const GuardedBlock &) = delete;
    bool intact() const;

    char *data;
    size_t bytes;

  private:
    static constexpr size_t zone = 64;
    std::unique_ptr<char[]> memory_;
};

// ---- Values ----

enum : uint32_t { type_float = 5, type_name = 8, type_procedure = 40, type_table = 41 };

struct Table {
    RtableSettings settings;
    int32_t bounds[2];  // a Vector's second one is 1
    char *data;
    std::shared_ptr<GuardedBlock> block;  // null: memory that is not the host's
    int32_t rows() const { return settings.subtype == MODLA_ROW_VECTOR ? 1 : bounds[0]; }
    int32_t columns() const { return settings.subtype == MODLA_ROW_VECTOR ? bounds[0] : bounds[1]; }
    size_t entry_bytes() const { return settings.datatype == MODLA_FLOAT8 ? 8 : 4; }
    char *entry(int32_t i, int32_t j) const;  // from 0
};

HostObject new_object(uint32_t type_id, const std::vector<uint32_t> &words);
HostObject name(const std::string &text);
HostObject float_object(double value);
HostObject integer_object(int64_t value);
HostObject range(HostObject first, HostObject last);
HostObject collection(uint32_t type_id, const std::vector<HostObject> &elements);  // a list or a set
HostObject new_table(int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns,
                     int32_t storage = MODLA_RECTANGULAR);
// A table whose data is somebody else's.
HostObject new_table_over(void *data, int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns);
bool is_table(HostObject object);
Table &table_of(HostObject object);
double entry_value(const Table &table, int32_t i, int32_t j);
void set_entry(const Table &table, int32_t i, int32_t j, int64_t value);
// A value in full: equal texts, equal values.  Names are followed by what a call assigned to them.
std::string to_text(HostObject object);

// Arguments from a text such as "7, A, 2..3, -1, 2.5, [1, x = 2], 10^20, integer[4], true": a word that was defined
// stands for its value, any other for the host's name.
void define(const std::string &word, HostObject value);
std::vector<HostObject> arguments(const std::string &text);

// ---- Calls ----

enum class Leaving { exception, long_jump, returning };  // what an error of the host does

struct Conditions {
    uint32_t misalignment = 0;  // of the stack pointer at the call, mod 16
    FpMode mode = {0x1f80, 0x037f};
};

// How a call ended.
struct Outcome {
    bool returned = false;  // else an error left the library
    HostObject result = 0;
    std::vector<std::string> messages;
};

struct Host {
    // Set by tests.
    Conditions conditions;
    Leaving leaving = Leaving::exception;
    int failing_call = 0;       // from 1: this call of an operation fails; 0: none
    bool aligned_data = false;  // of new tables and Alloc memory
    uint64_t memory_limit = 1u << 26;
    HostObject callback_result = 1;
    bool no_checks_after_writes = false;  // note operations other than those that report results after a first write
    bool fill_new_tables = true;

    // Noted.
    std::vector<const char *> operations;
    std::vector<std::string> messages, violations;
    std::vector<std::pair<void *, uint32_t>> lent;  // Alloc memory that is out
    std::vector<std::string> assigned;              // names, in order
    std::string last_callback;
    uint32_t refused_bytes = 0;  // of an Alloc that failed
};
extern Host host;
const HostApi *api();

// Forgets all values except names.
void reset();

// Runs calls of the library; they end early when the host leaves them.
Outcome attempt(const std::function<void()> &calls);
// Takes Alloc memory back.
void reclaim();

// Registers the host's procedures, which stand in for those that do arithmetic.
void register_stand_ins();

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

template <class Result, class... Parameters>
Result call(Result (*function)(Parameters...), std::type_identity_t<Parameters>... values) {
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

using EntryPoint = HostObject (*)(const HostApi *, const HostObject *);
// An argument array for the call that follows.
const HostObject *argument_array(const std::vector<HostObject> &values);
Outcome call_entry(EntryPoint entry, const std::vector<HostObject> &values);

}  // namespace modla_test::strict
