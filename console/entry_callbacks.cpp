// Callbacks that work entry by entry: random residues, and values of any kind to residues.
#include "console/callback_arguments.h"
#include "console/error.h"
#include "console/functions.h"
#include "console/host.h"
#include "values/evaluate.h"

namespace modla::console {

namespace {

// ---- cbRandMat(p, row shift, rows, column shift, columns, A): a count of 0 stands for a Vector's missing dimension

Object run_random(const Arguments &arguments) {
    const int32_t rows = count_argument(arguments[2]), columns = count_argument(arguments[4]);
    const IntegerBlock block = integer_block(arguments[5], count_argument(arguments[1]), rows == 0 ? 1 : rows,
                                             count_argument(arguments[3]), columns == 0 ? 1 : columns);
    const mpz_class p = modulus_argument(arguments[0]);
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            block.at(i, j) = host_integer(mpz_class(random_source().get_z_range(p)));
        }
    }
    return null_value();
}

// ---- cbMod(p, first row, last row, first column, last column, A), cbModEval: followed by the equations

IntegerBlock mod_block(const Arguments &arguments) {
    const int32_t row = count_argument(arguments[1]), column = count_argument(arguments[3]);
    const int32_t rows = count_argument(arguments[2]) - row + 1, columns = count_argument(arguments[4]) - column + 1;
    return integer_block(arguments[5], row - 1, rows, column - 1, columns);
}

Object side(Object equation, uint32_t i) {
    if (!has_type(equation, type_equation)) throw HostError("evaluations must be a list/set of equations");
    return words(equation)[i];
}

template <class Residue>
Object reduce_values(const IntegerBlock &block, const std::vector<Object> &equations, const Residue &residue) {
    std::vector<HostObject> names;
    check_memory(equations.size() * power_table_length * entry_bytes(residue));
    Entries<Residue> tables(equations.size() * power_table_length, typename Residue::Entry(Residue::no_inverse));
    for (size_t i = 0; i < equations.size(); i++) {
        names.push_back(side(equations[i], 1));
        tables[i * power_table_length] = residue_of(residue, side(equations[i], 2));
    }
    Evaluation<Residue> evaluation = {&host_api(), residue, names.data(), tables.data(),
                                      static_cast<int32_t>(names.size())};
    Entries<Residue> entries = entries_for(residue, block.rows, block.columns);
    for (int32_t i = 0; i < block.rows; i++) {
        for (int32_t j = 0; j < block.columns; j++) {
            if (is_integer(block.at(i, j))) {
                entries.push_back(residue_of(residue, block.at(i, j)));
                continue;
            }
            typename Residue::Value value;
            if (!evaluate(evaluation, block.at(i, j), &value)) {
                throw HostError(fill_placeholders(evaluation.message, {evaluation.culprit}));
            }
            if (value == residue.p) value = 0;  // a negative multiple of p that stands alone
            entries.push_back(value);
        }
    }
    write_block(entries, block);
    return null_value();
}

Object run_mod(const Arguments &arguments) {
    const IntegerBlock block = mod_block(arguments);
    return with_residue(arguments[0], [&](const auto &residue) { return reduce_values(block, {}, residue); });
}

Object run_mod_evaluating(const Arguments &arguments) {
    const IntegerBlock block = mod_block(arguments);
    const Object evaluations = arguments[6];
    const std::vector<Object> equations =  // parts of an argument
        is_collection(evaluations) ? elements_of(evaluations) : std::vector<Object>{evaluations};
    return with_residue(arguments[0], [&](const auto &residue) { return reduce_values(block, equations, residue); });
}

}  // namespace

std::vector<CallbackDefinition> entry_callbacks() {
    return {{"cbRandMat", 6, run_random}, {"cbMod", 6, run_mod}, {"cbModEval", 7, run_mod_evaluating}};
}

}  // namespace modla::console
