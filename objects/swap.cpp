#include "engine/move.h"
#include "host/arguments.h"
#include "host/native.h"
#include "host/subspec.h"
#include "modla.h"
#include "objects/triangle.h"

using namespace modla;

namespace {

struct SwapRequest {
    Triangle triangle;
    Block first, second;
};

bool read_swap(const HostApi *api, const HostObject *args, SwapRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n <= 2) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    request->triangle = triangle_keyword(api, args[2]);
    int32_t position = request->triangle == Triangle::whole ? 2 : 3;
    Block &first = request->first;
    if (!read_block(api, args, &position, n, {-1, -1, -1, true}, &first)) return false;
    if (position > n) return fail(api, "too few arguments");
    if (!read_block(api, args, &position, n, {first.datatype, first.rows, first.columns}, &request->second)) {
        return false;
    }
    if (!check_no_more(api, args, position, n)) return false;
    if (request->triangle != Triangle::whole && first.rows != first.columns) {
        return fail(api, "input must be a square Matrix for special swap types");
    }
    Scalar modulus;
    return check_modulus(api, args[1], &modulus, first.datatype);
}

// Is the second block the first one transposed, in place?  Its triangles then consist of disjoint pairs.
bool is_own_transpose(const SwapRequest &request) {
    const Block &a = request.first, &b = request.second;
    return request.triangle != Triangle::whole && a.data == b.data && a.row_step == b.column_step &&
           a.column_step == b.row_step;
}

}  // namespace

HostObject modLA_Swap(const HostApi *api, const HostObject *args) {
    SwapRequest request;
    if (!read_swap(api, args, &request)) return api->NullValue();
    const Block &a = request.first, &b = request.second;
    const Shape shape = {row_count(a), column_count(a), request.triangle};
    const bool order_matters = overlap(a, b) && !is_own_transpose(request);
    with_entry(a.datatype, {}, [&](auto entry) {
        using Entry = decltype(entry);
        swap_entries(shape, operand_of<Entry>(a), operand_of<Entry>(b), order_matters);
    });
    return api->NullValue();
}
