// One call of the row-reduction kernel that suits a datatype, an order and a modulus.
#pragma once

#include "host/arguments.h"
#include "host/modulus.h"
#include "modla.h"

namespace modla {

// A block of a native Matrix: its first entry, size and leading dimension.
struct NativeBlock {
    void *data;
    int32_t rows, columns, ld;
    int32_t datatype, order;
};
NativeBlock native_block(const MatrixArgument &matrix, Range rows, Range columns);

// Determinant and pivot product in the datatype's own representation.
struct ReduceOutputs {
    bool det_wanted, pivprod_wanted;
    Scalar det, pivprod;
    int32_t rank, pivsig, extra;
    bool rank_wanted, pivsig_wanted, extra_wanted;
    int32_t *pivcols;  // or null
};

// Runs the kernel with work memory from the host: its status, or false when the host had none.
bool run_reduce(const HostApi *api, const NativeBlock &block, const Scalar &modulus, int32_t nred, int32_t mode,
                bool detonly, ReduceOutputs *outputs, uint32_t *status);

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

// A determinant or pivot product as a host integer.
HostObject residue_to_host(const HostApi *api, int32_t datatype, const Scalar &value);

}  // namespace modla
