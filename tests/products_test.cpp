// Products and sums of blocks: the kernels on every layout against a plain model and FLINT, and Multiply as programs
// call it.
#include <flint/flint.h>
#include <flint/nmod_mat.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <numeric>

#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "tests/fault_pairs.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::current_fp_mode, modla_test::error_of, modla_test::eval;
using modla_test::foreign_fp_modes, modla_test::keeps_fp_mode, modla_test::make_table, modla_test::pick;
using modla_test::raised_messages, modla_test::Random, modla_test::recording_host, modla_test::run;
using modla_test::set_name, modla_test::storage_of;

namespace {

using Row = std::vector<uint64_t>;
using Grid = std::vector<Row>;

// ---- The model ----

// Sums of fewer than 2^14 products of entries below 2^25.
Grid product(const Grid &A, const Grid &B, size_t columns, uint64_t p) {
    Grid C(A.size(), Row(columns, 0));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t t = 0; t < B.size(); t++) {
            for (size_t j = 0; j < columns; j++) C[i][j] += A[i][t] * B[t][j];
        }
        for (uint64_t &x : C[i]) x %= p;
    }
    return C;
}

Grid flint_product(const Grid &A, const Grid &B, size_t columns, uint64_t p) {
    nmod_mat_t a, b, c;
    const auto read = [p](nmod_mat_t x, const Grid &X, size_t width) {
        nmod_mat_init(x, static_cast<slong>(X.size()), static_cast<slong>(width), static_cast<mp_limb_t>(p));
        for (size_t i = 0; i < X.size(); i++) {
            for (size_t j = 0; j < width; j++) x->rows[i][j] = static_cast<mp_limb_t>(X[i][j]);
        }
    };
    read(a, A, B.size());
    read(b, B, columns);
    nmod_mat_init(c, a->r, b->c, a->mod.n);
    nmod_mat_mul(c, a, b);
    Grid C(A.size(), Row(columns));
    for (size_t i = 0; i < A.size(); i++) std::copy_n(c->rows[i], columns, C[i].begin());
    nmod_mat_clear(a), nmod_mat_clear(b), nmod_mat_clear(c);
    return C;
}

template <class W>
constexpr bool is_float = std::is_same_v<W, double>;
template <class W>
constexpr uint64_t sum_limit = is_float<W> ? uint64_t{1} << 53 : uint64_t{1} << 32;
template <class W>
constexpr uint64_t largest_modulus = is_float<W> ? 33554431 : 65535;

// How many products may be added to a residue.
template <class W>
int32_t product_bound(uint64_t p) {
    return static_cast<int32_t>(std::min<uint64_t>((sum_limit<W> - p) / ((p - 1) * (p - 1)), 2147483646));
}

// The largest modulus with a bound of at least L: p-1 + L*(p-1)^2 is as near to the limit as can be.
template <class W>
uint64_t tight_modulus(int32_t L) {
    uint64_t low = 2, high = largest_modulus<W>;
    while (low < high) {
        const uint64_t middle = (low + high + 1) / 2;
        if (product_bound<W>(middle) >= L)
            low = middle;
        else
            high = middle - 1;
    }
    return low;
}

template <class W>
uint64_t random_modulus(Random &random) {
    if (chance(random, 50)) return tight_modulus<W>(pick(random, {1, 2, 3, 8, 9, 10, 11, 15, 16, 20, 31, 64}));
    if (is_float<W>) return pick(random, {2, 3, 7, 251, 65521, 1048573, 4000000, 33554393, 33554431});
    return pick(random, {2, 3, 6, 251, 2003, 4093, 37838, 46337, 46341, 65521, 65534, 65535});
}

// A row a and a column b whose k products sum to a number = p-1 (mod p) just below k*p^2.
std::pair<Row, Row> top_residue_pair(int32_t k, uint64_t p) {
    const size_t length = static_cast<size_t>(k);
    Row a(length, p - 1), b = a;
    if (k < 3 || p < 2 * length + 50) return {a, b};
    const uint64_t target = p - length;  // = x*y + r
    uint64_t x = 1;
    while ((x + 1) * (x + 1) <= target) x++;
    const uint64_t y = target / x, r = target - x * y;
    a[0] = p - x, b[0] = p - y, b[length / 2] = p - 1 - r;
    return {a, b};
}

enum class Content { random, sparse, largest, few, equal_blocks, top_residues };
constexpr Content contents[] = {Content::random, Content::random,       Content::sparse,       Content::largest,
                                Content::few,    Content::equal_blocks, Content::equal_blocks, Content::top_residues};

Grid random_grid(Random &random, int32_t rows, int32_t columns, uint64_t p, Content content) {
    Grid A(static_cast<size_t>(rows), Row(static_cast<size_t>(columns)));
    const int32_t top = std::max(rows / 2, 1), left = std::max(columns / 2, 1);
    const bool repeat_down = chance(random, 70), repeat_right = chance(random, 70), ones = chance(random, 50);
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            uint64_t &x = A[i][j];
            x = below(random, p);
            if (content == Content::sparse && chance(random, 70)) x = 0;
            if (content == Content::largest) x = p - 1;
            if (content == Content::few) x = pick(random, {uint64_t{0}, uint64_t{1}, p - 1, p - 1, p - 1});
            if (content != Content::equal_blocks) continue;
            if (ones) x = p - 1 - below(random, uint64_t{2});
            const size_t h = static_cast<size_t>(top), w = static_cast<size_t>(left);
            if (repeat_down && i >= h) x = A[i - h][j];
            if (repeat_right && j >= w) x = A[i][j - w];
        }
    }
    return A;
}

// ---- Blocks in guarded storage ----

enum class Layout { rows, wide_rows, columns, wide_columns, spread_rows, spread_columns };
constexpr Layout layouts[] = {Layout::rows,         Layout::wide_rows,   Layout::columns,       Layout::columns,
                              Layout::wide_columns, Layout::spread_rows, Layout::spread_columns};

template <class W>
class Block {
  public:
    int32_t rs, cs;

    Block(int32_t rows, int32_t columns, Layout layout, bool misaligned) : rows_(rows), columns_(columns) {
        switch (layout) {
            case Layout::rows:
                rs = columns, cs = 1;
                break;
            case Layout::wide_rows:
                rs = columns + 3, cs = 1;
                break;
            case Layout::columns:
                rs = 1, cs = rows;
                break;
            case Layout::wide_columns:
                rs = 1, cs = rows + 5;
                break;
            case Layout::spread_rows:
                rs = 2 * columns + 1, cs = 2;
                break;
            case Layout::spread_columns:
                rs = 3, cs = 3 * rows + 1;
                break;
        }
        const int32_t entries = std::max(rows - 1, 0) * rs + std::max(columns - 1, 0) * cs + 1;
        start_ = 64 + (misaligned ? 4 : 0);
        bytes_.assign(static_cast<size_t>(start_ + entries * static_cast<int32_t>(sizeof(W)) + 68), '\xff');
    }
    // Aligned to 8 bytes, unless misaligned.
    W *data() { return reinterpret_cast<W *>(bytes_.data() + start_); }

