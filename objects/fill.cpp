#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/subspec.h"
#include "modla.h"
#include "values/rand_fill.h"

using namespace modla;

namespace {

struct FillRequest {
    Block block;
    bool random;
    Scalar modulus, fill;
};

bool read_fill(const HostApi *api, const HostObject *args, FillRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n <= 1) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    request->random = false;
    const HostObject *fill = nullptr;
    int32_t next = 3;
    const HostObject second = args[2];
    if (!is_immediate(second) && (api->IsName(second) || api->IsRtable(second))) {
        request->random = second == api->ToName("random", 1);
        if (!request->random) next = 2;
    } else {
        if (!api->IsNumeric(second)) {
            return fail(api, "fill value must be an integral numeric value in the range 0..modulus-1");
        }
        fill = &args[2];
    }
    if (n < next) {
        return fail(api, "too few arguments, expected output object for argument %1", api->ToInteger(next));
    }
    int32_t position = next;
    if (!read_block(api, args, &position, n, BlockRequirement{}, &request->block)) return false;
    if (!check_no_more(api, args, position, n)) return false;
    return check_modulus(api, args[1], &request->modulus, request->block.datatype, fill, &request->fill, "fill", 0);
}

void call_random(const HostApi *api, const HostObject *args, const Block &block) {
    View view;
    if (!make_block_view(api, block, &view)) return;
    api->CallProcedure(modLA_getfcn(api, "cbRandMat"), 6, args[1], api->ToInteger(view.row_shift),
                       api->ToInteger(row_count(block)), api->ToInteger(view.column_shift),
                       api->ToInteger(column_count(block)), view.object);
}

}  // namespace

HostObject modLA_Fill(const HostApi *api, const HostObject *args) {
    FillRequest request;
    if (!read_fill(api, args, &request)) return api->NullValue();
    const Block &block = request.block;
    if (block.empty) return api->NullValue();
    if (!request.random) {
        fill_block(block, request.fill);
    } else if (block.datatype == MODLA_INTEGER) {
        call_random(api, args, block);
    } else {
        fill_randomly(api, block, request.modulus);
    }
    return api->NullValue();
}
