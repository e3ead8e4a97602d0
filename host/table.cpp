#include "host/table.h"

#include <utility>

using namespace modla;

namespace {

// The entries of a block as lines of contiguous bytes, in the order of their addresses.
struct Lines {
    int64_t begin, length;  // of the first line
    int64_t step;           // from line to line
    int64_t count;
};

// A table's rows or its columns are contiguous, so a step is 1 wherever there are more than one row and one column.
Lines lines_of(const Block &block) {
    const int64_t rows = row_count(block), columns = column_count(block), size = entry_size(block.datatype);
    const int64_t begin = reinterpret_cast<uintptr_t>(block.data);
    if (block.column_step == 1) return {begin, columns * size, block.row_step * size, rows};
    if (block.row_step == 1) return {begin, rows * size, block.column_step * size, columns};
    if (columns == 1) return {begin, size, block.row_step * size, rows};
    return {begin, size, block.column_step * size, columns};
}

int64_t end_of(const Lines &lines) {
    return lines.begin + (lines.count - 1) * lines.step + lines.length;
}

}  // namespace

bool modla::overlap(const Block &a, const Block &b) {
    if (a.empty || b.empty) return false;
    Lines few = lines_of(a), many = lines_of(b);
    // Blocks of different tables, as a rule: the divisions below take longer than a small call.
    if (end_of(few) <= many.begin || end_of(many) <= few.begin) return false;
    if (few.count > many.count) std::swap(few, many);
    for (int64_t i = 0; i < few.count; i++) {
        const int64_t begin = few.begin + i * few.step;
        // The first line of the other block that ends behind it.
        const int64_t past = begin - many.begin - many.length;
        const int64_t k = past < 0 ? 0 : many.count == 1 ? 1 : past / many.step + 1;
        if (k < many.count && many.begin + k * many.step < begin + few.length) return true;
    }
    return false;
}

bool modla::coincide(const Block &a, const Block &b) {
    return a.data == b.data && (a.row_step == b.row_step || row_count(a) == 1) &&
           (a.column_step == b.column_step || column_count(a) == 1);
}
