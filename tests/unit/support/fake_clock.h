// SPDX-License-Identifier: MIT
// A clock that only moves when it is set or something sleeps: replaces platform/clock.cpp in a test program that names
// fake_clock.cpp among its sources.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

struct t_fake_clock {
    int64_t now_us = 0;
    std::vector<uint32_t> sleeps;                  // every sleep_ms
    std::function<void(uint32_t ms)> during_sleep; // what happens meanwhile

    void reset() { *this = t_fake_clock(); }
    void set(int64_t sec, int64_t usec = 0) { now_us = sec * 1'000'000 + usec; }
    void advance_ms(int64_t ms) { now_us += ms * 1000; }
};

extern t_fake_clock fake_clock;