    Block &operator=(const Grid &A) {
        for_each([&](size_t i, size_t j, char *at) {
            const W x = static_cast<W>(A[i][j]);
            std::memcpy(at, &x, sizeof x);
        });
        return *this;
    }
    Grid grid() {
        Grid A(static_cast<size_t>(rows_), Row(static_cast<size_t>(columns_)));
        for_each([&](size_t i, size_t j, const char *at) {
            W x;
            std::memcpy(&x, at, sizeof x);
            A[i][j] = x >= 0 && x < 1e9 ? static_cast<uint64_t>(x) : ~uint64_t{0};
        });
        return A;
    }
    const std::vector<char> &bytes() const { return bytes_; }
    // All that does not belong to entries.
    std::vector<char> around() {
        std::vector<char> saved = bytes_;
        for_each(
            [&](size_t, size_t, const char *at) { std::memset(saved.data() + (at - bytes_.data()), 0, sizeof(W)); });
        return saved;
    }

  private:
    template <class Visit>
    void for_each(Visit visit) {
        for (int32_t i = 0; i < rows_; i++) {
            for (int32_t j = 0; j < columns_; j++) {
                visit(static_cast<size_t>(i), static_cast<size_t>(j),
                      bytes_.data() + start_ + (i * rs + j * cs) * static_cast<int32_t>(sizeof(W)));
            }
        }
    }
    int32_t rows_, columns_, start_;
    std::vector<char> bytes_;
};

// ---- A host that makes objects for workspaces ----

struct MadeObject {
    RtableSettings settings;
    int32_t bounds[4];
    std::unique_ptr<Block<double>> data;  // of at least the size, 8 bytes an entry or 4
    size_t bytes;
};
std::vector<MadeObject> made_objects;
constexpr HostObject first_object = 0x1000;
constexpr int32_t own_field = 77;

HostApi workspace_host() {
    made_objects.clear();
    HostApi api = modla_test::make_fake_host();
    api.RtableGetDefaults = [](RtableSettings *settings) {
        *settings = {};
        settings->host_fields[3] = own_field;
    };
    api.RtableCreate = [](RtableSettings *settings, void *data, int32_t *bounds) -> HostObject {
        EXPECT_EQ(data, nullptr);
        MadeObject object = {*settings, {bounds[0], bounds[1], bounds[2], bounds[3]}, nullptr, 0};
        object.bytes = static_cast<size_t>(bounds[3]) * (settings->datatype == MODLA_FLOAT8 ? 8 : 4);
        object.data =
            std::make_unique<Block<double>>(1, static_cast<int32_t>(object.bytes / 8 + 2), Layout::rows, true);
        made_objects.push_back(std::move(object));
        return first_object + 4 * static_cast<HostObject>(made_objects.size() - 1);
    };
    api.RtableData = [](HostObject object) -> void * {
        return made_objects.at((object - first_object) / 4).data->data();
    };
    return api;
}

// Is everything behind the first bytes of a workspace as it was?
bool ends_at(Block<double> &workspace, size_t bytes) {
    const char *const start = reinterpret_cast<const char *>(workspace.data());
    const char *const end = workspace.bytes().data() + workspace.bytes().size();
    return std::all_of(start + bytes, end, [](char c) { return c == '\xff'; }) &&
           std::all_of(workspace.bytes().data(), start, [](char c) { return c == '\xff'; });
}

// ---- Product kernels ----

int64_t formula_workspace(int64_t m, int64_t k, int64_t n) {
    return (2 * n * m + (n + m) * k + 2) / 3;
}

// Level by level until the inner dimension is at most L.
int64_t level_workspace(int64_t m, int64_t k, int64_t n, int64_t L, bool slack) {
    int64_t w = 0;
    while (k > L && std::min({m, k, n}) > 1) {
        m /= 2, k /= 2, n /= 2;
        w += (n + m) * k + 2 * n * m + (slack ? 2 : 0);
    }
    return w;
}

bool cost_says_strassen(double m, double k, double n) {
    return (n - 39.49) * m * k - n * (11.13 * k + 51.57 * m) >= 0;
}

// What MatMult needs as workspace; 0: none.
template <class W>
int64_t needed_workspace(int32_t m, int32_t k, int32_t n, int32_t L, int32_t threshold) {
    if constexpr (!is_float<W>) {
        if (k == 1 || m == 1 || n == 1 || std::min({m, k, n}) <= threshold) return 0;
        return formula_workspace(m, k, n);
    }
    if (k == 1 || k <= L) return 0;
    int64_t w = 0, mh = m, kh = k, nh = n;
    do {
        mh /= 2, kh /= 2, nh /= 2;
        w += (nh + mh) * kh + 2 * nh * mh + 2;
    } while (kh > L);
    if (mh * nh > 63) return w;
    return cost_says_strassen(m, k, n) ? formula_workspace(m, k, n) : 0;
}

template <class W>
struct Product {
    int32_t m, k, n;
    W p;
    Block<W> A, B, C;
    int32_t sparse, L, threshold;
    W T;
    double pinv;
    int64_t needed;  // by MatMult
};

template <class W>
using Kernel = std::function<void(Product<W> &)>;

#define OPERANDS(x) \
    x.p, x.pinv, x.m, x.k, x.n, x.A.data(), x.A.rs, x.A.cs, x.B.data(), x.B.rs, x.B.cs, x.C.data(), x.C.rs, x.C.cs
#define KERNEL(name, ...)                                                                    \
    {                                                                                        \
#name, [](Product <W> & x) { modLA_##name(OPERANDS(x) __VA_OPT__(, ) __VA_ARGS__); } \
    }

template <class W, class Call>
void with_workspace(int64_t entries, Call call) {
    const size_t bytes = static_cast<size_t>(entries) * sizeof(W);
    Block<double> workspace(1, static_cast<int32_t>(bytes / 8) + 2, Layout::rows, true);
    call(reinterpret_cast<W *>(workspace.data()));
    EXPECT_TRUE(ends_at(workspace, bytes)) << "written outside a workspace of " << entries;
}

