#include "console/heap.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <unordered_map>
#include <unordered_set>

#include "console/error.h"

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

// What a unique object is found by.
struct Content {
    uint32_t header;
    const Object *parts;
};

Content content_of(Object x) {
    return {words(x)[0], words(x) + 1};
}

struct ContentHash {
    using is_transparent = void;
    size_t operator()(const Content &content) const {
        uint32_t hash = content.header;
        for (uint32_t i = 0; i + 1 < (content.header & 0x3ffffff); i++) {
            hash = (hash ^ content.parts[i]) * 0x9e3779b1u;
            hash ^= hash >> 15;
        }
        return hash;
    }
    size_t operator()(Object x) const { return (*this)(content_of(x)); }
};

struct SameContent {
    using is_transparent = void;
    bool operator()(const Content &a, const Content &b) const {
        return a.header == b.header && std::equal(a.parts, a.parts + ((a.header & 0x3ffffff) - 1), b.parts);
    }
    bool operator()(Object a, Object b) const { return a == b || (*this)(content_of(a), content_of(b)); }
    bool operator()(const Content &a, Object b) const { return (*this)(a, content_of(b)); }
    bool operator()(Object a, const Content &b) const { return (*this)(content_of(a), b); }
};

struct Heap {
    std::vector<Object> objects;
    std::map<uintptr_t, std::unique_ptr<DataBlock>> blocks;  // by address
    std::unordered_map<std::string, Object> names;
    std::unordered_set<Object, ContentHash, SameContent> unique;
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
    DataBlock *const block = std::prev(after)->second.get();
    return address < reinterpret_cast<uintptr_t>(block->base) + block->bytes ? block : nullptr;
}

// The marking phase: grey values wait on a list, so that deep structures need no deep stack.
class Marker {
  public:
    Marker() {
        addresses_ = heap().objects;
        std::sort(addresses_.begin(), addresses_.end());
        for (const Object x : addresses_) {
            if (type_of(x) == type_table) tables_.emplace(words(x)[1], x);
        }
    }

    void mark(Object x) {
        if (x == 0 || is_immediate(x) || prefix_of(x).marked) return;
        prefix_of(x).marked = true;
        grey_.push_back(x);
    }

