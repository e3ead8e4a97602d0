#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "console/algebra.h"
#include "console/compare.h"
#include "console/host.h"
#include "console/interpreter.h"
#include "console/number.h"
#include "console/syntax.h"

namespace modla::console {

namespace {

constexpr int deepest_nesting = 1000;
constexpr int longest_postfix = 500;  // f(1)(2)[3]...

template <Type type>
Object pair(Object a, Object b) {
    return new_pair(type, a, b);
}

// Binary operators by how tightly they bind, the loosest first; ^ is read with the signs.
constexpr int disjunction_level = 0, conjunction_level = 1, comparison_level = 2, range_level = 3, tightest_level = 5;
constexpr struct {
    std::string_view text;
    int level;
    Operation operation;
} operators[] = {{"or", disjunction_level, nullptr},
                 {"and", conjunction_level, nullptr},
                 {"=", comparison_level, pair<type_equation>},
                 {"<>", comparison_level, [](Object a, Object b) { return truth(!same_value(a, b)); }},
                 {"<", comparison_level, [](Object a, Object b) { return truth(compare_numbers(a, b) < 0); }},
                 {"<=", comparison_level, [](Object a, Object b) { return truth(compare_numbers(a, b) <= 0); }},
                 {">", comparison_level, [](Object a, Object b) { return truth(compare_numbers(a, b) > 0); }},
                 {">=", comparison_level, [](Object a, Object b) { return truth(compare_numbers(a, b) >= 0); }},
                 {"..", range_level, pair<type_range>},
                 {"+", 4, plus},
                 {"-", 4, minus},
                 {"*", tightest_level, times},
                 {"/", tightest_level, quotient},
                 {"mod", tightest_level, modulo}};

// The names of the procedure that is being read.
struct Scope {
    ProcedureBody &body;
    std::vector<Node *> uses;

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

struct Parser {
    std::vector<Token> tokens;
    size_t position = 0;
    std::shared_ptr<Roots> constants = std::make_shared<Roots>();
    Scope *scope = nullptr;  // null outside procedures
    int nesting = 0;

    // Bounds the recursion of the parser, and so of everything that walks the tree.  (An error ends the parser.)
    template <class Read>
    NodePointer nested(Read read) {
        if (nesting >= deepest_nesting || stack_is_low()) throw SyntaxError(peek().line, "nested too deeply");
        nesting++;
        NodePointer node = read();
        nesting--;
        return node;
    }

    const Token &peek() const { return tokens[position]; }
    bool is_word() const { return peek().kind == TokenKind::symbol || peek().kind == TokenKind::keyword; }
    bool at(std::string_view text) const { return is_word() && peek().text == text; }
    bool take(std::string_view text) {
        const bool here = at(text);
        position += here;
        return here;
    }
    void need(const std::string &text) {
        if (!take(text)) fail("'" + text + "'");
    }
    bool at_separator() const { return peek().kind == TokenKind::separator; }
    bool at_block_end() const { return at("end") || at("elif") || at("else"); }
    void skip_separators() {
        while (at_separator()) position++;
    }

    [[noreturn]] void fail(const std::string &expected) const {
        const Token &token = peek();
        const std::string message = "expected " + expected;
        if (token.kind == TokenKind::end) throw IncompleteText(token.line, message + " before the end");
        const bool line_end = at_separator() && token.text.empty();
        throw SyntaxError(token.line, message + ", got " + (line_end ? "the end of the line" : "'" + token.text + "'"));
    }

    NodePointer make(NodeKind kind) const { return std::make_unique<Node>(Node{kind, peek().line}); }
    NodePointer constant(Object x) {
        NodePointer node = make(NodeKind::constant);
        node->value = x;
        constants->values.push_back(x);
        return node;
    }

    NodePointer next_statement() {
        skip_separators();
        if (peek().kind == TokenKind::end) return nullptr;
        NodePointer result = nested([&] { return statement(); });
        if (!at_separator() && peek().kind != TokenKind::end) fail("the end of the statement");
        return result;
    }

    NodePointer statement() {
        if (at("if")) return conditional();
        if (at("for") || at("while")) return loop();
        NodePointer node = make(NodeKind::return_value);
        if (at("break") || at("next")) {
            node->kind = at("break") ? NodeKind::break_loop : NodeKind::next_turn;
            position++;
            return node;
        }
        if (take("return")) {
            const bool bare = at_separator() || peek().kind == TokenKind::end || at("end");
            if (!bare) node->parts.push_back(expression());
            return node;
        }
        NodePointer target = expression();
        target->line = node->line;
        if (!at(":=")) return target;
        const Node &base = target->kind == NodeKind::index ? *target->parts[0] : *target;
        if (base.kind != NodeKind::name) fail("a name or an element of one before ':='");
        if (scope) scope->declare(base.text);
        node->kind = NodeKind::assignment;
        need(":=");
        skip_separators();
        node->parts.push_back(std::move(target));
        node->parts.push_back(expression());
        const bool named = node->parts[1]->kind == NodeKind::procedure && node->parts[0]->kind == NodeKind::name;
        if (named) node->parts[1]->body->name = node->parts[0]->text;
        return node;
    }

    // Statements up to a keyword that ends or continues the construct.
    NodePointer block() {
        NodePointer node = make(NodeKind::block);
        while (true) {
            skip_separators();
            if (at_block_end()) return node;
            node->parts.push_back(nested([&] { return statement(); }));
            if (!at_separator() && !at_block_end()) fail("'end'");
        }
    }

