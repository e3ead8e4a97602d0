// Any bytes as a matrix file: what the reader accepts is in order, and comes back from both writers as it was.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "console/matrix_file.h"
#include "console/number.h"
#include "console/table.h"
#include "tests/fuzz/session.h"

using namespace modla_fuzz;

namespace {

constexpr size_t entry_bytes = 1 << 20;

bool same(const MatrixFile &a, const MatrixFile &b) {
    if (a.rows != b.rows || a.columns != b.columns || a.entries.size() != b.entries.size()) return false;
    for (size_t k = 0; k < a.entries.size(); k++) {
        const MatrixEntry &x = a.entries[k], &y = b.entries[k];
        if (x.row != y.row || x.column != y.column || x.value != y.value) return false;
    }
    return true;
}

bool is_in_order(const MatrixFile &file) {
    if (file.rows < 1 || file.columns < 1 || int64_t{file.rows} * file.columns > int64_t{1} << 31) return false;
    for (size_t k = 0; k < file.entries.size(); k++) {
        const MatrixEntry &x = file.entries[k];
        if (x.row < 1 || x.row > file.rows || x.column < 1 || x.column > file.columns || x.value == 0) return false;
        if (k == 0) continue;
        const MatrixEntry &last = file.entries[k - 1];
        if (last.row > x.row || (last.row == x.row && last.column >= x.column)) return false;
    }
    for (const auto &[place, fraction] : file.fractions) {
        const auto &[row, column] = place;
        if (row < 1 || row > file.rows || column < 1 || column > file.columns || fraction.get_den() < 1) return false;
    }
    return true;
}

void check_writers(const MatrixFile &file) {
    std::vector<std::string> cells(static_cast<size_t>(file.rows) * static_cast<size_t>(file.columns), "0");
    const auto cell = [&](int32_t i, int32_t j) -> std::string & {
        return cells[static_cast<size_t>(i - 1) * static_cast<size_t>(file.columns) + static_cast<size_t>(j - 1)];
    };
    for (const MatrixEntry &entry : file.entries) cell(entry.row, entry.column) = entry.value.get_str();
    for (const auto write : {write_matrix_market, write_sms}) {
        std::stringstream text;
        write(text, file.rows, file.columns, cell);
        require(same(read_matrix_file(text, "again"), file), "a written matrix reads as it was");
    }
}

// The bytes as a file with a name.
int open_memory(const uint8_t *data, size_t size) {
    const int file = memfd_create("input", 0);
    for (size_t done = 0; file >= 0 && done < size;) {
        const ssize_t written = write(file, data + done, size - done);
        require(written > 0, "the fuzzer can write to memory");
        done += static_cast<size_t>(written);
    }
    return file;
}

constexpr unsigned long modulus = 65521;

void require_residue(const Table &table, int32_t row, int32_t column, const mpq_class &value) {
    const mpz_class difference = integer_of(get_entry(table, row, column)) * value.get_den() - value.get_num();
    require(mpz_divisible_ui_p(difference.get_mpz_t(), modulus), "a Matrix has the file's values");
}

// The console's functions on the same file.
void check_functions(const std::string &name, const MatrixFile *matrix) {
    Roots arguments;
    arguments.values = {integer_object(int64_t{modulus}), new_string(name), evaluate_text("integer[4]")};
    Roots result;
    bool read = false;
    in_session([&] {
        result.values.push_back(call_procedure(evaluate(global_name("ReadMatrix")), arguments.values));
        read = true;
        const Table &table = table_of(result.values[0]);
        require(matrix && table_rows(table) == matrix->rows && table_columns(table) == matrix->columns,
                "a Matrix has the file's size");
        for (const MatrixEntry &entry : matrix->entries) {
            if (!matrix->fractions.contains({entry.row, entry.column})) {
                require_residue(table, entry.row, entry.column, entry.value);
            }
        }
        for (const auto &[at, fraction] : matrix->fractions) {
            const auto &place = at;  // Clang 14 captures no structured binding
            const auto same_place = [&](const MatrixEntry &entry) {
                return place == std::pair(entry.row, entry.column);
            };
            const auto whole = std::find_if(matrix->entries.begin(), matrix->entries.end(), same_place);
            require_residue(table, place.first, place.second,
                            whole == matrix->entries.end() ? fraction : mpq_class(whole->value + fraction));
        }
    });
    require(!read || matrix, "only matrices are read");
    in_session([&] { call_procedure(evaluate(global_name("ReadLists")), {arguments.values[1]}); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_session();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::istringstream input(std::string(reinterpret_cast<const char *>(data), size));
    std::unique_ptr<MatrixFile> matrix;
    try {
        matrix = std::make_unique<MatrixFile>(read_matrix_file(input, "input", entry_bytes));
    } catch (const MatrixFileError &error) {
        require(std::string(error.what()).starts_with("input:"), "an error tells the place");
    }
    if (matrix) require(is_in_order(*matrix), "entries are in order");
    if (matrix && int64_t{matrix->rows} * matrix->columns <= 10000) check_writers(*matrix);
    const int file = open_memory(data, size);
    check_functions("/proc/self/fd/" + std::to_string(file), matrix.get());
    close(file);
    return 0;
}
