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

enum class Outcome {
    made,
    refused,  // an error of the host came back
    unread    // with any_entries: there was no memory to reduce them in
};

// modLA_MatMult_iw and modLA_MatMult_f.  With any_entries, which the engine must serve, A and B may hold other entries than
// residues.  created: the workspace object, or 0.  C is written only where the product was made.
Outcome multiply(const HostApi *api, const WordRing &ring, const Product<uint32_t> &product,
                 const Workspace<uint32_t> &given, HostObject *created, bool any_entries = false);
Outcome multiply(const HostApi *api, const FloatRing &ring, const Product<StoredDouble> &product,
                 const Workspace<StoredDouble> &given, HostObject *created, bool any_entries = false);

}  // namespace modla
