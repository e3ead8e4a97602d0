// Runs a test binary's tests; a run that finds none is a failure.
#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::fprintf(stderr, "no test was run\n");
        return 1;
    }
    return result;
}
