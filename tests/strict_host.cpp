#include "tests/strict_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <exception>
#include <set>
#include <stdexcept>
#include <string_view>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace {

// Heap blocks that the library took and has not given back.
bool in_library = false;
int library_blocks = 0;

}  // namespace

#if !defined(__SANITIZE_ADDRESS__)
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

extern "C" void trampoline(modla_test::strict::Trampoline *);

namespace modla_test::strict {

Host host;

// ---- Memory ----

namespace {

constexpr char guard = static_cast<char>(0xa7);

void poison([[maybe_unused]] const char *from, [[maybe_unused]] size_t bytes, [[maybe_unused]] bool on) {
#if defined(__SANITIZE_ADDRESS__)
    on ? __asan_poison_memory_region(from, bytes) : __asan_unpoison_memory_region(from, bytes);
#endif
}

}  // namespace

GuardedBlock::GuardedBlock(size_t size, bool aligned) : bytes(size) {
    memory_.reset(new char[size + 2 * zone + 16]);
    char *const start = memory_.get() + zone + 15;
    data = start - reinterpret_cast<uintptr_t>(start) % 16 + (aligned ? 0 : 4);
    std::fill_n(data - zone, zone, guard);
    std::fill_n(data + bytes, zone, guard);
    std::fill_n(data, bytes, static_cast<char>(0xcd));
    poison(data - zone, zone, true);
    poison(data + bytes, zone, true);
}

GuardedBlock::~GuardedBlock() {
    poison(data - zone, zone, false);
    poison(data + bytes, zone, false);
}

bool GuardedBlock::intact() const {
    poison(data - zone, zone, false);
    poison(data + bytes, zone, false);
    const auto is_guard = [](char c) { return c == guard; };
    const bool intact =
        std::all_of(data - zone, data, is_guard) && std::all_of(data + bytes, data + bytes + zone, is_guard);
    poison(data - zone, zone, true);
    poison(data + bytes, zone, true);
    return intact;
}

char *Table::entry(int32_t i, int32_t j) const {
    const size_t k = settings.order == MODLA_C_ORDER
                         ? static_cast<size_t>(i) * static_cast<size_t>(columns()) + static_cast<size_t>(j)
                         : static_cast<size_t>(j) * static_cast<size_t>(rows()) + static_cast<size_t>(i);
    return data + k * entry_bytes();
}

namespace {

// ---- The host's memory ----

struct Heap {
    std::vector<std::unique_ptr<uint32_t[]>> objects;
    std::vector<std::unique_ptr<Table>> tables;
    std::vector<std::shared_ptr<GuardedBlock>> blocks;
    std::vector<std::pair<const HostObject *, uint32_t>> arrays;
    std::map<std::string, HostObject> words;
    std::vector<std::unique_ptr<GuardedBlock>> lent;
};
Heap heap;

std::map<std::string, HostObject> names;                // of this text; never forgotten
std::vector<std::unique_ptr<uint32_t[]>> name_objects;  // word 1: the value or 0
std::map<HostObject, std::string> name_texts;

struct Watched {
    std::shared_ptr<GuardedBlock> block;
    std::vector<char> before;
};
std::vector<Watched> watched;
bool was_written;

uint32_t *words_of(HostObject object) {
    return reinterpret_cast<uint32_t *>(object);
}
bool is_immediate(HostObject object) {
    return object & 1;
}
bool has_type(HostObject object, uint32_t type) {
    return object && !is_immediate(object) && words_of(object)[0] >> 26 == type;
}
uint32_t length_of(HostObject object) {
    return words_of(object)[0] & 0x3ffffff;
}
bool is_integer(HostObject object) {
    return is_immediate(object) || has_type(object, MODLA_TYPE_NEGATIVE_INTEGER) ||
           has_type(object, MODLA_TYPE_POSITIVE_INTEGER);
}
int32_t immediate_value(HostObject object) {
    return static_cast<int32_t>(object) >> 1;
}

HostObject null_value() {
    static const uint32_t null[1] = {static_cast<uint32_t>(MODLA_TYPE_SEQUENCE) << 26 | 1};
    return reinterpret_cast<HostObject>(null);
}

}  // namespace

HostObject name(const std::string &text) {
    HostObject &object = names[text];
    if (!object) {
        name_objects.emplace_back(new uint32_t[2]{type_name << 26 | 2, 0});
        object = reinterpret_cast<HostObject>(name_objects.back().get());
        name_texts[object] = text;
    }
    return object;
}

HostObject new_object(uint32_t type_id, const std::vector<uint32_t> &values) {
    const uint32_t length = static_cast<uint32_t>(values.size()) + 1;
    heap.objects.emplace_back(new uint32_t[length]);
    uint32_t *const words = heap.objects.back().get();
    words[0] = type_id << 26 | length;
    std::copy(values.begin(), values.end(), words + 1);
    return reinterpret_cast<HostObject>(words);
}

HostObject float_object(double value) {
    uint32_t words[2];
    std::memcpy(words, &value, 8);
    return new_object(type_float, {words[0], words[1]});
}

HostObject integer_object(int64_t value) {
    constexpr int64_t limit = (1 << 30) - 1;
    if (value >= -limit && value <= limit) return immediate(static_cast<int32_t>(value));
    std::vector<uint32_t> digits;
    for (uint64_t rest = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value); rest;
         rest /= 10000) {
        digits.push_back(static_cast<uint32_t>(rest % 10000));
    }
    return new_object(value < 0 ? MODLA_TYPE_NEGATIVE_INTEGER : MODLA_TYPE_POSITIVE_INTEGER, digits);
}

