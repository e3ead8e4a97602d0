// Work memory from the host.
#pragma once

#include <cstdint>

#include "host/table.h"
#include "modla.h"

namespace modla {

// Memory for count entries; null for some when the host, whose errors then return, could not give it.  A size beyond 32
// bits is asked for as the largest that there is, which no host can hold: its error is raised.
template <class Entry>
Entry *allocate(const HostApi *api, uint64_t count) {
    const uint64_t bytes = count > UINT32_MAX / sizeof(Entry) ? UINT32_MAX : count * sizeof(Entry);
    return static_cast<Entry *>(api->Alloc(static_cast<uint32_t>(bytes)));
}

// Memory for a copy of a block, by rows; without data when there was none.
template <class Entry>
Operand<Entry> allocate_like(const HostApi *api, const Block &block) {
    const uint64_t rows = static_cast<uint32_t>(row_count(block)), columns = static_cast<uint32_t>(column_count(block));
    return {allocate<Entry>(api, rows * columns), {column_count(block), 1}};
}

}  // namespace modla
