#include "console/heap.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "console/error.h"
#include "console/table.h"

namespace modla::console {

namespace {

// Precedes every value in memory.
struct Prefix {
    bool marked;
    bool unique;
    uint16_t depth;  // of a unique object: levels of objects in it
    uint32_t size;   // of a unique object: parts written out in full
    uint32_t bytes;
};
constexpr size_t prefix_bytes = 16;
static_assert(sizeof(Prefix) <= prefix_bytes);

Prefix &prefix_of(Object x) {
    return *reinterpret_cast<Prefix *>(x - prefix_bytes);
}

// What a unique object is found by: its words, the header first.
using Content = std::basic_string_view<Object>;

Content content_of(Object x) {
    return {words(x), length_of(x)};
}

struct ContentHash {
    size_t operator()(Content content) const {
        return std::hash<std::string_view>()(
            {reinterpret_cast<const char *>(content.data()), content.size() * sizeof(Object)});
    }
};

// The words of a value that are values themselves begin behind the header; where do they end?
uint32_t end_of_values(uint32_t type, uint32_t length) {
    const bool raw = type == type_negative || type == type_positive || type == type_float || type == type_string ||
                     type == type_procedure || type == type_table;
    return raw ? 1 : type == type_polynomial ? 2 : type == type_name ? 3 : length;
}

constexpr uintptr_t table_record = sizeof(Object);  // where a table's record is in its value

struct Heap {
    std::vector<Object> objects;
    std::map<uintptr_t, DataBlock> blocks;  // by address
    std::unordered_map<std::string, Object> names;
    std::unordered_map<Content, Object, ContentHash> unique;
    std::vector<Object> kept;
    std::vector<void *> lent;
    Roots *roots = nullptr;
    const char *stack_base = nullptr;
    size_t stack_limit = size_t{4} << 20;  // bytes that recursion may use
    size_t bytes = 0;                      // of values and data
    size_t threshold = 0;                  // collect when bytes pass it
    size_t limit = 0;                      // that bytes must not pass, unless 0
    void (*guard)() = nullptr;
    size_t collections = 0;
    bool always = false;
    int held = 0;              // HoldCollection records
    bool revaluation = false;  // a name that stands in an expression has a value
};

constexpr size_t least_threshold = size_t{16} << 20;

Heap &heap() {
    static Heap *const instance = new Heap;  // never destroyed: values outlive static destructors
    return *instance;
}

DataBlock *block_at(uintptr_t address) {
    auto &blocks = heap().blocks;
    auto after = blocks.upper_bound(address);
    if (after == blocks.begin()) return nullptr;
    DataBlock &block = std::prev(after)->second;
    return address < reinterpret_cast<uintptr_t>(block.base) + block.bytes ? &block : nullptr;
}

// The marking phase: grey values wait on a list, so that deep structures need no deep stack.
struct Marker {
    std::vector<Object> addresses, grey;

    void mark(Object x) {
        if (x == 0 || is_immediate(x) || prefix_of(x).marked) return;
        prefix_of(x).marked = true;
        grey.push_back(x);
    }
    void mark(const std::vector<Object> &values) {
        for (const Object x : values) mark(x);
    }

    bool is_value(uintptr_t word) const {
        return std::binary_search(addresses.begin(), addresses.end(), static_cast<Object>(word));
    }

    // A word that may be a value, or the address of a table's record or of table data.
    void mark_word(uintptr_t word) {
        if (is_value(word)) {
            mark(static_cast<Object>(word));
        } else if (is_value(word - table_record) && type_of(static_cast<Object>(word - table_record)) == type_table) {
            mark(static_cast<Object>(word - table_record));
        } else if (DataBlock *block = block_at(word)) {
            mark_data(*block);
        }
    }

    void mark_words(const void *memory, size_t bytes) {
        const Object *const entries = static_cast<const Object *>(memory);
        for (size_t i = 0; i < bytes / sizeof(Object); i++) {
            if (entries[i] && !is_immediate(entries[i])) mark_word(entries[i]);
        }
    }

    void mark_data(DataBlock &block) {
        if (std::exchange(block.marked, true)) return;
        if (block.holds_values) mark_words(block.base, block.bytes);
    }