HostObject range(HostObject first, HostObject last) {
    return new_object(MODLA_TYPE_RANGE, {first, last});
}

HostObject collection(uint32_t type_id, const std::vector<HostObject> &elements) {
    return new_object(type_id, {new_object(MODLA_TYPE_SEQUENCE, elements)});
}

namespace {

HostObject add_table(const RtableSettings &settings, const int32_t *upper, void *data,
                     const std::shared_ptr<GuardedBlock> &block) {
    heap.tables.emplace_back(new Table{settings, {upper[0], upper[1]}, static_cast<char *>(data), block});
    return new_object(type_table, {reinterpret_cast<uint32_t>(heap.tables.back().get())});
}

RtableSettings default_settings() {
    RtableSettings settings = {};
    settings.storage = MODLA_RECTANGULAR;
    settings.num_dimensions = 2;
    settings.subtype = MODLA_MATRIX;
    for (uint32_t &field : settings.host_fields) field = 0x600dcafe;
    return settings;
}

RtableSettings settings_for(int32_t datatype, int32_t subtype, int32_t order) {
    RtableSettings settings = default_settings();
    settings.datatype = datatype;
    settings.subtype = subtype;
    settings.order = order;
    const bool is_vector = subtype == MODLA_COLUMN_VECTOR || subtype == MODLA_ROW_VECTOR;
    settings.num_dimensions = is_vector ? 1 : 2;
    return settings;
}

struct Bounds {
    int32_t upper[2];
};
Bounds bounds_for(int32_t subtype, int32_t rows, int32_t columns) {
    if (subtype == MODLA_ROW_VECTOR) return {{columns, 1}};
    return {{rows, subtype == MODLA_COLUMN_VECTOR ? 1 : columns}};
}

// A table with storage of its own; 0 when it would be too large.
HostObject make_table(const RtableSettings &settings, const Bounds &bounds) {
    uint64_t bytes = settings.datatype == MODLA_FLOAT8 ? 8 : 4;
    for (const int32_t upper : bounds.upper) {
        bytes *= static_cast<uint64_t>(std::max(upper, 0));
        if (bytes > host.memory_limit) return 0;
    }
    const auto block = std::make_shared<GuardedBlock>(static_cast<size_t>(bytes), host.aligned_data);
    if (settings.datatype == MODLA_INTEGER) {
        std::fill_n(reinterpret_cast<HostObject *>(block->data), bytes / 4, immediate(0));
    } else if (host.fill_new_tables) {
        std::fill_n(block->data, bytes, 0);
    }
    heap.blocks.push_back(block);
    return add_table(settings, bounds.upper, block->data, block);
}

}  // namespace

HostObject new_table(int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns, int32_t storage) {
    RtableSettings settings = settings_for(datatype, subtype, order);
    settings.storage = storage;
    return make_table(settings, bounds_for(subtype, rows, columns));
}

