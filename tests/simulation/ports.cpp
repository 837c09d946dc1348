// SPDX-License-Identifier: MIT
// The board's ports, their cables and links, the LAN bridge, and the way frames take.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "probes/wire/wire_formats.h"
#include "tests/simulation/checks.h"
#include "tests/simulation/file_tree.h"
#include "tests/simulation/neighbours.h"
#include "tests/simulation/packets.h"
#include "tests/simulation/questions.h"
#include "tests/simulation/router.h"
#include "tests/simulation/world.h"

namespace sim {

constexpr int FIRST_PORT_IFINDEX = 10;
constexpr t_time BETWEEN_NEIGHBOURS = 3 * MILLISECOND; // on one cable they do not answer at once

t_port &port_at(int number)
{
    return world.ports.at(static_cast<size_t>(number - 1));
}

bool is_port(int number)
{
    return number >= 1 && static_cast<size_t>(number) <= world.ports.size();
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
    return is_port(port) ? port : 0;
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

// --- links

static void begin_neighbours(t_port &port)
{
    for (t_neighbour &who : port.cable().neighbours)
        begin_neighbour(who);
}

// The router's hotplug script tells the daemon, a moment later.
static void tell_of_link(const t_port &port)
{
    const int64_t after_ms = world.life.setting(HOTPLUG, 0);
    if (after_ms == 0 || now() == world.begins_at)
        return;
    happen_at(now() + after_ms * MILLISECOND, [name = port.name, up = port.link] {
        send_request({.object = "wan_detect", .method = "hotplug", .device = name, .value = up},
                     [=](blob_buf *message) {
                         blobmsg_add_string(message, "name", name.c_str());
                         blobmsg_add_u8(message, "status", up);
                     });
    });
}

// The carrier follows the side in use. Whoever is behind it begins anew with the link.
static void follow_side(t_port &port)
{
    const bool link = port.cable().link;
    if (port.link == link)
        return;
    port.link = link;
    port.link_since = now();
    tell_of_link(port);
    if (!link) {
        port.link_lost = now();
        tell_sockets_of_loss(port.number, ENETDOWN);
        return;
    }
    begin_neighbours(port);
}

void set_link(t_port &port, t_side side, bool link)
{
    port.cables[side].link = link;
    follow_side(port);
    note_truth();
}

void plug_in(t_port &port, t_side side, const std::string &word)
{
    t_cable &cable = port.cables[side];
    cable.link = false;
    follow_side(port);
    cable.plugged++;
    cable.word = word;
    cable.neighbours = read_neighbours(word, port.number);
    cable.link = word != "nothing";
    follow_side(port);
    note_truth();
}

void join(t_port &port, const std::string &word)
{
    t_cable &cable = port.cable();
    cable.word += "+" + word;
    for (t_neighbour &who : read_neighbours(word, port.number)) {
        who.place = static_cast<int>(cable.neighbours.size());
        cable.neighbours.push_back(std::move(who));
        begin_neighbour(cable.neighbours.back());
    }
    note_truth();
}

void use_side(t_port &port, t_side side)
{
    if (!port.is_combo || port.side == side)
        return;
    const bool had_link = port.link;
    port.side = side;
    if (had_link && port.cable().link) { // another one, so it goes and comes
        port.link = false;
        port.link_lost = now();
    }
    follow_side(port);
    note_truth();
}

// --- the bridge

static std::string folder_of(const t_port &port)
{
    return "/sys/class/net/" + port.name + "/brport";
}

static void show_member(const t_port &port)
{
    const std::string folder = folder_of(port);
    if (!port.in_bridge && !port.in_other_bridge) {
        remove_file(folder + "/port_no");
        remove_file(folder + "/bridge");
        return;
    }
    constexpr uint64_t PLACES = 32; // of ports in the other bridge, which counts by itself
    const uint64_t place = draw(PLACES, static_cast<uint64_t>(port.number)) % world.ports.size() + 1;
    char number[16];
    snprintf(number, sizeof number, "0x%x\n",
             port.in_other_bridge ? static_cast<unsigned>(place) : static_cast<unsigned>(port.number));
    put_file(folder + "/port_no", number);
    put_link(folder + "/bridge", port.in_bridge ? "../../br-lan" : "../../br-guest");
}

void rebuild_bridge()
{
    const int fake = atoi(option_of("network", "auto_wan_detect", "fake_wan_port").c_str());
    const int holder = holder_of_role();
    if (option_of("switch", "wan", "switch_port").empty())
        return; // nobody can tell which port stays outside
    for (t_port &port : world.ports) {
        const bool member = !port.in_other_bridge && port.number != holder && port.number != fake;
        const bool changes = member != port.in_bridge;
        port.in_bridge = member;
        show_member(port);
        if (changes && port.link)
            begin_neighbours(port); // the bridge has to learn them anew
    }
    note_truth();
}

// --- frames

static void deliver(t_port &port, const std::string &frame)
{
    if (!port.link)
        return;
    const uint64_t plugged = port.cable().plugged;
    for (size_t i = 0; i < port.cable().neighbours.size() && port.cable().plugged == plugged; i++) {
        t_neighbour &who = port.cable().neighbours[i];
        if (!who.is_dead && who.kind->hears)
            who.kind->hears(who, frame);
    }
}

void frame_goes(int number, const std::string &frame)
{
    t_port &port = port_at(number);
    port.questions++;
    saw({.deed = t_deed::frame_sent,
         .port = number,
         .number = static_cast<int64_t>(frame.size()),
         .text = kind_of_frame(frame)});
    deliver(port, frame);
}

void frame_goes_to_bridge(const std::string &frame)
{
    saw({.deed = t_deed::frame_sent, .number = static_cast<int64_t>(frame.size()), .text = kind_of_frame(frame)});
    for (t_port &port : world.ports)
        if (port.in_bridge)
            deliver(port, frame);
}

void answer_frame(const t_neighbour &who, const std::string &frame, t_time after)
{
    const int number = who.port;
    const t_time since = port_at(number).link_since;
    const bool fits = !has_trait(who, "xid") && !has_trait(who, "uniq");
    port_at(number).answers++;
    happen_at(now() + after + who.place * BETWEEN_NEIGHBOURS, [number, since, frame, fits, asked = now()] {
        if (port_at(number).link_since != since)
            return;
        frame_comes(number, frame);
        if (fits)
            note_answer(frame, asked);
    });
}

} // namespace sim
