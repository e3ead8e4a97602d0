// Random calls of every entry point, and what they must do.
//
// draw_call(seed, variation) makes tables, arguments for one call over them, and the outcome as plain models find it:
// the message, the result, assigned outputs, and the contents of all tables.  The same seed draws the same call for
// every variation: in the other storage order, in another datatype.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "tests/support/host.h"

namespace modla_test {

struct Variation {
    bool other_order = false;
    int32_t datatype = -1;  // -1: as drawn
};

// What a call must return: a new object, a number, or NULL.
struct Created {
    int32_t rows, columns, order;  // 0 rows: a row Vector
    std::vector<uint64_t> cells;   // row by row, as they are stored
};

struct RandomCall {
    std::string entry;
    std::vector<Object> arguments;
    std::vector<Object> tables;
    int32_t p = 0, datatype = 0;
    bool valid = true;         // no argument was replaced
    bool native_only = false;  // makes no sense for host integers
    bool draws = false;        // random numbers, from srand(seed)
    bool clean = true;         // all tables hold integers

    // Of a valid call:
    std::string message;
    bool any_message = false;  // entries that are no integers: whatever they lead to
    std::optional<Created> created;
    std::optional<int64_t> number;
    std::map<std::string, int64_t> outputs;
    int copies = -1;                       // of operands, where they share entries with the output; -1: not counted
    std::vector<const char *> free_cells;  // addresses of entries that only must be residues afterwards
};

// The shadow holds the expected contents.
RandomCall draw_call(uint32_t seed, const Variation &variation, Shadow *shadow);

std::string describe(const RandomCall &call);

// Of the kinds whole, upper, uppernodiag, lower, lowernodiag.
bool in_triangle(int kind, int32_t i, int32_t j);

// Names that outputs are assigned to.
inline const char *const output_names[] = {"d", "e", "alias", "s", "t"};

// An entry as it is stored.
uint64_t stored(int32_t datatype, int64_t value);
uint64_t stored_at(int32_t datatype, const char *at);

}  // namespace modla_test