HostObject new_table_over(void *data, int32_t datatype, int32_t subtype, int32_t order, int32_t rows, int32_t columns) {
    return add_table(settings_for(datatype, subtype, order), bounds_for(subtype, rows, columns).upper, data, nullptr);
}

bool is_table(HostObject object) {
    return has_type(object, type_table);
}
Table &table_of(HostObject object) {
    return *reinterpret_cast<Table *>(words_of(object)[1]);
}

double entry_value(const Table &table, int32_t i, int32_t j) {
    const char *const at = table.entry(i, j);
    if (table.settings.datatype == MODLA_FLOAT8) {
        double value;
        std::memcpy(&value, at, 8);
        return value;
    }
    uint32_t word;
    std::memcpy(&word, at, 4);
    return table.settings.datatype == MODLA_INTEGER ? immediate_value(word) : static_cast<double>(word);
}

void set_entry(const Table &table, int32_t i, int32_t j, int64_t value) {
    char *const at = table.entry(i, j);
    if (table.settings.datatype == MODLA_FLOAT8) {
        const double stored = static_cast<double>(value);
        std::memcpy(at, &stored, 8);
    } else {
        const uint32_t word = table.settings.datatype == MODLA_INTEGER ? immediate(static_cast<int32_t>(value))
                                                                       : static_cast<uint32_t>(value);
        std::memcpy(at, &word, 4);
    }
}

// ---- Texts ----

namespace {

// Runs in the library's caller's floating-point mode: no arithmetic on doubles.
std::string float_text(const char *at) {
    uint64_t bits;
    std::memcpy(&bits, at, 8);
    const int exponent = static_cast<int>(bits >> 52 & 0x7ff) - 1075;
    const uint64_t mantissa = (bits & 0xfffffffffffff) | uint64_t{1} << 52;
    const std::string sign = bits >> 63 ? "-" : "";
    if (bits << 1 == 0) return sign + "0.";
    if (exponent <= 0 && exponent > -53 && (mantissa & ((uint64_t{1} << -exponent) - 1)) == 0) {
        return sign + std::to_string(mantissa >> -exponent) + ".";
    }
    return "float:" + std::to_string(bits);
}

std::string table_text(const Table &table) {
    std::string text = "table " + std::to_string(table.settings.datatype) + "/" +
                       std::to_string(table.settings.subtype) + " " + std::to_string(table.rows()) + "x" +
                       std::to_string(table.columns()) + "{";
    for (int32_t i = 0; i < table.rows(); i++) {
        for (int32_t j = 0; j < table.columns(); j++) {
            const char *const at = table.entry(i, j);
            uint32_t word;
            std::memcpy(&word, at, 4);
            text += table.settings.datatype == MODLA_FLOAT8    ? float_text(at)
                    : table.settings.datatype == MODLA_INTEGER ? to_text(word)
                                                               : std::to_string(static_cast<int32_t>(word));
            text += j + 1 < table.columns() ? " " : "";
        }
        text += i + 1 < table.rows() ? "; " : "";
    }
    return text + "}";
}

}  // namespace

std::string to_text(HostObject object) {
    if (object == 0) return "nothing";
    if (is_immediate(object)) return std::to_string(immediate_value(object));
    const uint32_t *const words = words_of(object);
    const uint32_t type = words[0] >> 26, length = length_of(object);
    if (type == type_name) return name_texts[object];
    if (type == type_table) return table_text(table_of(object));
    if (type == type_float) return float_text(reinterpret_cast<const char *>(words + 1));
    if (type == type_procedure) return "procedure";
    if (type == MODLA_TYPE_RANGE) return to_text(words[1]) + ".." + to_text(words[2]);
    if (type == MODLA_TYPE_INDEXED_NAME) return to_text(words[1]) + "[" + to_text(words[2]) + "]";
    std::string text = type == MODLA_TYPE_SEQUENCE ? "" : "type " + std::to_string(type) + "(";
    const bool digits = type == MODLA_TYPE_NEGATIVE_INTEGER || type == MODLA_TYPE_POSITIVE_INTEGER;
    for (uint32_t i = 1; i < length; i++) {
        text += (i > 1 ? ", " : "") + (digits ? std::to_string(words[i]) : to_text(words[i]));
    }
    return text + (type == MODLA_TYPE_SEQUENCE ? "" : ")");
}

