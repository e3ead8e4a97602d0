#include "console/verbs.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <functional>
#include <iostream>
#include <random>
#include <utility>
#include <vector>

#include "console/error.h"
#include "console/functions.h"
#include "console/host.h"
#include "console/multimodular.h"
#include "console/number.h"
#include "console/print.h"
#include "console/progress.h"
#include "console/shards.h"
#include "console/spy.h"
#include "console/table.h"
#include "console/verb_files.h"

namespace modla::console {

namespace {

struct Verb;

struct Request {
    const Verb *verb;
    std::vector<std::string> files;
    std::string modulus, datatype, output, format, part = "packed", library, shard;
    bool json = false, prove = false;
    size_t jobs = 1;
    mpz_class p = 0;  // 0: over the integers
    int32_t stored_as = MODLA_INTEGER;
};

// What a verb found: a text for a line of its own, a Matrix, or a picture; more for --json; a remark for standard error.
struct Result {
    std::string text;
    MatrixText matrix = {};
    Json facts = Json::object();
    std::string remark = {};
    std::vector<Pattern> picture = {};
    bool is_shard = false;  // written already
};

enum Need { prime, any_modulus, prime_or_integers, prime_or_nothing, nothing };

struct Verb {
    const char *name, *summary, *more;  // the last with what is worth knowing, and an example
    size_t least_files, most_files;
    Need modulus;
    bool gives_matrix;
    Result (*run)(const Request &request);
};

// ---- Values

Object call(const char *function, const std::vector<Object> &arguments) {
    Roots held;
    held.values = arguments;
    const Object result = call_procedure(evaluate(global_name(function)), arguments);
    keep(result);  // until the end of the program, which is near
    return result;
}

mpz_class integer_value(Object x) {
    return is_integer(x) ? integer_of(x) : integral_float(x);
}

std::vector<std::string> texts_of(Object list) {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < size_of(list); i++) texts.push_back(integer_value(element(list, i)).get_str());
    return texts;
}

MatrixText text_of_table(Object table) {
    return {table_rows(table_of(table)), table_columns(table_of(table)),
            [table](int32_t i, int32_t j) { return integer_text(table_of(table), i, j); }};
}

std::string shape_of(const MatrixFile &file) {
    return std::to_string(file.rows) + " x " + std::to_string(file.columns);
}

Object modulus_of(const Request &request) {
    return integer_object(request.p);
}

void describe(const MatrixFile &file, Result *result) {
    result->facts["rows"] = file.rows;
    result->facts["columns"] = file.columns;
}

// The first file's Matrix, over the ring of the request.
Object read_matrix(const Request &request, size_t which, Result *result, bool square = false) {
    const std::string &name = request.files[which];
    const MatrixFile file = read_input(name);
    if (which == 0) describe(file, result);
    if (square && file.rows != file.columns) {
        throw VerbError(2, name + " is " + shape_of(file) + ", but " + request.verb->name + " wants a square Matrix");
    }
    const Object matrix = request.p > 0 ? residue_matrix(file, request.p, request.stored_as) : integer_matrix(file);
    keep(matrix);
    return matrix;
}

// ---- Over the integers

void take_combined(const Lines &lines, Result *result) {
    bool complete;
    std::vector<size_t> missing;
    Combined combined = combine_lines(lines, &complete, &missing);
    if (combined.status != 0) throw VerbError(combined.status, combined.text);
    if (!complete) {
        const std::string what = missing.size() == 1 ? "prime " : "primes ";
        throw VerbError(1, what + list_numbers(missing) + " of " + lines.front()["of"].dump() + " missing");
    }
    result->text = combined.text;
    result->matrix = combined.matrix;
    result->facts.update(combined.facts);
}

// Shares the primes out, if that is asked for.
bool is_shared(const Request &request, Object A, Object B, Result *result) {
    if (!request.shard.empty()) {
        write_shard(make_task(request.verb->name, A, B, request.files), request.shard, request.output);
        result->is_shard = true;
    } else if (request.jobs > 1) {
        take_combined(share_among_processes(make_task(request.verb->name, A, B, {}), request.jobs), result);
    }
    return result->is_shard || request.jobs > 1;
}

constexpr double accepted_error = 0x1p-40;

void find_rank_over_integers(const Request &request, Object A, Result *result) {
    const mpz_class bound = minors_bound(table_of(A));
    size_t count = 1;
    constexpr size_t most = 64;  // whatever the error then is: it will be told
    while (count < most && rank_error(bound, count) > accepted_error) count++;
    const bool prove = request.prove || rank_error(bound, count) == 0;
    random_source().seed(std::random_device()());
    const Object rank =
        prove ? call("RankZ", {A})
              : call("_rank_modulo", {A, integer_object(static_cast<int64_t>(count)), global_name("true")});
    const int32_t full = std::min(table_rows(table_of(A)), table_columns(table_of(A)));
    result->text = to_plain(rank);
    result->facts["rank"] = immediate_value(rank);
    result->facts["proved"] = prove || immediate_value(rank) == full;
    if (result->facts["proved"]) return;
    char error[20];
    std::snprintf(error, sizeof error, "%.1g", rank_error(bound, count));
    result->facts["error_probability"] = rank_error(bound, count);
    result->remark = "the rank is " + result->text + " or, with a probability below " + error +
                     ", more; --prove makes sure, by " + std::to_string(primes_beyond(bound)) + " primes";
}

void find_solution_over_integers(Object A, Object B, Result *result) {
    const Object X = call("_exact_solution", {A, B});
    if (X == global_name("false")) throw VerbError(1, "there is no solution");
    if (X == immediate(0)) {
        throw VerbError(1, "the columns of the Matrix are dependent: there is not exactly one solution");
    }
    result->matrix = {table_rows(table_of(X)), table_columns(table_of(X)),
                      [X](int32_t i, int32_t j) { return to_plain(get_entry(table_of(X), i, j)); }};
}

// ---- The verbs

Result find_rank(const Request &request) {
    Result result;
    const Object A = read_matrix(request, 0, &result);
    if (request.p == 0) {
        if (!is_shared(request, A, 0, &result)) find_rank_over_integers(request, A, &result);
        return result;
    }
    const Object rank = call("_reduce_for_rank", {modulus_of(request), A});
    result.text = to_plain(rank);
    result.facts["rank"] = immediate_value(rank);
    return result;
}

Result find_determinant(const Request &request) {
    Result result;
    const Object A = read_matrix(request, 0, &result, true);
    if (request.p == 0 && is_shared(request, A, 0, &result)) return result;
    result.text = integer_value(request.p > 0 ? call("Det", {modulus_of(request), A}) : call("DetZ", {A})).get_str();
    result.facts["determinant"] = result.text;
    return result;
}

Result find_reduced_form(const Request &request) {
    Result result;
    const Object R = call("Rref", {modulus_of(request), read_matrix(request, 0, &result)});
    result.matrix = text_of_table(R);
    const auto is_zero_row = [&](int32_t i) {
        for (int32_t j = 1; j <= result.matrix.columns; j++) {
            if (result.matrix.entry(i, j) != "0") return false;
        }
        return true;
    };
    int32_t rank = result.matrix.rows;
    while (rank > 0 && is_zero_row(rank)) rank--;
    result.facts["rank"] = rank;
    return result;
}

Result find_nullspace(const Request &request) {
    Result result;
    const Object A = read_matrix(request, 0, &result);
    const Object basis = call("Nullspace", {modulus_of(request), A});
    const auto dimension = static_cast<int32_t>(size_of(basis));
    result.matrix = {table_columns(table_of(A)), dimension, [basis](int32_t i, int32_t j) {
                         return integer_text(table_of(element(basis, static_cast<uint32_t>(j - 1))), i, 1);
                     }};
    result.facts["dimension"] = dimension;
    return result;
}

Result find_factors(const Request &request) {
    Result result;
    const Object factors = call("_lu", {modulus_of(request), read_matrix(request, 0, &result, true)});
    const Object F = element(factors, 0), order = element(factors, 1);
    result.facts["order"] = Json::array();
    for (uint32_t i = 0; i < size_of(order); i++) result.facts["order"].push_back(immediate_value(element(order, i)));
    result.facts["determinant"] = integer_value(element(factors, 2)).get_str();
    const MatrixText packed = result.matrix = text_of_table(F);
    if (request.part == "L") {
        result.matrix.entry = [packed](int32_t i, int32_t j) {
            return i > j ? packed.entry(i, j) : std::string(i == j ? "1" : "0");
        };
    } else if (request.part == "U") {
        result.matrix.entry = [packed](int32_t i, int32_t j) { return i > j ? "0" : packed.entry(i, j); };
    } else if (request.part == "P") {
        result.matrix.entry = [order](int32_t i, int32_t j) {
            return std::string(element(order, static_cast<uint32_t>(i - 1)) == immediate(j) ? "1" : "0");
        };
    }
    return result;
}

Result find_solution(const Request &request) {
    Result result;
    const Object A = read_matrix(request, 0, &result), B = read_matrix(request, 1, &result);
    if (table_rows(table_of(A)) != table_rows(table_of(B))) {
        throw VerbError(2, request.files[0] + " has " + std::to_string(table_rows(table_of(A))) + " rows, but " +
                               request.files[1] + " has " + std::to_string(table_rows(table_of(B))));
    }
    if (request.p == 0) {
        if (!is_shared(request, A, B, &result)) find_solution_over_integers(A, B, &result);
        return result;
    }
    const Object X = element(call("_solution", {modulus_of(request), A, B}), 1);
    if (!has_type(X, type_table)) throw VerbError(1, "there is no solution");
    result.matrix = text_of_table(X);
    return result;
}

Result find_product(const Request &request) {
    Result result;
    Object product = read_matrix(request, 0, &result);
    for (size_t k = 1; k < request.files.size(); k++) {
        const Object factor = read_matrix(request, k, &result);
        if (table_columns(table_of(product)) != table_rows(table_of(factor))) {
            throw VerbError(2, request.files[k] + " has " + std::to_string(table_rows(table_of(factor))) +
                                   " rows, but what stands before it has " +
                                   std::to_string(table_columns(table_of(product))) + " columns");
        }
        product = call("Multiply", {modulus_of(request), product, factor});
    }
    result.matrix = text_of_table(product);
    return result;
}

void give_polynomial(Object coefficients, Result *result) {
    result->text = to_text(call("_polynomial", {coefficients, global_name("x")}));
    result->facts["polynomial"] = result->text;
    result->facts["coefficients"] = texts_of(coefficients);
}

Result find_gcd(const Request &request) {
    Result result;
    give_polynomial(call("_gcd_of_rows", {modulus_of(request), read_matrix(request, 0, &result)}), &result);
    return result;
}

Result find_characteristic_polynomial(const Request &request) {
    Result result;
    const Object A = read_matrix(request, 0, &result, true);
    give_polynomial(call("_characteristic", {modulus_of(request), A}), &result);
    return result;
}

Result combine_shards(const Request &request) {
    Result result;
    const Lines lines = read_shards(request.files);
    result.facts["of"] = lines.front()["verb"];
    result.facts["matrix"] = lines.front()["matrix"];
    take_combined(lines, &result);
    return result;
}

mpq_class entry_at(const MatrixFile &file, int32_t i, int32_t j) {
    const auto before = [](const MatrixEntry &entry, const std::pair<int32_t, int32_t> &place) {
        return std::pair(entry.row, entry.column) < place;
    };
    const std::pair place(i, j);
    const auto found = std::lower_bound(file.entries.begin(), file.entries.end(), place, before);
    const bool is_there = found != file.entries.end() && found->row == i && found->column == j;
    mpq_class value = is_there ? found->value : mpz_class(0);
    const auto fraction = file.fractions.find(place);
    if (fraction != file.fractions.end()) value += fraction->second;
    return value;
}

Result describe_file(const Request &request) {
    Result result;
    const MatrixFile file = read_input(request.files[0]);
    size_t count = 0;
    mpq_class least, largest;
    bool symmetric = file.rows == file.columns, skew = symmetric;
    const auto look_at = [&](int32_t i, int32_t j) {
        const mpq_class value = entry_at(file, i, j);
        if (value == 0) return;
        if (count == 0 || value < least) least = value;
        if (count == 0 || value > largest) largest = value;
        count++;
        if (!symmetric && !skew) return;
        const mpq_class other = entry_at(file, j, i);
        symmetric = symmetric && other == value;
        skew = skew && other == -value;
    };
    for (const MatrixEntry &entry : file.entries) {
        if (!file.fractions.contains({entry.row, entry.column})) look_at(entry.row, entry.column);
    }
    for (const auto &[place, fraction] : file.fractions) look_at(place.first, place.second);
    const double cells = double(file.rows) * file.columns;
    if (double(count) < cells) {  // there are zeros
        least = std::min(least, mpq_class(0));
        largest = std::max(largest, mpq_class(0));
    }
    Json &facts = result.facts;
    facts["kind"] = file.kind;
    describe(file, &result);
    facts["nonzero"] = count;
    facts["density"] = double(count) / cells;
    facts["smallest"] = least.get_str();
    facts["largest"] = largest.get_str();
    facts["symmetry"] = symmetric ? "symmetric" : skew ? "skew-symmetric" : "none";
    for (const auto &[name, value] : facts.items()) {
        result.text += (result.text.empty() ? "" : "\n") + name + std::string(10 - name.size(), ' ') +
                       (value.is_string() ? value.get<std::string>() : value.dump());
    }
    return result;
}

// The entries of the file; with a modulus, its residues and beside them what elimination makes of them.
Result draw_pattern(const Request &request) {
    Result result;
    if (request.output.empty()) throw VerbError(2, "-o is missing: the picture goes to a file, as in -o picture.png");
    if (request.p > 0) {
        const Object A = read_matrix(request, 0, &result);
        result.picture = {pattern_of(table_of(A)), pattern_of(table_of(call("Rref", {modulus_of(request), A})))};
        return result;
    }
    const auto file = std::make_shared<const MatrixFile>(read_input(request.files[0]));
    describe(*file, &result);
    result.picture = {{file->rows, file->columns, [file](const auto &found) {
                           for (const MatrixEntry &entry : file->entries) {
                               if (entry.value != 0) found(entry.row - 1, entry.column - 1);
                           }
                           for (const auto &[place, fraction] : file->fractions)
                               found(place.first - 1, place.second - 1);
                       }}};
    return result;
}

constexpr const char *packed_help =
    "The factors of a nonsingular Matrix, P*A = L*U, where P permutes rows, L has 1s on its diagonal, U is upper\n"
    "triangular.  The packed Matrix has U in its upper triangle and L below; --part gives L, U or P as a Matrix of\n"
    "its own.  With --json, \"order\" tells which row of A is row 1, 2, ... of P*A.\n\n"
    "    modla lu -p 65521 --part L A.mtx";

constexpr const char *rank_help =
    "Without -p, the rank over the integers: the largest one modulo a few random primes, with a word on standard\n"
    "error on how certain that is unless it is certain.  --prove, --jobs and --shard go on until it is.\n\n"
    "    modla rank -p 7 A.mtx\n"
    "    modla rank --prove --jobs 4 A.mtx";
constexpr const char *det_help =
    "Without -p, the determinant over the integers.\n\n"
    "    modla det -p 65521 A.mtx\n"
    "    modla det A.mtx";
constexpr const char *solve_help =
    "FILEs are A and B, which has a column for every system.  Unknowns that are free are 0.  Without -p, the only\n"
    "solution over the rationals, as an SMS file if -o and --format do not say otherwise: Matrix Market files have no\n"
    "fractions.\n\n"
    "    modla solve -p 65521 A.mtx B.mtx -o X.mtx\n"
    "    modla solve A.mtx B.mtx -o X.sms";
constexpr const char *combine_help =
    "The exact result of det, rank or solve from the lines that --shard wrote, as many as there are.  If primes are\n"
    "missing, standard error tells which, and the status is 1.\n\n"
    "    modla det A.mtx --shard 1/2 -o 1.jsonl\n"
    "    modla det A.mtx --shard 2/2 -o 2.jsonl\n"
    "    modla combine 1.jsonl 2.jsonl";

const Verb verbs[] = {
    {"rank", "the rank", rank_help, 1, 1, prime_or_integers, false, find_rank},
    {"det", "the determinant", det_help, 1, 1, prime_or_integers, false, find_determinant},
    {"rref", "the reduced row echelon form", "    modla rref -p 7 A.sms -o R.sms", 1, 1, prime, true,
     find_reduced_form},
    {"nullspace", "a basis of the nullspace",
     "The basis stands in the columns of a Matrix N with A*N = 0, which has 0 columns when A has none.\n\n"
     "    modla nullspace -p 7 A.mtx -o N.mtx",
     1, 1, prime, true, find_nullspace},
    {"lu", "the factors of a nonsingular Matrix", packed_help, 1, 1, prime, true, find_factors},
    {"solve", "a solution X of A*X = B", solve_help, 2, 2, prime_or_integers, true, find_solution},
    {"mul", "the product of Matrices", "P may be composite.\n\n    modla mul -p 7 A.mtx B.mtx C.mtx -o product.mtx", 2,
     1000, any_modulus, true, find_product},
    {"gcd", "the greatest common divisor of polynomials",
     "Each row of the Matrix is a polynomial, the constant coefficient first.  The result is monic, 0 if all rows\n"
     "are 0; with --json there is a list of its coefficients too, in the same order.\n\n"
     "    modla gcd -p 65521 polynomials.mtx",
     1, 1, prime, false, find_gcd},
    {"charpoly", "the characteristic polynomial det(x - A)",
     "With --json there is a list of its coefficients too, the constant one first.\n\n"
     "    modla charpoly -p 65521 A.mtx",
     1, 1, prime, false, find_characteristic_polynomial},
    {"info", "what a file holds",
     "Kind, size, nonzero entries, density, smallest and largest entry, symmetry.\n\n    modla info A.mtx.gz", 1, 1,
     nothing, false, describe_file},
    {"spy", "a picture of where entries are not 0",
     "OUT is a PNG file, in which large Matrices are the darker the more entries they have in a place.  With -p, the\n"
     "Matrix modulo P and beside it its reduced row echelon form.\n\n"
     "    modla spy A.mtx -o A.png\n"
     "    modla spy -p 7 A.mtx -o reduced.png",
     1, 1, prime_or_nothing, false, draw_pattern},
    {"combine", "the result of shards", combine_help, 1, 1000000, nothing, true, combine_shards},
};

constexpr const char *common_help =
    "\n\nFILEs are in Matrix Market or SMS format, which gzip may have packed; - is standard input.\n"
    "Exit status: 0 done; 1 there is no such thing (no solution, a singular Matrix); 2 anything else.";

// ---- The call

mpz_class read_modulus(const Request &request) {
    const Need need = request.verb->modulus;
    mpz_class p;
    if (request.modulus.empty()) {
        if (need != prime && need != any_modulus) return 0;
        throw VerbError(2,
                        std::string("-p is missing: ") + request.verb->name + " works modulo a prime, as in -p 65521");
    }
    if (p.set_str(request.modulus, 10) != 0 || p < 2) {
        throw VerbError(2, "-p " + request.modulus + ": the modulus must be an integer above 1");
    }
    constexpr int rounds = 25;
    if (need != any_modulus && mpz_probab_prime_p(p.get_mpz_t(), rounds) == 0) {
        throw VerbError(2, "-p " + request.modulus + " is not a prime");
    }
    return p;
}

// The datatype that was asked for, or the smallest that holds residues of p.
int32_t choose_datatype(const Request &request) {
    const std::pair<const char *, std::pair<int32_t, int32_t>> kinds[] = {{"integer[4]", {MODLA_INTEGER4, 65535}},
                                                                          {"float[8]", {MODLA_FLOAT8, 33554431}},
                                                                          {"integer", {MODLA_INTEGER, 0}}};
    if (request.p == 0 && request.datatype == "integer[4]") {
        throw VerbError(2, "integer[4] needs -p: primes for work over the integers are larger than it holds");
    }
    for (const auto &[name, kind] : kinds) {
        const auto &[datatype, largest] = kind;
        const bool fits = largest == 0 || request.p <= largest;
        if (request.datatype.empty() ? fits : request.datatype == name) {
            if (fits) return datatype;
            throw VerbError(2, "-p " + request.modulus + " is too large for " + name + ", which holds moduli up to " +
                                   std::to_string(largest));
        }
    }
    return MODLA_INTEGER;
}

Json entries_of(const MatrixText &matrix) {
    Json entries = Json::array();
    for (int32_t i = 1; i <= matrix.rows; i++) {
        for (int32_t j = 1; j <= matrix.columns; j++) {
            const std::string entry = matrix.entry(i, j);
            if (entry != "0") entries.push_back({i, j, entry});
        }
    }
    return {{"rows", matrix.rows}, {"columns", matrix.columns}, {"entries", std::move(entries)}};
}

void run(Request *request, void (*prepare)(const std::string &library)) {
    const auto start = std::chrono::steady_clock::now();
    const Verb &verb = *request->verb;
    if (request->output == "-") request->output.clear();
    request->p = read_modulus(*request);
    request->stored_as = choose_datatype(*request);
    const bool is_solve_over_integers = verb.gives_matrix && request->p == 0;
    const Format usual = is_solve_over_integers ? Format::sms : Format::matrix_market;
    const bool asks_for_format = verb.gives_matrix && request->shard.empty() && verb.run != combine_shards;
    Format format = asks_for_format ? format_of(request->format, request->output, usual) : usual;
    if (request->p > 0 && (!request->shard.empty() || request->jobs > 1)) {
        throw VerbError(2, "--jobs and --shard share primes out, -p is only one");
    }
    const auto standard_inputs = std::count(request->files.begin(), request->files.end(), "-");
    if (!request->shard.empty() && standard_inputs > 0) {
        throw VerbError(2, "a shard tells which file it belongs to: standard input will not do");
    }
    if (standard_inputs > 1) throw VerbError(2, "- stands for one file only");
    prepare(request->library);
    if (!request->datatype.empty()) {
        // As the prelude knows it.
        set_value(global_name("_wanted"), parse_text(request->datatype));
    }
    allow_progress();
    const Result result = verb.run(*request);
    if (result.is_shard) return;
    const bool has_matrix = result.matrix.rows > 0;
    if (has_matrix && !asks_for_format) format = format_of(request->format, request->output, usual);
    if (!request->json || !request->output.empty()) {
        if (!result.picture.empty()) {
            write_spy(result.picture, request->output);
        } else if (has_matrix) {
            write_matrix(request->output, format, result.matrix);
        } else {
            write_text(request->output, result.text + "\n");
        }
    }
    clear_progress();
    if (!request->json) {
        if (!result.remark.empty()) std::cerr << "modla " << verb.name << ": " << result.remark << std::endl;
        return;
    }
    Json object = {{"verb", verb.name}, {"file", request->files[0]}};
    if (request->files.size() > 1) object["files"] = request->files;
    object["p"] = request->p > 0 ? Json(request->p.get_str()) : Json();
    object.update(result.facts);
    if (has_matrix && request->output.empty()) object["matrix"] = entries_of(result.matrix);
    if (!request->output.empty()) object["output"] = request->output;
    object["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::cout << text_of_line(object) << std::flush;
}

void add_options(CLI::App *app, Request *request) {
    const Verb &verb = *request->verb;
    app->add_option("FILE", request->files, "the Matrix, or Matrices")
        ->required()
        ->type_name("")
        ->expected(static_cast<int>(verb.least_files), static_cast<int>(verb.most_files));
    if (verb.modulus != nothing) {
        app->add_option(
               "-p", request->modulus,
               verb.modulus == any_modulus         ? "the modulus"
               : verb.modulus == prime_or_integers ? "the modulus, a prime of any size; without it, the integers"
               : verb.modulus == prime_or_nothing  ? "the modulus, a prime of any size; without it, entries as they are"
                                                   : "the modulus, a prime of any size")
            ->type_name("P");
        app->add_option("--datatype", request->datatype, "integer[4], float[8] or integer; by default as P allows")
            ->check(CLI::IsMember({"integer[4]", "float[8]", "integer"}))
            ->type_name("TYPE");
    }
    if (verb.gives_matrix) {
        app->add_option("--format", request->format, "mtx or sms; by default as -o ends, or mtx")
            ->check(CLI::IsMember({"mtx", "sms"}))
            ->type_name("FORMAT");
    }
    if (verb.modulus == prime_or_integers) {
        CLI::Option *const jobs =
            app->add_option("--jobs", request->jobs, "over the integers: share the primes among N processes")
                ->type_name("N")
                ->check(CLI::Range(1, 1000));
        app->add_option(
               "--shard", request->shard,
               "over the integers: write a JSON line for every N-th prime, from the I-th on, to OUT, which is\n"
               "continued if it is there, or standard output")
            ->type_name("I/N")
            ->excludes(jobs);
    }
    if (verb.run == find_rank) app->add_flag("--prove", request->prove, "over the integers: a rank beyond doubt");
    if (verb.run == find_factors) {
        app->add_option("--part", request->part, "L, U or P in the place of the packed Matrix")
            ->check(CLI::IsMember({"L", "U", "P"}))
            ->type_name("PART");
    }
    app->add_option("-o,--output", request->output, "write the result to this file")->type_name("OUT");
    app->add_flag("--json", request->json,
                  verb.gives_matrix ? "one JSON object on standard output, with the Matrix unless -o takes it"
                                    : "one JSON object on standard output");
    app->add_option("--library", request->library, "the libmodla.so to load")->type_name("LIB");
    // A variable of a shell that is not set must not select another computation.
    const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "is empty" : std::string(); },
                                   "");
    for (CLI::Option *const option : app->get_options()) option->check(not_empty);
}

