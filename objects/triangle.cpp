#include "objects/triangle.h"

#include "host/arguments.h"

using namespace modla;

Triangle modla::triangle_keyword(const HostApi *api, HostObject argument) {
    if (is_immediate(argument) || !api->IsName(argument)) return Triangle::whole;
    if (argument == api->ToName("upper", 1)) return Triangle::upper;
    if (argument == api->ToName("uppernodiag", 1)) return Triangle::upper_without_diagonal;
    if (argument == api->ToName("lower", 1)) return Triangle::lower;
    if (argument == api->ToName("lowernodiag", 1)) return Triangle::lower_without_diagonal;
    return Triangle::whole;
}
