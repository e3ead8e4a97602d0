// The machine's products: C <- A*B, C + A*B or C - A*B mod p on strided operands.
//
// Entries are residues of 2 <= p <= 65535 in words or of 2 <= p < 2^25 in doubles, aligned to 4 bytes; steps count
// entries and may have any sign.  C overlaps neither A nor B.  The caller is in the standard floating-point mode.
//
// False: nothing was written, because this processor, this shape or the memory at hand leaves nothing to gain over a
// plain product, which the caller then makes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "residue/ring.h"

namespace modla {

enum class Update { store, add, subtract };

// The matrix whose entry (i, j) is data[i * row_step + j * column_step].
template <class Entry>
struct Strided {
    Entry *data;
    ptrdiff_t row_step, column_step;
};

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Strided<const uint32_t> A,
          Strided<const uint32_t> B, Strided<uint32_t> C);
bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Strided<const StoredDouble> A,
          Strided<const StoredDouble> B, Strided<StoredDouble> C);

}  // namespace modla
