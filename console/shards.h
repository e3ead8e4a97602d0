// Integer determinants, ranks and solutions whose primes are shared out among processes and machines.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "console/heap.h"
#include "console/verb_files.h"

namespace modla::console {

using Json = nlohmann::ordered_json;

// A computation modulo primes 1, 2, ..., count, which depend on the Matrices alone.  For solve, the k-th of them is
// the first one of primes k, k + count, k + 2*count, ... that leaves the columns of A independent.
struct Task {
    std::string verb;  // det, rank or solve
    Object A, B;       // B for solve
    mpz_class minors;  // a bound on the squares of the minors of A
    size_t count;
    Json facts;  // what every line says of the task
};

Task make_task(const std::string &verb, Object A, Object B, const std::vector<std::string> &files);

// A line says what the task is, "k", "p" and the "residue", or "proof" of what ends the whole computation.
using Lines = std::vector<Json>;

// What lines add up to: a result or, if status is 1, why there is none.
struct Combined {
    int status = 0;
    std::string text;
    MatrixText matrix = {};
    Json facts = Json::object();
};

// Of lines of one task.  complete tells whether the result stands; otherwise the numbers of the missing primes are left.
Combined combine_lines(const Lines &lines, bool *complete, std::vector<size_t> *missing);

// All lines, by so many processes.
Lines share_among_processes(const Task &task, size_t processes);

// The part I of N, "I/N", into a file, which is continued, or to standard output.
void write_shard(const Task &task, const std::string &part, const std::string &output);

// The lines of shards, all of one task.  Throws VerbError for others; a last line that was cut short is left out.
Lines read_shards(const std::vector<std::string> &files);

std::string text_of_line(const Json &object);  // file names that are not UTF-8 get replacement characters
std::string list_numbers(const std::vector<size_t> &numbers);  // "1, 3-5"

}  // namespace modla::console
