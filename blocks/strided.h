// Walking over the entries of equally shaped blocks with steps of their own.
//
// A walk calls a body for runs of entries.  It puts the dimension with unit steps inside where it can, and works in
// tiles where the blocks disagree (one is read along its rows, another along its columns), so that both stay in cache.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace modla {

// Which entries of a block an operation touches; all but `whole` are of square blocks.
enum class Triangle { whole, upper, upper_without_diagonal, lower, lower_without_diagonal };

inline bool is_lower(Triangle t) {
    return t == Triangle::lower || t == Triangle::lower_without_diagonal;
}

// The same entries with rows and columns exchanged.
inline Triangle transposed(Triangle t) {
    using enum Triangle;
    constexpr Triangle exchanged[] = {whole, lower, lower_without_diagonal, upper, upper_without_diagonal};
    return exchanged[static_cast<int>(t)];
}

// The entries that a triangle leaves out.
inline Triangle complement(Triangle t) {
    using enum Triangle;
    constexpr Triangle rest[] = {upper, lower_without_diagonal, lower, upper_without_diagonal, upper};
    return rest[static_cast<int>(t)];
}

struct Shape {
    int32_t rows, columns;
    Triangle triangle = Triangle::whole;
};

struct Steps {
    ptrdiff_t row, column;
};

// The columns from..to-1 that a triangle holds of row i.
struct ColumnRun {
    int32_t from, to;
};
inline ColumnRun selected_columns(const Shape &shape, int32_t i) {
    switch (shape.triangle) {
        case Triangle::upper:
            return {i, shape.columns};
        case Triangle::upper_without_diagonal:
            return {i + 1, shape.columns};
        case Triangle::lower:
            return {0, i + 1};
        case Triangle::lower_without_diagonal:
            return {0, i};
        default:
            return {0, shape.columns};
    }
}

// Calls body(offsets, inner_steps, count, unit) for runs of entries: offsets[k] leads to the run's first entry in block
// k, inner_steps[k] to the next ones; unit is std::true_type when all of these steps are 1.  In row order the rows are
// walked from the first to the last, each from left to right; else the order is free.
template <size_t blocks, class Body>
void walk(Shape shape, std::array<Steps, blocks> steps, bool in_row_order, Body body) {
    constexpr int32_t tile = 32;
    const Steps &last = steps[blocks - 1];
    if (!in_row_order && last.column != 1 && last.row == 1) {
        std::swap(shape.rows, shape.columns);
        shape.triangle = transposed(shape.triangle);
        for (Steps &step : steps) std::swap(step.row, step.column);
    }
    std::array<ptrdiff_t, blocks> inner;
    bool unit = true;
    for (size_t k = 0; k < blocks; k++) {
        inner[k] = steps[k].column;
        unit = unit && inner[k] == 1;
    }
    const auto run = [&](int32_t i, int32_t from, int32_t to) {
        if (from >= to) return;
        std::array<ptrdiff_t, blocks> offsets;
        for (size_t k = 0; k < blocks; k++) offsets[k] = i * steps[k].row + from * steps[k].column;
        if (unit) {
            body(offsets, inner, to - from, std::true_type{});
        } else {
            body(offsets, inner, to - from, std::false_type{});
        }
    };
    if (unit || in_row_order || shape.rows == 1) {
        for (int32_t i = 0; i < shape.rows; i++) {
            const ColumnRun columns = selected_columns(shape, i);
            run(i, columns.from, columns.to);
        }
        return;
    }
    for (int32_t top = 0; top < shape.rows; top += tile) {
        for (int32_t left = 0; left < shape.columns; left += tile) {
            for (int32_t i = top; i < std::min(top + tile, shape.rows); i++) {
                const ColumnRun columns = selected_columns(shape, i);
                run(i, std::max(left, columns.from), std::min(left + tile, columns.to));
            }
        }
    }
}

}  // namespace modla
