#include <malloc.h>
#include <stdlib.h>
#include <sys/mman.h>

#include "engine/gemm_task.h"

// Fresh pages cost more than packing does: a page of 4 KiB takes about as long as packing 10,000 bytes, one of 2 MiB as
// long as 75 of these.  What is small comes from memory that the heap keeps; the rest asks for large pages.
void *modla::take_packing_memory(size_t bytes) {
    constexpr size_t page = size_t{2} << 20;
    if (bytes <= kept_packing_memory || bytes > PTRDIFF_MAX - page) return malloc(bytes);
    bytes = (bytes + page - 1) / page * page;
    void *const memory = memalign(page, bytes);
    if (memory) madvise(memory, bytes, MADV_HUGEPAGE);
    return memory;
}
