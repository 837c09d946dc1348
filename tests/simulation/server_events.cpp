// SPDX-License-Identifier: MIT
// Servers that die and come back, and that become slower or faster, while their links stay.
#include "tests/simulation/events.h"
#include "tests/simulation/neighbours.h"

namespace sim {

static void dies(const t_event &event)
{
    for (t_cable &cable : port_at(event.port).cables)
        for (t_neighbour &who : cable.neighbours)
            who.is_dead = true;
}

static void returns(const t_event &event)
{
    t_port &port = port_at(event.port);
    for (t_cable &cable : port.cables)
        for (t_neighbour &who : cable.neighbours)
            if (who.is_dead) {
                who.is_dead = false;
                begin_neighbour(who);
            }
}

static void draw_port(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
}

// The number is how long each answer takes from now on, in milliseconds.
static void slowness(const t_event &event)
{
    port_at(event.port).answers_after = event.number * MILLISECOND;
}

static void draw_slowness(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
    event->number = one_in(3, number) ? between(1000, 4000, number) : between(1, 400, number);
}

extern const t_event_kind dies_kind, returns_kind, slowness_kind;
const t_event_kind dies_kind = {.name = "dies", .happen = dies, .draw = draw_port, .weight = 14};
const t_event_kind returns_kind = {.name = "returns", .happen = returns, .draw = draw_port, .weight = 14};
const t_event_kind slowness_kind = {.name = "slowness", .happen = slowness, .draw = draw_slowness, .weight = 4};

} // namespace sim
