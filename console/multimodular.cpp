#include "console/multimodular.h"

#include <flint/fmpq.h>
#include <flint/fmpz.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "console/error.h"
#include "console/functions.h"
#include "console/number.h"
#include "console/print.h"
#include "console/progress.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr uint32_t primes_end = 1 << 25, primes_begin = 1 << 24;
constexpr double primes_between = 985818;  // primes from primes_begin to primes_end

mpz_class entry_of(const Table &table, int32_t i, int32_t j) {
    return integer_of(get_entry_integer(table, i, j));
}

// The product of the squares of the rows' norms, those above 1.
mpz_class rows_bound(const std::vector<mpz_class> &squares) {
    mpz_class bound = 1;
    for (const mpz_class &square : squares) {
        if (square > 1) bound *= square;
    }
    return bound;
}

// Residues modulo some primes to integers, with the tables that it takes.
struct Combination {
    fmpz_comb_t comb;
    fmpz_comb_temp_t work;
    fmpz_t value;
    std::vector<mp_limb_t> residues;

    explicit Combination(const std::vector<uint32_t> &primes) : residues(primes.begin(), primes.end()) {
        fmpz_comb_init(comb, residues.data(), static_cast<slong>(primes.size()));
        fmpz_comb_temp_init(work, comb);
        fmpz_init(value);
    }
    ~Combination() {
        fmpz_clear(value);
        fmpz_comb_temp_clear(work);
        fmpz_comb_clear(comb);
    }
    Combination(const Combination &) = delete;
    Combination &operator=(const Combination &) = delete;
};

const Table &table_argument(Object x) {
    if (!has_type(x, type_table)) throw HostError("expected a Matrix or Vector, got " + to_line(x));
    return table_of(x);
}

std::vector<uint32_t> numbers_of(Object list) {
    if (!has_type(list, type_list)) throw HostError("expected a list, got " + to_line(list));
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0; i < size_of(list); i++) {
        numbers.push_back(static_cast<uint32_t>(small_integer(element(list, i), "a residue or prime")));
    }
    return numbers;
}

std::vector<uint32_t> residues_of(const Table &table) {
    std::vector<uint32_t> residues;
    for (int32_t i = 1; i <= table_rows(table); i++) {
        for (int32_t j = 1; j <= table_columns(table); j++) {
            residues.push_back(static_cast<uint32_t>(entry_of(table, i, j).get_ui()));
        }
    }
    return residues;
}

Object truth(bool value) {
    return global_name(value ? "true" : "false");
}

Object bound_minors(const Arguments &arguments) {
    return integer_object(minors_bound(table_argument(arguments[0])));
}

Object prime_value(const Arguments &arguments) {
    const int32_t k = small_integer(arguments[0], "a number of a prime");
    return integer_object(int64_t{multimodular_prime(static_cast<size_t>(std::max(k, 1)))});
}

Object random_prime(const Arguments &) {
    mpz_class p;
    do p = primes_begin + random_source().get_z_range(primes_end - primes_begin);
    while (mpz_probab_prime_p(p.get_mpz_t(), 1) == 0);
    return integer_object(p);
}

Object count_primes(const Arguments &arguments) {
    if (!is_integer(arguments[0])) throw HostError("expected an integer, got " + to_line(arguments[0]));
    return integer_object(static_cast<int64_t>(primes_beyond(integer_of(arguments[0]))));
}

Object combine_residues(const Arguments &arguments) {
    return integer_object(chinese_remainder(numbers_of(arguments[0]), numbers_of(arguments[1])));
}

// Of a list of solutions modulo primes, the solution; or false.
Object find_fractions(const Arguments &arguments) {
    const std::vector<uint32_t> primes = numbers_of(arguments[1]);
    std::vector<std::vector<uint32_t>> residues;
    for (size_t k = 0; k < primes.size(); k++) {
        residues.push_back(residues_of(table_argument(element(arguments[0], static_cast<uint32_t>(k)))));
    }
    std::vector<mpq_class> fractions;
    if (!reconstruct_fractions(residues, primes, &fractions)) return truth(false);
    const Table &model = table_of(element(arguments[0], 0));
    RtableSettings settings = model.settings;
    settings.datatype = MODLA_INTEGER;
    settings.view = 0;
    const Object solution = new_table(settings, model.bounds, nullptr);
    size_t k = 0;
    for (int32_t i = 1; i <= table_rows(model); i++) {
        for (int32_t j = 1; j <= table_columns(model); j++) {
            set_entry(table_of(solution), i, j, rational_object(fractions[k++]));
        }
    }
    return solution;
}

mpq_class fraction_of(Object x) {
    if (is_integer(x)) return mpq_class(integer_of(x));
    return mpq_class(integer_of(words(x)[1]), integer_of(words(x)[2]));
}

