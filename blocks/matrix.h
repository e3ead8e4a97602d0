// Matrices whose order is known at compile time, and their lines (rows or columns).
#pragma once

#include <cstddef>
#include <cstdint>

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

}  // namespace modla
