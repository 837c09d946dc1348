// SPDX-License-Identifier: MIT
// An OFFER as the answer to a DISCOVER, for peers that the daemon is to take for servers. Any thread.
#pragma once

#include <arpa/inet.h>
#include <cstring>
#include <span>

#include "probes/wire/wire_formats.h"

struct t_offered {
    t_mac server_mac;
    uint32_t server_be;
    uint32_t address_be;
    std::span<const uint8_t> options; // with their end
};

inline t_dhcp_frame offer_to(const t_dhcp_frame &discover, const t_offered &offered)
{
    constexpr uint16_t server_port = 67, client_port = 68;
    constexpr uint8_t boot_reply = 2;
    t_dhcp_frame offer = discover;
    offer.ethernet.destination = discover.ethernet.source;
    offer.ethernet.source = offered.server_mac;
    offer.ipv4.source_be = offered.server_be;
    offer.ipv4.destination_be = offered.address_be;
    offer.udp.source_port_be = htons(server_port);
    offer.udp.destination_port_be = htons(client_port);
    offer.dhcp.op = boot_reply;
    offer.dhcp.yiaddr_be = offered.address_be;
    memset(offer.dhcp.options, 0, sizeof offer.dhcp.options);
    memcpy(offer.dhcp.options, offered.options.data(), offered.options.size());
    return offer;
}
