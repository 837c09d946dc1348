// SPDX-License-Identifier: MIT
// main of the daemon's test programs: enters the sandbox, unless the tests are only listed.
#include <cstring>

#include <gtest/gtest.h>

#include "tests/unit/support/sandbox.h"

int main(int argc, char **argv)
{
    bool listing = false;
    for (int i = 1; i < argc; i++)
        listing = listing || strncmp(argv[i], "--gtest_list_tests", 18) == 0;
    testing::InitGoogleTest(&argc, argv);
    if (!listing)
        enter_sandbox();
    return RUN_ALL_TESTS();
}
