// Loading libmodla.so and offering its entry points to programs.
#pragma once

#include <string>

namespace modla::console {

// The library that belongs to this program: beside it, or where both are installed, or else its bare name.
std::string find_library();

// Loads the library, registers the callback dispatcher and defines a protected name for every entry point that the
// library has.  Throws HostError.
void load_library(const std::string &path);

// Unloads the library while no call of it runs; the next call of an entry point loads it again, as if it were new.
void unload_library();

// A symbol of the loaded library, or null.
void *library_symbol(const char *name);

}  // namespace modla::console