// A*X = B over the rationals, with every column of X over its common denominator?
Object check_solution(const Arguments &arguments) {
    const Table &A = table_argument(arguments[0]), &X = table_argument(arguments[1]), &B = table_argument(arguments[2]);
    const int32_t m = table_rows(A), n = table_columns(A), k = table_columns(X);
    std::vector<std::vector<mpz_class>> numerators(static_cast<size_t>(k));
    std::vector<mpz_class> denominators(static_cast<size_t>(k), 1);
    for (int32_t c = 0; c < k; c++) {
        std::vector<mpq_class> column;
        mpz_class &denominator = denominators[static_cast<size_t>(c)];
        for (int32_t j = 1; j <= n; j++) {
            column.push_back(fraction_of(get_entry(X, j, c + 1)));
            denominator = lcm(denominator, column.back().get_den());
        }
        for (const mpq_class &x : column) {
            numerators[static_cast<size_t>(c)].push_back(x.get_num() * (denominator / x.get_den()));
        }
    }
    for (int32_t i = 1; i <= m; i++) {
        std::vector<mpz_class> row;
        for (int32_t j = 1; j <= n; j++) row.push_back(entry_of(A, i, j));
        for (int32_t c = 0; c < k; c++) {
            mpz_class sum = -denominators[static_cast<size_t>(c)] * entry_of(B, i, c + 1);
            for (size_t j = 0; j < row.size(); j++) {
                if (row[j] != 0) sum += row[j] * numerators[static_cast<size_t>(c)][j];
            }
            if (sum != 0) return truth(false);
        }
    }
    return truth(true);
}

Object report_progress(const Arguments &arguments) {
    show_progress(to_plain(arguments[0]), small_integer(arguments[1], "a number"),
                  small_integer(arguments[2], "a number"));
    return null_value();
}

Object begin_stage(const Arguments &arguments) {
    set_progress_stage(to_plain(arguments[0]));
    return null_value();
}

}  // namespace

uint32_t multimodular_prime(size_t k) {
    static auto *const primes = new std::vector<uint32_t>;
    while (primes->size() < k) {
        mpz_class p = primes->empty() ? primes_end : primes->back();
        do p -= 1;
        while (mpz_probab_prime_p(p.get_mpz_t(), 1) == 0);  // exact below 2^64: a Baillie-PSW test
        if (p < primes_begin) throw HostError("the numbers are too large: there are not enough primes below 2^25");
        primes->push_back(static_cast<uint32_t>(p.get_ui()));
    }
    return (*primes)[k - 1];
}

size_t primes_beyond(const mpz_class &bound) {
    mpz_class product = 1;
    size_t count = 0;
    while (product * product <= bound) product *= multimodular_prime(++count);
    return count;
}

mpz_class minors_bound(const Table &A, const Table *B) {
    const int32_t columns = table_columns(A), more = B ? table_columns(*B) : 0;
    std::vector<mpz_class> by_row(static_cast<size_t>(table_rows(A)));
    std::vector<mpz_class> by_column(static_cast<size_t>(columns) + static_cast<size_t>(more));
    for (int32_t i = 1; i <= table_rows(A); i++) {
        for (int32_t j = 1; j <= columns + more; j++) {
            const mpz_class entry = j <= columns ? entry_of(A, i, j) : entry_of(*B, i, j - columns);
            if (entry == 0) continue;
            const mpz_class square = entry * entry;
            by_row[static_cast<size_t>(i - 1)] += square;
            by_column[static_cast<size_t>(j - 1)] += square;
        }
    }
    return std::min(rows_bound(by_row), rows_bound(by_column));
}

double rank_error(const mpz_class &bound, size_t primes) {
    const double most_divisors = std::floor(static_cast<double>(mpz_sizeinbase(bound.get_mpz_t(), 2)) / 2 / 24);
    return std::pow(std::min(1.0, most_divisors / primes_between), static_cast<double>(primes));
}

mpz_class chinese_remainder(const std::vector<uint32_t> &residues, const std::vector<uint32_t> &primes) {
    mpz_class result;
    if (primes.empty()) return result;
    Combination combination(primes);
    std::copy(residues.begin(), residues.end(), combination.residues.begin());
    fmpz_multi_CRT_ui(combination.value, combination.residues.data(), combination.comb, combination.work, 1);
    fmpz_get_mpz(result.get_mpz_t(), combination.value);
    return result;
}

bool reconstruct_fractions(const std::vector<std::vector<uint32_t>> &residues, const std::vector<uint32_t> &primes,
                           std::vector<mpq_class> *fractions) {
    mpz_class product = 1;
    for (const uint32_t p : primes) product *= p;
    Combination combination(primes);
    fmpz_t modulus;
    fmpz_init(modulus);
    fmpz_set_mpz(modulus, product.get_mpz_t());
    fmpq_t fraction;
    fmpq_init(fraction);
    bool found = true;
    for (size_t i = 0; found && i < residues[0].size(); i++) {
        for (size_t k = 0; k < primes.size(); k++) combination.residues[k] = residues[k][i];
        fmpz_multi_CRT_ui(combination.value, combination.residues.data(), combination.comb, combination.work, 0);
        found = fmpq_reconstruct_fmpz(fraction, combination.value, modulus);
        mpq_class value;
        fmpq_get_mpq(value.get_mpq_t(), fraction);
        if (found) fractions->push_back(value);
    }
    fmpq_clear(fraction);
    fmpz_clear(modulus);
    return found;
}

std::vector<Function> multimodular_functions() {
    return {
        {"_progress", 3, 3, report_progress},  {"_stage", 1, 1, begin_stage},
        {"_minors", 1, 1, bound_minors},       {"_prime", 1, 1, prime_value},
        {"_random_prime", 0, 0, random_prime}, {"_primes_beyond", 1, 1, count_primes},
        {"_chinese", 2, 2, combine_residues},  {"_fractions", 2, 2, find_fractions},
        {"_solves", 3, 3, check_solution},
    };
}

}  // namespace modla::console