    void drain() {
        while (!grey.empty()) {
            const Object x = grey.back();
            grey.pop_back();
            if (type_of(x) == type_table && table_of(x).block) mark_data(*table_of(x).block);
            const uint32_t end = end_of_values(type_of(x), length_of(x));
            for (uint32_t i = 1; i < end; i++) mark(words(x)[i]);
        }
    }
};

[[gnu::noinline, gnu::no_sanitize_address]] void mark_stack(Marker &marker) {
    std::jmp_buf registers;  // spills the registers into this frame
    setjmp(registers);
    const void *volatile here = __builtin_frame_address(0);
    uintptr_t low = std::min(reinterpret_cast<uintptr_t>(here), reinterpret_cast<uintptr_t>(&registers));
    for (low &= ~uintptr_t{3}; low < reinterpret_cast<uintptr_t>(heap().stack_base); low += 4) {
        marker.mark_word(*reinterpret_cast<const uintptr_t *>(low));
    }
}

void destroy(Object x) {
    if (prefix_of(x).unique) heap().unique.erase(content_of(x));
    if (type_of(x) == type_procedure) delete reinterpret_cast<std::shared_ptr<Procedure> *>(words(x)[1]);
    heap().bytes -= prefix_of(x).bytes;
    std::free(&prefix_of(x));
}

// Table data, all bits zero.  Pages of their own are zero already: what is never written, as work space for products often
// is, then costs nothing.
constexpr size_t least_pages = size_t{64} << 10;

void *take_data(size_t bytes) {
    if (bytes < least_pages) {
        void *const base = std::aligned_alloc(64, bytes);
        return base ? std::memset(base, 0, bytes) : nullptr;
    }
    void *const base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return base == MAP_FAILED ? nullptr : base;
}

void release_data(void *base, size_t bytes) {
    if (bytes < least_pages) return std::free(base);
    munmap(base, bytes);
}

void sweep() {
    Heap &h = heap();
    std::erase_if(h.objects, [](Object x) {
        if (std::exchange(prefix_of(x).marked, false)) return false;
        destroy(x);
        return true;
    });
    for (auto at = h.blocks.begin(); at != h.blocks.end();) {
        DataBlock &block = at->second;
        const bool used = std::exchange(block.marked, false);
        if (!used) h.bytes -= block.bytes;
        if (!used) release_data(block.base, block.bytes);
        at = used ? std::next(at) : h.blocks.erase(at);
    }
}

void collect_before(size_t bytes) {
    Heap &h = heap();
    const bool over_limit = h.limit > 0 && h.bytes + bytes > h.limit;
    const bool full = h.always || over_limit || h.bytes + bytes > std::max(h.threshold, least_threshold);
    if (full && h.held == 0) collect_garbage();
    if (over_limit && h.bytes + bytes > h.limit) throw HostError("out of memory");
}

// The entries of table data in bytes; checked in 64 bits.
size_t table_bytes(const Table &table) {
    const int64_t entries = int64_t{std::max(table.bounds[0], 0)} * std::max(table.bounds[1], 0);
    const int64_t width = table.settings.datatype == MODLA_FLOAT8 ? 8 : 4, most = 0xbfffffff / width;
    if (entries > most) {
        throw HostError("object too large: a " + describe_table(table) + " has " + std::to_string(entries) +
                        " entries, and " + std::to_string(most) + " are the most");
    }
    return static_cast<size_t>(entries * width);
}

DataBlock *new_block(const RtableSettings &settings, size_t bytes) {
    collect_before(bytes);
    const size_t rounded = (bytes + 64) & ~size_t{63};
    char *const base = static_cast<char *>(take_data(rounded));
    if (!base) throw HostError("out of memory");
    if (settings.datatype == MODLA_INTEGER) {
        std::fill_n(reinterpret_cast<Object *>(base), rounded / sizeof(Object), immediate(0));
    }
    heap().bytes += rounded;
    const DataBlock block = {base, rounded, settings.datatype == MODLA_INTEGER, false};
    return &heap().blocks.emplace(reinterpret_cast<uintptr_t>(base), block).first->second;
}

}  // namespace

void collect_garbage() {
    Heap &h = heap();
    h.collections++;
    Marker marker{h.objects, {}};
    std::sort(marker.addresses.begin(), marker.addresses.end());
    for (const auto &[text, name] : h.names) marker.mark(name);
    marker.mark(h.kept);
    for (const Roots *roots = h.roots; roots; roots = roots->next) marker.mark(roots->values);
    for (void *memory : h.lent) marker.mark_words(memory, malloc_usable_size(memory));
    mark_stack(marker);
    marker.drain();
    sweep();
    h.threshold = 2 * h.bytes;
}

void set_collect_always(bool always) {
    heap().always = always;
}

void set_heap_limit(size_t bytes) {
    heap().limit = bytes;
}

Checkpoint make_checkpoint() {
    null_value();  // is kept from its first use on
    Checkpoint checkpoint{};
    for (const auto &[text, name] : heap().names) {
        const Object value = words(name)[1];
        checkpoint.values.emplace(text, value);
        if (value) keep(value);
    }
    checkpoint.kept = heap().kept.size();
    return checkpoint;
}

void go_back(const Checkpoint &checkpoint) {
    Heap &h = heap();
    h.kept.resize(checkpoint.kept);
    std::erase_if(h.names, [&](const auto &entry) { return !checkpoint.values.contains(entry.first); });
    for (const auto &[text, name] : h.names) words(name)[1] = checkpoint.values.at(text);
}

void set_stack_base(const void *base) {
    heap().stack_base = static_cast<const char *>(base);
    rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        heap().stack_limit = static_cast<size_t>(limit.rlim_cur / 2);
    }
}

