// The process's C heap, as far as libmodla.so uses it: kernels take memory for packed operands there, and give it back
// before they return.  Noted as work memory, it is taken back when a call is abandoned, which it cannot be while the heap
// is at work.
#include <cstddef>
#include <new>

#include "console/heap.h"
#include "console/host.h"

namespace {

template <class Take>
void *take_memory(Take take) {
    if (!modla::console::enter_operation()) return take();
    void *memory = take();
    if (memory) modla::console::lend(memory);
    modla::console::leave_operation();
    return memory;
}

}  // namespace

extern "C" {

void *__libc_malloc(size_t bytes);
void *__libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void *memory);

void *malloc(size_t bytes) noexcept {
    return take_memory([=] { return __libc_malloc(bytes); });
}

void *memalign(size_t alignment, size_t bytes) noexcept {
    return take_memory([=] { return __libc_memalign(alignment, bytes); });
}

void free(void *memory) noexcept {
    if (!modla::console::enter_operation()) return __libc_free(memory);
    if (!modla::console::return_memory(memory)) __libc_free(memory);
    modla::console::leave_operation();
}
}
