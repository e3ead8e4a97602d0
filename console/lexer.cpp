#include "console/lexer.h"

#include <array>
#include <cctype>
#include <string_view>

namespace modla::console {

namespace {

constexpr std::array<std::string_view, 20> keywords = {"if",    "then", "elif", "else",  "end", "for",  "from",
                                                       "to",    "by",   "in",   "while", "do",  "proc", "return",
                                                       "break", "next", "and",  "or",    "not", "mod"};

// Longer symbols first.
constexpr std::array<std::string_view, 24> symbols = {":=", "..", "<>", "<=", ">=", "+", "-", "*", "/", "^", "(", ")",
                                                      "[",  "]",  "{",  "}",  ",",  "=", "<", ">", ";", ":", "!", "%"};

bool is_name_start(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}
bool is_digit(char c) {
    return std::isdigit(static_cast<unsigned char>(c));
}

class Lexer {
  public:
    explicit Lexer(const std::string &text) : text_(text) {}

    std::vector<Token> run() {
        while (at_ < text_.size()) next();
        tokens_.push_back({TokenKind::end, "", line_});
        return std::move(tokens_);
    }

  private:
    char peek(size_t ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0'; }
    void emit(TokenKind kind, std::string text) { tokens_.push_back({kind, std::move(text), line_}); }

    std::string take_while(bool (*accept)(char)) {
        const size_t start = at_;
        while (at_ < text_.size() && accept(text_[at_])) at_++;
        return text_.substr(start, at_ - start);
    }

    void next() {
        const char c = peek();
        if (c == '\n') {
            if (depth_ == 0) emit(TokenKind::separator, "");
            line_++, at_++;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            at_++;
        } else if (c == '#') {
            while (at_ < text_.size() && peek() != '\n') at_++;
        } else if (is_digit(c) || (c == '.' && is_digit(peek(1)))) {
            number();
        } else if (is_name_start(c)) {
            std::string name = take_name();
            bool keyword = false;
            for (const std::string_view word : keywords) keyword |= word == name;
            emit(keyword ? TokenKind::keyword : TokenKind::name, std::move(name));
        } else if (c == '"') {
            string();
        } else if (c == '\'') {
            quoted_name();
        } else {
            symbol();
        }
    }

    std::string take_name() {
        return take_while([](char c) { return is_name_start(c) || is_digit(c); });
    }

    void number() {
        std::string number = take_while(is_digit);
        bool floating = false;
        if (peek() == '.' && peek(1) != '.') {
            floating = true;
            at_++;
            number += "." + take_while(is_digit);
        }
        const size_t sign = peek(1) == '-' || peek(1) == '+' ? 1 : 0;
        if ((peek() == 'e' || peek() == 'E') && is_digit(peek(1 + sign))) {
            floating = true;
            number += text_.substr(at_, 1 + sign);
            at_ += 1 + sign;
            number += take_while(is_digit);
        }
        emit(floating ? TokenKind::floating : TokenKind::integer, std::move(number));
    }

    void string() {
        std::string contents;
        for (at_++; peek() != '"'; at_++) {
            if (at_ >= text_.size() || peek() == '\n') throw SyntaxError(line_, "a string is not closed");
            if (peek() == '\\' && (peek(1) == '"' || peek(1) == '\\' || peek(1) == 'n')) {
                at_++;
                contents += peek() == 'n' ? '\n' : peek();
            } else {
                contents += peek();
            }
        }
        at_++;
        emit(TokenKind::string, std::move(contents));
    }

    void quoted_name() {
        at_++;
        std::string name = take_name();
        if (name.empty() || is_digit(name[0]) || peek() != '\'')
            throw SyntaxError(line_, "expected a name between ' and '");
        at_++;
        emit(TokenKind::quoted_name, std::move(name));
    }

    void symbol() {
        for (const std::string_view symbol : symbols) {
            if (text_.compare(at_, symbol.size(), symbol) != 0) continue;
            at_ += symbol.size();
            if (symbol == "(" || symbol == "[" || symbol == "{") depth_++;
            if ((symbol == ")" || symbol == "]" || symbol == "}") && depth_ > 0) depth_--;
            emit(symbol == ";" ? TokenKind::separator : TokenKind::symbol, std::string(symbol));
            return;
        }
        throw SyntaxError(line_, std::string("unexpected character '") + peek() + "'");
    }

    const std::string &text_;
    size_t at_ = 0;
    int line_ = 1;
    int depth_ = 0;
    std::vector<Token> tokens_;
};

}  // namespace

std::vector<Token> tokenize(const std::string &text) {
    return Lexer(text).run();
}

}  // namespace modla::console
