// What all drivers share: the random data, the checks and the commands of bench/compare.py.
//
// A driver reads lines from its standard input and answers each with one line:
//   open WORK P N DATATYPE   the names of the ways in which it can do this work, separated by spaces
//   start NAME               makes the data of one way and does the work once: seconds, checksum
//   slice NAME SECONDS       repeats it: median of the seconds of a call, calls, processor time per elapsed time
// Calls of more than a millisecond are measured in processor time, which leaves out what other programs took.
//   stop NAME                frees the data
#pragma once

#include <time.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace bench {

using Residues = std::vector<uint32_t>;

struct Row {
    std::string work;
    uint32_t p;
    int n;
    std::string datatype;
};

struct Task {
    std::function<void()> restore;    // what a call destroyed; not timed
    std::function<void()> run;        // the call
    std::function<uint32_t()> check;  // of what the call gave
};

using Ways = std::map<std::string, std::function<Task()>>;

inline double seconds_of(clockid_t clock) {
    timespec t;
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// ---- data ----

struct Random {
    uint64_t state;
    uint32_t below(uint32_t p) {  // splitmix64
        uint64_t z = state += 0x9e3779b97f4a7c15;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return static_cast<uint32_t>((((z ^ (z >> 31)) >> 32) * p) >> 32);
    }
};

inline Residues random_residues(uint64_t seed, size_t count, uint32_t p) {
    Random source{seed * 1000003 + 12345};
    Residues entries(count);
    for (uint32_t &x : entries) x = source.below(p);
    return entries;
}

// A (m x k) times B (k x n).
inline Residues product(const Residues &A, const Residues &B, size_t m, size_t k, size_t n, uint32_t p) {
    Residues C(m * n);
    std::vector<uint64_t> sums(n);
    for (size_t i = 0; i < m; i++) {
        std::fill(sums.begin(), sums.end(), 0);
        for (size_t l = 0; l < k; l++) {
            const uint64_t a = A[i * k + l];
            for (size_t j = 0; j < n; j++) sums[j] += a * B[l * n + j];
            if (l % 4096 == 4095) {
                for (uint64_t &sum : sums) sum %= p;
            }
        }
        for (size_t j = 0; j < n; j++) C[i * n + j] = static_cast<uint32_t>(sums[j] % p);
    }
    return C;
}

inline Residues square_matrix(const Row &row, uint64_t seed) {
    return random_residues(seed, static_cast<size_t>(row.n) * static_cast<size_t>(row.n), row.p);
}

// Of rank n/2; the same matrix again costs nothing.
inline const Residues &half_rank_matrix(const Row &row) {
    static Residues A;
    static std::pair<uint32_t, int> made;
    if (made != std::make_pair(row.p, row.n)) {
        const size_t n = static_cast<size_t>(row.n), r = n / 2;
        A = product(random_residues(11, n * r, row.p), random_residues(12, r * n, row.p), n, r, n, row.p);
        made = {row.p, row.n};
    }
    return A;
}

inline Residues triangle(const Row &row, bool lower) {
    const size_t n = static_cast<size_t>(row.n);
    Residues T = square_matrix(row, 4);
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            if (lower ? j > i : j < i) T[i * n + j] = 0;
        }
        if (T[i * n + i] == 0) T[i * n + i] = 1;
    }
    return T;
}

// Two polynomials of degree n with a common factor of degree n/2, the constant coefficients first.
inline std::pair<Residues, Residues> two_polynomials(const Row &row) {
    const size_t n = static_cast<size_t>(row.n), d = n / 2;
    Residues factors[3] = {random_residues(21, d + 1, row.p), random_residues(22, n - d + 1, row.p),
                           random_residues(23, n - d + 1, row.p)};
    for (Residues &f : factors) f.back() = 1;
    const auto times = [&](const Residues &f) {
        std::vector<uint64_t> sums(n + 1);
        for (size_t i = 0; i <= d; i++) {
            for (size_t j = 0; j < f.size(); j++) sums[i + j] += static_cast<uint64_t>(factors[0][i]) * f[j];
            if (i % 4096 == 4095) {
                for (uint64_t &sum : sums) sum %= row.p;
            }
        }
        Residues h;
        for (const uint64_t sum : sums) h.push_back(static_cast<uint32_t>(sum % row.p));
        return h;
    };
    return {times(factors[1]), times(factors[2])};
}

// ---- checks: all who do the same work must give the same number ----