void define(const std::string &word, HostObject value) {
    heap.words[word] = value;
}

namespace {

// A reader of argument texts.
struct Reader {
    const std::string &text;
    size_t at = 0;

    void skip() {
        while (at < text.size() && text[at] == ' ') at++;
    }
    bool take(const char *token) {
        skip();
        const size_t length = std::strlen(token);
        if (text.compare(at, length, token) != 0) return false;
        at += length;
        return true;
    }
    std::vector<HostObject> list(const char *end) {
        std::vector<HostObject> values;
        if (take(end)) return values;
        do values.push_back(value());
        while (take(","));
        if (!take(end)) throw std::logic_error("cannot read the arguments " + text);
        return values;
    }
    HostObject value() {
        const HostObject first = simple();
        if (take("..")) return range(first, simple());
        if (take("=")) return new_object(MODLA_TYPE_EQUATION, {first, simple()});
        return first;
    }
    HostObject simple() {
        if (take("[")) return collection(MODLA_TYPE_LIST, list("]"));
        if (take("{")) return collection(MODLA_TYPE_SET, list("}"));
        skip();
        size_t end = at;
        if (end < text.size() && (text[end] == '-' || std::isdigit(static_cast<unsigned char>(text[end])))) {
            end++;
            while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) end++;
            const bool is_float = end + 1 < text.size() && text[end] == '.' && text[end + 1] != '.';
            if (is_float) {
                end++;
                while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) end++;
            }
            const std::string digits = text.substr(at, end - at);
            at = end;
            return is_float ? float_object(std::stod(digits)) : integer_object(std::stoll(digits));
        }
        while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) end++;
        if (end == at) throw std::logic_error("cannot read the arguments " + text);
        const std::string word = text.substr(at, end - at);
        at = end;
        const auto found = heap.words.find(word);
        const HostObject base = found != heap.words.end() ? found->second : name(word);
        if (!take("[")) return base;
        return new_object(MODLA_TYPE_INDEXED_NAME, {base, new_object(MODLA_TYPE_SEQUENCE, list("]"))});
    }
};

}  // namespace

std::vector<HostObject> arguments(const std::string &text) {
    return Reader{text + ")"}.list(")");
}

// ---- Leaving the library ----

