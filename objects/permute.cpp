#include <algorithm>
#include <utility>

#include "host/arguments.h"
#include "host/native.h"
#include "modla.h"

using namespace modla;

namespace {

// The lines (rows or columns) of the object that are exchanged.
struct Lines {
    void *data;
    int32_t datatype;
    int32_t count;                    // lines
    int32_t length;                   // entries of a line
    ptrdiff_t line_step, inner_step;  // from line to line, within a line
};

struct PermuteRequest {
    Lines lines;
    Permutation permutation;
    int32_t permute_rows, reverse;
};

bool read_lines(const HostApi *api, HostObject object, const RtableSettings &settings, bool rows,
                int32_t permutation_length, Lines *lines) {
    const char *too_short = nullptr;
    if (settings.subtype == MODLA_MATRIX) {
        const Extent extent = matrix_extent(api, object);
        lines->count = rows ? extent.rows : extent.columns;
        lines->length = rows ? extent.columns : extent.rows;
        const bool contiguous = (settings.order == MODLA_C_ORDER) == rows;
        lines->line_step = contiguous ? lines->length : 1;
        lines->inner_step = contiguous ? 1 : lines->count;
        too_short = rows ? "must have at least one less element than the number of rows in the Matrix"
                         : "must have at least one less element than the number of columns in the Matrix";
    } else if (settings.subtype == MODLA_ROW_VECTOR || settings.subtype == MODLA_COLUMN_VECTOR) {
        const bool row_vector = settings.subtype == MODLA_ROW_VECTOR;
        if (row_vector && rows) return fail(api, "cannot specify a row permutation on a row vector");
        if (!row_vector && !rows) return fail(api, "cannot specify a column permutation on a column vector");
        lines->count = api->RtableUpperBound(object, 1);
        lines->length = lines->line_step = lines->inner_step = 1;
        too_short = row_vector ? "must have at least one less element than the number of columns in the Vector"
                               : "must have at least one less element than the number of rows in the Vector";
    } else {
        return fail_argument(api, 3, "must be a Matrix or Vector");
    }
    lines->data = api->RtableData(object);
    lines->datatype = settings.datatype;
    return permutation_length >= lines->count - 1 || fail_argument(api, 2, too_short);
}

bool read_permute(const HostApi *api, const HostObject *args, PermuteRequest *request) {
    if (api->NumArgs(args) != 5) return fail(api, "incorrect number of arguments");
    if (!check_modulus_argument(api, args)) return false;
    RtableSettings settings;
    Scalar modulus;
    return check_rtable(api, args, 2, "permutation") && check_rtable(api, args, 3, "object to be permuted") &&
           read_settings(api, args, 3, &settings) && read_boolean(api, args, 4, &request->permute_rows) &&
           read_boolean(api, args, 5, &request->reverse) && read_permutation(api, args, 2, &request->permutation) &&
           read_lines(api, args[3], settings, request->permute_rows != 0, request->permutation.length,
                      &request->lines) &&
           check_modulus(api, args[1], &modulus, settings.datatype);
}

// Entry k, from 1, of a permutation; 0 when it is no immediate integer.
int32_t transposition(const Permutation &permutation, int32_t k) {
    const int32_t entry = permutation.entries[k - 1];
    if (!permutation.host_integers) return entry;
    const HostObject object = static_cast<HostObject>(entry);
    return is_immediate(object) ? integer_value(object) : 0;
}

// The line that step s (from 0) exchanges, and the one it exchanges it with; both from 0.
struct Step {
    int32_t line, partner;
    bool valid;
};

Step step_at(const PermuteRequest &request, int32_t s) {
    const int32_t count = request.lines.count;
    const int32_t k = request.reverse ? count - 1 - s : s + 1;
    const int32_t t = transposition(request.permutation, k);
    return {k - 1, t - 1, t >= 1 && t <= count};
}

// Makes steps first..end-1, all valid.
template <class Entry>
void make_steps(const PermuteRequest &request, int32_t first, int32_t end) {
    const Lines &lines = request.lines;
    Entry *const start = static_cast<Entry *>(lines.data);
    if (lines.inner_step == 1) {
        for (int32_t s = first; s < end; s++) {
            const Step step = step_at(request, s);
            if (step.partner == step.line) continue;
            std::swap_ranges(start + step.line * lines.line_step, start + step.line * lines.line_step + lines.length,
                             start + step.partner * lines.line_step);
        }
        return;
    }
    // Interleaved lines: all steps on one entry of every line, which lie together, then on the next.  A single step is
    // read once: it may move its own entry of the permutation.
    const auto exchange = [&](const Step &step, int32_t e) {
        Entry *const entries = start + e * lines.inner_step;
        std::swap(entries[step.line * lines.line_step], entries[step.partner * lines.line_step]);
    };
    if (end - first == 1) {
        const Step step = step_at(request, first);
        for (int32_t e = 0; e < lines.length; e++) exchange(step, e);
        return;
    }
    for (int32_t e = 0; e < lines.length; e++) {
        for (int32_t s = first; s < end; s++) exchange(step_at(request, s), e);
    }
}

bool shares_storage(const PermuteRequest &request) {
    const Lines &lines = request.lines;
    const char *const a = static_cast<const char *>(lines.data);
    const char *const a_end =
        static_cast<const char *>(entry_address(lines.data, lines.datatype, int64_t{lines.count} * lines.length));
    const char *const p = reinterpret_cast<const char *>(request.permutation.entries);
    return p < a_end && a < p + 4 * static_cast<ptrdiff_t>(request.permutation.length);
}

// Makes the steps up to the first invalid one: false when there is one.
template <class Entry>
bool permute(const PermuteRequest &request) {
    const bool shared = shares_storage(request);  // then entries are read as earlier steps left them
    int32_t s = 0;
    for (; s < request.lines.count - 1 && step_at(request, s).valid; s++) {
        if (shared) make_steps<Entry>(request, s, s + 1);
    }
    if (!shared) make_steps<Entry>(request, 0, s);
    return s >= request.lines.count - 1;
}

}  // namespace

HostObject modLA_Permute(const HostApi *api, const HostObject *args) {
    PermuteRequest request;
    if (!read_permute(api, args, &request)) return api->NullValue();
    const bool valid =
        with_entry(request.lines.datatype, {}, [&](auto entry) { return permute<decltype(entry)>(request); });
    if (!valid) fail(api, "invalid permutation vector");
    return api->NullValue();
}
