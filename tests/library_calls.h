// Calls of everything that the library exports, with representative arguments.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/strict_host.h"

namespace modla_test::strict {

// Makes the calls of one LibraryCall and gathers what they leave, as a text.
struct Runner {
    Random random{1};
    std::set<std::string> called;  // names of exports
    std::string found;
    std::vector<std::shared_ptr<GuardedBlock>> blocks;  // all memory of the calls
    std::vector<std::shared_ptr<GuardedBlock>> memory;  // what of it is to be gathered

    // Memory for a kernel, between guard zones: residues modulo p (p = 0: zeros).
    template <class W>
    W *block(size_t count, uint32_t p = 0);

    template <class Result, class... Parameters>
    Result call(const char *name, Result (*function)(Parameters...), std::type_identity_t<Parameters>... values) {
        called.insert(name);
        return strict::call(function, values...);
    }
    void note(const std::string &what) { found += what + "\n"; }
};

struct LibraryCall {
    std::string name;
    std::function<void(Runner &)> run;
    int32_t p, datatype, order;  // of the tables that stand ready
    int repetitions = 1;         // how many conditions a test can afford to try, less for slow ones
    bool writes_early = false;   // may fail, by its contract, when it has written something
};
const std::vector<LibraryCall> &library_calls();

// Makes one, with new tables from the same seed.
struct Result {
    bool returned;
    std::vector<std::string> messages;
    std::string found;  // with all tables and assigned names
    std::set<std::string> called;
    bool holds_residues;  // all tables of the datatype
    bool operator==(const Result &other) const {
        return returned == other.returned && messages == other.messages && found == other.found;
    }
};
Result make_call(const LibraryCall &call);

// The tables that entry points are called with, by words of arguments' texts: matrices A, B (4 x 5), D (4 x 5, in the
// other order), S, T (4 x 4), column Vectors V (4), N (5), row Vectors R (4), permutations P and Q (of host integers),
// Bad (an entry is out of range), Empty (0 x 5); "p" and "datatype".
void define_tables(int32_t p, int32_t datatype, int32_t order, Random &random);
std::string all_tables();

// The names in the linker's export list; the entry points that the header declares.
std::set<std::string> exported_names();
std::set<std::string> entry_point_names();
// Those of functions that receive the host's table.
std::set<std::string> host_caller_names();
EntryPoint entry_point(const std::string &name);

}  // namespace modla_test::strict
