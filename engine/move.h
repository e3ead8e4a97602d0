// Copying and exchanging entries, transposed ones in tiles of one cache line by one cache line.
//
// A tile goes through a small buffer, so that every line of either block is touched once; tiles are taken in larger
// squares whose pages the processor's translation buffers hold.
#pragma once

#include <emmintrin.h>

#include "blocks/operand.h"
#include "residue/ring.h"

namespace modla {

template <class Entry>
constexpr int32_t transpose_tile = 64 / static_cast<int32_t>(sizeof(Entry));

// buffer[j][i] = from[i*ld + j] for one tile.
inline void read_transposed(const uint32_t *from, ptrdiff_t ld, uint32_t (*buffer)[16]) {
    for (int32_t i = 0; i < 16; i += 4) {
        for (int32_t j = 0; j < 16; j += 4) {
            const auto row = [&](int32_t k) {
                return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + (i + k) * ld + j));
            };
            const auto put = [&](int32_t k, __m128i v) {
                _mm_storeu_si128(reinterpret_cast<__m128i *>(&buffer[j + k][i]), v);
            };
            const __m128i low01 = _mm_unpacklo_epi32(row(0), row(1)), high01 = _mm_unpackhi_epi32(row(0), row(1));
            const __m128i low23 = _mm_unpacklo_epi32(row(2), row(3)), high23 = _mm_unpackhi_epi32(row(2), row(3));
            put(0, _mm_unpacklo_epi64(low01, low23));
            put(1, _mm_unpackhi_epi64(low01, low23));
            put(2, _mm_unpacklo_epi64(high01, high23));
            put(3, _mm_unpackhi_epi64(high01, high23));
        }
    }
}

inline void read_transposed(const StoredDouble *from, ptrdiff_t ld, StoredDouble (*buffer)[8]) {
    for (int32_t i = 0; i < 8; i += 2) {
        for (int32_t j = 0; j < 8; j += 2) {
            const __m128i upper = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + i * ld + j));
            const __m128i lower = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + (i + 1) * ld + j));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(&buffer[j][i]), _mm_unpacklo_epi64(upper, lower));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(&buffer[j + 1][i]), _mm_unpackhi_epi64(upper, lower));
        }
    }
}

template <class Entry>
using TransposeBuffer = Entry[transpose_tile<Entry>][transpose_tile<Entry>];

// to[j*ld + i] = buffer[j][i] for one tile.
template <class Entry>
void write_tile(const TransposeBuffer<Entry> &buffer, Entry *to, ptrdiff_t ld) {
    for (int32_t j = 0; j < transpose_tile<Entry>; j++) {
        for (int32_t i = 0; i < transpose_tile<Entry>; i++) to[j * ld + i] = buffer[j][i];
    }
}

// The same past the caches, for blocks that do not fit into them: whole lines are written without being read first.
template <class Entry>
void stream_tile(const TransposeBuffer<Entry> &buffer, Entry *to, ptrdiff_t ld) {
    for (int32_t j = 0; j < transpose_tile<Entry>; j++) {
        const __m128i *const line = reinterpret_cast<const __m128i *>(buffer[j]);
        __m128i *const target = reinterpret_cast<__m128i *>(to + j * ld);
        for (int32_t k = 0; k < 4; k++) _mm_stream_si128(target + k, _mm_loadu_si128(line + k));
    }
}

// Starts loading a tile.  The distance, four tiles along a row, was measured.
template <class Entry>
constexpr ptrdiff_t prefetch_distance = 4 * transpose_tile<Entry>;
template <class Entry>
void prefetch_tile(const Entry *from, ptrdiff_t ld) {
    for (int32_t i = 0; i < transpose_tile<Entry>; i++) {
        _mm_prefetch(reinterpret_cast<const char *>(from + i * ld), _MM_HINT_T0);
    }
}

// Are the two blocks contiguous in different directions: a along its rows, b along its columns?
inline bool is_transposing(Steps a, Steps b) {
    return a.column == 1 && b.row == 1 && a.row != 1 && b.column != 1;
}

// Calls whole(i, j) for the tiles at row i, column j that the shape selects entirely and part(rows, columns, i, j) for
// the other tiles that it selects from.
template <class Entry, class Whole, class Part>
void walk_tiles(const Shape &shape, Whole whole, Part part) {
    constexpr int32_t tile = transpose_tile<Entry>, square = 8 * tile;
    const auto visit = [&](int32_t i, int32_t j) {
        const int32_t rows = std::min(tile, shape.rows - i), columns = std::min(tile, shape.columns - j);
        const ColumnRun first = selected_columns(shape, i), last = selected_columns(shape, i + rows - 1);
        const auto holds = [&](ColumnRun run) { return run.from <= j && run.to >= j + columns; };
        const bool lower = is_lower(shape.triangle);
        const ColumnRun widest = lower ? last : first;
        if (widest.from >= j + columns || widest.to <= j) return;
        if (rows == tile && columns == tile && holds(first) && holds(last)) {
            whole(i, j);
        } else {
            part(rows, columns, i, j);
        }
    };
    for (int32_t top = 0; top < shape.rows; top += square) {
        for (int32_t left = 0; left < shape.columns; left += square) {
            for (int32_t i = top; i < std::min(top + square, shape.rows); i += tile) {
                for (int32_t j = left; j < std::min(left + square, shape.columns); j += tile) visit(i, j);
            }
        }
    }
}

