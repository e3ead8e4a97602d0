// Callbacks of products and sums.
#include <flint/fmpz_mat.h>

#include "console/callback_arguments.h"
#include "console/host.h"

namespace modla::console {

namespace {

// The blocks of a call from arguments[at] on, `count` in all: each is followed by its shifts when the call has them.
struct Blocks {
    const Arguments &arguments;
    size_t at, count;
    bool shifted = arguments.size() > at + count;

    IntegerBlock next(int32_t rows, int32_t columns) {
        const Object table = arguments[at++];
        const int32_t row = shifted ? count_argument(arguments[at++]) : 0;
        const int32_t column = shifted ? count_argument(arguments[at++]) : 0;
        return integer_block(table, row, rows, column, columns);
    }
};

// ---- cbMatMult(p, m, k, n, A, B, C), cbMatMultShift: each of A, B, C followed by its shifts

// A matrix of FLINT's, whose product is taken over the integers: residues keep it short.
struct FlintMatrix {
    fmpz_mat_t mat;

    FlintMatrix(int32_t rows, int32_t columns) { fmpz_mat_init(mat, rows, columns); }
    ~FlintMatrix() { fmpz_mat_clear(mat); }
    FlintMatrix(const FlintMatrix &) = delete;
    FlintMatrix &operator=(const FlintMatrix &) = delete;

    fmpz *at(int32_t i, int32_t j) { return fmpz_mat_entry(mat, i, j); }
};

void set_residue(fmpz *to, uint64_t value) {
    fmpz_set_ui(to, static_cast<ulong>(value));
}
void set_residue(fmpz *to, const mpz_class &value) {
    fmpz_set_mpz(to, value.get_mpz_t());
}

template <class Residue>
void read_factor(const Residue &residue, const IntegerBlock &block, FlintMatrix &matrix) {
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) set_residue(matrix.at(i, j), residue_of(residue, block.at(i, j)));
    }
}

void write_product(const mpz_class &p, FlintMatrix &product, const IntegerBlock &block) {
    mpz_class entry;
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            fmpz_get_mpz(entry.get_mpz_t(), product.at(i, j));
            mpz_tdiv_r(entry.get_mpz_t(), entry.get_mpz_t(), p.get_mpz_t());
            block.at(i, j) = host_integer(entry);
        }
    }
}

Object run_product(const Arguments &arguments) {
    const int32_t m = count_argument(arguments[1]), k = count_argument(arguments[2]), n = count_argument(arguments[3]);
    Blocks blocks = {arguments, 4, 3};
    const IntegerBlock A = blocks.next(m, k), B = blocks.next(k, n), C = blocks.next(m, n);
    const mpz_class p = modulus_argument(arguments[0]);
    // Three matrices, each as integers and modulo the primes by which FLINT multiplies.
    const int64_t entries = int64_t{m} * k + int64_t{k} * n + int64_t{m} * n;
    check_memory(static_cast<uint64_t>(entries) * 2 * entry_bytes(BigResidue{p}));
    FlintMatrix a(m, k), b(k, n), c(m, n);
    with_residue(arguments[0], [&](const auto &residue) {
        read_factor(residue, A, a);
        read_factor(residue, B, b);
    });
    fmpz_mat_mul(c.mat, a.mat, b.mat);
    write_product(p, c, C);
    return null_value();
}

// ---- cbScalMult(p, m, n, s, B, C), cbScalMultShift: C = s*B

Object run_scaling(const Arguments &arguments) {
    const int32_t m = count_argument(arguments[1]), n = count_argument(arguments[2]);
    Blocks blocks = {arguments, 4, 2};
    const IntegerBlock B = blocks.next(m, n), C = blocks.next(m, n);
    return with_residue(arguments[0], [&](const auto &residue) {
        const auto s = residue_of(residue, arguments[3]);
        auto entries = read_block(residue, B);
        for (auto &entry : entries) entry = residue.multiply(s, entry);
        write_block(entries, C);
        return null_value();
    });
}

// ---- cbAddMult(p, rows, columns, c, A, B, C), cbAddMultShift: C = A + c*B

Object run_sum(const Arguments &arguments) {
    const int32_t rows = count_argument(arguments[1]), columns = count_argument(arguments[2]);
    Blocks blocks = {arguments, 4, 3};
    const IntegerBlock A = blocks.next(rows, columns), B = blocks.next(rows, columns), C = blocks.next(rows, columns);
    return with_residue(arguments[0], [&](const auto &residue) {
        const auto c = residue_of(residue, arguments[3]);
        auto sums = read_block(residue, A);
        const auto terms = read_block(residue, B);
        for (size_t k = 0; k < sums.size(); k++) sums[k] = residue.multiply_add(c, terms[k], sums[k]);
        write_block(sums, C);
        return null_value();
    });
}

}  // namespace

std::vector<CallbackDefinition> product_callbacks() {
    return {{"cbMatMult", 7, run_product},        {"cbMatMultShift", 13, run_product}, {"cbScalMult", 6, run_scaling},
            {"cbScalMultShift", 10, run_scaling}, {"cbAddMult", 7, run_sum},           {"cbAddMultShift", 13, run_sum}};
}

}  // namespace modla::console
