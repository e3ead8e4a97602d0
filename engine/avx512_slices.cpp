// Products modulo 3 by bit slices, with AVX-512 and VNNI.
//
// A residue is two bits: is it nonzero, and is it 2.  512 residues are two vectors of these, whose sum takes three
// instructions.  Rows of B are taken four at a time: all 81 of their combinations are tabulated, so that a row of C grows
// by four products at each lookup (Arlazarov, Dinic, Kronrod and Faradzev 1970; modulo 3: Boothby and Bradshaw 2009).  A
// group is 16 rows of B, whose four tables are used together; the lookups of an octet of rows of A in a group are a line
// of the cache.
//
// As in the other files of one instruction set, everything has internal linkage.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "engine/gemm_task.h"

namespace modla {
namespace {

#include "engine/avx512_entries.inc"
#include "engine/packing.inc"

constexpr int32_t panel_columns = 512, slice_bytes = 64, row_bytes = 2 * slice_bytes;
constexpr int32_t table_rows = 4, combinations = 81;  // of the rows of a table
constexpr int32_t tables = 4;                         // that stay in the first-level cache together
constexpr int32_t group_rows = tables * table_rows;
constexpr int32_t table_bytes = combinations * row_bytes, all_tables_bytes = tables * table_bytes;
constexpr int32_t octet_rows = 8;    // of A, whose lookups in a group fill a line of the cache
constexpr int32_t most_rows = 2048;  // of C, which stay in the second-level cache

struct Slices {
    __m512i nonzero, two;
};

Slices load(const char *row) {
    return {_mm512_load_si512(row), _mm512_load_si512(row + slice_bytes)};
}
void store(char *row, Slices x) {
    _mm512_store_si512(row, x.nonzero);
    _mm512_store_si512(row + slice_bytes, x.two);
}

// With t = (a is 2) xor (b is 1): a sum is nonzero where only one of a and b is, or where both are and t holds; it is 2
// where t holds of a nonzero a and a b that is not 2, or does not hold of a zero a and a b that is 2.  (The constants are
// tables of functions of three bits, by 4 times the first, 2 times the second and the third.)
Slices sum(Slices a, Slices b) {
    const __m512i t = _mm512_ternarylogic_epi32(a.two, b.nonzero, b.two, 0x96);
    return {_mm512_ternarylogic_epi32(a.nonzero, b.nonzero, t, 0xbc),
            _mm512_ternarylogic_epi32(a.nonzero, b.two, t, 0x24)};
}

// Combination x0 + 3 x1 + 9 x2 + 27 x3 of four rows.
void tabulate(const char *rows, char *table) {
    store(table, {_mm512_setzero_si512(), _mm512_setzero_si512()});
    for (int32_t known = 1; known < combinations; known *= 3, rows += row_bytes) {
        const Slices row = load(rows);
        for (int32_t i = 0; i < 2 * known; i++) {
            store(table + (known + i) * row_bytes, sum(load(table + i * row_bytes), row));
        }
    }
}

// A run of residues: the entries themselves, or a copy with those reduced that were no residues.
template <class Storage, int32_t most>
struct Run {
    const typename Storage::Entry *entries;
    bool copied;
    typename Storage::Entry copy[most];

