// SPDX-License-Identifier: MIT
// The timers of cycles and requests, for those who look at them or let time pass by hand.
#pragma once

#include "core/engine.h"

inline uloop_timeout *const ENGINE_TIMERS[] = {
    &engine.init_wan_detect_all,
    &engine.start_wan_detect,
    &engine.using_proto_detect,
    &engine.using_arp,
    &engine.using_dns,
    &engine.try_each,
    &engine.end,
    &engine.heartbeat,
    &engine.proto_detect_start,
    &engine.proto_detect_end,
    &engine.look_again,
};

// The one that is due first; null when none is armed.
inline uloop_timeout *earliest_timer()
{
    uloop_timeout *next = nullptr;
    for (uloop_timeout *timer : ENGINE_TIMERS)
        if (timer->pending && (!next || uloop_timeout_remaining64(timer) < uloop_timeout_remaining64(next)))
            next = timer;
    return next;
}

inline void cancel_all_timers()
{
    for (uloop_timeout *timer : ENGINE_TIMERS)
        uloop_timeout_cancel(timer);
    uloop_timeout_cancel(&engine.news);
    uloop_timeout_cancel(&engine.network_watch);
}
