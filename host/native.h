// From a datatype code to typed arithmetic: the one place that knows which entries and which ring a datatype means.
#pragma once

#include <type_traits>

#include "blocks/matrix.h"
#include "host/modulus.h"
#include "host/object.h"
#include "host/table.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

namespace modla {

// A small integer in the form of a datatype.
inline Scalar small_scalar(int32_t datatype, int32_t value) {
    Scalar scalar;
    if (datatype == MODLA_FLOAT8) {
        scalar.real = value;
    } else {
        scalar.object = datatype == MODLA_INTEGER ? immediate_integer(value) : static_cast<uint32_t>(value);
    }
    return scalar;
}

// Runs body(entry) with a scalar as it is stored, for operations that only move entries.
template <class Body>
auto with_entry(int32_t datatype, const Scalar &scalar, Body body) {
    return datatype == MODLA_FLOAT8 ? body(StoredDouble{scalar.real}) : body(scalar.object);
}

// A residue as arithmetic takes it.
template <class Entry>
auto entry_of(const Scalar &scalar) {
    if constexpr (std::is_same_v<Entry, StoredDouble>) {
        return scalar.real;
    } else {
        return scalar.object;
    }
}

// Sets all entries of a block.
inline void fill_block(const Block &block, const Scalar &scalar) {
    with_entry(block.datatype, scalar,
               [&](auto entry) { fill_entries(shape_of(block), operand_of<decltype(entry)>(block), entry); });
}
inline void clear_block(const Block &block) {
    fill_block(block, small_scalar(block.datatype, 0));
}

// Runs body(ring) for words or doubles, in the host's own mode: the body may call the host.
template <class Body>
auto with_ring(int32_t datatype, const Scalar &modulus, Body body) {
    if (datatype == MODLA_INTEGER4) return body(word_ring(static_cast<uint32_t>(modulus.word)));
    return body(with_standard_mode([&] { return float_ring(modulus.real); }));
}

// Runs body(ring) in the standard mode: the body must not call the host.
template <class Body>
auto with_native(int32_t datatype, const Scalar &modulus, Body body) {
    return with_standard_mode([&] {
        if (datatype == MODLA_INTEGER4) return body(word_ring(static_cast<uint32_t>(modulus.word)));
        return body(float_ring(modulus.real));
    });
}

// The same for arithmetic on a Matrix in its own order: body(ring, matrix).
template <class Body>
auto with_native_matrix(const Block &block, const Scalar &modulus, Body body) {
    return with_native(block.datatype, modulus, [&](const auto &ring) {
        using Entry = typename std::decay_t<decltype(ring)>::Entry;
        Entry *const data = static_cast<Entry *>(block.data);
        if (block.order == MODLA_C_ORDER) return body(ring, Matrix<Entry, true>{data, block.row_step});
        return body(ring, Matrix<Entry, false>{data, block.column_step});
    });
}

// delay_bound of the ring that a datatype means.
inline int32_t delay_bound(int32_t datatype, const Scalar &modulus) {
    return datatype == MODLA_INTEGER4 ? delay_bound<WordRing>(static_cast<uint32_t>(modulus.word))
                                      : delay_bound<FloatRing>(modulus_of(modulus.real));
}

}  // namespace modla
