#include "elimination/run_row_reduction.h"

#include <algorithm>

#include "host/native.h"
#include "host/work_memory.h"

using namespace modla;

bool modla::run_row_reduction(const HostApi *api, const Block &block, const Scalar &modulus, RowReductionTask task,
                              int32_t *det, int32_t *pivprod, uint32_t *status) {
    const int32_t bound = delay_bound(block.datatype, modulus);
    const uint32_t rows = static_cast<uint32_t>(std::max(task.nrows, 0));
    int32_t *const counters = bound > 1 ? allocate<int32_t>(api, rows) : nullptr;
    if (bound > 1 && !counters && rows > 0) return false;
    task.delayed = {counters, bound};
    *status = with_native_matrix(block, modulus, [&](const auto &ring, const auto &A) {
        typename std::decay_t<decltype(A)>::Entry det_entry{}, pivprod_entry{};
        const EchelonStatus result =
            row_reduce(RowReduction{task, ring, A, det ? &det_entry : nullptr, pivprod ? &pivprod_entry : nullptr});
        if (det) *det = static_cast<int32_t>(det_entry);
        if (pivprod) *pivprod = static_cast<int32_t>(pivprod_entry);
        return result;
    });
    if (counters) api->Free(counters);
    return true;
}

ReduceCall modla::reduce_call(HostObject matrix, Range rows, Range columns, int32_t column_bound, HostObject modulus) {
    const HostObject none = immediate_integer(0);
    return {matrix, rows, columns, column_bound, modulus, none, none, none, none, none, none, 0, false};
}

uint32_t modla::call_reduce(const HostApi *api, const ReduceCall &call) {
    const HostObject result = api->CallProcedure(
        modLA_getfcn(api, "cbReduce"), 15, call.matrix, api->ToInteger(call.rows.first), api->ToInteger(call.rows.last),
        api->ToInteger(call.columns.first), api->ToInteger(call.columns.last), api->ToInteger(call.column_bound),
        call.modulus, call.det, call.pivprod, call.rank, call.pivsig, call.extra, call.pivcols,
        api->ToInteger(call.mode), api->ToName(call.detonly ? "true" : "false", 1));
    return static_cast<uint32_t>(integer_value(result));
}
