// SPDX-License-Identifier: MIT
// The table of what may happen, and the events that every life is made of.
#include <algorithm>
#include <csignal>

#include "tests/simulation/life.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time END_TAKES_AT_MOST = 30 * SECOND; // the checks ask for less; this only cuts a life that hangs

// The cable of a port is pulled out, or one to a neighbour is plugged in.
static void unplug(const t_event &event)
{
    plug_in(port_at(event.port), PHY, "nothing");
}

static void plug(const t_event &event)
{
    plug_in(port_at(event.port), PHY, event.text);
}

// SIGTERM, with which every life ends.
static void end(const t_event &)
{
    world.told_to_end = now();
    life_limit = now() + END_TAKES_AT_MOST;
    send_signal(SIGTERM);
}

static const t_event_kind unplug_kind = {.name = "unplug", .happen = unplug};
static const t_event_kind plug_kind = {.name = "plug", .happen = plug};
static const t_event_kind end_kind = {.name = "end", .happen = end};

static const t_event_kind *const EVENTS[] = {&unplug_kind, &plug_kind, &end_kind};

std::span<const t_event_kind *const> event_kinds()
{
    return EVENTS;
}

const t_event_kind *event_kind(const std::string &name)
{
    for (const t_event_kind *kind : EVENTS)
        if (name == kind->name)
            return kind;
    return nullptr;
}

void draw_events(t_life *life, t_number number)
{
    life->events.push_back({.at_ms = 600'000 + static_cast<int64_t>(number(5000)), .kind = "end", .text = ""});
    std::stable_sort(life->events.begin(), life->events.end(),
                     [](const t_event &a, const t_event &b) { return a.at_ms < b.at_ms; });
}

int64_t quiet_from_ms(const t_life &life)
{
    int64_t quiet = 0;
    for (const t_event &event : life.events) {
        const t_event_kind *kind = event_kind(event.kind);
        if (kind != &end_kind)
            quiet = std::max(quiet, event.at_ms + (kind->lasts_ms ? kind->lasts_ms(event) : 0));
    }
    return quiet;
}

int64_t end_ms(const t_life &life)
{
    for (const t_event &event : life.events)
        if (event_kind(event.kind) == &end_kind)
            return event.at_ms;
    return INT64_MAX / MILLISECOND;
}

} // namespace sim
