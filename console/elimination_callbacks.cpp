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
struct Output {
    Object name;

    bool wanted() const { return name != immediate(0); }
};

Output output_argument(Object x) {
    if (x != immediate(0) && !has_type(x, type_name)) throw HostError("expected a name or 0, got " + to_line(x));
    return {x};
}

void assign(const Output &output, Object value) {
    if (output.wanted()) assign_global(output.name, value);
}

bool flag_argument(Object x) {
    if (x != global_name("true") && x != global_name("false")) {
        throw HostError("expected true or false, got " + to_line(x));
    }
    return x == global_name("true");
}

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

struct ReduceRequest {
    IntegerBlock block;
    int32_t nred;
    Output det, pivprod, rank, pivsig, extra;
    int32_t *pivcols;  // or null
    int32_t mode;
    bool detonly;
};

ReduceRequest reduce_request(const Arguments &arguments) {
    const int32_t first_row = count_argument(arguments[1]), last_row = count_argument(arguments[2]);
    const int32_t first_column = count_argument(arguments[3]), last_column = count_argument(arguments[4]);
    const int32_t rows = std::max(last_row - first_row + 1, 0), columns = std::max(last_column - first_column + 1, 0);
    ReduceRequest request;
    request.nred = std::clamp(count_argument(arguments[5]) - 1, 0, columns);
    request.det = output_argument(arguments[7]);
    request.pivprod = output_argument(arguments[8]);
    request.rank = output_argument(arguments[9]);
    request.pivsig = output_argument(arguments[10]);
    request.extra = output_argument(arguments[11]);
    request.pivcols = nullptr;
    int32_t written_rows = rows;
    if (arguments[12] != immediate(0)) {
        const Table &pivots = vector_argument(arguments[12], std::min(rows, request.nred));
        if (pivots.settings.datatype != MODLA_INTEGER4) throw HostError("pivot columns must be machine integers");
        request.pivcols = static_cast<int32_t *>(pivots.data);
        written_rows = std::max(rows, request.nred);  // the nullspace may need more rows than are read
    }
    request.block = integer_block(arguments[0], first_row - 1, written_rows, first_column - 1, columns);
    request.block.rows = rows;
    request.mode = count_argument(arguments[13]);
    request.detonly = flag_argument(arguments[14]);
    return request;
}

template <class Residue>
Object reduce_block(const ReduceRequest &request, const Residue &residue) {
    using Entry = typename Residue::Entry;
    IntegerBlock block = request.block;
    Entries<Residue> entries = read_block(residue, block);
    const int32_t written_rows = request.pivcols ? std::max(block.rows, request.nred) : block.rows;
    entries.resize(static_cast<size_t>(written_rows) * static_cast<size_t>(block.columns));

    Entry det = 0, pivprod = 0;
    int32_t rank = 0, pivsig = 0, extra = 0;
    std::vector<int32_t> counters(static_cast<size_t>(block.rows) + 1);
    RowReductionTask task = {};
    task.nrows = block.rows;
    task.ncols = block.columns;
    task.nred = request.nred;
    task.rank = request.rank.wanted() ? &rank : nullptr;
    task.pivsig = request.pivsig.wanted() ? &pivsig : nullptr;
    task.extra = request.extra.wanted() ? &extra : nullptr;
    task.pivcols = request.pivcols;
    task.mode = request.mode;
    task.detonly = request.detonly;
    task.delayed = {counters.data(), pending_limit(residue)};
    const EchelonStatus status =
        row_reduce(RowReduction{task, residue, matrix_of(entries, block.columns), request.det.wanted() ? &det : nullptr,
                                request.pivprod.wanted() ? &pivprod : nullptr});
    if (status == echelon_bad_request) return status_object(status);
    if (status == echelon_done) block.rows = written_rows;
    write_block(entries, block);
    if (status == echelon_done) {
        assign(request.det, host_integer(det));
        assign(request.pivprod, host_integer(pivprod));
        assign(request.rank, immediate(rank));
        assign(request.pivsig, integer_object(int64_t{pivsig}));
        assign(request.extra, immediate(extra));
    }
    return status_object(status);
}

Object run_reduce(const Arguments &arguments) {
    const ReduceRequest request = reduce_request(arguments);
    return with_residue(arguments[6], [&](const auto &residue) { return reduce_block(request, residue); });
}

// ---- cbLUDecomp(A, permutation, n, p, det)

template <class Residue>
Object factor_block(const IntegerBlock &block, Table &permutation, const Output &det, const Residue &residue) {
    using Entry = typename Residue::Entry;
    Entries<Residue> entries = read_block(residue, block);
    const int32_t n = block.rows, steps = std::max(n - 1, 0);
    std::vector<int32_t> exchanges(static_cast<size_t>(steps) + 1), counters(static_cast<size_t>(n) + 1);
    const bool host_integers = permutation.settings.datatype == MODLA_INTEGER;
    int32_t *const perm = host_integers ? exchanges.data() : static_cast<int32_t *>(permutation.data);
    Entry value;
    const DelayedReductions delayed = {counters.data(), pending_limit(residue)};
    const LUStatus status =
        lu_factor(LUFactorization{residue, matrix_of(entries, n), n, perm, det.wanted() ? &value : nullptr, delayed});
    if (host_integers) {
        Object *const steps_made = static_cast<Object *>(permutation.data);
        for (int32_t k = 0; k < steps; k++) steps_made[k] = immediate(status == lu_done ? perm[k] : 0);
    }
    write_block(entries, block);
    if (status == lu_done && det.wanted()) assign(det, host_integer(value));
    return status_object(status);
}

