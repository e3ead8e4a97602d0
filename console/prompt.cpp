#include "console/prompt.h"

#include <readline/history.h>
#include <readline/readline.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>
#include <utility>

#include "console/functions.h"
#include "console/host.h"
#include "console/reference.h"
#include "console/syntax.h"

namespace modla::console {

namespace {

constexpr int longest_history = 1000;

bool line_given_up = false;

// While a line is typed: clears it, and what was typed before it.
int on_signal() {
    if (!take_interrupt()) return 0;
    line_given_up = true;
    rl_crlf();
    rl_set_prompt("> ");
    rl_replace_line("", 0);
    rl_on_new_line();
    rl_redisplay();
    return 0;
}

// The next name that begins so; the first call (state 0) lists them all.
char *next_name(const char *beginning, int state) {
    static std::set<std::string> names;
    if (state == 0) {
        names.clear();
        for (const std::string &name : assigned_names()) {
            if (name[0] != '_' || *beginning == '_') names.insert(name);
        }
        for (const char *word : {"random", "identity", "transpose", "C_order", "Fortran_order", "integer", "float"}) {
            names.insert(word);
        }
        std::erase_if(names, [&](const std::string &name) { return !name.starts_with(beginning); });
    }
    if (names.empty()) return nullptr;
    return strdup(names.extract(names.begin()).value().c_str());
}

// Names, and files where a text was opened.
char **complete(const char *beginning, int start, int) {
    const bool in_text = std::count(rl_line_buffer, rl_line_buffer + start, '"') % 2 != 0;
    if (in_text) return nullptr;
    rl_attempted_completion_over = 1;
    rl_completion_append_character = '\0';
    return rl_completion_matches(beginning, next_name);
}

std::string history_file() {
    if (const char *file = std::getenv("MODLA_HISTORY")) return file;
    const char *const home = std::getenv("HOME");
    return home ? std::string(home) + "/.modla_history" : "";
}

// With times between them, entries of several lines are one entry in the file too.
void open_history() {
    history_comment_char = '#';
    history_write_timestamps = 1;
    read_history(history_file().c_str());
    stifle_history(longest_history);
}

void remember(const std::string &text) {
    const std::string entry = text.substr(0, text.find_last_not_of('\n') + 1);
    if (entry.empty()) return;
    add_history(entry.c_str());
    add_history_time(("#" + std::to_string(std::time(nullptr))).c_str());
}

bool ends_session(const std::string &text) {
    const size_t end = text.find_first_of(" ;(\n");
    const std::string word = text.substr(0, end);
    return (word == "quit" || word == "exit") && text.find_first_not_of(" ;()\n", end) == std::string::npos;
}

}  // namespace

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

void run_prompt(const std::function<void(const std::string &text)> &run) {
    std::cout << "modLA console. help() lists the functions, ?NAME shows one; end with quit or Ctrl-D." << std::endl;
    catch_interrupts();
    rl_signal_event_hook = on_signal;  // when it interrupts the reading of a key
    rl_event_hook = on_signal;         // when it came just before
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = " \t\n\"'+-*/^()[]{},;:=<>.";
    rl_completer_quote_characters = "\"";
    open_history();
    std::string text;
    while (char *line = readline(text.empty() ? "> " : "... ")) {
        const bool empty = *line == '\0';
        if (std::exchange(line_given_up, false)) text.clear();
        text += std::string(line) + "\n";
        std::free(line);
        if (ends_session(text)) break;
        const std::string help = "help(\"" + text.substr(1, text.find_last_not_of(" \n")) + "\")\n";
        const bool asked = text[0] == '?';
        if (!asked && !empty && !is_complete(text)) continue;  // an empty line gives an unfinished statement up
        remember(text);
        const auto start = std::chrono::steady_clock::now();
        run(asked ? help : text);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        if (timer_is_on()) std::printf("(%.3f s)\n", seconds.count()), std::fflush(stdout);
        take_interrupt();
        text.clear();
    }
    if (!history_file().empty()) write_history(history_file().c_str());
    std::cout << std::endl;
}

}  // namespace modla::console
