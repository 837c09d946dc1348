// SPDX-License-Identifier: MIT
// Neighbours that are in the way: a cable that leads back into the router, somebody who floods, another switch.
#include <arpa/inet.h>
#include <cstdlib>

#include "tests/simulation/neighbours.h"
#include "tests/simulation/packets.h"

namespace sim {

bool is_discover(const std::string &bytes, t_dhcp_frame *frame); // dhcp_server.cpp
t_dhcp_frame make_offer(const t_dhcp_frame &discover, const t_mac &server, uint32_t network, bool is_bare);

constexpr t_time ROUND_TRIP = MILLISECOND;
constexpr t_time OWN_SERVER_NEEDS = 8 * MILLISECOND;
constexpr int FRAMES_OF_A_FLOOD = 300; // more than a socket's queue takes

// The trait is the number of the other port; without one, frames come back where they left. On a member of the LAN
// bridge the router's own server hears the question.
static void loop_hears(t_neighbour &who, const std::string &bytes)
{
    const int other = who.trait.empty() ? who.port : atoi(who.trait.c_str());
    if (!is_port(other))
        return;
    happen_at(now() + ROUND_TRIP, [other, bytes] { frame_comes(other, bytes); });
    t_dhcp_frame discover;
    if (port_at(other).in_bridge && is_discover(bytes, &discover))
        answer_frame(who, frame_of(make_offer(discover, mac_at(bridge_mac()), ntohl(world.lan_address_be) - 1, false)),
                     OWN_SERVER_NEEDS);
}

// Each question brings many answers that are none: other numbers, other addresses.
static void flood_hears(t_neighbour &who, const std::string &bytes)
{
    std::string junk = bytes;
    const std::string kind = kind_of_frame(bytes);
    t_dhcp_frame discover;
    if (is_discover(bytes, &discover)) {
        t_dhcp_frame offer = make_offer(discover, mac_of(who), network_of(who), false);
        offer.dhcp.xid ^= 0x55555555;
        junk = frame_of(offer);
    }
    const t_mac own = mac_of(who);
    memcpy(&junk[6], own.bytes, sizeof own.bytes);
    const int port = who.port;
    happen_at(now() + ROUND_TRIP, [port, junk] {
        for (int i = 0; i < FRAMES_OF_A_FLOOD; i++)
            frame_comes(port, junk);
    });
}

extern const t_neighbour_kind loop, flood, other_switch;
const t_neighbour_kind loop = {.name = "loop", .hears = loop_hears};
const t_neighbour_kind flood = {.name = "flood", .hears = flood_hears};
// The trait "slow": it forwards nothing for its first half minute, as one with spanning tree.
const t_neighbour_kind other_switch = {.name = "switch"};

} // namespace sim