bool stack_is_low() {
    const char *const here = static_cast<const char *>(__builtin_frame_address(0));
    return heap().stack_base - here > static_cast<ptrdiff_t>(heap().stack_limit);
}

void check_stack() {
    if (stack_is_low()) throw HostError("nested too deeply");
    if (heap().guard) heap().guard();
}

void set_guard(void (*guard)()) {
    heap().guard = guard;
}

HeapStatistics heap_statistics() {
    return {heap().objects.size(), heap().bytes, heap().collections};
}
Object keep(Object x) {
    return heap().kept.emplace_back(x);
}

Roots::Roots() : previous(nullptr), next(heap().roots) {
    if (next) next->previous = this;
    heap().roots = this;
}

Roots::~Roots() {
    (previous ? previous->next : heap().roots) = next;
    if (next) next->previous = previous;
}

Object new_object(uint32_t length, uint32_t type_id) {
    constexpr uint32_t most = 0x3ffffff;
    if (length > most) {
        throw HostError("object too large: it has " + std::to_string(length) + " words, and " + std::to_string(most) +
                        " are the most");
    }
    const uint32_t bytes = static_cast<uint32_t>(prefix_bytes) + 4 * length;
    collect_before(bytes);
    void *const memory = std::calloc(1, bytes);
    if (!memory) throw HostError("out of memory");
    const Object x = reinterpret_cast<Object>(memory) + prefix_bytes;
    prefix_of(x).bytes = bytes;
    words(x)[0] = type_id << 26 | length;
    heap().objects.push_back(x);
    heap().bytes += bytes;
    return x;
}

Object new_value(Type type, std::initializer_list<Object> content) {
    const Object x = new_object(static_cast<uint32_t>(content.size()) + 1, type);
    std::copy(content.begin(), content.end(), words(x) + 1);
    return x;
}

Object new_string(const std::string &text) {
    const uint32_t bytes = static_cast<uint32_t>(text.size());
    const Object x = new_object(2 + (bytes + 3) / 4, type_string);
    words(x)[1] = bytes;
    std::memcpy(words(x) + 2, text.data(), bytes);
    return x;
}

Object new_sequence(const std::vector<Object> &elements) {
    const Object x = new_object(static_cast<uint32_t>(elements.size()) + 1, type_sequence);
    std::copy(elements.begin(), elements.end(), words(x) + 1);
    return x;
}

Object new_collection(Type type, const std::vector<Object> &elements) {
    return new_value(type, {new_sequence(elements)});
}

Object new_pair(Type type, Object first, Object second) {
    return new_value(type, {first, second});
}

Object new_float(double value) {
    const Object x = new_object(3, type_float);
    std::memcpy(words(x) + 1, &value, sizeof value);
    return x;
}

Object new_procedure(std::shared_ptr<Procedure> procedure) {
    const Object x = new_object(2, type_procedure);
    words(x)[1] = reinterpret_cast<Object>(new std::shared_ptr<Procedure>(std::move(procedure)));
    return x;
}

Object null_value() {
    static const Object null = keep(new_sequence({}));
    return null;
}

std::vector<Object> elements_of(Object x) {
    const Object *const first = words(sequence_of(x)) + 1;
    return {first, first + size_of(x)};
}

Object local_name(const std::string &text) {
    return new_value(type_name, {0, new_string(text), immediate(0)});
}

void protect(Object name) {
    words(name)[3] = immediate(immediate_value(words(name)[3]) | name_protected);
}
bool is_protected(Object name) {
    return immediate_value(words(name)[3]) & name_protected;
}

std::vector<std::string> assigned_names() {
    std::vector<std::string> result;
    for (const auto &[text, name] : heap().names) {
        if (words(name)[1]) result.push_back(text);
    }
    std::sort(result.begin(), result.end());
    return result;
}

void set_value(Object name, Object value) {
    words(name)[1] = value;
    heap().revaluation |= is_in_expressions(name) && value != 0 && value != name;
}
std::string name_with_value(Object x) {
    for (const auto &[text, name] : heap().names) {
        if (words(name)[1] == x) return text;
    }
    return "a table without a name";
}

bool is_in_expressions(Object name) {
    return immediate_value(words(name)[3]) & name_in_expressions;
}
bool expressions_change() {
    return heap().revaluation;
}

HoldCollection::HoldCollection() {
    heap().held++;
}
HoldCollection::~HoldCollection() {
    heap().held--;
    collect_before(0);  // programs may allocate nowhere else
}

