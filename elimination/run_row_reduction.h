// Row reduction as RowReduce, Determinant and MatBasis need it: of a native Matrix, or through the callback.
#pragma once

#include "elimination/row_reduction.h"
#include "host/modulus.h"
#include "host/selection.h"
#include "modla.h"

namespace modla {

// Row-reduces a block of words or doubles, with work memory from the host.  det and pivprod, which may be null, are the
// task's other outputs.  False when the host had no memory.
bool run_row_reduction(const HostApi *api, const Block &block, const Scalar &modulus, RowReductionTask task,
                       int32_t *det, int32_t *pivprod, uint32_t *status);

// A call of "cbReduce", for matrices of host integers.  The outputs are names or the immediate integer 0.
struct ReduceCall {
    HostObject matrix;
    Range rows, columns;
    int32_t column_bound;  // the number of reducible columns, or the last column, plus 1
    HostObject modulus;
    HostObject det, pivprod, rank, pivsig, extra, pivcols;
    int32_t mode;
    bool detonly;
};
// Without outputs, in mode 0.
ReduceCall reduce_call(HostObject matrix, Range rows, Range columns, int32_t column_bound, HostObject modulus);

// Makes the call and returns its status.
uint32_t call_reduce(const HostApi *api, const ReduceCall &call);

}  // namespace modla
