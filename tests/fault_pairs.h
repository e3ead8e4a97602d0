// Calls with faults in their arguments: each fault alone, and of two faults the earlier one, raises its message, and
// nothing is written, in hosts whose errors leave by an exception, leave by longjmp or return.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>

#include "tests/session.h"

namespace modla_test {

// Other arguments at some places, fewer or more of them.
struct Fault {
    std::string message;
    std::map<size_t, std::string> arguments = {};
    std::optional<size_t> keep = {};
    std::string extra = {};
};

// A valid call, and faults in the order in which they are to be found.
struct Subject {
    std::string entry;
    std::vector<std::string> arguments;
    std::vector<Fault> faults = {};

    // The same fault through several texts of one argument; %a in the message is the text.
    Subject &at(size_t position, const std::vector<std::string> &texts, const std::string &message) {
        for (const std::string &text : texts) {
            std::string finished = message;
            if (const size_t place = finished.find("%a"); place != std::string::npos) finished.replace(place, 2, text);
            faults.push_back({finished, {{position, text}}});
        }
        return *this;
    }
    Subject &with(const std::map<size_t, std::string> &changed, const std::string &message) {
        faults.push_back({message, changed});
        return *this;
    }
    Subject &only(size_t keep, const std::string &message) {
        faults.push_back({message, {}, keep});
        return *this;
    }
    Subject &and_also(const std::string &extra, const std::string &message) {
        faults.push_back({message, {}, {}, extra});
        return *this;
    }
    // The wrong number of arguments, for entry points that take a fixed one.
    Subject &counted() {
        for (const size_t keep : {size_t{0}, size_t{1}, arguments.size() - 1}) {
            only(keep, "incorrect number of arguments");
        }
        return and_also("3", "incorrect number of arguments");
    }
    // The modulus as such, for a datatype.
    Subject &modulus(int32_t datatype) {
        const std::string small = "modulus must be at least 2", large = "modulus is too large for ";
        at(1, {"1", "0", "-7"}, small);
        if (datatype == MODLA_INTEGER) at(1, {"-10^20"}, small);
        const std::vector<std::string> too_large = {"2^30", "10^20", "-10^20"};
        if (datatype == MODLA_INTEGER4) {
            at(1, {"65536"}, large + "'integer[4]' datatype, must be < 65536");
            at(1, too_large, large + "'integer[4]' datatype, must be < 65536");
        }
        if (datatype == MODLA_FLOAT8) {
            at(1, {"33554432"}, large + "'float[8]' datatype, must be < 33554432");
            at(1, too_large, large + "'float[8]' datatype, must be < 33554432");
        }
        return *this;
    }
};

inline const std::vector<std::string> no_integers = {"'x'", "2.5", "7.0", "\"7\"", "1/2", "[7]", "7..8", "integer"};
inline const std::vector<std::string> no_tables = {"5", "10^20", "foo", "\"Target\"", "[Target4]"};
inline const std::vector<std::string> no_booleans = {"0", "1", "'yes'", "\"true\"", "[true]"};

// All the faults in one call, when that is possible.
inline std::optional<std::vector<std::string>> apply(const Subject &subject, const std::vector<const Fault *> &faults) {
    std::vector<std::string> arguments = subject.arguments;
    std::set<size_t> changed;
    std::optional<size_t> keep;
    for (const Fault *fault : faults) {
        for (const auto &[position, text] : fault->arguments) {
            if (!changed.insert(position).second) return std::nullopt;
            arguments[position - 1] = text;
        }
        if (!fault->extra.empty()) arguments.push_back(fault->extra);
        if (fault->keep && keep) return std::nullopt;
        if (fault->keep) keep = fault->keep;
    }
    if (!keep) return arguments;
    if (arguments.size() > subject.arguments.size() || (!changed.empty() && *changed.rbegin() > *keep)) {
        return std::nullopt;
    }
    arguments.resize(*keep);
    return arguments;
}

// A call that raises the message in every host and leaves unchanged what state() returns.
template <class State>
void expect_failure(const std::string &entry, const std::string &arguments, const std::string &message,
                    const State &state) {
    const auto before = state();
    const std::string call = entry + "(" + arguments + ")";
    for (const auto unwinding : {modla::console::Unwinding::long_jump, modla::console::Unwinding::exception}) {
        modla::console::set_unwinding(unwinding);
        ASSERT_EQ(error_of(call), message) << call;
        ASSERT_TRUE(state() == before) << call;
    }
    const HostApi api = recording_host();
    const Object *const array = modla::console::words(argument_array(arguments));
    ASSERT_EQ(entry_point(entry)(&api, array), modla::console::null_value()) << call;
    ASSERT_EQ(raised_messages, std::vector{message}) << call;
    ASSERT_TRUE(state() == before) << call;
    ASSERT_EQ(modla::console::lent_count(), 0u) << call;
}

// Runs the faults of Subjects over tables that it watches.  There are tables with faults of their own, most of them
// with later ones besides: OddDatatype, OddStorage, OddSubtype, OddStorageAndSubtype, AllOdd, RowVector, ColumnVector.
class FaultPairs : public testing::Test {
  protected:
    FaultPairs() {
        define("OddDatatype", make_table(5, MODLA_MATRIX, MODLA_C_ORDER, 3, 4));
        define("OddStorage", make_table(MODLA_INTEGER4, MODLA_MATRIX, MODLA_C_ORDER, 3, 4, 1));
        define("OddSubtype", make_table(MODLA_INTEGER4, MODLA_ARRAY, MODLA_C_ORDER, 3, 3));
        define("OddStorageAndSubtype", make_table(MODLA_FLOAT8, MODLA_ARRAY, MODLA_C_ORDER, 3, 4, 5));
        define("AllOdd", make_table(7, MODLA_ARRAY, MODLA_C_ORDER, 3, 4, 0));
        define("RowVector", make_table(MODLA_INTEGER4, MODLA_ROW_VECTOR, MODLA_C_ORDER, 1, 4));
        define("ColumnVector", make_table(MODLA_FLOAT8, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 4, 1));
        for (const char *name :
             {"cbRandMat", "cbReduce", "cbLUDecomp", "cbForSub", "cbBackSub", "cbMatGcd", "cbZigZag"}) {
            callbacks_.push_back(std::make_unique<Callback>(name, [this](const std::vector<Object> &) {
                called_++;
                return modla::console::immediate(0);
            }));
        }
        for (const std::string &name : output_names) unassign(name);
    }

