// Blocks of tables that lie anywhere in one storage, and a shadow of it: the library works on the one, a test's model on
// the other.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fake_host.h"
#include "modla.h"
#include "session.h"

namespace modla_test {

using namespace modla::console;

constexpr uint32_t storage_bytes = 1 << 19;

struct Storage {
    Roots roots;
    char *base;
    std::vector<char> shadow = std::vector<char>(storage_bytes);

    // Of datatype "integer" it holds on to the values that its words are.
    explicit Storage(int32_t datatype) {
        roots.values.push_back(make_table(datatype, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, storage_bytes / 4, 1));
        base = static_cast<char *>(table_of(roots.values[0]).data);
    }
    Object keep(Object x) {
        roots.values.push_back(x);
        return x;
    }
    void forget_values() { roots.values.resize(1); }
    template <class T>
    void put(uint32_t offset, T value) {
        std::memcpy(base + offset, &value, sizeof value);
    }
    template <class T>
    T shadow_at(uint32_t offset) const {
        T value;
        std::memcpy(&value, shadow.data() + offset, sizeof value);
        return value;
    }
    // Every word a tag; odd, so that it is a host integer too, and now and then the upper half of a signalling NaN.
    void fill_with_tags(Random &random) {
        for (uint32_t at = 0; at < storage_bytes; at += 4) {
            const uint32_t tag = static_cast<uint32_t>(random()) | 1;
            put(at, tag % 16 == 7 ? 0x7ff00001 | (tag & 0xff) : tag);
        }
    }
    void take_shadow() { std::memcpy(shadow.data(), base, storage_bytes); }
    // The offset of the first difference, or -1.
    int64_t difference() const {
        if (std::memcmp(shadow.data(), base, storage_bytes) == 0) return -1;
        return std::mismatch(shadow.begin(), shadow.end(), base).first - shadow.begin();
    }
};

struct Size {
    int32_t rows, columns;  // 0: a row or column object
};

struct Geometry {
    Object table;
    int32_t subtype, order, rows, columns;
    uint32_t offset;
};

// A block: the arguments that select it, and where every entry lies.
struct Block {
    Geometry geometry;
    int32_t first_row, first_column;
    std::vector<Object> arguments;
    int32_t rows, columns;
    std::vector<uint32_t> offsets;
    uint32_t at(int32_t i, int32_t j) const { return offsets[static_cast<size_t>(i * columns + j)]; }
};

inline uint32_t entry_offset(const Geometry &g, int32_t datatype, int32_t i, int32_t j) {
    const int32_t k = g.order == MODLA_C_ORDER ? i * g.columns + j : j * g.rows + i;
    return g.offset + static_cast<uint32_t>(k) * entry_bytes(datatype);
}

// Where the blocks of a call lie.
enum class Layout { apart, overlapping, same_table };

struct Placement {
    int32_t datatype;
    Layout layout;
    uint32_t alignment = 4, phase = 0;
    uint32_t next_zone = 0;  // of apart
};

inline Object make_index(Random &random, int32_t k, int32_t bound) {
    return immediate(chance(random, 30) ? k - bound - 1 : k);
}

// A table that holds such a block, as a Matrix or a Vector.
inline Geometry random_geometry(Random &random, Storage &storage, Placement &where, Size size, int32_t *row,
                                int32_t *column) {
    const int32_t r = std::max(size.rows, 1), c = std::max(size.columns, 1);
    Geometry g = {0, MODLA_MATRIX, pick(random, {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}), r, c, 0};
    if (size.rows == 0 && chance(random, 40)) {
        g.subtype = MODLA_ROW_VECTOR;
    } else if (size.columns == 0 && chance(random, 40)) {
        g.subtype = MODLA_COLUMN_VECTOR;
    }
    *row = g.subtype == MODLA_ROW_VECTOR ? 0 : pick(random, {0, 0, 1, 3, 16});
    *column = g.subtype == MODLA_COLUMN_VECTOR ? 0 : pick(random, {0, 0, 1, 3, 16});
    g.rows += *row + (g.subtype == MODLA_ROW_VECTOR ? 0 : pick(random, {0, 0, 1, 4}));
    g.columns += *column + (g.subtype == MODLA_COLUMN_VECTOR ? 0 : pick(random, {0, 0, 1, 4}));
    const uint32_t bytes = static_cast<uint32_t>(g.rows * g.columns) * entry_bytes(where.datatype);
    const uint32_t zone = where.layout == Layout::apart ? where.next_zone++ * (storage_bytes / 3) : 0;
    const uint32_t room = where.layout == Layout::apart ? storage_bytes / 3 - bytes - 64 : bytes / 2 + 1;
    const uint32_t shift = chance(random, 20) ? 0 : below(random, room / where.alignment + 1);
    g.offset = (zone + 63) / 64 * 64 + shift * where.alignment + where.phase;
    RtableSettings settings = default_settings();
    settings.datatype = where.datatype;
    settings.subtype = g.subtype;
    settings.order = g.order;
    settings.num_dimensions = g.subtype == MODLA_MATRIX ? 2 : 1;
    const int32_t bounds[2] = {g.subtype == MODLA_ROW_VECTOR ? g.columns : g.rows, g.columns};
    g.table = storage.keep(new_table(settings, bounds, storage.base + g.offset));
    return g;
}

// Selects `count` places from `first` on; 0: a single one.
inline Object make_selection(Random &random, Storage &storage, int32_t first, int32_t count, int32_t bound) {
    const Object start = make_index(random, first + 1, bound);
    if (count == 0) return start;
    return storage.keep(new_pair(type_range, start, make_index(random, first + count, bound)));
}

// A random block of this size; a later block may be given by a shortcut, and may lie in an earlier one's table.
inline Block random_block(Random &random, Storage &storage, Placement &where, Size size, bool transpose,
                          const Block *earlier = nullptr, bool shortcuts = true) {
    if (transpose) std::swap(size.rows, size.columns);
    const int32_t r = std::max(size.rows, 1), c = std::max(size.columns, 1);
    Block block;
    if (earlier && where.layout == Layout::same_table && earlier->geometry.subtype == MODLA_MATRIX &&
        earlier->geometry.rows >= r && earlier->geometry.columns >= c) {
        block.geometry = earlier->geometry;
        const int32_t rows_left = block.geometry.rows - r, columns_left = block.geometry.columns - c;
        const bool same_place = chance(random, 50);
        block.first_row = same_place ? std::min(earlier->first_row, rows_left) : below(random, rows_left + 1);
        block.first_column =
            same_place ? std::min(earlier->first_column, columns_left) : below(random, columns_left + 1);
    } else {
        block.geometry = random_geometry(random, storage, where, size, &block.first_row, &block.first_column);
    }
    const Geometry &g = block.geometry;
    const auto select = [&](int32_t first, int32_t count, int32_t bound) {
        const bool shortcut = earlier && shortcuts && chance(random, 30);
        return make_selection(random, storage, first, shortcut ? 0 : count, bound);
    };
    block.arguments = {g.table};
    const bool all_rows = size.rows == g.rows, all_columns = size.columns == g.columns;
    const bool omit_columns = g.subtype == MODLA_COLUMN_VECTOR || (all_columns && chance(random, 50));
    const bool omit_rows = g.subtype == MODLA_ROW_VECTOR || (all_rows && omit_columns && chance(random, 70));
    if (!omit_rows) block.arguments.push_back(select(block.first_row, size.rows, g.rows));
    if (!omit_columns) block.arguments.push_back(select(block.first_column, size.columns, g.columns));
    if (transpose) block.arguments.push_back(global_name("transpose"));
    block.rows = transpose ? c : r;
    block.columns = transpose ? r : c;
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            block.offsets.push_back(entry_offset(g, where.datatype, block.first_row + (transpose ? j : i),
                                                 block.first_column + (transpose ? i : j)));
        }
    }
    return block;
}

