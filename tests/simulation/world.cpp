// SPDX-License-Identifier: MIT
// The world's time, its beginning, and the WAN role.
#include "tests/simulation/world.h"

#include <algorithm>
#include <arpa/inet.h>
#include <queue>
#include <sstream>

#include "tests/simulation/checks.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/memory.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/router.h"
#include "tests/simulation/tally.h"

namespace sim {

t_world world;

// --- time

namespace {

struct t_due {
    t_time time;
    uint64_t rank; // among equals
    std::function<void()> what;

    bool operator<(const t_due &other) const { return time != other.time ? time > other.time : rank > other.rank; }
};

std::priority_queue<t_due> due;
uint64_t dues_made = 0;

} // namespace

void happen_at(t_time time, std::function<void()> what)
{
    due.push({time, draw(6, ++dues_made), std::move(what)});
}

t_time world_next_time()
{
    return due.empty() ? NEVER : due.top().time;
}

void world_happen()
{
    const std::function<void()> what = std::move(const_cast<t_due &>(due.top()).what); // its place is told by others
    due.pop();
    what();
    look_after_event();
}

// --- events

static std::vector<const t_event *> waiting; // for their steps

// The number of a port, where an event names one by what it is.
static int port_meant(int port)
{
    if (port == HOLDER_OF_ROLE && is_port(holder_of_role()))
        return holder_of_role();
    for (const t_port &one : world.ports)
        if (port == HOPEFUL && one.number != holder_of_role() && one.truth.in_pool && one.truth.found != t_found::never)
            return one.number;
    return port < 0 ? world.life.wan : port;
}

static void happen(const t_event &event)
{
    const t_event_kind &kind = *event_kind(event.kind);
    world.quiet_from = std::max(world.quiet_from, now() + (kind.lasts_ms ? kind.lasts_ms(event) : 0) * MILLISECOND);
    world.events_happened++;
    count_event(event.kind);
    log_line("world", "%s port %d number %ld %s", event.kind.c_str(), event.port, static_cast<long>(event.number),
             event.text.c_str());
    t_event meant = event;
    meant.port = port_meant(event.port);
    kind.happen(meant);
    note_truth();
}

static void become_due(const t_event &event)
{
    if (event.step.empty())
        happen(event);
    else
        waiting.push_back(&event);
}

void begin_step(const std::string &step)
{
    for (const t_event *event : waiting)
        if (event->step == step)
            happen_at(now() + event->after_ms * MILLISECOND, [event] { happen(*event); });
    waiting.erase(std::remove_if(waiting.begin(), waiting.end(), [&](const t_event *one) { return one->step == step; }),
                  waiting.end());
}

// --- the role

int holder_of_role()
{
    const std::string port = option_of("switch", "wan", "switch_port");
    const int number = port.compare(0, 4, "port") == 0 ? atoi(port.c_str() + 4) : 0;
    return is_port(number) ? number : 0;
}

void move_role(int port, bool by_daemon)
{
    set_option("switch", "wan", "switch_port", "port" + std::to_string(port));
    world.role_since = now();
    world.role_mover = by_daemon ? t_mover::daemon : t_mover::somebody;
    if (!by_daemon)
        world.role_taken_by_others = now();
    world.swaps += by_daemon;
    note_truth();
    saw({.deed = t_deed::role_moved, .port = is_port(port) ? port : 0, .number = by_daemon, .text = ""});
}

static bool has_static_secondary(const std::string &type)
{
    return (type == "l2tp" || type == "pptp") && option_of("protocol", type, "snd_conn") == "static";
}

static bool is_known_type(const std::string &type)
{
    for (const char *known : {"dhcp", "pppoe", "static", "l2tp", "pptp", "v6plus"})
        if (type == known)
            return true;
    return false;
}

std::string configured_connection()
{
    std::string type = option_of("network", "wan", "wan_type");
    if (type.empty())
        type = option_of("network", "wan", "proto");
    if (type == "pppoeshare")
        type = "pppoe";
    if (!is_known_type(type) && world.cycles > 0) {
        world.connection_in_doubt = world.connection_in_doubt || world.connection_read <= world.connection_since ||
                                    memory_will_be_refused(); // then it may be taken from the other option
        return world.connection; // the former one stays, which nobody knows before the first cycle
    }
    world.connection_in_doubt = false;
    if (has_static_secondary(type))
        type += "-static";
    return type;
}

// --- the beginning

static t_cable begin_cable(const std::string &word, bool link, int port)
{
    return {.word = word, .link = link, .neighbours = read_neighbours(word, port)};
}

static void begin_ports(const t_life &life)
{
    for (const t_port_plan &plan : life.ports) {
        t_port port = {};
        port.number = static_cast<int>(world.ports.size()) + 1;
        port.name = "eth" + std::to_string(port.number - 1);
        port.answers_after = plan.answers_after_ms * MILLISECOND;
        port.is_combo = !plan.behind_sfp.empty();
        port.cables[PHY] = begin_cable(plan.behind, plan.link, port.number);
        port.cables[SFP] = begin_cable(plan.behind_sfp, port.is_combo && plan.behind_sfp != "nothing", port.number);
        world.ports.push_back(std::move(port));
    }
    std::istringstream guests(life.settings.count(GUEST_PORTS) ? life.settings.at(GUEST_PORTS) : "");
    for (int number; guests >> number;)
        if (is_port(number))
            port_at(number).in_other_bridge = true;
}

static void begin_links()
{
    for (t_port &port : world.ports) {
        port.side = option_of("switch", "port" + std::to_string(port.number), "wan_port") == "sfp" ? SFP : PHY;
        port.link = port.cable().link;
        if (!port.link)
            continue;
        for (t_neighbour &who : port.cable().neighbours)
            begin_neighbour(who);
    }
}

void begin_world(const t_life &life)
{
    world.life = life;
    world.began_at = now();
    world.lan_address_be = inet_addr("192.168.1.1");
    world.lan_netmask_be = inet_addr("255.255.255.0");
    world.begins_at = now();
    world.ends_at = now() + end_ms(life) * MILLISECOND;
    begin_ports(life);
    write_router_files(life);
    begin_links();
    if (life.settings.count(MANAGER))
        set_manager(life.settings.at(MANAGER));
    const std::string enable = option_of("network", "auto_wan_detect", "enable");
    world.detection_on = enable.compare(0, 2, "on") == 0 || enable.compare(0, 4, "true") == 0;
    world.is_router = option_of("sysmode", "sysmode", "mode").compare(0, 6, "router") == 0;
    rebuild_bridge();
    for (const t_event &event : world.life.events)
        happen_at(now() + event.at_ms * MILLISECOND, [&event] { become_due(event); });
}

} // namespace sim
