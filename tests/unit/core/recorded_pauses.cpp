// SPDX-License-Identifier: MIT
#include "tests/unit/core/recorded_pauses.h"

#include <pthread.h>
#include <unistd.h>

constexpr int LOOKS = 1000;
constexpr useconds_t BETWEEN_LOOKS_US = 10'000;

t_recorded_pauses recorded_pauses;

void t_recorded_pauses::reset(int skipped)
{
    const std::lock_guard guard(lock_);
    main_.clear();
    others_.clear();
    short_.clear();
    main_thread_ = pthread_self();
    skipped_ = static_cast<size_t>(skipped);
    on_main_thread = on_short = nullptr;
}

std::vector<uint32_t> t_recorded_pauses::of_main_thread()
{
    const std::lock_guard guard(lock_);
    return main_;
}

std::vector<uint32_t> t_recorded_pauses::of_other_threads()
{
    const std::lock_guard guard(lock_);
    return others_;
}

std::vector<uint32_t> t_recorded_pauses::short_ones()
{
    const std::lock_guard guard(lock_);
    return short_;
}

bool t_recorded_pauses::others_reach(size_t count)
{
    for (int look = 0; look < LOOKS; look++) {
        if (of_other_threads().size() >= count)
            return true;
        usleep(BETWEEN_LOOKS_US);
    }
    return false;
}

bool t_recorded_pauses::take(uint32_t ms)
{
    if (pthread_equal(pthread_self(), main_thread_)) {
        {
            const std::lock_guard guard(lock_);
            main_.push_back(ms);
        }
        if (on_main_thread)
            on_main_thread(ms);
        return true;
    }
    const std::lock_guard guard(lock_);
    others_.push_back(ms);
    return others_.size() <= skipped_;
}

void t_recorded_pauses::take_short(uint32_t ms)
{
    {
        const std::lock_guard guard(lock_);
        short_.push_back(ms);
    }
    if (on_short)
        on_short(ms);
}

bool recorded_sleep_unless_stopped(uint32_t ms)
{
    constexpr uint32_t AS_LONG_AS_A_TEST = 600'000;
    return recorded_pauses.take(ms) ? false : sleep_unless_stopped(AS_LONG_AS_A_TEST);
}

void recorded_sleep_ms(uint32_t ms)
{
    recorded_pauses.take_short(ms);
}
