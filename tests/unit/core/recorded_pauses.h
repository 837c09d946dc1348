// SPDX-License-Identifier: MIT
// Pauses of the daemon that are written down instead of slept. A program that wants that names recorded_pauses.cpp and
// those sources of the daemon that rest among its own; CMakeLists.txt leads them to the functions at the end.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "core/background.h"
#include "platform/clock.h"

class t_recorded_pauses {
public:
    // Forgets everything. The calling thread is the main one from now on; of all others together, the first `skipped`
    // pauses take no time, and later ones last until the process is to end.
    void reset(int skipped = 0);

    std::vector<uint32_t> of_main_thread();
    std::vector<uint32_t> of_other_threads();
    std::vector<uint32_t> short_ones(); // those of sleep_ms, of any thread
    // Waits, in real time, until other threads have begun so many pauses; false when they do not.
    bool others_reach(size_t count);

    // What happens during a pause of the main thread.
    std::function<void(uint32_t ms)> on_main_thread;
    // What happens during a pause of sleep_ms, of any thread.
    std::function<void(uint32_t ms)> on_short;

    // For the replaced functions.
    bool take(uint32_t ms); // true when the pause is over
    void take_short(uint32_t ms);

private:
    std::mutex lock_;
    std::vector<uint32_t> main_, others_, short_;
    unsigned long main_thread_ = 0;
    size_t skipped_ = 0;
};

extern t_recorded_pauses recorded_pauses;

// In the place of those without "recorded_". When one of those gets another signature the program does not link.
decltype(sleep_unless_stopped) recorded_sleep_unless_stopped;
decltype(sleep_ms) recorded_sleep_ms;