// With no, a short, an exact and a long workspace.
template <class W>
void multiply_generally(Product<W> &x) {
    const int64_t needed = x.needed;
    static uint32_t turn = 0;
    const int64_t given = std::max<int64_t>(turn++ % 4 == 0 ? 0 : needed - 1 + turn % 3, 0);
    const HostApi api = workspace_host();
    HostObject object = 0;
    with_workspace<W>(given, [&](W *workspace) {
        if (given == 0) workspace = nullptr;
        const int32_t length = static_cast<int32_t>(given);
        if constexpr (is_float<W>)
            object = modLA_MatMult_f(&api, OPERANDS(x), x.sparse, workspace, length);
        else
            object = modLA_MatMult_iw(&api, OPERANDS(x), x.sparse, workspace, length, x.threshold);
    });
    if (needed <= given) {
        EXPECT_EQ(made_objects.size(), 0u);
        EXPECT_EQ(object, modla_test::fake_null_value);
        return;
    }
    ASSERT_EQ(made_objects.size(), 1u) << "a workspace of " << needed << " when " << given << " were given";
    EXPECT_EQ(object, first_object);
    const MadeObject &made = made_objects[0];
    EXPECT_EQ(made.bounds[0] * 1000 + made.bounds[1] * 100 + made.bounds[2], 1101);
    EXPECT_EQ(made.bounds[3], needed);
    EXPECT_EQ(made.settings.datatype, is_float<W> ? MODLA_FLOAT8 : MODLA_INTEGER4);
    EXPECT_EQ(made.settings.subtype, MODLA_MATRIX);
    EXPECT_EQ(made.settings.storage, MODLA_RECTANGULAR);
    EXPECT_EQ(made.settings.order, MODLA_C_ORDER);
    EXPECT_EQ(made.settings.num_dimensions, 2);
    EXPECT_EQ(made.settings.host_fields[3], static_cast<uint32_t>(own_field));
    EXPECT_TRUE(ends_at(*made.data, made.bytes));
}

template <class W>
std::map<std::string, Kernel<W>> kernels() {
    if constexpr (is_float<W>) {
        return {KERNEL(MatMatMult_f, x.L, x.T, x.sparse),
                KERNEL(MatMatMult_f_SN, x.L, x.T),
                KERNEL(MatMatMult_f_S1),
                KERNEL(MatMatMult_f_NN, x.L, x.T),
                KERNEL(MatMatMult_f_N1),
                KERNEL(MatMatBLAS, x.L, x.T, x.sparse),
                {"StrMatMult_f, BLAS base",
                 [](Product<W> &x) {
                     with_workspace<W>(level_workspace(x.m, x.k, x.n, x.L, true), [&](W *workspace) {
                         modLA_StrMatMult_f(OPERANDS(x), workspace, x.L, x.T, x.sparse, 1);
                     });
                 }},
                {"StrMatMult_f, by cost",
                 [](Product<W> &x) {
                     with_workspace<W>(formula_workspace(x.m, x.k, x.n), [&](W *workspace) {
                         modLA_StrMatMult_f(OPERANDS(x), workspace, x.L, x.T, x.sparse, 0);
                     });
                 }},
                {"MatMult_f", multiply_generally<W>}};
    } else {
        return {KERNEL(MatMatMult_iw, x.L, x.T, x.sparse),
                KERNEL(MatMatMult_iw_SE),
                KERNEL(MatMatMult_iw_SN, x.L),
                KERNEL(MatMatMult_iw_S1),
                KERNEL(MatMatMult_iw_NE),
                KERNEL(MatMatMult_iw_NN, x.L),
                KERNEL(MatMatMult_iw_N1),
                {"StrMatMult_iw",
                 [](Product<W> &x) {
                     with_workspace<W>(formula_workspace(x.m, x.k, x.n), [&](W *workspace) {
                         modLA_StrMatMult_iw(OPERANDS(x), workspace, x.L, x.T, x.sparse, x.threshold);
                     });
                 }},
                {"MatMult_iw", multiply_generally<W>}};
    }
}

template <class W>
bool kernel_has_room(const std::string &name, const Product<W> &x) {
    if (name.ends_with("E")) return true;
    if (name.ends_with("1")) return x.L >= x.k;
    if (name == "MatMatBLAS") return x.L >= x.k;
    return true;
}

template <class W>
void check_products(Random &random, int32_t m, int32_t k, int32_t n, uint64_t p, Content content, bool flint) {
    Grid a = random_grid(random, m, k, p, content), b = random_grid(random, k, n, p, content);
    if (content == Content::top_residues) {
        const auto [row, column] = top_residue_pair(k, p);
        for (Row &line : a) line = row;
        for (size_t t = 0; t < b.size(); t++) b[t].assign(static_cast<size_t>(n), column[t]);
    }
    const size_t columns = static_cast<size_t>(n);
    const Grid expected = (flint ? flint_product : product)(a, b, columns, p);
    for (const auto &[name, kernel] : kernels<W>()) {
        const bool misaligned[3] = {chance(random, 25), chance(random, 25), chance(random, 25)};
        const Layout la = pick(random, layouts), lb = pick(random, layouts), lc = pick(random, layouts);
        Product<W> x = {m,
                        k,
                        n,
                        static_cast<W>(p),
                        {m, k, la, misaligned[0]},
                        {k, n, lb, misaligned[1]},
                        {m, n, lc, misaligned[2]},
                        pick(random, {0, 1}),
                        product_bound<W>(p),
                        pick(random, {-5, 0, 1, 1, 2, 3, 7, 20}),
                        static_cast<W>(sum_limit<W> - 1 - (p - 1) * (p - 1)),
                        1.0000000000000002 / static_cast<double>(p),
                        0};
        x.needed = needed_workspace<W>(m, k, n, x.L, x.threshold);
        if (!kernel_has_room(name, x)) continue;
        SCOPED_TRACE(testing::Message() << name << ", " << m << " x " << k << " x " << n << ", p = " << p
                                        << ", content " << static_cast<int>(content) << ", layouts "
                                        << static_cast<int>(la) << static_cast<int>(lb) << static_cast<int>(lc)
                                        << (x.sparse ? ", sparse" : "") << ", threshold " << x.threshold
                                        << ", misaligned " << misaligned[0] << misaligned[1] << misaligned[2]);
        x.A = a;
        x.B = b;
        const std::vector<char> A = x.A.bytes(), B = x.B.bytes(), around = x.C.around();
        const auto mode = chance(random, 30) ? pick(random, foreign_fp_modes()) : current_fp_mode();
        ASSERT_TRUE(keeps_fp_mode(mode, [&] { kernel(x); }));
        ASSERT_EQ(x.C.grid(), expected);
        ASSERT_EQ(x.A.bytes(), A);
        ASSERT_EQ(x.B.bytes(), B);
        ASSERT_EQ(x.C.around(), around);
    }
}

template <class W>
class ProductKernels : public testing::Test {};
using EntryTypes = testing::Types<uint32_t, double>;
TYPED_TEST_SUITE(ProductKernels, EntryTypes);

