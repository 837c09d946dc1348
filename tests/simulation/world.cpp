// SPDX-License-Identifier: MIT
// The world's time, its ports, and the way frames take.
#include "tests/simulation/world.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <queue>

#include "tests/simulation/bus.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/event_log.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/packets.h"

namespace sim {

constexpr int FIRST_PORT_IFINDEX = 10;
constexpr t_time MANAGER_NEEDS = 2 * SECOND; // from the cable to a connection that works

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
    const std::function<void()> what = due.top().what;
    due.pop();
    what();
    look_after_event();
}

static void happen(const t_event &event)
{
    world.events_happened++;
    log_line("world", "%s port %d number %ld %s", event.kind.c_str(), event.port, static_cast<long>(event.number),
             event.text.c_str());
    event_kind(event.kind)->happen(event);
}

// --- ports

t_port &port_at(int number)
{
    return world.ports.at(static_cast<size_t>(number - 1));
}

int port_named(const std::string &name)
{
    for (const t_port &port : world.ports)
        if (port.name == name)
            return port.number;
    return 0;
}

int ifindex_of(int port)
{
    return FIRST_PORT_IFINDEX + port;
}

int port_of_ifindex(int ifindex)
{
    const int port = ifindex - FIRST_PORT_IFINDEX;
    return port >= 1 && static_cast<size_t>(port) <= world.ports.size() ? port : 0;
}

const uint8_t *mac_of(int port)
{
    static uint8_t mac[6] = {0x02, 0, 0, 0, 1, 0};
    mac[5] = static_cast<uint8_t>(port);
    return mac;
}

const uint8_t *bridge_mac()
{
    static const uint8_t mac[6] = {0x02, 0, 0, 0, 0, 1};
    return mac;
}

void set_link(t_port &port, bool link)
{
    if (port.link == link)
        return;
    port.link = link;
    port.link_since = now();
    if (!link)
        tell_sockets_of_loss(port.number, ENETDOWN);
}

void plug_in(t_port &port, const std::string &neighbour)
{
    port.behind = &neighbour_kind(neighbour);
    set_link(port, neighbour != "nothing");
}

void frame_goes(int number, const std::string &frame)
{
    t_port &port = port_at(number);
    port.questions++;
    saw({.deed = t_deed::frame_sent, .port = number, .number = static_cast<int64_t>(frame.size()), .text = "frame"});
    if (port.link && !port.is_mute && port.behind->hears)
        port.behind->hears(port, frame);
}

void answer_frame(const t_port &port, const std::string &frame, t_time after)
{
    const int number = port.number;
    const t_time since = port.link_since;
    happen_at(now() + after, [number, since, frame] {
        if (port_at(number).link_since == since)
            frame_comes(number, frame);
    });
}

// --- the role

int holder_of_role()
{
    const std::string port = option_of("switch", "wan", "switch_port");
    return port.compare(0, 4, "port") == 0 ? atoi(port.c_str() + 4) : 0;
}

void move_role(int port, bool by_daemon)
{
    set_option("switch", "wan", "switch_port", "port" + std::to_string(port));
    world.role_since = now();
    world.swaps += by_daemon;
    saw({.deed = t_deed::role_moved, .port = port, .number = by_daemon, .text = ""});
}

std::string configured_connection()
{
    return option_of("network", "wan", "wan_type");
}

bool upstream_works()
{
    const int holder = holder_of_role();
    if (holder == 0 || static_cast<size_t>(holder) > world.ports.size())
        return false;
    const t_port &port = port_at(holder);
    return port.link && !port.is_mute && port.behind->serves && port.behind->serves(port, configured_connection()) &&
           now() - std::max(port.link_since, world.role_since) >= MANAGER_NEEDS;
}

// --- the network manager on the bus

bool service_is_there(const std::string &object)
{
    return object == "network.interface";
}

t_service_answer ask_service(const std::string &, const std::string &, blob_attr *)
{
    const char *state = upstream_works() ? "connected" : "disconnected";
    return {.after = 2 * MILLISECOND, .status = 0, .data = [state](blob_buf *message) {
                blobmsg_add_string(message, "state", state);
            }};
}

// --- the beginning

static void begin_ports(const t_life &life)
{
    for (const t_port_plan &plan : life.ports) {
        t_port port = {};
        port.number = static_cast<int>(world.ports.size()) + 1;
        port.name = "eth" + std::to_string(port.number - 1);
        port.behind = &neighbour_kind(plan.behind);
        port.link = plan.link;
        port.answers_after = plan.answers_after_ms * MILLISECOND;
        world.ports.push_back(std::move(port));
    }
}

void begin_world(const t_life &life)
{
    world.life = life;
    world.lan_address_be = inet_addr("192.168.1.1");
    world.lan_netmask_be = inet_addr("255.255.255.0");
    begin_ports(life);
    write_router_files(life);
    for (const t_event &event : world.life.events)
        happen_at(now() + event.at_ms * MILLISECOND, [&event] { happen(event); });
}

} // namespace sim
