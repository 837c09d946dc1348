// SPDX-License-Identifier: MIT
#include "core/news.h"

#include <algorithm>
#include <cstdint>

#include "adapters/state_events.h"
#include "core/engine.h"
#include "model/banned.h"
#include "model/port_model.h"
#include "platform/clock.h"

constexpr uint32_t NO_END = INT32_MAX;

// Whoever comes next behind the port is somebody else.
static void forget_who_was_there(t_port_notes *notes)
{
    notes->lan_hosts = 0;
    notes->lan_seen_s = 0;
    notes->answer = nullptr;
    notes->answered_s = 0;
    notes->learned = {};
}

static void tell_link(t_device *dev)
{
    const uint32_t changes = dev->notes.link_changes;
    if (changes == dev->notes.told_link_changes)
        return;
    dev->notes.told_link_changes = changes;
    if (!dev->link_active)
        forget_who_was_there(&dev->notes);
    announce_link(dev);
}

// When the ban of this port ends; 0 without one.
static uint32_t tell_ban(t_device *dev)
{
    const uint32_t end_s = ban_end_s(&port_model.banned_list, dev);
    if (end_s != dev->notes.told_ban_end_s) {
        dev->notes.told_ban_end_s = end_s;
        announce_ban(dev, ban_seconds_left(&port_model.banned_list, dev));
    }
    return end_s;
}

void look_for_news()
{
    uloop_timeout_set(&engine.news, 0);
}

void uloop_tell_news(uloop_timeout *timer)
{
    uint32_t first_end_s = NO_END;
    for (t_device *dev = port_model.dev_hashmap_head; dev; dev = static_cast<t_device *>(dev->hh.next)) {
        tell_link(dev);
        if (const uint32_t end_s = tell_ban(dev))
            first_end_s = std::min(first_end_s, end_s);
    }
    if (first_end_s == NO_END)
        return;
    const int64_t left_s =
        std::min<int64_t>(int64_t{first_end_s} - monotonic_s() + 1, INT32_MAX / MILLISECONDS_PER_SECOND);
    uloop_timeout_set(timer, static_cast<int>(left_s) * MILLISECONDS_PER_SECOND);
}