TYPED_TEST(ProductKernels, MultiplyLikeTheModelOnEveryLayout) {
    for (uint32_t seed = 1; seed <= 1500 && !this->HasFailure(); seed++) {
        Random random(seed);
        const int32_t largest = pick(random, {4, 12, 12, 40, 70});
        const auto size = [&] { return chance(random, 15) ? 1 : 1 + below(random, largest); };
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const int32_t m = size(), k = size(), n = size();
        check_products<TypeParam>(random, m, k, n, random_modulus<TypeParam>(random), pick(random, contents), false);
    }
    const int32_t large[][3] = {{41, 41, 41}, {21, 21, 21}, {128, 128, 128}, {129, 131, 130}, {200, 70, 111},
                                {1, 300, 90}, {90, 300, 1}, {150, 130, 2},   {2, 260, 200},   {101, 203, 107}};
    for (const auto &[m, k, n] : large) {
        for (const Content content : {Content::random, Content::equal_blocks, Content::largest}) {
            Random random(static_cast<uint32_t>(m + k + n));
            check_products<TypeParam>(random, m, k, n, random_modulus<TypeParam>(random), content, true);
            if (this->HasFailure()) return;
        }
    }
}

// As many products as fit beside a residue, one more, and up to twice as many, for moduli that leave no room.  Halving
// k leads to all of these counts in the recursion, with differences of equal blocks among the factors.
TYPED_TEST(ProductKernels, HoldTheLargestSums) {
    const int32_t first = product_bound<TypeParam>(largest_modulus<TypeParam>);
    for (int32_t L = first; L <= first + 32 && !this->HasFailure(); L++) {
        const uint64_t p = tight_modulus<TypeParam>(L);
        ASSERT_EQ(product_bound<TypeParam>(p), L);
        for (const int32_t k : {L, L + 1, 2 * L, 2 * L + 1, 4 * L, 4 * L + 2}) {
            for (const Content content : {Content::top_residues, Content::largest, Content::equal_blocks}) {
                Random random(static_cast<uint32_t>(k));
                const std::pair<int32_t, int32_t> sizes[] = {{1, 1}, {1, 4}, {4, 1}, {4, 4}, {9, 6}, {36, 34}};
                const auto [m, n] = sizes[below(random, std::size(sizes))];
                check_products<TypeParam>(random, m, k, n, p, content, false);
            }
        }
    }
}

template <class W>
void check_block_sum(Random &random, void (*kernel)(MODLA_BLOCK_SUM_ARGUMENTS(W)), bool add) {
    const uint64_t p = random_modulus<W>(random);
    const int32_t rows = below(random, 40), columns = below(random, 40);
    const Grid a = random_grid(random, rows, columns, p, pick(random, {Content::random, Content::few}));
    Grid b = random_grid(random, rows, columns, p, pick(random, {Content::random, Content::few}));
    const int in_place = below(random, 4);  // 0: none, 1: C = A, 2: C = B, 3: all three
    if (in_place == 3) b = a;
    Block<W> A(rows, columns, pick(random, layouts), chance(random, 30));
    Block<W> B(rows, columns, pick(random, layouts), chance(random, 30));
    Block<W> C(rows, columns, pick(random, layouts), chance(random, 30));
    A = a;
    B = b;
    Block<W> &right = in_place == 3 ? A : B;
    Block<W> &target = in_place % 2 == 1 ? A : in_place == 2 ? B : C;
    const std::vector<char> around = target.around();
    ASSERT_TRUE(keeps_fp_mode(pick(random, foreign_fp_modes()), [&] {
        kernel(static_cast<W>(p), rows, columns, A.data(), A.rs, A.cs, right.data(), right.rs, right.cs, target.data(),
               target.rs, target.cs);
    }));
    ASSERT_EQ(target.around(), around);
    const Grid c = target.grid();
    for (size_t i = 0; i < c.size(); i++) {
        for (size_t j = 0; j < c[i].size(); j++) {
            ASSERT_EQ(c[i][j] % p, (add ? a[i][j] + b[i][j] : a[i][j] + p - b[i][j]) % p);
            ASSERT_TRUE(add ? c[i][j] < p : c[i][j] >= 1 && c[i][j] <= p) << "equal entries have the difference p";
        }
    }
}

TEST(BlockSums, AreResiduesAndDifferencesAreAbove0) {
    for (uint32_t seed = 1; seed <= 500 && !HasFailure(); seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        check_block_sum<uint32_t>(random, modLA_MatMatAdd_iw, true);
        check_block_sum<uint32_t>(random, modLA_MatMatSub_iw, false);
        check_block_sum<double>(random, modLA_MatMatAdd_f, true);
        check_block_sum<double>(random, modLA_MatMatSub_f, false);
    }
}

// ---- Multiply ----

constexpr int32_t datatypes[] = {MODLA_INTEGER4, MODLA_FLOAT8, MODLA_INTEGER};

// Tables of a program, by name, with their entries as integers.
struct NamedTable {
    std::string name;
    Object object;
    int32_t rows, columns;
    bool has_rows, has_columns;
    Grid entries;

    void *at(int32_t i, int32_t j) const {
        const Table &table = table_of(object);
        const bool by_rows = table.settings.order == MODLA_C_ORDER;
        const size_t offset = static_cast<size_t>(by_rows ? i * columns + j : j * rows + i);
        return static_cast<char *>(table.data) + offset * modla_test::entry_bytes(table.settings.datatype);
    }
    uint64_t read(int32_t i, int32_t j) const {
        const int32_t datatype = table_of(object).settings.datatype;
        if (datatype == MODLA_INTEGER) return integer_of(*static_cast<Object *>(at(i, j))).get_ui();
        if (datatype == MODLA_INTEGER4) return *static_cast<uint32_t *>(at(i, j));
        const double x = *static_cast<double *>(at(i, j));
        return x >= 0 && x <= 9007199254740992.0 ? static_cast<uint64_t>(x) : ~uint64_t{0};
    }
    void write(int32_t i, int32_t j, uint64_t x) const {
        const int32_t datatype = table_of(object).settings.datatype;
        if (datatype == MODLA_FLOAT8)
            *static_cast<double *>(at(i, j)) = static_cast<double>(x);
        else if (datatype == MODLA_INTEGER4)
            *static_cast<uint32_t *>(at(i, j)) = static_cast<uint32_t>(x);
        else
            *static_cast<Object *>(at(i, j)) = immediate(static_cast<int32_t>(x));
    }
    Grid read() const {
        Grid A(static_cast<size_t>(rows), Row(static_cast<size_t>(columns)));
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) A[static_cast<size_t>(i)][static_cast<size_t>(j)] = read(i, j);
        }
        return A;
    }
};

