// Products of doubles through CBLAS.
#pragma once

#include "products/classical.h"

namespace modla {

// C = A*B mod p in one CBLAS call and one pass of reductions, where the layout allows it and k products of residues
// stay exact; classically otherwise.
void multiply_with_blas(const Float &residue, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
                        Operand<const StoredDouble> B, Operand<StoredDouble> C, bool sparse);

}  // namespace modla
