// The scalar helpers against GMP, FLINT and 64-bit arithmetic.
#include "residue/ring.h"

#include <flint/nmod_vec.h>
#include <flint/ulong_extras.h>

#include <bit>
#include <cmath>
#include <cstdlib>

#include "tests/support/grid.h"
#include "tests/support/host.h"

using namespace modla_test;

namespace {

// The two twins of every helper behind one set of names.
template <class W>
struct Twin;

template <>
struct Twin<uint32_t> {
    static constexpr uint32_t largest_modulus = 65535, no_inverse = 65536;
    uint32_t p;
    explicit Twin(uint32_t modulus) : p(modulus) {}
    uint32_t power(uint32_t a, int32_t e) const { return modpow_iw(a, e, p); }
    uint32_t inverse(uint32_t a) const { return modinverse_iw(a, p); }
    uint32_t residue_of(HostObject integer) const { return modtolvexint_iw(integer, p); }
    uint32_t table_power(uint32_t *table, int32_t e) const { return modunknpow_iw(table, e, p); }
    uint32_t polynomial(HostObject poly, uint32_t *table) const { return modzppolyeval_iw(poly, table, p); }
    static constexpr auto fill = rand_fill_iw;
};

template <>
struct Twin<double> {
    static constexpr uint32_t largest_modulus = 33554431;
    static constexpr double no_inverse = -1.0;
    double p, pinv;
    explicit Twin(uint32_t modulus) : p(modulus), pinv((1 + std::numeric_limits<double>::epsilon()) / p) {}
    double power(double a, int32_t e) const { return modpow_f(a, e, p, pinv); }
    double inverse(double a) const { return modinverse_f(a, p, pinv); }
    double residue_of(HostObject integer) const { return modtolvexint_f(integer, p, 0, pinv); }
    double table_power(double *table, int32_t e) const { return modunknpow_f(table, e, p, pinv); }
    double polynomial(HostObject poly, double *table) const { return modzppolyeval_f(poly, table, p, pinv); }
    static constexpr auto fill = rand_fill_f;
};

std::vector<uint32_t> moduli_up_to(uint32_t largest, Random &random) {
    std::vector<uint32_t> moduli;
    for (uint32_t p = 2; p < 40; p++) moduli.push_back(p);
    for (const uint32_t p : {107u, 321u, 32768u, 46327u, 46328u, 46337u, 65521u, 65534u, 65535u, 65536u, 65537u,
                             1048573u, 16777216u, 33554393u, 33554430u, 33554431u}) {
        if (p <= largest) moduli.push_back(p);
    }
    for (int k = 0; k < 100; k++) moduli.push_back(2 + below(random, largest - 1));
    return moduli;
}

uint32_t random_residue(Random &random, uint32_t p) {
    return chance(random, 30) ? pick(random, {0u, 1u, p - 1, p / 2}) : below(random, p);
}

int32_t random_exponent(Random &random) {
    if (chance(random, 30)) {
        return pick(random, {1, -1, 2, -2, 16, -16, 17, -17, 65536, 131072, INT32_MAX, -INT32_MAX, INT32_MIN});
    }
    const int32_t magnitude = 1 + below(random, INT32_MAX >> below(random, 30));
    return chance(random, 50) ? magnitude : -magnitude;
}

// a^e by FLINT, or the no-inverse mark.
template <class W>
W power_by_flint(uint32_t a, int64_t e, uint32_t p) {
    nmod_t mod;
    nmod_init(&mod, p);
    const mp_limb_t r = nmod_pow_ui(a % p, static_cast<ulong>(std::abs(e)), mod);
    mp_limb_t inverse;
    if (e >= 0) return static_cast<W>(r);
    return r != 0 && n_gcdinv(&inverse, r, p) == 1 ? static_cast<W>(inverse) : Twin<W>::no_inverse;
}

// A power table, as a caller sets it up, and what must hold of it at any time.
template <class W>
class PowerTable {
  public:
    PowerTable(uint32_t x, uint32_t p) : x_(x), p_(p), entries_(32, Twin<W>::no_inverse) {
        entries_[0] = static_cast<W>(x);
    }
    static int64_t exponent(size_t entry) {
        return static_cast<int64_t>(entry < 16 ? entry + 1 : size_t{2} << (entry - 16));
    }
    void learn(size_t entry) { entries_[entry] = power_by_flint<W>(x_, exponent(entry), p_); }
    bool knows(size_t entry) const { return entries_[entry] != Twin<W>::no_inverse; }
    bool is_consistent() const {
        for (size_t k = 0; k < entries_.size(); k++) {
            if (knows(k) && entries_[k] != power_by_flint<W>(x_, exponent(k), p_)) return false;
        }
        return true;
    }
    W *data() { return entries_.data(); }

