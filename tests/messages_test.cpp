// Every check of every entry point, in its order: the table is messages.txt.
//
//   table NAME DATATYPE SUBTYPE ORDER ROWS COLUMNS [STORAGE]     a table, by the codes of modla.h; x@ for x0, x4 and x6
//   let NAME TEXT                                      a name with the value of an expression
//   ENTRY(ARGUMENTS) -> MESSAGE                        a call with its message
//   call ENTRY(ARGUMENTS)                              a valid call, in every datatype (@); the lines that follow are
//                                                      its faults, in the order in which they must be found:
//     N: TEXT | TEXT ... -> MESSAGE                    any of the texts as argument N; %a is the text
//     N=TEXT; N=TEXT -> MESSAGE                        several arguments
//     first N -> MESSAGE                               no more arguments than N
//     and TEXT -> MESSAGE                              a further argument
//     count                                            any other number of arguments
//     modulus                                          the limits of the datatype
//   $NAME stands for the texts that "set NAME TEXT | TEXT" gave.
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "tests/support/host.h"

using namespace modla_test;

namespace {

std::vector<std::string> split(const std::string &text, const std::string &separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at; (at = text.find(separator, start)) != std::string::npos; start = at + separator.size()) {
        parts.push_back(text.substr(start, at - start));
    }
    parts.push_back(text.substr(start));
    return parts;
}

std::string replaced(std::string text, const std::string &mark, const std::string &with) {
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += with.size())
        text.replace(at, mark.size(), with);
    return text;
}

// Other arguments at some places, fewer or more of them.
struct Fault {
    std::string message;
    std::map<size_t, std::string> arguments = {};
    std::optional<size_t> first = {};
    std::string extra = {};
};

struct Subject {
    std::string entry;
    std::vector<std::string> arguments;
    std::vector<Fault> faults = {};
};

