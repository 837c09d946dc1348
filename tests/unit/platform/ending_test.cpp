// SPDX-License-Identifier: MIT
#include "platform/ending.h"

#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

class ending : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(init_ending()); }
    void TearDown() override { release_ending(); }
    static bool is_heard()
    {
        pollfd wanted = {ending_fd(), POLLIN, 0};
        return poll(&wanted, 1, 0) == 1;
    }
};

// holds: ending-heard
TEST_F(ending, is_neither_seen_nor_heard_before_somebody_asks_for_it)
{
    EXPECT_FALSE(end_is_asked_for());
    EXPECT_FALSE(is_heard());
}

// holds: ending-heard
TEST_F(ending, once_asked_for_is_seen_and_heard_for_good)
{
    ask_for_end();
    for (int i = 0; i < 2; i++) {
        EXPECT_TRUE(end_is_asked_for());
        EXPECT_TRUE(is_heard());
    }
}

// holds: ending-heard
TEST_F(ending, counts_from_the_moment_at_which_somebody_sees_it_first)
{
    ask_for_end();
    usleep(50'000);
    EXPECT_LT(end_is_seen_for_ms(), 40);
    usleep(20'000);
    ask_for_end();
    EXPECT_GE(end_is_seen_for_ms(), 18);
}

// holds: ending-heard
TEST_F(ending, is_forgotten_with_its_release)
{
    ask_for_end();
    release_ending();
    EXPECT_FALSE(end_is_asked_for());
    EXPECT_EQ(ending_fd(), -1);
    ASSERT_TRUE(init_ending());
    EXPECT_FALSE(is_heard());
}

} // namespace
