// SPDX-License-Identifier: MIT
// Time stamps and sleeps.
#include <csignal>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/clock.h"

namespace {

bool monotonic_clock_fails;

}

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept
{
    if (clock == CLOCK_MONOTONIC && monotonic_clock_fails) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}

namespace {

int64_t microseconds_of(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return now.tv_sec * int64_t{MICROSECONDS_PER_SECOND} + now.tv_nsec / 1000;
}

int64_t microseconds(t_time_stamp stamp)
{
    return time_stamp_diff_us(stamp, {0, 0});
}

} // namespace

TEST(time_stamp, is_read_from_the_monotonic_clock)
{
    int64_t before = microseconds_of(CLOCK_MONOTONIC);
    int64_t stamp = microseconds(get_time_stamp());
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, microseconds_of(CLOCK_MONOTONIC));
}

TEST(time_stamp, falls_back_to_the_wall_clock)
{
    monotonic_clock_fails = true;
    t_time_stamp stamp = get_time_stamp();
    monotonic_clock_fails = false;
    EXPECT_NEAR(static_cast<double>(microseconds(stamp)), static_cast<double>(microseconds_of(CLOCK_REALTIME)),
                MICROSECONDS_PER_SECOND);
}

TEST(time_stamp, difference_is_signed_microseconds)
{
    EXPECT_EQ(time_stamp_diff_us({5, 250'000}, {3, 750'000}), 1'500'000);
    EXPECT_EQ(time_stamp_diff_us({3, 750'000}, {5, 250'000}), -1'500'000);
    EXPECT_EQ(time_stamp_diff_us({3, 1}, {3, 1}), 0);
}

TEST(time_stamp, difference_of_the_furthest_stamps_does_not_overflow)
{
    EXPECT_EQ(time_stamp_diff_us({INT32_MAX, 999'999}, {INT32_MIN, 0}), 4294967295LL * 1'000'000 + 999'999);
    EXPECT_EQ(time_stamp_diff_us({0, INT32_MAX}, {0, INT32_MIN}), 4294967295LL);
}

TEST(sleep, lasts_its_time_although_signals_arrive)
{
    struct sigaction ignore_it = {};
    ignore_it.sa_handler = [](int) {};
    struct sigaction before = {};
    sigaction(SIGALRM, &ignore_it, &before);
    itimerval often = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    int64_t start = microseconds(get_time_stamp());
    sleep_ms(60);
    int64_t slept = microseconds(get_time_stamp()) - start;
    itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(slept, 60'000);
}

TEST(sleep, of_nothing_returns_at_once)
{
    int64_t start = microseconds(get_time_stamp());
    sleep_ms(0);
    EXPECT_LT(microseconds(get_time_stamp()) - start, MICROSECONDS_PER_SECOND);
}

TEST(sleep, of_a_second_and_a_part_adds_both)
{
    int64_t start = microseconds(get_time_stamp());
    sleep_ms(1050);
    EXPECT_GE(microseconds(get_time_stamp()) - start, 1'050'000);
}
