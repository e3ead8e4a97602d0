// The residues of the host's own integers: two more instances of the kernels' arithmetic, for moduli of any size.
//
// Moduli below 2^32 take 64-bit words, all others GMP's integers, which hold sums of any length: they are reduced only
// where the kernels look at them.  On lines of GMP integers the operations work in place.
#pragma once

#include <gmpxx.h>

#include <cstdint>
#include <utility>

#include "engine/rows.h"
#include "residue/ring.h"
#include "values/digits.h"

namespace modla::console {

// 2 <= p < 2^32.
struct WordResidue {
    using Value = uint64_t;
    using Entry = uint64_t;
    static constexpr Value no_inverse = UINT64_MAX;
    static constexpr uint64_t limit = UINT64_MAX;  // sums of products do not pass it

    Value p;

    Value reduce(Value t) const { return t % p; }
    bool is_canonical(Value t) const { return t < p; }
    Value canonical(Value t) const { return reduce(t); }
    Value multiply(Value a, Value b) const { return reduce(a * b); }
    Value multiply_add(Value a, Value b, Value c) const { return reduce(a * b + c); }
    Value negate(Value a) const { return a ? p - a : 0; }
    Value add(Value a, Value b) const { return a + b >= p ? a + b - p : a + b; }
    bool is_modulus(int32_t v) const { return v >= 0 && static_cast<Value>(v) == p; }
    Value of_immediate(int32_t v) const {
        const Value magnitude = reduce(static_cast<Value>(v < 0 ? -v : v));
        return v < 0 ? negate(magnitude) : magnitude;
    }
    Value quotient(Value a, Value b) const { return a / b; }
    bool invert(Value a, Value *inverse) const {
        const Value r = euclid_inverse(a, p);
        *inverse = r ? r : no_inverse;
        return r != 0;
    }
};

inline int32_t pending_limit(const WordResidue &residue) {
    return delay_bound<WordResidue>(static_cast<uint32_t>(residue.p));
}

// Any p >= 2.
struct BigResidue {
    using Value = mpz_class;
    using Entry = mpz_class;
    static constexpr int no_inverse = -1;

    const mpz_class p;

    Value reduce(const Value &t) const {
        Value r;
        mpz_tdiv_r(r.get_mpz_t(), t.get_mpz_t(), p.get_mpz_t());
        return r;
    }
    bool is_canonical(const Value &t) const { return t >= 0 && t < p; }
    Value canonical(const Value &t) const {
        Value r;
        mpz_mod(r.get_mpz_t(), t.get_mpz_t(), p.get_mpz_t());
        return r;
    }
    Value multiply(const Value &a, const Value &b) const { return reduce(a * b); }
    Value multiply_add(const Value &a, const Value &b, const Value &c) const { return reduce(a * b + c); }
    Value negate(const Value &a) const { return a == 0 ? Value(0) : Value(p - a); }
    Value add(const Value &a, const Value &b) const {
        Value sum = a + b;
        if (sum >= p) sum -= p;
        return sum;
    }
    bool is_modulus(int32_t v) const { return p == v; }
    Value of_immediate(int32_t v) const { return canonical(v); }
    Value quotient(const Value &a, const Value &b) const { return a / b; }
    bool invert(const Value &a, Value *inverse) const {
        const bool invertible = mpz_invert(inverse->get_mpz_t(), a.get_mpz_t(), p.get_mpz_t()) != 0;
        if (!invertible) *inverse = no_inverse;
        return invertible;
    }
};

inline int32_t pending_limit(const BigResidue &) {
    return 2147483646;
}

// ---- What the kernels do with lines of GMP integers, found by their residue

template <class AnyLine>
void reduce_line(const BigResidue &residue, const AnyLine &line, int32_t count) {
    for (int32_t k = 0; k < count; k++) {
        mpz_tdiv_r(line[k].get_mpz_t(), line[k].get_mpz_t(), residue.p.get_mpz_t());
    }
}

template <class LineA, class LineB>
mpz_class sum_products(const BigResidue &, const LineA &a, const LineB &b, int32_t count) {
    mpz_class sum;
    for (int32_t k = 0; k < count; k++) mpz_addmul(sum.get_mpz_t(), a[k].get_mpz_t(), b[k].get_mpz_t());
    return sum;
}

template <class Target, class Source>
void add_multiple(const BigResidue &, const Target &target, const Source &source, int32_t count, const mpz_class &f) {
    for (int32_t k = 0; k < count; k++) {
        mpz_addmul(target[k].get_mpz_t(), f.get_mpz_t(), source[k].get_mpz_t());
    }
}

template <class Target, class Source>
void add_multiple_reduced(const BigResidue &residue, const Target &target, const Source &source, int32_t count,
                          const mpz_class &f) {
    add_multiple(residue, target, source, count, f);
    reduce_line(residue, target, count);
}

template <class AnyLine>
void scale_line(const BigResidue &residue, const AnyLine &line, int32_t count, const mpz_class &f) {
    mpz_class product;
    for (int32_t k = 0; k < count; k++) {
        mpz_mul(product.get_mpz_t(), f.get_mpz_t(), line[k].get_mpz_t());
        mpz_tdiv_r(line[k].get_mpz_t(), product.get_mpz_t(), residue.p.get_mpz_t());
    }
}

}  // namespace modla::console

namespace modla {

// Exchanges numbers, not their limbs.
template <class Step>
void swap_lines(const Line<mpz_class, Step> &a, const Line<mpz_class, Step> &b, int32_t count) {
    for (int32_t k = 0; k < count; k++) mpz_swap(a[k].get_mpz_t(), b[k].get_mpz_t());
}

}  // namespace modla
