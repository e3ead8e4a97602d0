#include "host/object.h"
#include "host/raise.h"
#include "modla.h"

using namespace modla;

namespace {

// An indexed name base[...]: its index sequence, when the base is the given keyword; else 0.
HostObject index_sequence(const HostApi *api, HostObject object, const char *base) {
    if (!has_type(object, MODLA_TYPE_INDEXED_NAME)) return 0;
    if (object_words(object)[1] != api->ToName(base, 1)) return 0;
    const HostObject sequence = object_words(object)[2];
    return has_type(sequence, MODLA_TYPE_SEQUENCE) ? sequence : 0;
}

bool is_single_index(const HostApi *api, HostObject sequence, int32_t index) {
    return object_length(sequence) == 2 && object_words(sequence)[1] == api->ToInteger(index);
}

}  // namespace

int32_t process_datatype(const HostApi *api, HostObject object, int32_t mode, int32_t argno) {
    if (!is_immediate(object)) {
        if (api->IsName(object) && object == api->ToName("integer", 1)) return MODLA_INTEGER;
        const HostObject words = index_sequence(api, object, "integer");
        if (words && (object_length(words) == 1 || is_single_index(api, words, 4))) return MODLA_INTEGER4;
        const HostObject floats = index_sequence(api, object, "float");
        if (floats && is_single_index(api, floats, 8)) return MODLA_FLOAT8;
    }
    if (mode == 0 || mode == 1) {
        fail(api,
             mode == 1 ? "expected output object or datatype ('%1', 'float[8]', or 'integer'), for argument %2, got %3"
                       : "expected datatype ('%1', 'float[8]', or 'integer'), for argument %2, got %3",
             api->ParseString("integer[4]"), api->ToInteger(argno), object);
    }
    return -1;
}
