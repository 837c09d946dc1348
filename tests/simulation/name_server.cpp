// SPDX-License-Identifier: MIT
// A name server: it answers every question on its cable, whatever address it was put to, and ARP for its own address.
//
// Traits: silent; id: it answers another question; none: it knows no such name; asks: before it answers it wants to
// know by ARP who has the address that asked.
#include <arpa/inet.h>
#include <map>
#include <net/ethernet.h>

#include "tests/simulation/neighbours.h"

namespace sim {

constexpr uint16_t DNS_PORT = 53;
constexpr uint16_t IS_AN_ANSWER = 0x8180;
constexpr t_time ASKS_AFTER = 2 * MILLISECOND;

static std::map<std::pair<int, int>, t_dns_query_frame> waiting; // by port and place, for who asks first

static bool is_query(const std::string &bytes, t_dns_query_frame *query)
{
    if (!read_frame(bytes, query) || query->ipv4.destination_be == 0 || query->ipv4.destination_be == INADDR_NONE)
        return false;
    return query->ethernet.ether_type_be == htons(ETHERTYPE_IP) && query->ipv4.protocol == IPV4_PROTOCOL_UDP &&
           query->udp.destination_port_be == htons(DNS_PORT);
}

static void answer(const t_neighbour &who, const t_dns_query_frame &query)
{
    t_dns_query_frame frame = query;
    frame.ethernet.destination = query.ethernet.source;
    frame.ethernet.source = mac_of(who);
    frame.ipv4.source_be = query.ipv4.destination_be;
    frame.ipv4.destination_be = query.ipv4.source_be;
    frame.udp.source_port_be = query.udp.destination_port_be;
    frame.udp.destination_port_be = query.udp.source_port_be;
    frame.dns.flags_be = htons(IS_AN_ANSWER);
    frame.dns.ancount_be = htons(has_trait(who, "none") ? 0 : 1);
    if (has_trait(who, "id"))
        frame.dns.id_be ^= 0x0101;
    answer_frame(who, frame_of(frame), usual_delay(who));
}

static void ask_back(const t_neighbour &who, const t_dns_query_frame &query)
{
    waiting[{who.port, who.place}] = query;
    t_arp_frame frame = {};
    frame.ethernet = {BROADCAST_MAC, mac_of(who), htons(ETHERTYPE_ARP)};
    frame.hardware_type_be = htons(1);
    frame.protocol_type_be = htons(ETHERTYPE_IP);
    frame.hardware_length = 6;
    frame.protocol_length = 4;
    frame.opcode_be = htons(1);
    frame.sender_mac = mac_of(who);
    frame.sender_ip_be = query.ipv4.destination_be;
    frame.target_ip_be = query.ipv4.source_be;
    answer_frame(who, frame_of(frame), ASKS_AFTER);
}

// Who was asked for tells its MAC.
static bool is_told(const t_neighbour &who, const std::string &bytes, t_dns_query_frame *query)
{
    t_arp_frame reply;
    const auto found = waiting.find({who.port, who.place});
    if (found == waiting.end() || !read_frame(bytes, &reply) || reply.ethernet.ether_type_be != htons(ETHERTYPE_ARP) ||
        reply.opcode_be != htons(2) || reply.sender_ip_be != found->second.ipv4.source_be)
        return false;
    *query = found->second;
    waiting.erase(found);
    return true;
}

static void hears(t_neighbour &who, const std::string &bytes)
{
    t_dns_query_frame query;
    t_arp_frame request;
    if (is_late(who))
        return;
    if (is_query(bytes, &query)) {
        who.heard++;
        if (has_trait(who, "asks"))
            ask_back(who, query);
        else if (!has_trait(who, "silent"))
            answer(who, query);
    } else if (is_told(who, bytes, &query)) {
        answer(who, query);
    } else if (is_arp_request_for(bytes, inet_addr(NAME_SERVER), &request)) {
        answer_arp(who, request);
    }
}

extern const t_neighbour_kind name_server;
const t_neighbour_kind name_server = {.name = "dns", .hears = hears};

bool resolves_names(const t_neighbour &who)
{
    return who.kind == &name_server && !who.is_dead && !is_late(who) && (who.trait.empty() || has_trait(who, "asks"));
}

} // namespace sim
