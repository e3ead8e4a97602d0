#include "console/verb_files.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>

#include "console/error.h"
#include "console/functions.h"
#include "console/gzip.h"
#include "console/number.h"
#include "console/progress.h"
#include "console/table.h"

namespace modla::console {

namespace {

std::string place_of(int32_t row, int32_t column) {
    return "row " + std::to_string(row) + ", column " + std::to_string(column);
}

mpz_class residue_of_fraction(const mpq_class &fraction, const mpz_class &p) {
    mpz_class residue;
    if (!mpz_invert(residue.get_mpz_t(), fraction.get_den_mpz_t(), p.get_mpz_t())) {
        throw VerbError(2, fraction.get_str() + " has no value modulo " + p.get_str());
    }
    return residue * fraction.get_num();
}

// Stores residues, which need no host value of their own in the native datatypes.
void store(const Table &table, int32_t row, int32_t column, const mpz_class &residue) {
    const size_t k =
        static_cast<size_t>(row - 1) * static_cast<size_t>(table_columns(table)) + static_cast<size_t>(column - 1);
    if (table.settings.datatype == MODLA_INTEGER4) {
        static_cast<int32_t *>(table.data)[k] = static_cast<int32_t>(residue.get_ui());
    } else if (table.settings.datatype == MODLA_FLOAT8) {
        static_cast<double *>(table.data)[k] = residue.get_d();
    } else {
        set_entry(table, row, column, integer_object(residue));
    }
}

}  // namespace

MatrixFile read_input(const std::string &name) {
    const auto progress = [&](uint64_t line) { show_progress("reading " + name + ", line", int64_t(line), 0); };
    return read_matrix_file(*open_input(name), name == "-" ? "standard input" : name, default_memory_limit, progress);
}

Object residue_matrix(const MatrixFile &file, const mpz_class &p, int32_t datatype) {
    const Object matrix = new_matrix(file.rows, file.columns, datatype, MODLA_C_ORDER);
    const Table &table = table_of(matrix);
    mpz_class residue;
    for (const MatrixEntry &entry : file.entries) {
        mpz_mod(residue.get_mpz_t(), entry.value.get_mpz_t(), p.get_mpz_t());
        store(table, entry.row, entry.column, residue);
    }
    for (const auto &[place, fraction] : file.fractions) {
        residue = residue_of_fraction(fraction, p) + integer_of(get_entry_integer(table, place.first, place.second));
        mpz_mod(residue.get_mpz_t(), residue.get_mpz_t(), p.get_mpz_t());
        store(table, place.first, place.second, residue);
    }
    return matrix;
}

Object integer_matrix(const MatrixFile &file) {
    const Object matrix = new_matrix(file.rows, file.columns, MODLA_INTEGER, MODLA_C_ORDER);
    const Table &table = table_of(matrix);
    for (const MatrixEntry &entry : file.entries) store(table, entry.row, entry.column, entry.value);
    for (const auto &[place, fraction] : file.fractions) {
        const mpq_class sum = fraction + integer_of(get_entry(table, place.first, place.second));
        if (sum.get_den() != 1) {
            throw VerbError(2, sum.get_str() + " at " + place_of(place.first, place.second) +
                                   " is no integer: multiply the rows by their denominators, or give a prime by -p");
        }
        store(table, place.first, place.second, sum.get_num());
    }
    return matrix;
}

Format format_of(const std::string &option, const std::string &output, Format usual) {
    if (!option.empty()) return option == "sms" ? Format::sms : Format::matrix_market;
    std::string_view name = output;
    if (name.ends_with(".gz")) name.remove_suffix(3);
    if (name.ends_with(".sms")) return Format::sms;
    if (!name.empty() && !name.ends_with(".mtx")) {
        throw VerbError(2, output + " must end in .mtx or .sms (before .gz), or give --format");
    }
    return name.empty() ? usual : Format::matrix_market;
}

void write_text(const std::string &output, const std::string &text) {
    clear_progress();
    if (output.empty()) {
        std::cout << text << std::flush;
        return;
    }
    // A link stays one, and a device or pipe is written to.
    std::error_code none;
    const std::filesystem::file_status there = std::filesystem::status(output, none);
    const bool in_place = std::filesystem::exists(there) && !std::filesystem::is_regular_file(there);
    const std::filesystem::path real = std::filesystem::weakly_canonical(output, none);
    const std::string target = none ? output : real.string();
    const std::string temporary = in_place ? target : target + "." + std::to_string(getpid()) + ".part";
    const auto fail = [&] {
        if (!in_place) std::remove(temporary.c_str());
        throw VerbError(2, "cannot write " + output);
    };
    if (output.ends_with(".gz")) {
        try {
            write_gzip(temporary, text);
        } catch (const HostError &) {
            fail();
        }
    } else {
        std::ofstream file(temporary, std::ios::binary);
        file << text;
        file.close();
        if (!file) fail();
    }
    if (!in_place && std::rename(temporary.c_str(), target.c_str()) != 0) fail();
}

void write_matrix(const std::string &output, Format format, const MatrixText &matrix) {
    std::ostringstream text;
    if (format == Format::sms) {
        write_sms(text, matrix.rows, matrix.columns, matrix.entry);
    } else {
        write_matrix_market(text, matrix.rows, matrix.columns, matrix.entry);
        if (text.view().find('/') != std::string_view::npos) {
            throw VerbError(2, "the result has fractions, which only SMS files can hold: give --format sms");
        }
    }
    write_text(output, std::move(text).str());
}

}  // namespace modla::console
