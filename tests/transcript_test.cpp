// Sessions on record: what is typed behind "> ", and what is shown; "... " continues a statement.
//
// A transcript is a text file of them, in which "#### " begins a new session.  In a Markdown file every block is one, and
// what it may be is told by its first line, or by the language behind the fence:
//   > STATEMENT       a session of the console
//   $ COMMAND         a session of the shell, in a directory of the document's own that has examples, include and the
//                     build as build/release in it; "> " continues a command, "..." in what is printed stands for
//                     any text
//   # Not run: WHY    commands that install something or take long; there are few
//   ```text           no code
//   ```sh, ```cmake   in docs/embedding.md: run by install_test.sh
//   ```LANGUAGE       a piece of a file in examples/ or tests/, which are built and run
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "console/reference.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

namespace fs = std::filesystem;

struct Exchange {
    int line;
    std::string input, output;
};
using Transcript = std::vector<Exchange>;

// The exchanges in some lines; an empty one ends what is printed, unless it is inside of a block.
Transcript exchanges_of(const std::vector<std::string> &lines, int number, const std::string &prompt,
                        const std::string &more, bool block) {
    Transcript result;
    bool inside = false;
    for (const std::string &line : lines) {
        if (line.starts_with(prompt)) {
            result.push_back({number, line.substr(prompt.size()) + "\n", ""});
            inside = true;
        } else if (inside && line.starts_with(more) && result.back().output.empty()) {
            result.back().input += line.substr(more.size()) + "\n";
        } else if (inside && (block || !line.empty())) {
            result.back().output += line + "\n";
        } else {
            inside = false;
        }
        number++;
    }
    return result;
}

struct Block {
    int line;
    std::string language;  // behind the fence; of indented blocks "indented"
    std::vector<std::string> lines;
};

std::vector<std::string> lines_of(const fs::path &path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

std::vector<Block> blocks_of(const fs::path &path) {
    std::vector<Block> blocks;
    int number = 0;
    size_t blank = 1;  // lines without text before this one
    bool fenced = false, indented = false;
    for (const std::string &line : lines_of(path)) {
        number++;
        const bool fence = line.starts_with("```"), text = line.starts_with("    ") && (indented || blank);
        if (fence) {
            fenced = !fenced;
            if (fenced) blocks.push_back({number + 1, line.substr(3), {}});
        } else if (fenced) {
            blocks.back().lines.push_back(line);
        } else if (text) {
            if (!indented) blocks.push_back({number, "indented", {}});
            blocks.back().lines.insert(blocks.back().lines.end(), indented ? blank : 0, "");
            blocks.back().lines.push_back(line.substr(4));
        }
        blank = line.empty() ? blank + 1 : 0;
        indented = !fenced && (text || (line.empty() && indented));
    }
    EXPECT_FALSE(fenced) << path;
    return blocks;
}

// Returns how many statements there were.
size_t replay(const std::string &path, const Transcript &transcript,
              std::string (*output_of)(const std::string &) = shown) {
    const Checkpoint before = make_checkpoint();
    run("seed(1)");  // as in a new session
    for (const auto &[line, input, output] : transcript) EXPECT_EQ(output_of(input), output) << path << ":" << line;
    go_back(before);
    return transcript.size();
}

size_t replay_file(const std::string &path, std::string (*output_of)(const std::string &) = shown) {
    size_t count = 0;
    int number = 1, first = 1;
    std::vector<std::string> session;
    const auto finish = [&] {
        count += replay(path, exchanges_of(session, first, "> ", "... ", false), output_of);
        session.clear();
        first = number;
    };
    for (const std::string &line : lines_of(path)) {
        if (line.starts_with("#### ")) finish();
        session.push_back(line);
        number++;
    }
    finish();
    return count;
}

bool matches(const std::string &output, const std::string &expected) {
    size_t at = 0, start = 0;
    for (size_t dots; (dots = expected.find("...", start)) != expected.npos; start = dots + 3) {
        const std::string piece = expected.substr(start, dots - start);
        const size_t found = output.find(piece, at);
        if (found == output.npos || (start == 0 && found != 0)) return false;
        at = found + piece.size();
    }
    const std::string rest = expected.substr(start);
    return start == 0 ? output == rest : output.size() - at >= rest.size() && output.ends_with(rest);
}

void run_shell(const std::string &path, const Transcript &transcript) {
    for (const auto &[line, input, expected] : transcript) {
        std::string output;
        FILE *const pipe = popen(("exec 2>&1\n" + input).c_str(), "r");
        for (int c; (c = std::getc(pipe)) != EOF;) output += static_cast<char>(c);
        pclose(pipe);
        EXPECT_TRUE(matches(output, expected)) << path << ":" << line << "\n" << input << output;
    }
}

// The lines without the blanks that they begin with.
std::string plain_text(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines)
        text += line.substr(std::min(line.size(), line.find_first_not_of(" \t"))) + "\n";
    return text;
}

bool is_piece_of_a_file(const Block &block) {
    const std::string piece = plain_text(block.lines);
    for (const char *room : {"examples", "tests"}) {
        for (const auto &entry : fs::recursive_directory_iterator(fs::path(MODLA_ROOT) / room)) {
            if (entry.is_regular_file() && plain_text(lines_of(entry.path())).find(piece) != std::string::npos)
                return true;
        }
    }
    return false;
}

std::string path_of(const char *name) {
    return std::string(MODLA_TESTS "/transcripts/") + name + ".txt";
}

TEST(Transcripts, AreReproduced) {
    for (const char *name : {"residues", "random", "language", "errors", "prelude"}) {
        EXPECT_GT(replay_file(path_of(name)), 1u) << name;
    }
}

