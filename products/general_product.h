// Any product of residues: which kernel, and the workspace that it needs.
#pragma once

#include "modla.h"
#include "products/product.h"
#include "products/product_choice.h"
#include "residue/ring.h"

namespace modla {

// What a caller lends, or nothing; and for words the size above which the recursion may be entered.
template <class Entry>
struct Workspace {
    Entry *entries = nullptr;
    int32_t length = 0;
    int32_t threshold = strassen_words_threshold;
};

// modLA_MatMult_iw and modLA_MatMult_f.  created: the workspace object, or 0.  False after an error of the host that came
// back; C is not written then.
bool multiply(const HostApi *api, const WordRing &ring, const Product<uint32_t> &product,
              const Workspace<uint32_t> &given, HostObject *created);
bool multiply(const HostApi *api, const FloatRing &ring, const Product<StoredDouble> &product,
              const Workspace<StoredDouble> &given, HostObject *created);

}  // namespace modla
