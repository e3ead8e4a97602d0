// modla: a console over libmodla.so.
#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "console/functions.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/library.h"
#include "console/print.h"

using namespace modla::console;

namespace {

constexpr const char *usage =
    "usage: modla [options] [FILE]\n"
    "  FILE             run a script; without one: standard input, or a prompt on a terminal\n"
    "  -e TEXT          run a text; several are run in order\n"
    "  --library FILE   the libmodla.so to load (default: the one beside this program)\n"
    "  --help           this text and the list of functions\n"
    "  --version        the version\n";

void print_value(Object value) {
    std::cout << to_text(value) << std::endl;
}

// Runs a text; an error is reported with the place where it arose.
bool run_text(const std::string &text, const std::string &place) {
    int line = 0;
    std::string message;
    try {
        run_program(text, print_value);
        return true;
    } catch (const ProgramError &error) {
        line = error.line;
        message = error.what();
    } catch (const SyntaxError &error) {
        line = error.line;
        message = error.what();
    } catch (const std::exception &error) {
        message = error.what();
    }
    std::cout << std::flush;
    std::cerr << (place.empty() ? "" : place + ":" + std::to_string(line) + ": ") << "Error: " << message << std::endl;
    return false;
}

bool is_complete(const std::string &text) {
    try {
        const auto next_statement = parse(text);
        while (next_statement()) continue;
    } catch (const IncompleteText &) {
        return false;
    } catch (const SyntaxError &) {
    }
    return true;
}

// Reads and runs statement by statement; errors do not end the session.
void run_prompt() {
    std::cout << "modLA console. help() lists the functions; end with Ctrl-D." << std::endl;
    std::string text;
    while (char *line = readline(text.empty() ? "> " : "... ")) {
        const bool empty = *line == '\0';
        if (!empty) add_history(line);
        text += std::string(line) + "\n";
        std::free(line);
        if (!empty && !is_complete(text)) continue;  // an empty line gives an unfinished statement up
        run_text(text, "");
        text.clear();
    }
    std::cout << std::endl;
}

std::string directory_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string own_directory() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    return length < 0 ? "." : directory_of(std::string(path, static_cast<size_t>(length)));
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
    std::vector<std::string> texts;
};

// 0: go on; else the exit status plus 1.
int read_options(int count, char **arguments, Options *options) {
    for (int i = 1; i < count; i++) {
        const std::string argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            std::cout << usage << "\nFunctions besides the library's entry points:\n" << describe_functions();
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
        } else if (options->file.empty()) {
            options->file = argument;
        } else {
            return complain("only one script can be run") + 1;
        }
    }
    return 0;
}

int run(const Options &options) {
    try {
        load_library(options.library.empty() ? own_directory() + "/libmodla.so" : options.library);
    } catch (const std::exception &error) {
        return complain(error.what());
    }
    define_functions();
    for (const std::string &text : options.texts) {
        if (!run_text(text, "")) return 1;
    }
    if (!options.texts.empty()) return 0;
    if (!options.file.empty() && options.file != "-") {
        std::ifstream file(options.file, std::ios::binary);
        std::string text;
        if (!file || !read_all(file, &text)) return complain("cannot read " + options.file);
        set_file_directory(directory_of(options.file));
        return run_text(text, options.file) ? 0 : 1;
    }
    if (isatty(STDIN_FILENO)) {
        run_prompt();
        return 0;
    }
    std::string text;
    if (!read_all(std::cin, &text)) return complain("cannot read standard input");
    return run_text(text, "stdin") ? 0 : 1;
}

}  // namespace

int main(int count, char **arguments) {
    set_stack_base(__builtin_frame_address(0));
    parse_text = evaluate_text;
    Options options;
    const int early = read_options(count, arguments, &options);
    const int status = early ? early - 1 : run(options);
    std::cout.flush();
    if (!std::cout && status == 0) return complain("cannot write standard output");
    return status;
}
