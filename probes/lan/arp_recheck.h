// SPDX-License-Identifier: MIT
// Re-check of the LAN ARP table: stale entries of the kernel's cache drop out. Blocks the calling thread (the loop
// thread).
#pragma once

#include "probes/lan/arp_table.h"

// Asks every host of the table once, through the interface with index `lan_ifindex`, and removes those that stay silent
// or answer from outside the subnet. 0, ERR_INVALID_INPUT (an empty table included) or ERR_NO_MEMORY.
int double_check_arp_packet_all_blocked(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be,
                                        uint32_t lan_netmask_be, const t_mac *lan_mac, unsigned int lan_ifindex);