Object run_lu(const Arguments &arguments) {
    const int32_t n = count_argument(arguments[2]);
    const IntegerBlock block = integer_block(arguments[0], 0, n, 0, n);
    Table &permutation = vector_argument(arguments[1], n - 1);
    const Output det = output_argument(arguments[4]);
    return with_residue(arguments[3],
                        [&](const auto &residue) { return factor_block(block, permutation, det, residue); });
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

struct SubstitutionRequest {
    IntegerBlock T, B;
    bool forward, unit_diagonal;
};

// In the order of the table: after a failure the rows that were not solved tell in which order it went.
template <bool c_order, class Residue>
SolveStatus substitute(const SubstitutionRequest &request, const Residue &residue) {
    using Entry = typename Residue::Entry;
    const int32_t n = request.T.rows, columns = request.B.columns;
    const auto stored = [](const IntegerBlock &block) { return c_order ? block : transposed(block); };
    Entries<Residue> triangle =
        read_triangle(residue, stored(request.T), request.forward == c_order, request.unit_diagonal);
    Entries<Residue> solution = read_block(residue, stored(request.B));
    using M = Matrix<Entry, c_order>;
    const SolveStatus status = triangular_solve(TriangularSolve<Residue, M, M>{residue,
                                                                               {triangle.data(), n},
                                                                               n,
                                                                               {solution.data(), c_order ? columns : n},
                                                                               columns,
                                                                               request.forward,
                                                                               request.unit_diagonal,
                                                                               pending_limit(residue)});
    write_block(solution, stored(request.B));
    return status;
}

Object run_substitution(const Arguments &arguments, bool forward) {
    const int32_t n = count_argument(arguments[1]), right_hand_sides = count_argument(arguments[3]);
    const bool unit_diagonal = forward && flag_argument(arguments[5]);
    const IntegerBlock T = integer_block(arguments[0], 0, n, 0, n);
    check_table(arguments[2]);
    // A Matrix without columns has nothing to solve for.
    if (right_hand_sides == 0 && table_of(arguments[2]).settings.num_dimensions == 2) return status_object(0);
    const IntegerBlock B = integer_block(arguments[2], 0, n, 0, std::max(right_hand_sides, 1));
    const SubstitutionRequest request = {T, B, forward, unit_diagonal};
    const bool c_order = table_of(arguments[0]).settings.order == MODLA_C_ORDER;
    return with_residue(arguments[4], [&](const auto &residue) {
        return status_object(c_order ? substitute<true>(request, residue) : substitute<false>(request, residue));
    });
}

Object run_forward(const Arguments &arguments) {
    return run_substitution(arguments, true);
}

Object run_backward(const Arguments &arguments) {
    return run_substitution(arguments, false);
}

// ---- cbMatGcd(A, polynomials, columns, p), cbZigZag(A, n, p)

Object run_gcd(const Arguments &arguments) {
    const int32_t polynomials = count_argument(arguments[1]), columns = count_argument(arguments[2]);
    if (polynomials < 1) throw HostError("a gcd needs at least one polynomial");
    const IntegerBlock block = integer_block(arguments[0], 0, polynomials, 0, columns);
    return with_residue(arguments[3], [&](const auto &residue) {
        using Residue = std::decay_t<decltype(residue)>;
        Entries<Residue> entries = read_block(residue, block);
        const int32_t degree = find_row_gcd(RowGcd<Residue, Matrix<typename Residue::Entry, true>>{
            residue, matrix_of(entries, columns), polynomials, columns, pending_limit(residue)});
        write_block(entries, block);
        return status_object(degree);
    });
}

Object run_zigzag(const Arguments &arguments) {
    const int32_t n = count_argument(arguments[1]);
    const IntegerBlock block = integer_block(arguments[0], 0, n, 0, n);
    return with_residue(arguments[2], [&](const auto &residue) {
        using Residue = std::decay_t<decltype(residue)>;
        Entries<Residue> entries = read_block(residue, block);
        const ZigZagStatus status = make_zigzag(ZigZag<Residue, Matrix<typename Residue::Entry, true>>{
            residue, matrix_of(entries, n), n, pending_limit(residue)});
        write_block(entries, block);
        return status_object(status);
    });
}

}  // namespace

std::vector<CallbackDefinition> elimination_callbacks() {
    return {{"cbReduce", 15, run_reduce},   {"cbLUDecomp", 5, run_lu}, {"cbForSub", 6, run_forward},
            {"cbBackSub", 5, run_backward}, {"cbMatGcd", 4, run_gcd},  {"cbZigZag", 3, run_zigzag}};
}

}  // namespace modla::console
