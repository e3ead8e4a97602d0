// A host that gives up in any of its operations, at any call of it, by an exception, by longjmp or by returning nothing:
// only Alloc memory is outstanding, modes are unchanged, and the same call works afterwards.
#include <gtest/gtest.h>

#include "tests/library_calls.h"

namespace {

using namespace modla_test;
using namespace modla_test::strict;

constexpr const char *gave_up = "the host gave up";

class Unwinding : public testing::Test {
  protected:
    Unwinding() { start(); }
    ~Unwinding() override { host = {}; }

    static void start(bool writes_early = false) {
        host = {};
        host.conditions = {12, {0x7f80, 0x007f}};
        host.no_checks_after_writes = !writes_early;
    }
    static void expect_no_violations(const std::string &context) {
        ASSERT_EQ(host.violations, std::vector<std::string>{}) << context;
    }
};

TEST_F(Unwinding, LeavesNothingBehindWhereverItHappens) {
    int faults = 0;
    for (const LibraryCall &call : library_calls()) {
        start(call.writes_early);
        const Result expected = make_call(call);
        expect_no_violations(call.name);
        const std::vector<const char *> operations = host.operations;
        for (const Leaving leaving : {Leaving::exception, Leaving::long_jump}) {
            for (size_t n = 1; n <= operations.size(); n++) {
                const std::string context = call.name + ": " + operations[n - 1] + ", call " + std::to_string(n);
                host.leaving = leaving;
                host.failing_call = static_cast<int>(n);
                const Result failed = make_call(call);
                ASSERT_FALSE(failed.returned) << context;
                ASSERT_EQ(failed.messages, std::vector<std::string>{gave_up}) << context;
                ASSERT_TRUE(failed.holds_residues || call.writes_early) << context;
                ASSERT_NO_FATAL_FAILURE(expect_no_violations(context));
                faults++;
            }
            host.failing_call = 0;
            ASSERT_TRUE(make_call(call) == expected) << call.name << ": not the same afterwards";
            ASSERT_NO_FATAL_FAILURE(expect_no_violations(call.name));
        }
    }
    EXPECT_GT(faults, 20000);
}

// Where errors return: an operation that can fail has raised its error and comes back with nothing.
TEST_F(Unwinding, OfAnErrorThatReturnsEndsTheCallWithNull) {
    int refusals = 0;
    for (const LibraryCall &call : library_calls()) {
        start(call.writes_early);
        host.leaving = Leaving::returning;
        make_call(call);
        expect_no_violations(call.name);
        const std::vector<const char *> operations = host.operations;
        for (size_t n = 1; n <= operations.size(); n++) {
            const std::string operation = operations[n - 1];
            if (operation != "Alloc" && operation != "RtableCreate" && operation != "NewObject") continue;
            const std::string context = call.name + ": " + operation + ", call " + std::to_string(n);
            host.failing_call = static_cast<int>(n);
            const Result refused = make_call(call);
            ASSERT_TRUE(refused.returned) << context;
            ASSERT_EQ(refused.messages, std::vector<std::string>{gave_up}) << context;
            ASSERT_TRUE(refused.holds_residues || call.writes_early) << context;
            ASSERT_NO_FATAL_FAILURE(expect_no_violations(context));
            // Memory of no bytes is not missed.
            const bool missed = operation != "Alloc" || host.refused_bytes > 0;
            const bool is_entry_point = call.name.find('(') != std::string::npos;
            if (missed && is_entry_point) {
                ASSERT_EQ(refused.found.substr(0, refused.found.find('\n')), "") << context;
            }
            refusals++;
        }
    }
    EXPECT_GT(refusals, 100);
}

// A callback that answers with something else than a status.
TEST_F(Unwinding, OfACallThatAProcedureAnsweredWithNonsense) {
    int answers = 0;
    for (const LibraryCall &call : library_calls()) {
        if (call.datatype != MODLA_INTEGER) continue;
        start(call.writes_early);
        make_call(call);
        const std::string callback = host.last_callback;
        const std::set<std::string> with_status = {"cbReduce",  "cbLUDecomp", "cbForSub",
                                                   "cbBackSub", "cbMatGcd",   "cbZigZag"};
        if (!with_status.count(callback)) continue;
        for (const HostObject nonsense : {name("x"), immediate(77), immediate(-77)}) {
            if (nonsense == immediate(77) && callback == "cbMatGcd") continue;  // a degree
            host.callback_result = nonsense;
            ASSERT_EQ(make_call(call).messages, std::vector<std::string>{"unknown error"}) << call.name;
            answers++;
        }
        ASSERT_NO_FATAL_FAILURE(expect_no_violations(call.name));
    }
    EXPECT_GT(answers, 100);
}

// Every function that receives the host's table is among the calls.
TEST_F(Unwinding, IsTriedOnEveryFunctionThatCallsTheHost) {
    std::set<std::string> called;
    for (const LibraryCall &call : library_calls()) called.merge(make_call(call).called);
    for (const std::string &name : host_caller_names()) EXPECT_TRUE(called.count(name)) << name;
    EXPECT_GT(host_caller_names().size(), 20u);
}

}  // namespace
