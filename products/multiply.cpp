#include "engine/gemm.h"
#include "engine/rows.h"
#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/subspec.h"
#include "modla.h"
#include "products/copy_operand.h"
#include "products/general_product.h"

using namespace modla;

namespace {

struct MultiplyRequest {
    bool scalar_given;
    Block A;  // of a product; not used with a scalar
    Block B;  // the right factor, or the object that is scaled
    Block C;
    bool created;        // C is a new object
    bool scalar_result;  // C is the one-entry slot below, or a 1 x 1 object that a callback writes
    bool sparse;
    Scalar modulus, scalar;
    Scalar slot;

    const Block &first() const { return scalar_given ? B : A; }
    int32_t rows() const { return first().rows; }
    int32_t columns() const { return B.columns; }
};

bool read_factors(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, MultiplyRequest *request) {
    const HostObject second = args[2];
    request->scalar_given = api->IsInteger(second);
    if (request->scalar_given) {
        *position = 3;
        return read_block(api, args, position, n, {-1, -1, -1, true}, &request->B);
    }
    if (!api->IsRtable(second)) return fail(api, "argument 2 must be a scalar or a modp Matrix/Vector");
    *position = 2;
    const Block &A = request->A;
    if (!read_block(api, args, position, n, {-1, -1, -1, true}, &request->A)) return false;
    if (*position > n) return fail(api, "too few arguments");
    return read_block(api, args, position, n, {A.datatype, A.columns, -1, true}, &request->B);
}

bool take_sparse(const HostApi *api, const HostObject *args, int32_t *position, int32_t n) {
    const bool sparse = *position <= n && is_keyword(api, args[*position], "sparse");
    *position += sparse;
    return sparse;
}

bool make_result(const HostApi *api, int32_t order, MultiplyRequest *request) {
    const int32_t rows = request->rows(), columns = request->columns(), datatype = request->first().datatype;
    if (rows != 0 || columns != 0) {
        request->created = true;
        return new_block(api, rows, columns, datatype, order, &request->C);
    }
    if (request->scalar_given) return fail(api, "cannot perform scalar multiply on a zero dimensional object");
    request->scalar_result = true;
    request->slot = small_scalar(datatype, 0);
    request->C = {0, datatype, order, &request->slot, 0, 1, 0, 1, false};
    return true;
}

bool read_multiply(const HostApi *api, const HostObject *args, MultiplyRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n <= 2) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    int32_t position;
    if (!read_factors(api, args, &position, n, request)) return false;
    const Block &first = request->first();
    int32_t order = first.order;
    if (position <= n && is_ordering(api, args[position], &order)) position++;
    request->sparse = take_sparse(api, args, &position, n);
    request->created = request->scalar_result = false;
    if (position <= n) {
        if (is_immediate(args[position]) || !api->IsRtable(args[position])) {
            return fail(api, "expected output object, ordering, or sparse option for argument %1, got %2",
                        api->ToInteger(position), args[position]);
        }
        const BlockRequirement required = {first.datatype, request->rows(), request->columns()};
        if (!read_block(api, args, &position, n, required, &request->C)) return false;
        if (!request->sparse) request->sparse = take_sparse(api, args, &position, n);
    } else if (!make_result(api, order, request)) {
        return false;
    }
    if (!check_no_more(api, args, position, n)) return false;
    return check_modulus(api, args[1], &request->modulus, first.datatype, request->scalar_given ? &args[2] : nullptr,
                         request->scalar_given ? &request->scalar : nullptr, "scalar", 0);
}

// ---- Native arithmetic

template <class Ring, class Entry>
void scale_entries(const Ring &ring, typename Ring::Value s, Shape shape, Operand<const Entry> from,
                   Operand<Entry> to) {
    walk<2>(shape, {from.steps, to.steps}, false,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                for (int32_t k = 0; k < count; k++) {
                    typename Ring::Value b = from.data[offsets[0] + (unit ? k : k * inner[0])];
                    if (!ring.is_canonical(b)) b = ring.canonical(b);
                    to.data[offsets[1] + (unit ? k : k * inner[1])] = ring.multiply(s, b);
                }
            });
}

template <class Ring, class Entry>
bool holds_residues(const Ring &ring, Shape shape, Operand<const Entry> block) {
    const auto [down, right] = block.steps;
    if ((right == 1 && down == shape.columns) || (down == 1 && right == shape.rows)) {  // one line
        return is_canonical_line(ring, Line<const Entry, UnitStep>{block.data, {}}, shape.rows * shape.columns);
    }
    bool canonical = true;
    walk<1>(shape, {block.steps}, false, [&](const auto &offsets, const auto &inner, int32_t count, auto unit) {
        if (!canonical) return;
        const Entry *const run = block.data + offsets[0];
        if constexpr (unit) {
            canonical = is_canonical_line(ring, Line<const Entry, UnitStep>{run, {}}, count);
        } else {
            canonical = is_canonical_line(ring, Line<const Entry, AnyStep>{run, {inner[0]}}, count);
        }
    });
    return canonical;
}

// The block as a factor: a copy in Alloc memory, with every entry a residue, where the block holds others or where
// writing the result would destroy it; without data when the host had no memory.
template <class Ring, class Entry = typename Ring::Entry>
Operand<const Entry> usable_factor(const HostApi *api, const Ring &ring, const Block &block, const Block &C,
                                   Entry **held) {
    const Operand<const Entry> factor = operand_of<const Entry>(block);
    const Shape shape = shape_of(block);
    *held = nullptr;
    if (!overlap(block, C) && with_standard_mode([&] { return holds_residues(ring, shape, factor); })) return factor;
    const Operand<Entry> copy = copy_operand<Entry>(api, block);
    *held = copy.data;
    if (copy.data) with_standard_mode([&] { scale_entries<Ring, Entry>(ring, 1, shape, copy, copy); });
    return copy;
}

