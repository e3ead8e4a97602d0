#include "console/algebra.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "console/error.h"
#include "console/host.h"
#include "console/number.h"
#include "console/print.h"

namespace modla::console {

namespace {

constexpr uint32_t longest_exponent = 2500;   // words of an exponent
constexpr size_t largest_expansion = 300000;  // terms multiplied by terms

bool is_one(Object x) {
    return x == immediate(1);
}

bool is_float(Object x) {
    return has_type(x, type_float);
}

void need_operands(Object a, Object b) {
    for (const Object x : {a, b}) {
        if (is_operand(x)) continue;
        const bool table = has_type(x, type_table);
        throw HostError("cannot compute with " + to_line(x) +
                        (table ? ": use Multiply(p, A, B), AddMult(p, A, B)" : ""));
    }
}

// Does a product begin with a number?
bool has_number(Object x) {
    return has_type(x, type_product) && is_scalar(words(x)[1]) && is_one(words(x)[2]);
}

// ---- Order

enum class Kind { number, complex, name, indexed, product, power, sum, polynomial, other };

Kind kind_of(Object x) {
    if (is_number(x)) return Kind::number;
    constexpr std::pair<uint32_t, Kind> kinds[] = {{type_complex, Kind::complex},      {type_name, Kind::name},
                                                   {type_indexed, Kind::indexed},      {type_sum, Kind::sum},
                                                   {type_product, Kind::product},      {type_power, Kind::power},
                                                   {type_polynomial, Kind::polynomial}};
    for (const auto &[type, kind] : kinds) {
        if (type_of(x) == type) return kind;
    }
    return Kind::other;
}

int compare_bits(uint32_t a, uint32_t b) {
    return a < b ? -1 : a > b;
}

int compare_parts(Object a, Object b) {
    const uint32_t length = std::min(length_of(a), length_of(b));
    for (uint32_t i = 1; i < length; i++) {
        if (const int order = compare_expressions(words(a)[i], words(b)[i])) return order;
    }
    return compare_bits(length_of(a), length_of(b));
}

int compare_raw(Object a, Object b) {
    if (length_of(a) != length_of(b)) return compare_bits(length_of(a), length_of(b));
    if (const int order = compare_expressions(words(a)[1], words(b)[1])) return order;
    for (uint32_t i = 2; i < length_of(a); i++) {
        if (const int order = compare_bits(words(a)[i], words(b)[i])) return order;
    }
    return 0;
}

// Numbers by value, NaN last; equal ones by their type.
int compare_real(Object a, Object b) {
    const auto rank = [](Object x) { return is_integer(x) ? 0 : has_type(x, type_rational) ? 1 : 2; };
    const auto is_nan = [](Object x) { return is_float(x) && std::isnan(float_value(x)); };
    if (is_nan(a) != is_nan(b)) return is_nan(a) ? 1 : -1;
    if (const int order = compare_numbers(a, b)) return order;
    return rank(a) != rank(b) ? rank(a) - rank(b) : is_negative(b) - is_negative(a);
}

// Objects of a kind by their content.
int compare_contents(Object a, Object b, Kind kind) {
    if (kind == Kind::number) return compare_real(a, b);
    if (kind == Kind::name) return text_of(a).compare(text_of(b));
    if (kind == Kind::polynomial) return compare_raw(a, b);
    return kind == Kind::other ? to_line(a).compare(to_line(b)) : compare_parts(a, b);
}

// The factors of a term without its number.
struct Factors {
    const Object *at;
    uint32_t count;  // of pairs
    Object own[2];

    explicit Factors(Object x) {
        own[0] = x;
        own[1] = immediate(1);
        at = own;
        count = 1;
        if (has_type(x, type_power)) {
            own[0] = words(x)[1];
            own[1] = words(x)[2];
        } else if (has_type(x, type_product)) {
            at = words(x) + (has_number(x) ? 3 : 1);
            count = length_of(x) / 2 - has_number(x);
        }
    }
    Factors(const Factors &) = delete;
    Factors &operator=(const Factors &) = delete;

    bool is_symbolic(uint32_t i) const { return is_one(at[2 * i + 1]) && has_type(at[2 * i], type_power); }
    Object base(uint32_t i) const { return is_symbolic(i) ? words(at[2 * i])[1] : at[2 * i]; }
    Object exponent(uint32_t i) const { return is_symbolic(i) ? words(at[2 * i])[2] : at[2 * i + 1]; }

