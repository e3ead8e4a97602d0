// The documented eliminations on plain integers, every step reduced at once: for composite moduli, statuses and what a
// failing call leaves, the outcome depends on the steps.
#pragma once

#include "tests/support/grid.h"

namespace modla_test {

// One call of a row-reduction kernel: which outputs are wanted, and how.
struct Reduction {
    int32_t p, nrows, ncols, nred, mode;
    bool detonly = false, det = false, pivprod = false, rank = false, pivsig = false, extra = false, pivcols = false;

    // Nullspace rows may lie below the block.
    size_t stored_rows() const { return static_cast<size_t>(pivcols ? std::max(nrows, nred) : nrows); }
};

// Everything that the kernel may write; `untouched` where it has not.
struct Reduced {
    uint32_t status = 0;
    int64_t det = untouched, pivprod = untouched, rank = untouched, pivsig = untouched, extra = untouched;
    Row pivcols;
    Grid A;
    bool operator==(const Reduced &) const = default;
};

inline Reduced blank_reduced(const Reduction &q, const Grid &input) {
    Reduced result;
    result.A = input;
    result.A.resize(q.stored_rows(), Row(static_cast<size_t>(q.ncols), untouched));
    result.pivcols.assign(static_cast<size_t>(q.nrows), untouched);
    return result;
}

inline bool is_zero(const Row &row) {
    return std::all_of(row.begin(), row.end(), [](int64_t x) { return x == 0; });
}

inline Reduced reduce_model(const Reduction &q, Grid A) {
    const int64_t p = q.p;
    Reduced out = blank_reduced(q, A);
    const auto end = [&](uint32_t status) {
        out.status = status;
        if (status != 3) std::copy(A.begin(), A.end(), out.A.begin());
        return out;
    };
    if (q.pivcols && (!q.rank || q.mode == 0 || q.extra)) return end(3);
    if (q.detonly && q.mode != 0) return end(3);
    if ((q.det || q.pivprod) && q.nrows > q.ncols) return end(3);

    const size_t nrows = static_cast<size_t>(q.nrows), ncols = static_cast<size_t>(q.ncols);
    const size_t nred = static_cast<size_t>(q.nred);
    for (Row &row : A) {
        for (int64_t &x : row) x = mod(x, p);
    }
    if (q.det) out.det = 1;
    if (q.pivprod) out.pivprod = 1;
    if (q.pivsig) out.pivsig = 0;
    if (q.extra) out.extra = 0;
    const auto add_multiple = [&](size_t i, int64_t f, size_t s) {
        for (size_t j = 0; j < ncols; j++) A[i][j] = mod(A[i][j] + f * A[s][j], p);
    };
    const auto multiply_output = [&](int64_t *output, int64_t f) {
        if (*output != untouched) *output = mod(*output * f, p);
    };

    size_t r = 0, c = 0;
    bool kept_nonunit = false;
    while (r < nrows && c < ncols) {
        std::vector<size_t> units, nonzeros;
        for (size_t i = r; i < nrows; i++) {
            if (A[i][c] != 0) nonzeros.push_back(i);
            if (std::gcd(A[i][c], p) == 1) units.push_back(i);
        }
        if (nonzeros.empty()) {
            c++;
            continue;
        }
        if (c >= nred) {
            if (!q.extra) return end(2);
            const auto first = A.begin() + static_cast<ptrdiff_t>(r);
            out.extra = std::stable_partition(first, A.end(), [](const Row &row) { return !is_zero(row); }) - first;
            break;
        }
        if (!units.empty()) {
            const size_t s = units.front();
            const int64_t pivot = A[s][c];
            if (q.det && r != c) {
                out.det = 0;
                if (q.detonly) return end(0);
            }
            multiply_output(&out.det, pivot);
            multiply_output(&out.pivprod, pivot);
            if (q.pivsig) out.pivsig += static_cast<int64_t>((r + 1) * c);
            if (s != r) {
                multiply_output(&out.det, -1);
                multiply_output(&out.pivprod, -1);
                std::swap(A[s], A[r]);
            }
            const int64_t scale = inverse(pivot, p);
            for (int64_t &x : A[r]) x = mod(x * scale, p);
            for (size_t i = q.mode != 0 ? 0 : r + 1; i < nrows; i++) {
                if (i != r) add_multiple(i, -A[i][c], r);
            }
            if (q.pivcols) out.pivcols[r] = static_cast<int64_t>(c);
            r++, c++;
        } else if (nonzeros.size() > 1) {
            const auto smaller = [&](size_t a, size_t b) { return A[a][c] < A[b][c]; };
            const size_t t = *std::min_element(nonzeros.begin(), nonzeros.end(), smaller);
            for (const size_t i : nonzeros) {
                if (i != t) add_multiple(i, -(A[i][c] / A[t][c]), t);
            }
        } else {
            const size_t s = nonzeros.front();
            if (q.mode != 2 && !q.detonly) return end(1);
            multiply_output(&out.det, A[s][c]);
            if (q.detonly && out.det == 0) return end(0);
            kept_nonunit = true;
            if (s != r) {
                multiply_output(&out.det, -1);
                std::swap(A[s], A[r]);
            }
            for (size_t i = 0; q.mode == 2 && i < r; i++) {
                add_multiple(i, -(A[i][c] / A[r][c]), r);
            }
            r++, c++;
        }
    }

    if (q.rank) out.rank = static_cast<int64_t>(r);
    if (q.det && r < nrows) out.det = 0;
    if (!q.pivcols) return end(0);
    if (kept_nonunit) return end(4);
    const auto pivots_end = out.pivcols.begin() + static_cast<ptrdiff_t>(r);
    const Grid reduced = A;
    A.resize(std::max(nrows, nred), Row(ncols, untouched));
    for (size_t free = 0, i = r; free < nred; free++) {
        if (std::find(out.pivcols.begin(), pivots_end, free) != pivots_end) continue;
        A[i].assign(ncols, 0);
        A[i][free] = 1;
        // A pivot row is zero before its pivot, so that later pivots get 0.
        for (size_t k = 0; k < r; k++) A[i][static_cast<size_t>(out.pivcols[k])] = mod(-reduced[k][free], p);
        i++;
    }
    return end(0);
}

// ---- LU and substitution ----

struct Factored {
    uint32_t status = 0;
    int64_t det = 1;
    Row perm;
    Grid A;
    bool operator==(const Factored &) const = default;
};

inline Factored factor_model(Grid A, int64_t p) {
    const size_t n = A.size();
    Factored f = {0, 1, Row(n, untouched), {}};
    for (Row &row : A) {
        for (int64_t &x : row) x = mod(x, p);
    }
    for (size_t k = 0; k < n; k++) {
        size_t s = k;
        while (s < n && A[s][k] == 0) s++;
        f.status = s == n ? 2 : std::gcd(A[s][k], p) != 1 ? 1 : 0;
        if (f.status != 0) break;
        f.det = f.det * A[s][k] % p;
        if (s != k) f.det = mod(-f.det, p);
        if (k + 1 < n) f.perm[k] = static_cast<int64_t>(s) + 1;
        std::swap(A[s], A[k]);
        const int64_t scale = inverse(A[k][k], p);
        for (size_t i = k + 1; i < n; i++) {
            const int64_t m = A[i][k] * scale % p;
            for (size_t j = k; j < n; j++) A[i][j] = mod(A[i][j] - m * A[k][j], p);
            A[i][k] = m;
        }
    }
    f.A = A;
    return f;
}

struct Triangle {
    int64_t p;
    bool forward, unit;
    Grid T;
    bool reads(size_t i, size_t j) const { return (forward ? j < i : j > i) || (i == j && !unit); }
    size_t row(size_t step) const { return forward ? step : T.size() - 1 - step; }
};

// Solves as far as it can: the status, and how many rows, in their sequence, were solved.
inline uint32_t solve_model(const Triangle &system, Grid *B, size_t *solved) {
    const int64_t p = system.p;
    for (Row &row : *B) {
        for (int64_t &x : row) x = mod(x, p);
    }
    for (*solved = 0; *solved < system.T.size(); ++*solved) {
        const size_t i = system.row(*solved);
        for (size_t s = 0; s < *solved; s++) {
            const size_t j = system.row(s);
            for (size_t c = 0; c < (*B)[i].size(); c++)
                (*B)[i][c] = mod((*B)[i][c] - mod(system.T[i][j], p) * (*B)[j][c], p);
        }
        if (system.unit) continue;
        const int64_t d = mod(system.T[i][i], p);
        if (d == 0) return 2;
        if (std::gcd(d, p) != 1) return 1;
        const int64_t scale = inverse(d, p);
        for (int64_t &x : (*B)[i]) x = x * scale % p;
    }
    return 0;
}

// ---- Row gcd and zigzag form ----

// What a kernel returned and left.
struct Formed {
    int64_t status = 0;
    Grid A = {};
    bool operator==(const Formed &) const = default;
};

inline int64_t degree(const Row &row) {
    for (size_t j = row.size(); j > 0; j--) {
        if (row[j - 1] != 0) return static_cast<int64_t>(j) - 1;
    }
    return -1;
}

// One long division after the other.
inline Formed gcd_model(Grid rows, int64_t p) {
    for (Row &row : rows) {
        for (int64_t &x : row) x = mod(x, p);
    }
    // b minus the multiple of a that leaves a degree below a's
    const auto reduce_by = [&](Row &b, const Row &a) {
        const int64_t da = degree(a), unit = inverse(a[static_cast<size_t>(da)], p);
        if (unit == 0) return false;
        for (int64_t db = degree(b); db >= da; db = degree(b)) {
            const int64_t quotient = mod(b[static_cast<size_t>(db)] * unit, p);
            for (int64_t j = 0; j <= da; j++) {
                int64_t &x = b[static_cast<size_t>(db - da + j)];
                x = mod(x - quotient * a[static_cast<size_t>(j)], p);
            }
        }
        return true;
    };
    for (size_t i = 1; i < rows.size(); i++) {
        Row &a = rows[0], &b = rows[i];
        while (degree(a) >= 0 && degree(b) >= 0) {
            if (!(degree(a) < degree(b) ? reduce_by(b, a) : reduce_by(a, b))) return {-2, rows};
        }
        if (degree(a) < 0 && degree(b) >= 0) std::swap(a, b);
    }
    return {rows.empty() ? -1 : degree(rows[0]), rows};
}

// Column blocks and row blocks in turn.  A step on the transposed matrix, with the operations on rows and columns
// exchanged, is the step of the other kind.
class ZigZagModel {
  public:
    ZigZagModel(Grid A, int64_t p) : A_(std::move(A)), p_(p), n_(A_.size()) {
        for (Row &row : A_) {
            for (int64_t &x : row) x = mod(x, p);
        }
    }
    Formed run() {
        if (n_ <= 1) return {0, A_};
        size_t k = 0;
        do {
            for (const bool by_rows : {false, true}) {
                transposed_ = by_rows;
                if (!block(&k)) return {1, A_};
            }
        } while (k + 1 < n_);
        return {0, A_};
    }

