#include "console/matrix_file.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <new>
#include <string_view>
#include <tuple>
#include <utility>

namespace modla::console {
namespace {

constexpr size_t longest_word = 1'000'001;  // a sign and a million digits
constexpr int64_t longest_real = 10'000;    // digits that a real value may have when written out
constexpr int64_t most_cells = int64_t{1} << 31;
constexpr std::string_view blanks = " \t\r\v\f";

// A character that no text file has?
bool is_foreign(char c) {
    const bool control = (c >= 0 && c < ' ') || c == '\x7f';
    return control && blanks.find(c) == std::string_view::npos;
}

bool is_number(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

// Removes the sign that text may begin with; was it a minus?
bool take_sign(std::string_view &text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    return negative;
}

// A whole number; one of 10^18 or more becomes some number between 10^18 and 10^18 + 9 of its sign.
bool parse_whole(std::string_view text, int64_t *value) {
    const bool negative = take_sign(text);
    if (!is_number(text)) return false;
    *value = 0;
    for (const char digit : text) *value = std::min(*value, int64_t{100'000'000'000'000'000}) * 10 + (digit - '0');
    if (negative) *value = -*value;
    return true;
}

std::string lower(std::string_view text) {
    std::string result(text);
    for (char &c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

// The text as an error message shows it: short and printable.
std::string quoted(std::string_view text) {
    constexpr size_t shown = 40;
    std::string result = "'";
    for (const char c : text.substr(0, shown)) result += c > ' ' && c < '\x7f' ? c : '?';
    return result + (text.size() > shown ? "...'" : "'");
}

// A text file line by line, and each line word by word.
struct Reader {
    std::istream &in;
    const std::string &name;
    const std::function<void(uint64_t line)> &progress;
    uint64_t number = 0;  // of the line
    std::string line = {};
    std::string_view rest = {};  // of the line, from the next word on
    char comment = '\0';         // what comments begin with

    [[noreturn]] void fail(const std::string &reason) const {
        throw MatrixFileError(name + ":" + std::to_string(std::max(number, uint64_t{1})) + ": " + reason);
    }

    // Goes to the next line that has words and is no comment; false at the end of the file.
    bool next_line() {
        while (std::getline(in, line)) {
            number++;
            if (number == 1 && line.starts_with("\xef\xbb\xbf")) line.erase(0, 3);  // a byte-order mark
            if (progress && number % 65536 == 0) progress(number);
            const auto foreign = std::find_if(line.begin(), line.end(), is_foreign);
            if (foreign != line.end()) fail("not a text file: byte " + std::to_string(*foreign));
            rest = line;
            skip_blanks();
            if (!rest.empty() && (comment == '\0' || rest[0] != comment)) return true;
        }
        if (in.bad()) fail("file cannot be read");
        return false;
    }

    void skip_blanks() { rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size())); }

    // The next word on this line; empty when there is none.
    std::string_view word() {
        const std::string_view result = rest.substr(0, rest.find_first_of(blanks));
        if (result.size() > longest_word) fail("word of more than " + std::to_string(longest_word) + " characters");
        rest.remove_prefix(result.size());
        skip_blanks();
        return result;
    }

    // The next word on this line, which is to be there.
    std::string_view word(const char *what) {
        if (rest.empty()) fail(std::string("missing ") + what);
        return word();
    }

    int64_t whole(const char *what) {
        const std::string_view text = word(what);
        int64_t value;
        if (!parse_whole(text, &value)) fail(quoted(text) + " is not a whole number, as a " + what + " is");
        return value;
    }

    void expect_line_end() {
        if (!rest.empty()) fail("unexpected " + quoted(word()) + " at the end of the line");
    }
};

enum class Field { integer, real, pattern, rational };  // in the order of the header's keywords; the last of SMS files
enum class Symmetry { general, symmetric, skew };       // likewise

mpz_class parse_integer(const Reader &reader, std::string_view text) {
    std::string_view digits = text;
    const bool negative = take_sign(digits);
    if (!is_number(digits)) reader.fail("value " + quoted(text) + " is not a number");
    constexpr size_t most_small_digits = 9;
    if (digits.size() <= most_small_digits) {
        long value = 0;
        for (const char digit : digits) value = 10 * value + (digit - '0');
        return negative ? -value : value;
    }
    const mpz_class magnitude(std::string(digits), 10);
    return negative ? mpz_class(-magnitude) : magnitude;
}

// A real value, which is to be integral: 3, 3.0, 3e2, -1.5e1.  It is written out only when it is of moderate length.
mpz_class parse_real(const Reader &reader, std::string_view text) {
    std::string_view rest = text;
    const bool negative = take_sign(rest);
    const size_t mantissa_end = std::min(rest.find_first_of("eE"), rest.size());
    std::string digits(rest.substr(0, mantissa_end));
    int64_t exponent = 0;
    bool number = mantissa_end == rest.size() || parse_whole(rest.substr(mantissa_end + 1), &exponent);
    const size_t point = digits.find('.');
    if (point != std::string::npos) {
        digits.erase(point, 1);
        exponent -= static_cast<int64_t>(digits.size() - point);
    }
    number &= is_number(digits);
    if (!number) reader.fail("value " + quoted(text) + " is not a number");
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    if (digits.empty()) return 0;
    const size_t significant = digits.find_last_not_of('0') + 1;
    exponent += static_cast<int64_t>(digits.size() - significant);
    digits.resize(significant);
    if (exponent < 0) reader.fail("value " + quoted(text) + " is not an integer");
    if (static_cast<int64_t>(significant) + exponent > longest_real)
        reader.fail("value " + quoted(text) + " has more than " + std::to_string(longest_real) + " digits");
    digits.append(static_cast<size_t>(exponent), '0');
    return parse_integer(reader, (negative ? "-" : "") + digits);
}

mpz_class read_value(Reader &reader, Field field) {
    if (field == Field::pattern) return 1;
    const std::string_view text = reader.word("value");
    return field == Field::integer ? parse_integer(reader, text) : parse_real(reader, text);
}

// Gathers the entries of a matrix, whose size it reads first.
struct Collector {
    Reader &reader;
    Symmetry symmetry;
    size_t memory_left;
    MatrixFile matrix{};

    Collector(Reader &from, Symmetry its_symmetry, size_t memory_limit)
        : reader(from), symmetry(its_symmetry), memory_left(memory_limit) {
        matrix.rows = read_size("number of rows");
        matrix.columns = read_size("number of columns");
        if (cells() == 0) reader.fail("matrix has no entries");
        if (cells() > most_cells) reader.fail("matrix has more than 2^31 cells");
        if (symmetry != Symmetry::general && matrix.rows != matrix.columns)
            reader.fail("symmetric matrix is not square");
    }

    int32_t read_size(const char *what) {
        const int64_t size = reader.whole(what);
        if (size < 0) reader.fail(std::string(what) + " is negative");
        if (size > std::numeric_limits<int32_t>::max()) reader.fail(std::string(what) + " is too large");
        return static_cast<int32_t>(size);
    }

    int64_t cells() const { return int64_t{matrix.rows} * matrix.columns; }

    // How many values an array file has.
    int64_t array_length() const {
        if (symmetry == Symmetry::general) return cells();
        return (cells() + (symmetry == Symmetry::skew ? -matrix.rows : matrix.rows)) / 2;
    }

    // The first row that the file may list in a column.
    int64_t first_row(int64_t column) const {
        if (symmetry == Symmetry::general) return 1;
        return symmetry == Symmetry::symmetric ? column : column + 1;
    }

    void check_index(const char *what, int64_t index, int32_t size) const {
        if (index < 1 || index > size) reader.fail(std::string(what) + " index is not in 1.." + std::to_string(size));
    }

    void add(int64_t row, int64_t column, mpz_class value) {
        check_index("row", row, matrix.rows);
        check_index("column", column, matrix.columns);
        if (row < first_row(column))
            reader.fail(row < column ? "entry above the diagonal of a symmetric matrix"
                                     : "entry on the diagonal of a skew-symmetric matrix");
        const auto i = static_cast<int32_t>(row), j = static_cast<int32_t>(column);
        if (symmetry != Symmetry::general && i != j)
            store(j, i, symmetry == Symmetry::skew ? mpz_class(-value) : value);
        store(i, j, std::move(value));
    }

    void take_memory(size_t bytes) {
        if (bytes > memory_left) reader.fail("matrix is too large for the memory it may take");
        memory_left -= bytes;
    }

    void store(int32_t row, int32_t column, mpz_class value) {
        if (value == 0) return;
        constexpr size_t block_overhead = 16;
        take_memory(sizeof(MatrixEntry) + block_overhead + mpz_size(value.get_mpz_t()) * sizeof(mp_limb_t));
        matrix.entries.push_back({row, column, std::move(value)});
    }

    void add_fraction(int64_t row, int64_t column, std::string_view text) {
        const size_t slash = text.find('/');
        const std::string_view below = text.substr(slash + 1);
        mpq_class value(parse_integer(reader, text.substr(0, slash)),
                        is_number(below) ? parse_integer(reader, below) : 0);
        if (value.get_den() == 0) reader.fail("value " + quoted(text) + " is not a number");
        value.canonicalize();
        check_index("row", row, matrix.rows);
        check_index("column", column, matrix.columns);
        take_memory(2 * sizeof(MatrixEntry) + text.size());
        matrix.fractions[{static_cast<int32_t>(row), static_cast<int32_t>(column)}] += value;
    }

    // Adds the entry on a line; is it one, and not the line 0 0 0 that closes an SMS file?
    bool add_line(Field field, bool may_close) {
        const int64_t row = reader.whole("row index"), column = reader.whole("column index");
        if (field == Field::rational && reader.rest.find('/') != reader.rest.npos) {
            add_fraction(row, column, reader.word());
            reader.expect_line_end();
            return true;
        }
        mpz_class value = read_value(reader, field);
        reader.expect_line_end();
        if (may_close && row == 0 && column == 0 && value == 0) return false;
        add(row, column, std::move(value));
        return true;
    }

    // By row, then column.  Files are in order already, or come by columns: then their entries go to their rows first.
    void sort_entries() {
        auto &entries = matrix.entries;
        const auto before = [](const MatrixEntry &a, const MatrixEntry &b) {
            return std::tie(a.row, a.column) < std::tie(b.row, b.column);
        };
        if (std::is_sorted(entries.begin(), entries.end(), before)) return;
        constexpr size_t most_copied = size_t{1} << 24;
        const auto rows = static_cast<size_t>(matrix.rows);
        if (entries.size() > most_copied || rows > entries.size()) {
            std::sort(entries.begin(), entries.end(), before);
            return;
        }
        std::vector<size_t> next(rows + 1);  // the place of the next entry of a row
        for (const MatrixEntry &entry : entries) next[static_cast<size_t>(entry.row)]++;
        for (size_t i = 1; i <= rows; i++) next[i] += next[i - 1];
        std::vector<MatrixEntry> sorted(entries.size());
        for (MatrixEntry &entry : entries) std::swap(sorted[next[static_cast<size_t>(entry.row) - 1]++], entry);
        entries.swap(sorted);
        for (auto row = entries.begin(); row != entries.end();) {
            const auto end = std::find_if(row, entries.end(), [&](const MatrixEntry &e) { return e.row != row->row; });
            if (!std::is_sorted(row, end, before)) std::sort(row, end, before);
            row = end;
        }
    }

    MatrixFile finish() {
        const auto place = [](const MatrixEntry &entry) { return std::tie(entry.row, entry.column); };
        auto &entries = matrix.entries;
        sort_entries();
        size_t kept = 0;
        for (MatrixEntry &entry : entries) {
            if (kept > 0 && place(entries[kept - 1]) == place(entry))
                entries[kept - 1].value += entry.value;
            else
                std::swap(entries[kept++], entry);
        }
        entries.erase(entries.begin() + static_cast<ptrdiff_t>(kept), entries.end());
        std::erase_if(entries, [](const MatrixEntry &entry) { return entry.value == 0; });
        return std::move(matrix);
    }
};

constexpr const char *unknown_header =
    "unknown header: neither \"%%MatrixMarket matrix ...\" nor \"rows columns type\"";

MatrixFile read_sms(Reader &reader, size_t memory_limit) {
    Collector matrix(reader, Symmetry::general, memory_limit);
    const std::string type = lower(reader.word("type letter"));
    matrix.matrix.kind = "SMS";
    if (type.size() != 1 || type[0] < 'a' || type[0] > 'z') reader.fail(quoted(type) + " is not a type letter");
    reader.expect_line_end();
    do {
        if (!reader.next_line()) reader.fail("file ends before the closing line 0 0 0");
    } while (matrix.add_line(type == "r" ? Field::rational : Field::integer, true));
    if (reader.next_line()) reader.fail("text after the closing line 0 0 0");
    return matrix.finish();
}

// The place among the known keywords of the header's next word.
size_t read_keyword(Reader &reader, std::initializer_list<std::string_view> known, std::string_view unsupported = {}) {
    const std::string word = lower(reader.word("keyword in the header"));
    const auto found = std::find(known.begin(), known.end(), word);
    if (word == unsupported) reader.fail(quoted(word) + " matrix files are not supported");
    if (found == known.end()) reader.fail("unknown keyword " + quoted(word) + " in the header");
    return static_cast<size_t>(found - known.begin());
}

MatrixFile read_market(Reader &reader, size_t memory_limit) {
    if (lower(reader.word()) != "%%matrixmarket") reader.fail(unknown_header);
    read_keyword(reader, {"matrix"}, "vector");
    const std::string header = lower(reader.rest);
    const bool coordinate = read_keyword(reader, {"array", "coordinate"}) == 1;
    const auto field = static_cast<Field>(read_keyword(reader, {"integer", "real", "pattern"}, "complex"));
    const auto symmetry =
        static_cast<Symmetry>(read_keyword(reader, {"general", "symmetric", "skew-symmetric"}, "hermitian"));
    reader.expect_line_end();
    if (field == Field::pattern && !coordinate) reader.fail("an array file cannot hold a pattern");
    if (field == Field::pattern && symmetry == Symmetry::skew) reader.fail("a pattern cannot be skew-symmetric");
    reader.comment = '%';
    if (!reader.next_line()) reader.fail("file ends before the size line");
    Collector matrix(reader, symmetry, memory_limit);
    matrix.matrix.kind = "Matrix Market, " + header;
    const int64_t count = coordinate ? reader.whole("number of entries") : matrix.array_length();
    if (count < 0) reader.fail("number of entries is negative");
    reader.expect_line_end();
    int64_t column = 1, row = matrix.first_row(column);  // of the next entry of an array
    for (int64_t done = 0; done < count; done++, row++) {
        if (reader.rest.empty() && !reader.next_line())
            reader.fail("file ends after " + std::to_string(done) + " of " + std::to_string(count) + " entries");
        if (coordinate) {
            matrix.add_line(field, false);
            continue;
        }
        if (row > matrix.matrix.rows) row = matrix.first_row(++column);
        matrix.add(row, column, read_value(reader, field));
    }
    if (!reader.rest.empty() || reader.next_line())
        reader.fail("more than the " + std::to_string(count) + " entries of the matrix");
    return matrix.finish();
}

MatrixFile read_any(Reader &reader, size_t memory_limit) {
    reader.comment = '#';  // of SMS files, even before the header
    if (!reader.next_line()) reader.fail("file is empty");
    const char first = reader.rest[0];
    if (first == '%') return read_market(reader, memory_limit);
    if (first != '-' && (first < '0' || first > '9')) reader.fail(unknown_header);
    return read_sms(reader, memory_limit);
}

// Numbers are put as text, for the stream may be set to group their digits.
std::string joined(int64_t a, int64_t b, const std::string &c) {
    return std::to_string(a) + ' ' + std::to_string(b) + ' ' + c + '\n';
}

bool is_zero(const std::string &text) {
    return text.find_first_of("123456789") == std::string::npos;
}

void write_nonzero(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    for (int32_t i = 1; i <= rows; ++i)
        for (int32_t j = 1; j <= columns; ++j) {
            const std::string text = value(i, j);
            if (!is_zero(text)) out << joined(i, j, text);
        }
}

}  // namespace

MatrixFile read_matrix_file(std::istream &in, const std::string &name, size_t memory_limit,
                            const std::function<void(uint64_t line)> &progress) {
    Reader reader{in, name, progress};
    if (!in) reader.fail("file cannot be read");
    try {
        return read_any(reader, memory_limit);
    } catch (const std::bad_alloc &) {
        reader.fail("not enough memory");
    }
}

void write_matrix_market(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    int64_t nonzero = 0;
    for (int32_t i = 1; i <= rows; ++i)
        for (int32_t j = 1; j <= columns; ++j) nonzero += !is_zero(value(i, j));
    if (nonzero > int64_t{rows} * columns / 2) {
        out << "%%MatrixMarket matrix array integer general\n"
            << std::to_string(rows) << ' ' << std::to_string(columns) << '\n';
        for (int32_t j = 1; j <= columns; ++j)
            for (int32_t i = 1; i <= rows; ++i) out << value(i, j) << '\n';
    } else {
        out << "%%MatrixMarket matrix coordinate integer general\n" << joined(rows, columns, std::to_string(nonzero));
        write_nonzero(out, rows, columns, value);
    }
}

void write_sms(std::ostream &out, int32_t rows, int32_t columns, const EntryText &value) {
    bool fractions = false;
    for (int32_t i = 1; i <= rows && !fractions; ++i)
        for (int32_t j = 1; j <= columns && !fractions; ++j) fractions = value(i, j).find('/') != std::string::npos;
    out << joined(rows, columns, fractions ? "R" : "M");
    write_nonzero(out, rows, columns, value);
    out << joined(0, 0, "0");
}

}  // namespace modla::console
