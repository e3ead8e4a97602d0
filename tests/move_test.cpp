// Copy, Swap, Permute and AddMult against a plain model, on blocks of tables that lie anywhere in one storage.
#include <gtest/gtest.h>

#include <cstring>

#include "blocks.h"
#include "console/compare.h"
#include "console/number.h"
#include "fake_host.h"
#include "modla.h"
#include "tests/fault_pairs.h"

using namespace modla::console;
using modla_test::below, modla_test::chance, modla_test::pick, modla_test::Random;
using modla_test::Block, modla_test::Geometry, modla_test::Layout, modla_test::Placement, modla_test::Size;
using modla_test::call, modla_test::check_view, modla_test::describe, modla_test::entries_of, modla_test::entry_offset;
using modla_test::eval, modla_test::message_of, modla_test::raised_messages, modla_test::run;
using modla_test::join, modla_test::random_block, modla_test::random_size, modla_test::repeat, modla_test::Storage;
using modla_test::storage_bytes;

namespace {

const char *const triangles[] = {"", "upper", "uppernodiag", "lower", "lowernodiag"};
bool selected(int32_t triangle, int32_t i, int32_t j) {
    return triangle == 0 || (triangle == 1 && j >= i) || (triangle == 2 && j > i) || (triangle == 3 && j <= i) ||
           (triangle == 4 && j < i);
}

// Doubles are moved as bits.
template <class Entry>
void copy_once(Random &random, Storage &storage, int32_t datatype) {
    Placement where = {datatype, pick(random, {Layout::apart, Layout::overlapping, Layout::same_table})};
    Size size = random_size(random);
    const int32_t triangle = chance(random, 50) ? below(random, 5) : 0;
    if (triangle) size.rows = size.columns = std::max(size.columns, 1);
    const Block source = random_block(random, storage, where, size, chance(random, 50));
    std::vector<Object> arguments = {immediate(7)};
    if (triangle) arguments.push_back(global_name(triangles[triangle]));
    arguments = join(arguments, source.arguments);
    storage.take_shadow();
    std::vector<Entry> values;
    for (const uint32_t offset : source.offsets) values.push_back(storage.shadow_at<Entry>(offset));
    const auto value = [&](int32_t i, int32_t j) { return values[static_cast<size_t>(i * source.columns + j)]; };
    if (chance(random, 70) || (size.rows == 0 && size.columns == 0)) {
        const Block target = random_block(random, storage, where, size, false, &source);
        arguments = join(arguments, target.arguments);
        SCOPED_TRACE(describe(arguments));
        EXPECT_EQ(call(modLA_Copy, arguments, random), null_value());
        for (int32_t i = 0; i < source.rows; i++) {
            for (int32_t j = 0; j < source.columns; j++) {
                const Entry entry = value(i, j);
                if (selected(triangle, i, j)) std::memcpy(&storage.shadow[target.at(i, j)], &entry, sizeof entry);
            }
        }
    } else {
        const int32_t order = pick(random, {-1, int32_t{MODLA_C_ORDER}, int32_t{MODLA_FORTRAN_ORDER}});
        if (order >= 0) arguments.push_back(global_name(order == MODLA_C_ORDER ? "C_order" : "Fortran_order"));
        SCOPED_TRACE(describe(arguments));
        const Object created = storage.keep(call(modLA_Copy, arguments, random));
        const std::vector<Entry> got = entries_of<Entry>(created, size, order < 0 ? source.geometry.order : order);
        for (int32_t i = 0; i < source.rows; i++) {
            for (int32_t j = 0; j < source.columns; j++) {
                const Entry zero = datatype == MODLA_INTEGER ? 1 : 0;
                ASSERT_EQ(got[static_cast<size_t>(i * source.columns + j)],
                          selected(triangle, i, j) ? value(i, j) : zero)
                    << i << ", " << j;
            }
        }
    }
    ASSERT_EQ(storage.difference(), -1) << describe(arguments);
}

template <class Entry>
void swap_once(Random &random, Storage &storage, int32_t datatype) {
    Placement where = {datatype, pick(random, {Layout::apart, Layout::overlapping, Layout::same_table})};
    Size size = random_size(random);
    const int32_t triangle = chance(random, 60) ? below(random, 5) : 0;
    if (triangle) size.rows = size.columns = std::max(size.columns, 1);
    const Block a = random_block(random, storage, where, size, chance(random, 50));
    const Block b = random_block(random, storage, where, size, false, &a);
    std::vector<Object> arguments = {immediate(7)};
    if (triangle) arguments.push_back(global_name(triangles[triangle]));
    arguments = join(join(arguments, a.arguments), b.arguments);
    storage.take_shadow();
    EXPECT_EQ(call(modLA_Swap, arguments, random), null_value());
    for (int32_t i = 0; i < a.rows; i++) {
        for (int32_t j = 0; j < a.columns; j++) {
            if (!selected(triangle, i, j)) continue;
            const Entry x = storage.shadow_at<Entry>(a.at(i, j)), y = storage.shadow_at<Entry>(b.at(i, j));
            std::memcpy(&storage.shadow[a.at(i, j)], &y, sizeof y);
            std::memcpy(&storage.shadow[b.at(i, j)], &x, sizeof x);
        }
    }
    ASSERT_EQ(storage.difference(), -1) << describe(arguments);
}

TEST(Copy, RandomBlocks) {
    repeat(6000, [](Random &random, Storage &storage, int i) {
        if (i % 3 == 0) copy_once<uint64_t>(random, storage, MODLA_FLOAT8);
        if (i % 3 == 1) copy_once<uint32_t>(random, storage, MODLA_INTEGER4);
        if (i % 3 == 2) copy_once<uint32_t>(random, storage, MODLA_INTEGER);
    });
}

TEST(Swap, RandomBlocks) {
    repeat(6000, [](Random &random, Storage &storage, int i) {
        if (i % 3 == 0) swap_once<uint64_t>(random, storage, MODLA_FLOAT8);
        if (i % 3 == 1) swap_once<uint32_t>(random, storage, MODLA_INTEGER4);
        if (i % 3 == 2) swap_once<uint32_t>(random, storage, MODLA_INTEGER);
    });
}

// ---- Permute: entries are read when their step comes, also when they lie in the object itself ----

struct PermutationVector {
    int32_t datatype, length;
    uint32_t offset;
    int32_t at(const Storage &storage, int32_t k) const {
        const int32_t entry = storage.shadow_at<int32_t>(offset + 4 * static_cast<uint32_t>(k - 1));
        return datatype == MODLA_INTEGER ? entry >> 1 : entry;
    }
};

template <class Entry>
void permute_once(Random &random, Storage &storage, int32_t datatype) {
    Placement where = {datatype, Layout::apart};
    int32_t row, column;
    Geometry g = random_geometry(random, storage, where, random_size(random), &row, &column);
    bool rows = chance(random, 50);
    if (g.subtype != MODLA_MATRIX) rows = g.subtype == MODLA_COLUMN_VECTOR;
    const bool reverse = chance(random, 50);
    const int32_t lines = rows ? g.rows : g.columns, length = rows ? g.columns : g.rows;

    PermutationVector P = {pick(random, {MODLA_INTEGER4, MODLA_INTEGER}), lines - 1 + below(random, 4), 0};
    const uint32_t bytes = static_cast<uint32_t>(g.rows * g.columns) * sizeof(Entry);
    const bool shared = chance(random, 50);
    P.offset = shared ? g.offset + 4 * below(random, bytes / 4) : storage_bytes / 2;
    const uint32_t first = shared ? g.offset : P.offset, count = shared ? bytes / 4 + 140 : 140;
    for (uint32_t k = 0; k < count; k++) {
        const int32_t line = chance(random, 99) ? 1 + below(random, lines) : pick(random, {0, lines + 1, -2, 1 << 29});
        storage.put(first + 4 * k, P.datatype == MODLA_INTEGER ? 2 * line + 1 : line);
    }
    RtableSettings settings = default_settings();
    settings.datatype = P.datatype;
    settings.subtype = pick(random, {MODLA_ROW_VECTOR, MODLA_COLUMN_VECTOR});
    settings.num_dimensions = 1;
    const Object vector = storage.keep(new_table(settings, &P.length, storage.base + P.offset));
    const auto flag = [](bool value) { return global_name(value ? "true" : "false"); };
    const std::vector<Object> arguments = {immediate(7), vector, g.table, flag(rows), flag(reverse)};

    storage.take_shadow();
    const std::string message = message_of([&] { EXPECT_EQ(call(modLA_Permute, arguments, random), null_value()); });
    bool valid = true;
    for (int32_t s = 1; s < lines && valid; s++) {
        const int32_t k = reverse ? lines - s : s, t = P.at(storage, k);
        valid = t >= 1 && t <= lines;
        for (int32_t e = 0; e < length && valid; e++) {
            const auto place = [&](int32_t line) {
                return storage.shadow.data() +
                       (rows ? entry_offset(g, datatype, line - 1, e) : entry_offset(g, datatype, e, line - 1));
            };
            Entry x, y;
            std::memcpy(&x, place(k), sizeof x);
            std::memcpy(&y, place(t), sizeof y);
            std::memcpy(place(k), &y, sizeof y);
            std::memcpy(place(t), &x, sizeof x);
        }
    }
    EXPECT_EQ(message, valid ? "" : "invalid permutation vector");
    ASSERT_EQ(storage.difference(), -1) << describe(arguments) << (shared ? ", shared" : "");
}

TEST(Permute, RandomLinesAndSharedStorage) {
    repeat(6000, [](Random &random, Storage &storage, int i) {
        if (i % 3 == 0) permute_once<uint64_t>(random, storage, MODLA_FLOAT8);
        if (i % 3 == 1) permute_once<uint32_t>(random, storage, MODLA_INTEGER4);
        if (i % 3 == 2) permute_once<uint32_t>(random, storage, MODLA_INTEGER);
    });
}

// ---- AddMult ----

// What every call of a group shares: its entries are numbers at one alignment.
template <class Entry>
struct Sums {
    static constexpr int32_t datatype = sizeof(Entry) == 8 ? MODLA_FLOAT8 : MODLA_INTEGER4;
    uint32_t p = 2, phase = 0;

