// Any stack alignment, data alignment and floating-point modes of a caller: everything that is exported gives the same
// results, and leaves registers and modes as they are, on return and whenever it calls or leaves through the host.
#include <gtest/gtest.h>
#include <pthread.h>

#include "tests/library_calls.h"

namespace {

using namespace modla_test;
using namespace modla_test::strict;

std::vector<Conditions> all_conditions() {
    std::vector<Conditions> all;
    for (uint32_t mxcsr = 0; mxcsr < 32; mxcsr++) {
        const uint32_t rounding = mxcsr & 3;
        const uint32_t flushing = (mxcsr & 4 ? 0x8000u : 0) | (mxcsr & 8 ? 0x40u : 0);
        const uint32_t masks = mxcsr & 16 ? 0 : 0x1f80;
        for (const int precision : {0x000, 0x200, 0x300}) {
            for (int x87_rounding = 0; x87_rounding < 4; x87_rounding++) {
                for (const int x87_masks : {0x3f, 0x00}) {
                    const uint32_t misalignment = static_cast<uint32_t>(all.size() % 3 + 1) * 4;
                    const int control = precision | x87_rounding << 10 | x87_masks | 0x40;
                    all.push_back({misalignment, {rounding << 13 | flushing | masks, static_cast<uint16_t>(control)}});
                }
            }
        }
    }
    return all;
}

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t slowness = 6;
#else
constexpr size_t slowness = 1;
#endif

std::string text_of(const Conditions &conditions) {
    char text[100];
    std::snprintf(text, sizeof text, "stack at %u mod 16, MXCSR %04x, x87 control word %04x", conditions.misalignment,
                  conditions.mode.mxcsr, conditions.mode.x87_control);
    return text;
}

class CallingConditions : public testing::Test {
  protected:
    CallingConditions() { host = {}; }
    ~CallingConditions() override { host = {}; }
};

TEST_F(CallingConditions, ChangeNoResult) {
    const std::vector<Conditions> conditions = all_conditions();
    ASSERT_EQ(conditions.size(), 768u);
    size_t next = 0;
    for (const LibraryCall &call : library_calls()) {
        host = {};
        host.aligned_data = true;
        host.conditions.mode = current_fp_mode();
        const Result expected = make_call(call);
        ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name;
        host.aligned_data = false;
        const size_t affordable = call.repetitions == 4 ? conditions.size() : call.repetitions == 2 ? 96 : 24;
        const size_t count = affordable / slowness;
        for (size_t k = 0; k < count; k++) {
            next = (next + conditions.size() / count + (k == 0)) % conditions.size();
            host.conditions = conditions[next];
            host.leaving = next % 2 ? Leaving::exception : Leaving::long_jump;
            const Result result = make_call(call);
            ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name << ", " << text_of(conditions[next]);
            ASSERT_TRUE(result == expected)
                << call.name << ", " << text_of(conditions[next]) << "\nfound:\n"
                << testing::PrintToString(result.messages) << result.found << "\nexpected:\n"
                << testing::PrintToString(expected.messages) << expected.found;
        }
    }
}

#if !defined(__SANITIZE_ADDRESS__)
// The calls on a thread whose stack is small; one that needs more ends the process.
TEST_F(CallingConditions, ASmallStackIsEnough) {
    constexpr size_t for_the_host = size_t{40} << 10;
    host.conditions.misalignment = 4;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, (size_t{100} << 10) + for_the_host), 0);
    for (const LibraryCall &call : library_calls()) {
        const Result expected = make_call(call);
        std::pair<const LibraryCall *, Result> job = {&call, {}};
        const auto run = [](void *argument) -> void * {
            auto &[wanted, result] = *static_cast<decltype(job) *>(argument);
            result = make_call(*wanted);
            return nullptr;
        };
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, run, &job), 0);
        pthread_join(thread, nullptr);
        ASSERT_TRUE(job.second == expected) << call.name;
        ASSERT_EQ(host.violations, std::vector<std::string>{}) << call.name;
    }
    pthread_attr_destroy(&attributes);
}
#endif

// The list of calls leaves out nothing that the library exports.
TEST_F(CallingConditions, AreTriedOnEveryExport) {
    std::set<std::string> called;
    for (const LibraryCall &call : library_calls()) called.merge(make_call(call).called);
    for (const std::string &name : exported_names()) EXPECT_TRUE(called.count(name)) << name;
    EXPECT_GT(exported_names().size(), 70u);
}

}  // namespace