namespace {

struct HostLeft {};
std::jmp_buf *landing;

bool leaving_now;  // the destructors that an exception runs are the host's own

[[noreturn]] void leave() {
    leaving_now = true;
    if (landing) std::longjmp(*landing, 1);
    throw HostLeft();
}

// An error of the host.  Comes back where errors return.
void raise_error(const std::string &text) {
    host.messages.push_back(text);
}

void violation(const std::string &text) {
    host.violations.push_back(text);
}

bool reports_results(const char *operation) {
    for (const char *name : {"Free", "AssignName", "ToInteger", "ToFloat", "NullValue", "RaiseError", "NewObject",
                             "NormalizeInteger", "Evaluate"}) {
        if (std::strcmp(name, operation) == 0) return true;
    }
    return false;
}

void take_snapshots() {
    watched.clear();
    was_written = false;
    if (!host.no_checks_after_writes) return;
    for (const auto &block : heap.blocks) watched.push_back({block, {block->data, block->data + block->bytes}});
}

bool unchanged(const Watched &each) {
    return std::equal(each.before.begin(), each.before.end(), each.block->data);
}

// What the library must have left in order whenever it calls.
void inspect(const char *operation) {
    const std::string at = std::string(" at call ") + std::to_string(host.operations.size()) + ", " + operation;
    if (!(current_fp_mode() == host.conditions.mode)) violation("floating-point mode changed" + at);
    struct {
        uint32_t control, status, tags, others[4];
    } environment;
    asm volatile("fnstenv %0\n\tfldenv %0" : "+m"(environment) : : "memory");
    if ((environment.tags & 0xffff) != 0xffff) violation("x87 stack in use" + at);
    uint32_t flags;
    asm volatile("pushf\n\tpop %0" : "=r"(flags));
    if (flags & 0x400) violation("direction flag set" + at);
    if (library_blocks != 0) violation("the library holds heap memory" + at);
    if (!host.no_checks_after_writes) return;
    if (!was_written) was_written = !std::all_of(watched.begin(), watched.end(), unchanged);
    if (was_written && !reports_results(operation)) violation("called after the caller's data was written" + at);
}

constexpr const char *gave_up = "the host gave up";

// A visit of the library in the host, first in every operation.  refused: it is to come back with nothing.
struct Visit {
    bool refused = false;
    explicit Visit(const char *operation) {
        in_library = false;
        host.operations.push_back(operation);
        inspect(operation);
        if (static_cast<int>(host.operations.size()) != host.failing_call) return;
        raise_error(gave_up);
        if (host.leaving != Leaving::returning) leave();
        refused = true;
    }
    ~Visit() { in_library = !leaving_now; }
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;
};

// An operation's own error.
void refuse(const char *text) {
    raise_error(text);
    if (host.leaving != Leaving::returning) leave();
}
template <class T>
T refuse(const char *text, T value) {
    refuse(text);
    return value;
}

// ---- Operations

void *op_alloc(uint32_t bytes) {
    const Visit visit("Alloc");
    if (visit.refused) host.refused_bytes = bytes;
    if (visit.refused) return nullptr;
    if (bytes > host.memory_limit) return refuse("out of memory", static_cast<void *>(nullptr));
    heap.lent.push_back(std::make_unique<GuardedBlock>(bytes, host.aligned_data));
    host.lent.emplace_back(heap.lent.back()->data, bytes);
    return host.lent.back().first;
}

HostObject op_new_object(uint32_t length, uint32_t type_id) {
    const Visit visit("NewObject");
    if (visit.refused) return HostObject{0};
    if (length < 1 || length > 1000) return refuse("object too large", HostObject{0});
    return new_object(type_id, std::vector<uint32_t>(length - 1, 0xa5a5a5a5));
}

void op_assign_name(HostObject object, HostObject value) {
    const Visit visit("AssignName");
    if (!has_type(object, type_name)) return refuse("cannot assign");
    words_of(object)[1] = value;
    host.assigned.push_back(name_texts[object]);
}

void op_free(void *memory) {
    const Visit visit("Free");
    for (size_t i = 0; i < host.lent.size(); i++) {
        if (host.lent[i].first != memory) continue;
        if (!heap.lent[i]->intact()) violation("wrote outside of Alloc memory");
        host.lent.erase(host.lent.begin() + static_cast<ptrdiff_t>(i));
        heap.lent.erase(heap.lent.begin() + static_cast<ptrdiff_t>(i));
        return;
    }
    violation("freed what was not lent");
}

void op_raise_error(const char *format, ...) {
    const Visit visit("RaiseError");
    std::string text;
    va_list values;
    va_start(values, format);
    std::vector<HostObject> given;
    for (const char *at = format; *at; at++) {
        if (*at != '%' || at[1] < '1' || at[1] > '9') {
            text += *at;
            continue;
        }
        const size_t k = static_cast<size_t>(*++at - '0');
        while (given.size() < k) given.push_back(va_arg(values, HostObject));
        text += to_text(given[k - 1]);
    }
    va_end(values);
    raise_error(text);
    std::vector<HostObject>().swap(given);
    std::string().swap(text);
    if (host.leaving != Leaving::returning) leave();
}

HostObject op_evaluate(HostObject object) {
    const Visit visit("Evaluate");
    const bool has_value = has_type(object, type_name) && words_of(object)[1];
    return has_value ? words_of(object)[1] : object;
}

// What stands in for the host's procedures: a residue in every entry of the result of sums, products and random
// Matrices, no work and a status for the others.
void run_callback(const std::string &callback, const std::vector<HostObject> &values) {
    for (const HostObject value : values) {
        if (is_table(value) && table_of(value).settings.datatype != MODLA_INTEGER && callback != "cbLUDecomp" &&
            callback != "cbReduce") {
            violation(callback + " was given a native table");
        }
    }
    const auto number = [&](size_t k) { return is_immediate(values[k]) ? immediate_value(values[k]) : 0; };
    const auto fill = [&](HostObject object, int32_t top, int32_t rows, int32_t left, int32_t columns) {
        const Table &table = table_of(object);
        if (top < 0 || left < 0 || top + rows > table.rows() || left + columns > table.columns()) {
            return violation(callback + " was given a block outside of its view");
        }
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) set_entry(table, top + i, left + j, 1);
        }
    };
    if (callback == "cbRandMat") {
        fill(values[5], number(1), std::max(number(2), 1), number(3), std::max(number(4), 1));
    } else if (callback == "cbAddMult") {
        fill(values[6], 0, number(1), 0, number(2));
    } else if (callback == "cbAddMultShift") {
        fill(values[10], number(11), number(1), number(12), number(2));
    } else if (callback == "cbScalMult") {
        fill(values[5], 0, number(1), 0, number(2));
    } else if (callback == "cbScalMultShift") {
        fill(values[7], number(8), number(1), number(9), number(2));
    } else if (callback == "cbMatMult") {
        fill(values[6], 0, number(1), 0, number(3));
    } else if (callback == "cbMatMultShift") {
        fill(values[10], number(11), number(1), number(12), number(3));
    } else if (callback == "cbReduce" && has_type(values[9], type_name)) {
        words_of(values[9])[1] = immediate(0);
    }
}

