// Exact results from residues modulo many primes.
#pragma once

#include <gmpxx.h>

#include <cstdint>
#include <vector>

#include "console/heap.h"

namespace modla::console {

// The k-th prime below 2^25, k = 1, 2, ...; throws HostError when it would be below 2^24.
uint32_t multimodular_prime(size_t k);

// The least number of primes whose product has a square above the bound.
size_t primes_beyond(const mpz_class &bound);

// A bound on the squares of all minors of A (Hadamard, 1893), or of A and B side by side.
mpz_class minors_bound(const Table &A, const Table *B = nullptr);

// How likely the largest rank modulo so many random primes is too small, for Matrices with this bound.
double rank_error(const mpz_class &bound, size_t primes);

// The integer of least absolute value with these residues.
mpz_class chinese_remainder(const std::vector<uint32_t> &residues, const std::vector<uint32_t> &primes);

// The fractions with these residues modulo the primes, residues[k] being those modulo primes[k], with numerators and
// denominators up to the root of half the primes' product (Wang, 1981).  False if there is none for one of them.
bool reconstruct_fractions(const std::vector<std::vector<uint32_t>> &residues, const std::vector<uint32_t> &primes,
                           std::vector<mpq_class> *fractions);

}  // namespace modla::console