// False: the host had no memory for copies or a workspace.
template <class Ring>
bool multiply_natively(const HostApi *api, const Ring &ring, const MultiplyRequest &request) {
    using Entry = typename Ring::Entry;
    const Block &C = request.C;
    const Operand<Entry> result = operand_of<Entry>(C);
    Operand<const Entry> B = operand_of<const Entry>(request.B);
    Entry *held_a = nullptr, *held_b = nullptr;
    bool done;
    if (request.scalar_given) {
        if (overlap(request.B, C) && !coincide(request.B, C)) B = usable_factor(api, ring, request.B, C, &held_b);
        const auto s = static_cast<typename Ring::Value>(entry_of<Entry>(request.scalar));
        done = B.data != nullptr;
        if (done) with_standard_mode([&] { scale_entries<Ring, Entry>(ring, s, shape_of(request.B), B, result); });
    } else {
        const int32_t m = row_count(request.A), k = column_count(request.A), n = column_count(request.B);
        Product<Entry> product = {m, k, n, operand_of<const Entry>(request.A), B, result, request.sparse};
        const bool apart = !overlap(request.A, C) && !overlap(request.B, C);
        // Looks at the entries itself, which pays early; it needs neither copies nor a workspace.
        if (apart && multiply_vector(ring, product, 64)) return true;
        Workspace<Entry> workspace;
        HostObject created = 0;
        // The engine reduces what it packs, so that factors are read once.
        if (apart && gemm_serves(modulus_of(ring.p), m, k, n, product.A, B, result)) {
            const Outcome outcome = multiply(api, ring, product, workspace, &created, true);
            if (outcome != Outcome::unread) return outcome == Outcome::made;
            if (created) workspace = {static_cast<Entry *>(api->RtableData(created)), INT32_MAX};
        }
        // Both looks in one change of the floating-point mode, which counts for small products.
        const bool usable = apart && with_standard_mode([&] {
                                return holds_residues(ring, {m, k}, product.A) && holds_residues(ring, {k, n}, B);
                            });
        if (!usable) {
            product.A = usable_factor(api, ring, request.A, C, &held_a);
            if (!product.A.data) return false;
            product.B = usable_factor(api, ring, request.B, C, &held_b);
        }
        done = product.B.data && multiply(api, ring, product, workspace, &created) == Outcome::made;
    }
    if (held_b) api->Free(held_b);
    if (held_a) api->Free(held_a);
    return done;
}

// ---- Callbacks

bool call_scale(const HostApi *api, const HostObject *args, MultiplyRequest &request) {
    View B, C;
    if (!make_operand_view(api, request.B, request.C, true, &B) || !make_block_view(api, request.C, &C)) return false;
    const HostObject m = api->ToInteger(row_count(request.B)), n = api->ToInteger(column_count(request.B));
    const HostObject s = request.scalar.object;
    call_on_views(api, "cbScalMult", "cbScalMultShift", {args[1], m, n, s}, {B, C});
    return true;
}

// What a callback receives may be kept: the place of a scalar is the host's, never this call's frame.
bool make_scalar_place(const HostApi *api, MultiplyRequest *request) {
    if (!new_block(api, 1, 1, MODLA_INTEGER, request->C.order, &request->C)) return false;
    *static_cast<HostObject *>(request->C.data) = immediate_integer(0);
    return true;
}

bool call_multiply(const HostApi *api, const HostObject *args, MultiplyRequest &request) {
    if (request.scalar_result && !make_scalar_place(api, &request)) return false;
    View A, B, C;
    if (!make_operand_view(api, request.A, request.C, false, &A) ||
        !make_operand_view(api, request.B, request.C, false, &B) || !make_block_view(api, request.C, &C)) {
        return false;
    }
    const HostObject m = api->ToInteger(row_count(request.A)), k = api->ToInteger(column_count(request.A));
    const HostObject n = api->ToInteger(column_count(request.B));
    call_on_views(api, "cbMatMult", "cbMatMultShift", {args[1], m, k, n}, {A, B, C});
    return true;
}

HostObject scalar_object(const HostApi *api, const MultiplyRequest &request) {
    switch (request.C.datatype) {
        case MODLA_INTEGER4:
            return api->ToInteger(request.slot.word);
        case MODLA_FLOAT8:
            return api->ToFloat(request.slot.real);
        default:
            return *static_cast<const HostObject *>(request.C.data);
    }
}

}  // namespace

HostObject modLA_Multiply(const HostApi *api, const HostObject *args) {
    MultiplyRequest request = {};
    if (!read_multiply(api, args, &request)) return api->NullValue();
    bool done = true;
    if (request.first().empty || request.B.empty || request.C.empty) {
        clear_block(request.C);
    } else if (request.first().datatype == MODLA_INTEGER) {
        done = (request.scalar_given ? call_scale : call_multiply)(api, args, request);
    } else {
        done = with_ring(request.first().datatype, request.modulus,
                         [&](const auto &ring) { return multiply_natively(api, ring, request); });
    }
    if (!done) return api->NullValue();
    if (request.scalar_result) return scalar_object(api, request);
    return request.created ? request.C.object : api->NullValue();
}
