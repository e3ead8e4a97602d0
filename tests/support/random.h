// Random numbers: a seed per case, so that a failing case can be repeated.
#pragma once

#include <concepts>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace modla_test {

using Random = std::mt19937;

// 0..n-1.
template <std::integral Integer>
Integer below(Random &random, Integer n) {
    return static_cast<Integer>(std::uniform_int_distribution<uint64_t>(0, static_cast<uint64_t>(n) - 1)(random));
}
inline int32_t between(Random &random, int32_t low, int32_t high) {
    return low + below(random, high - low + 1);
}
inline bool chance(Random &random, int percent) {
    return below(random, 100) < percent;
}

template <class List>
auto pick(Random &random, const List &list) {
    return std::data(list)[below(random, std::size(list))];
}
template <class T>
T pick(Random &random, std::initializer_list<T> list) {
    return list.begin()[below(random, list.size())];
}

// Texts of a grammar: &X stands for any of X's forms; below the depth, for the first one if X is a capital.  Its file
// has a form a line: "X ", and the form between quotes.
using Grammar = std::map<char, std::vector<std::string>>;
inline Grammar read_grammar(const std::string &path) {
    Grammar grammar;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line[0] != '#') grammar[line[0]].push_back(line.substr(3, line.size() - 4));
    }
    return grammar;
}
inline std::string random_text(Random &random, const Grammar &grammar, const std::string &form, int depth) {
    std::string text;
    for (size_t at = 0; at < form.size(); at++) {
        if (form[at] != '&') {
            text += form[at];
            continue;
        }
        const auto &forms = grammar.at(form[++at]);
        const bool any = depth > 0 || form[at] < 'A' || form[at] > 'Z';
        text += random_text(random, grammar, any ? pick(random, forms) : forms[0], depth - 1);
    }
    return text;
}

// The rounds of a test that the sanitizers slow down.
#if defined(MODLA_SANITIZED)
constexpr int slowness = 8;
#else
constexpr int slowness = 1;
#endif

}  // namespace modla_test
