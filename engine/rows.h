// The operations that elimination makes on lines of a matrix.
//
// All kernels share these operations, so that a faster one, or a fix, serves them all.  Words and doubles side by side
// take the best instructions of the processor, all other lines plain loops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "blocks/matrix.h"
#include "blocks/operand.h"
#include "engine/blas.h"
#include "engine/row_operations.h"
#include "residue/ring.h"

namespace modla {

template <class AnyLine>
constexpr bool is_float_line = std::is_same_v<std::remove_const_t<typename AnyLine::Entry>, StoredDouble>;

template <class AnyLine>
constexpr bool has_unit_step = std::is_same_v<decltype(AnyLine::step), UnitStep>;

// May there be row operations of the processor for these lines?
template <class Ring, class... AnyLine>
constexpr bool is_vectorised = (std::is_same_v<Ring, WordRing> || std::is_same_v<Ring, FloatRing>)&&((
    has_unit_step<AnyLine> && std::is_same_v<std::remove_const_t<typename AnyLine::Entry>, typename Ring::Entry>)&&...);

// Below it a loop on the spot is faster than a call, measured on 4 x 4 and 8 x 8 matrices.  The operations of elimination
// are always inlined for the same reason.
constexpr int32_t shortest_row = 8;

// The processor's operations, or none.
inline const auto *row_operations(const WordRing &, int32_t count) {
    const RowInstructions *const best = count < shortest_row ? nullptr : row_instructions();
    return best ? &best->words : nullptr;
}

inline const auto *row_operations(const FloatRing &, int32_t count) {
    const RowInstructions *const best = count < shortest_row ? nullptr : row_instructions();
    return best ? &best->doubles : nullptr;
}

inline const auto &vector_products(const WordRing &, const RowInstructions &rows) {
    return rows.word_vectors;
}

inline const auto &vector_products(const FloatRing &, const RowInstructions &rows) {
    return rows.double_vectors;
}

inline WordModulus row_modulus(const WordRing &ring) {
    return {ring.p, ring.reciprocal};
}

inline FloatModulus row_modulus(const FloatRing &ring) {
    return {ring.p, ring.pinv};
}

template <class AnyLine>
auto *raw(const AnyLine &line) {
    if constexpr (is_float_line<AnyLine>) {
        return &line.data->value;
    } else {
        return line.data;
    }
}

// CBLAS is for processors without operations of our own: legacy instructions are slow in a process that uses newer ones.
template <class AnyLine>
bool takes_blas(const AnyLine &line) {
    return !row_instructions() && suits_blas(line.data, line.step);
}

// line[k] mod p, for entries that may be unreduced sums.
template <class Ring, class AnyLine>
[[gnu::always_inline]] inline void reduce_line(const Ring &ring, const AnyLine &line, int32_t count) {
    if constexpr (is_vectorised<Ring, AnyLine>) {
        if (const auto *rows = row_operations(ring, count)) return rows->reduce(raw(line), count, row_modulus(ring));
    }
    for (int32_t k = 0; k < count; k++) line[k] = ring.reduce(line[k]);
}

// Are all entries residues?
template <class Ring, class AnyLine>
bool is_canonical_line(const Ring &ring, const AnyLine &line, int32_t count) {
    if constexpr (is_vectorised<Ring, AnyLine>) {
        if (const auto *rows = row_operations(ring, count))
            return rows->is_canonical(raw(line), count, row_modulus(ring));
    }
    bool canonical = true;
    for (int32_t k = 0; k < count; k++) canonical &= ring.is_canonical(line[k]);
    return canonical;
}

// Makes every entry of the leading rows x columns a residue, whatever the host left there.
template <class Ring, class M>
void canonicalize(const Ring &ring, const M &A, int32_t rows, int32_t columns) {
    const int32_t lines = M::c_order ? rows : columns, count = M::c_order ? columns : rows;
    for (int32_t i = 0; i < lines; i++) {
        const Line<typename M::Entry, UnitStep> line = {A.data + i * A.ld, {}};
        if constexpr (is_vectorised<Ring>) {
            if (is_canonical_line(ring, line, count)) continue;
        }
        for (int32_t k = 0; k < count; k++) {
            const typename Ring::Value x = line[k];
            if (!ring.is_canonical(x)) line[k] = ring.canonical(x);
        }
    }
}

// The sum of a[k] * b[k], unreduced.
template <class Ring, class LineA, class LineB>
typename Ring::Value sum_products(const Ring &, const LineA &a, const LineB &b, int32_t count) {
    if constexpr (is_float_line<LineB>) {
        if (takes_blas(a) && takes_blas(b)) {
            return cblas_ddot(count, &a.data->value, static_cast<int>(a.step), &b.data->value,
                              static_cast<int>(b.step));
        }
    }
    typename Ring::Value sum = 0;
    for (int32_t k = 0; k < count; k++) sum += a[k] * b[k];
    return sum;
}

// The sum of a[k] * b[k] mod p for residues, any number of them; `limit` products can be summed unreduced.
template <class Ring, class LineA, class LineB>
typename Ring::Value dot_residues(const Ring &ring, const LineA &a, const LineB &b, int32_t count, int32_t limit) {
    if constexpr (is_vectorised<Ring, LineA, LineB>) {
        if (const auto *rows = row_operations(ring, count)) return rows->dot(raw(a), raw(b), count, row_modulus(ring));
    }
    if (count <= limit) return ring.reduce(sum_products(ring, a, b, count));
    typename Ring::Value sum = 0;
    for (int32_t k = 0; k < count;) {
        // Residues that can be summed unreduced, so that the products need not wait for each other.
        for (const int32_t end = count - k > 128 ? k + 128 : count; k < end; k++) sum += ring.multiply(a[k], b[k]);
        sum = ring.reduce(sum);
    }
    return sum;
}

// target[k] += f * source[k], unreduced.
template <class Ring, class Target, class Source>
[[gnu::always_inline]] inline void add_multiple(const Ring &ring, const Target &target, const Source &source,
                                                int32_t count, typename Ring::Value f) {
    if constexpr (is_vectorised<Ring, Target, Source>) {
        if (const auto *rows = row_operations(ring, count))
            return rows->add_multiple(raw(target), raw(source), count, f);
    }
    if constexpr (is_float_line<Target>) {
        if (takes_blas(target) && takes_blas(source)) {
            cblas_daxpy(count, f, &source.data->value, static_cast<int>(source.step), &target.data->value,
                        static_cast<int>(target.step));
            return;
        }
    }
    for (int32_t k = 0; k < count; k++) target[k] = target[k] + f * source[k];
}

// target[k] = (target[k] + f * source[k]) mod p; target may hold unreduced sums.
template <class Ring, class Target, class Source>
[[gnu::always_inline]] inline void add_multiple_reduced(const Ring &ring, const Target &target, const Source &source,
                                                        int32_t count, typename Ring::Value f) {
    if constexpr (is_vectorised<Ring, Target, Source>) {
        if (const auto *rows = row_operations(ring, count)) {
            return rows->add_multiple_reduced(raw(target), raw(source), count, f, row_modulus(ring));
        }
    }
    for (int32_t k = 0; k < count; k++) target[k] = ring.multiply_add(f, source[k], target[k]);
}

template <class Ring, class AnyLine>
[[gnu::always_inline]] inline void scale_line(const Ring &ring, const AnyLine &line, int32_t count,
                                              typename Ring::Value f) {
    if constexpr (is_vectorised<Ring, AnyLine>) {
        if (const auto *rows = row_operations(ring, count)) return rows->scale(raw(line), count, f, row_modulus(ring));
    }
    for (int32_t k = 0; k < count; k++) line[k] = ring.multiply(f, line[k]);
}

// target[k] = (target[k] + f * source[k]) mod p; the sum of target[k] * b[k] mod p.  All are residues; `limit` products can
// be summed unreduced.
template <class Ring, class Target, class Source, class LineB>
typename Ring::Value add_multiple_and_dot(const Ring &ring, const Target &target, const Source &source, const LineB &b,
                                          int32_t count, typename Ring::Value f, int32_t limit) {
    if constexpr (is_vectorised<Ring, Target, Source, LineB>) {
        if (const auto *rows = row_operations(ring, count)) {
            return rows->add_multiple_and_dot(raw(target), raw(source), raw(b), count, f, row_modulus(ring));
        }
    }
    if (f != 0) add_multiple_reduced(ring, target, source, count, f);
    return dot_residues(ring, target, b, count, limit);
}

// target[k] = (target[k] + f * source[k]) mod p, then sum[k] += g * target[k], reduced if so wished.
template <class Ring, class Target, class Source, class Sum>
void add_multiple_and_gather(const Ring &ring, const Target &target, const Source &source, const Sum &sum,
                             int32_t count, typename Ring::Value f, typename Ring::Value g, bool reduced) {
    if constexpr (is_vectorised<Ring, Target, Source, Sum>) {
        if (const auto *rows = row_operations(ring, count)) {
            return rows->add_multiple_and_gather(raw(target), raw(source), raw(sum), count, f, g, reduced,
                                                 row_modulus(ring));
        }
    }
    if (f != 0) add_multiple_reduced(ring, target, source, count, f);
    if (reduced) {
        add_multiple_reduced(ring, sum, target, count, g);
    } else {
        add_multiple(ring, sum, target, count, g);
    }
}

// A word's residue in 16 bits, as signed integers want it.  It may stand where the word stood.
struct [[gnu::may_alias]] PackedWord {
    uint16_t biased;
    operator uint32_t() const { return biased ^ 0x8000u; }
    PackedWord &operator=(uint32_t x) {
        biased = static_cast<uint16_t>(x ^ 0x8000u);
        return *this;
    }
};

// Does the processor add two multiples of such a line at once?
template <class Ring, class AnyLine>
constexpr bool has_two_multiples = (std::is_same_v<Ring, WordRing> &&
                                    std::is_same_v<AnyLine, Line<PackedWord, UnitStep>>) ||
                                   (std::is_same_v<Ring, FloatRing> &&
                                    std::is_same_v<AnyLine, Line<StoredDouble, UnitStep>>);

// target[k] = (target[k] + f * source[k] + g * source[k-1]) mod p, for residues.
inline void add_two_multiples(const RowInstructions &rows, const WordRing &ring,
                              const Line<PackedWord, UnitStep> &target, const Line<PackedWord, UnitStep> &source,
                              int32_t count, uint32_t f, uint32_t g) {
    rows.add_two_packed_multiples(&target.data->biased, &source.data->biased, count, f, g, ring.p);
}

inline void add_two_multiples(const RowInstructions &rows, const FloatRing &ring,
                              const Line<StoredDouble, UnitStep> &target, const Line<StoredDouble, UnitStep> &source,
                              int32_t count, double f, double g) {
    rows.add_two_multiples(raw(target), raw(source), count, f, g, row_modulus(ring));
}

// Where the engine multiplies a matrix with a vector.
enum class VectorProduct { done, not_residues, not_served };

// y = A*x mod p for a column x; y overlaps neither.  Nothing is written unless it is done, which takes that all entries of
// A and x are residues: A is read once to see and to use them.
template <class Ring>
VectorProduct multiply_vector(const Ring &ring, int32_t m, int32_t k, Operand<const typename Ring::Entry> A,
                              Operand<const typename Ring::Entry> x, Operand<typename Ring::Entry> y) {
    using Entry = typename Ring::Entry;
    constexpr int32_t few = 512;
    const bool by_rows = A.steps.column == 1;
    if (modulus_of(ring.p) < 2 || (!by_rows && A.steps.row != 1)) return VectorProduct::not_served;
    const auto *const rows = row_operations(ring, by_rows ? k : m);
    if (!rows) return VectorProduct::not_served;
    const int64_t needed = int64_t{m} + k;
    Entry on_stack[few];
    Entry *memory = nullptr;
    if (needed > few) {
        if (needed > PTRDIFF_MAX / static_cast<int64_t>(sizeof(Entry))) return VectorProduct::not_served;
        memory = static_cast<Entry *>(std::malloc(static_cast<size_t>(needed) * sizeof(Entry)));
        if (!memory) return VectorProduct::not_served;
    }
    Entry *const result = memory ? memory : on_stack, *const factors = result + m;
    for (int32_t t = 0; t < k; t++) factors[t] = x.at(t, 0);
    bool exact = is_canonical_line(ring, Line<Entry, UnitStep>{factors, {}}, k);
    if (exact) {
        const auto &products = vector_products(ring, *row_instructions());
        const Line<const Entry, UnitStep> entries = {A.data, {}};
        const auto multiply = by_rows ? products.by_rows : products.by_columns;
        const ptrdiff_t step = by_rows ? A.steps.row : A.steps.column;
        exact = multiply(m, k, raw(entries), step, raw(Line<Entry, UnitStep>{factors, {}}),
                         raw(Line<Entry, UnitStep>{result, {}}), row_modulus(ring));
    }
    for (int32_t i = 0; exact && i < m; i++) y.at(i, 0) = result[i];
    std::free(memory);
    return exact ? VectorProduct::done : VectorProduct::not_residues;
}

template <class AnyLine>
void swap_lines(const AnyLine &a, const AnyLine &b, int32_t count) {
    using Entry = typename AnyLine::Entry;
    if constexpr (has_unit_step<AnyLine> && (std::is_same_v<Entry, uint32_t> || std::is_same_v<Entry, StoredDouble>)) {
        constexpr int32_t words = std::is_same_v<Entry, uint32_t> ? 1 : 2;
        const RowInstructions *const best = count < shortest_row ? nullptr : row_instructions();
        if (best) {
            return best->swap(reinterpret_cast<uint32_t *>(a.data), reinterpret_cast<uint32_t *>(b.data),
                              words * count);
        }
    }
    if constexpr (is_float_line<AnyLine>) {
        if (takes_blas(a) && takes_blas(b)) {
            cblas_dswap(count, &a.data->value, static_cast<int>(a.step), &b.data->value, static_cast<int>(b.step));
            return;
        }
    }
    for (int32_t k = 0; k < count; k++) {
        const typename AnyLine::Entry entry = a[k];
        a[k] = b[k];
        b[k] = entry;
    }
}

}  // namespace modla
