// SPDX-License-Identifier: MIT
// The table of what may happen, how a script of it is drawn, and the end of every life.
#include "tests/simulation/events.h"

#include <algorithm>
#include <csignal>

#include "tests/simulation/signals.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time END_TAKES_AT_MOST = 30 * SECOND; // the checks ask for less; this only cuts a life that hangs
constexpr int64_t USUAL_LIFE_MS = 600'000;
constexpr int64_t EARLIEST_MS = 500; // the start has read the configuration by then, which it cannot do without

extern const t_event_kind unplug_kind, plug_kind, move_kind, flap_kind, host_kind; // link_events.cpp
extern const t_event_kind dies_kind, returns_kind, slowness_kind;                  // server_events.cpp
extern const t_event_kind set_kind, detect_kind, ask_kind, hotplug_kind;           // request_events.cpp
extern const t_event_kind log_kind, state_kind, subscribe_kind;
extern const t_event_kind ban_kind;                                      // ban_events.cpp
extern const t_event_kind option_kind, lock_kind, break_kind, role_kind; // config_events.cpp
extern const t_event_kind command_kind, hang_kind, manager_kind;         // machine_events.cpp
extern const t_event_kind bus_dies_kind, bus_hangs_kind, bus_deaf_kind;
extern const t_event_kind memory_kind, descriptors_kind, disk_kind, jump_kind, hang_up_kind, pipe_kind;
extern const t_event_kind lie_kind; // lies.cpp

// SIGTERM, with which every life ends.
static void end(const t_event &)
{
    world.told_to_end = now();
    life_limit = now() + END_TAKES_AT_MOST;
    send_signal(SIGTERM);
}

static const t_event_kind end_kind = {.name = "end", .happen = end};

static const t_event_kind *const EVENTS[] = {
    &end_kind,     &unplug_kind,      &plug_kind,    &move_kind,     &flap_kind,      &host_kind,     &dies_kind,
    &returns_kind, &slowness_kind,    &set_kind,     &detect_kind,   &ask_kind,       &hotplug_kind,  &log_kind,
    &state_kind,   &subscribe_kind,   &ban_kind,     &option_kind,   &lock_kind,      &break_kind,    &role_kind,
    &command_kind, &hang_kind,        &manager_kind, &bus_dies_kind, &bus_hangs_kind, &bus_deaf_kind, &jump_kind,
    &hang_up_kind, &descriptors_kind, &disk_kind,    &pipe_kind,     &memory_kind,    &lie_kind,
};

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

// --- drawing

static const t_event_kind *draw_kind(bool is_rare_life, t_number number)
{
    const auto weight = [&](const t_event_kind *kind) {
        return kind->draw && (is_rare_life || !kind->is_rare) ? kind->weight : 0;
    };
    uint64_t whole = 0;
    for (const t_event_kind *kind : EVENTS)
        whole += weight(kind);
    uint64_t left = number(whole);
    for (const t_event_kind *kind : EVENTS) {
        if (left < weight(kind))
            return kind;
        left -= weight(kind);
    }
    return EVENTS[1];
}

static int64_t draw_event_count(t_number number)
{
    const uint64_t kind = number(10);
    if (kind < 2)
        return 0;
    if (kind < 6)
        return between(1, 3, number);
    return kind < 9 ? between(4, 8, number) : between(9, 15, number);
}

// Some time after an event: at once, or when the daemon is at what follows from it.
static int64_t draw_pause(t_number number)
{
    static const int64_t STEPS_MS[] = {0, 0, 0, 10'000, 21'000, 30'000};
    return one_of(STEPS_MS, number) + between(1, one_in(2, number) ? 4000 : 12'000, number);
}

// Some time of the life: any, or when the start has waited in vain for a link, or for what a link brings.
static int64_t draw_time(int64_t last_ms, t_number number)
{
    static const int64_t STEPS_MS[] = {15'000, 75'000, 75'000, 105'000};
    if (one_in(4, number))
        return one_of(STEPS_MS, number) + between(0, 6000, number);
    return between(EARLIEST_MS, last_ms, number);
}

// What happens comes mostly within the first minutes, so that a quiet world follows; and often in quick succession.
static void draw_times(t_life *life, int64_t end_ms, t_number number)
{
    static const int64_t SHARES_OF_TEN[] = {2, 4, 4, 4, 5, 5, 7, 10};
    const int64_t last_ms = std::max(EARLIEST_MS, end_ms * one_of(SHARES_OF_TEN, number) / 10);
    int64_t former_ms = 0;
    for (int64_t left = draw_event_count(number); left > 0; left--) {
        const bool is_soon = former_ms > 0 && one_in(3, number);
        former_ms = is_soon ? former_ms + draw_pause(number) : draw_time(last_ms, number);
        life->events.push_back({.at_ms = std::max<int64_t>(0, std::min(former_ms, end_ms - 1)), .text = ""});
    }
}

// Some lives are longer than others, and some are cut short in the midst of whatever goes on.
static int64_t draw_end(t_number number)
{
    if (one_in(7, number))
        return between(1, one_in(3, number) ? 20'000 : USUAL_LIFE_MS, number);
    return USUAL_LIFE_MS * (one_in(20, number) ? 3 : 1) + between(0, 5000, number);
}

// What the start itself waits for: at most half a minute, for the bus and for each file.
static void draw_trouble_at_start(t_life *life, t_number number)
{
    static const char *const PACKAGES[] = {"network", "switch", "protocol", "sysmode"};
    const int64_t lasts_ms = between(1, 20'000, number);
    if (one_in(2, number))
        life->events.push_back({.at_ms = 0, .kind = "bus_hangs", .number = lasts_ms, .text = ""});
    else
        life->events.push_back({.at_ms = 0, .kind = "lock", .number = lasts_ms, .text = one_of(PACKAGES, number)});
}

void draw_events(t_life *life, t_number number)
{
    const int64_t end_ms = draw_end(number);
    const bool is_rare_life = one_in(10, number);
    draw_times(life, end_ms, number);
    const size_t drawn = life->events.size();
    if (is_rare_life && end_ms > 0 && one_in(4, number))
        draw_trouble_at_start(life, number);
    for (size_t i = 0; i < drawn; i++) {
        t_event &event = life->events[i];
        const t_event_kind *kind = draw_kind(is_rare_life, number);
        event.kind = kind->name;
        kind->draw(*life, &event, number);
    }
    life->events.push_back({.at_ms = end_ms, .kind = "end", .text = ""});
    std::stable_sort(life->events.begin(), life->events.end(),
                     [](const t_event &a, const t_event &b) { return a.at_ms < b.at_ms; });
}

// --- what follows from a script

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
    return INT64_MAX / SECOND;
}

} // namespace sim
