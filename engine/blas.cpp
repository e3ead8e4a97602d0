#include "engine/blas.h"

#include <sys/mman.h>

bool modla::has_blas_workspace() {
    static bool taken = false;
    if (taken) return true;
    const size_t bytes = size_t{32} << 20;  // twice what OpenBLAS asks for
    void *const probe = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (probe == MAP_FAILED) return false;
    munmap(probe, bytes);
    // This product makes OpenBLAS take it, for as long as the library is loaded.
    const double one = 1;
    double product;
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, 1, 1, 1, 1.0, &one, 1, &one, 1, 0.0, &product, 1);
    taken = true;
    return true;
}