// A table under a name, with residues of p and entries that are none.
NamedTable make_named(Random &random, const std::string &name, int32_t datatype, int32_t subtype, int32_t order,
                      int32_t rows, int32_t columns, uint64_t p) {
    set_name(name, make_table(datatype, subtype, order, rows, columns));
    NamedTable table = {name, eval(name), rows, columns, subtype != MODLA_ROW_VECTOR, subtype != MODLA_COLUMN_VECTOR,
                        {}};
    const uint64_t limit = datatype == MODLA_FLOAT8     ? (uint64_t{1} << 53) - 1
                           : datatype == MODLA_INTEGER4 ? 0xffffffff
                                                        : (1 << 30) - 1;
    const bool reduced = chance(random, 50);
    for (int32_t i = 0; i < rows; i++) {
        for (int32_t j = 0; j < columns; j++) {
            const uint64_t any = pick(random, {limit, limit - 1, p, p * 2 - 1, below(random, limit)});
            table.write(i, j, reduced || chance(random, 60) ? below(random, p) : any);
        }
    }
    table.entries = table.read();
    return table;
}

// A block of a table as arguments say it; a count of 0 stands for a single row (column).
struct Selected {
    size_t table;
    int32_t row, column, rows, columns;
    bool transposed;
    std::string text;
    std::pair<size_t, size_t> place(size_t i, size_t j) const {
        if (transposed) std::swap(i, j);
        return {static_cast<size_t>(row) + i, static_cast<size_t>(column) + j};
    }
};

std::string selection(Random &random, int32_t first, int32_t count, int32_t bound, bool required) {
    const auto index = [&](int32_t i) { return std::to_string(chance(random, 30) ? i - bound : i + 1); };
    if (count == 0 || (required && chance(random, 30))) return ", " + index(first);
    return ", " + index(first) + ".." + index(first + count - 1);
}

Selected select(Random &random, const std::vector<NamedTable> &tables, int32_t rows, int32_t columns,
                bool may_be_transposed, bool rows_required, bool columns_required) {
    while (true) {
        Selected x = {below(random, tables.size()), 0, 0, rows, columns, may_be_transposed && chance(random, 35), ""};
        if (x.transposed) std::swap(x.rows, x.columns);
        const NamedTable &table = tables[x.table];
        if ((!table.has_rows && x.rows) || (!table.has_columns && x.columns)) continue;
        const int32_t spare_rows = table.rows - std::max(x.rows, 1);
        const int32_t spare_columns = table.columns - std::max(x.columns, 1);
        if (spare_rows < 0 || spare_columns < 0) continue;
        x.row = below(random, spare_rows + 1), x.column = below(random, spare_columns + 1);
        x.text = table.name;
        const bool whole_columns = !table.has_columns || x.columns == table.columns;
        const bool whole_rows = !table.has_rows || x.rows == table.rows;
        const bool name_columns = table.has_columns && !(whole_columns && chance(random, 50));
        if (table.has_rows && (name_columns || !whole_rows || chance(random, 50))) {
            x.text += selection(random, x.row, x.rows, table.rows, x.transposed ? columns_required : rows_required);
        }
        if (name_columns) {
            x.text +=
                selection(random, x.column, x.columns, table.columns, x.transposed ? rows_required : columns_required);
        }
        if (x.transposed) x.text += ", transpose";
        return x;
    }
}

Grid residues(const std::vector<NamedTable> &tables, const Selected &x, int32_t rows, int32_t columns, uint64_t p) {
    Grid A(static_cast<size_t>(std::max(rows, 1)), Row(static_cast<size_t>(std::max(columns, 1))));
    for (size_t i = 0; i < A.size(); i++) {
        for (size_t j = 0; j < A[i].size(); j++) {
            const auto [row, column] = x.place(i, j);
            A[i][j] = tables[x.table].entries[row][column] % p;
        }
    }
    return A;
}

int calls_with_shifts, calls_without_shifts;

// The callbacks of host integers: products and multiples of the blocks that the arguments name.
void define_callbacks() {
    const auto number = [](Object x) { return small_integer(x, "an argument"); };
    const auto entry = [](Object x, int32_t i, int32_t j) { return integer_of(get_entry(table_of(x), i, j)); };
    const auto count = [number](const std::vector<Object> &a, std::initializer_list<size_t> shifts) {
        bool shifted = false;
        for (const size_t k : shifts) shifted = shifted || number(a[k]) != 0 || number(a[k + 1]) != 0;
        EXPECT_EQ(shifted, shifts.size() > 0);
        (shifted ? calls_with_shifts : calls_without_shifts)++;
    };
    const auto scale = [=](const std::vector<Object> &a, size_t b, size_t c, bool shifts) {
        const auto shift = [&](size_t k) { return shifts ? number(a[k]) : 0; };
        for (int32_t i = 1; i <= number(a[1]); i++) {
            for (int32_t j = 1; j <= number(a[2]); j++) {
                const mpz_class x = integer_of(a[3]) * entry(a[b], i + shift(b + 1), j + shift(b + 2));
                set_entry(table_of(a[c]), i + shift(c + 1), j + shift(c + 2),
                          integer_object(mpz_class(x % integer_of(a[0]))));
            }
        }
        return null_value();
    };
    const auto multiply = [=](const std::vector<Object> &a, size_t A, size_t B, size_t C, bool shifts) {
        const auto shift = [&](size_t k) { return shifts ? number(a[k]) : 0; };
        for (int32_t i = 1; i <= number(a[1]); i++) {
            for (int32_t j = 1; j <= number(a[3]); j++) {
                mpz_class sum = 0;
                for (int32_t t = 1; t <= number(a[2]); t++) {
                    sum += entry(a[A], i + shift(A + 1), t + shift(A + 2)) *
                           entry(a[B], t + shift(B + 1), j + shift(B + 2));
                }
                set_entry(table_of(a[C]), i + shift(C + 1), j + shift(C + 2),
                          integer_object(mpz_class(sum % integer_of(a[0]))));
            }
        }
        return null_value();
    };
    set_name("cbScalMult", make_native("cbScalMult", [=](const std::vector<Object> &a) {
                 EXPECT_EQ(a.size(), 6u);
                 count(a, {});
                 return scale(a, 4, 5, false);
             }));
    set_name("cbScalMultShift", make_native("cbScalMultShift", [=](const std::vector<Object> &a) {
                 EXPECT_EQ(a.size(), 10u);
                 count(a, {5, 8});
                 return scale(a, 4, 7, true);
             }));
    set_name("cbMatMult", make_native("cbMatMult", [=](const std::vector<Object> &a) {
                 EXPECT_EQ(a.size(), 7u);
                 count(a, {});
                 return multiply(a, 4, 5, 6, false);
             }));
    set_name("cbMatMultShift", make_native("cbMatMultShift", [=](const std::vector<Object> &a) {
                 EXPECT_EQ(a.size(), 13u);
                 count(a, {5, 8, 11});
                 return multiply(a, 4, 7, 10, true);
             }));
}