    double degree() const {
        double sum = 0;
        for (uint32_t i = 0; i < count; i++) {
            if (!is_scalar(base(i))) sum += is_number(exponent(i)) ? to_double(exponent(i)) : 1;
        }
        return std::isfinite(sum) ? sum : 0;
    }
};

int compare_factors(const Factors &a, const Factors &b) {
    for (uint32_t i = 0; i < std::min(a.count, b.count); i++) {
        if (const int order = compare_expressions(a.base(i), b.base(i))) return order;
        if (const int order = compare_expressions(b.exponent(i), a.exponent(i))) return order;
    }
    return compare_bits(b.count, a.count);
}

// ---- Building

Object power_object(Object base, Object exponent) {
    return unique_object(type_power, {unique_value(base), unique_value(exponent)});
}

// The product of factors, in order, without number.
Object product_of_factors(const Pairs &factors) {
    if (factors.empty()) return immediate(1);
    if (factors.size() == 2 && is_one(factors[1])) return factors[0];
    if (factors.size() == 2 && !is_number(factors[1])) return power_object(factors[0], factors[1]);
    Pairs parts;
    for (size_t i = 0; i < factors.size(); i += 2) {
        const bool symbolic = !is_number(factors[i + 1]);
        parts.push_back(symbolic ? power_object(factors[i], factors[i + 1]) : unique_value(factors[i]));
        parts.push_back(symbolic ? immediate(1) : unique_value(factors[i + 1]));
    }
    return unique_object(type_product, parts);
}

// A number times a term without number, as a pair of a sum.
void push_term(Object number, Object term, Pairs *parts) {
    const bool coefficient = is_integer(number) || is_float(number);
    Object one;
    Pairs factors;
    if (!coefficient) split_product(term, &one, &factors);
    parts->push_back(coefficient ? term : build_product(number, factors));
    parts->push_back(coefficient ? unique_value(number) : immediate(1));
}

Object build_sum(Object number, const Pairs &terms) {
    if (terms.empty()) return number;
    Pairs parts;
    for (size_t i = 0; i < terms.size(); i += 2) push_term(terms[i + 1], terms[i], &parts);
    if (!is_zero(number)) {
        parts.push_back(unique_value(number));
        parts.push_back(immediate(1));
    }
    if (parts.size() == 2 && is_one(parts[1])) return parts[0];
    return unique_object(type_sum, parts);
}

// Merges two ordered lists of pairs; the values of equal keys are added, and pairs with value 0 left out.
Pairs merge(const Pairs &a, const Pairs &b) {
    Pairs result;
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        const int order = i == a.size() ? 1 : j == b.size() ? -1 : compare_expressions(a[i], b[j]);
        const Object key = order <= 0 ? a[i] : b[j];
        const Object value = order < 0 ? a[i + 1] : order > 0 ? b[j + 1] : plus(a[i + 1], b[j + 1]);
        i += order <= 0 ? 2 : 0;
        j += order >= 0 ? 2 : 0;
        if (is_scalar(value) && is_zero(value)) continue;
        result.push_back(key);
        result.push_back(value);
    }
    return result;
}

// A sum with every coefficient multiplied by a number.
Object scale(Object x, Object factor) {
    if (is_zero(factor)) return immediate(0);
    Object number;
    Pairs terms, scaled;
    split_sum(x, &number, &terms);
    for (size_t i = 0; i < terms.size(); i += 2) {
        const Object coefficient = multiply(terms[i + 1], factor);
        if (is_zero(coefficient)) continue;
        scaled.push_back(terms[i]);
        scaled.push_back(coefficient);
    }
    return build_sum(is_zero(number) ? number : multiply(number, factor), scaled);
}

// Are base and exponent a factor of the normal form?
bool is_factor(Object base, Object exponent) {
    if (is_scalar(base) && is_scalar(exponent)) return !is_scalar(to_power(base, exponent));
    const bool monomial = has_type(base, type_sum) && length_of(base) == 3;
    const bool composed = monomial || has_type(base, type_product) || has_type(base, type_power);
    return !composed || !is_integer(exponent);
}

// The product of factors in order.  Those that left the normal form when their exponents were added, such as 2^(1/2)
// that became 2, are multiplied anew.
Object multiply_factors(Object number, Pairs factors) {
    for (size_t i = 0; i < factors.size(); i += 2) {
        const Object base = factors[i], exponent = factors[i + 1];
        if (is_factor(base, exponent)) continue;
        factors.erase(factors.begin() + static_cast<ptrdiff_t>(i), factors.begin() + static_cast<ptrdiff_t>(i + 2));
        return times(to_power(base, exponent), multiply_factors(number, factors));
    }
    return build_product(number, factors);
}

Object power_to_integer(Object a, Object exponent) {
    Object number;
    Pairs factors;
    split_product(a, &number, &factors);
    for (size_t i = 1; i < factors.size(); i += 2) {
        factors[i] = times(factors[i], exponent);
        if (is_integer(factors[i]) && !is_immediate(factors[i]) && length_of(factors[i]) > longest_exponent) {
            throw HostError("exponent too large");
        }
    }
    return multiply_factors(power(number, exponent), factors);
}

Object power_of_scalar(Object a, Object b) {
    const bool floats = is_float(a) || is_float(b);
    if (is_integer(b) || (floats && is_number(a) && is_number(b))) return power(a, b);
    if (a == immediate(1)) return a;
    if (is_zero(a) && is_number(b) && is_negative(b)) throw HostError("division by zero");
    if (is_zero(a) && is_number(b)) return a;
    if (!is_number(b)) return power_object(a, b);
    return product_of_factors({unique_value(a), unique_value(b)});
}

}  // namespace

