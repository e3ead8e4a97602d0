#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "console/host.h"
#include "console/interpreter.h"
#include "console/number.h"
#include "console/syntax.h"

namespace modla::console {

namespace {

constexpr int deepest_nesting = 1000;
constexpr int longest_postfix = 500;  // f(1)(2)[3]...

// Binary operators by level, the loosest first.
constexpr int comparison_level = 2, range_level = 3, tightest_level = 5;
const std::array<std::vector<std::string_view>, 6> operators = {
    {{"or"}, {"and"}, {"=", "<>", "<", "<=", ">", ">="}, {".."}, {"+", "-"}, {"*", "/", "mod"}}};

}  // namespace

// The names of the procedure that is being read.
struct Parser::Scope {
    ProcedureBody &body;
    std::vector<Node *> uses;
    Scope *outer;

    void declare(const std::string &name) {
        if (std::find(body.locals.begin(), body.locals.end(), name) == body.locals.end()) body.locals.push_back(name);
    }
    void resolve() {
        for (Node *use : uses) {
            const auto found = std::find(body.locals.begin(), body.locals.end(), use->text);
            if (found != body.locals.end()) use->slot = static_cast<int>(found - body.locals.begin());
        }
    }
};

// Bounds the recursion of the parser, and so of everything that walks the tree.
struct Parser::Nesting {
    explicit Nesting(Parser &owner) : parser(owner) {
        if (parser.nesting_ >= deepest_nesting || stack_is_low()) {
            throw SyntaxError(parser.peek().line, "nested too deeply");
        }
        parser.nesting_++;
    }
    ~Nesting() { parser.nesting_--; }
    Nesting(const Nesting &) = delete;
    Nesting &operator=(const Nesting &) = delete;
    Parser &parser;
};

Parser::Parser(const std::string &text) : tokens_(tokenize(text)), constants_(std::make_shared<Roots>()) {}

Object Parser::kept(Object x) {
    constants_->values.push_back(x);
    return x;
}

bool Parser::at_symbol(const char *text) const {
    return peek().kind == TokenKind::symbol && peek().text == text;
}
bool Parser::at_keyword(const char *text) const {
    return peek().kind == TokenKind::keyword && peek().text == text;
}

bool Parser::take_symbol(const char *text) {
    const bool here = at_symbol(text);
    at_ += here;
    return here;
}

bool Parser::take_keyword(const char *text) {
    const bool here = at_keyword(text);
    at_ += here;
    return here;
}

void Parser::need_symbol(const char *text) {
    if (!take_symbol(text)) fail(std::string("'") + text + "'");
}

void Parser::need_keyword(const char *text) {
    if (!take_keyword(text)) fail(std::string("'") + text + "'");
}

void Parser::skip_separators() {
    while (peek().kind == TokenKind::separator) at_++;
}

void Parser::fail(const std::string &expected) const {
    const Token &token = peek();
    const std::string message = "expected " + expected;
    if (token.kind == TokenKind::end) throw IncompleteText(token.line, message + " before the end");
    const bool line_end = token.kind == TokenKind::separator && token.text.empty();
    throw SyntaxError(token.line, message + ", got " + (line_end ? "the end of the line" : "'" + token.text + "'"));
}

NodePointer Parser::make(NodeKind kind) const {
    return std::make_unique<Node>(Node{kind, peek().line});
}

NodePointer Parser::next_statement() {
    skip_separators();
    if (peek().kind == TokenKind::end) return nullptr;
    NodePointer result = statement();
    if (peek().kind != TokenKind::separator && peek().kind != TokenKind::end) fail("the end of the statement");
    return result;
}

NodePointer Parser::statement() {
    const Nesting nesting(*this);
    if (at_keyword("if")) return conditional();
    if (at_keyword("for")) return loop();
    if (at_keyword("while")) return while_loop();
    NodePointer node = make(NodeKind::return_value);
    if (take_keyword("break")) {
        node->kind = NodeKind::break_loop;
        return node;
    }
    if (take_keyword("next")) {
        node->kind = NodeKind::next_turn;
        return node;
    }
    if (take_keyword("return")) {
        const bool bare = peek().kind == TokenKind::separator || peek().kind == TokenKind::end || at_keyword("end");
        if (!bare) node->parts.push_back(expression());
        return node;
    }
    NodePointer target = expression();
    target->line = node->line;
    if (!at_symbol(":=")) return target;
    const Node &base = target->kind == NodeKind::index ? *target->parts[0] : *target;
    if (base.kind != NodeKind::name) fail("a name or an element of one before ':='");
    if (scope_) scope_->declare(base.text);
    node->kind = NodeKind::assignment;
    need_symbol(":=");
    skip_separators();
    node->parts.push_back(std::move(target));
    node->parts.push_back(expression());
    return node;
}

// Statements up to a keyword that ends or continues the construct.
NodePointer Parser::block() {
    NodePointer node = make(NodeKind::block);
    while (true) {
        skip_separators();
        if (at_keyword("end") || at_keyword("elif") || at_keyword("else")) return node;
        node->parts.push_back(statement());
        const bool separated = peek().kind == TokenKind::separator;
        if (!separated && !at_keyword("end") && !at_keyword("elif") && !at_keyword("else")) fail("'end'");
    }
}

NodePointer Parser::conditional() {
    NodePointer node = make(NodeKind::conditional);
    do {
        at_++;  // if, elif
        node->parts.push_back(expression());
        skip_separators();
        need_keyword("then");
        node->parts.push_back(block());
    } while (at_keyword("elif"));
    if (take_keyword("else")) node->parts.push_back(block());
    need_keyword("end");
    return node;
}

NodePointer Parser::loop() {
    NodePointer node = make(NodeKind::for_range);
    need_keyword("for");
    node->parts.push_back(name_node());
    if (scope_) scope_->declare(node->parts[0]->text);
    if (take_keyword("in")) {
        node->kind = NodeKind::for_in;
        node->parts.push_back(expression());
    } else {
        const auto one = [&] {
            NodePointer constant = make(NodeKind::constant);
            constant->value = immediate(1);
            return constant;
        };
        node->parts.push_back(take_keyword("from") ? expression() : one());
        node->parts.push_back(take_keyword("to") ? expression() : nullptr);
        node->parts.push_back(take_keyword("by") ? expression() : one());
    }
    skip_separators();
    need_keyword("do");
    node->parts.push_back(block());
    need_keyword("end");
    return node;
}

NodePointer Parser::while_loop() {
    NodePointer node = make(NodeKind::while_loop);
    need_keyword("while");
    node->parts.push_back(expression());
    skip_separators();
    need_keyword("do");
    node->parts.push_back(block());
    need_keyword("end");
    return node;
}

NodePointer Parser::expression() {
    const Nesting nesting(*this);
    return binary(0);
}

NodePointer Parser::binary(int level) {
    if (level > tightest_level) return unary();
    if (level == comparison_level && at_keyword("not")) {
        const Nesting nesting(*this);
        NodePointer node = make(NodeKind::logical_not);
        at_++;
        node->parts.push_back(binary(level));
        return node;
    }
    NodePointer left = binary(level + 1);
    const auto &choices = operators[static_cast<size_t>(level)];
    const auto at_operator = [&] {
        return (peek().kind == TokenKind::symbol || peek().kind == TokenKind::keyword) &&
               std::find(choices.begin(), choices.end(), peek().text) != choices.end();
    };
    if (!at_operator()) return left;
    NodePointer node = make(NodeKind::binary);
    node->parts.push_back(std::move(left));
    do {
        node->operators.push_back(peek().text);
        at_++;
        skip_separators();
        node->parts.push_back(binary(level + 1));
    } while (level != comparison_level && level != range_level && at_operator());
    return node;
}

NodePointer Parser::unary() {
    const Nesting nesting(*this);
    if (at_symbol("-")) {
        NodePointer node = make(NodeKind::negation);
        at_++;
        node->parts.push_back(unary());
        return node;
    }
    NodePointer base = postfix();
    if (!at_symbol("^")) return base;
    NodePointer node = make(NodeKind::binary);
    node->operators = {"^"};
    at_++;
    node->parts.push_back(std::move(base));
    node->parts.push_back(unary());
    return node;
}

NodePointer Parser::postfix() {
    NodePointer node = primary();
    for (int length = 0; at_symbol("(") || at_symbol("["); length++) {
        if (length > longest_postfix) throw SyntaxError(peek().line, "nested too deeply");
        const bool call = at_symbol("(");
        NodePointer outer = make(call ? NodeKind::call : NodeKind::index);
        at_++;
        outer->parts.push_back(std::move(node));
        elements(*outer, call ? ")" : "]");
        node = std::move(outer);
    }
    return node;
}

void Parser::elements(Node &node, const char *closing) {
    if (take_symbol(closing)) return;
    do node.parts.push_back(expression());
    while (take_symbol(","));
    need_symbol(closing);
}

NodePointer Parser::name_node() {
    if (peek().kind != TokenKind::name) fail("a name");
    NodePointer node = make(NodeKind::name);
    node->text = peek().text;
    node->value = global_name(node->text);
    if (scope_) scope_->uses.push_back(node.get());
    at_++;
    return node;
}

NodePointer Parser::primary() {
    const Token &token = peek();
    NodePointer node = make(NodeKind::constant);
    switch (token.kind) {
        case TokenKind::integer:
            node->value = kept(integer_object(mpz_class(token.text, 10)));
            break;
        case TokenKind::floating:
            node->value = kept(new_float(std::strtod(token.text.c_str(), nullptr)));
            break;
        case TokenKind::string:
            node->value = kept(new_string(token.text));
            break;
        case TokenKind::quoted_name:
            node->value = global_name(token.text);
            break;
        case TokenKind::name:
            return name_node();
        default:
            if (at_keyword("proc")) return procedure();
            if (take_symbol("(")) {
                node = expression();
                need_symbol(")");
                return node;
            }
            if (at_symbol("[") || at_symbol("{")) {
                const bool list = at_symbol("[");
                node->kind = list ? NodeKind::list : NodeKind::set;
                at_++;
                elements(*node, list ? "]" : "}");
                return node;
            }
            fail("an expression");
    }
    at_++;
    return node;
}

NodePointer Parser::procedure() {
    NodePointer node = make(NodeKind::procedure);
    need_keyword("proc");
    auto body = std::make_shared<ProcedureBody>();
    Scope scope{*body, {}, scope_};
    need_symbol("(");
    if (!take_symbol(")")) {
        do {
            if (peek().kind != TokenKind::name) fail("a parameter's name");
            const auto &names = body->locals;
            if (std::find(names.begin(), names.end(), peek().text) != names.end()) {
                throw SyntaxError(peek().line, "two parameters have the name " + peek().text);
            }
            scope.declare(peek().text);
            at_++;
        } while (take_symbol(","));
        need_symbol(")");
    }
    body->parameters = body->locals.size();
    scope_ = &scope;
    try {
        body->block = block();
    } catch (...) {
        scope_ = scope.outer;
        throw;
    }
    scope_ = scope.outer;
    need_keyword("end");
    scope.resolve();
    body->constants = constants_;
    node->body = std::move(body);
    return node;
}

}  // namespace modla::console
