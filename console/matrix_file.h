// Matrices of exact numbers in text files: Matrix Market (array and coordinate) and SMS.
#pragma once

#include <gmpxx.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace modla::console {

struct MatrixEntry {
    int32_t row, column;  // counted from 1
    mpz_class value;
};

// rows and columns are at least 1, and rows * columns at most 2^31. The entries are sorted by row, then
// column; each place is there at most once and no value is 0: what is not listed is 0. Fractions, which only
// SMS files of type R have, are kept beside them, by row and column, and are to be added to the entries.
struct MatrixFile {
    int32_t rows, columns;
    std::vector<MatrixEntry> entries;
    std::map<std::pair<int32_t, int32_t>, mpq_class> fractions;
    std::string kind = {};  // of the file, as its header tells it
};

struct MatrixFileError : std::runtime_error {
    using runtime_error::runtime_error;
};

// Reads either format, told apart by the first line. Values that a coordinate file gives for one place are
// added, and symmetric files yield both triangles. Throws MatrixFileError "NAME:LINE: reason" when the file
// is malformed or its entries would take more than memory_limit bytes. Now and then progress is told the line.
constexpr size_t default_memory_limit = size_t{1} << 30;
MatrixFile read_matrix_file(std::istream &in, const std::string &name, size_t memory_limit = default_memory_limit,
                            const std::function<void(uint64_t line)> &progress = nullptr);

// The decimal text of the entry at (row, column), counted from 1. The writers may ask for an entry twice.
using EntryText = std::function<std::string(int32_t row, int32_t column)>;

// An array file when most entries are nonzero, else a coordinate file. SMS files of fractions have type R.
void write_matrix_market(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value);
void write_sms(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value);

}  // namespace modla::console
