// Sessions on record: what is typed behind "> ", and what is shown.
//
// A transcript is a text file of blocks; in Markdown its lines are indented by four spaces and a block begins with a
// prompt.  "... " continues a statement.  Every block of Markdown is a session of its own; in other files "#### " begins
// one.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "console/reference.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

struct Exchange {
    int line;
    std::string input, output;
};
using Transcript = std::vector<Exchange>;

std::vector<Transcript> transcripts_of(const std::string &path, bool markdown) {
    const std::string indent = markdown ? "    " : "", prompt = indent + "> ", more = indent + "... ";
    std::vector<Transcript> result(1);
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    int number = 0;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        number++;
        if (line.starts_with("#### ") && !markdown) result.emplace_back();
        if (line.starts_with(prompt)) {
            if (!inside && markdown) result.emplace_back();
            result.back().push_back({number, line.substr(prompt.size()) + "\n", ""});
            inside = true;
        } else if (inside && line.starts_with(more)) {
            result.back().back().input += line.substr(more.size()) + "\n";
        } else if (inside && line.starts_with(indent) && (markdown || !line.empty())) {
            result.back().back().output += line.substr(indent.size()) + "\n";
        } else {
            inside = false;
        }
    }
    return result;
}

// Returns how many statements there were.
size_t replay(const std::string &path, bool markdown, std::string (*output_of)(const std::string &) = shown) {
    const Checkpoint before = make_checkpoint();
    size_t count = 0;
    for (const Transcript &transcript : transcripts_of(path, markdown)) {
        run("seed(1)");  // as in a new session
        for (const auto &[line, input, output] : transcript) {
            EXPECT_EQ(output_of(input), output) << path << ":" << line;
            count++;
        }
        go_back(before);
    }
    return count;
}

std::string path_of(const char *name) {
    return std::string(MODLA_TESTS "/transcripts/") + name + ".txt";
}

TEST(Transcripts, AreReproduced) {
    for (const char *name : {"residues", "random", "language", "errors", "prelude"}) {
        EXPECT_GT(replay(path_of(name), false), 1u) << name;
    }
}

// Errors without the help that follows them.
TEST(Transcripts, OfMessagesAreReproduced) {
    for (const char *name : {"basics", "expressions", "entries"}) {
        EXPECT_GT(replay(path_of(name), false, run), 50u) << name;
    }
}

TEST(Transcripts, OfTheReadmeAreReproduced) {
    EXPECT_GT(replay(MODLA_README, true), 15u);
}

// Every function has an entry, and every example of one is true.
TEST(Transcripts, OfTheReferenceAreReproduced) {
    std::set<std::string> described, callable;
    for (const ReferenceEntry &entry : reference()) {
        described.insert(entry.name);
        EXPECT_NE(entry.text.find("\n    > "), std::string::npos) << entry.name << " has no example";
    }
    for (const std::string &name : assigned_names()) {
        const bool hidden = name == "raw" || name[0] == '_' || !is_protected(global_name(name));
        if (!hidden && has_type(evaluate(global_name(name)), type_procedure)) callable.insert(name);
    }
    EXPECT_EQ(described, callable);
    EXPECT_GT(replay(MODLA_REFERENCE, true), described.size());
}

}  // namespace