  private:
    uint32_t x_, p_;
    std::vector<W> entries_;
};

template <class W>
class ScalarTwin : public testing::Test {
  protected:
    Random random{20240501};
};
using Twins = testing::Types<uint32_t, double>;
struct TwinName {
    template <class W>
    static std::string GetName(int) {
        return std::is_same_v<W, double> ? "f" : "iw";
    }
};
TYPED_TEST_SUITE(ScalarTwin, Twins, TwinName);

TYPED_TEST(ScalarTwin, PowersAreThoseOfFlint) {
    using W = TypeParam;
    for (const uint32_t p : moduli_up_to(Twin<W>::largest_modulus, this->random)) {
        const Twin<W> twin(p);
        const auto check = [&](uint32_t a, int32_t e) {
            ASSERT_EQ(twin.power(static_cast<W>(a), e), power_by_flint<W>(a, e, p)) << a << "^" << e << " mod " << p;
        };
        for (uint32_t a = 0; a < p && a < 40; a++) {
            for (int32_t e = -20; e <= 20; e++) ASSERT_NO_FATAL_FAILURE(check(a, e));
        }
        for (int k = 0; k < 200; k++) {
            ASSERT_NO_FATAL_FAILURE(check(random_residue(this->random, p), random_exponent(this->random)));
        }
    }
}

TYPED_TEST(ScalarTwin, InversesExistForUnitsOnly) {
    using W = TypeParam;
    for (const uint32_t p : moduli_up_to(Twin<W>::largest_modulus, this->random)) {
        const Twin<W> twin(p);
        for (uint32_t k = 0; k < 500; k++) {
            const uint32_t a = p <= 500 ? k % p : random_residue(this->random, p);
            const W inverse = twin.inverse(static_cast<W>(a));
            const bool unit = n_gcd(a, p) == 1;
            ASSERT_EQ(inverse != Twin<W>::no_inverse, unit) << a << " mod " << p;
            if (!unit) continue;
            ASSERT_TRUE(inverse >= 1 && inverse < twin.p) << a << " mod " << p;
            ASSERT_EQ(static_cast<uint64_t>(inverse) * a % p, 1u) << a << " mod " << p;
        }
    }
}

Object polynomial_object(const std::vector<uint32_t> &words) {
    const Object x = new_object(static_cast<uint32_t>(words.size()) + 1, 17);
    std::copy(words.begin(), words.end(), modla::console::words(x) + 1);
    modla::console::words(x)[1] = global_name("x");
    return x;
}

TYPED_TEST(ScalarTwin, TablePowersAreRightAndRemembered) {
    using W = TypeParam;
    for (const uint32_t p : moduli_up_to(Twin<W>::largest_modulus, this->random)) {
        const Twin<W> twin(p);
        for (int round = 0; round < 10; round++) {
            const uint32_t x = random_residue(this->random, p);
            PowerTable<W> table(x, p);
            for (size_t k = 1; k < 32; k++) {
                if (chance(this->random, 10)) table.learn(k);
            }
            for (int k = 0; k < 8; k++) {
                const int32_t e = random_exponent(this->random);
                const PowerTable<W> before = table;
                ASSERT_EQ(twin.table_power(table.data(), e), power_by_flint<W>(x, e, p))
                    << x << "^" << e << " mod " << p;
                ASSERT_TRUE(table.is_consistent()) << x << "^" << e << " mod " << p;
                const int64_t magnitude = std::abs(int64_t{e});
                for (size_t entry = 1; entry < 32; entry++) {
                    const bool squaring = entry >= 16 && magnitude > 16 && table.exponent(entry) <= magnitude;
                    if (magnitude <= 16 && entry >= 16) continue;  // not needed where the power itself is known
                    ASSERT_EQ(table.knows(entry), before.knows(entry) || squaring)
                        << "entry " << entry << " after " << x << "^" << e << " mod " << p;
                }
            }
        }
    }
}

// Degrees on both sides of each change of method, dense, sparse and zero coefficients.
TYPED_TEST(ScalarTwin, PolynomialValuesAreThoseOfFlint) {
    using W = TypeParam;
    for (const uint32_t p : moduli_up_to(Twin<W>::largest_modulus, this->random)) {
        const Twin<W> twin(p);
        nmod_poly_t expected;
        nmod_poly_init(expected, p);
        const uint32_t x = random_residue(this->random, p);
        PowerTable<W> table(x, p);
        for (const int degree : {-1, 33, 0, 1, 2, 15, 16, 17, 18, 31, 32, 34, 48, 100, 400}) {
            for (const int density : {100, 30, 20, 5, 0}) {
                if (chance(this->random, 50)) table = PowerTable<W>(x, p);
                nmod_poly_zero(expected);
                std::vector<uint32_t> words = {0, immediate(static_cast<int32_t>(p))};
                for (int i = 0; i <= degree; i++) {
                    const bool nonzero = i == degree || chance(this->random, density);
                    const uint32_t c = nonzero ? random_residue(this->random, p) : 0;
                    nmod_poly_set_coeff_ui(expected, i, c);
                    words.push_back(p > 46327 ? immediate(static_cast<int32_t>(c)) : c);
                }
                ASSERT_EQ(twin.polynomial(polynomial_object(words), table.data()),
                          static_cast<W>(nmod_poly_evaluate_nmod(expected, x)))
                    << "degree " << degree << ", " << density << "% nonzero, at " << x << " mod " << p;
                ASSERT_TRUE(table.is_consistent()) << "degree " << degree << " at " << x << " mod " << p;
                for (int k = 2; k <= degree && k <= 16; k++) {
                    ASSERT_TRUE(table.knows(static_cast<size_t>(k - 1))) << "degree " << degree << ", x^" << k;
                }
            }
        }
        nmod_poly_clear(expected);
    }
}

// ---- Machine numbers to host integers and back ----

TEST(HostIntegers, KeepMachineIntegersAndRoundDoubles) {
    Random random(7);
    std::vector<int32_t> integers = {INT32_MAX, -INT32_MAX, INT32_MIN};
    for (int32_t d = -300; d <= 300; d++) {
        for (const int32_t center : {0, 1 << 30, -(1 << 30), 100000000, -100000000}) integers.push_back(center + d);
    }
    for (const int32_t n : integers) {
        const Object object = M_INTtoTolvexInt(&host_api(), n);
        ASSERT_EQ(integer_of(object), n);
        ASSERT_EQ(is_immediate(object), std::abs(int64_t{n}) < 1 << 30) << n;
    }
    std::vector<double> values = {0.0, -0.0, 0x1p53 - 1, 1e-300, 0x1p-1074, std::nextafter(0.5, 1)};
    for (int k = 0; k < 4000; k++) {
        const double eighths = static_cast<double>(below(random, 64)) / 8 - 4;
        const double whole = static_cast<double>(below(random, uint64_t{1} << (1 + below(random, 49))));
        values.insert(values.end(), {eighths, whole + eighths, 0x1p30 + eighths, 9999.0 + 1e4 * whole + eighths,
                                     0x1p53 - 1 - whole, 0x1p52 + whole});
    }
    for (const double magnitude : values) {
        if (std::fabs(magnitude) > 0x1p53 - 1) continue;
        for (const double d : {magnitude, -magnitude}) {
            // Extended precision holds d + 1/2 without rounding it up to the next integer.
            const long double half_up = std::floor(static_cast<long double>(d) + 0.5L);
            const long double half_away = std::copysign(std::floor(std::fabs(static_cast<long double>(d)) + 0.5L), d);
            const bool small = std::fabs(d) <= 0x1p30 - 1;
            ASSERT_EQ(integer_of(floattoTolvexInt_32(&host_api(), d)),
                      mpz_class(static_cast<double>(small ? half_up : half_away)))
                << d;
        }
    }
    EXPECT_EQ(floattoTolvexInt_32(&host_api(), std::nan("")), immediate(0));
    for (const double d : {0x1p53, -0x1p53, 0x1p53 + 2, 1e300, -1e300, HUGE_VAL, -HUGE_VAL}) {
        EXPECT_EQ(message_of([=] { floattoTolvexInt_32(&host_api(), d); }), "float too large") << d;
    }
}

// ---- Random residues ----

TYPED_TEST(ScalarTwin, RandomBlocksStayInTheirPlaces) {
    using W = TypeParam;
    const W untouched = static_cast<W>(4000000000u);
    for (int round = 0; round < 500; round++) {
        const uint32_t p = 2 + below(this->random, chance(this->random, 50) ? 9u : 65000u);
        const int32_t rows = below(this->random, 7);
        const int32_t cols = below(this->random, 7);
        const int32_t inner = 1 + below(this->random, 3);
        const int32_t outer = inner * 7 + below(this->random, 5);
        const bool by_rows = chance(this->random, 50);
        const int32_t rstride = by_rows ? outer : inner, cstride = by_rows ? inner : outer;
        std::vector<W> storage(static_cast<size_t>(7 * outer + 7 * inner), untouched);
        std::vector<bool> selected(storage.size());
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < cols; j++) selected[static_cast<size_t>(3 + i * rstride + j * cstride)] = true;
        }
        Twin<W>::fill(&host_api(), rows, cols, storage.data() + 3, rstride, cstride, static_cast<W>(p));
        for (size_t k = 0; k < storage.size(); k++) {
            const bool residue = storage[k] >= 0 && storage[k] < static_cast<W>(p) &&
                                 static_cast<W>(static_cast<uint32_t>(storage[k])) == storage[k];
            ASSERT_TRUE(selected[k] ? residue : storage[k] == untouched)
                << rows << "x" << cols << ", steps " << rstride << ", " << cstride << ", p " << p << ", cell " << k;
        }
    }
}