HostObject op_call_procedure(HostObject procedure, uint32_t n, ...) {
    const Visit visit("CallProcedure");
    if (visit.refused) return null_value();
    if (!has_type(procedure, type_procedure)) return refuse("no such procedure", null_value());
    HostObject result;
    {
        std::vector<HostObject> values;
        va_list list;
        va_start(list, n);
        for (uint32_t i = 0; i < n; i++) values.push_back(va_arg(list, HostObject));
        va_end(list);
        if (words_of(procedure)[1] == 0) {  // the registered one: it maps names to procedures
            result = new_object(type_procedure, {values[0]});
        } else {
            host.last_callback = name_texts[words_of(procedure)[1]];
            run_callback(host.last_callback, values);
            result = host.callback_result;
            watched.clear();
        }
    }
    return result;
}

uint32_t op_check_name(HostObject object) {
    const Visit visit("CheckName");
    return uint32_t{object == name("alias")};
}
uint32_t op_is_integer(HostObject object) {
    const Visit visit("IsInteger");
    return uint32_t{is_integer(object)};
}
uint32_t op_is_name(HostObject object) {
    const Visit visit("IsName");
    return uint32_t{has_type(object, type_name)};
}
uint32_t op_is_numeric(HostObject object) {
    const Visit visit("IsNumeric");
    return uint32_t{is_integer(object) || has_type(object, type_float)};
}
uint32_t op_is_rtable(HostObject object) {
    const Visit visit("IsRtable");
    return uint32_t{is_table(object)};
}

double op_to_double(HostObject object) {
    const Visit visit("ToDouble");
    if (is_immediate(object)) return static_cast<double>(immediate_value(object));
    if (is_integer(object)) return words_of(object)[0] >> 26 == MODLA_TYPE_POSITIVE_INTEGER ? 1e30 : -1e30;
    if (!has_type(object, type_float)) return refuse("not a number", 0.0);
    double value;
    std::memcpy(&value, words_of(object) + 1, 8);
    return value;
}

int32_t op_to_int(HostObject object) {
    const Visit visit("ToInt");
    if (object == name("true")) return 1;
    if (object == name("false")) return 0;
    if (!is_immediate(object)) return refuse("integer too large in context", 0);
    return immediate_value(object);
}

uint32_t op_num_args(const HostObject *args) {
    const Visit visit("NumArgs");
    for (const auto &[array, count] : heap.arrays) {
        if (array == args) return count;
    }
    violation("NumArgs of what is no argument array");
    return 0u;
}

