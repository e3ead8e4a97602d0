// modLA as the benchmark sees it: the entry points, called through the console's host table on the host's own Matrices.
//
// modla_driver LIBRARY answers the commands of peers/driver.h.
#include <cstdio>
#include <memory>

#include "bench/peers/driver.h"
#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/number.h"
#include "console/table.h"

using namespace bench;
using namespace modla::console;

namespace {

// A table and the residues that it starts with.
struct Input {
    Roots held;
    Object table;
    Residues entries;
    void *data() const { return table_of(table).data; }
    bool is_float() const { return table_of(table).settings.datatype == MODLA_FLOAT8; }
    uint32_t at(size_t k) const {
        return is_float() ? static_cast<uint32_t>(static_cast<double *>(data())[k])
                          : static_cast<uint32_t *>(data())[k];
    }
    void restore() const {
        for (size_t k = 0; k < entries.size(); k++) {
            if (is_float()) {
                static_cast<double *>(data())[k] = entries[k];
            } else {
                static_cast<uint32_t *>(data())[k] = entries[k];
            }
        }
    }
};
using Table = std::shared_ptr<Input>;

// columns = 0: a column Vector.
Table table(int32_t datatype, int32_t rows, int32_t columns, const Residues &entries = {}) {
    const Table made = std::make_shared<Input>();
    RtableSettings settings = default_settings();
    settings.datatype = datatype;
    settings.order = MODLA_C_ORDER;
    settings.num_dimensions = columns ? 2 : 1;
    settings.subtype = columns ? MODLA_MATRIX : MODLA_COLUMN_VECTOR;
    const int32_t bounds[2] = {rows, columns};
    made->table = new_table(settings, bounds, nullptr);
    made->held.values.push_back(made->table);
    made->entries = entries;
    made->restore();
    return made;
}

int32_t datatype_of(const Row &row) {
    return row.datatype == "float[8]" ? MODLA_FLOAT8 : MODLA_INTEGER4;
}
Table square(const Row &row, const Residues &entries = {}) {
    return table(datatype_of(row), row.n, row.n, entries);
}
uint32_t hash_of(const Table &M) {
    const size_t count =
        static_cast<size_t>(table_rows(table_of(M->table))) * static_cast<size_t>(table_columns(table_of(M->table)));
    return hash(count, [&](size_t k) { return M->at(k); });
}

// A call of an entry point; the objects among the arguments are held by the caller.
std::function<Object()> call(const char *entry_point, std::vector<Object> arguments) {
    const auto function = reinterpret_cast<EntryPoint>(library_symbol(entry_point));
    return [=] { return call_entry_point(function, arguments); };
}

Object integer(int32_t value) {
    return immediate(value);
}
Object truth(bool value) {
    return global_name(value ? "true" : "false");
}
Object modulus(const Row &row) {
    return integer(static_cast<int32_t>(row.p));
}

Task multiply(const Row &row) {
    const Table A = square(row, square_matrix(row, 1)), B = square(row, square_matrix(row, 2)), C = square(row);
    return {nullptr, call("modLA_Multiply", {modulus(row), A->table, B->table, C->table}),
            [=] { return A && B ? hash_of(C) : 0; }};  // A and B live as long as the task
}

Task matvec(const Row &row) {
    const Table A = square(row, square_matrix(row, 7)),
                x = table(datatype_of(row), row.n, 0, random_residues(8, static_cast<size_t>(row.n), row.p)),
                y = table(datatype_of(row), row.n, 0);
    return {nullptr, call("modLA_Multiply", {modulus(row), A->table, x->table, y->table}),
            [=] { return A && x ? hash_of(y) : 0; }};
}

Task rref(const Row &row, const Residues &entries) {
    const Table A = square(row, entries);
    const Object all = integer(-1), none = integer(0);
    return {[=] { A->restore(); },
            call("modLA_RowReduce", {modulus(row), A->table, all, all, none, global_name("d"), none, global_name("r"),
                                     none, none, truth(true)}),
            [=] { return hash_of(A); }};
}

Task determinant(const Row &row) {
    const Table A = square(row, square_matrix(row, 3));
    const Object d = global_name("d");
    return {[=] { A->restore(); }, call("modLA_Determinant", {modulus(row), A->table, integer(-1), integer(-1), d}),
            [=] { return static_cast<uint32_t>(to_double(evaluate(d))); }};
}

Task lu(const Row &row) {
    const Table A = square(row, square_matrix(row, 3)), exchanges = table(MODLA_INTEGER4, row.n, 0);
    return {[=] { A->restore(); }, call("modLA_LUDecomp", {modulus(row), A->table, exchanges->table, global_name("d")}),
            [=] {
                const size_t n = static_cast<size_t>(row.n);
                Residues x = apply_factors(row, false, random_residues(9, n, row.p),
                                           [&](size_t i, size_t j) { return A->at(i * n + j); });
                for (size_t k = n - 1; k-- > 0;) std::swap(x[k], x[exchanges->at(k) - 1]);
                return hash(x);
            }};
}

Task solve(const Row &row, bool lower) {
    const Table T = square(row, triangle(row, lower)), B = square(row, square_matrix(row, 5));
    std::vector<Object> arguments = {modulus(row), T->table, B->table};
    if (lower) arguments.push_back(truth(false));
    return {[=] { B->restore(); }, call(lower ? "modLA_ForSub" : "modLA_BackSub", arguments),
            [=] { return T ? hash_of(B) : 0; }};
}

Task nullspace(const Row &row) {
    const Table A = square(row, half_rank_matrix(row));
    const auto rank = std::make_shared<size_t>(0);
    const auto reduce = call("modLA_MatBasis", {modulus(row), A->table, integer(0), truth(true)});
    return {[=] { A->restore(); }, [=] { *rank = static_cast<size_t>(immediate_value(reduce())); },
            [=] {
                const size_t n = static_cast<size_t>(row.n);
                return check_nullspace(row, half_rank_matrix(row), n - *rank, false,
                                       [&](size_t i, size_t k) { return A->at((*rank + k) * n + i); });
            }};
}

// The product of the characteristic polynomials of the zigzag form's blocks.
uint32_t hash_of_charpoly(const Row &row, const Table &Z) {
    const size_t n = static_cast<size_t>(row.n);
    const uint64_t p = row.p;
    Residues f = {1};
    bool free_column = true;
    for (size_t first = 0; first < n; free_column = !free_column) {
        size_t last = first;
        while (last + 1 < n && Z->at(free_column ? (last + 1) * n + last : last * n + last + 1) == 1) last++;
        Residues factor;
        for (size_t i = first; i <= last; i++) {
            const uint32_t entry = Z->at(free_column ? i * n + last : last * n + i);
            factor.push_back(entry ? row.p - entry : 0);
        }
        factor.push_back(1);
        Residues next(f.size() + factor.size() - 1);
        for (size_t i = 0; i < f.size(); i++) {
            for (size_t j = 0; j < factor.size(); j++) {
                next[i + j] = static_cast<uint32_t>((next[i + j] + static_cast<uint64_t>(f[i]) * factor[j]) % p);
            }
        }
        f = next;
        first = last + 1;
    }
    return hash(f);
}

Task zigzag(const Row &row) {
    const Table A = square(row, square_matrix(row, 6));
    return {[=] { A->restore(); }, call("modLA_ZigZag", {modulus(row), A->table}),
            [=] { return hash_of_charpoly(row, A); }};
}

// MatGcd's result has any leading coefficient.
uint32_t hash_of_monic(const Row &row, const Table &M, size_t degree) {
    uint64_t inverse = 1, power = M->at(degree);
    for (uint32_t e = row.p - 2; e; e /= 2, power = power * power % row.p) {
        if (e % 2) inverse = inverse * power % row.p;
    }
    return hash(degree + 1, [&](size_t k) { return inverse * M->at(k) % row.p; });
}

Task gcd(const Row &row) {
    auto [f, h] = two_polynomials(row);
    f.insert(f.end(), h.begin(), h.end());
    const Table M = table(datatype_of(row), 2, row.n + 1, f);
    const auto degree = std::make_shared<size_t>(0);
    const auto find = call("modLA_MatGcd", {modulus(row), M->table, integer(2)});
    return {[=] { M->restore(); }, [=] { *degree = static_cast<size_t>(immediate_value(find())); },
            [=] { return hash_of_monic(row, M, *degree); }};
}

Ways ways(const Row &row) {
    const std::map<std::string, std::function<Task()>> all = {
        {"multiply", [=] { return multiply(row); }},
        {"matvec", [=] { return matvec(row); }},
        {"rref", [=] { return rref(row, square_matrix(row, 3)); }},
        {"rref_half_rank", [=] { return rref(row, half_rank_matrix(row)); }},
        {"determinant", [=] { return determinant(row); }},
        {"lu", [=] { return lu(row); }},
        {"forward_substitution", [=] { return solve(row, true); }},
        {"backward_substitution", [=] { return solve(row, false); }},
        {"nullspace", [=] { return nullspace(row); }},
        {"charpoly", [=] { return zigzag(row); }},
        {"charpoly_krylov", [=] { return zigzag(row); }},
        {"gcd", [=] { return gcd(row); }},
    };
    const auto found = all.find(row.work);
    return found == all.end() ? Ways{} : Ways{{"modla", found->second}};
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: modla_driver LIBRARY\n");
        return 2;
    }
    set_stack_base(__builtin_frame_address(0));
    parse_text = evaluate_text;
    try {
        load_library(argv[1]);
        define_functions();
        return serve(ways);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "modla_driver: %s\n", error.what());
        return 1;
    }
}
