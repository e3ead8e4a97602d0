// The console's memory: values, the data of tables, and work memory lent to the library.
//
// Values are collected by mark and sweep.  Roots are all names, the values held in Roots records, and every word of the
// C stack that happens to be a value, the address of a Table record, or an address in the data of a table (library
// frames hold such).  Values in malloc'ed memory are not seen: keep them in a Roots record.  Table data is aligned to 64
// bytes and lives as long as a table or a view uses it.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "console/object.h"

namespace modla::console {

struct Procedure;

// The storage of one or more tables.
struct DataBlock {
    char *base;
    size_t bytes;
    bool holds_values;  // entries are host values
    bool marked;
};

// A Matrix, Vector or Array of the host.
struct Table {
    RtableSettings settings;
    int32_t bounds[2];  // upper bounds; all lower bounds are 1
    void *data;
    DataBlock *block;
};

// An uninitialised value: length words including the header, the others 0.  A value with these words behind the header.
Object new_object(uint32_t length, uint32_t type_id);
Object new_value(Type type, std::initializer_list<Object> words);
Object new_string(const std::string &text);
Object new_sequence(const std::vector<Object> &elements);
Object new_collection(Type type, const std::vector<Object> &elements);  // a list or a set
Object new_pair(Type type, Object first, Object second);                // range, equation, indexed name, rational
Object new_float(double value);
Object new_procedure(std::shared_ptr<Procedure> procedure);
Object null_value();
std::vector<Object> elements_of(Object x);  // of a sequence, a list or a set; for the caller to hold

// Unique objects: the same type and parts give the same object as long as it is in use, so that identity tells equal
// expressions.  The parts are immediate, names or unique objects themselves.  The size of an expression, written out in
// full, and its depth are bounded: whatever walks it ends.
constexpr uint32_t largest_expression = 2000000, deepest_expression = 300;
Object unique_object(Type type, const std::vector<Object> &parts);
Object unique_value(Object x);  // of a number, a string, or a structure of them and of names
bool is_unique(Object x);

// No value is collected while one of these is alive: for work on values that stand in other memory.
struct HoldCollection {
    HoldCollection();
    ~HoldCollection();
    HoldCollection(const HoldCollection &) = delete;
    HoldCollection &operator=(const HoldCollection &) = delete;
};

// The name of a text; the same text gives the same name.  A local name is a new one each time.
Object global_name(const std::string &text);
Object local_name(const std::string &text);
Object truth(bool value);   // the name true or false
void protect(Object name);  // from assignment
bool is_protected(Object name);
std::vector<std::string> assigned_names();
void set_value(Object name, Object value);  // 0: none
std::string name_with_value(Object x);      // a global name that has this very value
bool is_in_expressions(Object name);        // does it stand in an expression?
bool expressions_change();                  // has a name that stands in an expression a value?
std::string text_of(Object string_or_name);
double float_value(Object x);
const std::shared_ptr<Procedure> &procedure_of(Object x);

// Tables.  With data, the table is a view of the storage that holds it, which it must not leave.
Object new_table(const RtableSettings &settings, const int32_t *upper_bounds, void *data);
Table &table_of(Object x);

// Work memory.
void *lend_memory(uint32_t bytes);
void lend(void *memory);            // that the C heap gave
bool return_memory(void *memory);   // false: it was not lent
size_t lent_count();                // blocks that are out
void reclaim_memory(size_t count);  // takes back all but the first `count` lent blocks

// Values held outside the heap.
struct Roots {
    std::vector<Object> values;
    Roots();
    ~Roots();
    Roots(const Roots &) = delete;
    Roots &operator=(const Roots &) = delete;
    Roots *previous, *next;
};

// Keeps a value for ever (constants of a program), and returns it.
Object keep(Object x);

struct HeapStatistics {
    size_t objects, bytes, collections;
};
HeapStatistics heap_statistics();
void collect_garbage();
// Collects at every allocation, to find values that nothing holds.
void set_collect_always(bool always);
// Bounds the bytes of values, data and lent memory, for programs that nobody vouches for; 0: no bound.
void set_heap_limit(size_t bytes);

// The names, their values and the kept values of one moment.
struct Checkpoint {
    size_t kept;
    std::unordered_map<std::string, Object> values;
};
Checkpoint make_checkpoint();  // its values are kept
// Forgets what came later, while no program runs.
void go_back(const Checkpoint &checkpoint);
// The end of the stack that is searched for values; call in main with the address of a local.
void set_stack_base(const void *base);
// Has recursion used up most of the stack?
bool stack_is_low();
// Throws HostError then.  Everything that evaluates, compares or recurses calls it, and it calls the guard, which may
// throw to end a program.
void check_stack();
void set_guard(void (*guard)());  // null: none

}  // namespace modla::console
