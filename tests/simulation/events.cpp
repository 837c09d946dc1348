// SPDX-License-Identifier: MIT
// The table of what may happen, and the end of every life.
#include "tests/simulation/events.h"

#include <algorithm>
#include <csignal>
#include <cstring>

#include "tests/simulation/descriptors.h"
#include "tests/simulation/signals.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr t_time END_TAKES_AT_MOST = 30 * SECOND; // the checks ask for less; this only cuts a life that hangs

extern const t_event_kind unplug_kind, plug_kind, move_kind, flap_kind, host_kind; // link_events.cpp
extern const t_event_kind dies_kind, returns_kind, slowness_kind;                  // server_events.cpp
extern const t_event_kind set_kind, detect_kind, ask_kind, hotplug_kind;           // request_events.cpp
extern const t_event_kind log_kind, state_kind, subscribe_kind;
extern const t_event_kind ban_kind;                                      // ban_events.cpp
extern const t_event_kind option_kind, lock_kind, break_kind, role_kind; // config_events.cpp
extern const t_event_kind command_kind, hang_kind, manager_kind;         // machine_events.cpp
extern const t_event_kind bus_dies_kind, bus_hangs_kind, bus_deaf_kind, bus_refuses_kind;
extern const t_event_kind memory_kind, descriptors_kind, disk_kind, threads_kind, jump_kind, hang_up_kind, pipe_kind;
extern const t_event_kind lie_kind; // lies.cpp

// More than the ends of a command, which the kernel tidies up.
static bool daemon_holds_something()
{
    int left = count_of_descriptors();
    for (int fd = 3; left > 0; fd++) {
        const char *kind = kind_of_descriptor(fd);
        if (kind && strcmp(kind, "pipe") != 0 && strcmp(kind, "pidfd") != 0)
            return true;
        left -= kind != nullptr;
    }
    return false;
}

// SIGTERM, with which every life ends; one that waits for a step may come first. It may end the process at once while
// that has nothing to tidy up, which would be no life.
static void tell_to_end()
{
    if (world.told_to_end != NEVER)
        return;
    if (!has_handler(SIGTERM) && !daemon_holds_something()) {
        happen_at(now() + 10, tell_to_end);
        return;
    }
    world.told_to_end = now();
    life_limit = now() + END_TAKES_AT_MOST;
    send_signal(SIGTERM);
}

// So many microseconds later as the number says.
static void end(const t_event &event)
{
    if (event.number == 0)
        tell_to_end();
    else
        happen_at(now() + event.number, tell_to_end);
}

static const t_event_kind end_kind = {.name = "end", .happen = end};

static const t_event_kind *const EVENTS[] = {
    &end_kind,      &unplug_kind,    &plug_kind,     &move_kind,      &flap_kind,        &host_kind,
    &dies_kind,     &returns_kind,   &slowness_kind, &set_kind,       &detect_kind,      &ask_kind,
    &hotplug_kind,  &log_kind,       &state_kind,    &subscribe_kind, &ban_kind,         &option_kind,
    &lock_kind,     &break_kind,     &role_kind,     &command_kind,   &hang_kind,        &manager_kind,
    &bus_dies_kind, &bus_hangs_kind, &bus_deaf_kind, &jump_kind,      &hang_up_kind,     &descriptors_kind,
    &disk_kind,     &pipe_kind,      &memory_kind,   &lie_kind,       &bus_refuses_kind, &threads_kind,
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

// --- what follows from a script

int64_t end_ms(const t_life &life)
{
    for (const t_event &event : life.events)
        if (event_kind(event.kind) == &end_kind && event.step.empty())
            return event.at_ms;
    return INT64_MAX / SECOND;
}

} // namespace sim
