// Lines of a matrix (rows or columns) and the operations that elimination makes on them.
//
// All kernels share these operations, so that a faster one, or a fix, serves them all.  On big contiguous lines the
// loops vectorise: a unit step is a compile-time fact.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "engine/blas.h"
#include "residue/ring.h"

namespace modla {

struct UnitStep {
    constexpr operator ptrdiff_t() const { return 1; }
};

struct AnyStep {
    ptrdiff_t step;
    constexpr operator ptrdiff_t() const { return step; }
};

template <class EntryType, class Step>
struct Line {
    using Entry = EntryType;
    Entry *data;
    [[no_unique_address]] Step step;

    Entry &operator[](int32_t i) const { return data[i * static_cast<ptrdiff_t>(step)]; }
};

// A matrix in C_order (entry (i, j) at i*ld + j) or Fortran_order (at j*ld + i).
template <class EntryType, bool in_c_order>
struct Matrix {
    using Entry = EntryType;
    static constexpr bool c_order = in_c_order;
    Entry *data;
    ptrdiff_t ld;

    Entry &at(int32_t i, int32_t j) const { return c_order ? data[i * ld + j] : data[j * ld + i]; }
    // Row i from column j on, and column j from row i on.
    auto row(int32_t i, int32_t j) const { return line<c_order>(i, j); }
    auto column(int32_t j, int32_t i) const { return line<!c_order>(i, j); }

  private:
    template <bool unit>
    auto line(int32_t i, int32_t j) const {
        if constexpr (unit) {
            return Line<Entry, UnitStep>{&at(i, j), {}};
        } else {
            return Line<Entry, AnyStep>{&at(i, j), {ld}};
        }
    }
};

template <class AnyLine>
constexpr bool is_float_line = std::is_same_v<std::remove_const_t<typename AnyLine::Entry>, StoredDouble>;

// line[k] mod p, for entries that may be unreduced sums.
template <class Residue, class AnyLine>
void reduce_line(const Residue &residue, const AnyLine &line, int32_t count) {
    for (int32_t k = 0; k < count; k++) line[k] = residue.reduce(line[k]);
}

// Makes every entry of the leading rows x columns a residue, whatever the host left there.
template <class Residue, class M>
void canonicalize(const Residue &residue, const M &A, int32_t rows, int32_t columns) {
    const int32_t lines = M::c_order ? rows : columns, count = M::c_order ? columns : rows;
    for (int32_t i = 0; i < lines; i++) {
        typename M::Entry *const line = A.data + i * A.ld;
        for (int32_t k = 0; k < count; k++) {
            const typename Residue::Value x = line[k];
            if (!residue.is_canonical(x)) line[k] = residue.canonical(x);
        }
    }
}

// Are all entries residues?
template <class Residue, class AnyLine>
bool is_canonical_line(const Residue &residue, const AnyLine &line, int32_t count) {
    bool canonical = true;
    for (int32_t k = 0; k < count; k++) canonical &= residue.is_canonical(line[k]);
    return canonical;
}

// The sum of a[k] * b[k], unreduced.
template <class Residue, class LineA, class LineB>
typename Residue::Value sum_products(const Residue &, const LineA &a, const LineB &b, int32_t count) {
    if constexpr (is_float_line<LineB>) {
        if (suits_blas(a.data, a.step) && suits_blas(b.data, b.step)) {
            return cblas_ddot(count, &a.data->value, static_cast<int>(a.step), &b.data->value,
                              static_cast<int>(b.step));
        }
    }
    typename Residue::Value sum = 0;
    for (int32_t k = 0; k < count; k++) sum += a[k] * b[k];
    return sum;
}

// The sum of a[k] * b[k] mod p, for so few terms that products of residues cannot overflow.  b holds residues, a any
// entries.
template <class Residue, class LineA, class LineB>
typename Residue::Value dot_line(const Residue &residue, const LineA &a, const LineB &b, int32_t count) {
    if (is_canonical_line(residue, a, count)) return residue.reduce(sum_products(residue, a, b, count));
    typename Residue::Value sum = 0;
    for (int32_t k = 0; k < count; k++) sum = residue.multiply_add(residue.canonical(a[k]), b[k], sum);
    return sum;
}

// target[k] += f * source[k], unreduced.
template <class Residue, class Target, class Source>
void add_multiple(const Residue &, const Target &target, const Source &source, int32_t count,
                  typename Residue::Value f) {
    if constexpr (is_float_line<Target>) {
        if (suits_blas(target.data, target.step) && suits_blas(source.data, source.step)) {
            cblas_daxpy(count, f, &source.data->value, static_cast<int>(source.step), &target.data->value,
                        static_cast<int>(target.step));
            return;
        }
    }
    for (int32_t k = 0; k < count; k++) target[k] = target[k] + f * source[k];
}

// target[k] = (target[k] + f * source[k]) mod p; target may hold unreduced sums.
template <class Residue, class Target, class Source>
void add_multiple_reduced(const Residue &residue, const Target &target, const Source &source, int32_t count,
                          typename Residue::Value f) {
    for (int32_t k = 0; k < count; k++) target[k] = residue.multiply_add(f, source[k], target[k]);
}

template <class Residue, class AnyLine>
void scale_line(const Residue &residue, const AnyLine &line, int32_t count, typename Residue::Value f) {
    for (int32_t k = 0; k < count; k++) line[k] = residue.multiply(f, line[k]);
}

template <class AnyLine>
void swap_lines(const AnyLine &a, const AnyLine &b, int32_t count) {
    if constexpr (is_float_line<AnyLine>) {
        if (suits_blas(a.data, a.step) && suits_blas(b.data, b.step)) {
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