HostObject op_rtable_create(RtableSettings *settings, void *data, int32_t *bounds) {
    const Visit visit("RtableCreate");
    if (visit.refused) return HostObject{0};
    for (const uint32_t field : settings->host_fields) {
        if (field != 0x600dcafe) violation("a setting of the host's own was changed");
    }
    Bounds upper = {{bounds[1], 1}};
    if (settings->num_dimensions == 2) upper.upper[1] = bounds[3];
    for (int32_t i = 0; i < settings->num_dimensions; i++) {
        if (bounds[2 * i] != 1 || bounds[2 * i + 1] < 0) return refuse("invalid bounds", HostObject{0});
    }
    if (!data) {
        const HostObject table = make_table(*settings, upper);
        return table ? table : refuse("object too large", HostObject{0});
    }
    const char *const first = static_cast<char *>(data);
    for (const auto &block : heap.blocks) {
        if (first < block->data || first >= block->data + std::max<size_t>(block->bytes, 1)) continue;
        const uint64_t entries = static_cast<uint64_t>(upper.upper[0]) * static_cast<uint64_t>(upper.upper[1]);
        if (entries * 4 > static_cast<uint64_t>(block->data + block->bytes - first)) {
            violation("a view runs past the end of its table");
        }
        return add_table(*settings, upper.upper, data, block);
    }
    return add_table(*settings, upper.upper, data, nullptr);
}

const Table *checked_table(HostObject object) {
    if (is_table(object)) return &table_of(object);
    violation("asked about a table that is none");
    return nullptr;
}

void *op_rtable_data(HostObject object) {
    const Visit visit("RtableData");
    const Table *const table = checked_table(object);
    return table ? static_cast<void *>(table->data) : nullptr;
}
void op_rtable_get_defaults(RtableSettings *settings) {
    const Visit visit("RtableGetDefaults");
    *settings = default_settings();
}
void op_rtable_get_settings(RtableSettings *settings, HostObject object) {
    const Visit visit("RtableGetSettings");
    const Table *const table = checked_table(object);
    *settings = table ? table->settings : default_settings();
}
uint32_t op_rtable_num_dims(HostObject object) {
    const Visit visit("RtableNumDims");
    const Table *const table = checked_table(object);
    return table ? static_cast<uint32_t>(table->settings.num_dimensions) : 0u;
}
int32_t op_rtable_upper_bound(HostObject object, uint32_t dimension) {
    const Visit visit("RtableUpperBound");
    const Table *const table = checked_table(object);
    if (!table) return 0;
    if (dimension < 1 || static_cast<int32_t>(dimension) > table->settings.num_dimensions) {
        violation("asked for a dimension that is not there");
        return 0;
    }
    return table->bounds[dimension - 1];
}

HostObject op_normalize_integer(HostObject object) {
    const Visit visit("NormalizeInteger");
    return object;
}
HostObject op_to_integer(int32_t value) {
    const Visit visit("ToInteger");
    return integer_object(value);
}
HostObject op_to_float(double value) {
    const Visit visit("ToFloat");
    return float_object(value);
}
HostObject op_to_name(const char *text, uint32_t global) {
    const Visit visit("ToName");
    const HostObject object = global ? name(text) : new_object(type_name, {0});
    if (!global) name_texts[object] = text;
    return object;
}
HostObject op_null_value() {
    const Visit visit("NullValue");
    return null_value();
}
HostObject op_parse_string(const char *text) {
    const Visit visit("ParseString");
    return name(text);
}
HostObject op_name_target(HostObject) {
    const Visit visit("NameTarget");
    return name("target");
}

HostApi make_api() {
    static_assert(sizeof(HostApi) % sizeof(void *) == 0);
    HostApi table;
    void (*const reserved)() = [] {
        std::abort();  // an operation that is not the library's business
    };
    for (size_t slot = 0; slot < sizeof table / sizeof(void *); slot++) {
        std::memcpy(reinterpret_cast<char *>(&table) + slot * sizeof(void *), &reserved, sizeof(void *));
    }
    table.Alloc = op_alloc;
    table.NewObject = op_new_object;
    table.AssignName = op_assign_name;
    table.Free = op_free;
    table.RaiseError = op_raise_error;
    table.Evaluate = op_evaluate;
    table.CallProcedure = op_call_procedure;
    table.CheckName = op_check_name;
    table.IsInteger = op_is_integer;
    table.IsName = op_is_name;
    table.IsNumeric = op_is_numeric;
    table.IsRtable = op_is_rtable;
    table.ToDouble = op_to_double;
    table.ToInt = op_to_int;
    table.NumArgs = op_num_args;
    table.RtableCreate = op_rtable_create;
    table.RtableData = op_rtable_data;
    table.RtableGetDefaults = op_rtable_get_defaults;
    table.RtableGetSettings = op_rtable_get_settings;
    table.RtableNumDims = op_rtable_num_dims;
    table.RtableUpperBound = op_rtable_upper_bound;
    table.NormalizeInteger = op_normalize_integer;
    table.ToInteger = op_to_integer;
    table.ToFloat = op_to_float;
    table.ToName = op_to_name;
    table.NullValue = op_null_value;
    table.ParseString = op_parse_string;
    table.NameTarget = op_name_target;
    return table;
}

}  // namespace