    NodePointer conditional() {
        NodePointer node = make(NodeKind::conditional);
        do {
            position++;  // if, elif
            node->parts.push_back(expression());
            skip_separators();
            need("then");
            node->parts.push_back(block());
        } while (at("elif"));
        if (take("else")) node->parts.push_back(block());
        need("end");
        return node;
    }

    NodePointer loop() {
        NodePointer node = make(NodeKind::while_loop);
        if (take("while")) {
            node->parts.push_back(expression());
        } else {
            need("for");
            node->parts.push_back(name());
            if (scope) scope->declare(node->parts[0]->text);
            if (take("in")) {
                node->kind = NodeKind::for_in;
                node->parts.push_back(expression());
            } else {
                node->kind = NodeKind::for_range;
                node->parts.push_back(take("from") ? expression() : constant(immediate(1)));
                node->parts.push_back(take("to") ? expression() : nullptr);
                node->parts.push_back(take("by") ? expression() : constant(immediate(1)));
            }
        }
        skip_separators();
        need("do");
        node->parts.push_back(block());
        need("end");
        return node;
    }

    NodePointer expression() {
        return nested([&] { return binary(0); });
    }

    NodePointer binary(int level) {
        if (level > tightest_level) return unary();
        if (level == comparison_level && at("not")) return prefix(NodeKind::logical_not, [&] { return binary(level); });
        NodePointer left = binary(level + 1), node;
        const auto next = [&] {
            return std::find_if(std::begin(operators), std::end(operators),
                                [&](const auto &x) { return x.level == level && at(x.text); });
        };
        for (auto found = next(); found != std::end(operators); found = next()) {
            if (!node) {
                node = make(level == disjunction_level   ? NodeKind::disjunction
                            : level == conjunction_level ? NodeKind::conjunction
                                                         : NodeKind::binary);
                node->parts.push_back(std::move(left));
            } else if (level == comparison_level || level == range_level) {
                break;
            }
            node->operations.push_back(found->operation);
            position++;
            skip_separators();
            node->parts.push_back(binary(level + 1));
        }
        return node ? std::move(node) : std::move(left);
    }

    template <class Operand>
    NodePointer prefix(NodeKind kind, Operand operand) {
        NodePointer node = make(kind);
        position++;
        node->parts.push_back(nested(operand));
        return node;
    }

    NodePointer unary() {
        if (at("-")) return prefix(NodeKind::negation, [&] { return unary(); });
        NodePointer base = postfix();
        if (!at("^")) return base;
        NodePointer node = make(NodeKind::binary);
        node->operations = {to_power};
        position++;
        node->parts.push_back(std::move(base));
        node->parts.push_back(nested([&] { return unary(); }));
        return node;
    }

    NodePointer postfix() {
        NodePointer node = primary();
        for (int length = 0; at("(") || at("["); length++) {
            if (length > longest_postfix) throw SyntaxError(peek().line, "nested too deeply");
            const bool call = at("(");
            NodePointer outer = make(call ? NodeKind::call : NodeKind::index);
            outer->parts.push_back(std::move(node));
            elements(*outer, call ? ")" : "]");
            node = std::move(outer);
        }
        return node;
    }

    // From the opening bracket to the closing one.
    void elements(Node &node, const char *closing) {
        position++;
        if (take(closing)) return;
        do node.parts.push_back(expression());
        while (take(","));
        need(closing);
    }

    NodePointer name() {
        if (peek().kind != TokenKind::name) fail("a name");
        NodePointer node = make(NodeKind::name);
        node->text = peek().text;
        node->value = global_name(node->text);
        if (scope) scope->uses.push_back(node.get());
        position++;
        return node;
    }

    NodePointer primary() {
        const Token &token = peek();
        const auto literal = [&](Object x) {
            NodePointer node = constant(x);
            position++;
            return node;
        };
        switch (token.kind) {
            case TokenKind::integer:
                return literal(integer_object(mpz_class(token.text, 10)));
            case TokenKind::floating:
                return literal(new_float(std::strtod(token.text.c_str(), nullptr)));
            case TokenKind::string:
                return literal(new_string(token.text));
            case TokenKind::quoted_name:
                return literal(global_name(token.text));
            case TokenKind::name:
                return name();
            default:
                break;
        }
        if (at("proc")) return procedure();
        if (take("(")) {
            NodePointer node = expression();
            need(")");
            return node;
        }
        if (!at("[") && !at("{")) fail("an expression");
        const bool list = at("[");
        NodePointer node = make(list ? NodeKind::list : NodeKind::set);
        elements(*node, list ? "]" : "}");
        return node;
    }

    NodePointer procedure() {
        NodePointer node = make(NodeKind::procedure);
        need("proc");
        node->body = std::make_shared<ProcedureBody>();
        ProcedureBody &body = *node->body;
        Scope own{body, {}};
        Scope *const outer = std::exchange(scope, &own);
        need("(");
        if (!take(")")) {
            do {
                if (peek().kind != TokenKind::name) fail("a parameter's name");
                const size_t others = body.locals.size();
                scope->declare(peek().text);
                if (body.locals.size() == others) {
                    throw SyntaxError(peek().line, "two parameters have the name " + peek().text);
                }
                position++;
            } while (take(","));
            need(")");
        }
        body.parameters = body.locals.size();
        body.block = block();
        need("end");
        own.resolve();
        scope = outer;
        body.constants = constants;
        return node;
    }
};

}  // namespace

std::function<NodePointer()> parse(const std::string &text) {
    const auto parser = std::make_shared<Parser>(Parser{tokenize(text)});
    return [parser] { return parser->next_statement(); };
}

}  // namespace modla::console
