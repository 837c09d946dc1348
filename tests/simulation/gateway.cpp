// SPDX-License-Identifier: MIT
// The gateway of a static connection, or the server of a tunnel: it answers ARP for the address that the configuration
// names.
//
// Traits: strict: it answers only who asks from the connection's own address; late; other: it has another address; dead
// to the world but for ARP: dumb.
#include <arpa/inet.h>

#include "tests/simulation/neighbours.h"

namespace sim {

constexpr t_time SURELY_IN_TIME = 250 * MILLISECOND;

static uint32_t address_of(const t_neighbour &who)
{
    return htonl(ntohl(inet_addr(GATEWAY)) + (has_trait(who, "other") ? 8 : 0));
}

static void hears(t_neighbour &who, const std::string &bytes)
{
    t_arp_frame request;
    if (!is_arp_request_for(bytes, address_of(who), &request) || is_late(who))
        return;
    if (has_trait(who, "strict") && request.sender_ip_be != inet_addr(OWN_ADDRESS))
        return;
    who.heard++;
    answer_arp(who, request);
}

static bool is_reached_by(const std::string &connection)
{
    return connection == "static" || connection == "l2tp-static" || connection == "pptp-static";
}

// Whether it has the address that the configuration of this connection names.
static bool is_asked_for(const t_neighbour &who, const std::string &connection)
{
    return is_reached_by(connection) &&
           (connection == "static" ? inet_addr(world.gateway.c_str()) == address_of(who) : !has_trait(who, "other"));
}

static bool serves(const t_neighbour &who, const std::string &connection)
{
    return is_asked_for(who, connection) && !has_trait(who, "dumb") && !is_late(who);
}

static t_found found(const t_neighbour &who, const std::string &connection)
{
    if (!is_asked_for(who, connection) || is_late(who))
        return t_found::never;
    if (usual_delay(who) >= SURELY_IN_TIME)
        return t_found::doubtful;
    return has_trait(who, "strict") ? t_found::second_look : t_found::at_once;
}

extern const t_neighbour_kind gateway;
const t_neighbour_kind gateway = {.name = "gateway", .hears = hears, .serves = serves, .found = found};

} // namespace sim
