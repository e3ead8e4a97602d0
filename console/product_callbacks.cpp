// Callbacks of products and sums.
#include <flint/fmpz_mat.h>

#include "console/callback_arguments.h"
#include "console/host.h"

namespace modla::console {

namespace {

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
void set_residue(fmpz *to, mpz_class value) {
    mpz_swap(_fmpz_promote(to), value.get_mpz_t());
    _fmpz_demote_val(to);
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

template <bool shifted>
Object run_product(const Arguments &arguments) {
    constexpr size_t step = shifted ? 3 : 1;
    const int32_t m = count_argument(arguments[1]), k = count_argument(arguments[2]), n = count_argument(arguments[3]);
    const IntegerBlock A = block_argument(arguments, 4, shifted, m, k);
    const IntegerBlock B = block_argument(arguments, 4 + step, shifted, k, n);
    const IntegerBlock C = block_argument(arguments, 4 + 2 * step, shifted, m, n);
    const mpz_class p = modulus_argument(arguments[0]);
    // Three matrices, each as integers and modulo the primes by which FLINT multiplies.
    const auto entries = [](int32_t rows, int32_t columns) {
        return static_cast<uint64_t>(rows) * static_cast<uint64_t>(columns);
    };
    check_memory((entries(m, k) + entries(k, n) + entries(m, n)) * 2 * entry_bytes(BigResidue{p}));
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

template <bool shifted>
Object run_scaling(const Arguments &arguments) {
    const int32_t m = count_argument(arguments[1]), n = count_argument(arguments[2]);
    const IntegerBlock B = block_argument(arguments, 4, shifted, m, n);
    const IntegerBlock C = block_argument(arguments, shifted ? 7 : 5, shifted, m, n);
    return with_residue(arguments[0], [&](const auto &residue) {
        const auto s = residue_of(residue, arguments[3]);
        auto entries = read_block(residue, B);
        for (auto &entry : entries) entry = residue.multiply(s, entry);
        write_block(entries, C);
        return null_value();
    });
}

// ---- cbAddMult(p, rows, columns, c, A, B, C), cbAddMultShift: C = A + c*B

template <bool shifted>
Object run_sum(const Arguments &arguments) {
    constexpr size_t step = shifted ? 3 : 1;
    const int32_t rows = count_argument(arguments[1]), columns = count_argument(arguments[2]);
    const IntegerBlock A = block_argument(arguments, 4, shifted, rows, columns);
    const IntegerBlock B = block_argument(arguments, 4 + step, shifted, rows, columns);
    const IntegerBlock C = block_argument(arguments, 4 + 2 * step, shifted, rows, columns);
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
    return {{"cbMatMult", 7, run_product<false>},  {"cbMatMultShift", 13, run_product<true>},
            {"cbScalMult", 6, run_scaling<false>}, {"cbScalMultShift", 10, run_scaling<true>},
            {"cbAddMult", 7, run_sum<false>},      {"cbAddMultShift", 13, run_sum<true>}};
}

}  // namespace modla::console