std::string first_line(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

bool is_verb(const std::string &word) {
    return std::any_of(std::begin(verbs), std::end(verbs), [&](const Verb &verb) { return word == verb.name; });
}

std::string describe_verbs() {
    std::string text;
    for (const Verb &verb : verbs) {
        text += "  " + std::string(verb.name) + std::string(17 - std::string_view(verb.name).size(), ' ') +
                verb.summary + "\n";
    }
    return text;
}

int run_verb(int count, char **arguments, void (*prepare)(const std::string &library)) {
    Request request;
    request.verb = std::find_if(std::begin(verbs), std::end(verbs),
                                [&](const Verb &verb) { return std::string_view(arguments[1]) == verb.name; });
    const std::string name = std::string("modla ") + request.verb->name;
    const auto complain = [&](int status, const std::string &message) {
        clear_progress();
        std::cerr << name << ": " << first_line(message) << std::endl;
        return status;
    };
    CLI::App app(std::string(request.verb->summary), name);
    app.footer(std::string(request.verb->more) + common_help);
    add_options(&app, &request);
    try {
        app.parse(count - 1, arguments + 1);
        run(&request, prepare);
        return 0;
    } catch (const CLI::CallForHelp &) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::ParseError &error) {
        for (int i = 2; i < count; i++) {  // whose value would otherwise be called one FILE too many
            const std::string argument = arguments[i];
            const std::string option =
                argument.starts_with("--") ? argument.substr(0, argument.find('=')) : argument.substr(0, 2);
            const bool is_option = option.size() > 1 && option[0] == '-' && (option[1] < '0' || option[1] > '9');
            if (option == "--") break;
            if (is_option && !app.get_option_no_throw(option)) {
                return complain(2, "unknown option " + argument + " (" + name + " --help tells more)");
            }
        }
        return complain(2, std::string(error.what()) + " (" + name + " --help tells more)");
    } catch (const VerbError &error) {
        return complain(error.status, error.what());
    } catch (const std::bad_alloc &) {
        return complain(2, "out of memory");
    } catch (const std::exception &error) {
        const std::string message = error.what();
        if (message == "matrix is singular") return complain(1, "the Matrix is singular");
        return complain(2, message);
    }
}

}  // namespace modla::console
