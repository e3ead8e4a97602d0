// Products of doubles through CBLAS.
#pragma once

#include "products/classical.h"

namespace modla {

// C = A*B mod p in one CBLAS call and one pass of reductions, where the layout allows it and k products of residues
// stay exact; classically otherwise.
void multiply_with_blas(const FloatRing &ring, const Product<StoredDouble> &product);

}  // namespace modla
