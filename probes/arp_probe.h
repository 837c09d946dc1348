// SPDX-License-Identifier: MIT
// ARP requests (RFC 826) in the LAN bridge's name: is a LAN host alive, and behind which port does an address answer?
// All of them block the calling thread (the loop thread) for a short, fixed time.
#pragma once

#include "model/records.h"

constexpr int ARP_ERR_SEARCH = -91;
constexpr int ARP_ERR_LAN_BRIDGE = -87;

// Leaves in the list only the ports on which `target_be` answered, and sets its count. 0, ARP_ERR_LAN_BRIDGE or
// ARP_ERR_SEARCH (the list is then empty).
int find_target_ip_and_device_with_arp(t_device_list_head *list, uint32_t target_be);

// Asks one port for one address and stores the answering MAC in the port's result block. 1 when the exchange ran,
// answered or not; 0 when it could not run.
int send_special_arp(t_device *dev, uint32_t target_be);
