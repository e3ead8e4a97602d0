#include "console/spy.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb/stb_image_write.h>

#include "console/error.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr int most_pixels = 1000, largest_cell = 16, margin = 8;
constexpr uint8_t paper = 255, frame = 128, lightest = 200;

struct Picture {
    int width, height;
    std::vector<uint8_t> shades;
};

// One entry takes cell x cell pixels; or, where cell is 1, step x step entries share a pixel.
struct Scale {
    int cell, step;
    int pixels(int32_t entries) const { return (entries + step - 1) / step * cell; }
};

Scale scale_of(const std::vector<Pattern> &patterns) {
    int32_t largest = 1;
    for (const Pattern &pattern : patterns) largest = std::max({largest, pattern.rows, pattern.columns});
    return {std::clamp(most_pixels / largest, 1, largest_cell), (largest + most_pixels - 1) / most_pixels};
}

uint8_t shade_of(uint32_t count, int32_t entries) {
    if (count == 0) return paper;
    return static_cast<uint8_t>(lightest - lightest * static_cast<double>(count) / entries);
}

// Draws a pattern in its frame, whose upper left corner is at a column of the picture.
void draw(const Pattern &pattern, const Scale &scale, int left, Picture *picture) {
    const auto pixel = [&](int row, int column) -> uint8_t & {
        return picture->shades[static_cast<size_t>(row) * static_cast<size_t>(picture->width) +
                               static_cast<size_t>(left + column)];
    };
    const int height = scale.pixels(pattern.rows), width = scale.pixels(pattern.columns);
    for (int i = 0; i < height + 2; i++) pixel(i, 0) = pixel(i, width + 1) = frame;
    for (int j = 0; j < width + 2; j++) pixel(0, j) = pixel(height + 1, j) = frame;
    const int down = height / scale.cell, across = width / scale.cell;
    std::vector<uint32_t> counts(static_cast<size_t>(down) * static_cast<size_t>(across));
    pattern.visit([&](int32_t i, int32_t j) {
        counts[static_cast<size_t>(i / scale.step) * static_cast<size_t>(across) +
               static_cast<size_t>(j / scale.step)]++;
    });
    const uint32_t *count = counts.data();
    for (int i = 0; i < down; i++) {
        for (int j = 0; j < across; j++, count++) {
            const int entries = std::min(scale.step, pattern.rows - i * scale.step) *
                                std::min(scale.step, pattern.columns - j * scale.step);
            for (int k = 0; k < scale.cell * scale.cell; k++) {
                pixel(1 + i * scale.cell + k / scale.cell, 1 + j * scale.cell + k % scale.cell) =
                    shade_of(*count, entries);
            }
        }
    }
}

Picture picture_of(const std::vector<Pattern> &patterns) {
    const Scale scale = scale_of(patterns);
    Picture picture = {-margin, 0, {}};
    for (const Pattern &pattern : patterns) {
        picture.width += margin + 2 + scale.pixels(pattern.columns);
        picture.height = std::max(picture.height, 2 + scale.pixels(pattern.rows));
    }
    picture.shades.assign(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height), paper);
    int left = 0;
    for (const Pattern &pattern : patterns) {
        draw(pattern, scale, left, &picture);
        left += margin + 2 + scale.pixels(pattern.columns);
    }
    return picture;
}

template <typename Entry>
void visit_entries(const Table &table, const std::function<void(int32_t, int32_t)> &found, Entry zero) {
    const int32_t rows = table_rows(table), columns = table_columns(table);
    const bool by_rows = table.settings.order == MODLA_C_ORDER;
    const auto *entry = static_cast<const Entry *>(table.data);
    for (int32_t i = 0; i < (by_rows ? rows : columns); i++) {
        for (int32_t j = 0; j < (by_rows ? columns : rows); j++) {
            if (*entry++ != zero) found(by_rows ? i : j, by_rows ? j : i);
        }
    }
}

}  // namespace

Pattern pattern_of(const Table &table) {
    return {table_rows(table), table_columns(table), [&table](const auto &found) {
                if (table.settings.datatype == MODLA_FLOAT8) return visit_entries<double>(table, found, 0);
                if (table.settings.datatype == MODLA_INTEGER4) return visit_entries<uint32_t>(table, found, 0);
                visit_entries<Object>(table, found, modla_immediate_integer(0));
            }};
}

void write_spy(const std::vector<Pattern> &patterns, const std::string &name) {
    if (!name.ends_with(".png")) throw HostError(name + " must end in .png");
    const Picture picture = picture_of(patterns);
    int size = 0;
    const std::unique_ptr<unsigned char, decltype(&std::free)> png(
        stbi_write_png_to_mem(picture.shades.data(), picture.width, picture.width, picture.height, 1, &size),
        std::free);
    if (!png)
        throw HostError("there is no memory for a picture of " + std::to_string(picture.width) + " x " +
                        std::to_string(picture.height) + " pixels");
    std::ofstream file(name, std::ios::binary);
    const bool opened = file.is_open();
    file.write(reinterpret_cast<const char *>(png.get()), size);
    file.close();
    if (file) return;
    std::error_code ignored;
    if (opened && std::filesystem::is_regular_file(name, ignored)) std::filesystem::remove(name, ignored);
    throw HostError("cannot write " + name);
}

}  // namespace modla::console
