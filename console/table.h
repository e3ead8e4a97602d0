// Tables as rows and columns of values.
#pragma once

#include <string>

#include "console/heap.h"

namespace modla::console {

// A column Vector is n x 1, a row Vector 1 x n.
int32_t table_rows(const Table &table);
int32_t table_columns(const Table &table);

// Entry i, j, counted from 1.  A stored value must suit the datatype: a 32-bit integer; a number; for host integers an
// integer or an exact expression, which has residues like an integer.
Object get_entry(const Table &table, int32_t i, int32_t j);
void set_entry(const Table &table, int32_t i, int32_t j, Object value);

// The same for an entry that a program makes: in integer[4] and float[8] the library takes every entry for a residue, so
// nothing else may come there.
void enter(const Table &table, int32_t i, int32_t j, Object value, const char *way_out = "write it mod p");

// An entry that is an integer in any datatype; a float entry must be integral.
Object get_entry_integer(const Table &table, int32_t i, int32_t j);

std::string integer_text(const Table &table, int32_t i, int32_t j);

// "3 x 4 Matrix, integer[4], C_order"
std::string describe_table(const Table &table);

// A new Matrix of zeros.
Object new_matrix(int32_t rows, int32_t columns, int32_t datatype, int32_t order);

// The settings of a new table.
RtableSettings default_settings();

}  // namespace modla::console
