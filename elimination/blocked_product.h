// What blocked elimination makes of the products engine: products on any steps, and the solution of triangular systems
// by products.  Both are compiled once for each ring, in blocked_product.cpp.
#pragma once

#include <cstdint>
#include <type_traits>

#include "blocks/matrix.h"
#include "blocks/operand.h"
#include "engine/gemm.h"
#include "residue/ring.h"

namespace modla {

// How matrices are cut into blocks.  Every size gives the same results; the defaults were measured.
struct BlockSizes {
    int32_t least = 40;   // rows and columns from which on blocks pay
    int32_t leaf = 8;     // columns that are eliminated one by one
    int32_t panel = 64;   // columns that are eliminated in a copy, whose columns are contiguous
    int32_t solve = 32;   // rows of a triangular block that is inverted
    int32_t strip = 512;  // columns that are copied at a time
};

// Has the engine products of this ring?
template <class Ring>
constexpr bool has_engine = std::is_same_v<Ring, WordRing> || std::is_same_v<Ring, FloatRing>;

// Do blocks pay for a matrix of this size?  A kernel may be called with any modulus.
template <class Ring>
bool blocks_pay(const Ring &ring, const BlockSizes &sizes, int32_t rows, int32_t columns) {
    using Entry = typename Ring::Entry;
    constexpr bool doubles = std::is_same_v<Ring, FloatRing>;
    constexpr int32_t block = 64;  // as products of large matrices have
    constexpr Steps steps = {block, 1};
    return rows >= sizes.least && columns >= sizes.least && ring.p >= 2 && ring.p < (doubles ? 33554432 : 65536) &&
           gemm_serves(modulus_of(ring.p), block, block, block, Operand<const Entry>{nullptr, steps},
                       Operand<const Entry>{nullptr, steps}, Operand<Entry>{nullptr, steps});
}

template <class Entry, bool c_order>
Operand<Entry> operand(const Matrix<Entry, c_order> &A) {
    return {A.data, c_order ? Steps{A.ld, 1} : Steps{1, A.ld}};
}

template <class Entry>
Operand<const Entry> source(const Operand<Entry> &A) {
    return {A.data, A.steps};
}

// C -= A*B mod p, for residues; A is rows x depth.
template <class Ring, class Entry = typename Ring::Entry>
void subtract_product(const Ring &ring, int32_t rows, int32_t depth, int32_t columns, Operand<const Entry> A,
                      Operand<const Entry> B, Operand<Entry> C);

// A triangular matrix; a null pointer stands for ones on its diagonal, which is not read.
template <class Entry>
struct TriangularOperand {
    Operand<const Entry> T;
    bool lower;
    const Entry *inverses;  // of the diagonal entries

    TriangularOperand from(int32_t k) const { return {T.from(k, k), lower, inverses ? inverses + k : nullptr}; }
};

// Entries of work memory that solve_triangular needs.
inline int64_t solve_work(const BlockSizes &sizes) {
    return int64_t{sizes.solve} * (sizes.solve + sizes.strip);
}

// B := T^-1 * B for n rows and any number of columns.
template <class Ring, class Entry = typename Ring::Entry>
void solve_triangular(const Ring &ring, const BlockSizes &sizes, Entry *work, const TriangularOperand<Entry> &T,
                      int32_t n, Operand<Entry> B, int32_t columns);

}  // namespace modla
