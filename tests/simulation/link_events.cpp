// SPDX-License-Identifier: MIT
// Cables that are plugged, pulled, moved, and links that flap. The number of the first two is the side of a combo port.
#include <algorithm>

#include "tests/simulation/events.h"
#include "tests/simulation/world.h"

namespace sim {

static t_side side_of(const t_event &event)
{
    return event.number == SFP && port_at(event.port).is_combo ? SFP : PHY;
}

static void unplug(const t_event &event)
{
    plug_in(port_at(event.port), side_of(event), "nothing");
}

static void plug(const t_event &event)
{
    plug_in(port_at(event.port), side_of(event), event.text);
}

static int64_t draw_side(t_number number)
{
    return one_in(6, number) ? SFP : PHY;
}

static void draw_unplug(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
    event->number = draw_side(number);
}

static void draw_plug(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
    event->number = draw_side(number);
    do
        event->text = number(3) ? draw_upstream(life, number) : draw_bystander(life, number);
    while (event->text == "nothing");
}

// The cable of the one port goes to the port that the number names, within a second or three.
static void move(const t_event &event)
{
    t_port &from = port_at(event.port);
    const int to = is_port(static_cast<int>(event.number)) ? static_cast<int>(event.number) : event.port;
    const std::string word = from.cables[PHY].word;
    plug_in(from, PHY, "nothing");
    const auto after = static_cast<t_time>(1 + draw(11, static_cast<uint64_t>(event.at_ms)) % 3);
    if (word != "nothing")
        happen_at(now() + after * SECOND, [to, word] { plug_in(port_at(to), PHY, word); });
}

static void draw_move(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
    event->number = some_port(life, number);
}

static int64_t move_lasts(const t_event &)
{
    return 3000;
}

// The link goes and comes again: so often as the number says, and the word is the time for each in milliseconds.
static int64_t period_ms(const t_event &event)
{
    return std::max<int64_t>(1, atoll(event.text.c_str()));
}

static void flap(const t_event &event)
{
    const int number = event.port;
    const t_side side = port_at(number).side;
    if (!port_at(number).cables[side].link)
        return;
    for (int64_t i = 0; i < 2 * event.number; i++)
        happen_at(now() + i * period_ms(event) * MILLISECOND, [=] {
            t_port &port = port_at(number);
            set_link(port, side, i % 2 != 0 && port.cables[side].word != "nothing");
        });
}

static void draw_flap(const t_life &life, t_event *event, t_number number)
{
    static const int64_t PERIODS[] = {100, 500, 900, 1100, 2500, 5000, 8800, 9200, 12000};
    event->port = likely_port(life, number);
    event->number = one_in(4, number) ? between(2, 12, number) : 1;
    event->text = std::to_string(one_of(PERIODS, number));
}

static int64_t flap_lasts(const t_event &event)
{
    return 2 * event.number * period_ms(event);
}

// A host comes to a switch behind a port, or one that was there begins to speak.
static void host(const t_event &event)
{
    t_cable &cable = port_at(event.port).cable();
    if (!cable.link)
        return plug_in(port_at(event.port), port_at(event.port).side, "host");
    join(port_at(event.port), "host");
}

static void draw_host(const t_life &life, t_event *event, t_number number)
{
    event->port = likely_port(life, number);
}

extern const t_event_kind unplug_kind, plug_kind, move_kind, flap_kind, host_kind;
const t_event_kind unplug_kind = {.name = "unplug", .happen = unplug, .draw = draw_unplug, .weight = 22};
const t_event_kind plug_kind = {.name = "plug", .happen = plug, .draw = draw_plug, .weight = 30};
const t_event_kind move_kind = {
    .name = "move", .happen = move, .draw = draw_move, .weight = 12, .lasts_ms = move_lasts};
const t_event_kind flap_kind = {
    .name = "flap", .happen = flap, .draw = draw_flap, .weight = 12, .lasts_ms = flap_lasts};
const t_event_kind host_kind = {.name = "host", .happen = host, .draw = draw_host, .weight = 6};

} // namespace sim
