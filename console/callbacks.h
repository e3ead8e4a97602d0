// The procedures that the library calls for Matrices of host integers.
#pragma once

#include <string>
#include <vector>

#include "console/functions.h"

namespace modla::console {

// Gives every callback's name its procedure.  Programs may put their own in its place.
void define_callbacks();

// The console's own procedure of that name, or 0.
Object own_callback(const std::string &name);

// Whether moduli below 2^32 take machine words (the default) or the arithmetic of the larger ones.
void set_word_moduli(bool on);

// One callback.
struct CallbackDefinition {
    const char *name;
    size_t arguments;
    Object (*run)(const Arguments &arguments);
};

// The callbacks by what they do, each list with its own file.
std::vector<CallbackDefinition> elimination_callbacks();
std::vector<CallbackDefinition> product_callbacks();
std::vector<CallbackDefinition> entry_callbacks();

}  // namespace modla::console
