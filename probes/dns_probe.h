// SPDX-License-Identifier: MIT
// DNS reachability: one query per port, all at once; the first port in table order with a valid answer wins. While it
// waits, the address that a query came from is answered for on its port. Blocks at most three seconds. Loop thread
// only.
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

constexpr int DNS_ERR_BIND = -89;
constexpr int DNS_ERR_SEND = -88;
constexpr int DNS_NO_ANSWER = 96;

// 1 when a port answered (then it is the winner), else 0.
int dns_lookup_via_multi_eth(t_dns_ctx *ctx);

// Asks through every entry and waits; the entries are numbered already. 0 when a port answered, or DNS_NO_ANSWER; every
// socket is closed again.
int gethostbyname_own_implement(t_dns_ctx *ctx);

// Sends the query of one entry through its open socket, and answers for its source from then on. 0; DNS_ERR_BIND or
// DNS_ERR_SEND (the entry is then closed).
int send_dns_query(uint32_t source_be, t_dns_entry *entry);

// Closes what an entry has open.
void close_dns_entry(t_dns_entry *entry);

// Both record an accepted answer on the entry and make its port the winner of the handle that the entry stands in.
// The first reads what is pending, the other is the loop's callback and reads one frame.
void recv_dns_query(uloop_fd *watcher);
void uloop_recv_dns_query(uloop_fd *watcher, unsigned int events);
