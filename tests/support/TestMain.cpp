#include "support/NetNs.h"

#include <cstdio>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !IsolateNetwork()) {
        std::perror("no network namespace for the tests");
        return 1;
    }
    return RUN_ALL_TESTS();
}
