#include "tests/support/host.h"

#include <malloc.h>

#include <algorithm>
#include <csetjmp>
#include <cstdarg>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "console/functions.h"

#if defined(MODLA_SANITIZED)
#include <sanitizer/asan_interface.h>
#endif

namespace {

// Heap blocks that the library took and has not given back.
bool in_library = false;
int library_blocks = 0;

}  // namespace

#if !defined(MODLA_SANITIZED)
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);

void *malloc(size_t bytes) {
    library_blocks += in_library;
    return __libc_malloc(bytes);
}
void *calloc(size_t count, size_t bytes) {
    library_blocks += in_library;
    return __libc_calloc(count, bytes);
}
void *realloc(void *memory, size_t bytes) {
    library_blocks += in_library && !memory;
    return __libc_realloc(memory, bytes);
}
void *memalign(size_t alignment, size_t bytes) {
    library_blocks += in_library;
    return __libc_memalign(alignment, bytes);
}
void *aligned_alloc(size_t alignment, size_t bytes) {
    return memalign(alignment, bytes);
}
int posix_memalign(void **memory, size_t alignment, size_t bytes) {
    *memory = memalign(alignment, bytes);
    return *memory ? 0 : 12;
}
void free(void *memory) {
    library_blocks -= in_library && memory;
    __libc_free(memory);
}
}
#endif

extern "C" void trampoline(modla_test::Trampoline *);
extern "C" void *__libc_stack_end;  // above every frame of the process

