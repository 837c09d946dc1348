// SPDX-License-Identifier: MIT
#include "tests/unit/support/headers.h"

#include <cstdlib>
#include <unistd.h>

COMMON_TEMPLATES(template)

namespace {

// A test that ends its own process, with whatever status, has not passed, and neither have those behind it. A test's
// child may end.
const pid_t runner = getpid();

[[maybe_unused]] const int watched = [] {
    testing::UnitTest::GetInstance(); // outlives what is called at the exit
    return atexit([] {
        if (getpid() == runner && testing::UnitTest::GetInstance()->current_test_info())
            _exit(EXIT_FAILURE);
    });
}();

} // namespace