    void start(Random &random, Storage &storage) {
        constexpr bool real = sizeof(Entry) == 8;
        // At 49, 1006 and 33553777 floor(t * (1.0 / p)) falls short for many multiples of p.
        p = real ? pick(random, {2u, 3u, 49u, 1006u, 65537u, 33553777u, 33554393u, 33554431u})
                 : pick(random, {2u, 3u, 7u, 251u, 4096u, 65521u, 65535u});
        phase = 4 * below(random, 2u);
        const uint64_t limit = real ? uint64_t{1} << 53 : uint64_t{1} << 32;
        const int unreduced = pick(random, {0, 0, 1, 30});
        for (uint32_t at = phase; at + sizeof(Entry) <= storage_bytes; at += static_cast<uint32_t>(sizeof(Entry))) {
            uint64_t value = pick(random, {uint64_t{0}, uint64_t{1}, uint64_t{p - 1}, uint64_t{random() % p}});
            if (chance(random, unreduced)) {
                const uint64_t large = random() | (uint64_t{random()} << 32);
                value = pick(random, {limit - 1 - large % 3, large % limit, uint64_t{p}, large % limit / p * p,
                                      large % limit / p * p + p - 1});
            }
            storage.put(at, static_cast<Entry>(value % limit));
        }
    }
    uint64_t residue(const Storage &storage, uint32_t offset) const {
        return static_cast<uint64_t>(storage.shadow_at<Entry>(offset)) % p;
    }

