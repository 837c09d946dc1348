// SPDX-License-Identifier: MIT
#include "platform/ending.h"

#include <atomic>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/clock.h"

constexpr uint32_t NEVER = 0;

static std::atomic<bool> asked;
static std::atomic<uint32_t> seen_at_ms = NEVER; // on the clock of monotonic_ms, whose 0 counts as 1
static std::atomic<int> descriptor = -1;

bool init_ending()
{
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return descriptor >= 0;
}

void ask_for_end()
{
    asked = true;
    const uint64_t one = 1;
    const ssize_t written = write(descriptor, &one, sizeof one);
    static_cast<void>(written); // a counter that is full wakes as well
}

bool end_is_asked_for()
{
    return asked;
}

// The clock is not read in the signal handler: whoever runs the process at another speed has just the true time there.
int64_t end_is_seen_for_ms()
{
    const uint32_t now_ms = monotonic_ms() | 1;
    uint32_t seen_ms = NEVER;
    if (seen_at_ms.compare_exchange_strong(seen_ms, now_ms))
        return 0;
    return static_cast<int32_t>(now_ms - seen_ms); // another thread's stamp may be younger than our reading
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
    asked = false;
    seen_at_ms = NEVER;
}