// A host that does not clear the storage of new tables; host values are always values.
HostApi untidy_host() {
    HostApi api = host_api();
    api.RtableCreate = [](RtableSettings *settings, void *data, int32_t *bounds) {
        const Object object = host_api().RtableCreate(settings, data, bounds);
        const DataBlock *const block = table_of(object).block;
        if (!data && !block->holds_values) std::memset(block->base, 0x41, block->bytes);
        return object;
    };
    return api;
}

struct Collecting {
    explicit Collecting(bool always) { set_collect_always(always); }
    ~Collecting() { set_collect_always(false); }
};

void check_created(Object result, const Grid &expected, int32_t m, int32_t n, int32_t datatype, int32_t order) {
    if (m == 0 && n == 0) {
        if (datatype == MODLA_FLOAT8) {
            ASSERT_TRUE(has_type(result, type_float));
            ASSERT_EQ(static_cast<uint64_t>(float_value(result)), expected[0][0]);
        } else {
            ASSERT_EQ(integer_of(result).get_ui(), expected[0][0]);
        }
        return;
    }
    ASSERT_TRUE(has_type(result, type_table));
    const Table &table = table_of(result);
    ASSERT_EQ(table.settings.datatype, datatype);
    ASSERT_EQ(table.settings.subtype, m == 0 ? MODLA_ROW_VECTOR : n == 0 ? MODLA_COLUMN_VECTOR : MODLA_MATRIX);
    ASSERT_EQ(table.settings.order, order);
    const NamedTable found = {"", result, table_rows(table), table_columns(table), true, true, {}};
    ASSERT_EQ(found.read(), expected);
}

void check_multiply(Random &random, int32_t datatype, int32_t largest) {
    const uint64_t p = datatype == MODLA_INTEGER4 ? random_modulus<uint32_t>(random) : random_modulus<double>(random);
    const auto make = [&](const char *name, int32_t subtype, int32_t order, int32_t rows, int32_t columns) {
        return make_named(random, name, datatype, subtype, order, rows, columns, p);
    };
    const int32_t c = MODLA_C_ORDER, f = MODLA_FORTRAN_ORDER;
    std::vector<NamedTable> tables = {make("T", MODLA_MATRIX, c, 2 * largest, 2 * largest + 1),
                                      make("U", MODLA_MATRIX, f, 2 * largest + 2, largest + 2),
                                      make("V", MODLA_COLUMN_VECTOR, c, largest + 3, 1),
                                      make("R", MODLA_ROW_VECTOR, f, 1, largest + 2),
                                      make("S", MODLA_MATRIX, c, largest, 1),
                                      make("Q", MODLA_MATRIX, f, 1, largest + 1)};
    const bool scaled = chance(random, 30), given = chance(random, 60);
    const auto size = [&] { return chance(random, 20) ? 0 : 1 + below(random, largest); };
    int32_t m = size(), n = size();
    const int32_t k = size();
    if (scaled && m == 0 && n == 0) m = 1;
    const Selected A = select(random, tables, m, k, true, false, false);
    const Selected B =
        scaled ? select(random, tables, m, n, true, false, false) : select(random, tables, k, n, true, true, false);
    const Selected C = select(random, tables, m, n, false, true, true);
    const uint64_t s = chance(random, 40) ? pick(random, {uint64_t{0}, uint64_t{1}, p - 1}) : below(random, p);
    const size_t columns = static_cast<size_t>(std::max(n, 1));
    Grid expected;
    if (scaled) {
        expected = residues(tables, B, m, n, p);
        for (Row &row : expected) {
            for (uint64_t &x : row) x = x * s % p;
        }
    } else {
        expected = product(residues(tables, A, m, k, p), residues(tables, B, k, n, p), columns, p);
    }

    int32_t order = table_of(tables[scaled ? B.table : A.table].object).settings.order;
    std::string arguments = std::to_string(p) + ", " + (scaled ? std::to_string(s) : A.text) + ", " + B.text;
    if (chance(random, 30)) {
        order = pick(random, {c, f});
        arguments += order == c ? ", C_order" : ", Fortran_order";
    }
    const int sparse = below(random, 3);
    if (sparse == 1) arguments += ", sparse";
    if (given) arguments += ", " + C.text + (sparse == 2 ? ", sparse" : "");
    SCOPED_TRACE("Multiply(" + arguments + ") with " + tables[0].name + " " + testing::PrintToString(datatype));

    const Object list = eval("[" + arguments + "]");
    ASSERT_TRUE(has_type(list, type_list));
    const Collecting collecting(chance(random, 30));
    Object result = 0;
    const HostApi api = untidy_host();
    const auto call = [&] { result = modLA_Multiply(&api, words(sequence_of(list))); };
    const auto mode =
        datatype != MODLA_INTEGER && chance(random, 40) ? pick(random, foreign_fp_modes()) : current_fp_mode();
    const std::string message = modla_test::message_of([&] { ASSERT_TRUE(keeps_fp_mode(mode, call)); });
    ASSERT_EQ(message, "");
    if (given) {
        ASSERT_EQ(result, null_value());
        for (size_t i = 0; i < expected.size(); i++) {
            for (size_t j = 0; j < columns; j++) {
                const auto [row, column] = C.place(i, j);
                tables[C.table].entries[row][column] = expected[i][j];
            }
        }
    } else {
        check_created(result, expected, m, n, datatype, order);
    }
    for (const NamedTable &table : tables) ASSERT_EQ(table.read(), table.entries) << table.name;
    ASSERT_EQ(lent_count(), 0u);
}

// Blocks of Matrices and Vectors in both orders, transposed or not, the result on top of the factors or beside them.
TEST(Multiply, AnyBlocksWithAnyOptions) {
    define_callbacks();
    calls_with_shifts = calls_without_shifts = 0;
    for (uint32_t seed = 1; seed <= 6000 && !HasFailure(); seed++) {
        Random random(seed);
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        check_multiply(random, datatypes[seed % 3], seed % 100 == 0 ? 45 : 5);
    }
    EXPECT_GT(calls_with_shifts, 100);
    EXPECT_GT(calls_without_shifts, 100);
}

// Products large enough for the recursion, made as programs make them.
TEST(Multiply, LargeProductsAgreeWithFlint) {
    for (const int32_t datatype : {MODLA_INTEGER4, MODLA_FLOAT8}) {
        const uint64_t p = datatype == MODLA_INTEGER4 ? 46337 : 33554393;
        Random random(7);
        const NamedTable A = make_named(random, "A", datatype, MODLA_MATRIX, MODLA_C_ORDER, 211, 203, p);
        const NamedTable B = make_named(random, "B", datatype, MODLA_MATRIX, MODLA_FORTRAN_ORDER, 203, 207, p);
        const auto reduced = [p](Grid X) {
            for (Row &row : X) {
                for (uint64_t &x : row) x %= p;
            }
            return X;
        };
        const Collecting collecting(true);
        const Object result = eval("Multiply(" + std::to_string(p) + ", A, B)");
        check_created(result, flint_product(reduced(A.entries), reduced(B.entries), 207, p), 211, 207, datatype,
                      MODLA_C_ORDER);
        EXPECT_EQ(lent_count(), 0u);
    }
}

