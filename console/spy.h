// Pictures of where Matrices have entries other than 0.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "console/heap.h"

namespace modla::console {

// A Matrix as a picture needs it: visit calls its argument with row and column, from 0, of every entry that is not 0.
struct Pattern {
    int32_t rows, columns;
    std::function<void(const std::function<void(int32_t row, int32_t column)> &)> visit;
};

Pattern pattern_of(const Table &table);

// A PNG file with the Matrices side by side, at one scale: in cells of several pixels, or, when they have more than 1000
// rows or columns, in pixels that stand for as many entries as bring them below that, the darker the fuller.  Throws
// HostError and leaves no file behind when it cannot be written.
void write_spy(const std::vector<Pattern> &patterns, const std::string &name);

}  // namespace modla::console
