// SPDX-License-Identifier: MIT
// What the standard library calls when one of its own checks fails.
#include <gtest/gtest.h>

namespace std {

[[noreturn]] void __glibcxx_assert_fail(const char *file, int line, const char *function,
                                        const char *condition) noexcept;

}

TEST(assertion, that_fails_is_told_in_one_line_and_ends_the_process)
{
    EXPECT_EXIT(std::__glibcxx_assert_fail("frames.cpp", 7, "parse", "index < size()"),
                testing::KilledBySignal(SIGABRT), "^frames.cpp:7: index < size\\(\\) does not hold\n$");
}