    Run(const GemmTask &task, const typename Storage::Entry *e, ptrdiff_t step, int32_t count) : entries(e) {
        copied = task.reduce && !Storage::are_residues(e, step, count, task.p);
        if (!copied) return;
        for (int32_t i = 0; i < count; i++) copy[i] = e[i * step];
        task.reduce(task.p, copy, count);
        entries = copy;
    }
    // Up to 16 of them as 32-bit integers, 0 for those that are not there.
    __m512i load(ptrdiff_t step, int32_t i, int32_t count) const {
        if (i >= count) return _mm512_setzero_si512();
        const __mmask16 some = first(count - i);
        return copied ? Storage::Unit::load(entries + i, 1, some) : Storage::load(entries + i * step, step, some);
    }
};

// Row by row, and the panels of a row beside each other: `pitch` bytes from panel to panel.
template <class Storage>
void pack_panels(const GemmTask &task, const typename Storage::Entry *B, int32_t k, int32_t columns, char *packed,
                 size_t pitch) {
    for (int32_t i = 0; i < rounded_up(k, group_rows); i++) {
        for (int32_t left = 0; left < columns; left += panel_columns) {
            char *const to = packed + static_cast<size_t>(left / panel_columns) * pitch + i * row_bytes;
            if (i >= k) {
                store(to, {_mm512_setzero_si512(), _mm512_setzero_si512()});
                continue;
            }
            const int32_t count = smaller(columns - left, panel_columns);
            const Run<Storage, panel_columns> run(task, B + i * task.b_row + left * task.b_column, task.b_column,
                                                  count);
            for (int32_t j = 0; j < panel_columns; j += 16) {
                const __m512i x = run.load(task.b_column, j, count);
                const __mmask16 nonzero = _mm512_test_epi32_mask(x, x);
                const __mmask16 two = _mm512_test_epi32_mask(x, _mm512_set1_epi32(2));
                __builtin_memcpy(to + j / 8, &nonzero, 2);
                __builtin_memcpy(to + slice_bytes + j / 8, &two, 2);
            }
        }
    }
}

// What rows of A look up: for each octet of rows, each group of B's rows and each row in turn the places of four
// combinations.  `pitch` counts lookups from octet to octet.
template <class Storage>
void pack_lookups(const GemmTask &task, const typename Storage::Entry *A, int32_t rows, int32_t k, uint16_t *packed,
                  size_t pitch) {
    constexpr int32_t width = 64;
    const __m512i weights = _mm512_set1_epi32(0x1b090301);  // bytes 1, 3, 9, 27
    alignas(64) int32_t first_places[16];
    for (int32_t i = 0; i < 16; i++) first_places[i] = i % tables * table_bytes;
    const __m512i of_tables = _mm512_load_si512(first_places);
    for (int32_t top = 0; top < rows; top += octet_rows) {
        for (int32_t left = 0; left < k; left += width) {
            const int32_t count = smaller(k - left, width);
            for (int32_t i = 0; i < octet_rows; i++) {
                uint16_t *const to = packed + static_cast<size_t>(top / octet_rows) * pitch +
                                     left / group_rows * octet_rows * tables + i * tables;
                __m512i places = of_tables;
                if (top + i < rows) {
                    const Run<Storage, width> run(task, A + (top + i) * task.a_row + left * task.a_column,
                                                  task.a_column, count);
                    const auto bytes = [&](int32_t j) {
                        return _mm512_cvtepi32_epi8(run.load(task.a_column, j, count));
                    };
                    const __m256i low = _mm256_inserti128_si256(_mm256_castsi128_si256(bytes(0)), bytes(16), 1);
                    const __m256i high = _mm256_inserti128_si256(_mm256_castsi128_si256(bytes(32)), bytes(48), 1);
                    const __m512i digits = _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
                    const __m512i index = _mm512_dpbusd_epi32(_mm512_setzero_si512(), digits, weights);
                    places = _mm512_add_epi32(of_tables, _mm512_mullo_epi32(index, _mm512_set1_epi32(row_bytes)));
                }
                alignas(32) uint16_t lookups[16];
                _mm256_store_si256(reinterpret_cast<__m256i *>(lookups), _mm512_cvtepi32_epi16(places));
                for (int32_t group = 0; group < width / group_rows && left + group * group_rows < k; group++) {
                    __builtin_memcpy(to + group * octet_rows * tables, lookups + group * tables, 2 * tables);
                }
            }
        }
    }
}

// Adds what a group of rows of B contributes to octets of rows of C.
void add_lookups(const char *table, const uint16_t *lookups, size_t pitch, int32_t octets, char *C) {
    for (; octets > 0; octets--, lookups += pitch) {
        for (int32_t i = 0; i < octet_rows * tables; i += tables, C += row_bytes) {
            Slices c = load(C);
            for (int32_t t = 0; t < tables; t++) c = sum(c, load(table + lookups[i + t]));
            store(C, c);
        }
    }
}

template <class Storage>
void unpack(const char *packed, typename Storage::Entry *C, ptrdiff_t row_step, ptrdiff_t step, int32_t rows,
            int32_t columns, int update) {
    const __m512i one = _mm512_set1_epi32(1), p = _mm512_set1_epi32(3);
    for (int32_t i = 0; i < rows; i++, C += row_step, packed += row_bytes) {
        for (int32_t j = 0; j < columns; j += 16) {
            __mmask16 nonzero, two;
            __builtin_memcpy(&nonzero, packed + j / 8, 2);
            __builtin_memcpy(&two, packed + slice_bytes + j / 8, 2);
            __m512i r = _mm512_maskz_mov_epi32(nonzero, one);
            r = _mm512_mask_add_epi32(r, two, one, one);
            const __mmask16 some = first(columns - j);
            typename Storage::Entry *const to = C + j * step;
            if (update) r = updated(Storage::load(to, step, some), r, p, update);
            Storage::store(to, step, some, r);
        }
    }
}

template <class Storage>
bool product(const GemmTask &task) {
    using Entry = typename Storage::Entry;
    const int32_t k = smaller(task.k, longest_sum), rows = smaller(task.m, most_rows);
    const int32_t padded = rounded_up(k, group_rows), padded_rows = rounded_up(rows, octet_rows);
    // Lookups of an octet for each group, and a line more: multiples of 4 KB would meet in few sets of the cache.
    const size_t lookup_pitch = static_cast<size_t>(padded / group_rows + 1) * octet_rows * tables;
    const size_t panel_pitch = static_cast<size_t>(padded) * row_bytes;
    const int32_t most_panels = static_cast<int32_t>(largest_panels / panel_pitch);
    const int32_t panels = smaller(rounded_up(task.n, panel_columns) / panel_columns, most_panels);
    const size_t bytes_of_panels = static_cast<size_t>(panels) * panel_pitch;
    const size_t bytes_of_lookups = static_cast<size_t>(padded_rows / octet_rows) * lookup_pitch * sizeof(uint16_t);
    const size_t bytes_of_rows = static_cast<size_t>(padded_rows) * row_bytes;
    void *const memory =
        take_packing_memory(bytes_of_panels + bytes_of_lookups + bytes_of_rows + all_tables_bytes + 64);
    if (!memory) return false;
    char *rest = aligned_to_line(memory);
    char *const table = take(&rest, all_tables_bytes), *const sums = take(&rest, bytes_of_rows);
    uint16_t *const lookups = reinterpret_cast<uint16_t *>(take(&rest, bytes_of_lookups));
    char *const packed_b = rest;
    const Entry *const A = static_cast<const Entry *>(task.A), *const B = static_cast<const Entry *>(task.B);
    Entry *const C = static_cast<Entry *>(task.C);
    int update = task.update;
    for (int32_t from = 0; from < task.k; from += longest_sum) {
        const int32_t count = smaller(task.k - from, longest_sum);
        const int32_t slab = panels * panel_columns;
        for (int32_t left = 0; left < task.n; left += slab) {
            const int32_t columns = smaller(slab, task.n - left);
            pack_panels<Storage>(task, B + from * task.b_row + left * task.b_column, count, columns, packed_b,
                                 panel_pitch);
            for (int32_t top = 0; top < task.m; top += rows) {
                const int32_t height = smaller(rows, task.m - top), octets = (height + octet_rows - 1) / octet_rows;
                pack_lookups<Storage>(task, A + top * task.a_row + from * task.a_column, height, count, lookups,
                                      lookup_pitch);
                for (int32_t j = 0; j < columns; j += panel_columns) {
                    __builtin_memset(sums, 0, static_cast<size_t>(octets) * octet_rows * row_bytes);
                    const char *b = packed_b + static_cast<size_t>(j / panel_columns) * panel_pitch;
                    for (int32_t group = 0; group < rounded_up(count, group_rows) / group_rows; group++) {
                        for (int32_t t = 0; t < tables; t++, b += table_rows * row_bytes) {
                            tabulate(b, table + t * table_bytes);
                        }
                        add_lookups(table, lookups + group * octet_rows * tables, lookup_pitch, octets, sums);
                    }
                    unpack<Storage>(sums, C + top * task.c_row + (left + j) * task.c_column, task.c_row, task.c_column,
                                    height, smaller(columns - j, panel_columns), update);
                }
            }
        }
        if (update == 0) update = 1;  // what follows is added
    }
    free(memory);
    _mm256_zeroupper();
    return true;
}

}  // namespace

bool multiply_by_slices(const GemmTask &task) {
    const bool unit = task.a_column == 1 && task.b_column == 1 && task.c_column == 1;
    if (task.doubles) return unit ? product<Doubles<true>>(task) : product<Doubles<false>>(task);
    return unit ? product<Words<true>>(task) : product<Words<false>>(task);
}

}  // namespace modla
