#include "host/arguments.h"
#include "host/modulus.h"
#include "host/rtable.h"
#include "modla.h"
#include "residue/ring.h"

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

template <class Entry, class Value>
void fill_block(const Block &block, Value value) {
    fill_entries({row_count(block), column_count(block)}, static_cast<Entry *>(block.data), steps_of(block), value);
}

void fill_random(const HostApi *api, const HostObject *args, const FillRequest &request) {
    const Block &block = request.block;
    const int32_t rows = row_count(block), columns = column_count(block);
    if (block.datatype == MODLA_INTEGER4) {
        rand_fill_iw(api, rows, columns, static_cast<uint32_t *>(block.data), block.row_step, block.column_step,
                     static_cast<uint32_t>(request.modulus.word));
    } else if (block.datatype == MODLA_FLOAT8) {
        rand_fill_f(api, rows, columns, static_cast<double *>(block.data), block.row_step, block.column_step,
                    request.modulus.real);
    } else {
        View view;
        if (!make_block_view(api, block, &view)) return;
        api->CallProcedure(modLA_getfcn(api, "cbRandMat"), 6, args[1], api->ToInteger(view.row_shift),
                           api->ToInteger(rows), api->ToInteger(view.column_shift), api->ToInteger(columns),
                           view.object);
    }
}

}  // namespace

HostObject modLA_Fill(const HostApi *api, const HostObject *args) {
    FillRequest request;
    if (!read_fill(api, args, &request)) return api->NullValue();
    if (request.block.empty) return api->NullValue();
    if (request.random) {
        fill_random(api, args, request);
    } else if (request.block.datatype == MODLA_INTEGER4) {
        fill_block<uint32_t>(request.block, static_cast<uint32_t>(request.fill.word));
    } else if (request.block.datatype == MODLA_FLOAT8) {
        fill_block<StoredDouble>(request.block, request.fill.real);
    } else {
        fill_block<HostObject>(request.block, request.fill.object);
    }
    return api->NullValue();
}