// The last modulus would make its lower third twice as likely if draws were merely reduced.
TYPED_TEST(ScalarTwin, RandomResiduesAreEquallyLikely) {
    using W = TypeParam;
    for (const uint32_t p : {2u, 3u, 7u, 10u, 321u, 65535u, 0x60000000u}) {
        const uint32_t classes = std::min(p, 321u);
        std::vector<W> storage(200u * classes);
        std::srand(p);
        Twin<W>::fill(&host_api(), 200, static_cast<int32_t>(classes), storage.data(), static_cast<int32_t>(classes), 1,
                      static_cast<W>(p));
        std::vector<int> counts(classes);
        for (const W r : storage) counts[static_cast<size_t>(static_cast<uint64_t>(r) * classes / p)]++;
        double chi_square = 0;
        for (const int count : counts) chi_square += (count - 200.0) * (count - 200.0) / 200.0;
        const double freedom = classes - 1;
        EXPECT_LT(chi_square, freedom + 6 * std::sqrt(2 * freedom)) << "p " << p;
    }
}

TYPED_TEST(ScalarTwin, RandomResiduesComeFromTheProcessGenerator) {
    using W = TypeParam;
    std::srand(99);
    int draws[132];
    for (int &draw : draws) draw = std::rand();
    std::vector<W> storage(128);
    std::srand(99);
    // A power of two never has a draw rejected; the generator is neither reseeded nor read ahead.
    Twin<W>::fill(&host_api(), 8, 16, storage.data(), 16, 1, W(1024));
    for (size_t k = 0; k < 128; k++) EXPECT_EQ(storage[k], static_cast<W>(draws[k] % 1024));
    for (size_t k = 128; k < 132; k++) EXPECT_EQ(std::rand(), draws[k]);
}