inline Size random_size(Random &random) {
    if (chance(random, 60)) return {below(random, 6), 1 + below(random, 6)};
    const auto edge = [&] { return pick(random, {0, 1, 2, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 100}); };
    Size size = {edge(), edge()};
    if (chance(random, 10)) (chance(random, 50) ? size.rows : size.columns) = 130;
    if (size.rows == 0 && size.columns == 0) size.rows = 16;
    return size;
}

inline std::vector<Object> join(std::vector<Object> list, const std::vector<Object> &more) {
    list.insert(list.end(), more.begin(), more.end());
    return list;
}

// A host whose new tables are not cleared.
inline HostObject create_dirty(RtableSettings *settings, void *data, int32_t *bounds) {
    const Object table = host_api().RtableCreate(settings, data, bounds);
    if (!data) std::memset(table_of(table).data, 0x5b, table_of(table).block->bytes);
    return table;
}

// Calls under one of the ways to leave the library, or on the host with dirty tables.
inline Object call(EntryPoint entry, const std::vector<Object> &arguments, Random &random) {
    const size_t lent = lent_count();
    Roots held;
    Object result;
    if (chance(random, 50)) {
        HostApi api = host_api();
        api.RtableCreate = create_dirty;
        held.values.push_back(new_sequence(arguments));
        result = entry(&api, words(held.values[0]));
    } else {
        set_unwinding(pick(random, {Unwinding::exception, Unwinding::long_jump}));
        result = call_entry_point(entry, arguments);
    }
    set_unwinding(Unwinding::exception);
    EXPECT_EQ(lent_count(), lent);
    return result;
}