bool is_expression(Object x) {
    if (is_immediate(x)) return false;
    const uint32_t type = type_of(x);
    return type == type_sum || type == type_product || type == type_power;
}

bool is_operand(Object x) {
    if (is_scalar(x) || is_expression(x) || has_type(x, type_polynomial)) return true;
    if (has_type(x, type_indexed)) return is_unique(x) && is_operand(words(x)[1]);
    return has_type(x, type_name) && !is_protected(x);
}

int compare_expressions(Object a, Object b) {
    check_stack();
    if (a == b) return 0;
    const Kind kind = kind_of(a), other = kind_of(b);
    if (kind <= Kind::complex || other <= Kind::complex) {
        if (kind != other) return kind < other ? -1 : 1;
        if (const int order = compare_contents(a, b, kind)) return order;
        return compare_bits(a, b);
    }
    const Factors x(a), y(b);
    const double degree = x.degree(), other_degree = y.degree();
    if (degree != other_degree) return degree > other_degree ? -1 : 1;
    const auto is_monomial = [](Kind k) { return k == Kind::product || k == Kind::power; };
    if (is_monomial(kind) || is_monomial(other)) {
        if (const int order = compare_factors(x, y)) return order;
    } else if (kind != other) {
        return kind < other ? -1 : 1;
    }
    if (const int order = compare_contents(a, b, kind == other ? kind : Kind::other)) return order;
    return compare_bits(a, b);
}

void split_product(Object x, Object *number, Pairs *factors) {
    *number = immediate(1);
    if (is_scalar(x)) {
        *number = x;
        return;
    }
    if (has_type(x, type_sum) && length_of(x) == 3) {
        split_product(words(x)[1], number, factors);
        *number = multiply(*number, words(x)[2]);
        return;
    }
    if (has_number(x)) *number = words(x)[1];
    const Factors parts(x);
    for (uint32_t i = 0; i < parts.count; i++) {
        factors->push_back(parts.base(i));
        factors->push_back(parts.exponent(i));
    }
}

void split_sum(Object x, Object *number, Pairs *terms) {
    *number = immediate(0);
    const auto push = [&](Object term, Object coefficient) {
        if (is_scalar(term)) {
            *number = multiply(term, coefficient);
            return;
        }
        if (has_number(term)) {
            coefficient = multiply(coefficient, words(term)[1]);
            term = product_of_factors(Pairs(words(term) + 3, words(term) + length_of(term)));
        }
        terms->push_back(term);
        terms->push_back(coefficient);
    };
    if (!has_type(x, type_sum)) return push(x, immediate(1));
    for (uint32_t i = 1; i < length_of(x); i += 2) push(words(x)[i], words(x)[i + 1]);
}

