// Callbacks of elimination: the kernels themselves, on the console's residues.
#include <algorithm>

#include "console/callback_arguments.h"
#include "console/error.h"
#include "console/host.h"
#include "console/print.h"
#include "console/table.h"
#include "elimination/lu_factor.h"
#include "elimination/row_gcd.h"
#include "elimination/row_reduction.h"
#include "elimination/triangular_solve.h"
#include "elimination/zigzag.h"

namespace modla::console {

namespace {

// An output: a name, or 0 for none.
Object output_argument(Object x) {
    if (x != immediate(0) && !has_type(x, type_name)) throw HostError("expected a name or 0, got " + to_line(x));
    return x;
}

bool is_wanted(Object output) {
    return output != immediate(0);
}

void assign(Object output, Object value) {
    if (is_wanted(output)) assign_global(output, value);
}

bool flag_argument(Object x) {
    if (x != global_name("true") && x != global_name("false")) {
        throw HostError("expected true or false, got " + to_line(x));
    }
    return x == global_name("true");
}

template <class Residue>
using Rows = Matrix<typename Residue::Entry, true>;

template <class Status>
Object status_object(Status status) {
    return immediate(static_cast<int32_t>(status));
}

// A Vector of at least `least` machine or host integers; its entries lie side by side.
Table &vector_argument(Object x, int32_t least) {
    const bool vector = has_type(x, type_table) && table_of(x).settings.num_dimensions == 1;
    const int32_t datatype = vector ? table_of(x).settings.datatype : MODLA_FLOAT8;
    if ((datatype != MODLA_INTEGER4 && datatype != MODLA_INTEGER) || table_of(x).bounds[0] < least) {
        throw HostError("expected a Vector of " + std::to_string(least) + " integers, got " + to_line(x));
    }
    return table_of(x);
}

// ---- cbReduce(A, first row, last row, first column, last column, bound, p, det, signed pivot product, rank, pivot
//      signature, rows left, pivot columns, mode, determinant only)
//
// The bound is one more than the number of reducible columns of the block, or any larger number for all of them.

Object run_reduce(const Arguments &arguments) {
    const int32_t first_row = count_argument(arguments[1]), last_row = count_argument(arguments[2]);
    const int32_t first_column = count_argument(arguments[3]), last_column = count_argument(arguments[4]);
    const int32_t rows = std::max(last_row - first_row + 1, 0), columns = std::max(last_column - first_column + 1, 0);
    const int32_t nred = std::clamp(count_argument(arguments[5]) - 1, 0, columns);
    Object outputs[5];  // determinant, signed pivot product, rank, pivot signature, rows left
    std::transform(&arguments[7], &arguments[12], outputs, output_argument);
    int32_t *pivcols = nullptr, written_rows = rows;
    if (arguments[12] != immediate(0)) {
        const Table &pivots = vector_argument(arguments[12], std::min(rows, nred));
        if (pivots.settings.datatype != MODLA_INTEGER4) throw HostError("pivot columns must be machine integers");
        pivcols = static_cast<int32_t *>(pivots.data);
        written_rows = std::max(rows, nred);  // the nullspace may need more rows than are read
    }
    IntegerBlock block = integer_block(arguments[0], first_row - 1, written_rows, first_column - 1, columns);
    block.rows = rows;
    const int32_t mode = count_argument(arguments[13]);
    const bool detonly = flag_argument(arguments[14]);
    return with_residue(arguments[6], [&]<class Residue>(const Residue &residue) {
        Entries<Residue> entries = read_block(residue, block);
        entries.resize(static_cast<size_t>(written_rows) * static_cast<size_t>(columns));
        typename Residue::Entry det = 0, pivprod = 0;
        int32_t rank = 0, pivsig = 0, extra = 0;
        std::vector<int32_t> counters(static_cast<size_t>(rows) + 1);
        const auto wanted = [&](size_t i, auto &value) { return is_wanted(outputs[i]) ? &value : nullptr; };
        const DelayedReductions delayed = {counters.data(), pending_limit(residue)};
        const RowReductionTask task = {rows,    columns, nred,    wanted(2, rank), wanted(3, pivsig), wanted(4, extra),
                                       pivcols, mode,    detonly, delayed};
        const EchelonStatus status = row_reduce(RowReduction<Residue, Rows<Residue>>{
            task, residue, matrix_of(entries, columns), wanted(0, det), wanted(1, pivprod)});
        if (status == echelon_bad_request) return status_object(status);
        if (status == echelon_done) block.rows = written_rows;
        write_block(entries, block);
        if (status == echelon_done) {
            assign(outputs[0], host_integer(det));
            assign(outputs[1], host_integer(pivprod));
            assign(outputs[2], immediate(rank));
            assign(outputs[3], integer_object(int64_t{pivsig}));
            assign(outputs[4], immediate(extra));
        }
        return status_object(status);
    });
}

// ---- cbLUDecomp(A, permutation, n, p, det)

Object run_lu(const Arguments &arguments) {
    const int32_t n = count_argument(arguments[2]), steps = std::max(n - 1, 0);
    const IntegerBlock block = integer_block(arguments[0], 0, n, 0, n);
    const Table &permutation = vector_argument(arguments[1], n - 1);
    const Object det = output_argument(arguments[4]);
    return with_residue(arguments[3], [&]<class Residue>(const Residue &residue) {
        Entries<Residue> entries = read_block(residue, block);
        std::vector<int32_t> exchanges(static_cast<size_t>(steps) + 1), counters(static_cast<size_t>(n) + 1);
        const bool host_integers = permutation.settings.datatype == MODLA_INTEGER;
        int32_t *const perm = host_integers ? exchanges.data() : static_cast<int32_t *>(permutation.data);
        typename Residue::Entry value;
        const DelayedReductions delayed = {counters.data(), pending_limit(residue)};
        const LUStatus status = lu_factor(LUFactorization<Residue, Rows<Residue>>{
            residue, matrix_of(entries, n), n, perm, is_wanted(det) ? &value : nullptr, delayed});
        if (host_integers) {
            Object *const steps_made = static_cast<Object *>(permutation.data);
            for (int32_t k = 0; k < steps; k++) steps_made[k] = immediate(status == lu_done ? perm[k] : 0);
        }
        write_block(entries, block);
        if (status == lu_done && is_wanted(det)) assign(det, host_integer(value));
        return status_object(status);
    });
}

// ---- cbForSub(T, n, B, columns, p, unit diagonal), cbBackSub(T, n, B, columns, p): 0 columns for a Vector

// The triangle of T that is read; the other entries, and a diagonal of ones that is not read, are 0.
template <class Residue>
Entries<Residue> read_triangle(const Residue &residue, const IntegerBlock &T, bool lower, bool unit_diagonal) {
    Entries<Residue> entries = entries_for(residue, T.rows, T.rows);
    for (int32_t i = 0; i < T.rows; i++) {
        for (int32_t j = 0; j < T.rows; j++) {
            const bool read = i == j ? !unit_diagonal : (i > j) == lower;
            entries.push_back(read ? residue_of(residue, T.at(i, j)) : typename Residue::Value(0));
        }
    }
    return entries;
}

// In the order of the table: after a failure the rows that were not solved tell in which order it went.
template <bool c_order, class Residue>
Object substitute(const IntegerBlock &T, const IntegerBlock &B, bool forward, bool unit_diagonal,
                  const Residue &residue) {
    using M = Matrix<typename Residue::Entry, c_order>;
    const auto stored = [](const IntegerBlock &block) { return c_order ? block : transposed(block); };
    Entries<Residue> triangle = read_triangle(residue, stored(T), forward == c_order, unit_diagonal);
    Entries<Residue> solution = read_block(residue, stored(B));
    const M solved = {triangle.data(), T.rows}, sides = {solution.data(), c_order ? B.columns : T.rows};
    const SolveStatus status = triangular_solve(TriangularSolve<Residue, M, M>{
        residue, solved, T.rows, sides, B.columns, forward, unit_diagonal, pending_limit(residue)});
    write_block(solution, stored(B));
    return status_object(status);
}

template <bool forward>
Object run_substitution(const Arguments &arguments) {
    const int32_t n = count_argument(arguments[1]), right_hand_sides = count_argument(arguments[3]);
    const bool unit_diagonal = forward && flag_argument(arguments[5]);
    const IntegerBlock T = integer_block(arguments[0], 0, n, 0, n);
    check_table(arguments[2]);
    // A Matrix without columns has nothing to solve for.
    if (right_hand_sides == 0 && table_of(arguments[2]).settings.num_dimensions == 2) return status_object(0);
    const IntegerBlock B = integer_block(arguments[2], 0, n, 0, std::max(right_hand_sides, 1));
    const bool c_order = table_of(arguments[0]).settings.order == MODLA_C_ORDER;
    return with_residue(arguments[4], [&](const auto &residue) {
        return c_order ? substitute<true>(T, B, forward, unit_diagonal, residue)
                       : substitute<false>(T, B, forward, unit_diagonal, residue);
    });
}

// ---- cbMatGcd(A, polynomials, columns, p), cbZigZag(A, n, p)

Object run_gcd(const Arguments &arguments) {
    const int32_t polynomials = count_argument(arguments[1]), columns = count_argument(arguments[2]);
    if (polynomials < 1) throw HostError("a gcd needs at least one polynomial");
    const IntegerBlock block = integer_block(arguments[0], 0, polynomials, 0, columns);
    return with_residue(arguments[3], [&]<class Residue>(const Residue &residue) {
        Entries<Residue> entries = read_block(residue, block);
        const int32_t degree = find_row_gcd(RowGcd<Residue, Rows<Residue>>{
            residue, matrix_of(entries, columns), polynomials, columns, pending_limit(residue)});
        write_block(entries, block);
        return status_object(degree);
    });
}

Object run_zigzag(const Arguments &arguments) {
    const int32_t n = count_argument(arguments[1]);
    const IntegerBlock block = integer_block(arguments[0], 0, n, 0, n);
    return with_residue(arguments[2], [&]<class Residue>(const Residue &residue) {
        Entries<Residue> entries = read_block(residue, block);
        const ZigZagStatus status =
            make_zigzag(ZigZag<Residue, Rows<Residue>>{residue, matrix_of(entries, n), n, pending_limit(residue)});
        write_block(entries, block);
        return status_object(status);
    });
}

}  // namespace

std::vector<CallbackDefinition> elimination_callbacks() {
    return {{"cbReduce", 15, run_reduce},
            {"cbLUDecomp", 5, run_lu},
            {"cbForSub", 6, run_substitution<true>},
            {"cbBackSub", 5, run_substitution<false>},
            {"cbMatGcd", 4, run_gcd},
            {"cbZigZag", 3, run_zigzag}};
}

}  // namespace modla::console
