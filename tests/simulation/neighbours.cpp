// SPDX-License-Identifier: MIT
// What may be at the far end of a cable: the table of it, and what all of them share.
#include "tests/simulation/neighbours.h"

#include <arpa/inet.h>
#include <net/ethernet.h>
#include <sstream>

namespace sim {

extern const t_neighbour_kind dhcp_server;  // dhcp_server.cpp
extern const t_neighbour_kind pppoe_server; // pppoe_server.cpp
extern const t_neighbour_kind gateway;      // gateway.cpp
extern const t_neighbour_kind name_server;  // name_server.cpp
extern const t_neighbour_kind lan_host;     // lan_host.cpp
extern const t_neighbour_kind loop;         // disturbers.cpp
extern const t_neighbour_kind flood;
extern const t_neighbour_kind other_switch;

static const t_neighbour_kind *const NEIGHBOURS[] = {&dhcp_server, &pppoe_server, &gateway, &name_server,
                                                     &lan_host,    &loop,         &flood,   &other_switch};

constexpr t_time SPANNING_TREE_NEEDS = 30 * SECOND;
constexpr t_time LATE_BY_AT_LEAST = 40 * SECOND;
constexpr uint64_t LATE_BY_UP_TO_MORE_S = 80;

const t_neighbour_kind &neighbour_kind(const std::string &name)
{
    for (const t_neighbour_kind *kind : NEIGHBOURS)
        if (name == kind->name)
            return *kind;
    fail("nobody is called %s", name.c_str());
}

std::vector<t_neighbour> read_neighbours(const std::string &word, int port)
{
    std::vector<t_neighbour> all;
    std::istringstream items(word);
    for (std::string item; std::getline(items, item, '+');) {
        if (item == "nothing" || item == "silent")
            continue;
        const size_t colon = item.find(':');
        t_neighbour who = {};
        who.kind = &neighbour_kind(item.substr(0, colon));
        who.trait = colon == std::string::npos ? "" : item.substr(colon + 1);
        who.port = port;
        who.place = static_cast<int>(all.size());
        all.push_back(std::move(who));
    }
    return all;
}

t_port &port_of(const t_neighbour &who)
{
    return port_at(who.port);
}

bool has_trait(const t_neighbour &who, const char *trait)
{
    return who.trait == trait;
}

static t_time serves_after(const t_neighbour &who)
{
    t_time after = 0;
    if (has_trait(who, "late"))
        after = LATE_BY_AT_LEAST +
                static_cast<t_time>(draw(8, static_cast<uint64_t>(who.port)) % LATE_BY_UP_TO_MORE_S) * SECOND;
    for (const t_neighbour &other : port_of(who).cable().neighbours)
        if (other.kind == &other_switch && has_trait(other, "slow"))
            after += SPANNING_TREE_NEEDS;
    return after;
}

bool is_late(const t_neighbour &who)
{
    return now() < who.since + serves_after(who);
}

void begin_neighbour(t_neighbour &who)
{
    who.since = now();
    who.heard = 0;
    if (const t_time after = serves_after(who))
        happen_at(now() + after, note_truth);
    if (who.kind->begins)
        who.kind->begins(who);
}

bool is_disturber(const t_neighbour &who)
{
    return who.kind == &flood;
}

// --- addresses

t_mac mac_of(const t_neighbour &who)
{
    return {{0x02, 0, 0, 0, static_cast<uint8_t>(0x10 + who.place), static_cast<uint8_t>(who.port)}};
}

uint32_t network_of(const t_neighbour &who)
{
    return 0x0a000000 + static_cast<uint32_t>(who.port * 0x10000 + who.place * 0x100);
}

t_time usual_delay(const t_neighbour &who)
{
    return port_of(who).answers_after;
}

// --- frames

const char *kind_of_frame(const std::string &frame)
{
    t_ethernet_header ethernet;
    t_arp_frame arp;
    t_dns_query_frame ip;
    if (!read_frame(frame, &ethernet))
        return "frame";
    if (ethernet.ether_type_be == htons(ETH_P_PPP_DISC))
        return "pppoe";
    if (ethernet.ether_type_be == htons(ETHERTYPE_ARP) && read_frame(frame, &arp))
        return arp.opcode_be == htons(1) ? "arp" : "arp reply";
    if (ethernet.ether_type_be == htons(ETHERTYPE_IP) && read_frame(frame, &ip))
        return ip.udp.destination_port_be == htons(53) ? "dns" : "dhcp";
    return "frame";
}

bool is_arp_request_for(const std::string &frame, uint32_t address_be, t_arp_frame *request)
{
    return read_frame(frame, request) && request->ethernet.ether_type_be == htons(ETHERTYPE_ARP) &&
           request->opcode_be == htons(1) && request->target_ip_be == address_be;
}

void answer_arp(const t_neighbour &who, const t_arp_frame &request)
{
    t_arp_frame reply = request;
    const t_mac own = mac_of(who);
    reply.opcode_be = htons(2);
    reply.ethernet.destination = request.ethernet.source;
    reply.ethernet.source = reply.sender_mac = own;
    reply.sender_ip_be = request.target_ip_be;
    reply.target_mac = request.sender_mac;
    reply.target_ip_be = request.sender_ip_be;
    answer_frame(who, frame_of(reply), usual_delay(who));
}

t_found found_as_server(const t_neighbour &who, const char *doubtful_trait)
{
    constexpr t_time SURELY_IN_TIME = 1500 * MILLISECOND;
    const bool is_sure =
        !has_trait(who, "slow") && !has_trait(who, doubtful_trait) && usual_delay(who) < SURELY_IN_TIME;
    return is_sure ? t_found::at_once : t_found::doubtful;
}

} // namespace sim
