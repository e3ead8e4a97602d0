// Row operations on doubles through CBLAS.
//
// CBLAS takes for granted that doubles are aligned to their size; storage of a host may be aligned to 4 bytes only.  And
// it takes a negative step for one that starts at the line's other end; here lines start at their first entry.  Callers
// ask suits_blas first and use a plain loop otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {  // not every cblas.h says so
#include <cblas.h>
}

namespace modla {

inline bool is_blas_aligned(const void *data) {
    return reinterpret_cast<uintptr_t>(data) % sizeof(double) == 0;
}

// May CBLAS be handed a line from here on, of entries so many doubles apart?
inline bool suits_blas(const void *data, ptrdiff_t step) {
    return is_blas_aligned(data) && step > 0;
}

// Is there memory for the workspace that products of a matrix take?  OpenBLAS tries for ever when there is none.
// Callers multiply with plain loops when there is none.
bool has_blas_workspace();

}  // namespace modla
