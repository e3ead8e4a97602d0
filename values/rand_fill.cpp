// Random residues from the C library's rand(), which is used with the process's own seed.
#include "values/rand_fill.h"

#include <cstdlib>

#include "host/raise.h"
#include "modla.h"
#include "residue/fp_mode.h"
#include "residue/ring.h"

using namespace modla;

namespace {

// Draws above the largest multiple of p are rejected, so every residue is equally likely.
template <class Entry>
void fill(const HostApi *api, Shape shape, Operand<Entry> to, uint32_t p) {
    const uint32_t k = p ? 0x80000000u / p : 0;
    if (static_cast<int32_t>(k) <= 0) {
        fail(api, "problem with rand() and modulus");
        return;
    }
    const uint32_t limit = p * k - 1;
    for (int32_t i = 0; i < shape.rows; i++) {
        for (int32_t j = 0; j < shape.columns; j++) {
            uint32_t r;
            do r = static_cast<uint32_t>(std::rand()) & 0x7fffffff;
            while (r > limit);
            to.at(i, j) = r % p;
        }
    }
}

}  // namespace

void modla::fill_randomly(const HostApi *api, const Block &block, const Scalar &modulus) {
    if (block.datatype == MODLA_INTEGER4) {
        fill(api, shape_of(block), operand_of<uint32_t>(block), static_cast<uint32_t>(modulus.word));
    } else {
        fill(api, shape_of(block), operand_of<StoredDouble>(block), modulus_of(modulus.real));
    }
}

void rand_fill_iw(const HostApi *api, int32_t rows, int32_t cols, uint32_t *storage, int32_t rstride, int32_t cstride,
                  uint32_t p) {
    fill<uint32_t>(api, {rows, cols}, {storage, {rstride, cstride}}, p);
}

void rand_fill_f(const HostApi *api, int32_t rows, int32_t cols, double *storage, int32_t rstride, int32_t cstride,
                 double p) {
    const uint32_t modulus =
        with_standard_mode([&] { return p >= 1 && p <= 4294967295.0 ? static_cast<uint32_t>(p) : uint32_t{0}; });
    fill<StoredDouble>(api, {rows, cols}, {entries(storage), {rstride, cstride}}, modulus);
}
