#include "console/matrix_file.h"

#include <algorithm>
#include <initializer_list>
#include <ios>
#include <limits>
#include <new>
#include <optional>
#include <streambuf>
#include <string_view>
#include <tuple>
#include <utility>

namespace modla::console {
namespace {

constexpr size_t longest_word = 1'000'001;  // a sign and a million digits
constexpr int64_t longest_real = 10'000;    // digits that a real value may have when written out
constexpr int64_t most_cells = int64_t{1} << 31;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_number(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

// Removes the sign that text may begin with; was it a minus?
bool take_sign(std::string_view &text) {
    if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
    const bool negative = text[0] == '-';
    text.remove_prefix(1);
    return negative;
}

// A whole number; for one of 10^18 or more, some number between 10^18 and 10^18 + 9 of its sign.
std::optional<int64_t> parse_whole(std::string_view text) {
    const bool negative = take_sign(text);
    if (!is_number(text)) return std::nullopt;
    int64_t magnitude = 0;
    for (const char digit : text)
        magnitude = std::min(magnitude, int64_t{100'000'000'000'000'000}) * 10 + (digit - '0');
    return negative ? -magnitude : magnitude;
}

std::string lower(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

// The text as an error message shows it: short and printable.
std::string quoted(std::string_view text) {
    constexpr size_t shown = 40;
    std::string result = "'";
    for (const char c : text.substr(0, shown)) result += c > ' ' && c < '\x7f' ? c : '?';
    return result + (text.size() > shown ? "...'" : "'");
}

// The words and lines of a text file. It holds one word at a time; a byte that no text file has is an error.
class Scanner {
  public:
    Scanner(std::istream &in, const std::string &name) : in_(in), name_(name) {}

    [[noreturn]] void fail(const std::string &reason) const {
        throw MatrixFileError(name_ + ":" + std::to_string(line_) + ": " + reason);
    }

    // The first character of the next word on this line, or '\n' or the end of the file.
    int next_character() {
        while (is_blank(peek())) in_.rdbuf()->sbumpc();
        return peek();
    }

    bool at_line_end() { return ends_line(next_character()); }

    // The next word on this line; empty when there is none. The next call overwrites it.
    const std::string &word() {
        word_.clear();
        for (int c = next_character(); !ends_line(c) && !is_blank(c); c = peek()) {
            if (word_.size() == longest_word) fail("word of more than " + std::to_string(longest_word) + " characters");
            word_ += static_cast<char>(c);
            in_.rdbuf()->sbumpc();
        }
        return word_;
    }

    // The next word on this line, which is to be there.
    const std::string &word(const char *what) {
        if (word().empty()) fail(std::string("missing ") + what);
        return word_;
    }

    int64_t whole(const char *what) {
        const auto number = parse_whole(word(what));
        if (!number) fail(quoted(word_) + " is not a whole number, as a " + what + " is");
        return *number;
    }

    void expect_line_end() {
        if (!word().empty()) fail("unexpected " + quoted(word_) + " at the end of the line");
    }

    void allow_comments() { comments_ = true; }

    // Goes to the next line that has words and is no comment; false at the end of the file.
    bool next_filled_line() {
        while (next_line())
            if (!at_line_end() && !(comments_ && peek() == '%')) return true;
        return false;
    }

  private:
    static constexpr int end = std::char_traits<char>::eof();

    static bool ends_line(int c) { return c == '\n' || c == end; }
    static bool is_blank(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

    int peek() {
        const int c = in_.rdbuf()->sgetc();
        const bool control = (c >= 0 && c < ' ') || c == 0x7f;
        if (control && c != '\n' && !is_blank(c)) fail("not a text file: byte " + std::to_string(c));
        return c;
    }

    // The end of the last line begins no further one.
    bool next_line() {
        while (!ends_line(peek())) in_.rdbuf()->sbumpc();
        if (peek() == '\n') in_.rdbuf()->sbumpc();
        if (peek() == end) return false;
        ++line_;
        return true;
    }

    std::istream &in_;
    const std::string &name_;
    uint64_t line_ = 1;
    bool comments_ = false;
    std::string word_;
};

enum class Field { integer, real, pattern };       // in the order of the header's keywords
enum class Symmetry { general, symmetric, skew };  // likewise

[[noreturn]] void fail_value(const Scanner &scanner, const std::string &text) {
    scanner.fail("value " + quoted(text) + " is not a number");
}

mpz_class parse_integer(const Scanner &scanner, const std::string &text) {
    std::string_view digits = text;
    const bool negative = take_sign(digits);
    if (!is_number(digits)) fail_value(scanner, text);
    const mpz_class magnitude(std::string(digits), 10);
    return negative ? mpz_class(-magnitude) : magnitude;
}

// A decimal number with an optional fraction and exponent, taken apart: digits * 10^exponent.
struct Decimal {
    bool negative = false;
    std::string digits;
    int64_t exponent = 0;
};

std::optional<Decimal> parse_decimal(std::string_view rest) {
    Decimal decimal;
    decimal.negative = take_sign(rest);
    const size_t mantissa_end = std::min(rest.find_first_of("eE"), rest.size());
    if (mantissa_end < rest.size()) {
        const auto exponent = parse_whole(rest.substr(mantissa_end + 1));
        if (!exponent) return std::nullopt;
        decimal.exponent = *exponent;
    }
    decimal.digits = rest.substr(0, mantissa_end);
    const size_t point = decimal.digits.find('.');
    if (point != std::string::npos) {
        decimal.digits.erase(point, 1);
        decimal.exponent -= static_cast<int64_t>(decimal.digits.size() - point);
    }
    if (!is_number(decimal.digits)) return std::nullopt;
    return decimal;
}

// A real value, which is to be integral: 3, 3.0, 3e2, -1.5e1. It is written out only when it is of moderate
// length.
mpz_class parse_real(const Scanner &scanner, const std::string &text) {
    auto decimal = parse_decimal(text);
    if (!decimal) fail_value(scanner, text);
    auto &[negative, digits, exponent] = *decimal;
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    if (digits.empty()) return 0;
    const size_t significant = digits.find_last_not_of('0') + 1;
    exponent += static_cast<int64_t>(digits.size() - significant);
    digits.resize(significant);
    if (exponent < 0) scanner.fail("value " + quoted(text) + " is not an integer");
    if (static_cast<int64_t>(significant) + exponent > longest_real)
        scanner.fail("value " + quoted(text) + " has more than " + std::to_string(longest_real) + " digits");
    digits.append(static_cast<size_t>(exponent), '0');
    return parse_integer(scanner, (negative ? "-" : "") + digits);
}

mpz_class read_value(Scanner &scanner, Field field) {
    if (field == Field::pattern) return 1;
    const std::string &text = scanner.word("value");
    return field == Field::real ? parse_real(scanner, text) : parse_integer(scanner, text);
}

// Gathers the entries of a matrix, whose size it reads first.
class Collector {
  public:
    Collector(Scanner &scanner, Symmetry symmetry, size_t memory_limit)
        : scanner_(scanner), symmetry_(symmetry), memory_left_(memory_limit) {
        matrix_.rows = read_size("number of rows");
        matrix_.columns = read_size("number of columns");
        if (cells() == 0) scanner.fail("matrix has no entries");
        if (cells() > most_cells) scanner.fail("matrix has more than 2^31 cells");
        if (symmetry != Symmetry::general && matrix_.rows != matrix_.columns)
            scanner.fail("symmetric matrix is not square");
    }

    int32_t rows() const { return matrix_.rows; }
    int32_t columns() const { return matrix_.columns; }

    // How many values an array file has.
    int64_t array_length() const {
        if (symmetry_ == Symmetry::general) return cells();
        const int64_t below_diagonal = (cells() - rows()) / 2;
        return symmetry_ == Symmetry::skew ? below_diagonal : below_diagonal + rows();
    }

    // The first row that the file may list in a column.
    int64_t first_row(int64_t column) const {
        if (symmetry_ == Symmetry::general) return 1;
        return symmetry_ == Symmetry::symmetric ? column : column + 1;
    }

    void add(int64_t row, int64_t column, mpz_class value) {
        check_index("row", row, matrix_.rows);
        check_index("column", column, matrix_.columns);
        if (row < first_row(column))
            scanner_.fail(row < column ? "entry above the diagonal of a symmetric matrix"
                                       : "entry on the diagonal of a skew-symmetric matrix");
        const auto i = static_cast<int32_t>(row), j = static_cast<int32_t>(column);
        if (symmetry_ != Symmetry::general && i != j)
            store(j, i, symmetry_ == Symmetry::skew ? mpz_class(-value) : value);
        store(i, j, std::move(value));
    }

    MatrixFile finish() {
        const auto place = [](const MatrixEntry &entry) { return std::tie(entry.row, entry.column); };
        auto &entries = matrix_.entries;
        std::sort(entries.begin(), entries.end(),
                  [&](const MatrixEntry &a, const MatrixEntry &b) { return place(a) < place(b); });
        size_t kept = 0;
        for (MatrixEntry &entry : entries) {
            if (kept > 0 && place(entries[kept - 1]) == place(entry))
                entries[kept - 1].value += entry.value;
            else
                std::swap(entries[kept++], entry);
        }
        entries.erase(entries.begin() + static_cast<ptrdiff_t>(kept), entries.end());
        std::erase_if(entries, [](const MatrixEntry &entry) { return entry.value == 0; });
        return std::move(matrix_);
    }

  private:
    int64_t cells() const { return int64_t{rows()} * columns(); }

    int32_t read_size(const char *what) {
        const int64_t size = scanner_.whole(what);
        if (size < 0) scanner_.fail(std::string(what) + " is negative");
        if (size > std::numeric_limits<int32_t>::max()) scanner_.fail(std::string(what) + " is too large");
        return static_cast<int32_t>(size);
    }

    void check_index(const char *what, int64_t index, int32_t size) const {
        if (index < 1 || index > size) scanner_.fail(std::string(what) + " index is not in 1.." + std::to_string(size));
    }

    void store(int32_t row, int32_t column, mpz_class value) {
        if (value == 0) return;
        constexpr size_t block_overhead = 16;
        const size_t taken = sizeof(MatrixEntry) + block_overhead + mpz_size(value.get_mpz_t()) * sizeof(mp_limb_t);
        if (taken > memory_left_) scanner_.fail("matrix is too large for the memory it may take");
        memory_left_ -= taken;
        matrix_.entries.push_back({row, column, std::move(value)});
    }

    Scanner &scanner_;
    Symmetry symmetry_;
    size_t memory_left_;
    MatrixFile matrix_{};
};

struct EntryLine {
    int64_t row, column;  // not checked yet
    mpz_class value;
};

EntryLine read_entry_line(Scanner &scanner, Field field) {
    EntryLine line{scanner.whole("row index"), scanner.whole("column index"), read_value(scanner, field)};
    scanner.expect_line_end();
    return line;
}

constexpr const char *unknown_header =
    "unknown header: neither \"%%MatrixMarket matrix ...\" nor \"rows columns type\"";

MatrixFile read_sms(Scanner &scanner, size_t memory_limit) {
    Collector matrix(scanner, Symmetry::general, memory_limit);
    const std::string type = lower(scanner.word("type letter"));
    if (type.size() != 1 || type[0] < 'a' || type[0] > 'z') scanner.fail(quoted(type) + " is not a type letter");
    scanner.expect_line_end();
    while (true) {
        if (!scanner.next_filled_line()) scanner.fail("file ends before the closing line 0 0 0");
        EntryLine entry = read_entry_line(scanner, Field::integer);
        if (entry.row == 0 && entry.column == 0 && entry.value == 0) break;
        matrix.add(entry.row, entry.column, std::move(entry.value));
    }
    if (scanner.next_filled_line()) scanner.fail("text after the closing line 0 0 0");
    return matrix.finish();
}

// The place among the known keywords of the header's next word.
size_t read_keyword(Scanner &scanner, std::initializer_list<std::string_view> known,
                    std::string_view unsupported = {}) {
    const std::string word = lower(scanner.word("keyword in the header"));
    const auto found = std::find(known.begin(), known.end(), word);
    if (word == unsupported) scanner.fail(quoted(word) + " matrix files are not supported");
    if (found == known.end()) scanner.fail("unknown keyword " + quoted(word) + " in the header");
    return static_cast<size_t>(found - known.begin());
}

struct MarketHeader {
    bool coordinate;
    Field field;
    Symmetry symmetry;
};

MarketHeader read_market_header(Scanner &scanner) {
    if (lower(scanner.word()) != "%%matrixmarket") scanner.fail(unknown_header);
    read_keyword(scanner, {"matrix"}, "vector");
    const bool coordinate = read_keyword(scanner, {"array", "coordinate"}) == 1;
    const auto field = static_cast<Field>(read_keyword(scanner, {"integer", "real", "pattern"}, "complex"));
    const auto symmetry =
        static_cast<Symmetry>(read_keyword(scanner, {"general", "symmetric", "skew-symmetric"}, "hermitian"));
    scanner.expect_line_end();
    if (field == Field::pattern && !coordinate) scanner.fail("an array file cannot hold a pattern");
    if (field == Field::pattern && symmetry == Symmetry::skew) scanner.fail("a pattern cannot be skew-symmetric");
    return {coordinate, field, symmetry};
}

// Goes to the next value, or its line, of which the file is to have count and of which it has had done.
void expect_next(Scanner &scanner, int64_t done, int64_t count) {
    if (scanner.at_line_end() && !scanner.next_filled_line())
        scanner.fail("file ends after " + std::to_string(done) + " of " + std::to_string(count) + " entries");
}

void read_coordinates(Scanner &scanner, Field field, int64_t count, Collector &matrix) {
    for (int64_t done = 0; done < count; ++done) {
        expect_next(scanner, done, count);
        EntryLine entry = read_entry_line(scanner, field);
        matrix.add(entry.row, entry.column, std::move(entry.value));
    }
}

void read_array(Scanner &scanner, Field field, int64_t count, Collector &matrix) {
    int64_t done = 0;
    for (int64_t column = 1; column <= matrix.columns(); ++column)
        for (int64_t row = matrix.first_row(column); row <= matrix.rows(); ++row) {
            expect_next(scanner, done++, count);
            matrix.add(row, column, read_value(scanner, field));
        }
}

MatrixFile read_market(Scanner &scanner, size_t memory_limit) {
    const MarketHeader header = read_market_header(scanner);
    scanner.allow_comments();
    if (!scanner.next_filled_line()) scanner.fail("file ends before the size line");
    Collector matrix(scanner, header.symmetry, memory_limit);
    const int64_t count = header.coordinate ? scanner.whole("number of entries") : matrix.array_length();
    if (count < 0) scanner.fail("number of entries is negative");
    scanner.expect_line_end();
    (header.coordinate ? read_coordinates : read_array)(scanner, header.field, count, matrix);
    if (!scanner.at_line_end() || scanner.next_filled_line())
        scanner.fail("more than the " + std::to_string(count) + " entries of the matrix");
    return matrix.finish();
}

MatrixFile read_any(Scanner &scanner, size_t memory_limit) {
    if (scanner.at_line_end() && !scanner.next_filled_line()) scanner.fail("file is empty");
    const int first = scanner.next_character();
    if (first == '%') return read_market(scanner, memory_limit);
    if (first != '-' && (first < '0' || first > '9')) scanner.fail(unknown_header);
    return read_sms(scanner, memory_limit);
}

// Calls visit(row, column, text) for each nonzero entry, row by row.
template <class Visit>
void for_each_nonzero(int32_t rows, int32_t columns, const EntryText &value, Visit visit) {
    for (int32_t i = 0; i < rows; ++i)
        for (int32_t j = 0; j < columns; ++j) {
            const std::string text = value(i + 1, j + 1);
            if (text.find_first_of("123456789") != std::string::npos) visit(i + 1, j + 1, text);
        }
}

// Numbers are put as text, for the stream may be set to group their digits.
std::string joined(int64_t a, int64_t b, const std::string &c) {
    return std::to_string(a) + ' ' + std::to_string(b) + ' ' + c + '\n';
}

void write_entry_lines(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    for_each_nonzero(rows, columns, value,
                     [&](int32_t i, int32_t j, const std::string &text) { out << joined(i, j, text); });
}

}  // namespace

MatrixFile read_matrix_file(std::istream &in, const std::string &name, size_t memory_limit) {
    Scanner scanner(in, name);
    if (!in) scanner.fail("file cannot be read");
    try {
        return read_any(scanner, memory_limit);
    } catch (const std::ios_base::failure &) {
        scanner.fail("file cannot be read");
    } catch (const std::bad_alloc &) {
        scanner.fail("not enough memory");
    }
}

void write_matrix_market(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    int64_t nonzero = 0;
    for_each_nonzero(rows, columns, value, [&](int32_t, int32_t, const std::string &) { ++nonzero; });
    if (nonzero > int64_t{rows} * columns / 2) {
        out << "%%MatrixMarket matrix array integer general\n"
            << std::to_string(rows) << ' ' << std::to_string(columns) << '\n';
        for (int32_t j = 0; j < columns; ++j)
            for (int32_t i = 0; i < rows; ++i) out << value(i + 1, j + 1) << '\n';
    } else {
        out << "%%MatrixMarket matrix coordinate integer general\n" << joined(rows, columns, std::to_string(nonzero));
        write_entry_lines(out, rows, columns, value);
    }
}

void write_sms(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    out << joined(rows, columns, "M");
    write_entry_lines(out, rows, columns, value);
    out << joined(0, 0, "0");
}

}  // namespace modla::console
