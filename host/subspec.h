// A block of an argument: object [, row selection] [, column selection] [, transpose].
#pragma once

#include "host/table.h"
#include "modla.h"

namespace modla {

// What earlier arguments require of a block; -1 = nothing.
struct BlockRequirement {
    int32_t datatype = -1;
    int32_t rows = -1;
    int32_t columns = -1;
    bool allow_transpose = false;
    bool shortcut_only = false;  // the counts only tell how far a block that a single index stands for reaches
};

// process_subspec, telling whether the checks passed.
bool read_block(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                const BlockRequirement &required, Block *out);

}  // namespace modla
