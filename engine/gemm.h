// The machine's products: C <- A*B, C + A*B or C - A*B mod p on strided operands.
//
// Entries are residues of 2 <= p <= 65535 in words or of 2 <= p < 2^25 in doubles, aligned to 4 bytes; steps count
// entries and may have any sign.  C overlaps neither A nor B.  The caller is in the standard floating-point mode.
//
// With any_entries, A and B may hold entries that are no residues: they count as their residues.
//
// False: nothing was written, because this processor, this shape or the memory at hand leaves nothing to gain over a
// plain product, which the caller then makes.
#pragma once

#include <cstdint>

#include "blocks/operand.h"
#include "residue/ring.h"

namespace modla {

enum class Update { store, add, subtract };

// Would a product of this size be served, if there is memory?
bool gemm_serves(uint32_t p, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A, Operand<const uint32_t> B,
                 Operand<uint32_t> C);
bool gemm_serves(uint32_t p, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
                 Operand<const StoredDouble> B, Operand<StoredDouble> C);

bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const uint32_t> A,
          Operand<const uint32_t> B, Operand<uint32_t> C, bool any_entries = false);
bool gemm(uint32_t p, Update update, int32_t m, int32_t k, int32_t n, Operand<const StoredDouble> A,
          Operand<const StoredDouble> B, Operand<StoredDouble> C, bool any_entries = false);

}  // namespace modla