template <class Get>
uint32_t hash(size_t count, Get get) {
    uint32_t sum = 0;
    for (size_t k = 0; k < count; k++) sum = sum * 31 + static_cast<uint32_t>(get(k)) + 7;
    return sum;
}
inline uint32_t hash(const Residues &x) {
    return hash(x.size(), [&](size_t k) { return x[k]; });
}

// L*U*x for a packed LU and a fixed x; with the rows and columns put back where they were, it is A*x.
template <class Get>
Residues apply_factors(const Row &row, bool unit_upper, Residues x, Get packed) {
    const size_t n = static_cast<size_t>(row.n);
    const uint64_t p = row.p;
    for (size_t i = 0; i < n; i++) {
        uint64_t sum = unit_upper ? x[i] : packed(i, i) * static_cast<uint64_t>(x[i]);
        for (size_t j = i + 1; j < n; j++) sum = (sum + packed(i, j) * static_cast<uint64_t>(x[j])) % p;
        x[i] = static_cast<uint32_t>(sum % p);
    }
    for (size_t i = n; i-- > 0;) {
        uint64_t sum = unit_upper ? packed(i, i) * static_cast<uint64_t>(x[i]) : x[i];
        for (size_t j = 0; j < i; j++) sum = (sum + packed(i, j) * static_cast<uint64_t>(x[j])) % p;
        x[i] = static_cast<uint32_t>(sum % p);
    }
    return x;
}

// Dimension of a nullspace, and whether a random combination of its basis (coordinate i of vector k) is in it.
template <class Get>
uint32_t check_nullspace(const Row &row, const Residues &A, size_t dimension, bool of_rows, Get coordinate) {
    const size_t n = static_cast<size_t>(row.n);
    const Residues c = random_residues(31, dimension, row.p);
    Residues x(n);
    for (size_t i = 0; i < n; i++) {
        uint64_t sum = 0;
        for (size_t k = 0; k < dimension; k++) sum = (sum + static_cast<uint64_t>(c[k]) * coordinate(i, k)) % row.p;
        x[i] = static_cast<uint32_t>(sum);
    }
    const bool moved = std::any_of(x.begin(), x.end(), [](uint32_t e) { return e != 0; });
    const Residues image = of_rows ? product(x, A, 1, n, n, row.p) : product(A, x, n, n, 1, row.p);
    const bool zero = std::all_of(image.begin(), image.end(), [](uint32_t e) { return e == 0; });
    return static_cast<uint32_t>(dimension) * 4 + (moved ? 2 : 0) + (zero ? 1 : 0);
}

// ---- commands ----

inline int serve(Ways (*ways_for)(const Row &)) {
    Ways ways;
    std::map<std::string, Task> tasks;
    std::map<std::string, double> first_call;
    const auto timed = [](const Task &task, clockid_t clock) {
        if (task.restore) task.restore();
        const double start = seconds_of(clock);
        task.run();
        return seconds_of(clock) - start;
    };
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string command, name;
        in >> command;
        if (command == "open") {
            Row row;
            in >> row.work >> row.p >> row.n >> row.datatype;
            tasks.clear();
            ways = ways_for(row);
            for (const auto &way : ways) std::cout << way.first << ' ';
        } else if (command == "start") {
            in >> name;
            Task &task = tasks[name] = ways.at(name)();
            first_call[name] = timed(task, CLOCK_PROCESS_CPUTIME_ID);
            std::cout << first_call[name] << ' ' << task.check();
        } else if (command == "slice") {
            double span;
            in >> name >> span;
            const Task &task = tasks.at(name);
            // Reading the processor time takes a while itself; and caches do not matter to a long call.
            const clockid_t clock = first_call[name] > 1e-3 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC;
            if (first_call[name] < 0.02) timed(task, clock);
            std::vector<double> times;
            const double first = seconds_of(CLOCK_MONOTONIC), used = seconds_of(CLOCK_PROCESS_CPUTIME_ID);
            do {
                times.push_back(timed(task, clock));
            } while (seconds_of(CLOCK_MONOTONIC) - first < span);
            const double elapsed = seconds_of(CLOCK_MONOTONIC) - first;
            std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
            std::cout << times[times.size() / 2] << ' ' << times.size() << ' '
                      << (seconds_of(CLOCK_PROCESS_CPUTIME_ID) - used) / elapsed;
        } else if (command == "stop") {
            in >> name;
            tasks.erase(name);
        }
        std::cout << std::endl;
    }
    return 0;
}

}  // namespace bench
