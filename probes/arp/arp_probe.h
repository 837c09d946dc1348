// SPDX-License-Identifier: MIT
// Behind which ports does an address answer? Asked by ARP (RFC 826), in the LAN bridge's name unless told. Both
// questions block the calling thread (the loop thread) for a short, fixed time.
#pragma once

#include "model/lists.h"

constexpr int ARP_ERR_SEARCH = -91;
constexpr int ARP_ERR_LAN_BRIDGE = -87;

// Leaves in the list only the ports on which `target_be` answered. 0, ARP_ERR_LAN_BRIDGE or ARP_ERR_SEARCH (the list is
// then empty). With a sender the question is asked from that address instead of the bridge's, for gateways that stay
// silent to a foreign network; whoever answers learns from the question where it is.
int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be, uint32_t sender_be = 0);

// Asks one port for one address and stores the answering MAC in the port's result block. 1 when the exchange ran,
// answered or not; 0 when it could not run.
int send_special_arp(t_device *dev, uint32_t target_be);
