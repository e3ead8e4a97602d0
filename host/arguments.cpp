#include "host/arguments.h"

#include <cstdio>

using namespace modla;

bool modla::fail_argument(const HostApi *api, int32_t argno, const char *text) {
    char message[200];
    std::snprintf(message, sizeof message, "argument %d %s", static_cast<int>(argno), text);
    return fail(api, message);
}

bool modla::check_modulus_argument(const HostApi *api, const HostObject *args) {
    return api->IsInteger(args[1]) || fail(api, "argument 1, the modulus, must be an integer");
}

bool modla::check_no_more(const HostApi *api, const HostObject *args, int32_t position, int32_t n) {
    if (position > n) return true;
    return fail(api, "too many arguments, starting at argument %1, %2", api->ToInteger(position), args[position]);
}

bool modla::is_ordering(const HostApi *api, HostObject argument, int32_t *order) {
    const bool c_order = is_keyword(api, argument, "C_order");
    if (!c_order && !is_keyword(api, argument, "Fortran_order")) return false;
    *order = c_order ? MODLA_C_ORDER : MODLA_FORTRAN_ORDER;
    return true;
}

bool modla::read_ordering(const HostApi *api, const HostObject *args, int32_t position, int32_t *order) {
    return is_ordering(api, args[position], order) ||
           fail(api, "expected ordering for argument %1, got %2", api->ToInteger(position), args[position]);
}

bool modla::read_boolean(const HostApi *api, const HostObject *args, int32_t position, int32_t *value) {
    const HostObject argument = args[position];
    if (!is_keyword(api, argument, "true") && !is_keyword(api, argument, "false")) {
        return fail_argument(api, position, "must be 'true' or 'false'");
    }
    *value = api->ToInt(argument);
    return true;
}

bool modla::read_output(const HostApi *api, const HostObject *args, int32_t position, Output *output) {
    const HostObject argument = args[position];
    *output = {0, immediate_integer(0)};
    if (argument == immediate_integer(0)) return true;
    if (is_immediate(argument) || !api->IsName(argument)) {
        return fail_argument(api, position, "must be a name or the value 0");
    }
    *output = {argument, api->CheckName(argument) ? api->NameTarget(argument) : argument};
    return true;
}

bool modla::check_rtable(const HostApi *api, const HostObject *args, int32_t position, const char *role) {
    if (!is_immediate(args[position]) && api->IsRtable(args[position])) return true;
    char message[200];
    std::snprintf(message, sizeof message, "argument %d, the %s, must be an rtable", static_cast<int>(position), role);
    return fail(api, message);
}

bool modla::read_settings(const HostApi *api, const HostObject *args, int32_t position, RtableSettings *settings) {
    api->RtableGetSettings(settings, args[position]);
    if (!is_datatype(settings->datatype)) return fail_argument(api, position, "has invalid datatype");
    return settings->storage == MODLA_RECTANGULAR || fail_argument(api, position, "has invalid storage");
}

bool modla::read_matrix(const HostApi *api, const HostObject *args, int32_t position, const char *role, Block *matrix) {
    RtableSettings settings;
    if (!check_rtable(api, args, position, role) || !read_settings(api, args, position, &settings)) return false;
    if (settings.subtype != MODLA_MATRIX) return fail_argument(api, position, "must be a Matrix");
    *matrix = matrix_block(api, args[position], settings);
    return true;
}

bool modla::read_permutation(const HostApi *api, const HostObject *args, int32_t position, Permutation *permutation) {
    RtableSettings settings;
    api->RtableGetSettings(&settings, args[position]);
    if (settings.datatype != MODLA_INTEGER4 && settings.datatype != MODLA_INTEGER) {
        return fail_argument(api, position, "must have integer datatype");
    }
    if (settings.storage != MODLA_RECTANGULAR) return fail_argument(api, position, "has invalid storage");
    if (settings.subtype != MODLA_COLUMN_VECTOR && settings.subtype != MODLA_ROW_VECTOR) {
        return fail_argument(api, position, "must be a Vector");
    }
    permutation->entries = static_cast<int32_t *>(api->RtableData(args[position]));
    permutation->host_integers = settings.datatype == MODLA_INTEGER;
    permutation->length = api->RtableUpperBound(args[position], 1);
    return true;
}
