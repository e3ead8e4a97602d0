#include "products/general_product.h"

#include <algorithm>

#include "engine/gemm.h"
#include "host/rtable.h"
#include "products/blas_product.h"
#include "products/classical.h"
#include "products/strassen.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

// The given workspace, or a new host object's storage when it is too short.  A size beyond 31 bits is asked for as the
// largest that there is, which no host can hold: its error is raised.
template <class Entry>
bool provide(const HostApi *api, const Workspace<Entry> &given, int64_t needed, int32_t datatype, Entry **workspace,
             HostObject *created) {
    *workspace = given.entries;
    if (given.length >= needed) return true;
    Block block;
    const int32_t entries = static_cast<int32_t>(std::min<int64_t>(needed, INT32_MAX));
    if (!new_block(api, 1, entries, datatype, MODLA_C_ORDER, &block)) return false;
    *workspace = static_cast<Entry *>(block.data);
    *created = block.object;
    return true;
}

// The engine's product, where it is faster than the routes below.  It takes no memory of the host.
template <class Ring, class Entry = typename Ring::Entry>
bool multiply_packed(const Ring &ring, const Product<Entry> &product, bool any_entries) {
    // Words are divided twice for every entry of the result, where the plain product of small ones divides by multiplying.
    constexpr int64_t least_vector_product = std::is_same_v<Entry, uint32_t> ? 1024 : 64;
    if (product.m == 1 || product.n == 1) return multiply_vector(ring, product, least_vector_product);
    const uint32_t p = modulus_of(ring.p);
    const auto &[m, k, n, A, B, C, sparse] = product;
    if (!gemm_serves(p, m, k, n, A, B, C)) return false;
    return with_standard_mode([&, m = m, k = k, n = n, A = A, B = B, C = C] {
        return gemm(p, Update::store, m, k, n, A, B, C, any_entries);
    });
}

}  // namespace

Outcome modla::multiply(const HostApi *api, const WordRing &ring, const Product<uint32_t> &product,
                        const Workspace<uint32_t> &given, HostObject *created, bool any_entries) {
    *created = 0;
    const int32_t m = product.m, k = product.k, n = product.n;
    if (std::min({m, k, n}) <= std::max(given.threshold, 1)) {
        if (multiply_packed(ring, product, any_entries)) return Outcome::made;
        if (any_entries) return Outcome::unread;
        multiply_classically(ring, product);
        return Outcome::made;
    }
    uint32_t *workspace;
    if (!provide(api, given, strassen_workspace(m, k, n), MODLA_INTEGER4, &workspace, created)) return Outcome::refused;
    if (multiply_packed(ring, product, any_entries)) return Outcome::made;
    if (any_entries) return Outcome::unread;
    multiply_by_strassen(ring, product, workspace, std::max(given.threshold, strassen_words_break_even));
    return Outcome::made;
}

Outcome modla::multiply(const HostApi *api, const FloatRing &ring, const Product<StoredDouble> &product,
                        const Workspace<StoredDouble> &given, HostObject *created, bool any_entries) {
    *created = 0;
    const int32_t m = product.m, k = product.k, n = product.n;
    const int32_t L = delay_bound(ring);
    if (k > 1 && k <= L) {
        if (multiply_packed(ring, product, any_entries)) return Outcome::made;
        if (any_entries) return Outcome::unread;
        with_standard_mode([&] { multiply_with_blas(ring, product); });
        return Outcome::made;
    }
    const BlasRecursion recursion = blas_recursion(m, k, n, L);
    const bool blas_base = int64_t{recursion.m} * recursion.n > blas_recursion_least;
    if (k == 1 || (!blas_base && !with_standard_mode([&] { return strassen_pays(m, k, n); }))) {
        if (multiply_packed(ring, product, any_entries)) return Outcome::made;
        if (any_entries) return Outcome::unread;
        with_standard_mode([&] { multiply_classically(ring, product); });
        return Outcome::made;
    }
    StoredDouble *workspace;
    const int64_t needed = blas_base ? recursion.workspace : strassen_workspace(m, k, n);
    if (!provide(api, given, needed, MODLA_FLOAT8, &workspace, created)) return Outcome::refused;
    if (multiply_packed(ring, product, any_entries)) return Outcome::made;
    if (any_entries) return Outcome::unread;
    with_standard_mode([&] { multiply_by_strassen(ring, product, workspace, L, blas_base); });
    return Outcome::made;
}