const char *const setting =
    "A := Create(7, 3, 3, 5, integer[4], C_order); D := Create(7, 3, 3, 6, integer[4], Fortran_order);"
    "F := Create(7, 3, 3, 5, float[8], C_order); Z := Create(7, 3, 3, 5, integer, C_order);"
    "V := Create(7, 3, 0, 2, integer[4]); W := Create(7, 2, 0, 2, integer[4]); R := Create(7, 0, 3, 3, integer[4])";
const std::string scalar_range = "scalar value must be an integral numeric value in the range 0..modulus-1";
const std::string no_option = "expected output object, ordering, or sparse option for argument ";
const std::string prior = " required by prior arguments";

TEST(Multiply, TheFirstFaultIsReported) {
    run(setting);
    set_name("E", make_table(MODLA_INTEGER4, MODLA_MATRIX, MODLA_C_ORDER, 0, 0));
    const std::string too_few = "too few arguments", modulus = "argument 1, the modulus, must be an integer";
    const std::string second = "argument 2 must be a scalar or a modp Matrix/Vector";
    const std::string zero_dimensional = "cannot perform scalar multiply on a zero dimensional object";
    const std::string too_many = "too many arguments, starting at argument ";
    const std::string word_modulus = "modulus is too large for 'integer[4]' datatype, must be < 65536";
    const std::pair<const char *, std::string> cases[] = {
        {"", too_few},
        {"7", too_few},
        {"7, A", too_few},
        {"x, x", too_few},
        {"x, x, x", modulus},
        {"7.0, 9, x", modulus},
        {"A, A, A", modulus},
        {"7, x, A", second},
        {"1, 2.0, x", second},
        {"7, [1], A", second},
        {"7, A, 1", too_few},
        {"1, A, 1, transpose", too_few},
        {"7, A, 4, x", "Matrix index out of range"},
        {"7, A, 1, 3..2, x", "column range cannot be empty"},
        {"7, 9, x", "argument 3 must be a modp Matrix or Vector"},
        {"7, 9, 9", "argument 3 must be a modp Matrix or Vector"},
        {"7, A, sparse", "argument 3 must be a modp Matrix or Vector"},
        {"7, A, F, x", "argument 3 has incorrect datatype"},
        {"7, A, 1, 1..2, Z", "argument 5 has incorrect datatype"},
        {"1, A, W, x", "argument 3 has a different number of rows than" + prior},
        {"7, A, A, 1..2", "argument 3 has fewer rows than" + prior},
        {"7, A, 1..3, 1..2, A, 1..3", "argument 5 has more rows than" + prior},
        {"7, A, A, 2", "argument 3 shortcut specification has fewer rows than" + prior},
        {"7, A, R", "argument 3 is a row object where prior arguments require a row dimension"},
        {"7, V, A", "argument 3 has a row dimension where prior arguments require a row object"},
        {"7, A, A, x", no_option + "4, got x"},
        {"1, A, A, 1, 1..2, 1", no_option + "6, got 1"},
        {"7, A, A, sparse, C_order", no_option + "5, got C_order"},
        {"7, A, A, C_order, Fortran_order, x", no_option + "5, got Fortran_order"},
        {"7, A, A, sparse, sparse, D", no_option + "5, got sparse"},
        {"7, 9, A, x, x", no_option + "4, got x"},
        {"7, A, A, F, x", "argument 4 has incorrect datatype"},
        {"7, A, A, sparse, V", "argument 5 is a column object where prior arguments require a column dimension"},
        {"7, A, V, A, x", "argument 4 has a column dimension where prior arguments require a column object"},
        {"7, A, A, D, 2", "argument 4 shortcut specification has fewer rows than" + prior},
        {"1, A, A, D, sparse, sparse", too_many + "6, sparse"},
        {"1, A, A, sparse, D, sparse", too_many + "6, sparse"},
        {"1, A, A, D, C_order", too_many + "5, C_order"},
        {"7, A, A, D, transpose", too_many + "5, transpose"},
        {"7, 9, A, D, 1, 1, 1", too_many + "7, 1"},
        {"1, 9, A, 1, 1", zero_dimensional},
        {"7, 3, A, 2, 3, sparse", zero_dimensional},
        {"7, 3, E", zero_dimensional},
        {"1, A, A", "modulus must be at least 2"},
        {"-10, 9, A", "modulus must be at least 2"},
        {"65536, A, A, D", word_modulus},
        {"10^30, 10^30, A, D", word_modulus},
        {"33554432, F, F", "modulus is too large for 'float[8]' datatype, must be < 33554432"},
        {"1, Z, Z", "modulus must be at least 2"},
        {"-10^30, Z, Z", "modulus must be at least 2"},
    };
    const auto state = [] { return run("A; D; F; Z; V; W; R"); };
    const auto expect = [&](const std::string &arguments, const std::string &message) {
        modla_test::expect_failure("Multiply", arguments, message, state);
    };
    for (const auto &[arguments, message] : cases) expect(arguments, message);
    for (const char *object : {"A", "F, D", "Z", "A, 1, 1..2", "F, 1, 1, F, 1, 1", "Z, Z"}) {
        for (const char *scalar : {"7", "-1", "10^30", "-10^30"}) {
            const std::string arguments = std::string("7, ") + scalar + ", " + object;
            expect(arguments, std::string(object) == "F, D" ? "argument 4 has incorrect datatype" : scalar_range);
        }
    }
}

// Callbacks that fail, in both unwindings, also while factors under the result are held in work memory.
TEST(Multiply, AFailingCallbackEndsTheCall) {
    run(setting);
    for (const char *name : {"cbScalMult", "cbMatMult"}) {
        set_name(name, make_native(name, [](const std::vector<Object> &) -> Object { throw HostError("no luck"); }));
    }
    for (const Unwinding unwinding : {Unwinding::exception, Unwinding::long_jump}) {
        set_unwinding(unwinding);
        for (const char *arguments :
             {"7, Z, Z", "7, Z, Z, Z", "7, Z, transpose, Z, Z", "7, 3, Z", "7, 3, Z, transpose, Z"}) {
            EXPECT_EQ(error_of(std::string("Multiply(") + arguments + ")"), "no luck") << arguments;
            EXPECT_EQ(lent_count(), 0u);
        }
        set_name("cbMatMultShift", immediate(3));
        EXPECT_NE(error_of("Multiply(7, Z, 2..3, 2..3, Z, 2..3)"), "");
    }
    set_unwinding(Unwinding::exception);
    define_callbacks();
}

