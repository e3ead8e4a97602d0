#include "console/functions.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>

#include "console/callbacks.h"
#include "console/compare.h"
#include "console/embedded.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/number.h"
#include "console/print.h"
#include "console/reference.h"

namespace modla::console {

namespace {

Object collection_argument(Object x) {
    if (!is_collection(x)) throw HostError("expected a list or set, got " + to_line(x));
    return x;
}

Object print_values(const Arguments &arguments) {
    std::string line;
    for (size_t i = 0; i < arguments.size(); i++) {
        if (i) line += " ";
        line += has_type(arguments[i], type_string) ? text_of(arguments[i]) : to_text(arguments[i]);
    }
    std::cout << line << std::endl;
    return null_value();
}

Object pad_text(const Arguments &arguments) {
    const std::string text = to_plain(arguments[0]);
    const int32_t width = small_integer(arguments[1], "a width");
    const size_t wanted = std::min<size_t>(static_cast<size_t>(std::abs(width)), 1000);
    const std::string blanks(wanted > text.size() ? wanted - text.size() : 0, ' ');
    return new_string(width < 0 ? text + blanks : blanks + text);
}

Object join_text(const Arguments &arguments) {
    std::string text;
    for (const Object x : arguments) text += to_plain(x);
    return new_string(text);
}

// A number with so many digits after the point.
Object fixed_text(const Arguments &arguments) {
    if (!is_number(arguments[0])) throw HostError("expected a number, got " + to_line(arguments[0]));
    char buffer[400];  // the largest double has 309 digits
    const int digits = std::clamp(small_integer(arguments[1], "a number of digits"), 0, 20);
    std::snprintf(buffer, sizeof buffer, "%.*f", digits, to_double(arguments[0]));
    return new_string(buffer);
}

bool is_before(Object a, Object b) {
    return compare_values(a, b) < 0;
}

Object sort_values(const Arguments &arguments) {
    std::vector<Object> elements = elements_of(collection_argument(arguments[0]));
    std::stable_sort(elements.begin(), elements.end(), is_before);
    return new_collection(type_list, elements);
}

// A sorted list without repetitions.
Object unique_values(const Arguments &arguments) {
    std::vector<Object> elements = elements_of(sort_values(arguments));
    elements.erase(std::unique(elements.begin(), elements.end(), same_value), elements.end());
    return new_collection(type_list, elements);
}

Object find_position(const Arguments &arguments) {
    const Object list = collection_argument(arguments[1]);
    for (uint32_t i = 0; i < size_of(list); i++) {
        if (same_value(element(list, i), arguments[0])) return integer_object(int64_t{i} + 1);
    }
    return immediate(0);
}

// The position in a list that `sort` or `unique` made, by bisection.
Object find_sorted(const Arguments &arguments) {
    const Object list = collection_argument(arguments[1]);
    const Object *const first = words(sequence_of(list)) + 1, *const last = first + size_of(list);
    const Object *const found = std::lower_bound(first, last, arguments[0], is_before);
    return immediate(found == last || is_before(arguments[0], *found) ? 0 : static_cast<int32_t>(found - first) + 1);
}

// The list without its element at a position.
Object without(const Arguments &arguments) {
    std::vector<Object> elements = elements_of(collection_argument(arguments[0]));
    const int32_t i = small_integer(arguments[1], "a position");
    if (i < 1 || static_cast<size_t>(i) > elements.size()) throw HostError("position outside the list");
    elements.erase(elements.begin() + (i - 1));
    return new_collection(type_list, elements);
}

// A list with the elements of all the given lists.
Object concatenate(const Arguments &arguments) {
    std::vector<Object> elements;
    for (const Object list : arguments) {
        for (const Object x : elements_of(collection_argument(list))) elements.push_back(x);
    }
    return new_collection(type_list, elements);
}

Object time_value(const Arguments &) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return new_float(std::chrono::duration<double>(now).count());
}

Object previous_prime(const Arguments &arguments) {
    if (!is_integer(arguments[0])) throw HostError("expected an integer, got " + to_line(arguments[0]));
    mpz_class p = integer_of(arguments[0]);
    constexpr int rounds = 25;
    do p = p - 1;
    while (p >= 2 && mpz_probab_prime_p(p.get_mpz_t(), rounds) == 0);
    if (p < 2) throw HostError("there is no prime below " + to_line(arguments[0]));
    return integer_object(p);
}

Object seed_random(const Arguments &arguments) {
    const unsigned seed = static_cast<unsigned>(small_integer(arguments[0], "a seed"));
    std::srand(seed);
    random_source().seed(seed);
    return null_value();
}

Object assign_value(const Arguments &arguments) {
    assign_global(arguments[0], arguments[1]);
    return null_value();
}

bool timer = false;

Object set_timer(const Arguments &arguments) {
    timer = arguments[0] == global_name("true");
    return null_value();
}

// Names that the program has given values.
Object list_variables(const Arguments &) {
    for (const std::string &text : assigned_names()) {
        const Object name = global_name(text);
        if (is_protected(name) || text[0] == '_' || own_callback(text) == words(name)[1]) continue;
        std::string value = to_line(words(name)[1]);
        if (value.size() > 60) value = value.substr(0, 57) + "...";
        std::cout << text << std::string(text.size() < 12 ? 12 - text.size() : 0, ' ') << " " << value << "\n";
    }
    std::cout << std::flush;
    return null_value();
}

Object run_file(const Arguments &arguments) {
    const std::string name = string_argument(arguments[0], "argument 1, the script,");
    const auto file = open_input(name);
    const std::string text{std::istreambuf_iterator<char>(*file), {}};
    try {
        run_program(text, [](Object value) { std::cout << to_text(value) << std::endl; });
    } catch (const std::exception &error) {
        const ErrorReport report = report_error(error);
        HostError here(name + ":" + std::to_string(report.line) + ": " + error.what());
        here.details = report.text.substr(report.text.find('\n') + 1);
        throw here;
    }
    return null_value();
}

Object show_help(const Arguments &arguments) {
    if (arguments.empty()) {
        std::cout << describe_functions() << std::flush;
        return null_value();
    }
    const Object x = arguments[0];
    const std::string name = has_type(x, type_procedure)                          ? procedure_of(x)->name
                             : has_type(x, type_name) || has_type(x, type_string) ? text_of(x)
                                                                                  : to_line(x);
    const ReferenceEntry *const entry = find_reference(name);
    if (!entry)
        throw HostError("there is no help on " + name + nearest_function(name) + "; help() lists all functions");
    std::cout << entry->text << messages_of(name) << std::endl;
    return null_value();
}

}  // namespace

