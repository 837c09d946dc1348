// SPDX-License-Identifier: MIT
#include "platform/ending.h"

#include <atomic>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/clock.h"

constexpr uint32_t NEVER = 0;

static std::atomic<uint32_t> asked_at_ms = NEVER; // on the clock of monotonic_ms, whose 0 counts as 1
static std::atomic<int> descriptor = -1;

bool init_ending()
{
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return descriptor >= 0;
}

void ask_for_end()
{
    uint32_t before = NEVER;
    asked_at_ms.compare_exchange_strong(before, monotonic_ms() | 1);
    const uint64_t one = 1;
    const ssize_t written = write(descriptor, &one, sizeof one);
    static_cast<void>(written); // a counter that is full wakes as well
}

bool end_is_asked_for()
{
    return asked_at_ms != NEVER;
}

int64_t asked_for_end_since_ms()
{
    return static_cast<int32_t>(monotonic_ms() - asked_at_ms);
}

int ending_fd()
{
    return descriptor;
}

void release_ending()
{
    const int fd = descriptor.exchange(-1);
    if (fd >= 0)
        close(fd);
    asked_at_ms = NEVER;
}
