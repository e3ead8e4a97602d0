#include "console/matrix_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/random.h"

using namespace modla::console;
using namespace modla_test;

namespace {

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
    std::string text, outcome;  // rows, or the line and the reason of an error
    bool is_fault() const { return outcome.find(": ") != std::string::npos; }
};

std::vector<Form> read_forms() {
    std::vector<Form> forms;
    std::ifstream file(MODLA_TESTS "/matrix_files.txt");
    for (std::string line; std::getline(file, line);) {
        if (line[0] == '#') continue;
        const size_t arrow = line.find(" => ");
        Form form = {"", line.substr(arrow + 4)};
        for (size_t i = 0; i < arrow; i++) {
            if (line[i] != '\\') {
                form.text += line[i];
                continue;
            }
            const char letter = line[++i];
            form.text += letter == 'n' ? '\n' : letter == 'r' ? '\r' : letter == 't' ? '\t' : '\0';
            if (letter != 'x') continue;
            form.text.back() = static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
            i += 2;
        }
        const size_t header = form.text.find("!! ");
        if (header != std::string::npos) form.text.replace(header, 3, market(""));
        forms.push_back(form);
    }
    EXPECT_GT(forms.size(), 80u);
    return forms;
}
const std::vector<Form> forms = read_forms();

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

TEST(MatrixFile, AreReadOrRefused) {
    for (const Form &form : forms) {
        if (!form.is_fault()) {
            EXPECT_EQ(rows_of(read(form.text)), form.outcome) << form.text;
            continue;
        }
        const std::string message = failure(form.text);
        EXPECT_TRUE(message.starts_with("file:" + form.outcome.substr(0, form.outcome.find(' '))))
            << form.text << message;
        EXPECT_NE(message.find(form.outcome.substr(form.outcome.find(' ') + 1)), std::string::npos)
            << form.text << message;
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
    for (const Form &form : forms)
        for (size_t length = 0; length < form.text.size(); ++length) failure(form.text.substr(0, length));
    Random random(3);
    for (const std::string &text : written_files(random)) {
        EXPECT_EQ(failure(text), "");
        const size_t last_number = text.find_last_of(" \n", text.size() - 2) + 1;
        for (size_t length = 0; length <= last_number; ++length)
            EXPECT_NE(failure(text.substr(0, length)), "") << text << " cut to " << length;
    }
}

}  // namespace