TYPED_TEST(ScalarTwin, RandomResiduesNeedASuitableModulus) {
    using W = TypeParam;
    for (const uint32_t p : {0u, 1u, 0x80000001u, 0xffffffffu, 2u, 0x80000000u}) {
        W cell = W(5);
        const bool refused = p < 2 || p > 0x80000000u;
        EXPECT_EQ(message_of([&] { Twin<W>::fill(&host_api(), 1, 1, &cell, 1, 1, static_cast<W>(p)); }),
                  refused ? "problem with rand() and modulus" : "");
        EXPECT_TRUE(!refused || cell == W(5)) << p;
    }
    // A residue 0 is +0, whatever the rounding.
    for (const FpMode &mode : foreign_fp_modes()) {
        double storage[64];
        EXPECT_TRUE(keeps_fp_mode(mode, [&] { rand_fill_f(&host_api(), 8, 8, storage, 8, 1, 2); }));
        for (const double r : storage) EXPECT_FALSE(std::signbit(r)) << std::hex << mode.mxcsr;
    }
}

// ---- Reduction of unreduced sums ----

// Integers below 2^53 where a rounded quotient is most likely to miss: near the top, and around multiples of
// p.
template <class Check>
void for_each_hard_sum(uint32_t p, Random &random, const Check &check) {
    constexpr uint64_t top = uint64_t{1} << 53;
    for (uint64_t k = 1; k <= 3000; k++) check(top - k);
    for (uint64_t k = 0; k < 1000; k++) {
        const uint64_t highest = (top - 1) / p - 1;  // so that its neighbours too are below 2^53
        const uint64_t multiple = p * (k < 500 ? highest - k % highest : below(random, highest) + 1);
        for (uint64_t d = 0; d <= 2; d++) check(multiple - d), check(multiple + d);
    }
    for (uint64_t t = 0; t <= 2 * uint64_t{std::min(p, 1000u)}; t++) check(t);
}