std::vector<Function> value_functions() {
    return {
        {"print", 0, 1000, print_values},
        {"pad", 2, 2, pad_text},
        {"join", 0, 1000, join_text},
        {"fixed", 2, 2, fixed_text},
        {"sort", 1, 1, sort_values},
        {"unique", 1, 1, unique_values},
        {"position", 2, 2, find_position},
        {"bisect", 2, 2, find_sorted},
        {"without", 2, 2, without},
        {"concat", 0, 1000, concatenate},
        {"equal", 2, 2, [](const Arguments &values) { return truth(same_value(values[0], values[1])); }},
        {"time", 0, 0, time_value},
        {"seed", 1, 1, seed_random},
        {"assign", 2, 2, assign_value},
        {"error", 1, 1, [](const Arguments &message) -> Object { throw HostError(to_line(message[0])); }},
        {"run", 1, 1, run_file},
        {"variables", 0, 0, list_variables},
        {"timer", 1, 1, set_timer},
        {"previous_prime", 1, 1, previous_prime},
        {"help", 0, 1, show_help},
    };
}

bool timer_is_on() {
    return timer;
}

gmp_randclass &random_source() {
    static auto *const source = new gmp_randclass(gmp_randinit_mt);
    return *source;
}

// Functions in the console's own language; their helpers have names with a leading _.
void define_prelude() {
    run_program(modla_prelude, [](Object) {});
    for (const std::string &text : assigned_names()) {
        const Object name = global_name(text);
        if (is_protected(name) || !has_type(words(name)[1], type_procedure)) continue;
        procedure_of(words(name)[1])->is_prelude = true;
        protect(name);
    }
}

void define_functions() {
    for (const auto &list : {value_functions(), table_functions(), expression_functions(), multimodular_functions()}) {
        for (const Function &function : list) {
            const auto run = [function](const Arguments &arguments) {
                if (arguments.size() >= function.least && arguments.size() <= function.most)
                    return function.run(arguments);
                const ReferenceEntry *const entry = find_reference(function.name);
                throw HostError(entry ? "usage: " + entry->call : "wrong number of arguments");
            };
            define_protected(function.name, make_native(function.name, run));
        }
    }
    define_prelude();
    define_callbacks();
}

std::string string_argument(Object x, const char *what) {
    if (!has_type(x, type_string)) throw HostError(std::string(what) + " must be a string, not " + to_line(x));
    return text_of(x);
}

}  // namespace modla::console