    void define(const std::string &name, Object table) {
        set_name(name, table);
        names_.push_back(name);
    }

    // The contents of all tables, the outputs, and how often a callback was called.
    std::vector<std::vector<char>> everything() const {
        std::vector<std::vector<char>> contents;
        for (const std::string &name : names_) contents.push_back(storage_of(eval(name)));
        for (const std::string &name : output_names) contents.push_back({static_cast<char>(is_assigned(name))});
        contents.push_back({static_cast<char>(called_)});
        return contents;
    }

    void check_each(const Subject &subject) {
        for (const Fault &fault : subject.faults) {
            expect_failure(subject.entry, joined(*apply(subject, {&fault})), fault.message,
                           [&] { return everything(); });
            if (HasFatalFailure()) return;
        }
    }

    // Counts the pairs.  Two faults of one kind may make up for each other.
    void check_pairs(const Subject &subject, int *pairs) {
        const auto before = everything();
        for (size_t i = 0; i < subject.faults.size(); i++) {
            for (size_t j = i + 1; j < subject.faults.size(); j++) {
                const Fault &first = subject.faults[i], &second = subject.faults[j];
                if (first.message == second.message) continue;
                const auto arguments = apply(subject, {&first, &second});
                if (!arguments) continue;
                const std::string call = subject.entry + "(" + joined(*arguments) + ")";
                ASSERT_EQ(error_of(call), first.message) << call;
                ++*pairs;
            }
        }
        ASSERT_TRUE(everything() == before) << subject.entry;
    }

    void check_success(const Subject &subject) {
        const std::string call = subject.entry + "(" + joined(subject.arguments) + ")";
        EXPECT_EQ(error_of(call), "") << call;
        EXPECT_EQ(modla::console::lent_count(), 0u) << call;
    }

    void check(const std::vector<Subject> &subjects, int least_pairs) {
        int pairs = 0;
        for (const Subject &subject : subjects) {
            if (!HasFatalFailure()) check_each(subject);
            if (!HasFatalFailure()) check_pairs(subject, &pairs);
        }
        EXPECT_GT(pairs, least_pairs);
    }

    static inline const std::vector<std::string> output_names = {"out",      "out_det",    "out_pivprod",
                                                                 "out_rank", "out_pivsig", "out_extra"};

  private:
    std::vector<std::string> names_;
    int called_ = 0;
    std::vector<std::unique_ptr<Callback>> callbacks_;
};

}  // namespace modla_test