bool is_unique(Object x) {
    return is_immediate(x) || has_type(x, type_name) || prefix_of(x).unique;
}

Object unique_object(Type type, const std::vector<Object> &parts) {
    if (parts.size() >= 0x3ffffff) throw HostError("expression too large");
    std::vector<Object> content = {uint32_t{type} << 26 | static_cast<uint32_t>(parts.size() + 1)};
    content.insert(content.end(), parts.begin(), parts.end());
    const auto found = heap().unique.find({content.data(), content.size()});
    if (found != heap().unique.end()) return found->second;
    const HoldCollection hold;
    const uint32_t length = static_cast<uint32_t>(content.size()), end = end_of_values(type, length);
    uint64_t size = end < length ? length : 0;
    uint32_t depth = 0;
    for (uint32_t i = 1; i < end; i++) {
        const Object part = content[i];
        size++;
        if (is_immediate(part)) continue;
        if (has_type(part, type_name)) {
            words(part)[3] = immediate(immediate_value(words(part)[3]) | name_in_expressions);
            set_value(part, words(part)[1]);
            continue;
        }
        size += prefix_of(part).size;
        depth = std::max<uint32_t>(depth, prefix_of(part).depth + 1);
    }
    if (depth > deepest_expression) throw HostError("expression nested too deeply");
    if (size > largest_expression) throw HostError("expression too large");
    const Object x = new_sequence(parts);
    words(x)[0] = content[0];
    prefix_of(x).size = static_cast<uint32_t>(size);
    prefix_of(x).depth = static_cast<uint16_t>(depth);
    prefix_of(x).unique = true;
    heap().unique.emplace(content_of(x), x);
    return x;
}

Object unique_value(Object x) {
    if (is_unique(x)) return x;
    const HoldCollection hold;
    std::vector<Object> parts(words(x) + 1, words(x) + length_of(x));
    const uint32_t end = end_of_values(type_of(x), length_of(x));
    for (uint32_t i = 1; i < end; i++) parts[i - 1] = unique_value(parts[i - 1]);
    return unique_object(static_cast<Type>(type_of(x)), parts);
}

Object global_name(const std::string &text) {
    const auto found = heap().names.find(text);
    if (found != heap().names.end()) return found->second;
    const Object name = local_name(text);
    heap().names.emplace(text, name);
    return name;
}

Object truth(bool value) {
    return global_name(value ? "true" : "false");
}

std::string text_of(Object x) {
    const Object string = type_of(x) == type_name ? words(x)[2] : x;
    return {reinterpret_cast<const char *>(words(string) + 2), words(string)[1]};
}

double float_value(Object x) {
    double value;
    std::memcpy(&value, words(x) + 1, sizeof value);
    return value;
}

const std::shared_ptr<Procedure> &procedure_of(Object x) {
    return *reinterpret_cast<std::shared_ptr<Procedure> *>(words(x)[1]);
}

Object new_table(const RtableSettings &settings, const int32_t *upper_bounds, void *data) {
    Table table = {settings, {upper_bounds[0], settings.num_dimensions > 1 ? upper_bounds[1] : 1}, data, nullptr};
    const size_t bytes = table_bytes(table);
    DataBlock *block;
    if (data) {
        block = block_at(reinterpret_cast<uintptr_t>(data));
        const char *const start = static_cast<char *>(data);
        const bool inside = block && bytes <= block->bytes && start + bytes <= block->base + block->bytes;
        if (!inside) throw HostError("a view must lie within the storage of a table");
    } else {
        block = new_block(settings, bytes);
        data = block->base;  // on the stack: keeps the block while the value is made
    }
    const Object x = new_object(1 + sizeof(Table) / sizeof(Object), type_table);
    table.data = data;
    table.block = block;
    table_of(x) = table;
    asm volatile("" : : "r"(data));
    return x;
}

Table &table_of(Object x) {
    return *reinterpret_cast<Table *>(x + table_record);
}

void *lend_memory(uint32_t bytes) {
    if (heap().limit > 0 && bytes > heap().limit) throw HostError("out of memory");
    void *const memory = std::malloc(bytes ? bytes : 1);
    if (!memory) throw HostError("out of memory");
    lend(memory);
    return memory;
}

void lend(void *memory) {
    heap().lent.push_back(memory);
}

bool return_memory(void *memory) {
    auto &lent = heap().lent;
    const auto found = std::find(lent.rbegin(), lent.rend(), memory);
    if (found == lent.rend()) return false;
    lent.erase(std::next(found).base());
    std::free(memory);
    return true;
}

size_t lent_count() {
    return heap().lent.size();
}

void reclaim_memory(size_t count) {
    auto &lent = heap().lent;
    while (lent.size() > count) {
        std::free(lent.back());
        lent.pop_back();
    }
}

}  // namespace modla::console
