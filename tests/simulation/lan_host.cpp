// SPDX-License-Identifier: MIT
// A host of the LAN, and what the router knows of such hosts: the bridge's forwarding table and the ARP table.
//
// Traits: silent: it stands in both tables and answers no ARP; stranger: its address is none of the LAN's; quiet: it
// never says anything by itself, so that nobody knows it.
#include <arpa/inet.h>
#include <map>

#include "probes/lan/bridge_table.h"
#include "tests/simulation/neighbours.h"

namespace sim {

constexpr t_time SPEAKS_AFTER_AT_LEAST = 200 * MILLISECOND; // from its link on
constexpr uint64_t SPEAKS_WITHIN_MS = 6000;
constexpr t_time ANSWERS_AFTER = 800 * MICROSECOND;
constexpr const char *FOREIGN_NETWORK = "172.20.0.0";

static std::map<uint32_t, t_mac> arp_table; // by address, in host order; whoever spoke stays there

static uint32_t address_of(const t_neighbour &who)
{
    const uint32_t network = has_trait(who, "stranger") ? ntohl(inet_addr(FOREIGN_NETWORK))
                                                        : ntohl(world.lan_address_be & world.lan_netmask_be);
    return network + 100 + static_cast<uint32_t>(who.port * 4 + who.place % 4);
}

static void is_heard(t_neighbour &who)
{
    who.is_known = true;
    arp_table[address_of(who)] = mac_of(who);
    note_truth();
}

static void begins(t_neighbour &who)
{
    who.is_known = false;
    if (has_trait(who, "quiet"))
        return;
    if (now() == world.begins_at)
        return is_heard(who);
    const int port = who.port, place = who.place;
    const t_time since = who.since;
    const auto after = static_cast<t_time>(draw(9, static_cast<uint64_t>(now() + port)) % SPEAKS_WITHIN_MS);
    happen_at(now() + SPEAKS_AFTER_AT_LEAST + after * MILLISECOND, [port, place, since] {
        auto &all = port_at(port).cable().neighbours;
        if (static_cast<size_t>(place) >= all.size() || !port_at(port).link)
            return;
        t_neighbour &host = all[static_cast<size_t>(place)];
        if (host.since == since && host.kind->begins == begins)
            is_heard(host);
    });
}

static void hears(t_neighbour &who, const std::string &bytes)
{
    t_arp_frame request;
    if (has_trait(who, "silent") || !is_arp_request_for(bytes, htonl(address_of(who)), &request))
        return;
    who.heard++;
    t_arp_frame reply = request;
    reply.opcode_be = htons(2);
    reply.ethernet.destination = reply.target_mac = request.sender_mac;
    reply.ethernet.source = reply.sender_mac = mac_of(who);
    reply.sender_ip_be = request.target_ip_be;
    reply.target_ip_be = request.sender_ip_be;
    answer_frame(who, frame_of(reply), ANSWERS_AFTER);
}

extern const t_neighbour_kind lan_host;
const t_neighbour_kind lan_host = {.name = "host", .hears = hears, .begins = begins};

bool is_findable_host(const t_neighbour &who)
{
    return who.kind == &lan_host && who.is_known && !who.is_dead && who.trait != "silent" && who.trait != "stranger";
}

// --- the tables as files

static void add_record(std::string *table, const t_mac &mac, int port, bool is_local)
{
    t_bridge_record record = {};
    record.mac = mac;
    record.port = static_cast<uint8_t>(port);
    record.is_local = is_local;
    *table += frame_of(record);
}

std::string text_of_forwarding_table()
{
    std::string table;
    for (const t_port &port : world.ports) {
        if (!port.in_bridge)
            continue;
        add_record(&table, mac_at(mac_of(port.number)), port.number, true);
        for (const t_neighbour &who : port.cable().neighbours)
            if (port.link && who.kind == &lan_host && who.is_known)
                add_record(&table, mac_of(who), port.number, false);
    }
    return table;
}

std::string text_of_arp_table()
{
    std::string text = "IP address       HW type     Flags       HW address            Mask     Device\n";
    for (const auto &[address, mac] : arp_table) {
        char line[128];
        const in_addr be = {htonl(address)};
        snprintf(line, sizeof line, "%-16s 0x1         0x2         %02x:%02x:%02x:%02x:%02x:%02x     *        br-lan\n",
                 inet_ntoa(be), mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        text += line;
    }
    return text;
}

} // namespace sim