const HostApi *api() {
    static const HostApi table = make_api();
    return &table;
}

// ---- Calls ----

void reset() {
    heap = {};
    host.lent.clear();
    watched.clear();
    for (const auto &object : name_objects) object[1] = 0;
}

void reclaim() {
    heap.lent.clear();
    host.lent.clear();
}

void register_stand_ins() {
    static const uint32_t dispatcher[] = {type_procedure << 26 | 2, 0};
    const Host saved = std::exchange(host, {});
    host.conditions.mode = current_fp_mode();
    const HostObject *const args = argument_array({reinterpret_cast<HostObject>(dispatcher)});
    modLA_Register(api(), args);
    in_library = false;
    library_blocks = 0;
    host = saved;
}

namespace {

void check_guards() {
    for (const auto &block : heap.blocks) {
        if (!block->intact()) violation("wrote outside of a table");
    }
}

void call_with_landing(const std::function<void()> &calls, bool *returned) {
    std::jmp_buf here;
    landing = &here;
    if (setjmp(here) == 0) {
        calls();
        *returned = true;
    }
    landing = nullptr;
}

}  // namespace

Outcome attempt(const std::function<void()> &calls) {
    host.operations.clear();
    host.last_callback.clear();
    host.messages.clear();
    host.assigned.clear();
    leaving_now = false;
    take_snapshots();
    const FpMode own = current_fp_mode();
    const size_t pending = host.lent.size();
    bool returned = false;
    if (host.leaving == Leaving::long_jump) {
        call_with_landing(calls, &returned);
    } else {
        try {
            calls();
            returned = true;
        } catch (const HostLeft &) {
        }
    }
    in_library = false;
    set_fp_mode(own);
    check_guards();
    if (library_blocks != 0) violation("the library kept heap memory");
    library_blocks = 0;
    if (returned && host.lent.size() != pending) violation("the library kept Alloc memory");
    Outcome outcome;
    outcome.returned = returned;
    outcome.messages = host.messages;
    return outcome;
}

void run_trampoline(Trampoline *call) {
    const FpMode own = current_fp_mode();
    const FpMode &mode = host.conditions.mode;
    call->misalignment = host.conditions.misalignment;
    call->mxcsr = mode.mxcsr;
    call->x87_control = mode.x87_control;
    in_library = true;
    trampoline(call);
    in_library = false;
    set_fp_mode(own);
    if ((call->mxcsr_after & 0xffc0) != mode.mxcsr) violation("MXCSR changed on return");
    if (call->x87_control_after != mode.x87_control) violation("x87 control word changed on return");
    if ((call->x87_environment[2] & 0xffff) != 0xffff) violation("x87 stack in use on return");
    if (call->eflags & 0x400) violation("direction flag set on return");
    if (call->ebx != 0x0b0b0b0b || call->esi != 0x51515151 || call->edi != 0xd1d1d1d1 || !call->frame_intact) {
        violation("callee-saved register changed on return");
    }
    if (!call->pattern_intact) violation("wrote above the arguments");
}

const HostObject *argument_array(const std::vector<HostObject> &values) {
    std::vector<uint32_t> words(values.begin(), values.end());
    const HostObject object = new_object(MODLA_TYPE_SEQUENCE, words);
    const HostObject *const array = words_of(object);
    heap.arrays.emplace_back(array, static_cast<uint32_t>(values.size()));
    return array;
}

Outcome call_entry(EntryPoint entry, const std::vector<HostObject> &values) {
    const HostObject *const array = argument_array(values);
    HostObject result = 0;
    Outcome outcome = attempt([&] { result = call(entry, api(), array); });
    outcome.result = outcome.returned ? result : 0;
    return outcome;
}

}  // namespace modla_test::strict
