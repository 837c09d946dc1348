// SPDX-License-Identifier: MIT
// DNS reachability: one query per port, all at once; the first port in table order with a valid answer wins. While it
// waits, the address that a query came from is answered for on its port. Blocks at most three seconds. Loop thread
// only.
#pragma once

#include "probes/dns/dns_entry.h"

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