Object build_product(Object number, const Pairs &factors) {
    if (is_zero(number) || factors.empty()) return number;
    const Object rest = product_of_factors(factors);
    if (is_one(number)) return rest;
    if (has_type(rest, type_sum)) return scale(rest, number);
    if (is_integer(number) || is_float(number)) return unique_object(type_sum, {rest, unique_value(number)});
    Pairs parts = {unique_value(number), immediate(1)};
    const bool product = has_type(rest, type_product);
    parts.insert(parts.end(), product ? words(rest) + 1 : &rest, product ? words(rest) + length_of(rest) : &rest + 1);
    if (!product) parts.push_back(immediate(1));
    return unique_object(type_product, parts);
}

Object plus(Object a, Object b) {
    if (is_scalar(a) && is_scalar(b)) return add(a, b);
    need_operands(a, b);
    const HoldCollection hold;
    Object x, y;
    Pairs terms, others;
    split_sum(a, &x, &terms);
    split_sum(b, &y, &others);
    return build_sum(add(x, y), merge(terms, others));
}

Object minus(Object a, Object b) {
    if (is_scalar(a) && is_scalar(b)) return subtract(a, b);
    need_operands(a, b);
    return plus(a, opposite(b));
}

Object opposite(Object a) {
    need_operands(a, a);
    return is_scalar(a) ? negate(a) : times(a, immediate(-1));
}

Object times(Object a, Object b) {
    if (is_scalar(a) && is_scalar(b)) return multiply(a, b);
    need_operands(a, b);
    const HoldCollection hold;
    if (is_scalar(a) && has_type(b, type_sum)) return scale(b, a);
    if (is_scalar(b) && has_type(a, type_sum)) return scale(a, b);
    Object x, y;
    Pairs factors, others;
    split_product(a, &x, &factors);
    split_product(b, &y, &others);
    return multiply_factors(multiply(x, y), merge(factors, others));
}

Object quotient(Object a, Object b) {
    if (is_scalar(a) && is_scalar(b)) return divide(a, b);
    need_operands(a, b);
    return times(a, is_scalar(b) ? divide(immediate(1), b) : to_power(b, immediate(-1)));
}

Object to_power(Object a, Object b) {
    need_operands(a, b);
    check_stack();
    const HoldCollection hold;
    if (is_scalar(a) && is_scalar(b)) return power_of_scalar(a, b);
    if (b == immediate(0) || a == immediate(1)) return immediate(1);
    if (is_one(b)) return a;
    if (is_integer(b)) return power_to_integer(a, b);
    if (!is_number(b)) return power_object(a, b);
    return product_of_factors({unique_value(a), unique_value(b)});
}

namespace {

// Joins values pairwise, so that long sums and products are not copied for every part.
Object join(Object (*operation)(Object, Object), Roots &parts, Object neutral) {
    std::vector<Object> &values = parts.values;
    while (values.size() > 1) {
        const size_t pairs = values.size() / 2;
        for (size_t i = 0; i < pairs; i++) values[i] = operation(values[2 * i], values[2 * i + 1]);
        if (values.size() % 2) values[pairs] = values.back();
        values.resize(pairs + values.size() % 2);
    }
    return values.empty() ? neutral : values[0];
}

// Rebuilds an expression, or lists, sets, equations and ranges of them; parts that are shared are done once.
class Substitution {
  public:
    explicit Substitution(const std::function<Object(Object)> &value) : value_(value) {}

    Object operator()(Object x) {
        check_stack();
        const bool pair = has_type(x, type_equation) || has_type(x, type_range), name = has_type(x, type_name);
        if (!name && !pair && !is_expression(x) && !is_collection(x)) return x;
        const auto found = done_.find(x);
        if (found != done_.end()) return found->second;
        const Object result = name ? value_(x) : rebuilt(x, pair);
        done_.emplace(x, result);
        held_.values.push_back(result);
        return result;
    }

