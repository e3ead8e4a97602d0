// modla: a console over libmodla.so.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/print.h"
#include "console/prompt.h"
#include "console/reference.h"
#include "console/verbs.h"

using namespace modla::console;

namespace {

constexpr const char *usage =
    "usage: modla VERB [options] FILE...\n"
    "       modla [options] [FILE [ARGUMENTS]]\n"
    "  VERB             what to compute from matrix files, one of those below; modla VERB --help tells more\n"
    "  FILE             run a script, to which the name arguments gives its arguments as a list of texts;\n"
    "                   without FILE, or for -: standard input, or a prompt on a terminal\n"
    "  -e TEXT          run a text; several are run in order, then FILE\n"
    "  --library FILE   the libmodla.so to load (default: the one beside this program, or installed)\n"
    "  --help           this text and the list of functions\n"
    "  --version        the version\n";

void print_value(Object value) {
    std::cout << to_text(value) << std::endl;
}

// Runs a text; an error is reported with the place where it arose.
bool run_text(const std::string &text, const std::string &place, int lines_before = 0) {
    try {
        run_program(text, print_value);
        return true;
    } catch (const std::exception &error) {
        const ErrorReport report = report_error(error, lines_before);
        std::cout << std::flush;
        std::cerr << (place.empty() ? "" : place + ":" + std::to_string(report.line) + ": ") << report.text
                  << std::flush;
        return false;
    }
}

// Runs statements as soon as they are there: another program may wait for their output.
bool run_lines(std::istream &input, const std::string &place) {
    std::string text;
    int lines = 0, done = 0;
    for (std::string line; std::getline(input, line);) {
        lines++;
        text += line + "\n";
        if (!is_complete(text)) continue;
        if (!run_text(text, place, done)) return false;
        text.clear();
        done = lines;
    }
    return run_text(text, place, done);
}

std::string directory_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// The rest of a stream; false when it cannot be read.
bool read_all(std::istream &input, std::string *text) {
    char buffer[65536];
    while (input.read(buffer, sizeof buffer) || input.gcount() > 0) {
        text->append(buffer, static_cast<size_t>(input.gcount()));
    }
    return input.eof() && !input.bad();
}

int complain(const std::string &message) {
    std::cerr << "modla: " << message << std::endl;
    return 2;
}

struct Options {
    std::string library, file;
    std::vector<std::string> texts, arguments;
};

// 0: go on; else the exit status plus 1.
int read_options(int count, char **arguments, Options *options) {
    for (int i = 1; i < count; i++) {
        const std::string argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            std::cout << usage << "\nThe verbs:\n"
                      << describe_verbs() << "\nThe functions, those of the library first:\n"
                      << describe_functions();
            return 1;
        }
        if (argument == "--version") {
            std::cout << "modla " MODLA_VERSION << std::endl;
            return 1;
        }
        if (argument == "-e" || argument == "--library") {
            if (++i == count) return complain(argument + " needs a value") + 1;
            if (argument == "-e") {
                options->texts.push_back(arguments[i]);
            } else {
                options->library = arguments[i];
            }
        } else if (argument.size() > 1 && argument[0] == '-') {
            return complain("unknown option " + argument + "\n" + usage) + 1;
        } else {
            options->file = argument;
            options->arguments.assign(arguments + i + 1, arguments + count);
            return 0;
        }
    }
    return 0;
}

bool is_matrix_file(const std::string &name, const std::string &text) {
    const std::string_view market = "%%matrixmarket";
    return name.ends_with(".mtx") || name.ends_with(".sms") || name.ends_with(".gz") ||
           std::equal(market.begin(), market.end(), text.begin(), text.begin() + std::min(text.size(), market.size()),
                      [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

int run_script(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    std::string text;
    if (!file || !read_all(file, &text)) return complain("cannot read " + name);
    if (is_matrix_file(name, text)) {
        return complain(name +
                        " is no script. If it is a Matrix, a script or the prompt reads it by\n  A := ReadMatrix(\"" +
                        name + "\"); Rank(65521, A)");
    }
    set_file_directory(directory_of(name));
    return run_text(text, name) ? 0 : 1;
}

void define_arguments(const std::vector<std::string> &arguments) {
    Roots texts;
    for (const std::string &argument : arguments) texts.values.push_back(new_string(argument));
    define_protected("arguments", new_collection(type_list, texts.values));
}

void prepare(const std::string &library) {
    load_library(library.empty() ? find_library() : library);
    define_functions();
}

int run(const Options &options) {
    try {
        prepare(options.library);
    } catch (const std::exception &error) {
        return complain(error.what());
    }
    define_arguments(options.arguments);
    for (const std::string &text : options.texts) {
        if (!run_text(text, "")) return 1;
    }
    if (!options.file.empty() && options.file != "-") return run_script(options.file);
    if (options.file.empty() && !options.texts.empty()) return 0;
    if (isatty(STDIN_FILENO)) {
        run_prompt([](const std::string &text) { run_text(text, ""); });
        return 0;
    }
    const bool done = run_lines(std::cin, "stdin");
    if (std::cin.bad()) return complain("cannot read standard input");
    return done ? 0 : 1;
}

}  // namespace

int main(int count, char **arguments) {
    set_stack_base(__builtin_frame_address(0));
    parse_text = evaluate_text;
    int status;
    if (count > 1 && is_verb(arguments[1])) {
        status = run_verb(count, arguments, prepare);
    } else {
        Options options;
        const int early = read_options(count, arguments, &options);
        status = early ? early - 1 : run(options);
    }
    std::cout.flush();
    if (!std::cout && status == 0) return complain("cannot write standard output");
    return status;
}