// Procedures of the language receive the arguments and fill the result.
TEST(Multiply, CallsProceduresOfTheHost) {
    run("cbScalMult := proc(p, m, n, s, B, C) print(p, m, n, s, rows(B), columns(B), rows(C), columns(C));"
        " for i to m do for j to n do C[i, j] := s * B[i, j] mod p end end end;"
        "cbScalMultShift := proc(p, m, n, s, B, b, c, C, d, e) print(p, m, n, s, b, c, d, e);"
        " for i to m do for j to n do C[i + d, j + e] := s * B[i + b, j + c] mod p end end end;"
        "cbMatMult := proc(p, m, k, n, A, B, C) print(p, m, k, n, rows(A), columns(B), rows(C));"
        " for i to m do for j to n do C[i, j] := 0; for t to k do"
        " C[i, j] := (C[i, j] + A[i, t] * B[t, j]) mod p end end end end;"
        "cbMatMultShift := proc(p, m, k, n, A, a, b, B, c, d, C, e, f) print(p, m, k, n, a, b, c, d, e, f);"
        " for i to m do for j to n do C[i + e, j + f] := 0; for t to k do"
        " C[i + e, j + f] := (C[i + e, j + f] + A[i + a, t + b] * B[t + c, j + d]) mod p end end end end");
    const std::pair<const char *, const char *> cases[] = {
        {"Z := Create(10^30, 2, 3, 3, integer, C_order); Multiply(10^30, 10^29 * 4, Z)",
         "1000000000000000000000000000000 2 3 400000000000000000000000000000 2 3 2 3\n"
         "[200000000000000000000000000000 200000000000000000000000000000 200000000000000000000000000000]\n"
         "[200000000000000000000000000000 200000000000000000000000000000 200000000000000000000000000000]\n"},
        {"Multiply(11, Z, Z, transpose)", "11 2 3 2 2 2 2\n[5 5]\n[5 5]\n"},
        {"Z[2, 3] := 5; Multiply(11, 2, Z, 2, 2..3, Z, 1, 1..2); Z", "11 1 2 2 0 1 0 0\n[6 10 3]\n[3  3 5]\n"},
        {"Multiply(11, Z, 2, 1..3, Z, 1, 1..3, transpose)", "11 1 3 1 1 1 1\n8\n"},
        {"Multiply(11, Z, 1..2, 2..3, Z, 1..2, 2..3)", "11 2 2 2 0 1 0 1 0 0\n[10 1]\n[ 1 1]\n"},
    };
    for (const auto &[program, output] : cases) EXPECT_EQ(run(program), output) << program;
    define_callbacks();
}

TEST(Multiply, Examples) {
    run(setting);
    const std::pair<const char *, const char *> cases[] = {
        {"Multiply(7, R, V)", "4\n"},
        {"Multiply(7, V, R)", "[6 6 6]\n[6 6 6]\n[6 6 6]\n"},
        {"Multiply(7, 7 - 1, V)", "[5]\n[5]\n[5]\n"},
        {"Multiply(7, A, D, C_order, sparse, A, sparse)",
         "Error: too many arguments, starting at argument 7, sparse\n"},
        {"Multiply(7, A, D, A, sparse); A", "[6 6 6]\n[6 6 6]\n[6 6 6]\n"},
        {"Multiply(7, 0, F)", "[0.0 0.0 0.0]\n[0.0 0.0 0.0]\n[0.0 0.0 0.0]\n"},
    };
    for (const auto &[program, output] : cases) EXPECT_EQ(run(program), output) << program;
    // Multiples of p have the residue 0.
    for (const int32_t p : {2, 6, 35, 65535, 33554430, 33554431}) {
        for (int32_t s = 1; s <= std::min(p - 1, 400); s++) {
            if (p % s != 0) continue;
            const std::string modulus = std::to_string(p);
            const Object product = eval("Multiply(" + modulus + ", " + std::to_string(s) + ", Create(" + modulus +
                                        ", " + "1, 0, " + std::to_string(p / s % p) + ", float[8]))");
            EXPECT_EQ(float_value(get_entry(table_of(product), 1, 1)), 0) << s;
        }
    }
}

// Tables without rows or columns: sums of no products, and nothing read or written beyond the tables.
TEST(Multiply, EmptyTables) {
    define_callbacks();
    for (const int32_t datatype : datatypes) {
        for (const int32_t order : {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}) {
            const auto define = [&](const char *name, int32_t subtype, int32_t rows, int32_t columns) {
                Random random(1);
                return make_named(random, name, datatype, subtype, order, rows, columns, 7);
            };
            const NamedTable all[] = {define("E00", MODLA_MATRIX, 0, 0),       define("E03", MODLA_MATRIX, 0, 3),
                                      define("E30", MODLA_MATRIX, 3, 0),       define("V0", MODLA_COLUMN_VECTOR, 0, 1),
                                      define("V3", MODLA_COLUMN_VECTOR, 3, 1), define("R0", MODLA_ROW_VECTOR, 1, 0),
                                      define("R3", MODLA_ROW_VECTOR, 1, 3),    define("M", MODLA_MATRIX, 3, 3)};
            std::vector<std::string> operands = {"2"};
            for (const NamedTable &table : all) {
                operands.push_back(table.name);
                operands.push_back(table.name + ", transpose");
            }
            operands.push_back("M, 2");
            operands.push_back("M, 2, 2");
            operands.push_back("M, -1..-1");
            for (const std::string &first : operands) {
                for (const std::string &second : operands) {
                    for (const char *output : {"", ", sparse", ", E00", ", E03", ", E30", ", V0", ", R0"}) {
                        const std::string arguments = "7, " + first + ", " + second + output;
                        std::vector<std::vector<char>> before;
                        for (const NamedTable &table : all) before.push_back(storage_of(table.object));
                        const Object list = eval("[" + arguments + "]");
                        Object result = 0;
                        const HostApi api = untidy_host();
                        const std::string message =
                            modla_test::message_of([&] { result = modLA_Multiply(&api, words(sequence_of(list))); });
                        for (size_t k = 0; k < before.size(); k++) {
                            ASSERT_EQ(storage_of(all[k].object), before[k]) << arguments << " changes " << all[k].name;
                        }
                        ASSERT_EQ(message.find("internal"), std::string::npos) << arguments;
                        ASSERT_EQ(lent_count(), 0u);
                        const bool empty =
                            first.find('0') != std::string::npos || second.find('0') != std::string::npos;
                        if (message.empty() && empty && has_type(result, type_table)) {
                            const Table &table = table_of(result);
                            const NamedTable made = {"",   result, table_rows(table), table_columns(table), true,
                                                     true, {}};
                            for (const Row &row : made.read()) ASSERT_EQ(row, Row(row.size(), 0)) << arguments;
                        }
                    }
                }
            }
        }
    }
}

}  // namespace