  private:
    Object rebuilt(Object x, bool pair) {
        const Object whole = is_collection(x) ? sequence_of(x) : x;
        bool changed = false;
        Roots held;
        std::vector<Object> &parts = held.values;
        for (uint32_t i = 1; i < length_of(whole); i++) {
            parts.push_back((*this)(words(whole)[i]));
            changed |= parts.back() != words(whole)[i];
        }
        if (!changed) return x;
        if (is_collection(x)) return new_collection(static_cast<Type>(type_of(x)), parts);
        if (pair) return new_pair(static_cast<Type>(type_of(x)), parts[0], parts[1]);
        if (has_type(x, type_power)) return to_power(parts[0], parts[1]);
        const bool sum = has_type(x, type_sum);
        Roots joined;
        for (size_t i = 0; i < parts.size(); i += 2) {
            joined.values.push_back((sum ? times : to_power)(parts[i], parts[i + 1]));
        }
        return join(sum ? plus : times, joined, immediate(0));
    }

    const std::function<Object(Object)> &value_;
    std::unordered_map<Object, Object> done_;
    Roots held_;  // the results
};

// Multiplies out; counts the products of terms that it makes.
class Expansion {
  public:
    Object operator()(Object x) {
        check_stack();
        if (!is_expression(x)) return x;
        Roots parts;
        for (uint32_t i = 1; i < length_of(x); i++) parts.values.push_back((*this)(words(x)[i]));
        if (has_type(x, type_power)) return to_power(parts.values[0], parts.values[1]);
        const bool sum = has_type(x, type_sum);
        Roots joined;
        for (size_t i = 0; i < parts.values.size(); i += 2) {
            const Object first = parts.values[i], second = parts.values[i + 1];
            joined.values.push_back(sum ? times(first, second) : power(first, second));
        }
        if (sum) return join(plus, joined, immediate(0));
        Object result = immediate(1);
        for (const Object factor : joined.values) result = product(result, factor);
        return result;
    }

  private:
    Object power(Object base, Object exponent) {
        const bool natural = is_immediate(exponent) && immediate_value(exponent) > 0;
        if (!natural || !has_type(base, type_sum) || length_of(base) == 3) return to_power(base, exponent);
        Object result = immediate(1);
        for (int32_t i = 0; i < immediate_value(exponent); i++) result = product(result, base);
        return result;
    }

    static void list_terms(Object x, Roots &terms) {
        Object number;
        split_sum(x, &number, &terms.values);
        if (is_zero(number)) return;
        terms.values.push_back(immediate(1));
        terms.values.push_back(number);
    }

    // The product of two expanded expressions.
    Object product(Object a, Object b) {
        Roots terms, others, rows;
        list_terms(a, terms);
        list_terms(b, others);
        products_ += uint64_t{terms.values.size() / 2} * (others.values.size() / 2);
        if (products_ > largest_expansion) throw HostError("expression too large");
        for (size_t i = 0; i < terms.values.size(); i += 2) {
            Roots row;
            for (size_t j = 0; j < others.values.size(); j += 2) {
                const Object number = multiply(terms.values[i + 1], others.values[j + 1]);
                row.values.push_back(times(number, times(terms.values[i], others.values[j])));
            }
            rows.values.push_back(join(plus, row, immediate(0)));
        }
        return join(plus, rows, immediate(0));
    }

    uint64_t products_ = 0;
};

}  // namespace

Object substitute(Object x, const std::function<Object(Object)> &value) {
    return Substitution(value)(x);
}

Object evaluate_expression(Object x) {
    static int depth = 0;
    struct Depth {
        Depth() { depth++; }
        ~Depth() { depth--; }
    } counted;
    if (depth > 1000) throw HostError("recursive assignment in " + to_line(x));
    return substitute(x, [](Object name) {
        const Object value = evaluate(name);
        return is_operand(value) ? value : name;
    });
}

bool contains_name(Object x, Object name) {
    bool found = false;
    substitute(x, [&](Object other) {
        found |= other == name;
        return other;
    });
    return found;
}

Object expand(Object x) {
    return Expansion()(x);
}

void visit_terms(Object x, const TermVisitor &visit) {
    const Object expanded = expand(x);
    const HoldCollection hold;
    Object number;
    Pairs terms;
    split_sum(expanded, &number, &terms);
    visit(number, {});
    for (size_t i = 0; i < terms.size(); i += 2) {
        Pairs factors;
        split_product(terms[i], &number, &factors);
        visit(multiply(number, terms[i + 1]), factors);
    }
}

}  // namespace modla::console
