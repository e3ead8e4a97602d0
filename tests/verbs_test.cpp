// The verbs over the integers against FLINT, on random Matrices of all kinds: small and large entries, any rank, sparse.
#include <flint/fmpz_mat.h>
#include <gmpxx.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/random.h"

namespace {

using namespace modla_test;

// What a command prints, errors too.
std::string output_of(const std::string &command) {
    FILE *const pipe =
        popen(("PATH=" + std::filesystem::path(MODLA_CONSOLE).parent_path().string() + ":$PATH; exec 2>&1; " + command)
                  .c_str(),
              "r");
    std::string output;
    for (int c; (c = std::getc(pipe)) != EOF;) output += static_cast<char>(c);
    pclose(pipe);
    return output;
}

std::string text_of(const fmpz_t x) {
    char *const digits = fmpz_get_str(nullptr, 10, x);
    std::string text = digits;
    flint_free(digits);
    return text;
}

void write(const std::string &name, const fmpz_mat_t A) {
    std::ofstream file(name);
    file << A->r << " " << A->c << " M\n";
    for (slong i = 0; i < A->r; i++) {
        for (slong j = 0; j < A->c; j++) {
            if (!fmpz_is_zero(fmpz_mat_entry(A, i, j)))
                file << i + 1 << " " << j + 1 << " " << text_of(fmpz_mat_entry(A, i, j)) << "\n";
        }
    }
    file << "0 0 0\n";
}

// X = N/d as the verb writes it.
std::string solution_text(const fmpz_mat_t N, const fmpz_t d) {
    std::string lines;
    bool fractions = false;
    for (slong i = 0; i < N->r; i++) {
        for (slong j = 0; j < N->c; j++) {
            mpq_class x;
            fmpz_get_mpz(x.get_num_mpz_t(), fmpz_mat_entry(N, i, j));
            fmpz_get_mpz(x.get_den_mpz_t(), d);
            x.canonicalize();
            fractions = fractions || x.get_den() != 1;
            if (x != 0) lines += std::to_string(i + 1) + " " + std::to_string(j + 1) + " " + x.get_str() + "\n";
        }
    }
    return std::to_string(N->r) + " " + std::to_string(N->c) + (fractions ? " R\n" : " M\n") + lines + "0 0 0\n";
}

// In a directory of their own.
class Verbs : public testing::Test {
  protected:
    Verbs() {
        place_ = std::filesystem::path(testing::TempDir()) / ("modla_verbs_" + std::to_string(getpid()));
        std::filesystem::create_directories(place_);
        std::filesystem::current_path(place_);
    }
    ~Verbs() override {
        std::filesystem::current_path(testing::TempDir());
        std::filesystem::remove_all(place_);
    }

    std::filesystem::path place_;
};

TEST_F(Verbs, AgreeWithFlintOverTheIntegers) {
    Random random(19);
    flint_rand_t state;
    flint_randinit(state);
    fmpz_mat_t A, B, X;
    fmpz_t d;
    fmpz_init(d);
    for (int round = 0; round < (slowness > 1 ? 3 : 12); round++) {
        const slong n = between(random, 1, 14), k = between(random, 1, 3), rank = chance(random, 40) ? n : n / 2 + 1;
        const flint_bitcnt_t bits = static_cast<flint_bitcnt_t>(chance(random, 50) ? 3 : between(random, 1, 150));
        fmpz_mat_init(A, n, n);
        fmpz_mat_init(B, n, k);
        fmpz_mat_init(X, n, k);
        fmpz_mat_randrank(A, state, rank, bits);
        if (chance(random, 60)) fmpz_mat_randops(A, state, 3 * n);
        fmpz_mat_randtest(B, state, bits);
        write("A.sms", A);
        write("B.sms", B);
        const std::string ranks = std::to_string(fmpz_mat_rank(A)) + "\n";
        ASSERT_EQ(output_of("modla rank A.sms 2>/dev/null; modla rank --prove A.sms"), ranks + ranks) << round;
        fmpz_mat_det(d, A);
        const std::string det = text_of(d) + "\n";
        ASSERT_EQ(output_of("modla det A.sms; modla det A.sms --jobs 2; rm -f 1 2; modla det A.sms --shard 2/2 -o 2; "
                            "modla det A.sms --shard 1/2 -o 1; modla combine 1 2"),
                  det + det + det);
        const bool regular = fmpz_mat_solve(X, d, A, B);
        const std::string solution =
            regular ? solution_text(X, d)
                    : "modla solve: the columns of the Matrix are dependent: there is not exactly one solution\n";
        ASSERT_EQ(output_of("modla solve A.sms B.sms; modla solve A.sms B.sms --jobs 3"), solution + solution) << round;
        fmpz_mat_clear(A);
        fmpz_mat_clear(B);
        fmpz_mat_clear(X);
    }
    fmpz_clear(d);
    flint_randclear(state);
}

// A prime that divides the determinant is passed over, the same one in every process.
TEST_F(Verbs, PassOverPrimesThatDivideTheDeterminant) {
    std::ofstream("p.sms") << "2 2 M\n1 1 33554393\n2 2 33554383\n0 0 0\n";
    std::ofstream("e.sms") << "2 1 M\n1 1 1\n2 1 1\n0 0 0\n";
    const std::string solution = "2 1 R\n1 1 1/33554393\n2 1 1/33554383\n0 0 0\n";
    EXPECT_EQ(output_of("modla solve p.sms e.sms; modla solve p.sms e.sms --jobs 2; rm -f s; "
                        "modla solve p.sms e.sms --shard 1/1 -o s; modla combine s"),
              solution + solution + solution);
    EXPECT_EQ(output_of("modla rank --prove p.sms; modla det p.sms"), "2\n1125896954054519\n");
}

// A process that is killed is replaced.
TEST_F(Verbs, SurviveTheDeathOfAProcess) {
    output_of("modla -e 'seed(3); A := Create(1021, 400, 400, random, integer); WriteMatrix(\"A.mtx\", A)'");
    const std::string output = output_of(
        "modla det A.mtx > whole; modla det A.mtx --jobs 2 > shared 2> errors & main=$!; "
        "until read child others < /proc/$main/task/$main/children; [ -n \"$child\" ]; do :; done; kill -9 $child; "
        "wait $main; "
        "cmp whole shared && sed 's/[0-9]\\+/N/g' errors");
    EXPECT_EQ(output, "modla det: process N was ended by signal N with N primes left to do; another one goes on\n");
}

}  // namespace
