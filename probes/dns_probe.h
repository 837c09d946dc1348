// SPDX-License-Identifier: MIT
// DNS reachability: one query per port, all at once; the first port in table order with a valid answer wins. Blocks at
// most three seconds. Loop thread only.
#pragma once

#include <cstdint>

#include "model/records.h"

extern "C" {
#include <libubox/uloop.h>
}

constexpr int32_t DNS_MAX_ENTRIES = 16;

struct t_dns_entry {
    uint8_t received;
    uint16_t query_id;
    int32_t index;
    uint32_t dev_ip_be;
    uint32_t dns_server_be;
    t_device *dev;                // borrowed
    uloop_fd watcher;             // its descriptor is the raw socket, -1 when closed
    uint8_t server_mac[MAC_SIZE]; // next hop
};

struct t_dns_ctx {
    int32_t count;
    t_device *winner; // borrowed; the port whose answer was accepted first
    t_dns_entry entries[DNS_MAX_ENTRIES];
};

// 1 when a port answered (then it is the winner), else 0.
int dns_lookup_via_multi_eth(t_dns_ctx *ctx);
