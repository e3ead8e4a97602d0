// Text to tokens.
#pragma once

#include <string>
#include <vector>

#include "console/error.h"

namespace modla::console {

enum class TokenKind { integer, floating, string, name, quoted_name, keyword, symbol, separator, end };

struct Token {
    TokenKind kind;
    std::string text;  // of a string: its contents
    int line;
};

// An error in a program's text.
struct SyntaxError : HostError {
    SyntaxError(int at_line, const std::string &message) : HostError(message), line(at_line) {}
    int line;
};

// The text ends inside a statement: an interactive reader goes on with the next line.
struct IncompleteText : SyntaxError {
    using SyntaxError::SyntaxError;
};

// The tokens of a text, ended by one of kind end.  Line ends outside brackets and ';' are separators; # starts a
// comment.
std::vector<Token> tokenize(const std::string &text);

}  // namespace modla::console
