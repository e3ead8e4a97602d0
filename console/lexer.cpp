#include "console/lexer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

namespace modla::console {

namespace {

constexpr std::array<std::string_view, 20> keywords = {"if",    "then", "elif", "else",  "end", "for",  "from",
                                                       "to",    "by",   "in",   "while", "do",  "proc", "return",
                                                       "break", "next", "and",  "or",    "not", "mod"};

// Longer symbols first.
constexpr std::array<std::string_view, 24> symbols = {":=", "..", "<>", "<=", ">=", "+", "-", "*", "/", "^", "(", ")",
                                                      "[",  "]",  "{",  "}",  ",",  "=", "<", ">", ";", ":", "!", "%"};

bool is_digit(char c) {
    return std::isdigit(static_cast<unsigned char>(c));
}
bool is_name_start(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool is_in_name(char c) {
    return is_name_start(c) || is_digit(c);
}

struct Lexer {
    const std::string &text;
    size_t at = 0;
    int line = 1;
    int depth = 0;  // of brackets
    std::vector<Token> tokens = {};

    char peek(size_t ahead = 0) const { return at + ahead < text.size() ? text[at + ahead] : '\0'; }
    void emit(TokenKind kind, std::string its_text) { tokens.push_back({kind, std::move(its_text), line}); }

    std::string take_while(bool (*accept)(char)) {
        const size_t start = at;
        while (at < text.size() && accept(text[at])) at++;
        return text.substr(start, at - start);
    }

    void next() {
        const char c = peek();
        if (c == '\n') {
            if (depth == 0) emit(TokenKind::separator, "");
            line++, at++;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            at++;
        } else if (c == '#') {
            take_while([](char other) { return other != '\n'; });
        } else if (is_digit(c) || (c == '.' && is_digit(peek(1)))) {
            number();
        } else if (is_name_start(c)) {
            std::string name = take_while(is_in_name);
            const bool keyword = std::find(keywords.begin(), keywords.end(), name) != keywords.end();
            emit(keyword ? TokenKind::keyword : TokenKind::name, std::move(name));
        } else if (c == '"') {
            string();
        } else if (c == '\'') {
            at++;
            std::string name = take_while(is_in_name);
            const bool closed = !name.empty() && !is_digit(name[0]) && peek() == '\'';
            if (!closed) throw SyntaxError(line, "expected a name between ' and '");
            at++;
            emit(TokenKind::quoted_name, std::move(name));
        } else {
            symbol();
        }
    }

    void number() {
        double value;  // only where it ends is asked for
        const char *const first = text.data() + at;
        const char *last = std::from_chars(first, text.data() + text.size(), value).ptr;
        if (last[-1] == '.' && *last == '.') last--;  // the operator of a range
        const std::string number(first, last);
        at += number.size();
        const bool floating = number.find_first_of(".eE") != std::string::npos;
        emit(floating ? TokenKind::floating : TokenKind::integer, number);
    }

    void string() {
        std::string contents;
        for (at++; peek() != '"'; at++) {
            if (at >= text.size() || peek() == '\n') throw SyntaxError(line, "a string is not closed");
            const bool escaped = peek() == '\\' && (peek(1) == '"' || peek(1) == '\\' || peek(1) == 'n');
            at += escaped;
            contents += escaped && peek() == 'n' ? '\n' : peek();
        }
        at++;
        emit(TokenKind::string, std::move(contents));
    }

    void symbol() {
        for (const std::string_view symbol : symbols) {
            if (text.compare(at, symbol.size(), symbol) != 0) continue;
            at += symbol.size();
            if (symbol == "(" || symbol == "[" || symbol == "{") depth++;
            if ((symbol == ")" || symbol == "]" || symbol == "}") && depth > 0) depth--;
            emit(symbol == ";" ? TokenKind::separator : TokenKind::symbol, std::string(symbol));
            return;
        }
        throw SyntaxError(line, std::string("unexpected character '") + peek() + "'");
    }
};

}  // namespace

std::vector<Token> tokenize(const std::string &text) {
    Lexer lexer{text};
    while (lexer.at < text.size()) lexer.next();
    lexer.emit(TokenKind::end, "");
    return std::move(lexer.tokens);
}

}  // namespace modla::console