// Errors without the help that follows them.
TEST(Transcripts, OfMessagesAreReproduced) {
    for (const char *name : {"basics", "expressions", "entries"}) {
        EXPECT_GT(replay_file(path_of(name), run), 50u) << name;
    }
}

TEST(Documents, DescribeEveryFunctionWithAnExample) {
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
}

std::string text_of_file(const char *name) {
    std::string text;
    for (const std::string &line : lines_of(fs::path(MODLA_ROOT) / name)) text += line + "\n";
    return text;
}

std::vector<std::string> found(const std::string &text, const char *pattern) {
    const std::regex expression(pattern);
    std::vector<std::string> result;
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
        result.push_back((*at)[1]);
    return result;
}

// The messages in docs/messages.md, where N is a number, X any text, a/b one of both words or what it says.
std::vector<std::regex> explained_messages() {
    std::vector<std::regex> patterns;
    for (const std::string &entry : found(text_of_file("docs/messages.md"), "\n- (`[^`]*`(?:,\\s+`[^`]*`)*):\\s")) {
        for (std::string message : found(entry, "`([^`]*)`")) {
            message = std::regex_replace(message, std::regex("[.^$|()\\[\\]{}*+?]"), "\\$&");
            message = std::regex_replace(message, std::regex("([A-Za-z]+)/([A-Za-z]+)"), "($1|$2|$1/$2)");
            message = std::regex_replace(message, std::regex("\\bN\\b"), "(-?[0-9]+|%[0-9]|N)");
            patterns.emplace_back(std::regex_replace(message, std::regex("\\bX\\b"), ".+"));
        }
    }
    return patterns;
}

// Those that the header names, that the table of checks has and that sessions on record end with.
TEST(Documents, ExplainEveryMessage) {
    std::vector<std::string> messages = found(text_of_file("tests/messages.txt"), " -> ([^\n]*)");
    std::string header = text_of_file("include/modla.h");
    header = std::regex_replace(header.substr(header.find("---- Entry points")), std::regex("\n \\* *"), " ");
    for (const std::string &quoted : found(header, "\"([^\"]*)\""))
        if (quoted.find(' ') != quoted.npos)
            messages.push_back(std::regex_replace(quoted, std::regex("'%1'"), "'integer[4]'"));
    for (const char *name : {"basics", "expressions", "entries", "language", "errors", "prelude"}) {
        const std::string text = text_of_file(("tests/transcripts/" + std::string(name) + ".txt").c_str());
        for (const std::string &message : found(text, "\nError: ([^\n]*)"))
            if (text.find("error(\"" + message + "\")") == text.npos) messages.push_back(message);
    }
    const std::vector<std::regex> explained = explained_messages();
    EXPECT_GT(std::set<std::string>(messages.begin(), messages.end()).size(), 250u);
    for (const std::string &message : messages) {
        // "more (fewer) rows" in the header is "more/fewer rows" in the document.
        const std::string both = std::regex_replace(message, std::regex(" \\((\\w+)\\)"), "/$1");
        EXPECT_TRUE(std::any_of(explained.begin(), explained.end(), [&](const std::regex &pattern) {
            return std::regex_match(message, pattern) || std::regex_match(both, pattern);
        })) << message;
    }
}

// install_test.sh runs the commands of one document with the library installed.
bool is_run_elsewhere(const fs::path &document, const std::string &language) {
    return document.filename() == "embedding.md" && (language == "sh" || language == "cmake") &&
           fs::exists(fs::path(MODLA_ROOT) / "tests/install_test.sh");
}

TEST(Documents, HoldNoCodeThatDoesNotRun) {
    const fs::path root = MODLA_ROOT, build = fs::path(MODLA_CONSOLE).parent_path(), home = fs::current_path();
    setenv("PATH", (build.string() + ":" + getenv("PATH")).c_str(), 1);
    std::vector<fs::path> documents = {root / "README.md", root / "CONTRIBUTING.md"};
    for (const auto &entry : fs::directory_iterator(root / "docs"))
        if (entry.path().extension() == ".md") documents.push_back(entry.path());
    size_t statements = 0, commands = 0, not_run = 0;
    for (const fs::path &document : documents) {
        const fs::path place = fs::path(testing::TempDir()) / ("modla_" + document.stem().string());
        fs::remove_all(place);
        fs::create_directories(place / "build");
        for (const char *room : {"examples", "include"}) fs::create_directory_symlink(root / room, place / room);
        fs::create_directory_symlink(build, place / "build/release");
        fs::current_path(place);
        for (const Block &block : blocks_of(document)) {
            const std::string &first = block.lines.at(0);
            if (block.language == "text" || is_run_elsewhere(document, block.language)) continue;
            if (block.language != "indented") {
                EXPECT_TRUE(is_piece_of_a_file(block)) << document << ":" << block.line;
            } else if (first.starts_with("> ")) {
                statements += replay(document, exchanges_of(block.lines, block.line, "> ", "... ", true));
            } else if (first.starts_with("$ ")) {
                const Transcript session = exchanges_of(block.lines, block.line, "$ ", "> ", true);
                commands += session.size();
#ifndef MODLA_SANITIZED  // what programs are linked to there is no library as users have it
                run_shell(document, session);
#endif
            } else {
                EXPECT_TRUE(first.starts_with("# Not run: ")) << document << ":" << block.line << ": " << first;
                not_run++;
            }
        }
        fs::current_path(home);
        fs::remove_all(place);
    }
    EXPECT_GT(statements, 150u);
    EXPECT_GT(commands, 0u);
    EXPECT_LE(not_run, 10u);
}

}  // namespace
