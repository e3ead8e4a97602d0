#include "console/matrix_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace modla::console;

namespace {

using Random = std::mt19937;
using Cells = std::map<std::pair<int32_t, int32_t>, mpz_class>;  // nonzero entries only

struct Matrix {
    int32_t rows, columns;
    Cells cells;

    std::string text(int32_t i, int32_t j) const {
        const auto found = cells.find({i, j});
        return found == cells.end() ? "0" : found->second.get_str();
    }
    bool operator==(const Matrix &) const = default;
};

int32_t below(Random &random, size_t bound) {
    return static_cast<int32_t>(random() % bound);
}

mpz_class random_integer(Random &random) {
    mpz_class value = 0;
    const int32_t words = 1 + (below(random, 4) == 0 ? below(random, 20) : 0);
    for (int32_t i = 0; i < words; ++i) value = (value << 32) + static_cast<uint32_t>(random());
    if (words == 1) value >>= below(random, 32);
    return below(random, 2) == 0 ? value : mpz_class(-value);
}

Matrix random_matrix(Random &random) {
    Matrix matrix{1 + below(random, 9), 1 + below(random, 9), {}};
    const int32_t density = below(random, 11);
    for (int32_t i = 1; i <= matrix.rows; ++i)
        for (int32_t j = 1; j <= matrix.columns; ++j) {
            const mpz_class value = random_integer(random);
            if (below(random, 10) < density && value != 0) matrix.cells[{i, j}] = value;
        }
    return matrix;
}

using Writer = void (*)(std::ostream &, int32_t, int32_t, const EntryText &);

std::string written(Writer writer, const Matrix &matrix) {
    std::ostringstream out;
    writer(out, matrix.rows, matrix.columns, [&](int32_t i, int32_t j) { return matrix.text(i, j); });
    return out.str();
}

// Reads a file and checks what holds of every file read.
Matrix read(const std::string &text, size_t memory_limit = size_t{1} << 28) {
    std::istringstream in(text);
    const MatrixFile file = read_matrix_file(in, "file", memory_limit);
    Matrix matrix{file.rows, file.columns, {}};
    std::pair<int32_t, int32_t> last{0, 0};
    for (const auto &[row, column, value] : file.entries) {
        EXPECT_LT(last, std::pair(row, column));
        EXPECT_TRUE(row >= 1 && row <= file.rows && column >= 1 && column <= file.columns);
        EXPECT_NE(value, 0);
        last = {row, column};
        matrix.cells[last] = value;
    }
    return matrix;
}

std::string failure(const std::string &text, size_t memory_limit = size_t{1} << 28) {
    try {
        read(text, memory_limit);
        return "";
    } catch (const MatrixFileError &error) {
        return error.what();
    }
}

// "1 2; 3 4"
std::string rows_of(const Matrix &matrix) {
    std::string result;
    for (int32_t i = 1; i <= matrix.rows; ++i)
        for (int32_t j = 1; j <= matrix.columns; ++j) result += (j > 1 ? " " : i > 1 ? "; " : "") + matrix.text(i, j);
    return result;
}

std::string market(const std::string &rest) {
    return "%%MatrixMarket matrix " + rest;
}

struct Form {
    std::string text, rows;
};

const std::vector<Form> well_formed = {
    {market("array integer general\n2 3\n1\n-2\n3\n4\n+5\n6\n"), "1 3 5; -2 4 6"},
    {market("array integer general\r\n% note \xc3\xa9\r\n\r\n2 2 \r\n1 2\t3\r\n%\r\n\r\n 4 \r\n\r\n"), "1 3; 2 4"},
    {market("array integer symmetric\n3 3\n1\n2\n3\n4\n5\n6\n"), "1 2 3; 2 4 5; 3 5 6"},
    {market("array integer skew-symmetric\n3 3\n1\n2\n3\n"), "0 -1 -2; 1 0 -3; 2 3 0"},
    {market("array integer skew-symmetric\n1 1\n"), "0"},
    {market("array real general\n4 2\n3\n3.0\n3e2\n-1.5e1\n.5E+1\n200.e-2\n-0e999999999\n00.0\n"),
     "3 5; 3 2; 300 0; -15 0"},
    {market("coordinate integer general\n2 3 4\n2 3 7\n1 1 -1\n2 3 5\n1 2 0\n"), "-1 0 0; 0 0 12"},
    {market("coordinate integer general\n2 2 3\n1 1 5\n2 2 1\n1 1 -5\n"), "0 0; 0 1"},
    {market("coordinate integer general\n1 2 0"), "0 0"},
    {market("coordinate integer symmetric\n3 3 4\n1 1 1\n3 1 2\n3 2 4\n3 1 3"), "1 0 5; 0 0 4; 5 4 0"},
    {market("coordinate integer skew-symmetric\n2 2 2\n2 1 4\n2 1 1\n"), "0 -5; 5 0"},
    {market("coordinate pattern general\n2 3 3\n1 2\n2 1\n2 1\n"), "0 1 0; 2 0 0"},
    {market("coordinate pattern symmetric\n2 2 2\n2 1\n2 2\n"), "0 1; 1 1"},
    {market("coordinate real general\n%\n\n 1 1 1\n%\n 1\t1 \t2.50e1 \n\n%"), "25"},
    {"%%mATRIXmARKET MATRIX Coordinate INTEGER General\n1 1 1\n1 1 -9\n", "-9"},
    {"2 3 M\n1 1 4\n2 3 -5\n2 3 -5\n0 0 0\n", "4 0 0; 0 0 -10"},
    {"\xef\xbb\xbf# who made it\n1 2 M\n# first\n1 1 4\n  # last\n0 0 0\n# end\n", "4 0"},
    {"\xef\xbb\xbf" + market("array integer general\n1 1\n7\n"), "7"},
    {"\n1 2 i\r\n\r\n1 2 99999999999999999999\r\n1 1 0\r\n0 0 0\r\n \r\n\t", "0 99999999999999999999"},
};

struct Fault {
    std::string text;
    int line;
    std::string reason;
};

const std::vector<Fault> malformed = {
    {"", 1, "empty"},
    {" \r\n\n", 2, "empty"},
    {"hello\n", 1, "unknown header"},
    {"%%MatrixMarketing matrix array integer general\n1 1\n1\n", 1, "unknown header"},
    {"% note\n1 1 M\n0 0 0\n", 1, "unknown header"},
    {std::string("1 1 M\n1 1 \0"
                 "3\n0 0 0\n",
                 18),
     2, "byte 0"},
    {"\x7f"
     "ELF\x01\x01",
     1, "byte 127"},
    {"\xff\xd8\xfe", 1, "unknown header"},
    {"%%MatrixMarket\n", 1, "missing keyword"},
    {"%%MatrixMarket vector array integer general\n", 1, "'vector' matrix files are not supported"},
    {market("array complex general\n"), 1, "'complex' matrix files are not supported"},
    {market("array integer hermitian\n"), 1, "'hermitian' matrix files are not supported"},
    {market("list integer general\n"), 1, "unknown keyword 'list'"},
    {market("array integer\n"), 1, "missing keyword"},
    {market("array integer general 1\n"), 1, "unexpected '1'"},
    {market("array pattern general\n1 1\n1\n"), 1, "array file cannot hold a pattern"},
    {market("coordinate pattern skew-symmetric\n1 1 0\n"), 1, "pattern cannot be skew-symmetric"},
    {market("array integer general\n% note\n"), 2, "before the size line"},
    {market("array integer general\n2\n1\n"), 2, "missing number of columns"},
    {market("array integer general\n2 x\n1\n"), 2, "'x' is not a whole number"},
    {market("array integer general\n1 1 1\n"), 2, "unexpected '1'"},
    {market("array integer general\n-2 2\n"), 2, "number of rows is negative"},
    {market("array integer general\n2 0\n"), 2, "no entries"},
    {market("array integer general\n2147483648 1\n"), 2, "number of rows is too large"},
    {market("array integer general\n1 99999999999999999999999999\n"), 2, "number of columns is too large"},
    {market("array integer general\n65536 32769\n1\n"), 2, "more than 2^31 cells"},
    {market("array integer general\n65536 65536\n1\n"), 2, "more than 2^31 cells"},
    {market("array integer general\n65536 32768\n1\n"), 3, "after 1 of 2147483648 entries"},
    {market("array integer symmetric\n2 3\n"), 2, "not square"},
    {market("array integer symmetric\n46000 46000\n"), 2, "after 0 of 1058023000 entries"},
    {market("array integer skew-symmetric\n3 3\n1\n2"), 4, "after 2 of 3 entries"},
    {market("array integer general\n2 2\n1 2\n3\n%\n"), 5, "after 3 of 4 entries"},
    {market("array integer general\n1 2\n1\n2\n\n3\n"), 6, "more than the 2 entries"},
    {market("array integer general\n1 2\n1 2 3\n"), 3, "more than the 2 entries"},
    {market("array integer general\n1 2\n1 2x\n"), 3, "value '2x' is not a number"},
    {market("array integer general\n1 1\n3.0\n"), 3, "value '3.0' is not a number"},
    {market("array integer general\n1 1\n--3\n"), 3, "value '--3' is not a number"},
    {market("array integer general\n1 1\n-\n"), 3, "value '-' is not a number"},
    {market("array real general\n1 2\n1\n2.5\n"), 4, "value '2.5' is not an integer"},
    {market("array real general\n1 1\n1e-999999999999999999999\n"), 3, "is not an integer"},
    {market("array real general\n1 1\n1e999999999\n"), 3, "more than 10000 digits"},
    {market("array real general\n1 1\n1e99999999999999999999999\n"), 3, "more than 10000 digits"},
    {market("array real general\n1 1\nnan\n"), 3, "value 'nan' is not a number"},
    {market("array real general\n1 1\n1.2.3\n"), 3, "is not a number"},
    {market("array real general\n1 1\n.e1\n"), 3, "is not a number"},
    {market("array real general\n1 1\n1e\n"), 3, "is not a number"},
    {market("array real general\n1 1\n1e+-1\n"), 3, "is not a number"},
    {market("coordinate integer general\n2 2\n"), 2, "missing number of entries"},
    {market("coordinate integer general\n2 2 -1\n"), 2, "number of entries is negative"},
    {market("coordinate integer general\n2 2 999999999999999999999\n1 1 1\n"), 3, "file ends after 1 of"},
    {market("coordinate integer general\n2 2 1\n1 1 1\n2 2 1\n"), 4, "more than the 1 entries"},
    {market("coordinate integer general\n2 2 1\n3 1 1\n"), 3, "row index is not in 1..2"},
    {market("coordinate integer general\n2 2 1\n1 0 1\n"), 3, "column index is not in 1..2"},
    {market("coordinate integer general\n2 2 1\n4294967297 1 1\n"), 3, "row index is not in 1..2"},
    {market("coordinate integer general\n2 2 1\n1 1\n1\n"), 3, "missing value"},
    {market("coordinate pattern general\n2 2 1\n1 1 1\n"), 3, "unexpected '1'"},
    {market("coordinate integer symmetric\n2 2 1\n1 2 1\n"), 3, "above the diagonal"},
    {market("coordinate integer skew-symmetric\n2 2 1\n1 1 1\n"), 3, "on the diagonal"},
    {"2 2\n", 1, "missing type letter"},
    {"2 2 7\n", 1, "'7' is not a type letter"},
    {"-2 2 M\n", 1, "number of rows is negative"},
    {"2 2 M\n1 1 1\n", 2, "before the closing line"},
    {"2 2 M\n1 1 1\n0 0 0\n\n1\n", 5, "text after the closing line"},
    {"2 2 M\n0 0 0 0\n", 2, "unexpected '0'"},
    {"2 2 M\n0 0 1\n0 0 0\n", 2, "row index is not in 1..2"},
    {"2 2 M\n1 0 0\n0 0 0\n", 2, "column index is not in 1..2"},
    {"2 2 M\n1 1 1/2\n0 0 0\n", 2, "value '1/2' is not a number"},
    {"2 2 R\n1 1 1/0\n0 0 0\n", 2, "value '1/0' is not a number"},
    {"2 2 R\n1 1 1/-2\n0 0 0\n", 2, "value '1/-2' is not a number"},
    {"2 2 R\n1 1 /2\n0 0 0\n", 2, "value '' is not a number"},
    {"2 2 R\n1 3 1/2\n0 0 0\n", 2, "column index is not in 1..2"},
    {"2 2 R\n1 1 1/2 3\n0 0 0\n", 2, "unexpected '3'"},
};

TEST(MatrixFile, RoundTrips) {
    Random random(1);
    for (int trial = 0; trial < 2000; ++trial) {
        const Matrix matrix = random_matrix(random);
        const std::string text = written(write_matrix_market, matrix);
        const bool mostly_nonzero = 2 * matrix.cells.size() > static_cast<size_t>(matrix.rows * matrix.columns);
        EXPECT_TRUE(text.starts_with(market(mostly_nonzero ? "array" : "coordinate"))) << text;
        EXPECT_EQ(read(text), matrix);
        EXPECT_EQ(read(written(write_sms, matrix)), matrix);
    }
}

TEST(MatrixFile, ReadsWellFormedFiles) {
    for (const auto &[text, rows] : well_formed) EXPECT_EQ(rows_of(read(text)), rows) << text;
}

TEST(MatrixFile, RejectsMalformedFiles) {
    for (const auto &[text, line, reason] : malformed) {
        const std::string message = failure(text);
        EXPECT_TRUE(message.starts_with("file:" + std::to_string(line) + ": ")) << text << message;
        EXPECT_NE(message.find(reason), std::string::npos) << text << message;
    }
}

// Real values against the rational number that their digits and exponent stand for.
TEST(MatrixFile, RealValuesAreExact) {
    Random random(2);
    int integral = 0;
    for (int trial = 0; trial < 5000; ++trial) {
        std::string digits;
        const int32_t length = 1 + below(random, 30), zeros = below(random, length + 1);
        for (int32_t i = 0; i < length; ++i)
            digits += i < length - zeros ? static_cast<char>('0' + below(random, 10)) : '0';
        const int32_t fraction = below(random, length + 1), exponent = below(random, 60) - 30;
        const std::string sign = below(random, 2) == 0 ? "-" : "";

        mpz_class scale;
        mpz_ui_pow_ui(scale.get_mpz_t(), 10, static_cast<unsigned>(std::abs(exponent - fraction)));
        mpq_class value(mpz_class(sign + digits, 10));
        value = exponent >= fraction ? mpq_class(value * scale) : mpq_class(value / scale);

        digits.insert(static_cast<size_t>(length - fraction), ".");
        const std::string text = market("array real general\n1 1\n") + sign + digits + "e" + std::to_string(exponent);
        if (value.get_den() == 1) {
            ++integral;
            EXPECT_EQ(rows_of(read(text)), value.get_str()) << text;
        } else {
            EXPECT_NE(failure(text).find("is not an integer"), std::string::npos) << text;
        }
    }
    EXPECT_GT(integral, 1000);
    EXPECT_LT(integral, 4000);
}

TEST(MatrixFile, LengthsAreBounded) {
    const std::string million(1'000'000, '7'), integer = market("array integer general\n1 1\n");
    EXPECT_EQ(rows_of(read(integer + "-" + million)), "-" + million);
    EXPECT_NE(failure(integer + "-7" + million).find("file:3: word of more than"), std::string::npos);
    EXPECT_NE(failure(million + million).find("file:1: word of more than"), std::string::npos);
    EXPECT_EQ(read(market("array real general\n1 1\n1e9999")).text(1, 1), "1" + std::string(9999, '0'));
    EXPECT_NE(failure(market("array real general\n1 1\n1e10000")).find("digits"), std::string::npos);
}

TEST(MatrixFile, MemoryIsBounded) {
    std::string text = market("coordinate real symmetric\n1000 1000 999\n");
    for (int i = 2; i <= 1000; ++i) text += std::to_string(i) + " 1 1e9000\n";
    const size_t value_bits = mpz_sizeinbase(mpz_class("1" + std::string(9000, '0')).get_mpz_t(), 2);
    const size_t needed = 2 * 999 * value_bits / 8;
    EXPECT_EQ(read(text, needed + needed / 10).cells.size(), 2 * 999u);
    EXPECT_NE(failure(text, needed).find("too large for the memory"), std::string::npos);
    EXPECT_TRUE(failure(text, needed / 2).starts_with("file:49"));  // half way, less the overhead
}

TEST(MatrixFile, UnreadableStreams) {
    std::ifstream absent("no-such-file.mtx"), directory(".");
    EXPECT_THROW(read_matrix_file(absent, "absent"), MatrixFileError);
    EXPECT_THROW(read_matrix_file(directory, "directory"), MatrixFileError);
}

std::vector<std::string> written_files(Random &random) {
    std::vector<std::string> files;
    for (int i = 0; i < 20; ++i)
        for (const Writer writer : {write_matrix_market, write_sms})
            files.push_back(written(writer, random_matrix(random)));
    return files;
}

// A file cut short before its last number is never taken for a whole one.
TEST(MatrixFile, TruncatedFiles) {
    for (const Form &form : well_formed)
        for (size_t length = 0; length < form.text.size(); ++length) failure(form.text.substr(0, length));
    Random random(3);
    for (const std::string &text : written_files(random)) {
        EXPECT_EQ(failure(text), "");
        const size_t last_number = text.find_last_of(" \n", text.size() - 2) + 1;
        for (size_t length = 0; length <= last_number; ++length)
            EXPECT_NE(failure(text.substr(0, length)), "") << text << " cut to " << length;
    }
}

void mutate(std::string &text, Random &random) {
    const auto place = static_cast<size_t>(random()) % text.size();
    const std::string likely = "0123456789 \n\r-+.e%M";
    switch (below(random, 4)) {
        case 0:
            text.erase(place, 1 + random() % 4);
            break;
        case 1:
            text.insert(place, 1, likely[random() % likely.size()]);
            break;
        case 2:
            text[place] = likely[random() % likely.size()];
            break;
        default:
            text[place] = static_cast<char>(text[place] ^ (1 << below(random, 8)));
    }
    if (text.empty()) text = " ";
}

// Whatever the bytes are, a file is read or refused, and what is read can be written.
TEST(MatrixFile, MutatedFiles) {
    Random random(4);
    std::vector<std::string> files = written_files(random);
    for (const Form &form : well_formed) files.push_back(form.text);
    int good = 0, bad = 0;
    for (int trial = 0; trial < 50'000; ++trial) {
        std::string text = files[random() % files.size()];
        for (int32_t changes = 1 + below(random, 3); changes > 0; --changes) mutate(text, random);
        const std::string message = failure(text);
        if (!message.empty()) {
            ++bad;
            EXPECT_TRUE(message.starts_with("file:")) << text;
            continue;
        }
        ++good;
        const Matrix matrix = read(text);
        if (int64_t{matrix.rows} * matrix.columns > 1000) continue;
        EXPECT_EQ(read(written(write_sms, matrix)), matrix) << text;
        EXPECT_EQ(read(written(write_matrix_market, matrix)), matrix) << text;
    }
    EXPECT_GT(good, 1000);
    EXPECT_GT(bad, 1000);
}

}  // namespace
