#include "console/shards.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>

#include "console/error.h"
#include "console/host.h"
#include "console/multimodular.h"
#include "console/number.h"
#include "console/progress.h"
#include "console/table.h"

namespace modla::console {

namespace {

constexpr int most_attempts = 3;  // of a process at its share

// Which file this is, whatever its name: the size, and a digest that accidents do not repeat.
Json identify(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) throw VerbError(2, "cannot open " + name);
    XXH3_state_t *const state = XXH3_createState();
    XXH3_128bits_reset(state);
    uint64_t size = 0;
    std::vector<char> buffer(1 << 16);
    while (file.read(buffer.data(), std::ssize(buffer)) || file.gcount() > 0) {
        XXH3_128bits_update(state, buffer.data(), static_cast<size_t>(file.gcount()));
        size += static_cast<uint64_t>(file.gcount());
    }
    const XXH128_hash_t hash = XXH3_128bits_digest(state);
    XXH3_freeState(state);
    char digest[33];
    std::snprintf(digest, sizeof digest, "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                  static_cast<unsigned long long>(hash.low64));
    return {{"file", name}, {"size", size}, {"xxh128", digest}};
}

Object call(const char *function, const std::vector<Object> &arguments) {
    return call_procedure(evaluate(global_name(function)), arguments);
}

uint32_t residue_of(Object x) {
    return static_cast<uint32_t>(integer_of(x).get_ui());
}

Json residues_of(Object table) {
    Json residues = Json::array();
    const Table &X = table_of(table);
    for (int32_t i = 1; i <= table_rows(X); i++) {
        for (int32_t j = 1; j <= table_columns(X); j++) residues.push_back(residue_of(get_entry_integer(X, i, j)));
    }
    return residues;
}

// A solution modulo the first prime of its kind; "proof" if there are none.
void find_solution(const Task &task, size_t k, Json *line) {
    mpz_class failed = 1;
    for (size_t number = k;; number += task.count) {
        const uint32_t p = multimodular_prime(number);
        (*line)["p"] = p;
        Roots held;
        held.values.push_back(call("_solution", {integer_object(int64_t{p}), task.A, task.B}));
        const Object found = held.values[0];
        if (element(found, 0) == immediate(table_columns(table_of(task.A)))) {
            if (has_type(element(found, 1), type_table)) {
                (*line)["residue"] = residues_of(element(found, 1));
            } else {
                (*line)["proof"] = "there is no solution";
            }
            return;
        }
        failed *= p;
        if (failed * failed > task.minors || table_columns(table_of(task.A)) > table_rows(table_of(task.A))) {
            (*line)["proof"] = "the columns of the Matrix are dependent: there is not exactly one solution";
            return;
        }
    }
}

Json compute_line(const Task &task, size_t k) {
    Json line = task.facts;
    line["k"] = k;
    if (task.verb == "solve") {
        find_solution(task, k, &line);
        return line;
    }
    const uint32_t p = multimodular_prime(k);
    line["p"] = p;
    line["residue"] = residue_of(call(task.verb == "det" ? "Det" : "Rank", {integer_object(int64_t{p}), task.A}));
    return line;
}

// Does this line end the computation, whatever the others say?
bool is_proof(const Json &line) {
    if (line.contains("proof")) return true;
    return line["verb"] == "rank" && line["residue"] == std::min(line["rows"], line["columns"]);
}

// ---- Lines of text

void write_all(int file, const std::string &text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(file, text.data() + done, text.size() - done);
        if (count < 0) throw VerbError(2, std::string("cannot write a line: ") + std::strerror(errno));
        done += static_cast<size_t>(count);
    }
}

// What all lines of a task agree in.
Json task_of(const Json &line) {
    Json task = line;
    for (const char *key : {"k", "p", "residue", "proof"}) task.erase(key);
    for (const char *key : {"matrix", "right"}) {
        if (task.contains(key)) task[key].erase("file");
    }
    return task;
}

// The line, if it is one.
std::optional<Json> parse_line(const std::string &text) {
    Json line = Json::parse(text, nullptr, false);
    const auto number = [&](const char *key) { return line.contains(key) && line[key].is_number_unsigned(); };
    if (!line.is_object() || !number("k") || !number("of") || !number("p") || !number("rows") || !number("columns") ||
        !line.contains("verb") || !line.contains("matrix") || !line["matrix"].is_object()) {
        return {};
    }
    const size_t k = line["k"], count = line["of"];
    const bool solve = line["verb"] == "solve";
    if (!solve && line["verb"] != "det" && line["verb"] != "rank") return {};
    constexpr size_t most_primes = 1'000'000;  // more than multimodular_prime has
    if (k < 1 || k > count || count > most_primes || (!solve && multimodular_prime(k) != line["p"])) return {};
    if (line.contains("proof") && line["proof"].is_string()) return line;
    if (!line.contains("residue")) return {};
    const auto is_residue = [&](const Json &value) { return value.is_number_unsigned() && value < line["p"]; };
    if (!solve) return is_residue(line["residue"]) ? line : std::optional<Json>();
    if (!number("systems") || !line["residue"].is_array()) return {};
    const Json &residues = line["residue"];
    const uint64_t unknowns = line["columns"], systems = line["systems"];
    const bool whole =
        residues.size() == unknowns * systems && std::all_of(residues.begin(), residues.end(), is_residue);
    return whole ? line : std::optional<Json>();
}

// The lines of a file, and how many bytes they take: what follows was cut short.
Lines read_lines(const std::string &name, size_t *bytes) {
    std::ifstream file(name == "-" ? "/dev/stdin" : name, std::ios::binary);
    if (!file) throw VerbError(2, "cannot open " + name);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Lines lines;
    *bytes = 0;
    for (size_t end; (end = text.find('\n', *bytes)) != std::string::npos; *bytes = end + 1) {
        const std::optional<Json> line = parse_line(text.substr(*bytes, end - *bytes));
        if (!line) {
            throw VerbError(2, name + ":" + std::to_string(lines.size() + 1) + ": this is no line of a shard");
        }
        lines.push_back(*line);
    }
    return lines;
}

// ---- Processes

struct Worker {
    pid_t process;
    int output;
    std::vector<size_t> share;
    int attempts;
    std::string text;  // an unfinished line
};

[[noreturn]] void work(const Task &task, const std::vector<size_t> &share, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int status = 0;
    try {
        for (const size_t k : share) {
            const Json line = compute_line(task, k);
            write_all(output, text_of_line(line));
            if (is_proof(line)) break;
        }
    } catch (const std::exception &error) {
        const std::string message = text_of_line({{"error", error.what()}});
        status = write(output, message.data(), message.size()) > 0 ? 0 : 1;
    }
    _exit(status);
}

Worker start_worker(const Task &task, std::vector<size_t> share, int attempts, const std::vector<Worker> &others) {
    int ends[2];
    if (pipe(ends) != 0) throw VerbError(2, std::string("cannot make a pipe: ") + std::strerror(errno));
    const pid_t process = fork();
    if (process < 0) throw VerbError(2, std::string("cannot start a process: ") + std::strerror(errno));
    if (process == 0) {
        close(ends[0]);
        for (const Worker &other : others) close(other.output);
        work(task, share, ends[1]);
    }
    close(ends[1]);
    return {process, ends[0], std::move(share), attempts, ""};
}

void stop(const std::vector<Worker> &workers) {
    for (const Worker &worker : workers) {
        kill(worker.process, SIGKILL);
        close(worker.output);
        waitpid(worker.process, nullptr, 0);
    }
}

// Takes the finished lines out of a worker's text.
void take_lines(Worker *worker, Lines *lines) {
    for (size_t end; (end = worker->text.find('\n')) != std::string::npos; worker->text.erase(0, end + 1)) {
        Json line = Json::parse(worker->text.substr(0, end));
        if (line.contains("error")) throw VerbError(2, line["error"].get<std::string>());
        std::erase(worker->share, line["k"].get<size_t>());
        lines->push_back(std::move(line));
    }
}

// A worker's output has ended.  Returns whether it goes on with what is left of its share.
bool end_worker(const Task &task, Worker *worker, std::vector<Worker> *others) {
    close(worker->output);
    int status = 0;
    waitpid(worker->process, &status, 0);
    if (worker->share.empty()) return false;
    const std::string message = "process " + std::to_string(worker->process) +
                                (WIFSIGNALED(status) ? " was ended by signal " + std::to_string(WTERMSIG(status))
                                                     : " ended with status " + std::to_string(WEXITSTATUS(status))) +
                                " with " + std::to_string(worker->share.size()) + " primes left to do";
    if (worker->attempts == most_attempts) throw VerbError(2, message + ", for the third time");
    clear_progress();
    std::cerr << "modla " << task.verb << ": " << message << "; another one goes on" << std::endl;
    others->push_back(start_worker(task, worker->share, worker->attempts + 1, *others));
    return true;
}

void serve_workers(const Task &task, std::vector<Worker> *workers, Lines *lines) {
    char buffer[1 << 16];
    while (!workers->empty()) {
        std::vector<pollfd> polled;
        for (const Worker &worker : *workers) polled.push_back({worker.output, POLLIN, 0});
        if (poll(polled.data(), polled.size(), -1) < 0) continue;
        for (size_t i = polled.size(); i-- > 0;) {
            if (!polled[i].revents) continue;
            Worker &worker = (*workers)[i];
            const ssize_t count = read(worker.output, buffer, sizeof buffer);
            if (count > 0) {
                worker.text.append(buffer, static_cast<size_t>(count));
                take_lines(&worker, lines);
                if (!lines->empty() && is_proof(lines->back())) return;
                show_progress("primes done:", static_cast<int64_t>(lines->size()), static_cast<int64_t>(task.count));
            } else {
                Worker ended = std::move(worker);
                workers->erase(workers->begin() + static_cast<ptrdiff_t>(i));
                end_worker(task, &ended, workers);
            }
        }
    }
}

}  // namespace

