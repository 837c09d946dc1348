// SPDX-License-Identifier: MIT
// A DHCP server: it answers each DISCOVER with an OFFER, and ARP for its own address.
//
// Traits: mute; late: it begins a minute or two after its link; slow: each answer comes after 3 s; tests: it looks
// whether an address is free before it offers it the first time; xid: it answers somebody else; relay: its answers come
// through one; twice; bare: an offer without gateway and name server.
#include <arpa/inet.h>
#include <net/ethernet.h>

#include "tests/simulation/neighbours.h"

namespace sim {

constexpr uint16_t SERVER_PORT = 67;
constexpr uint16_t CLIENT_PORT = 68;
constexpr uint8_t BOOT_REQUEST = 1;
constexpr uint8_t BOOT_REPLY = 2;
constexpr uint8_t MESSAGE_OFFER = 2;
constexpr t_time SLOW = 3 * SECOND;
constexpr t_time TEST = 4 * SECOND;

bool is_discover(const std::string &bytes, t_dhcp_frame *frame)
{
    return read_frame(bytes, frame) && frame->ethernet.ether_type_be == htons(ETHERTYPE_IP) &&
           frame->ipv4.protocol == IPV4_PROTOCOL_UDP && frame->udp.destination_port_be == htons(SERVER_PORT) &&
           frame->dhcp.op == BOOT_REQUEST;
}

static void put_option(uint8_t **at, uint8_t code, const void *value, uint8_t size)
{
    *(*at)++ = code;
    *(*at)++ = size;
    memcpy(*at, value, size);
    *at += size;
}

t_dhcp_frame make_offer(const t_dhcp_frame &discover, const t_mac &server, uint32_t network, bool is_bare)
{
    t_dhcp_frame frame = discover;
    const uint32_t server_be = htonl(network + 1), mask_be = htonl(0xffffff00);
    frame.ethernet.destination = discover.ethernet.source;
    frame.ethernet.source = server;
    frame.ipv4.source_be = server_be;
    frame.udp.source_port_be = htons(SERVER_PORT);
    frame.udp.destination_port_be = htons(CLIENT_PORT);
    frame.dhcp.op = BOOT_REPLY;
    frame.dhcp.yiaddr_be = htonl(network + 100);
    memset(frame.dhcp.options, 0, sizeof frame.dhcp.options);
    uint8_t *at = frame.dhcp.options;
    put_option(&at, 53, &MESSAGE_OFFER, 1);
    put_option(&at, 54, &server_be, 4);
    put_option(&at, 1, &mask_be, 4);
    if (!is_bare) {
        put_option(&at, 3, &server_be, 4);
        put_option(&at, 6, &server_be, 4);
    }
    *at = 255;
    return frame;
}

static t_time delay_of(const t_neighbour &who)
{
    if (has_trait(who, "slow"))
        return SLOW;
    return has_trait(who, "tests") && who.heard == 1 ? TEST : usual_delay(who);
}

static void offer(t_neighbour &who, const t_dhcp_frame &discover)
{
    who.heard++;
    t_dhcp_frame frame = make_offer(discover, mac_of(who), network_of(who), has_trait(who, "bare"));
    if (has_trait(who, "xid"))
        frame.dhcp.xid ^= 0x01010101;
    if (has_trait(who, "relay"))
        frame.dhcp.giaddr_be = htonl(network_of(who) + 2);
    answer_frame(who, frame_of(frame), delay_of(who));
    if (has_trait(who, "twice"))
        answer_frame(who, frame_of(frame), delay_of(who) + MILLISECOND);
}

static void hears(t_neighbour &who, const std::string &bytes)
{
    t_dhcp_frame discover;
    t_arp_frame request;
    if (has_trait(who, "mute") || is_late(who))
        return;
    if (is_discover(bytes, &discover))
        offer(who, discover);
    else if (is_arp_request_for(bytes, htonl(network_of(who) + 1), &request))
        answer_arp(who, request);
}

static bool is_for_dhcp(const std::string &connection)
{
    return connection == "dhcp" || connection == "l2tp" || connection == "pptp";
}

static bool answers(const t_neighbour &who, const std::string &connection)
{
    return is_for_dhcp(connection) && !has_trait(who, "mute") && !has_trait(who, "xid") && !is_late(who);
}

static bool serves(const t_neighbour &who, const std::string &connection)
{
    return answers(who, connection) && !has_trait(who, "nowhere");
}

static t_found found(const t_neighbour &who, const std::string &connection)
{
    return answers(who, connection) ? found_as_server(who, "tests") : t_found::never;
}

extern const t_neighbour_kind dhcp_server;
const t_neighbour_kind dhcp_server = {.name = "dhcp", .hears = hears, .serves = serves, .found = found};

} // namespace sim
