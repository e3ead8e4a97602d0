// Random residues.
#pragma once

#include "host/modulus.h"
#include "host/table.h"
#include "modla.h"

namespace modla {

// Fills a block of words or doubles as rand_fill_iw and rand_fill_f do, row by row.
void fill_randomly(const HostApi *api, const Block &block, const Scalar &modulus);

}  // namespace modla
