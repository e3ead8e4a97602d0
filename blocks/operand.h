// Matrices with a step from row to row and one from column to column.
#pragma once

#include <cstdint>
#include <type_traits>

#include "blocks/strided.h"

namespace modla {

template <class EntryType>
struct Operand {
    using Entry = EntryType;
    Entry *data;
    Steps steps;

    Entry &at(int32_t i, int32_t j) const { return data[i * steps.row + j * steps.column]; }
    Operand from(int32_t i, int32_t j) const { return {&at(i, j), steps}; }
    Operand transposed() const { return {data, {steps.column, steps.row}}; }
    operator Operand<const Entry>() const requires(!std::is_const_v<Entry>) { return {data, steps}; }
};

// Sets the selected entries.
template <class Entry, class Value>
void fill_entries(Shape shape, Operand<Entry> to, Value value) {
    const auto number = +value;  // stores of plain numbers vectorise
    walk<1>(shape, {to.steps}, false, [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
        Entry *const target = to.data + offsets[0];
        for (int32_t k = 0; k < count; k++) target[unit ? k : k * inner[0]] = number;
    });
}

// Copies the selected entries; the operands do not overlap.
template <class Entry>
void copy_walking(Shape shape, Operand<const Entry> from, Operand<Entry> to) {
    walk<2>(shape, {from.steps, to.steps}, false,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                const Entry *const source = from.data + offsets[0];
                Entry *const target = to.data + offsets[1];
                for (int32_t k = 0; k < count; k++) target[unit ? k : k * inner[1]] = source[unit ? k : k * inner[0]];
            });
}

}  // namespace modla
