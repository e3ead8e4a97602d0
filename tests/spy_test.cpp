#include "console/spy.h"

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include "tests/support/host.h"

using namespace modla_test;

namespace {

struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> shades;
    int at(int row, int column) const { return shades.at(static_cast<size_t>(row * width + column)); }
};

// Draws what an expression gives, and reads the picture.
Picture spied(const std::string &matrices) {
    const std::string name = testing::TempDir() + "modla_spy_test.png";
    EXPECT_EQ(error_of("Spy(" + matrices + ", \"" + name + "\")"), "");
    Picture picture;
    int channels = 0;
    uint8_t *const shades = stbi_load(name.c_str(), &picture.width, &picture.height, &channels, 1);
    EXPECT_NE(shades, nullptr) << stbi_failure_reason();
    EXPECT_EQ(channels, 1);
    if (shades) picture.shades.assign(shades, shades + picture.width * picture.height);
    std::free(shades);
    std::remove(name.c_str());
    return picture;
}

TEST(Spy, DrawsACellForEveryEntryInItsPlace) {
    for (const char *kind : {"integer", "integer[4]", "float[8]", "float[8], Fortran_order"}) {
        eval("assign('A', Create(2, 40, 70, random, " + std::string(kind) + "))");
        eval("assign('B', Create(2, 90, 20, random, " + std::string(kind) + "))");
        const int cell = 1000 / 90, left = 70 * cell + 2 + 8;
        const Picture picture = spied("[A, B]");
        ASSERT_EQ(picture.width, left + 20 * cell + 2) << kind;
        ASSERT_EQ(picture.height, 90 * cell + 2);
        for (const auto &[name, from] : {std::pair("A", 0), std::pair("B", left)}) {
            const Table &table = table_of(eval(name));
            for (int i = 0; i < table_rows(table); i++) {
                for (int j = 0; j < table_columns(table); j++) {
                    const bool zero = get_entry_integer(table, i + 1, j + 1) == immediate(0);
                    for (const int k : {1, cell}) {
                        ASSERT_EQ(picture.at(i * cell + k, from + j * cell + k), zero ? 255 : 0)
                            << kind << name << i << " " << j;
                    }
                }
            }
        }
    }
}

// 2500 x 1501: 3 x 3 entries share a pixel, in the last row and column fewer.
TEST(Spy, ShadesBlocksOfALargeMatrixByHowFullTheyAre) {
    eval("assign('A', Create(7, 2500, 1501, integer[4]))");
    run("Fill(7, 3, A, 1..3, 4..6); Fill(7, 1, A, 301, 7); Fill(7, 1, A, 601..602, 9..9); Fill(7, 5, A, 2500, 1501)");
    const Picture picture = spied("A");
    ASSERT_EQ(picture.width, 501 + 2);
    ASSERT_EQ(picture.height, 834 + 2);
    const int full = picture.at(1, 2), one = picture.at(101, 3), two = picture.at(201, 3), last = picture.at(834, 501);
    EXPECT_EQ(full, 0);
    EXPECT_EQ(last, 0);
    EXPECT_LT(full, two);
    EXPECT_LT(two, one);
    EXPECT_LT(one, 255);
    EXPECT_EQ(std::count(picture.shades.begin(), picture.shades.end(), 255), 501 * 834 - 4);
}

TEST(Spy, LeavesNothingWhereItCannotWrite) {
    eval("assign('A', Create(7, 2, 2, 1, integer[4]))");
    EXPECT_EQ(error_of("Spy(A, \"/nowhere/a.png\")"), "cannot write /nowhere/a.png");
    // Without room the file breaks off.
    const std::string name = testing::TempDir() + "modla_spy_test.png";
    rlimit before, little = {20, RLIM_INFINITY};
    getrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &little);
    const std::string message = error_of("Spy(A, \"" + name + "\")");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(message, "cannot write " + name);
    EXPECT_FALSE(std::filesystem::exists(name));
    const std::string text = testing::TempDir() + "a.jpg";
    EXPECT_EQ(error_of("Spy(A, \"" + text + "\")"), text + " must end in .png");
    EXPECT_FALSE(std::filesystem::exists(text));
}

}  // namespace
