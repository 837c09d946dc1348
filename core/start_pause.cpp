// SPDX-License-Identifier: MIT
#include "core/start_pause.h"

#include <algorithm>
#include <iterator>
#include <poll.h>

#include "core/hangup.h"
#include "platform/bus.h"
#include "platform/clock.h"
#include "platform/ending.h"

// Waits for whatever comes first and serves it; true when that is the wish to end.
static bool serve_next(int64_t limit_ms)
{
    pollfd wanted[] = {{ending_fd(), POLLIN, 0}, {wan_detect_ubus_socket(), POLLIN, 0}, {hangup_fd(), POLLIN, 0}};
    const auto &[end, caller, hangup] = wanted;
    if (poll(wanted, std::size(wanted), static_cast<int>(limit_ms)) <= 0)
        return false;
    if (end.revents)
        return true;
    if (hangup.revents)
        tell_of_hangup();
    if (caller.revents)
        wan_detect_ubus_serve();
    return false;
}

bool pause_serving_callers(uint32_t milliseconds)
{
    const t_time_stamp start = get_time_stamp();
    wan_detect_ubus_serve(); // those who called while the daemon asked something itself
    bool asked_to_end = false;
    int64_t left_ms = milliseconds;
    do {
        asked_to_end = serve_next(std::max<int64_t>(left_ms, 0));
        left_ms = static_cast<int64_t>(milliseconds) - milliseconds_since(start);
    } while (!asked_to_end && left_ms > 0);
    return asked_to_end;
}
