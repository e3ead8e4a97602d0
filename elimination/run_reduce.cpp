#include "elimination/run_reduce.h"

#include "host/rtable.h"
#include "host/work_memory.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

NativeBlock modla::native_block(const MatrixArgument &matrix, Range rows, Range columns) {
    const bool c_order = matrix.order == MODLA_C_ORDER;
    const int64_t i = rows.first - 1, j = columns.first - 1;
    const int64_t offset = c_order ? i * matrix.columns + j : j * matrix.rows + i;
    return {entry_address(matrix.data, matrix.datatype, offset),
            range_length(rows),
            range_length(columns),
            c_order ? matrix.columns : matrix.rows,
            matrix.datatype,
            matrix.order};
}

namespace {

uint32_t run_words(const NativeBlock &block, uint32_t p, int32_t nred, int32_t mode, bool detonly, ReduceOutputs *out,
                   int32_t *pending, int32_t maxpending) {
    uint32_t *const A = static_cast<uint32_t *>(block.data);
    uint32_t det = 0, pivprod = 0;
    uint32_t *const det_cell = out->det_wanted ? &det : nullptr;
    uint32_t *const pivprod_cell = out->pivprod_wanted ? &pivprod : nullptr;
    int32_t *const rank_cell = out->rank_wanted ? &out->rank : nullptr;
    int32_t *const pivsig_cell = out->pivsig_wanted ? &out->pivsig : nullptr;
    int32_t *const extra_cell = out->extra_wanted ? &out->extra : nullptr;
    uint32_t status;
    if (pending) {
        const auto kernel = block.order == MODLA_C_ORDER ? modLA_reduce_C_iw_nop : modLA_reduce_F_iw_nop;
        status = kernel(A, block.rows, block.columns, nred, block.ld, p, 0, det_cell, pivprod_cell, rank_cell,
                        pivsig_cell, extra_cell, out->pivcols, mode, detonly, pending, maxpending);
    } else {
        const auto kernel = block.order == MODLA_C_ORDER ? modLA_reduce_C_iw : modLA_reduce_F_iw;
        status = kernel(A, block.rows, block.columns, nred, block.ld, p, 0, det_cell, pivprod_cell, rank_cell,
                        pivsig_cell, extra_cell, out->pivcols, mode, detonly);
    }
    out->det.word = static_cast<int32_t>(det);
    out->pivprod.word = static_cast<int32_t>(pivprod);
    return status;
}

uint32_t run_floats(const NativeBlock &block, double p, int32_t nred, int32_t mode, bool detonly, ReduceOutputs *out,
                    int32_t *pending, int32_t maxpending) {
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    const auto kernel = block.order == MODLA_C_ORDER ? modLA_reduce_C_f_nop : modLA_reduce_F_f_nop;
    return kernel(static_cast<double *>(block.data), block.rows, block.columns, nred, block.ld, p, pinv,
                  out->det_wanted ? &out->det.real : nullptr, out->pivprod_wanted ? &out->pivprod.real : nullptr,
                  out->rank_wanted ? &out->rank : nullptr, out->pivsig_wanted ? &out->pivsig : nullptr,
                  out->extra_wanted ? &out->extra : nullptr, out->pivcols, mode, detonly, pending, maxpending);
}

}  // namespace

bool modla::run_reduce(const HostApi *api, const NativeBlock &block, const Scalar &modulus, int32_t nred, int32_t mode,
                       bool detonly, ReduceOutputs *outputs, uint32_t *status) {
    const bool words = block.datatype == MODLA_INTEGER4;
    const uint32_t p = words ? static_cast<uint32_t>(modulus.word) : modulus_of(modulus.real);
    const int32_t maxpending = words ? delay_bound<WordRing>(p) : delay_bound<FloatRing>(p);
    const uint32_t counters = block.rows > 0 ? static_cast<uint32_t>(block.rows) : 0;
    const bool delayed = !words || maxpending > 1;
    int32_t *const pending = delayed ? allocate<int32_t>(api, counters) : nullptr;
    if (delayed && !pending && counters > 0) return false;
    *status = words ? run_words(block, p, nred, mode, detonly, outputs, pending, maxpending)
                    : run_floats(block, modulus.real, nred, mode, detonly, outputs, pending, maxpending);
    if (pending) api->Free(pending);
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

HostObject modla::residue_to_host(const HostApi *api, int32_t datatype, const Scalar &value) {
    return api->ToInteger(datatype == MODLA_FLOAT8 ? static_cast<int32_t>(value.real) : value.word);
}
