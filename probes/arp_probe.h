// SPDX-License-Identifier: MIT
// ARP requests (RFC 826), in the LAN bridge's name unless told: is a LAN host alive, and behind which port does an
// address answer? All of them block the calling thread (the loop thread) for a short, fixed time.
#pragma once

#include "probes/mac.h"

struct t_arp_entry;

constexpr int ARP_ERR_SEARCH = -91;
constexpr int ARP_ERR_LAN_BRIDGE = -87;

// Leaves in the list only the ports on which `target_be` answered, and sets its count. 0, ARP_ERR_LAN_BRIDGE or
// ARP_ERR_SEARCH (the list is then empty). With a sender the question is asked from that address instead of the
// bridge's, for gateways that stay silent to a foreign network; whoever answers learns from the question where it is.
int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be, uint32_t sender_be = 0);

// Asks one port for one address and stores the answering MAC in the port's result block. 1 when the exchange ran,
// answered or not; 0 when it could not run.
int send_special_arp(t_device *dev, uint32_t target_be);

// The search behind both: asks every port of the list at most twice and removes the silent ones from it. An all-zero
// target MAC is unknown. 0, ERR_INVALID_INPUT (an empty list included) or ERR_NO_MEMORY.
int check_ip_using_arp_blocked(uint32_t target_be, const t_mac *target_mac, t_device_list_head *list,
                               uint32_t sender_be, const t_mac *sender_mac);

// Asks every host of the LAN ARP table once, through the interface with index `lan_ifindex`, and removes those that
// stay silent or answer from outside the subnet. 0, ERR_INVALID_INPUT (an empty table included) or ERR_NO_MEMORY.
int double_check_arp_packet_all_blocked(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be,
                                        uint32_t lan_netmask_be, const t_mac *lan_mac, unsigned int lan_ifindex);