Task make_task(const std::string &verb, Object A, Object B, const std::vector<std::string> &files) {
    Task task = {verb, A, B, minors_bound(table_of(A)), 0, Json{{"verb", verb}}};
    mpz_class bound = task.minors;  // rank: a larger minor would be a multiple of all primes
    if (verb == "det") bound *= 4;
    if (verb == "solve") {
        // Numerators and denominators are minors (Cramer); the product of the primes is more than twice both squared.
        bound = minors_bound(table_of(A), &table_of(B));
        bound *= 4 * bound;
    }
    task.count = primes_beyond(bound);
    task.facts["matrix"] = files.empty() ? Json::object() : identify(files[0]);
    if (verb == "solve") {
        task.facts["right"] = files.empty() ? Json::object() : identify(files[1]);
        task.facts["systems"] = table_columns(table_of(B));
    }
    task.facts["rows"] = table_rows(table_of(A));
    task.facts["columns"] = table_columns(table_of(A));
    task.facts["of"] = task.count;
    return task;
}

Combined combine_lines(const Lines &lines, bool *complete, std::vector<size_t> *missing) {
    Combined result;
    const Json &first = lines.front();
    const std::string verb = first["verb"];
    std::map<size_t, const Json *> by_number;
    uint32_t rank = 0;
    *complete = true;
    for (const Json &line : lines) {
        by_number[line["k"]] = &line;
        if (line.contains("proof")) {
            result.status = 1;
            result.text = line["proof"];
            return result;
        }
        if (verb == "rank") rank = std::max(rank, line["residue"].get<uint32_t>());
    }
    for (size_t k = 1; k <= first["of"]; k++) {
        if (!by_number.contains(k)) missing->push_back(k);
    }
    const bool full = verb == "rank" && rank == std::min(first["rows"], first["columns"]);
    *complete = full || missing->empty();
    result.facts["rows"] = first["rows"];
    result.facts["columns"] = first["columns"];
    if (!*complete) return result;
    result.facts["primes"] = by_number.size();
    std::vector<uint32_t> primes;
    for (const auto &[k, line] : by_number) primes.push_back((*line)["p"]);
    if (verb == "rank") {
        result.text = std::to_string(rank);
        result.facts["rank"] = rank;
        result.facts["proved"] = true;
        return result;
    }
    if (verb == "det") {
        std::vector<uint32_t> residues;
        for (const auto &[k, line] : by_number) residues.push_back((*line)["residue"]);
        result.facts["determinant"] = result.text = chinese_remainder(residues, primes).get_str();
        return result;
    }
    std::vector<std::vector<uint32_t>> residues;
    for (const auto &[k, line] : by_number) residues.push_back((*line)["residue"]);
    std::vector<mpq_class> fractions;
    if (!reconstruct_fractions(residues, primes, &fractions)) throw VerbError(2, "the residues are of no solution");
    const int32_t systems = first["systems"];
    result.matrix = {
        first["columns"], systems, [fractions, systems](int32_t i, int32_t j) {
            return fractions[static_cast<size_t>(i - 1) * static_cast<size_t>(systems) + static_cast<size_t>(j - 1)]
                .get_str();
        }};
    return result;
}

