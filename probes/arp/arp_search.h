// SPDX-License-Identifier: MIT
// The search for the ports behind which an address answers. Blocks the calling thread (the loop thread).
#pragma once

#include "model/lists.h"
#include "probes/wire/mac.h"

// Asks every port of the list at most twice and removes the silent ones from it. An all-zero target MAC is unknown. 0,
// ERR_INVALID_INPUT (an empty list included) or ERR_NO_MEMORY.
int check_ip_using_arp_blocked(uint32_t target_be, const t_mac *target_mac, t_device_list_head *list,
                               uint32_t sender_be, const t_mac *sender_mac);
