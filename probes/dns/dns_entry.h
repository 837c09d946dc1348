// SPDX-License-Identifier: MIT
// The records of a DNS probe: one entry per port that is asked, and the handle that holds them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "probes/arp/arp_answer.h"
#include "probes/wire/frame_lines.h"

constexpr int32_t DNS_MAX_ENTRIES = 16;

struct t_dns_entry {
    uint8_t received;
    uint16_t query_id;
    int32_t index; // position among the handle's entries
    uint32_t dev_ip_be;
    uint32_t dns_server_be;
    t_device *dev; // borrowed
    t_port_socket socket;
    t_mac server_mac;        // next hop
    t_arp_answerer answerer; // open while the socket is and the query is out
};

struct t_dns_ctx {
    int32_t count;
    t_device *winner; // borrowed; the port whose answer was accepted first
    t_dns_entry entries[DNS_MAX_ENTRIES];
    t_frame_lines lines;
};

// The handle that an entry stands in: the entry knows its place in the array, and the array is a member of the handle.
inline t_dns_ctx *handle_of(t_dns_entry *entry)
{
    t_dns_entry *first = entry - entry->index;
    return reinterpret_cast<t_dns_ctx *>(reinterpret_cast<uint8_t *>(first) - offsetof(t_dns_ctx, entries));
}