    // A word that may be a value, or the address of table data.
    void mark_word(uintptr_t word) {
        if (std::binary_search(addresses_.begin(), addresses_.end(), static_cast<Object>(word))) {
            mark(static_cast<Object>(word));
        } else if (const auto table = tables_.find(word); table != tables_.end()) {
            mark(table->second);
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

    void drain() {
        while (!grey_.empty()) {
            const Object x = grey_.back();
            grey_.pop_back();
            mark_parts(x);
        }
    }

  private:
    void mark_parts(Object x) {
        switch (type_of(x)) {
            case type_negative:
            case type_positive:
            case type_float:
            case type_string:
            case type_procedure:
                break;
            case type_polynomial:
                mark(words(x)[1]);
                break;
            case type_name:
                mark(words(x)[1]);
                mark(words(x)[2]);
                break;
            case type_table: {
                const Table &table = table_of(x);
                if (table.block) mark_data(*table.block);
                break;
            }
            default:
                for (uint32_t i = 1; i < length_of(x); i++) mark(words(x)[i]);
        }
    }

    void mark_data(DataBlock &block) {
        if (block.marked) return;
        block.marked = true;
        if (block.holds_values) mark_words(block.base, block.bytes);
    }

    std::vector<Object> addresses_, grey_;
    std::unordered_map<uintptr_t, Object> tables_;  // by the address of their record, all that code may have in hand
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
    if (prefix_of(x).unique) heap().unique.erase(x);
    if (type_of(x) == type_table) delete &table_of(x);
    if (type_of(x) == type_procedure) delete reinterpret_cast<std::shared_ptr<Procedure> *>(words(x)[1]);
    heap().bytes -= prefix_of(x).bytes;
    std::free(&prefix_of(x));
}

void sweep() {
    Heap &h = heap();
    std::erase_if(h.objects, [](Object x) {
        if (prefix_of(x).marked) {
            prefix_of(x).marked = false;
            return false;
        }
        destroy(x);
        return true;
    });
    std::erase_if(h.blocks, [&h](const auto &entry) {
        DataBlock &block = *entry.second;
        if (block.marked) {
            block.marked = false;
            return false;
        }
        h.bytes -= block.bytes;
        std::free(block.base);
        return true;
    });
}

void collect_before(size_t bytes) {
    Heap &h = heap();
    const bool over_limit = h.limit > 0 && h.bytes + bytes > h.limit;
    const bool full = h.always || over_limit || h.bytes + bytes > std::max(h.threshold, least_threshold);
    if (full && h.held == 0) collect_garbage();
    if (over_limit && h.bytes + bytes > h.limit) throw HostError("out of memory");
}

// The entries of table data in bytes; checked in 64 bits.
uint64_t table_bytes(const RtableSettings &settings, const int32_t *bounds) {
    uint64_t entries = 1;
    for (int32_t i = 0; i < settings.num_dimensions; i++) {
        entries *= static_cast<uint64_t>(std::max(bounds[i], 0));
    }
    if (entries > 0xffffffff) throw HostError("object too large");
    return entries * (settings.datatype == MODLA_FLOAT8 ? 8 : 4);
}

DataBlock *new_block(const RtableSettings &settings, uint64_t bytes) {
    if (bytes > 0xbfffffff) throw HostError("object too large");
    collect_before(static_cast<size_t>(bytes));
    const size_t rounded = (static_cast<size_t>(bytes) + 64) & ~size_t{63};
    char *const base = static_cast<char *>(std::aligned_alloc(64, rounded));
    if (!base) throw HostError("out of memory");
    if (settings.datatype == MODLA_INTEGER) {
        std::fill_n(reinterpret_cast<Object *>(base), rounded / sizeof(Object), immediate(0));
    } else {
        std::memset(base, 0, rounded);
    }
    auto block = std::make_unique<DataBlock>(DataBlock{base, rounded, settings.datatype == MODLA_INTEGER, false});
    DataBlock *const result = block.get();
    heap().blocks.emplace(reinterpret_cast<uintptr_t>(base), std::move(block));
    heap().bytes += rounded;
    return result;
}

}  // namespace

void collect_garbage() {
    Heap &h = heap();
    h.collections++;
    Marker marker;
    for (const auto &[text, name] : h.names) marker.mark(name);
    for (const Object x : h.kept) marker.mark(x);
    for (const Roots *roots = h.roots; roots; roots = roots->next) {
        for (const Object x : roots->values) marker.mark(x);
    }
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
void keep(Object x) {
    heap().kept.push_back(x);
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
    if (length > 0x3ffffff) throw HostError("object too large");
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

Object new_collection(Type type, Object sequence) {
    const Object x = new_object(2, type);
    words(x)[1] = sequence;
    return x;
}

Object new_pair(Type type, Object first, Object second) {
    const Object x = new_object(3, type);
    words(x)[1] = first;
    words(x)[2] = second;
    return x;
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
    static const Object null = [] {
        const Object x = new_sequence({});
        keep(x);
        return x;
    }();
    return null;
}

Object local_name(const std::string &text) {
    const Object string = new_string(text);
    const Object name = new_object(4, type_name);
    words(name)[2] = string;
    words(name)[3] = immediate(0);
    return name;
}

void protect(Object name) {
    words(name)[3] = immediate(immediate_value(words(name)[3]) | name_protected);
}
bool is_protected(Object name) {
    return immediate_value(words(name)[3]) & name_protected;
}

void set_value(Object name, Object value) {
    words(name)[1] = value;
    heap().revaluation |= is_in_expressions(name) && value != 0 && value != name;
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

namespace {

uint32_t saturated_sum(uint32_t a, uint32_t b) {
    return a + b < a ? ~uint32_t{0} : a + b;
}

// Takes a part of an expression into account.
void count_part(Object part, Prefix &whole) {
    whole.size = saturated_sum(whole.size, 1);
    if (is_immediate(part)) return;
    if (has_type(part, type_name)) {
        words(part)[3] = immediate(immediate_value(words(part)[3]) | name_in_expressions);
        set_value(part, words(part)[1]);
        return;
    }
    whole.size = saturated_sum(whole.size, prefix_of(part).size);
    whole.depth = std::max<uint16_t>(whole.depth, static_cast<uint16_t>(prefix_of(part).depth + 1));
}

bool has_raw_words(uint32_t type) {
    return type == type_negative || type == type_positive || type == type_float || type == type_string;
}

}  // namespace

Object unique_object(Type type, const std::vector<Object> &parts) {
    const uint32_t length = static_cast<uint32_t>(parts.size()) + 1;
    if (parts.size() >= 0x3ffffff) throw HostError("expression too large");
    const auto found = heap().unique.find(Content{uint32_t{type} << 26 | length, parts.data()});
    if (found != heap().unique.end()) return *found;
    const HoldCollection hold;
    Prefix counted{};
    if (has_raw_words(type) || type == type_polynomial) counted.size = length;
    if (type == type_polynomial) count_part(parts[0], counted);
    if (!has_raw_words(type) && type != type_polynomial) {
        for (const Object part : parts) count_part(part, counted);
    }
    if (counted.depth > deepest_expression) throw HostError("expression nested too deeply");
    if (counted.size > largest_expression) throw HostError("expression too large");
    const Object x = new_object(length, type);
    std::copy(parts.begin(), parts.end(), words(x) + 1);
    prefix_of(x).size = counted.size;
    prefix_of(x).depth = counted.depth;
    heap().unique.insert(x);
    prefix_of(x).unique = true;
    return x;
}

Object unique_value(Object x) {
    if (is_unique(x)) return x;
    const HoldCollection hold;
    std::vector<Object> parts(words(x) + 1, words(x) + length_of(x));
    if (!has_raw_words(type_of(x))) {
        for (Object &part : parts) part = unique_value(part);
    }
    return unique_object(static_cast<Type>(type_of(x)), parts);
}

Object global_name(const std::string &text) {
    const auto found = heap().names.find(text);
    if (found != heap().names.end()) return found->second;
    const Object name = local_name(text);
    heap().names.emplace(text, name);
    return name;
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
    const uint64_t bytes = table_bytes(settings, upper_bounds);
    DataBlock *block;
    if (data) {
        block = block_at(reinterpret_cast<uintptr_t>(data));
        const char *const start = static_cast<char *>(data);
        if (block && (bytes > block->bytes || start + bytes > block->base + block->bytes)) return 0;
    } else {
        block = new_block(settings, bytes);
        data = block->base;  // on the stack: keeps the block while the value is made
    }
    auto table = std::make_unique<Table>();
    *table = {settings, {upper_bounds[0], settings.num_dimensions > 1 ? upper_bounds[1] : 1}, data, block};
    const Object x = new_object(2, type_table);
    words(x)[1] = reinterpret_cast<Object>(table.release());
    asm volatile("" : : "r"(data));
    return x;
}

Table &table_of(Object x) {
    return *reinterpret_cast<Table *>(words(x)[1]);
}

void *lend_memory(uint32_t bytes) {
    if (heap().limit > 0 && bytes > heap().limit) throw HostError("out of memory");
    void *const memory = std::malloc(bytes ? bytes : 1);
    if (!memory) throw HostError("out of memory");
    heap().lent.push_back(memory);
    return memory;
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
