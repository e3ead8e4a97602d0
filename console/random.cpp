// The process's rand.  The library takes random residues from it, and the low bits of the C library's generator are
// linear: every random Matrix modulo 2 with more than 496 rows and columns would have rank 496.
#include <cstdlib>
#include <random>

namespace {

std::mt19937_64 &generator() {
    static std::mt19937_64 instance(1);
    return instance;
}

}  // namespace

extern "C" int rand() noexcept {
    return static_cast<int>(generator()() >> 33);
}

extern "C" void srand(unsigned seed) noexcept {
    generator().seed(seed);
}
