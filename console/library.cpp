#include "console/library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <limits>
#include <utility>

#include "console/callbacks.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/number.h"

namespace modla::console {

namespace {

std::string library_path;
void *library = nullptr;

constexpr std::array names = {"Create",      "Fill",     "Copy",      "Swap",     "Permute", "Mod",
                              "AddMult",     "Multiply", "RowReduce", "LUDecomp", "ForSub",  "BackSub",
                              "Determinant", "MatBasis", "MatGcd",    "ZigZag"};
EntryPoint entry_points[names.size()];

EntryPoint entry_point(const char *name) {
    return reinterpret_cast<EntryPoint>(library_symbol((std::string("modLA_") + name).c_str()));
}

// Maps a callback's name to the procedure that a program gave it, or to the console's own.
Object find_callback(const std::vector<Object> &arguments) {
    const Object procedure = arguments.size() == 1 ? evaluate(arguments[0]) : null_value();
    if (has_type(procedure, type_procedure)) return procedure;
    if (has_type(procedure, type_name) && procedure == arguments[0]) {
        if (const Object own = own_callback(text_of(procedure))) return own;
    }
    const bool named = arguments.size() == 1 && has_type(arguments[0], type_name);
    throw HostError("no procedure " + (named ? text_of(arguments[0]) : std::string("of this name")) +
                    " is defined for matrices of host integers");
}

// Loads the library, for the first time or again.
void load_entry_points() {
    library = dlopen(library_path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) throw HostError(dlerror());
    std::transform(names.begin(), names.end(), entry_points, entry_point);
    const EntryPoint enroll = entry_point("Register");
    if (!enroll) {
        unload_library();
        throw HostError(library_path + " is no modLA library");
    }
    // Kept: the library's own reference is not seen by the collector.
    static const Object dispatcher = keep(make_native("callbacks", find_callback));
    call_entry_point(enroll, {dispatcher});
}

}  // namespace

std::string find_library() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string program = length < 0 ? "" : std::string(path, static_cast<size_t>(length));
    const std::string directory = program.substr(0, program.rfind('/') + 1);
    for (const char *place : {"libmodla.so", MODLA_LIBRARY_PLACE "/libmodla.so.1"}) {
        if (access((directory + place).c_str(), R_OK) == 0) return directory + place;
    }
    return "libmodla.so.1";
}

void *library_symbol(const char *name) {
    return library ? dlsym(library, name) : nullptr;
}

void unload_library() {
    if (library) dlclose(std::exchange(library, nullptr));
}

void load_library(const std::string &path) {
    library_path = path;
    load_entry_points();
    for (size_t i = 0; i < names.size(); i++) {
        if (!entry_points[i]) continue;
        const Object procedure = make_native(names[i], [i](const std::vector<Object> &arguments) {
            if (!library) load_entry_points();
            return call_entry_point(entry_points[i], arguments, names[i]);
        });
        procedure_of(procedure)->is_entry_point = true;
        define_protected(names[i], procedure);
    }
    for (const char *word : {"true", "false", "integer", "float", "identity", "random", "C_order", "Fortran_order",
                             "transpose", "sparse", "upper", "uppernodiag", "lower", "lowernodiag"}) {
        define_protected(word, 0);
    }
    define_protected("I", complex_unit());
    define_protected("infinity", new_float(std::numeric_limits<double>::infinity()));
    define_protected("nan", new_float(std::numeric_limits<double>::quiet_NaN()));
}

}  // namespace modla::console