class Messages : public testing::Test {
  protected:
    // Reads the table; calls visit with every subject in every datatype, and single calls as subjects without arguments.
    void read() {
        std::ifstream file(MODLA_TESTS "/messages.txt");
        std::vector<std::string> block;
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            if (line[0] != ' ') finish(&block);
            std::istringstream words(line);
            std::string word, name;
            words >> word >> name;
            const std::string rest = line.substr(std::min(line.size(), word.size() + name.size() + 2));
            if (word == "table")
                make_tables(name, rest);
            else if (word == "let")
                set_name(name, eval(rest));
            else if (word == "set")
                sets_["$" + name] = rest;
            else if (word == "call" || line[0] == ' ')
                block.push_back(line);
            else
                add_single(line);
        }
        finish(&block);
        ASSERT_GT(singles_.size(), 100u) << "messages.txt was not read";
    }

    void make_tables(const std::string &name, const std::string &codes) {
        int32_t datatype, subtype, order, rows, columns, storage = MODLA_RECTANGULAR;
        for (const char *each : {"0", "4", "6"}) {
            std::string its_name = name, text = codes;
            if (name.back() == '@') its_name.back() = each[0], text = replaced(codes, "@", each);
            std::istringstream in(text);
            in >> datatype >> subtype >> order >> rows >> columns;
            if (!(in >> storage)) storage = MODLA_RECTANGULAR;
            const Object table = make_table({datatype, order}, subtype, rows, columns, storage);
            set_name(its_name, table);
            tables_.values.push_back(table);
            int32_t k = 0;
            for (int32_t i = 0; i < table_rows(table_of(table)); i++) {
                for (int32_t j = 0; j < table_columns(table_of(table)); j++, k++)
                    put_number(table, i, j, (k * k + 5) % 7);
            }
            if (name.back() != '@') break;
        }
    }

    void add_single(const std::string &line) {
        const auto parts = split(line, " -> ");
        ASSERT_EQ(parts.size(), 2u) << line;
        singles_.emplace_back(parts[0], parts[1]);
    }

    void finish(std::vector<std::string> *block) {
        if (block->empty()) return;
        for (const std::string datatype : {"0", "4", "6"}) {
            const std::string first = replaced((*block)[0].substr(5), "@", datatype);
            const size_t open = first.find('(');
            Subject subject = {
                first.substr(0, open), split(first.substr(open + 1, first.rfind(')') - open - 1), "; "), {}};
            for (size_t k = 1; k < block->size(); k++)
                add_fault(replaced((*block)[k].substr(2), "@", datatype), datatype, &subject);
            subjects_.push_back(subject);
        }
        block->clear();
    }

    void add_fault(const std::string &line, const std::string &datatype, Subject *subject) {
        std::vector<Fault> &faults = subject->faults;
        const auto parts = split(line, " -> ");
        if (line == "count") {
            const std::string message = "incorrect number of arguments";
            for (const size_t n : {size_t{0}, size_t{1}, subject->arguments.size() - 1})
                faults.push_back({message, {}, n});
            return faults.push_back({message, {}, {}, "3"});
        }
        if (line == "modulus") {
            const std::string limit = datatype == "4" ? "65536" : "33554432";
            const std::string large = "modulus is too large for '" +
                                      std::string(datatype == "4" ? "integer[4]" : "float[8]") +
                                      "' datatype, must be < " + limit;
            for (const char *text : {"1", "0", "-7"}) faults.push_back({"modulus must be at least 2", {{1, text}}});
            if (datatype == "0") return faults.push_back({"modulus must be at least 2", {{1, "-10^20"}}});
            for (const std::string &text : {limit, std::string("2^30"), std::string("-10^20")})
                faults.push_back({large, {{1, text}}});
            return;
        }
        ASSERT_EQ(parts.size(), 2u) << line;
        if (parts[0].starts_with("first ")) return faults.push_back({parts[1], {}, std::stoul(parts[0].substr(6))});
        if (parts[0].starts_with("and ")) return faults.push_back({parts[1], {}, {}, parts[0].substr(4)});
        if (parts[0].find('=') < parts[0].find(':')) {
            Fault fault = {parts[1]};
            for (const std::string &each : split(parts[0], "; "))
                fault.arguments[std::stoul(each)] = each.substr(each.find('=') + 1);
            return faults.push_back(fault);
        }
        const size_t position = std::stoul(parts[0]);
        std::string texts = parts[0].substr(parts[0].find(": ") + 2);
        for (const auto &[name, set] : sets_) texts = replaced(texts, name, set);
        for (const std::string &text : split(texts, " | "))
            faults.push_back({replaced(parts[1], "%a", text), {{position, text}}});
    }

    // All tables, the outputs, and how often a callback was called.
    std::vector<std::vector<char>> state() const {
        std::vector<std::vector<char>> all;
        for (const Object table : tables_.values) all.push_back(storage_of(table));
        for (const char *name : {"out", "out1", "out2", "out3", "out4"}) all.push_back({is_assigned(name)});
        all.push_back({static_cast<char>(called_)});
        return all;
    }

    // The call raises the message in every host, and nothing is changed.
    void expect_message(const std::string &text, const std::string &message) {
        const auto before = state();
        for (const Leaving leaving : {Leaving::exception, Leaving::long_jump, Leaving::returning}) {
            host.leaving = leaving;
            const Outcome outcome = call(text);
            ASSERT_EQ(host.messages, std::vector<std::string>{message}) << text;
            ASSERT_TRUE(!outcome.returned || outcome.result == null_value()) << text;
            ASSERT_TRUE(state() == before) << text;
        }
        host.leaving = Leaving::exception;
    }

    // All the faults in one call, when that is possible.
    static std::optional<std::string> apply(const Subject &subject, const std::vector<const Fault *> &faults) {
        std::vector<std::string> arguments = subject.arguments;
        std::set<size_t> changed;
        std::optional<size_t> first;
        for (const Fault *fault : faults) {
            for (const auto &[position, text] : fault->arguments) {
                if (!changed.insert(position).second) return std::nullopt;
                arguments.at(position - 1) = text;
            }
            if (!fault->extra.empty()) arguments.push_back(fault->extra);
            if (fault->first && first) return std::nullopt;
            if (fault->first) first = fault->first;
        }
        if (first) {
            if (arguments.size() > subject.arguments.size() || (!changed.empty() && *changed.rbegin() > *first))
                return std::nullopt;
            arguments.resize(*first);
        }
        return subject.entry + "(" + joined(arguments) + ")";
    }

    std::vector<Subject> subjects_;
    std::vector<std::pair<std::string, std::string>> singles_;
    std::map<std::string, std::string> sets_;
    Roots tables_;
    int called_ = 0;
};

TEST_F(Messages, TheEarliestFaultIsReportedAndNothingIsWritten) {
    reset();
    host = {};
    for (const char *name : {"x", "y", "out", "out1", "out2", "out3", "out4", "foo"}) unassign(name);
    read();
    std::vector<std::unique_ptr<Callback>> callbacks;
    for (const char *name : {"cbRandMat", "cbReduce", "cbLUDecomp", "cbForSub", "cbBackSub", "cbMatGcd", "cbZigZag",
                             "cbAddMult", "cbScalMult", "cbMatMult", "cbMod", "cbModEval"}) {
        callbacks.push_back(
            std::make_unique<Callback>(name, [this](const std::vector<Object> &) { return called_++, immediate(0); }));
    }
    for (const auto &[text, message] : singles_) {
        expect_message(text, message);
        if (HasFailure()) return;
    }
    int pairs = 0;
    for (const Subject &subject : subjects_) {
        for (size_t i = 0; i < subject.faults.size(); i++) {
            const Fault &first = subject.faults[i];
            expect_message(*apply(subject, {&first}), first.message);
            // Two faults of one kind may make up for each other.
            for (size_t j = i + 1; j < subject.faults.size(); j += slowness) {
                const Fault &second = subject.faults[j];
                const auto both = first.message == second.message ? std::nullopt : apply(subject, {&first, &second});
                if (!both) continue;
                pairs++;
                ASSERT_EQ(call(*both).message, first.message) << *both;
            }
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(pairs, 5000 / slowness);
    for (const Subject &subject : subjects_) {
        const std::string text = *apply(subject, {});
        const std::string message = call(text).message;
        EXPECT_TRUE(message.empty() || message == "matrix is singular") << text << message;
    }
}

}  // namespace