TEST(FloatReduction, IsExactBelowTwoToThe53) {
    Random random(53);
    for (const uint32_t p : moduli_up_to(33554431, random)) {
        const Twin<double> twin(p);
        const modla::FloatRing residue = {twin.p, twin.pinv};
        uint64_t failing = 0;
        for_each_hard_sum(p, random, [&](uint64_t t) {
            const double r = residue.reduce(static_cast<double>(t));
            if (r != static_cast<double>(t % p) || std::signbit(r)) failing = t;
        });
        ASSERT_EQ(failing, 0u) << failing << " mod " << p << " gives " << residue.reduce(static_cast<double>(failing));
    }
}

TEST(WordReduction, IsExactBelowTwoToThe32) {
    Random random(32);
    for (uint32_t p = 2; p <= 65535; p++) {
        const modla::WordRing residue = modla::word_ring(p);
        const uint32_t last = 0xffffffffu / p * p;
        const uint32_t inner = static_cast<uint32_t>(1 + below(random, 0xffffffffu / p)) * p;
        for (const uint32_t t : {0u, 1u, p - 1, p, p + 1, inner - 1, inner, last - 1, last, 0xfffffffeu, 0xffffffffu}) {
            ASSERT_EQ(residue.reduce(t), t % p) << t << " mod " << p;
        }
    }
}

mpz_class residue_of(const mpz_class &x, const mpz_class &p) {
    mpz_class r;
    mpz_fdiv_r(r.get_mpz_t(), x.get_mpz_t(), p.get_mpz_t());
    return r;
}

// ---- Big integers ----

TEST(BigIntegers, HaveTheirResidues) {
    Random random(1);
    for (const int32_t p : {2, 3, 7, 251, 65521, 65535, 10000, 33554393, 33554431}) {
        Roots made;
        std::vector<mpz_class> values;
        for (int k = 0; k < 60; k++) {
            const uint32_t digits = k < 40 ? 1 + below(random, 140u) : 1 + below(random, 5000u);
            mpz_class x = 0;
            for (uint32_t i = 0; i < digits; i++) x = x * 10 + (chance(random, 20) ? 9 : below(random, 10));
            if (chance(random, 30)) x *= p;
            x += (x < 1 << 30 ? mpz_class(1 << 30) * p : mpz_class(0));  // not immediate
            values.push_back(chance(random, 50) ? x : mpz_class(-x));
            const Object object = integer_object(values.back());
            made.values.push_back(object);
            const mpz_class r = residue_of(values.back(), p), negative = values.back() < 0 && r == 0 ? mpz_class(p) : r;
            EXPECT_EQ(modtolvexint_f(object, p, 0, 1.0000000000000002 / p), negative);
            if (p < 65536) {
                const uint32_t word = static_cast<uint32_t>(p);
                EXPECT_EQ(modtolvexint_iw(object, word), negative);
                EXPECT_EQ(modeval_iw(&host_api(), word, object, nullptr, nullptr, 0), negative);
            }
            EXPECT_EQ(modeval_f(&host_api(), p, 0, object, nullptr, nullptr, 0, 1.0000000000000002 / p), negative);
        }
        const Object list = new_collection(type_list, made.values);
        for (const char *datatype : {"integer[4]", "float[8]"}) {
            if (p > 65535 && *datatype == 'i') continue;
            const Object result = call_entry_point(modLA_Mod, {immediate(p), list, eval(datatype)});
            for (int32_t k = 0; k < 60; k++) {
                ASSERT_EQ(integer_of(get_entry_integer(table_of(result), k + 1, 1)),
                          residue_of(values[static_cast<size_t>(k)], p))
                    << k << " mod " << p;
            }
        }
    }
}

}  // namespace
