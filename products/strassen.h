// Strassen's recursion in Winograd's form: 7 products and 15 sums of half the size (Winograd, 1971), over strided
// operands and one workspace; odd sizes by dynamic peeling (Huss-Lederman et al., 1996).
//
// Exactness: every operand of every product holds residues 0..p-1.  The given ones do; the differences formed here are
// taken into 0..p-1 (unlike the exported block subtraction, which leaves p for 0 and would let products reach p^2); sums
// of residues are brought below p.  So a base product adds at most L products of at most (p-1)^2 to a residue before it
// reduces, and p-1 + L*(p-1)^2 is below 2^32 (words) or 2^53 (floats) by the definition of L.
#pragma once

#include "products/product.h"
#include "residue/ring.h"

namespace modla {

// Down to sizes of at most the threshold, then classically.
void multiply_by_strassen(const WordRing &ring, const Product<uint32_t> &product, uint32_t *workspace,
                          int32_t threshold);

// With blas_base until k <= L, then by CBLAS; else as long as a level pays, then classically.
void multiply_by_strassen(const FloatRing &ring, const Product<StoredDouble> &product, StoredDouble *workspace,
                          int32_t L, bool blas_base);

}  // namespace modla