// The entries of a tile that the shape selects, as runs of columns relative to the tile.
template <class Body>
void walk_part(const Shape &shape, int32_t rows, int32_t columns, int32_t i, int32_t j, Body body) {
    for (int32_t r = 0; r < rows; r++) {
        const ColumnRun run = selected_columns(shape, i + r);
        for (int32_t c = std::max(0, run.from - j); c < std::min(columns, run.to - j); c++) body(i + r, j + c);
    }
}

// to[j*to_ld + i] = from[i*from_ld + j] for the selected (i, j).
template <class Entry>
void copy_transposed(const Shape &shape, const Entry *from, ptrdiff_t from_ld, Entry *to, ptrdiff_t to_ld) {
    const int64_t entries = int64_t{shape.rows} * shape.columns;
    const bool aligned = reinterpret_cast<uintptr_t>(to) % 64 == 0 && to_ld % transpose_tile<Entry> == 0;
    const bool stream = aligned && entries * static_cast<int64_t>(sizeof(Entry)) > (int64_t{4} << 20);
    walk_tiles<Entry>(
        shape,
        [=](int32_t i, int32_t j) {
            TransposeBuffer<Entry> buffer;
            const Entry *const tile = from + i * from_ld + j;
            prefetch_tile(tile + prefetch_distance<Entry>, from_ld);
            read_transposed(tile, from_ld, buffer);
            if (stream) {
                stream_tile(buffer, to + j * to_ld + i, to_ld);
            } else {
                write_tile(buffer, to + j * to_ld + i, to_ld);
            }
        },
        [=, &shape](int32_t rows, int32_t columns, int32_t top, int32_t left) {
            walk_part(shape, rows, columns, top, left,
                      [=](int32_t i, int32_t j) { to[j * to_ld + i] = from[i * from_ld + j]; });
        });
    if (stream) _mm_sfence();
}

// Exchanges b[j*b_ld + i] with a[i*a_ld + j] for the selected (i, j), which are disjoint pairs.
template <class Entry>
void swap_transposed(const Shape &shape, Entry *a, ptrdiff_t a_ld, Entry *b, ptrdiff_t b_ld) {
    walk_tiles<Entry>(
        shape,
        [=](int32_t i, int32_t j) {
            TransposeBuffer<Entry> from_a, from_b;
            Entry *const tile_a = a + i * a_ld + j;
            Entry *const tile_b = b + j * b_ld + i;
            prefetch_tile(tile_a + prefetch_distance<Entry>, a_ld);
            prefetch_tile(tile_b + prefetch_distance<Entry> * b_ld, b_ld);
            read_transposed(tile_a, a_ld, from_a);
            read_transposed(tile_b, b_ld, from_b);
            write_tile(from_a, tile_b, b_ld);
            write_tile(from_b, tile_a, a_ld);
        },
        [=, &shape](int32_t rows, int32_t columns, int32_t top, int32_t left) {
            walk_part(shape, rows, columns, top, left,
                      [=](int32_t i, int32_t j) { std::swap(a[i * a_ld + j], b[j * b_ld + i]); });
        });
}

// Copies the selected entries; the operands do not overlap.
template <class Entry>
void copy_entries(Shape shape, Operand<const Entry> from, Operand<Entry> to) {
    if (is_transposing(to.steps, from.steps)) {
        // Seen from the other side: rows are columns.
        shape = {shape.columns, shape.rows, transposed(shape.triangle)};
        copy_transposed(shape, from.data, from.steps.column, to.data, to.steps.row);
    } else if (is_transposing(from.steps, to.steps)) {
        copy_transposed(shape, from.data, from.steps.row, to.data, to.steps.column);
    } else {
        copy_walking(shape, from, to);
    }
}

// Exchanges the selected entries of two operands, in row order where that matters.
template <class Entry>
void swap_entries(Shape shape, Operand<Entry> a, Operand<Entry> b, bool in_row_order) {
    if (!in_row_order && is_transposing(b.steps, a.steps)) std::swap(a, b);
    if (!in_row_order && is_transposing(a.steps, b.steps)) {
        return swap_transposed(shape, a.data, a.steps.row, b.data, b.steps.column);
    }
    walk<2>(shape, {a.steps, b.steps}, in_row_order,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                Entry *const x = a.data + offsets[0];
                Entry *const y = b.data + offsets[1];
                for (int32_t k = 0; k < count; k++) std::swap(x[unit ? k : k * inner[0]], y[unit ? k : k * inner[1]]);
            });
}

}  // namespace modla