inline std::string describe(const std::vector<Object> &arguments) {
    std::string text;
    for (const Object x : arguments) {
        text += (text.empty() ? "" : ", ") + (has_type(x, type_table) ? describe_table(table_of(x)) : to_text(x));
    }
    return text;
}

// The entries of a new object, row by row; its kind and size are those of the block.
template <class Entry>
std::vector<Entry> entries_of(Object created, Size size, int32_t order) {
    const Table &table = table_of(created);
    EXPECT_EQ(table.settings.subtype, size.rows == 0      ? MODLA_ROW_VECTOR
                                      : size.columns == 0 ? MODLA_COLUMN_VECTOR
                                                          : MODLA_MATRIX);
    EXPECT_EQ(table.settings.order, order);
    const int32_t rows = std::max(size.rows, 1), columns = std::max(size.columns, 1);
    EXPECT_EQ(table_rows(table), rows);
    EXPECT_EQ(table_columns(table), columns);
    std::vector<Entry> entries;
    const Geometry g = {created, MODLA_MATRIX, order, rows, columns, 0};
    for (int32_t i = 0; i < rows; i++) {
        for (int32_t j = 0; j < columns; j++) {
            Entry entry;
            std::memcpy(&entry, static_cast<char *>(table.data) + entry_offset(g, table.settings.datatype, i, j),
                        sizeof entry);
            entries.push_back(entry);
        }
    }
    return entries;
}

template <class Step>
void repeat(int calls, Step step, int32_t datatype = MODLA_INTEGER4) {
    Random random(20240611);
    Storage storage(datatype);
    for (int i = 0; i < calls && !testing::Test::HasFailure(); i++) {
        if (i % 32 == 0) storage.fill_with_tags(random);
        storage.forget_values();
        SCOPED_TRACE("call " + std::to_string(i));
        step(random, storage, i);
    }
}

// Entry (shift + i, shift + j) of the view is entry (i, j) of the block.
inline void check_view(const Block &block, const char *base, Object view, int32_t row_shift, int32_t column_shift) {
    const Table &table = table_of(view);
    EXPECT_EQ(table.settings.datatype, MODLA_INTEGER);
    EXPECT_EQ(table.settings.subtype == MODLA_MATRIX || view == block.geometry.table, true);
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            ASSERT_LE(row_shift + i, table_rows(table) - 1);
            ASSERT_LE(column_shift + j, table_columns(table) - 1);
            const Geometry g = {view, MODLA_MATRIX, table.settings.order, table_rows(table), table_columns(table), 0};
            ASSERT_EQ(static_cast<char *>(table.data) - base +
                          static_cast<ptrdiff_t>(entry_offset(g, MODLA_INTEGER, row_shift + i, column_shift + j)),
                      static_cast<ptrdiff_t>(block.at(i, j)));
        }
    }
}

}  // namespace modla_test
