#include "engine/move.h"
#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/subspec.h"
#include "host/work_memory.h"
#include "modla.h"
#include "objects/triangle.h"

using namespace modla;

namespace {

struct CopyRequest {
    Triangle triangle;
    Block source, target;
    bool created;  // target is a new object
};

// The given output block, or a new object in the requested or the source's order.
bool read_target(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, CopyRequest *request) {
    const Block &source = request->source;
    request->created = !(*position <= n && !is_immediate(args[*position]) && api->IsRtable(args[*position]));
    if (!request->created) {
        return read_block(api, args, position, n, {source.datatype, source.rows, source.columns}, &request->target);
    }
    int32_t order = source.order;
    if (*position <= n) {
        if (!is_ordering(api, args[*position], &order)) {
            return fail(api, "expected output object or ordering for argument %1, got %2", api->ToInteger(*position),
                        args[*position]);
        }
        ++*position;
    }
    return new_block(api, source.rows, source.columns, source.datatype, order, &request->target);
}

bool read_copy(const HostApi *api, const HostObject *args, CopyRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n <= 1) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    request->triangle = triangle_keyword(api, args[2]);
    int32_t position = request->triangle == Triangle::whole ? 2 : 3;
    if (position > n) return fail(api, "too few arguments");
    if (!read_block(api, args, &position, n, {-1, -1, -1, true}, &request->source)) return false;
    if (!read_target(api, args, &position, n, request)) return false;
    if (!check_no_more(api, args, position, n)) return false;
    if (request->triangle != Triangle::whole && request->source.rows != request->source.columns) {
        return fail(api, "input must be a square Matrix for special copy types");
    }
    Scalar modulus;
    return check_modulus(api, args[1], &modulus, request->source.datatype);
}

template <class Entry>
void copy_block(const HostApi *api, const CopyRequest &request, Entry zero) {
    const Block &source = request.source, &target = request.target;
    const Shape shape = {row_count(source), column_count(source), request.triangle};
    const Operand<const Entry> from = operand_of<const Entry>(source);
    const Operand<Entry> to = operand_of<Entry>(target);
    if (request.created && (source.empty || shape.triangle != Triangle::whole)) {
        const Triangle rest = source.empty ? Triangle::whole : complement(shape.triangle);
        fill_entries({row_count(target), column_count(target), rest}, to, zero);
    }
    if (!overlap(source, target)) {
        copy_entries(shape, from, to);
    } else if (!coincide(source, target)) {
        const Operand<Entry> held = allocate_like<Entry>(api, source);
        if (!held.data) return;  // nothing was created: the target is given
        copy_entries(shape, from, held);
        copy_entries<Entry>(shape, held, to);
        api->Free(held.data);
    }
}

}  // namespace

HostObject modLA_Copy(const HostApi *api, const HostObject *args) {
    CopyRequest request;
    if (!read_copy(api, args, &request)) return api->NullValue();
    const int32_t datatype = request.source.datatype;
    with_entry(datatype, small_scalar(datatype, 0), [&](auto zero) { copy_block(api, request, zero); });
    return request.created ? request.target.object : api->NullValue();
}
