#include "host/arguments.h"
#include "host/native.h"
#include "host/rtable.h"
#include "host/subspec.h"
#include "modla.h"
#include "products/copy_operand.h"

using namespace modla;

namespace {

struct AddMultRequest {
    HostObject multiplier;  // 0 when none was given
    Block A, B, C;
    bool created;  // C is a new object
    Scalar modulus, c;
};

// A number given as multiplier as a host integer, halves rounded upward; -1, which is out of range, for what is no
// machine integer.
HostObject rounded_multiplier(const HostApi *api, HostObject number) {
    const double d = api->ToDouble(number);
    const int32_t rounded = with_standard_mode([&] {
        const double r = floor_double(d + 0.5);
        return r >= -2147483648.0 && r <= 2147483647.0 ? static_cast<int32_t>(r) : -1;
    });
    return api->ToInteger(rounded);
}

// The output block, or a new object; sparse tells whether that option was read in its place.
bool read_sum(const HostApi *api, const HostObject *args, int32_t *position, int32_t n, AddMultRequest *request,
              bool *sparse) {
    const Block &A = request->A;
    *sparse = false;
    request->created = !(*position <= n && !is_immediate(args[*position]) && api->IsRtable(args[*position]));
    if (!request->created) {
        return read_block(api, args, position, n, {A.datatype, A.rows, A.columns}, &request->C);
    }
    int32_t order = -1;
    if (*position <= n) {
        const HostObject argument = args[*position];
        *sparse = is_keyword(api, argument, "sparse");
        if (!*sparse && !is_ordering(api, argument, &order)) {
            return fail(api, "expected output object, ordering, or sparse option for argument %1, got %2",
                        api->ToInteger(*position), argument);
        }
        ++*position;
    }
    if (order == -1) {
        order = A.order;
        if (order != request->B.order) {
            return fail(api, "must specify output ordering when input arguments have different ordering");
        }
    }
    return new_block(api, A.rows, A.columns, A.datatype, order, &request->C);
}

bool read_add_mult(const HostApi *api, const HostObject *args, AddMultRequest *request) {
    const int32_t n = static_cast<int32_t>(api->NumArgs(args));
    if (n < 3) return fail(api, "too few arguments");
    if (!check_modulus_argument(api, args)) return false;
    int32_t position = 3;
    request->multiplier = args[2];
    if (!api->IsInteger(args[2])) {
        if (api->IsNumeric(args[2])) {
            request->multiplier = rounded_multiplier(api, args[2]);
        } else if (api->IsRtable(args[2])) {
            request->multiplier = 0;
            position = 2;
        } else {
            return fail(api, "argument 2 must be a multiplier or a modp Matrix/Vector");
        }
    }
    Block &A = request->A;
    if (!read_block(api, args, &position, n, {-1, -1, -1, true}, &A)) return false;
    if (position > n) return fail(api, "too few arguments");
    if (!read_block(api, args, &position, n, {A.datatype, A.rows, A.columns, true}, &request->B)) return false;
    bool sparse;
    if (!read_sum(api, args, &position, n, request, &sparse)) return false;
    if (!sparse && position <= n) {
        if (!is_keyword(api, args[position], "sparse")) {
            return fail(api, "expected sparse option for argument %1, got %2", api->ToInteger(position),
                        args[position]);
        }
        position++;
    }
    if (!check_no_more(api, args, position, n)) return false;
    const HostObject *const multiplier = request->multiplier ? &request->multiplier : nullptr;
    return check_modulus(api, args[1], &request->modulus, A.datatype, multiplier, &request->c, "multiplier", 1);
}

// The block itself, or a copy in host memory where writing C in its own order would destroy entries still to be read;
// without data when the host had no memory.
template <class Entry>
Operand<const Entry> readable(const HostApi *api, const Block &block, const Block &C, Entry **held) {
    *held = nullptr;
    if (!overlap(block, C) || coincide(block, C)) return operand_of<const Entry>(block);
    const Operand<Entry> copy = copy_operand<Entry>(api, block);
    *held = copy.data;
    return copy;
}

template <class Ring, class Entry>
void add_entries(const Ring &ring, typename Ring::Value c, Shape shape, Operand<const Entry> A, Operand<const Entry> B,
                 Operand<Entry> C) {
    using Value = typename Ring::Value;
    walk<3>(shape, {A.steps, B.steps, C.steps}, false,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                const Entry *const a = A.data + offsets[0];
                const Entry *const b = B.data + offsets[1];
                Entry *const s = C.data + offsets[2];
                const auto entry_a = [&](int32_t k) -> Value { return a[unit ? k : k * inner[0]]; };
                const auto entry_b = [&](int32_t k) -> Value { return b[unit ? k : k * inner[1]]; };
                bool canonical = true;
                for (int32_t k = 0; k < count; k++) {
                    canonical &= ring.is_canonical(entry_a(k)) & ring.is_canonical(entry_b(k));
                }
                for (int32_t k = 0; k < count; k++) {
                    Value x = entry_a(k), y = entry_b(k);
                    if (!canonical) x = ring.canonical(x), y = ring.canonical(y);
                    s[unit ? k : k * inner[2]] = ring.multiply_add(c, y, x);
                }
            });
}

template <class Ring>
bool add_blocks(const HostApi *api, const Ring &ring, const AddMultRequest &request) {
    using Entry = typename Ring::Entry;
    const Block &C = request.C;
    Entry *held_a, *held_b;
    const Operand<const Entry> A = readable(api, request.A, C, &held_a);
    if (!A.data) return false;
    const Operand<const Entry> B = readable(api, request.B, C, &held_b);
    const auto c = entry_of<Entry>(request.c);
    if (B.data) {
        with_standard_mode([&] { add_entries(ring, c, shape_of(request.A), A, B, operand_of<Entry>(C)); });
    }
    if (held_b) api->Free(held_b);
    if (held_a) api->Free(held_a);
    return B.data != nullptr;
}

bool call_add_mult(const HostApi *api, const HostObject *args, const AddMultRequest &request) {
    View A, B, C;
    if (!make_operand_view(api, request.A, request.C, true, &A) ||
        !make_operand_view(api, request.B, request.C, true, &B) || !make_block_view(api, request.C, &C)) {
        return false;
    }
    const HostObject rows = api->ToInteger(row_count(request.A)), columns = api->ToInteger(column_count(request.A));
    call_on_views(api, "cbAddMult", "cbAddMultShift", {args[1], rows, columns, request.c.object}, {A, B, C});
    return true;
}

}  // namespace

HostObject modLA_AddMult(const HostApi *api, const HostObject *args) {
    AddMultRequest request;
    if (!read_add_mult(api, args, &request)) return api->NullValue();
    bool done = true;
    if (request.A.empty) {
        if (request.created) clear_block(request.C);
    } else if (request.A.datatype == MODLA_INTEGER) {
        done = call_add_mult(api, args, request);
    } else {
        done = with_ring(request.A.datatype, request.modulus,
                         [&](const auto &ring) { return add_blocks(api, ring, request); });
    }
    return done && request.created ? request.C.object : api->NullValue();
}
