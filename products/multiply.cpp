#include "host/arguments.h"
#include "host/modulus.h"
#include "host/rtable.h"
#include "modla.h"
#include "products/mat_mult.h"
#include "products/operand.h"
#include "residue/fp_mode.h"

using namespace modla;

namespace {

constexpr int32_t strassen_threshold = 20;  // words: above it a workspace is provided; the kernel decides on its use

struct MultiplyRequest {
    bool scalar_given;
    Block A;  // of a product; not used with a scalar
    Block B;  // the right factor, or the object that is scaled
    Block C;
    bool created;        // C is a new object
    bool scalar_result;  // C is the one-entry slot below, or a 1 x 1 object that a callback writes
    int32_t sparse;
    Scalar modulus, scalar;
    union {
        uint32_t word;
        double real;
        HostObject object;
    } slot;

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
    if (datatype == MODLA_FLOAT8) {
        request->slot.real = 0.0;
    } else {
        request->slot.word = datatype == MODLA_INTEGER ? immediate_integer(0) : 0;
    }
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

template <class Residue>
void scale_block(const Residue &residue, typename Residue::Value s, const Block &B, const Block &C) {
    using Entry = typename Residue::Entry;
    const Entry *const from = static_cast<const Entry *>(B.data);
    Entry *const to = static_cast<Entry *>(C.data);
    walk<2>({row_count(B), column_count(B)}, {steps_of(B), steps_of(C)}, false,
            [=](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                for (int32_t k = 0; k < count; k++) {
                    typename Residue::Value b = from[offsets[0] + (unit ? k : k * inner[0])];
                    if (!residue.is_canonical(b)) b = residue.canonical(b);
                    to[offsets[1] + (unit ? k : k * inner[1])] = residue.multiply(s, b);
                }
            });
}

template <class Residue>
bool holds_residues(const Residue &residue, const Block &block) {
    using Entry = typename Residue::Entry;
    const Entry *const data = static_cast<const Entry *>(block.data);
    bool canonical = true;
    walk<1>({row_count(block), column_count(block)}, {steps_of(block)}, false,
            [&](const auto &offsets, const auto &inner, int32_t count, auto unit) {
                for (int32_t k = 0; k < count; k++) {
                    canonical &= residue.is_canonical(data[offsets[0] + (unit ? k : k * inner[0])]);
                }
            });
    return canonical;
}

// The block as a factor: a copy in Alloc memory, with every entry a residue, where the block holds others or where
// writing the result would destroy it; without data when the host had no memory.
template <class Residue>
Block usable_factor(const HostApi *api, const Residue &residue, const Block &block, const Block &C, void **held) {
    using Entry = typename Residue::Entry;
    *held = nullptr;
    if (!overlap(block, C) && with_standard_mode([&] { return holds_residues(residue, block); })) return block;
    const Operand<Entry> copy = copy_operand<Entry>(api, block);
    *held = copy.data;
    Block usable = block;
    usable.data = copy.data;
    if (!copy.data) return usable;
    usable.row_step = static_cast<int32_t>(copy.steps.row);
    usable.column_step = static_cast<int32_t>(copy.steps.column);
    with_standard_mode([&] { scale_block(residue, 1, usable, usable); });
    return usable;
}

// call(A, B, C) runs the kernel of the representation.  False: the host had no memory for copies or a workspace.
template <class Residue, class Call>
bool multiply_natively(const HostApi *api, const Residue &residue, typename Residue::Value s,
                       const MultiplyRequest &request, Call call) {
    const Block &C = request.C;
    void *held_a = nullptr, *held_b = nullptr;
    bool done;
    if (request.scalar_given) {
        Block B = request.B;
        if (overlap(B, C) && !coincide(B, C)) B = usable_factor(api, residue, B, C, &held_b);
        done = B.data != nullptr;
        if (done) with_standard_mode([&] { scale_block(residue, s, B, C); });
    } else {
        const Block A = usable_factor(api, residue, request.A, C, &held_a);
        if (!A.data) return false;
        const Block B = usable_factor(api, residue, request.B, C, &held_b);
        done = B.data && call(A, B, C);
    }
    if (held_b) api->Free(held_b);
    if (held_a) api->Free(held_a);
    return done;
}

bool run_words(const HostApi *api, const MultiplyRequest &request) {
    const uint32_t p = static_cast<uint32_t>(request.modulus.word);
    const double pinv = with_standard_mode([&] { return pinv_of(static_cast<int32_t>(p)); });
    const auto call = [&](const Block &A, const Block &B, const Block &C) {
        HostObject workspace;
        return multiply_words(api, p, pinv, row_count(A), column_count(A), column_count(B),
                              static_cast<const uint32_t *>(A.data), A.row_step, A.column_step,
                              static_cast<const uint32_t *>(B.data), B.row_step, B.column_step,
                              static_cast<uint32_t *>(C.data), C.row_step, C.column_step, request.sparse, nullptr, 0,
                              strassen_threshold, &workspace);
    };
    return multiply_natively(api, make_word(p), static_cast<uint32_t>(request.scalar.word), request, call);
}

bool run_floats(const HostApi *api, const MultiplyRequest &request) {
    const double p = request.modulus.real;
    const double pinv = with_standard_mode([&] { return pinv_of(p); });
    const auto call = [&](const Block &A, const Block &B, const Block &C) {
        HostObject workspace;
        return multiply_floats(
            api, p, pinv, row_count(A), column_count(A), column_count(B), static_cast<const double *>(A.data),
            A.row_step, A.column_step, static_cast<const double *>(B.data), B.row_step, B.column_step,
            static_cast<double *>(C.data), C.row_step, C.column_step, request.sparse, nullptr, 0, &workspace);
    };
    return multiply_natively(api, Float{p, pinv}, request.scalar.real, request, call);
}

// ---- Callbacks

bool call_scale(const HostApi *api, const HostObject *args, MultiplyRequest &request) {
    View B, C;
    if (!make_operand_view(api, request.B, request.C, true, &B) || !make_block_view(api, request.C, &C)) return false;
    const HostObject m = api->ToInteger(row_count(request.B)), n = api->ToInteger(column_count(request.B));
    const HostObject s = request.scalar.object;
    if (!is_shifted(B) && !is_shifted(C)) {
        api->CallProcedure(modLA_getfcn(api, "cbScalMult"), 6, args[1], m, n, s, B.object, C.object);
        return true;
    }
    api->CallProcedure(modLA_getfcn(api, "cbScalMultShift"), 10, args[1], m, n, s, B.object,
                       api->ToInteger(B.row_shift), api->ToInteger(B.column_shift), C.object,
                       api->ToInteger(C.row_shift), api->ToInteger(C.column_shift));
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
    if (!is_shifted(A) && !is_shifted(B) && !is_shifted(C)) {
        api->CallProcedure(modLA_getfcn(api, "cbMatMult"), 7, args[1], m, k, n, A.object, B.object, C.object);
        return true;
    }
    api->CallProcedure(modLA_getfcn(api, "cbMatMultShift"), 13, args[1], m, k, n, A.object, api->ToInteger(A.row_shift),
                       api->ToInteger(A.column_shift), B.object, api->ToInteger(B.row_shift),
                       api->ToInteger(B.column_shift), C.object, api->ToInteger(C.row_shift),
                       api->ToInteger(C.column_shift));
    return true;
}

HostObject scalar_object(const HostApi *api, const MultiplyRequest &request) {
    switch (request.C.datatype) {
        case MODLA_INTEGER4:
            return api->ToInteger(static_cast<int32_t>(request.slot.word));
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
    } else if (request.first().datatype == MODLA_INTEGER4) {
        done = run_words(api, request);
    } else if (request.first().datatype == MODLA_FLOAT8) {
        done = run_floats(api, request);
    } else {
        done = (request.scalar_given ? call_scale : call_multiply)(api, args, request);
    }
    if (!done) return api->NullValue();
    if (request.scalar_result) return scalar_object(api, request);
    return request.created ? request.C.object : api->NullValue();
}