    void call_once(Random &random, Storage &storage) const {
        Placement where = {datatype, pick(random, {Layout::apart, Layout::overlapping, Layout::same_table}),
                           static_cast<uint32_t>(sizeof(Entry)), phase};
        const Size size = random_size(random);
        const Block a = random_block(random, storage, where, size, chance(random, 40));
        const Block b = random_block(random, storage, where, size, chance(random, 40), &a);
        std::vector<Object> arguments = {immediate(static_cast<int32_t>(p))};
        uint64_t c = 1;
        if (chance(random, 80)) {
            c = pick(random, {uint64_t{0}, uint64_t{1}, uint64_t{p - 1}, uint64_t{random() % p}});
            arguments.push_back(immediate(static_cast<int32_t>(c)));
        }
        arguments = join(join(arguments, a.arguments), b.arguments);
        storage.take_shadow();
        std::vector<Entry> sums;
        for (size_t k = 0; k < a.offsets.size(); k++) {
            const uint64_t sum = residue(storage, a.offsets[k]) + c * residue(storage, b.offsets[k]);
            sums.push_back(static_cast<Entry>(sum % p));
        }
        const Object sparse = global_name("sparse");
        if (chance(random, 70) || (size.rows == 0 && size.columns == 0)) {
            const Block out = random_block(random, storage, where, size, false, chance(random, 50) ? &a : &b);
            arguments = join(arguments, out.arguments);
            if (chance(random, 30)) arguments.push_back(sparse);
            EXPECT_EQ(call(modLA_AddMult, arguments, random), null_value());
            for (size_t k = 0; k < sums.size(); k++) {
                std::memcpy(&storage.shadow[out.offsets[k]], &sums[k], sizeof(Entry));
            }
        } else {
            int32_t order = a.geometry.order;
            const bool need = order != b.geometry.order;
            if (need || chance(random, 40)) {
                order = pick(random, {MODLA_C_ORDER, MODLA_FORTRAN_ORDER});
                arguments.push_back(global_name(order == MODLA_C_ORDER ? "C_order" : "Fortran_order"));
            }
            if (chance(random, 30)) arguments.push_back(sparse);
            const Object created = storage.keep(call(modLA_AddMult, arguments, random));
            EXPECT_EQ(entries_of<Entry>(created, size, order), sums) << describe(arguments);
        }
        ASSERT_EQ(storage.difference(), -1) << describe(arguments);
    }
};

TEST(AddMult, RandomBlocks) {
    Sums<uint32_t> words;
    Sums<double> doubles;
    repeat(5120, [&](Random &random, Storage &storage, int i) {
        const bool real = i / 32 % 2;
        if (i % 32 == 0) real ? doubles.start(random, storage) : words.start(random, storage);
        real ? doubles.call_once(random, storage) : words.call_once(random, storage);
    });
}

std::string sum_of(const std::string &multiplier, const std::string &p, const char *datatype) {
    const std::string create = "Create(" + p + ", 1, 2, " + datatype + ", ";
    return run("A := " + create + "C_order); B := Copy(" + p + ", A); A[1, 1] := 1; A[1, 2] := " + p +
               " - 1; B[1, 1] := 1; B[1, 2] := 1; C := AddMult(" + p + ", " + multiplier +
               "A, B); print(C[1, 1] + 0, C[1, 2] + 0)");
}

TEST(AddMult, FormsOfTheMultiplier) {
    const std::string range = "Error: multiplier value must be an integral numeric value in the range 0..modulus-1\n";
    const struct {
        const char *multiplier;
        std::string integer4, float8;
    } cases[] = {{"", "2 0\n", "2 0\n"},           {"0, ", "1 6\n", "1 6\n"},         {"1, ", "2 0\n", "2 0\n"},
                 {"6, ", "0 5\n", "0 5\n"},        {"2.5, ", "4 2\n", "4 2\n"},       {"5/2, ", "4 2\n", "4 2\n"},
                 {"2.4, ", "3 1\n", "3 1\n"},      {"-0.5, ", "1 6\n", "1 6\n"},      {"6.4, ", "0 5\n", "0 5\n"},
                 {"-0.6, ", range, range},         {"6.5, ", range, range},           {"7, ", range, range},
                 {"-1, ", range, range},           {"10^30, ", range, range},         {"-10^30, ", range, range},
                 {"1.0e300, ", range, range},      {"-1.0e300, ", range, range},      {"1.0e308*10, ", range, range},
                 {"2147483648.0, ", range, range}, {"4294967296.0, ", range, range},  {"4294967297.0, ", range, range},
                 {"10^9, ", range, range},         {"1.0e308*10*0.0, ", range, range}};
    for (const auto &[multiplier, integer4, float8] : cases) {
        SCOPED_TRACE(multiplier);
        const auto integral = [](std::string text) {
            for (size_t at; (at = text.find(".")) != std::string::npos && text[0] != 'E';) {
                text.erase(at, text.find_first_not_of("0", at + 1) - at);
            }
            return text;
        };
        EXPECT_EQ(integral(sum_of(multiplier, "7", "integer[4]")), integer4);
        EXPECT_EQ(integral(sum_of(multiplier, "7", "float[8]")), float8);
    }
}

// ---- Sums of host integers: what the callbacks receive ----

const char *const callbacks =
    "cbAddMult := proc(p, r, c, f, A, B, C)\n"
    "    for i from 1 to r do for j from 1 to c do C[i, j] := (A[i, j] + f*B[i, j]) mod p end end\n"
    "end\n"
    "cbAddMultShift := proc(p, r, c, f, A, ar, ac, B, br, bc, C, cr, cc)\n"
    "    for i from 1 to r do for j from 1 to c do\n"
    "        C[cr + i, cc + j] := (A[ar + i, ac + j] + f*B[br + i, bc + j]) mod p\n"
    "    end end\n"
    "end\n";

// Records the arguments of a callback, then runs it.
struct Recorder {
    static constexpr const char *names[] = {"cbAddMult", "cbAddMultShift"};
    Roots programs, calls;
    std::vector<std::string> called;

