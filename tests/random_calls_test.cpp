// Random calls of every entry point: valid ones do exactly what the models say, in every datatype, order and host; with
// arguments replaced by others, nothing is written before a message, which is the same everywhere.
//
// MODLA_TEST_CALLS sets the number of calls, MODLA_TEST_FIRST the seed of the first one.
#include <cstdlib>

#include "console/callbacks.h"
#include "tests/support/calls.h"

using namespace modla_test;

namespace {

// Messages of failures that are found during the work.
bool is_late(const std::string &message) {
    for (const char *late :
         {"modulus is composite", "matrix is singular", "invalid permutation vector", "unknown error",
          "cannot be worked on", "division by zero", "unable to mod", "is protected"}) {
        if (message.find(late) != std::string::npos) return true;
    }
    return false;
}

struct End {
    std::string message, result;
    bool returned;
};

void prepare(uint32_t seed, Random &random) {
    static const std::vector<FpMode> modes = foreign_fp_modes();
    reset();
    unassign("target");
    for (const char *name : output_names) unassign(name);
    host.conditions = {4 * below(random, 4u), chance(random, 70) ? pick(random, modes) : current_fp_mode()};
    host.dirty_tables = chance(random, 50);
    host.aligned_data = chance(random, 20);
    set_word_moduli(chance(random, 60));  // or the callbacks' other arithmetic
    set_collect_always(chance(random, 2));
    std::srand(seed);
}

// ---- Callbacks that read and write entry by entry: the library has made copies where operands overlap ----

struct View {
    Object table;
    int32_t row, column;
    int64_t get(int32_t i, int32_t j) const { return get_number(table, row + i, column + j); }
    void put(int32_t i, int32_t j, int64_t value) const {
        EXPECT_TRUE(row + i < table_rows(table_of(table)) && column + j < table_columns(table_of(table)));
        put_number(table, row + i, column + j, value);
    }
};

// The tables of a callback, with their shifts where there are some.
std::vector<View> views_of(const std::vector<Object> &arguments, bool shifted) {
    std::vector<View> views;
    for (size_t k = 0; k < arguments.size(); k++) {
        if (!has_type(arguments[k], type_table)) continue;
        views.push_back({arguments[k], 0, 0});
        if (shifted)
            views.back() = {arguments[k], immediate_value(arguments[k + 1]), immediate_value(arguments[k + 2])};
    }
    return views;
}

Object combine(const std::vector<Object> &a, bool is_product, bool shifted) {
    const std::vector<View> v = views_of(a, shifted);
    const View &C = v.back();
    const int64_t p = immediate_value(a[0]), f = immediate_value(a[3]);
    const int32_t m = immediate_value(a[1]), k = immediate_value(a[2]), n = immediate_value(a[is_product ? 3 : 2]);
    EXPECT_EQ(v.size(), is_product || a.size() == (shifted ? 13u : 7u) ? 3u : 2u);
    for (int32_t i = 0; i < m; i++) {
        for (int32_t j = 0; j < n; j++) {
            int64_t x = v.size() == 3 && !is_product ? v[0].get(i, j) % p : 0;
            if (!is_product) x += f * (v[v.size() - 2].get(i, j) % p);
            C.put(i, j, is_product ? 0 : x % p);
            for (int32_t t = 0; is_product && t < k; t++) {
                C.put(i, j, (C.get(i, j) + v[0].get(i, t) % p * (v[1].get(t, j) % p)) % p);
            }
        }
    }
    if (shifted) {
        EXPECT_TRUE(std::any_of(v.begin(), v.end(), [](const View &view) { return view.row || view.column; }));
    }
    return null_value();
}

struct PlainCallbacks {
    std::vector<std::unique_ptr<Callback>> callbacks;
    PlainCallbacks() {
        for (const std::string name : {"cbAddMult", "cbScalMult", "cbMatMult"}) {
            const bool is_product = name == "cbMatMult";
            const auto add = [&](const std::string &full, bool shifted) {
                callbacks.push_back(std::make_unique<Callback>(
                    full, [=](const std::vector<Object> &a) { return combine(a, is_product, shifted); }));
            };
            add(name, false), add(name + "Shift", true);
        }
    }
};

void check_created(const RandomCall &call, Object result, const std::string &text) {
    const Created &wanted = *call.created;
    ASSERT_TRUE(has_type(result, type_table)) << text;
    const Table &table = table_of(result);
    ASSERT_EQ(table.settings.datatype, call.datatype) << text;
    ASSERT_EQ(table.settings.subtype, wanted.rows == 0      ? MODLA_ROW_VECTOR
                                      : wanted.columns == 0 ? MODLA_COLUMN_VECTOR
                                                            : MODLA_MATRIX)
        << text;
    ASSERT_EQ(table.settings.order, wanted.order) << text;
    ASSERT_EQ(table_rows(table), std::max(wanted.rows, 1)) << text;
    ASSERT_EQ(table_columns(table), std::max(wanted.columns, 1)) << text;
    for (size_t k = 0; k < wanted.cells.size() && !call.any_message; k++) {
        const int32_t i = static_cast<int32_t>(k) / table_columns(table),
                      j = static_cast<int32_t>(k) % table_columns(table);
        ASSERT_EQ(stored_at(call.datatype, entry_at(result, i, j)), wanted.cells[k])
            << text << " at " << i << ", " << j;
    }
}

// Runs one variation of a call against its model.
End run_variation(uint32_t seed, const Variation &variation, Leaving leaving, Random &random) {
    prepare(seed, random);
    Shadow shadow;
    RandomCall call = draw_call(seed, variation, &shadow);
    const auto plain = seed % 2 && call.clean ? std::make_unique<PlainCallbacks>() : nullptr;
    const std::string text = "seed " + std::to_string(seed) + ": " + describe(call);
    host.leaving = leaving;
    std::srand(seed);
    const Outcome outcome = call_entry(call.entry, call.arguments);
    set_collect_always(false);
    if (call.entry == "Register") load_library(MODLA_LIBRARY);  // registers the console's procedure again
    End end = {outcome.message, "", outcome.returned};
    EXPECT_EQ(host.violations, std::vector<std::string>{}) << text;
    host.violations.clear();
    EXPECT_LE(host.messages.size(),
              outcome.message.find("integer too large") == 0 || call.datatype == MODLA_INTEGER ? 9u : 1u)
        << text;
    EXPECT_EQ(outcome.returned, outcome.message.empty() || leaving == Leaving::returning) << text;
    // (An error that a procedure of the host returned from is not the library's to see.)
    const bool seen = call.datatype != MODLA_INTEGER || !is_late(outcome.message);
    EXPECT_TRUE(host.messages.size() != 1 || !outcome.returned || !seen || outcome.result == null_value()) << text;
    if (!call.valid || call.any_message) {
        const bool may_write = outcome.message.empty() || is_late(outcome.message) || call.entry == "Mod";
        EXPECT_TRUE(may_write || shadow.is_what_there_is()) << text << outcome.message;
        return end;
    }
    EXPECT_EQ(outcome.message, call.message) << text;
    for (const char *at : call.free_cells) std::memcpy(shadow.of(at), at, entry_bytes(call.datatype));
    EXPECT_TRUE(shadow.is_what_there_is()) << text << "\nafterwards " << describe(call);
    for (const char *name : {"d", "e", "alias", "s", "t", "target"}) {
        const auto wanted = call.outputs.find(name);
        EXPECT_EQ(is_assigned(name), wanted != call.outputs.end()) << text << name;
        if (!is_assigned(name) || wanted == call.outputs.end()) continue;
        EXPECT_EQ(to_text(evaluate(global_name(name))), std::to_string(wanted->second)) << text << name;
    }
    EXPECT_TRUE(call.copies < 0 || !call.message.empty() || host.copies == call.copies) << text << host.copies;
    if (!call.message.empty() || testing::Test::HasFailure()) return end;
    if (call.created) {
        check_created(call, outcome.result, text);
    } else if (call.number) {
        const bool is_float = has_type(outcome.result, type_float);
        EXPECT_EQ(is_float ? integral_float(outcome.result) : integer_of(outcome.result),
                  static_cast<long>(*call.number))
            << text;
    } else {
        EXPECT_TRUE(call.entry == "Register" || outcome.result == null_value()) << text;
    }
    return end;
}

std::string with_orders_exchanged(std::string text) {
    const auto replace = [&](const std::string &from, const std::string &to) {
        for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    };
    replace("Fortran_order", "C-order"), replace("C_order", "Fortran_order"), replace("C-order", "C_order");
    return text;
}

uint32_t setting(const char *variable, uint32_t otherwise) {
    const char *const text = std::getenv(variable);
    return text ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

TEST(RandomCalls, DoExactlyWhatTheModelsSay) {
    const uint32_t first = setting("MODLA_TEST_FIRST", 1), count = setting("MODLA_TEST_CALLS", 12000 / slowness);
    uint32_t returned = 0, valid = 0;
    unassign("x"), unassign("y");
    for (uint32_t seed = first; seed < first + count && !HasFailure(); seed++) {
        Random random(seed ^ 0x9e3779b9);
        const Leaving leaving = chance(random, 50) ? Leaving::exception : Leaving::long_jump;
        const End end = run_variation(seed, {}, leaving, random);
        // Where errors return.  A conversion that the host refuses still gives a number.
        const End survived = run_variation(seed, {}, Leaving::returning, random);
        EXPECT_EQ(survived.message, end.message) << seed;
        const End turned = run_variation(seed, {true, -1}, leaving, random);
        EXPECT_EQ(turned.message.empty(), end.message.empty()) << seed << end.message << turned.message;
        EXPECT_TRUE(is_late(end.message) || with_orders_exchanged(turned.message) == end.message)
            << seed << turned.message;
        Shadow shadow;
        reset();
        const RandomCall call = draw_call(seed, {}, &shadow);
        valid += call.valid, returned += call.valid && end.message.empty();
        if (!call.valid || call.any_message) continue;
        for (const int32_t datatype : datatypes) {
            if (datatype == call.datatype || (datatype == MODLA_INTEGER && call.native_only)) continue;
            run_variation(seed, {false, datatype}, leaving, random);
        }
    }
    host = {};
    set_word_moduli(true);
    EXPECT_GT(returned, count >= 1000 ? count / 3 : 0);
    RecordProperty("returned", static_cast<int>(returned));
}

}  // namespace
