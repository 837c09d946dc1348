// SPDX-License-Identifier: MIT
// The records of a DNS probe: one entry per port that is asked, and the handle that holds them.
#pragma once

#include <cstdint>

#include "probes/arp_answer.h"
#include "probes/frame_lines.h"

constexpr int32_t DNS_MAX_ENTRIES = 16;

struct t_dns_entry {
    uint8_t received;
    uint16_t query_id;
    int32_t index; // position among the handle's entries: by it a watcher's callback finds the handle
    uint32_t dev_ip_be;
    uint32_t dns_server_be;
    t_device *dev;                // borrowed
    uloop_fd watcher;             // its descriptor is the raw socket, -1 when closed
    uint8_t server_mac[MAC_SIZE]; // next hop
    t_arp_answerer answerer;      // open while the socket is and the query is out
};

struct t_dns_ctx {
    int32_t count;
    t_device *winner; // borrowed; the port whose answer was accepted first
    t_dns_entry entries[DNS_MAX_ENTRIES];
    t_frame_lines lines;
};
