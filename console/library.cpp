#include "console/library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <limits>

#include "console/callbacks.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/number.h"

namespace modla::console {

namespace {

void *library = nullptr;

constexpr std::array entry_points = {"Create",      "Fill",     "Copy",      "Swap",     "Permute", "Mod",
                                     "AddMult",     "Multiply", "RowReduce", "LUDecomp", "ForSub",  "BackSub",
                                     "Determinant", "MatBasis", "MatGcd",    "ZigZag"};

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

void load_library(const std::string &path) {
    library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) throw HostError(dlerror());
    for (const char *name : entry_points) {
        const auto entry = reinterpret_cast<EntryPoint>(library_symbol((std::string("modLA_") + name).c_str()));
        if (!entry) continue;
        const auto call = [entry, name](const std::vector<Object> &arguments) {
            return call_entry_point(entry, arguments, name);
        };
        const Object procedure = make_native(name, call);
        procedure_of(procedure)->is_entry_point = true;
        define_protected(name, procedure);
    }
    const auto enroll = reinterpret_cast<EntryPoint>(library_symbol("modLA_Register"));
    if (!enroll) throw HostError(path + " is no modLA library");
    const Object dispatcher = make_native("callbacks", find_callback);
    keep(dispatcher);  // the library's own reference is not seen by the collector
    call_entry_point(enroll, {dispatcher});
    for (const char *word : {"true", "false", "integer", "float", "identity", "random", "C_order", "Fortran_order",
                             "transpose", "sparse", "upper", "uppernodiag", "lower", "lowernodiag"}) {
        define_protected(word, 0);
    }
    define_protected("I", complex_unit());
    define_protected("infinity", new_float(std::numeric_limits<double>::infinity()));
    define_protected("nan", new_float(std::numeric_limits<double>::quiet_NaN()));
}

}  // namespace modla::console
