// What the files of the engine tell each other about a product.  Plain data and no inline functions: files built for
// newer processors include it.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace modla {

// How residues are multiplied and summed.
enum class Route {
    bits,    // p = 2: blocks of 8 x 8 bits
    slices,  // p = 3: two bits of 512 entries side by side, four rows by a table
    bytes,   // p <= 256: bytes in 32-bit sums
    pairs,   // p <= 8191: 16-bit halves in 32-bit sums
    triple,  // p <= 65535: the sums modulo 2^32 by pairs and modulo 255 by bytes
    limbs,   // 2^16 < p <= 2^20, doubles: limbs of 8 and 12 bits, three products
    wide,    // 2^16 < p < 2^25, doubles: 52-bit products in 64-bit sums
    // With AVX2:
    pairs2,    // p <= 8191: as pairs
    balanced2  // p < 2^25: balanced residues in doubles
};
constexpr int route_count = 9;

// Makes residues of any entries, words or doubles.
using ReduceEntries = void(uint32_t p, void *entries, int32_t count);

struct GemmTask {
    uint32_t p;
    int update;  // an Update
    int32_t m, k, n;
    bool doubles;
    const void *A;
    ptrdiff_t a_row, a_column;
    const void *B;
    ptrdiff_t b_row, b_column;
    void *C;
    ptrdiff_t c_row, c_column;
    ReduceEntries *reduce;  // when A and B may hold other entries than residues; else null
};

// Can this processor multiply such entries by the route?
bool route_takes(Route route, uint32_t p, bool doubles);

// The product by one route, for comparisons; false where route_takes says no or there is no memory.
bool gemm_with(Route route, GemmTask task);

// Each multiplies with one set of instructions, which the caller has found to be usable, by a route that takes p and the
// entries.  False: there is no memory; nothing was written.
bool multiply_with_avx512(Route route, const GemmTask &task);
bool multiply_by_slices(const GemmTask &task);  // with AVX-512 and VNNI
bool multiply_with_avx2(Route route, const GemmTask &task);

// Memory for packed operands, to be given to free(); null when there is none.  Up to kept_packing_memory bytes are likely
// to come without fresh pages.
constexpr size_t kept_packing_memory = 480 << 10;
void *take_packing_memory(size_t bytes);

}  // namespace modla