  private:
    int64_t &at(size_t i, size_t j) { return transposed_ ? A_[j][i] : A_[i][j]; }

    // A block that starts at k, and its coupling with the next one.
    bool block(size_t *start) {
        const size_t k = *start;
        size_t e = k;
        for (size_t j = k; j < n_; j++) {
            size_t i = j + 1;
            while (i < n_ && at(i, j) == 0) i++;
            e = j;
            if (i >= n_) break;
            const int64_t pivot = at(i, j), unit = inverse(pivot, p_);
            if (unit == 0) return false;
            if (i > j + 1) swap_rows(i, j + 1, j), swap_columns(i, j + 1, k);
            scale_row(j + 1, unit, j);
            scale_column(j + 1, pivot, k);
            for (size_t r = k; r < n_; r++) {
                const int64_t m = at(r, j);
                if (r == j + 1 || m == 0) continue;
                add_row(r, p_ - m, j + 1, j);
                add_column(j + 1, m, r, k);
            }
        }
        for (size_t r = e; r > k; r--) {
            for (size_t c = e + 1; c < n_; c++) {
                const int64_t t = std::exchange(at(r, c), 0);
                add_row(r - 1, t, c, e + 1);
            }
        }
        *start = e + 1;
        size_t c = e + 1;
        while (c < n_ && at(k, c) == 0) c++;
        if (c >= n_) return true;
        const int64_t v = at(k, c), unit = inverse(v, p_);
        at(k, c) = at(k, e + 1);
        at(k, e + 1) = 1;
        if (unit == 0) return false;
        if (c > e + 1) swap_rows(c, e + 1, e + 1), swap_columns(c, e + 1, e + 1);
        scale_row(e + 1, v, e + 1);
        scale_column(e + 1, unit, e + 1);
        for (size_t c2 = e + 2; c2 < n_; c2++) {
            const int64_t t = std::exchange(at(k, c2), 0);
            if (t == 0) continue;
            add_row(e + 1, t, c2, e + 1);
            add_column(c2, p_ - t, e + 1, e + 1);
        }
        return true;
    }