namespace modla_test {

Host host;

// ---- The session ----

namespace {

struct Session : testing::Environment {
    void SetUp() override {
        set_stack_base(__libc_stack_end);
        parse_text = evaluate_text;
        load_library(MODLA_LIBRARY);
        define_functions();
        // raw(A, list): puts entries into a table, row by row, that programs cannot put there.
        define_protected("raw", make_native("raw", [](const std::vector<Object> &arguments) {
                             const Table &table = table_of(arguments[0]);
                             for (int32_t k = 0; k < table_rows(table) * table_columns(table); k++) {
                                 set_entry(table, k / table_columns(table) + 1, k % table_columns(table) + 1,
                                           element(arguments[1], static_cast<uint32_t>(k)));
                             }
                             return arguments[0];
                         }));
    }
};
testing::Environment *const session = testing::AddGlobalTestEnvironment(new Session);

// What a program prints, and its error in one of two forms.
std::string run(const std::string &program, std::string *error, bool with_help) {
    std::ostringstream output;
    std::streambuf *const terminal = std::cout.rdbuf(output.rdbuf());
    try {
        run_program(program, [&](Object value) { output << to_text(value) << "\n"; });
    } catch (const std::exception &failure) {
        *error = with_help ? report_error(failure).text : failure.what();
    }
    std::cout.rdbuf(terminal);
    return output.str();
}

}  // namespace

std::string message_of(const std::function<void()> &call) {
    try {
        call();
    } catch (const std::exception &failure) {
        return failure.what();
    }
    return "";
}

std::string run(const std::string &program) {
    std::string error;
    const std::string output = run(program, &error, false);
    return output + (error.empty() ? "" : "Error: " + error + "\n");
}
std::string error_of(const std::string &program) {
    std::string error;
    run(program, &error, false);
    return error;
}
std::string shown(const std::string &program) {
    std::string error;
    const std::string output = run(program, &error, true);
    return output + error;
}
Object eval(const std::string &text) {
    return evaluate_text(text);
}

void set_name(const std::string &name, Object value) {
    set_value(global_name(name), value);
}
bool is_assigned(const std::string &name) {
    return words(global_name(name))[1] != 0;
}
void unassign(const std::string &name) {
    set_value(global_name(name), 0);
}
std::string joined(const std::vector<std::string> &parts) {
    std::string text;
    for (const std::string &part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

Callback::Callback(const std::string &name, Run run) : name_(name) {
    held_.values.push_back(words(global_name(name))[1]);
    set_name(name, make_native(name, std::move(run)));
}
Callback::~Callback() {
    set_name(name_, held_.values[0]);
}

// ---- Guarded memory ----

namespace {

constexpr size_t zone = 64;
constexpr char guard = static_cast<char>(0xa7);  // odd words: immediate integers to the collector

// Data and the zones around it.
struct Guarded {
    char *base, *data;
    size_t bytes;  // of the data
    char *end;     // of the zone behind it

    void close_zones() const {
        std::fill(base, data, guard);
        std::fill(data + bytes, end, guard);
    }
    void poison([[maybe_unused]] bool on) const {
#if defined(MODLA_SANITIZED)
        const auto set = on ? __asan_poison_memory_region : __asan_unpoison_memory_region;
        set(base, static_cast<size_t>(data - base));
        set(data + bytes, static_cast<size_t>(end - data) - bytes);
#endif
    }
    bool intact() const {
        const auto is_guard = [](char c) { return c == guard; };
        return std::all_of(base, data, is_guard) && std::all_of(data + bytes, end, is_guard);
    }
};

struct Memory {
    std::vector<Guarded> tables, lent;
    Roots held;  // arguments and tables
};
Memory &memory() {
    static Memory *const instance = new Memory;
    return *instance;
}

void poison(bool on) {
    for (const auto *list : {&memory().tables, &memory().lent}) {
        for (const Guarded &each : *list) each.poison(on);
    }
}

Object new_guarded_table(const RtableSettings &settings, const int32_t *upper) {
    uint64_t bytes = entry_bytes(settings.datatype);
    for (int32_t i = 0; i < settings.num_dimensions; i++) {
        bytes *= static_cast<uint64_t>(std::max(upper[i], 0));
        if (bytes > host.memory_limit) throw HostError("object too large");
    }
    RtableSettings plain = default_settings();
    plain.datatype = settings.datatype == MODLA_INTEGER ? MODLA_INTEGER : MODLA_INTEGER4;
    plain.subtype = MODLA_COLUMN_VECTOR;
    plain.num_dimensions = 1;
    const int32_t length = static_cast<int32_t>((bytes + 3 * zone) / 4 + 1);
    const Object storage = new_table(plain, &length, nullptr);
    memory().held.values.push_back(storage);
    const DataBlock &block = *table_of(storage).block;
    char *const line = block.base + 2 * zone - reinterpret_cast<uintptr_t>(block.base) % zone;
    const Guarded guarded = {block.base, host.aligned_data ? line : block.base + zone + 4, static_cast<size_t>(bytes),
                             block.base + block.bytes};
    guarded.close_zones();
    memory().tables.push_back(guarded);
    if (host.dirty_tables && settings.datatype != MODLA_INTEGER) std::memset(guarded.data, 0x5b, guarded.bytes);
    const Object table = new_table(settings, upper, guarded.data);
    memory().held.values.push_back(table);
    return table;
}

// The settings that no library may change carry a mark.
constexpr uint32_t host_field = 0x600dcafe;

RtableSettings marked_settings() {
    RtableSettings settings = default_settings();
    for (uint32_t &field : settings.host_fields) field = host_field;
    return settings;
}

}  // namespace

// ---- Tables ----

Object make_table(const Kind &kind, int32_t subtype, int32_t rows, int32_t columns, int32_t storage, void *data) {
    RtableSettings settings = marked_settings();
    settings.datatype = kind.datatype;
    settings.order = kind.order;
    settings.subtype = subtype;
    settings.storage = storage;
    const bool is_vector = subtype == MODLA_COLUMN_VECTOR || subtype == MODLA_ROW_VECTOR;
    settings.num_dimensions = is_vector ? 1 : 2;
    const int32_t upper[2] = {subtype == MODLA_ROW_VECTOR ? columns : rows, is_vector ? 1 : columns};
    if (!data) return new_guarded_table(settings, upper);
    memory().held.values.push_back(new_table(settings, upper, data));
    return memory().held.values.back();
}

char *entry_at(Object object, int32_t i, int32_t j) {
    const Table &table = table_of(object);
    const int64_t k = table.settings.order == MODLA_C_ORDER ? int64_t{i} * table_columns(table) + j
                                                            : int64_t{j} * table_rows(table) + i;
    return static_cast<char *>(table.data) + static_cast<size_t>(k) * entry_bytes(table.settings.datatype);
}

int64_t get_number(Object object, int32_t i, int32_t j) {
    const char *const at = entry_at(object, i, j);
    if (table_of(object).settings.datatype == MODLA_FLOAT8) {
        double value;
        std::memcpy(&value, at, 8);
        const bool integral =
            value > -0x1p62 && value < 0x1p62 && static_cast<double>(static_cast<int64_t>(value)) == value;
        return integral && !(value == 0 && std::signbit(value)) ? static_cast<int64_t>(value) : not_a_number;
    }
    uint32_t word;
    std::memcpy(&word, at, 4);
    if (table_of(object).settings.datatype != MODLA_INTEGER) return word;
    if (word == 0 || !is_integer(word)) return not_a_number;
    const mpz_class value = integer_of(word);
    return mpz_sizeinbase(value.get_mpz_t(), 2) < 63 ? std::stoll(value.get_str()) : not_a_number;
}

void put_number(Object object, int32_t i, int32_t j, int64_t value) {
    char *const at = entry_at(object, i, j);
    if (table_of(object).settings.datatype == MODLA_FLOAT8) {
        const double stored = static_cast<double>(value);
        std::memcpy(at, &stored, 8);
        return;
    }
    const uint32_t word =
        table_of(object).settings.datatype == MODLA_INTEGER ? integer_object(value) : static_cast<uint32_t>(value);
    std::memcpy(at, &word, 4);
}

std::vector<char> storage_of(Object table) {
    const DataBlock &block = *table_of(table).block;
    return {block.base, block.base + block.bytes};
}

Shadow::Shadow() {
    for (const Guarded &each : memory().tables) blocks.push_back({each.data, {each.data, each.data + each.bytes}});
}
char *Shadow::of(const char *address) {
    for (auto &[data, copy] : blocks) {
        if (address >= data && address < data + copy.size()) return copy.data() + (address - data);
    }
    throw std::logic_error("no table's data");
}
bool Shadow::is_what_there_is() const {
    return std::all_of(blocks.begin(), blocks.end(), [](const auto &block) {
        return block.second.empty() || std::memcmp(block.first, block.second.data(), block.second.size()) == 0;
    });
}

Object define(const std::string &name, const Grid &entries, const Kind &kind, int32_t subtype) {
    const int32_t columns = entries.empty() ? 0 : static_cast<int32_t>(entries[0].size());
    const Object table = make_table(kind, subtype, static_cast<int32_t>(entries.size()), columns);
    set_name(name, table);
    for (size_t i = 0; i < entries.size(); i++) {
        for (size_t j = 0; j < entries[i].size(); j++) {
            put_number(table, static_cast<int32_t>(i), static_cast<int32_t>(j), entries[i][j]);
        }
    }
    return table;
}

Grid grid_of(Object object) {
    const int32_t rows = table_rows(table_of(object)), columns = table_columns(table_of(object));
    Grid grid;
    for (int32_t i = 0; i < rows; i++) {
        grid.emplace_back();
        for (int32_t j = 0; j < columns; j++) grid.back().push_back(get_number(object, i, j));
    }
    return grid;
}
Grid grid_of(const std::string &name) {
    return grid_of(eval(name));
}

// ---- Leaving the library ----

namespace {

struct HostLeft {};
std::jmp_buf *landing;
FpMode own_mode;
bool leaving_now;  // the destructors that an exception runs are the host's own

[[noreturn]] void leave() {
    leaving_now = true;
    in_library = false;
    if (landing) std::longjmp(*landing, 1);
    throw HostLeft();
}

void violation(const std::string &text) {
    host.violations.push_back(text);
}

bool is_one_of(const char *name, std::initializer_list<const char *> names) {
    return std::any_of(names.begin(), names.end(), [&](const char *each) { return std::strcmp(each, name) == 0; });
}

struct Watched {
    Guarded block;
    std::vector<char> before;
};
std::vector<Watched> watched;
bool was_written;

void take_snapshots() {
    watched.clear();
    was_written = false;
    if (!host.no_checks_after_writes) return;
    for (const Guarded &each : memory().tables) watched.push_back({each, {each.data, each.data + each.bytes}});
}

// What the library must have left in order whenever it calls.
void inspect(const char *operation, const FpMode &mode) {
    const std::string at = std::string(" at call ") + std::to_string(host.operations.size()) + ", " + operation;
    if (!(mode == host.conditions.mode)) violation("floating-point mode changed" + at);
    if (library_blocks != 0) violation("the library holds heap memory" + at);
    if (!host.no_checks_after_writes) return;
    if (!was_written) {
        was_written = !std::all_of(watched.begin(), watched.end(), [](const Watched &each) {
            return std::equal(each.before.begin(), each.before.end(), each.block.data);
        });
    }
    const bool reports_results = is_one_of(operation, {"Free", "AssignName", "ToInteger", "ToFloat", "NullValue",
                                                       "RaiseError", "NewObject", "NormalizeInteger", "Evaluate"});
    if (was_written && !reports_results) violation("called after the caller's data was written" + at);
}

// A visit of the library in the host: in the host's own floating-point mode.
struct Visit {
    bool refused = false;
    explicit Visit(const char *operation) {
        in_library = false;
        struct {
            uint32_t control, status, tags, others[4];
        } environment;
        asm volatile("fnstenv %0\n\tfldenv %0" : "+m"(environment) : : "memory");
        uint32_t flags;
        asm volatile("pushf\n\tpop %0\n\tcld" : "=r"(flags));
        const FpMode mode = current_fp_mode();
        set_fp_mode(own_mode);
        poison(false);
        host.operations.push_back(operation);
        inspect(operation, mode);
        if ((environment.tags & 0xffff) != 0xffff) violation(std::string("x87 stack in use at ") + operation);
        if (flags & 0x400) violation(std::string("direction flag set at ") + operation);
        if (static_cast<int>(host.operations.size()) != host.failing_call) return;
        host.messages.push_back("the host gave up");
        refused = true;
    }
    ~Visit() {
        if (leaving_now) return;
        poison(true);
        set_fp_mode(host.conditions.mode);
        in_library = true;
    }
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;
};

// An operation's errors leave the library in the chosen way.
template <class Body>
auto operation(const char *name, Body body) {
    using Result = decltype(body());
    std::conditional_t<std::is_void_v<Result>, int, Result> result = {};
    const Visit visit(name);
    bool failed = visit.refused;
    if (!failed) {
        try {
            if constexpr (std::is_void_v<Result>)
                body();
            else
                result = body();
        } catch (const std::exception &error) {
            host.messages.push_back(error.what());
            failed = true;
            if (is_one_of(name, {"Free", "NormalizeInteger", "RtableData", "RtableGetSettings", "RtableNumDims",
                                 "RtableUpperBound", "NumArgs"})) {
                violation(std::string(name) + ": " + error.what());
            }
        }
    }
    if (failed && host.leaving != Leaving::returning) leave();
    if constexpr (!std::is_void_v<Result>) return result;
}

// ---- Operations that are not quite the console's ----

void *op_alloc(uint32_t bytes) {
    host.asked_bytes = bytes;
    return operation("Alloc", [&]() -> void * {
        host.allocated.push_back(bytes);
        host.copies++;
        if (bytes > host.memory_limit) throw HostError("out of memory");
        char *const base = static_cast<char *>(host_api().Alloc(bytes + 2 * zone + 16));
        char *const start = base + zone + 15;
        const Guarded block = {base, start - reinterpret_cast<uintptr_t>(start) % 16 + (host.aligned_data ? 0 : 4),
                               bytes, base + bytes + 2 * zone + 16};
        block.close_zones();
        std::memset(block.data, 0xcd, bytes);
        memory().lent.push_back(block);
        return block.data;
    });
}

void op_free(void *data) {
    operation("Free", [&] {
        auto &lent = memory().lent;
        const auto found =
            std::find_if(lent.begin(), lent.end(), [&](const Guarded &each) { return each.data == data; });
        if (found == lent.end()) throw HostError("freed what was not lent");
        if (!found->intact()) violation("wrote outside of Alloc memory");
        host_api().Free(found->base);
        lent.erase(found);
    });
}

void op_raise_error(const char *format, ...) {
    va_list list;
    va_start(list, format);
    operation("RaiseError", [&] {
        int count = 0;
        for (const char *at = std::strchr(format, '%'); at; at = std::strchr(at + 1, '%'))
            count = std::max(count, at[1] - '0');
        std::vector<Object> values;
        for (int i = 0; i < count; i++) values.push_back(va_arg(list, Object));
        throw HostError(fill_placeholders(format, values));
    });
    va_end(list);
}

Object op_call_procedure(Object procedure, uint32_t n, ...) {
    va_list list;
    va_start(list, n);
    const Object result = operation("CallProcedure", [&] {
        Roots values;
        for (uint32_t i = 0; i < n; i++) values.values.push_back(va_arg(list, Object));
        const std::string name = has_type(procedure, type_procedure) ? procedure_of(procedure)->name : "";
        const Object found = call_procedure(procedure, values.values);
        if (name == "callbacks") return found;
        watched.clear();
        for (const Object value : values.values) {
            const bool native = has_type(value, type_table) && table_of(value).settings.datatype != MODLA_INTEGER;
            if (native && name != "cbLUDecomp" && name != "cbReduce") violation(name + " was given a native table");
        }
        return found;
    });
    va_end(list);
    return result;
}

uint32_t op_check_name(Object name) {
    return operation("CheckName", [&] { return uint32_t{name == global_name("alias")}; });
}
Object op_name_target(Object) {
    return operation("NameTarget", [] { return global_name("target"); });
}

Object op_rtable_create(RtableSettings *settings, void *data, int32_t *bounds) {
    return operation("RtableCreate", [&] {
        for (const uint32_t field : settings->host_fields) {
            if (field != host_field) violation("a setting of the host's own was changed");
        }
        if (data) {
            const Object view = host_api().RtableCreate(settings, data, bounds);
            const char *const first = static_cast<char *>(data);
            const uint64_t bytes = uint64_t{4} * static_cast<uint32_t>(bounds[1]) *
                                   (settings->num_dimensions == 2 ? static_cast<uint32_t>(bounds[3]) : 1);
            for (const Guarded &each : memory().tables) {
                const bool inside = first >= each.base && first < each.end;
                const bool fits = first >= each.data && first + bytes <= each.data + each.bytes;
                if (inside && !fits) violation("a view leaves its table");
            }
            memory().held.values.push_back(view);
            return view;
        }
        int32_t upper[2] = {1, 1};
        for (int32_t i = 0; i < settings->num_dimensions; i++) {
            if (bounds[2 * i] != 1 || bounds[2 * i + 1] < 0) throw HostError("invalid bounds of a table");
            upper[i] = bounds[2 * i + 1];
        }
        host.copies++;
        return new_guarded_table(*settings, upper);
    });
}

void op_rtable_get_defaults(RtableSettings *settings) {
    operation("RtableGetDefaults", [&] {
        *settings = marked_settings();
        settings->datatype = settings->storage = settings->subtype = settings->num_dimensions = 3;  // the host's affair
    });
}

template <auto slot, auto name, class Result, class... Values>
Result same_operation(Values... values) {
    return operation(name(), [&] { return (host_api().*slot)(values...); });
}
template <auto slot, auto name, class Result, class... Values>
void watch(HostApi *table, Result (*HostApi::*)(Values...)) {
    table->*slot = same_operation<slot, name, Result, Values...>;
}

HostApi make_api() {
    HostApi table = host_api();
#define WATCH(operation) watch<&HostApi::operation, [] { return #operation; }>(&table, &HostApi::operation)
    WATCH(NewObject), WATCH(Evaluate), WATCH(IsInteger), WATCH(IsName), WATCH(IsNumeric), WATCH(IsRtable);
    WATCH(ToDouble), WATCH(ToInt), WATCH(NumArgs), WATCH(RtableData), WATCH(RtableGetSettings), WATCH(RtableNumDims);
    WATCH(RtableUpperBound), WATCH(NormalizeInteger), WATCH(ToInteger), WATCH(ToFloat), WATCH(ToName);
    WATCH(NullValue), WATCH(ParseString), WATCH(AssignName);
#undef WATCH
    table.Alloc = op_alloc;
    table.Free = op_free;
    table.RaiseError = op_raise_error;
    table.CallProcedure = op_call_procedure;
    table.CheckName = op_check_name;
    table.NameTarget = op_name_target;
    table.RtableCreate = op_rtable_create;
    table.RtableGetDefaults = op_rtable_get_defaults;
    return table;
}

bool call_with_landing(const std::function<void()> &calls) {
    std::jmp_buf here;
    landing = &here;
    volatile bool returned = false;
    if (setjmp(here) == 0) {
        calls();
        returned = true;
    }
    landing = nullptr;
    return returned;
}

}  // namespace

const HostApi *api() {
    static const HostApi table = make_api();
    return &table;
}

// ---- Calls ----

void reset() {
    memory().tables.clear();
    memory().held.values.clear();
    watched.clear();
}

Outcome attempt(const std::function<void()> &calls) {
    host.operations.clear(), host.messages.clear(), host.allocated.clear();
    host.copies = 0;
    leaving_now = false;
    library_blocks = 0;
    take_snapshots();
    own_mode = current_fp_mode();
    const size_t pending = lent_count();
    Outcome outcome;
    if (host.leaving == Leaving::long_jump) {
        outcome.returned = call_with_landing(calls);
    } else {
        try {
            calls();
            outcome.returned = true;
        } catch (const HostLeft &) {
        }
    }
    in_library = false;
    set_fp_mode(own_mode);
    poison(false);
    for (const Guarded &each : memory().tables) {
        if (!each.intact()) violation("wrote outside of a table");
    }
    for (const Guarded &each : memory().lent) {
        if (!each.intact()) violation("wrote outside of Alloc memory");
    }
    if (library_blocks != 0) violation("the library kept heap memory");
    if (outcome.returned && lent_count() != pending) violation("the library kept Alloc memory");
    memory().lent.clear();
    reclaim_memory(pending);
    if (!host.messages.empty()) outcome.message = host.messages[0];
    return outcome;
}

// What variables hold that a call does not set: no true bool, no size of 0, no address.
[[gnu::noinline]] static void paint_stack() {
    volatile uint32_t area[4096];
    for (volatile uint32_t &word : area) word = 0x100;
}

void run_trampoline(Trampoline *call) {
    const FpMode &mode = host.conditions.mode;
    call->misalignment = host.conditions.misalignment;
    call->mxcsr = mode.mxcsr;
    call->x87_control = mode.x87_control;
    poison(true);
    paint_stack();
    in_library = true;
    trampoline(call);
    in_library = false;
    set_fp_mode(own_mode);
    poison(false);
    if ((call->mxcsr_after & 0xffc0) != mode.mxcsr) violation("MXCSR changed on return");
    if (call->x87_control_after != mode.x87_control) violation("x87 control word changed on return");
    if ((call->x87_environment[2] & 0xffff) != 0xffff) violation("x87 stack in use on return");
    if (call->eflags & 0x400) violation("direction flag set on return");
    if (call->ebx != 0x0b0b0b0b || call->esi != 0x51515151 || call->edi != 0xd1d1d1d1 || !call->frame_intact) {
        violation("callee-saved register changed on return");
    }
    if (!call->pattern_intact) violation("wrote above the arguments");
}

EntryPoint entry_point(const std::string &name) {
    return reinterpret_cast<EntryPoint>(library_symbol(("modLA_" + name).c_str()));
}

Object argument_array(const std::vector<Object> &values) {
    memory().held.values.push_back(new_sequence(values));  // element 0 is its header
    return memory().held.values.back();
}

std::vector<Object> arguments(const std::string &text) {
    const Object list = eval("[" + text + "]");
    memory().held.values.push_back(list);
    std::vector<Object> values;
    for (uint32_t i = 0; i < size_of(list); i++) values.push_back(element(list, i));
    return values;
}

Outcome call_entry(const std::string &entry, const std::vector<Object> &values) {
    const EntryPoint function = entry_point(entry);
    const Object *const array = words(argument_array(values));
    Object result = 0;
    Outcome outcome = attempt([&] { result = watched_call(function, api(), array); });
    outcome.result = outcome.returned ? result : 0;
    return outcome;
}

Outcome call(const std::string &text) {
    const size_t open = text.find('('), close = text.rfind(')');
    const Outcome outcome = call_entry(text.substr(0, open), arguments(text.substr(open + 1, close - open - 1)));
    EXPECT_EQ(host.violations, std::vector<std::string>{}) << text;
    host.violations.clear();
    return outcome;
}

}  // namespace modla_test
