// What the verbs of the command line read and write.
#pragma once

#include <gmpxx.h>

#include <string>

#include "console/heap.h"
#include "console/matrix_file.h"

namespace modla::console {

// Why a verb ends without a result: 1 when the mathematics says no, 2 when the call or a file is at fault.
struct VerbError : std::runtime_error {
    VerbError(int its_status, const std::string &message) : std::runtime_error(message), status(its_status) {}
    int status;
};

// A file, or standard input for "-".
MatrixFile read_input(const std::string &name);

// The file's Matrix modulo p, of this datatype; or as it is, which must be integral.
Object residue_matrix(const MatrixFile &file, const mpz_class &p, int32_t datatype);
Object integer_matrix(const MatrixFile &file);

// A Matrix that is to be written.
struct MatrixText {
    int32_t rows, columns;
    EntryText entry;
};

enum class Format { matrix_market, sms };

// By the option --format, or the ending of the output file, or as usual.
Format format_of(const std::string &option, const std::string &output, Format usual);

// Into the file, which is there with all of its text or as it was before; on standard output for "".
void write_text(const std::string &output, const std::string &text);
void write_matrix(const std::string &output, Format format, const MatrixText &matrix);

}  // namespace modla::console