Lines share_among_processes(const Task &task, size_t processes) {
    std::vector<std::vector<size_t>> shares(std::min(processes, std::max<size_t>(task.count, 1)));
    for (size_t k = 1; k <= task.count; k++) shares[k % shares.size()].push_back(k);
    Lines lines;
    std::vector<Worker> workers;
    try {
        for (const auto &share : shares) workers.push_back(start_worker(task, share, 1, workers));
        serve_workers(task, &workers, &lines);
    } catch (...) {
        stop(workers);
        throw;
    }
    stop(workers);
    return lines;
}

void write_shard(const Task &task, const std::string &part, const std::string &output) {
    unsigned own = 0, parts = 0;
    int end = 0;
    if (std::sscanf(part.c_str(), "%u/%u%n", &own, &parts, &end) != 2 || end != static_cast<int>(part.size()) ||
        own < 1 || own > parts) {
        throw VerbError(2, "--shard " + part + " is not of the form I/N with I in 1..N");
    }
    std::vector<bool> done(task.count + 1);
    int file = STDOUT_FILENO;
    if (!output.empty()) {
        file = open(output.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (file < 0) throw VerbError(2, "cannot write " + output);
        const bool is_continued = std::filesystem::is_regular_file(output);  // a device or pipe may never end
        size_t bytes;
        for (const Json &line : is_continued ? read_lines(output, &bytes) : Lines()) {
            if (task_of(line) != task_of(task.facts)) {
                throw VerbError(2, output + " holds lines of something else; it is left as it is");
            }
            if (is_proof(line)) return;
            done[line["k"]] = true;
        }
        // A line that was cut short when its process ended.
        if (is_continued && ftruncate(file, static_cast<off_t>(bytes)) != 0)
            throw VerbError(2, "cannot write " + output);
    }
    for (size_t k = own; k <= task.count; k += parts) {
        if (done[k]) continue;
        show_progress("prime", static_cast<int64_t>(k), static_cast<int64_t>(task.count));
        const Json line = compute_line(task, k);
        clear_progress();
        write_all(file, text_of_line(line));
        if (is_proof(line)) break;
    }
    if (!output.empty()) close(file);
}

Lines read_shards(const std::vector<std::string> &files) {
    Lines lines;
    std::map<size_t, Json> by_number;
    for (const std::string &name : files) {
        size_t bytes;
        for (Json &line : read_lines(name, &bytes)) {
            if (!lines.empty() && task_of(line) != task_of(lines.front())) {
                throw VerbError(2, name + " belongs to another computation than " + files.front());
            }
            const auto [place, is_new] = by_number.try_emplace(line["k"], line);
            const bool same = is_new || (place->second["p"] == line["p"] &&
                                         place->second.value("residue", Json()) == line.value("residue", Json()));
            if (!same) throw VerbError(2, name + " contradicts another shard in prime " + line["k"].dump());
            if (is_new) lines.push_back(std::move(line));
        }
    }
    if (lines.empty()) throw VerbError(1, "there is no line in the shards yet");
    return lines;
}

std::string text_of_line(const Json &object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string list_numbers(const std::vector<size_t> &numbers) {
    std::string text;
    for (size_t i = 0; i < numbers.size();) {
        size_t end = i;
        while (end + 1 < numbers.size() && numbers[end + 1] == numbers[end] + 1) end++;
        text += (text.empty() ? "" : ", ") + std::to_string(numbers[i]) +
                (end > i ? "-" + std::to_string(numbers[end]) : "");
        i = end + 1;
    }
    return text;
}

}  // namespace modla::console
