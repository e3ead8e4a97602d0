// What help knows: the sections of docs/reference.md, which are part of the program.
#pragma once

#include <string>
#include <vector>

namespace modla::console {

struct ReferenceEntry {
    std::string name, call, summary;  // "size", "size(L)", what the first sentence says
    std::string text;                 // all of it
};

const std::vector<ReferenceEntry> &reference();

// The entry of a function, or null.
const ReferenceEntry *find_reference(const std::string &name);

// The messages of an entry point as its header lists them, nothing for other functions.
std::string messages_of(const std::string &name);

// A line for each function: how it is called and what it does.
std::string describe_functions();

// ", did you mean size?" when a function has nearly this name, or nothing.
std::string nearest_function(const std::string &name);

}  // namespace modla::console
