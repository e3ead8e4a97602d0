// Blocks of tables of host integers as arrays of residues, and back.
#pragma once

#include <vector>

#include "console/big_integer.h"
#include "console/heap.h"
#include "console/integer_residue.h"

namespace modla::console {

// Part of a table of host values, which the caller keeps from the collector.
struct IntegerBlock {
    Object *entries;  // the first
    ptrdiff_t row_step, column_step;
    int32_t rows, columns;

    Object &at(int32_t i, int32_t j) const { return entries[i * row_step + j * column_step]; }
};

inline IntegerBlock transposed(const IntegerBlock &block) {
    return {block.entries, block.column_step, block.row_step, block.columns, block.rows};
}

// Throws HostError for what is no table of host integers.
void check_table(Object x);

// The block of a table with so many rows and columns behind the first `row` and `column` ones; throws HostError when
// the table has no such block of host integers.
IntegerBlock integer_block(Object table, int32_t row, int32_t rows, int32_t column, int32_t columns);

using modla::reduce_digits;

// A host integer of more than one word, mod p; p itself stands for a negative multiple of p.
mpz_class reduce_digits(const BigResidue &residue, Object integer);

// Throws HostError for what is no integer.
void check_integer(Object x);

template <class Residue>
typename Residue::Value residue_of(const Residue &residue, Object x) {
    if (is_immediate(x)) return residue.of_immediate(immediate_value(x));
    check_integer(x);
    typename Residue::Value value = reduce_digits(residue, x);
    return value == residue.p ? typename Residue::Value(0) : value;
}

template <class Residue>
using Entries = std::vector<typename Residue::Entry>;

// Throws HostError when there is no memory for so many bytes; GMP and FLINT would end the program.
void check_memory(uint64_t bytes);

// The bytes of an entry with its sums.
inline uint64_t entry_bytes(const WordResidue &) {
    return sizeof(uint64_t);
}
inline uint64_t entry_bytes(const BigResidue &residue) {
    return sizeof(mpz_class) + 2 * sizeof(mp_limb_t) * (mpz_size(residue.p.get_mpz_t()) + 4);
}

// Room for the entries of a matrix; it has an address also when there are none.
template <class Residue>
Entries<Residue> entries_for(const Residue &residue, int32_t rows, int32_t columns) {
    const uint64_t count = static_cast<uint64_t>(rows) * static_cast<uint64_t>(columns);
    check_memory(count * entry_bytes(residue));
    Entries<Residue> entries;
    entries.reserve(static_cast<size_t>(count) + 1);
    return entries;
}

// The block's residues, row by row.  Nothing is written before all of them are known.
template <class Residue>
Entries<Residue> read_block(const Residue &residue, const IntegerBlock &block) {
    Entries<Residue> entries = entries_for(residue, block.rows, block.columns);
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) entries.push_back(residue_of(residue, block.at(i, j)));
    }
    return entries;
}

template <class Entry>
void write_block(const std::vector<Entry> &entries, const IntegerBlock &block) {
    auto entry = entries.begin();
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) block.at(i, j) = host_integer(*entry++);
    }
}

// Entries in rows as the kernels see them.
template <class Entry>
Matrix<Entry, true> matrix_of(std::vector<Entry> &entries, int32_t columns) {
    return {entries.data(), columns};
}

}  // namespace modla::console