    Recorder() {
        run(callbacks);
        for (const char *name : names) {
            const Object program = evaluate(global_name(name));
            programs.values.push_back(program);
            modla_test::set_name(name, make_native(name, [this, name, program](const std::vector<Object> &arguments) {
                                     calls.values = arguments;
                                     called.push_back(name);
                                     call_procedure(program, arguments);
                                     return null_value();
                                 }));
        }
    }
    ~Recorder() {
        for (const char *name : names) modla_test::unassign(name);
    }
};

// A single line in a Matrix whose two steps are both 1: transposed at its start, it is handed over as it is.
bool is_ambiguous_transpose(const Block &block) {
    return block.offsets[0] == block.geometry.offset && block.arguments.back() == global_name("transpose") &&
           block.geometry.subtype == MODLA_MATRIX &&
           (block.geometry.order == MODLA_C_ORDER ? block.geometry.columns : block.geometry.rows) == 1;
}

TEST(AddMult, CallbacksReceiveTheBlocks) {
    Recorder recorder;
    int plain = 0, shifted = 0;
    repeat(1500, [&](Random &random, Storage &storage, int) {
        Placement where = {MODLA_INTEGER, Layout::apart};
        const Size size = {below(random, 5), 1 + below(random, 4)};
        const Block a = random_block(random, storage, where, size, chance(random, 40));
        const Block b = random_block(random, storage, where, size, chance(random, 40), &a);
        const Block out = random_block(random, storage, where, size, false, &a);
        if (is_ambiguous_transpose(a) || is_ambiguous_transpose(b)) return;
        const int32_t p = 1000003, c = below(random, p);
        const bool given = chance(random, 70), create = size.rows > 0 && chance(random, 30);
        for (const Block *block : {&a, &b, &out}) {
            for (const uint32_t at : block->offsets) storage.put(at, immediate(below(random, p)));
        }
        std::vector<Object> arguments = {immediate(p)};
        if (given) arguments.push_back(immediate(c));
        arguments = join(join(arguments, a.arguments), b.arguments);
        arguments = create ? join(arguments, {global_name("C_order")}) : join(arguments, out.arguments);
        if (chance(random, 20)) arguments.push_back(global_name("sparse"));
        SCOPED_TRACE(describe(arguments));
        storage.take_shadow();
        recorder.called.clear();
        const Object result = storage.keep(call(modLA_AddMult, arguments, random));

        ASSERT_EQ(recorder.called.size(), 1u);
        const bool shift = recorder.called[0] == "cbAddMultShift";
        (shift ? shifted : plain)++;
        const std::vector<Object> &got = recorder.calls.values;
        ASSERT_EQ(got.size(), shift ? 13u : 7u);
        EXPECT_EQ(got[0], immediate(p));
        EXPECT_EQ(got[1], immediate(a.rows));
        EXPECT_EQ(got[2], immediate(a.columns));
        EXPECT_EQ(got[3], immediate(given ? c : 1));
        int32_t shifts[6] = {};
        for (size_t k = 0; shift && k < 6; k++) shifts[k] = immediate_value(got[5 + k + k / 2]);
        EXPECT_EQ(std::any_of(shifts, shifts + 6, [](int32_t s) { return s != 0; }), shift);
        check_view(a, storage.base, got[4], shifts[0], shifts[1]);
        check_view(b, storage.base, got[shift ? 7 : 5], shifts[2], shifts[3]);
        const Object target = got[shift ? 10 : 6];
        if (create) {
            EXPECT_EQ(table_of(target).data, table_of(result).data);
        } else {
            EXPECT_EQ(result, null_value());
            check_view(out, storage.base, target, shifts[4], shifts[5]);
        }

        std::vector<Object> sums;
        for (size_t k = 0; k < a.offsets.size(); k++) {
            const auto value = [&](uint32_t at) { return uint64_t{storage.shadow_at<uint32_t>(at) >> 1}; };
            const uint64_t sum = value(a.offsets[k]) + (given ? static_cast<uint64_t>(c) : 1) * value(b.offsets[k]);
            sums.push_back(immediate(static_cast<int32_t>(sum % p)));
            if (!create) std::memcpy(&storage.shadow[out.offsets[k]], &sums.back(), 4);
        }
        if (create) {
            EXPECT_EQ(entries_of<Object>(result, size, MODLA_C_ORDER), sums);
        }
        ASSERT_EQ(storage.difference(), -1);
    });
    EXPECT_GT(plain, 100);
    EXPECT_GT(shifted, 100);
}

TEST(AddMult, BigMultipliersOfHostIntegers) {
    Recorder recorder;
    const char *const range = "multiplier value must be an integral numeric value in the range 0..modulus-1";
    const struct {
        const char *p, *c, *message, *sum;
    } cases[] = {{"10^40", "10^39", "", "2*10^39 + 1"},
                 {"10^40", "10^40 - 1", "", "10^40 - 1"},
                 {"10^40", "10^40", range, ""},
                 {"10^40", "-1", range, ""},
                 {"10^40", "2.5", "", "7"},
                 {"10^40", "-2.5", range, ""},
                 {"11", "10^40", range, ""},
                 {"11", "10", "", "10"},
                 {"11", "11", range, ""}};
    for (const auto &[p, c, message, sum] : cases) {
        const std::string text = std::string(p) + ", " + c;
        const std::string program = "A := Create(" + std::string(p) +
                                    ", 1, 1, integer); B := Copy(11, A); C := Copy(11, A)" +
                                    "; A[1, 1] := 1; B[1, 1] := 2; C[1, 1] := 77; AddMult(" + text + ", A, B, C)";
        EXPECT_EQ(modla_test::error_of(program), message) << text;
        const Object value = eval("C[1, 1]");
        EXPECT_TRUE(same_value(value, eval(*message ? "77" : sum))) << text << ": " << to_text(value);
    }
}

// ---- Messages: the first failing check speaks, and nothing was written ----

struct Failure {
    const char *entry, *arguments, *message;
};

const char *const tables =
    "W := Create(7, 2, 3, random, integer[4], C_order); X := Create(7, 2, 3, random, integer[4], Fortran_order);"
    "D := Create(7, 2, 3, random, float[8], C_order); S := Create(7, 3, 3, random, integer[4], C_order);"
    "Z := Create(7, 3, 3, random, integer, C_order); T := Create(7, 4, 3, random, integer[4], C_order);"
    "V := Create(7, 3, 0, random, integer[4]); R := Create(7, 0, 3, random, integer[4]);"
    "P := Create(7, 2, 0, 1, integer[4]); Q := Create(7, 1, 0, 1, integer[4]); F := Create(7, 2, 0, 1, float[8])";

const char *const no_integer = "argument 1, the modulus, must be an integer";
const char *const word_modulus = "modulus is too large for 'integer[4]' datatype, must be < 65536";
const char *const float_modulus = "modulus is too large for 'float[8]' datatype, must be < 33554432";

const Failure failures[] = {
    // Copy
    {"Copy", "", "too few arguments"},
    {"Copy", "x", "too few arguments"},
    {"Copy", "7, upper", "too few arguments"},
    {"Copy", "2.0, 5", no_integer},
    {"Copy", "7, 5", "argument 2 must be a modp Matrix or Vector"},
    {"Copy", "7, Upper, S", "argument 2 must be a modp Matrix or Vector"},
    {"Copy", "7, upper, upper", "argument 3 must be a modp Matrix or Vector"},
    {"Copy", "7, W, 0", "Matrix index out of range"},
    {"Copy", "7, W, 5", "Matrix index out of range"},
    {"Copy", "7, W, -3", "Matrix index out of range"},
    {"Copy", "7, W, 1, 4", "Matrix index out of range"},
    {"Copy", "7, W, 2..1, 9", "row range cannot be empty"},
    {"Copy", "7, W, 1..2, 3..2", "column range cannot be empty"},
    {"Copy", "7, W, 1..3", "Matrix index out of range"},
    {"Copy", "7, W, 10^20", "Matrix index out of range"},
    {"Copy", "7, V, 4", "Vector index out of range"},
    {"Copy", "7, R, -4..1", "Vector index out of range"},
    {"Copy", "7, V, 1..2, 5", "expected output object or ordering for argument 4, got 5"},
    {"Copy", "7, W, 2.5", "expected output object or ordering for argument 3, got 2.5"},
    {"Copy", "7, W, sparse", "expected output object or ordering for argument 3, got sparse"},
    {"Copy", "1, W, D", "argument 3 has incorrect datatype"},
    {"Copy", "7, W, 1..1, W, transpose", "argument 4 has a different number of rows than required by prior arguments"},
    {"Copy", "7, W, S", "argument 3 has a different number of rows than required by prior arguments"},
    {"Copy", "7, W, transpose, X", "argument 4 has a different number of rows than required by prior arguments"},
    {"Copy", "7, W, S, 1..3", "argument 3 has more rows than required by prior arguments"},
    {"Copy", "7, W, S, 3..3", "argument 3 has fewer rows than required by prior arguments"},
    {"Copy", "7, W, S, 3", "argument 3 shortcut specification has fewer rows than required by prior arguments"},
    {"Copy", "7, W, 1..2, 1..2, W", "argument 5 has a different number of columns than required by prior arguments"},
    {"Copy", "7, W, 1..2, 1..2, W, 1, 1..3", "argument 5 has more columns than required by prior arguments"},
    {"Copy", "7, W, 1..2, 1..2, W, 1, 3..3", "argument 5 has fewer columns than required by prior arguments"},
    {"Copy", "7, W, 1..2, 1..2, W, 1, 3",
     "argument 5 shortcut specification has fewer columns than required by prior arguments"},
    {"Copy", "7, W, R", "argument 3 is a row object where prior arguments require a row dimension"},
    {"Copy", "7, V, S, 1..3", "argument 3 has a column dimension where prior arguments require a column object"},
    {"Copy", "7, R, S", "argument 3 has a row dimension where prior arguments require a row object"},
    {"Copy", "7, S, V", "argument 3 is a column object where prior arguments require a column dimension"},
    {"Copy", "7, W, 1, 1", "object for create cannot be zero dimensional"},
    {"Copy", "1, lower, W, X, 3.5", "too many arguments, starting at argument 5, 3.5"},
    {"Copy", "7, W, C_order, C_order", "too many arguments, starting at argument 4, C_order"},
    {"Copy", "7, W, X, transpose", "too many arguments, starting at argument 4, transpose"},
    {"Copy", "1, lower, W", "input must be a square Matrix for special copy types"},
    {"Copy", "7, uppernodiag, V", "input must be a square Matrix for special copy types"},
    {"Copy", "1, W, X", "modulus must be at least 2"},
    {"Copy", "-10^30, Z, Z", "modulus must be at least 2"},
    {"Copy", "65536, W, X", word_modulus},
    {"Copy", "33554432, D, D", float_modulus},
    // Swap
    {"Swap", "x, W", "too few arguments"},
    {"Swap", "7, W", "too few arguments"},
    {"Swap", "7, W, 1", "too few arguments"},
    {"Swap", "7, upper, W", "too few arguments"},
    {"Swap", "7, W, 9", "Matrix index out of range"},
    {"Swap", "x, W, W", no_integer},
    {"Swap", "7, W, 5.5", "argument 3 must be a modp Matrix or Vector"},
    {"Swap", "7, W, D", "argument 3 has incorrect datatype"},
    {"Swap", "7, W, 1, W", "argument 4 has a row dimension where prior arguments require a row object"},
    {"Swap", "7, S, S, transpose", "too many arguments, starting at argument 4, transpose"},
    {"Swap", "1, lower, W, X", "input must be a square Matrix for special swap types"},
    {"Swap", "1, lower, S, S", "modulus must be at least 2"},
    {"Swap", "65536, W, X", word_modulus},
    // Permute
    {"Permute", "x, P, S, true", "incorrect number of arguments"},
    {"Permute", "7, P, S, true, true, 1", "incorrect number of arguments"},
    {"Permute", "x, 1, S, true, true", no_integer},
    {"Permute", "7, 1, 1, true, true", "argument 2, the permutation, must be an rtable"},
    {"Permute", "7, [1], S, true, true", "argument 2, the permutation, must be an rtable"},
    {"Permute", "7, F, 1, x, x", "argument 3, the object to be permuted, must be an rtable"},
    {"Permute", "7, F, S, 1, 1", "argument 4 must be 'true' or 'false'"},
    {"Permute", "7, F, S, true, upper", "argument 5 must be 'true' or 'false'"},
    {"Permute", "7, F, S, true, true", "argument 2 must have integer datatype"},
    {"Permute", "7, S, S, true, true", "argument 2 must be a Vector"},
    {"Permute", "1, Q, S, true, true",
     "argument 2 must have at least one less element than the number of rows in the Matrix"},
    {"Permute", "1, Q, W, false, true",
     "argument 2 must have at least one less element than the number of columns in the Matrix"},
    {"Permute", "1, Q, R, true, true", "cannot specify a row permutation on a row vector"},
    {"Permute", "1, Q, R, false, true",
     "argument 2 must have at least one less element than the number of columns in the Vector"},
    {"Permute", "1, Q, V, false, true", "cannot specify a column permutation on a column vector"},
    {"Permute", "1, Q, V, true, true",
     "argument 2 must have at least one less element than the number of rows in the Vector"},
    {"Permute", "1, P, S, true, true", "modulus must be at least 2"},
    // AddMult
    {"AddMult", "x, W", "too few arguments"},
    {"AddMult", "7, 3, W", "too few arguments"},
    {"AddMult", "7, W, 1..2", "too few arguments"},
    {"AddMult", "x, x, W", no_integer},
    {"AddMult", "7, sparse, W, W", "argument 2 must be a multiplier or a modp Matrix/Vector"},
    {"AddMult", "7, [1], W, W", "argument 2 must be a multiplier or a modp Matrix/Vector"},
    {"AddMult", "7, 9, 9, W", "argument 3 must be a modp Matrix or Vector"},
    {"AddMult", "1, 9, W, D", "argument 4 has incorrect datatype"},
    {"AddMult", "1, 9, W, transpose, X", "argument 5 has a different number of rows than required by prior arguments"},
    {"AddMult", "1, 9, W, X, 1.5", "expected output object, ordering, or sparse option for argument 5, got 1.5"},
    {"AddMult", "1, 9, W, X", "must specify output ordering when input arguments have different ordering"},
    {"AddMult", "1, 9, W, X, sparse, 1.5", "must specify output ordering when input arguments have different ordering"},
    {"AddMult", "1, 9, W, 1, 1, X, 1, 1, C_order, 8", "object for create cannot be zero dimensional"},
    {"AddMult", "1, 9, W, X, D, 1.5", "argument 5 has incorrect datatype"},
    {"AddMult", "1, 9, W, X, W, transpose", "expected sparse option for argument 6, got transpose"},
    {"AddMult", "1, 9, W, X, W, C_order", "expected sparse option for argument 6, got C_order"},
    {"AddMult", "1, 9, W, X, C_order, 1.5", "expected sparse option for argument 6, got 1.5"},
    {"AddMult", "1, 9, W, X, W, sparse, 1.5", "too many arguments, starting at argument 7, 1.5"},
    {"AddMult", "1, 9, W, W, sparse, sparse", "too many arguments, starting at argument 6, sparse"},
    {"AddMult", "65536, 70000, W, X, W", word_modulus},
    {"AddMult", "1, 9, W, X, W", "modulus must be at least 2"},
    {"AddMult", "7, 7, D, D, D, sparse",
     "multiplier value must be an integral numeric value in the range 0..modulus-1"},
};

std::vector<std::vector<char>> all_storage() {
    std::vector<std::vector<char>> all;
    for (const char *name : {"W", "X", "D", "S", "Z", "T", "V", "R", "P", "Q", "F"}) {
        all.push_back(modla_test::storage_of(eval(name)));
    }
    return all;
}

TEST(Movement, TheFirstFailingCheckSpeaks) {
    run(tables);
    for (const Failure &failure : failures) {
        modla_test::expect_failure(failure.entry, failure.arguments, failure.message, all_storage);
        if (HasFatalFailure()) return;
    }
}

TEST(Movement, TablesOfOtherKindsAreRefused) {
    run(tables);
    using modla_test::make_table;
    Roots made;
    const auto keep = [&](Object x) { return made.values.push_back(x), x; };
    const Object good = eval("S"), P = eval("P"), p = immediate(7), yes = global_name("true");
    const Object bytes = keep(make_table(3, MODLA_MATRIX, MODLA_C_ORDER, 3, 3)),
                 packed = keep(make_table(MODLA_INTEGER4, MODLA_MATRIX, MODLA_C_ORDER, 3, 3, 1)),
                 packed_vector = keep(make_table(MODLA_INTEGER4, MODLA_COLUMN_VECTOR, MODLA_C_ORDER, 3, 1, 1)),
                 array = keep(make_table(MODLA_INTEGER4, 0, MODLA_C_ORDER, 3, 3));
    const struct {
        EntryPoint entry;
        std::vector<Object> arguments;
        const char *message;
    } cases[] = {
        {modLA_Copy, {p, bytes}, "argument 2 has invalid datatype"},
        {modLA_Copy, {p, packed}, "argument 2 has invalid storage"},
        {modLA_Copy, {p, array}, "argument 2 must be a Matrix or Vector"},
        {modLA_Swap, {p, good, bytes}, "argument 3 has incorrect datatype"},
        {modLA_Swap, {p, good, packed}, "argument 3 has invalid storage"},
        {modLA_AddMult, {p, good, array}, "argument 3 must be a Matrix or Vector"},
        {modLA_Permute, {p, good, bytes, p, p}, "argument 3 has invalid datatype"},
        {modLA_Permute, {p, good, packed, p, p}, "argument 3 has invalid storage"},
        {modLA_Permute, {p, packed, good, yes, yes}, "argument 2 has invalid storage"},
        {modLA_Permute, {p, packed_vector, array, yes, yes}, "argument 2 has invalid storage"},
        {modLA_Permute, {p, P, array, yes, yes}, "argument 3 must be a Matrix or Vector"},
    };
    for (const auto &[entry, arguments, message] : cases) {
        EXPECT_EQ(message_of([&] { call_entry_point(entry, arguments); }), message);
    }
}

// Where RaiseError returns, the steps before a bad one are made all the same.
TEST(Permute, StopsAtTheFirstBadStep) {
    for (const char *const reverse : {"false", "true"}) {
        for (const bool returns : {false, true}) {
            run("P := Create(7, 3, 0, integer[4]); P[1] := 2; P[2] := 5; P[3] := 4; A := Create(7, 4, 0, integer[4])");
            run("for i from 1 to 4 do A[i] := i end");
            const Object list = eval(std::string("[7, P, A, true, ") + reverse + "]");
            if (returns) {
                const HostApi api = modla_test::recording_host();
                EXPECT_EQ(modLA_Permute(&api, words(sequence_of(list))), null_value());
                EXPECT_EQ(raised_messages, std::vector<std::string>{"invalid permutation vector"});
            } else {
                EXPECT_EQ(modla_test::error_of(std::string("Permute(7, P, A, true, ") + reverse + ")"),
                          "invalid permutation vector");
            }
            EXPECT_EQ(run("print(A[1], A[2], A[3], A[4])"), *reverse == 'f' ? "2 1 3 4\n" : "1 2 4 3\n");
        }
    }
}

TEST(Movement, EmptyTables) {
    Random random(3);
    Storage storage(MODLA_INTEGER4);
    storage.fill_with_tags(random);
    for (const int32_t datatype : {MODLA_INTEGER, MODLA_INTEGER4, MODLA_FLOAT8}) {
        for (const int32_t order : {MODLA_C_ORDER, MODLA_FORTRAN_ORDER}) {
            RtableSettings settings = default_settings();
            settings.datatype = datatype;
            settings.order = order;
            const auto table = [&](int32_t rows, int32_t columns, uint32_t offset) {
                const int32_t bounds[2] = {rows, columns};
                return storage.keep(new_table(settings, bounds, storage.base + offset));
            };
            const Object flat = table(0, 5, 4096), thin = table(5, 0, 8192), full = table(5, 5, 0);
            const Object p = immediate(7), one = immediate(1), all = storage.keep(new_pair(type_range, p - 12, p - 4));
            storage.take_shadow();
            const std::vector<std::vector<Object>> calls = {{p, flat, full, one},
                                                            {p, thin, full, all, one},
                                                            {p, flat, flat},
                                                            {p, thin, thin},
                                                            {p, flat},
                                                            {p, thin}};
            for (const auto &arguments : calls) {
                for (const EntryPoint entry : {modLA_Copy, modLA_Swap, modLA_AddMult}) {
                    if (entry == modLA_AddMult && datatype == MODLA_INTEGER) continue;  // the host's affair
                    message_of([&] { storage.keep(call(entry, arguments, random)); });
                    ASSERT_EQ(storage.difference(), -1) << describe(arguments);
                }
            }
            const Object P = storage.keep(modla_test::make_table(MODLA_INTEGER4, MODLA_COLUMN_VECTOR, 1, 9, 1));
            for (const char *rows : {"true", "false"}) {
                for (const Object empty : {flat, thin}) {
                    message_of([&] {
                        call(modLA_Permute, {p, P, empty, global_name(rows), global_name(rows)}, random);
                    });
                    ASSERT_EQ(storage.difference(), -1);
                }
            }
        }
    }
}

// ---- Blocks beyond the caches ----

template <class Entry>
void move_large(int32_t datatype, int32_t rows, int32_t columns, int32_t margin, int32_t triangle) {
    SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(columns) + " of datatype " + std::to_string(datatype) +
                 " " + triangles[triangle]);
    Roots made;
    const auto matrix = [&](int32_t order, int32_t m, int32_t n) {
        made.values.push_back(modla_test::make_table(datatype, MODLA_MATRIX, order, m, n));
        return made.values.back();
    };
    const auto at = [&](Object table, int32_t i, int32_t j) -> Entry & {
        const Table &t = table_of(table);
        const Geometry g = {table, MODLA_MATRIX, t.settings.order, t.bounds[0], t.bounds[1], 0};
        return *reinterpret_cast<Entry *>(static_cast<char *>(t.data) + entry_offset(g, datatype, i, j));
    };
    const auto tag = [](int32_t i, int32_t j) { return static_cast<Entry>(i) * 4096 + static_cast<Entry>(j) + 1; };
    const Object a = matrix(MODLA_C_ORDER, rows, columns);
    const Object b = matrix(MODLA_FORTRAN_ORDER, rows + margin, columns);
    const auto fill = [&] {
        for (int32_t i = 0; i < rows; i++) {
            for (int32_t j = 0; j < columns; j++) at(a, i, j) = tag(i, j);
        }
        for (int32_t j = 0; j < columns; j++) {
            for (int32_t i = 0; i < rows + margin; i++) at(b, i, j) = 77;
        }
    };
    const auto arguments = [&](Object first, std::vector<Object> more) {
        std::vector<Object> list = {immediate(7)};
        if (triangle) list.push_back(global_name(triangles[triangle]));
        return join(join(list, {first}), more);
    };
    const auto count_wrong = [&](auto &&expected_a, auto &&expected_b) {
        int wrong = 0;
        for (int32_t j = 0; j < columns; j++) {
            for (int32_t i = 0; i < rows + margin; i++) {
                const bool moved = i >= margin && selected(triangle, i - margin, j);
                wrong += at(b, i, j) != (moved ? expected_b(i - margin, j) : 77);
                if (i < rows) wrong += at(a, i, j) != (selected(triangle, i, j) ? expected_a(i, j) : tag(i, j));
            }
        }
        return wrong;
    };
    const auto guard = [](int32_t, int32_t) { return Entry{77}; };
    const Object start = immediate(margin + 1);  // a shortcut
    fill();
    call_entry_point(modLA_Copy, arguments(a, {b, start}));
    EXPECT_EQ(count_wrong(tag, tag), 0) << "copy";
    fill();
    call_entry_point(modLA_Swap, arguments(a, {b, start}));
    EXPECT_EQ(count_wrong(guard, tag), 0) << "swap";
    if (rows != columns) return;
    fill();
    call_entry_point(modLA_Swap, {immediate(7), global_name("lower"), a, global_name("transpose"), a});
    int wrong = 0;
    for (int32_t i = 0; i < rows; i++) {
        for (int32_t j = 0; j < columns; j++) wrong += at(a, i, j) != tag(j, i);
    }
    EXPECT_EQ(wrong, 0) << "transposed in place";
}

TEST(Movement, LargeBlocks) {
    move_large<uint32_t>(MODLA_INTEGER4, 2048, 1024, 0, 0);
    move_large<uint32_t>(MODLA_INTEGER4, 1100, 1100, 0, 0);
    move_large<uint32_t>(MODLA_INTEGER4, 1100, 1100, 4, 1);   // lines end within a tile
    move_large<uint32_t>(MODLA_INTEGER4, 1104, 1104, 16, 0);  // starts on a cache line
    move_large<uint32_t>(MODLA_INTEGER4, 1104, 1104, 16, 2);
    move_large<uint32_t>(MODLA_INTEGER4, 1104, 1104, 0, 4);
    move_large<uint64_t>(MODLA_FLOAT8, 1024, 640, 0, 0);
    move_large<uint64_t>(MODLA_FLOAT8, 768, 768, 8, 3);
    move_large<uint64_t>(MODLA_FLOAT8, 1101, 1101, 0, 1);
}

}  // namespace