    void swap_rows(size_t a, size_t b, size_t from) {
        for (size_t c = from; c < n_; c++) std::swap(at(a, c), at(b, c));
    }
    void swap_columns(size_t a, size_t b, size_t from) {
        for (size_t r = from; r < n_; r++) std::swap(at(r, a), at(r, b));
    }
    void scale_row(size_t a, int64_t f, size_t from) {
        for (size_t c = from; c < n_; c++) at(a, c) = at(a, c) * f % p_;
    }
    void scale_column(size_t a, int64_t f, size_t from) {
        for (size_t r = from; r < n_; r++) at(r, a) = at(r, a) * f % p_;
    }
    void add_row(size_t target, int64_t f, size_t source, size_t from) {
        for (size_t c = from; c < n_; c++) at(target, c) = (at(target, c) + f * at(source, c)) % p_;
    }
    void add_column(size_t target, int64_t f, size_t source, size_t from) {
        for (size_t r = from; r < n_; r++) at(r, target) = (at(r, target) + f * at(r, source)) % p_;
    }

    Grid A_;
    int64_t p_;
    size_t n_;
    bool transposed_ = false;
};

// Is this a chain of column and row blocks, with single ones between them?
inline bool is_zigzag(Grid A) {
    const size_t n = A.size();
    for (size_t k = 0; k < n;) {
        size_t e = k;
        while (e + 1 < n && A[e + 1][e] == 1) A[e + 1][e] = 0, e++;
        for (size_t r = k; r <= e; r++) A[r][e] = 0;  // the free column
        const size_t s = e + 1;
        if (s == n) break;
        if (A[k][s] == 1) A[k][s] = 0;
        size_t f = s;
        while (f + 1 < n && A[f][f + 1] == 1) A[f][f + 1] = 0, f++;
        for (size_t c = s; c <= f; c++) A[f][c] = 0;  // the free row
        k = f + 1;
        if (k < n && A[k][s] == 1) A[k][s] = 0;
    }
    return std::all_of(A.begin(), A.end(), is_zero);
}

}  // namespace modla_test
