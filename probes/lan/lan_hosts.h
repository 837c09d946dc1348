// SPDX-License-Identifier: MIT
// Behind which ports do hosts of the LAN sit? Joins the kernel's ARP cache, the bridge's forwarding records and the
// ports' bridge numbers. Loop thread only; blocks while the ARP probe re-checks the cache.
#pragma once

#include "model/port_model.h"
#include "probes/lan/arp_table.h"

constexpr int LAN_HOSTS_ERR_BRIDGE = -87;     // br-lan has no readable address
constexpr int LAN_HOSTS_ERR_FORWARDING = -83; // no forwarding records
constexpr int LAN_HOSTS_ERR_ARP = -82;        // the ARP cache could not be read

// Sets is_brlan_dev on every port behind which a live host of the LAN's subnet was seen. 0 or one of the codes above.
int update_brlan_dev(t_port_model *model);

// The re-check alone. Asks every host of the table once, through the interface with index `lan_ifindex`, and removes
// those that stay silent or answer from outside the subnet. 0, ERR_INVALID_INPUT (an empty table included) or
// ERR_NO_MEMORY.
int double_check_arp_packet_all_blocked(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be,
                                        uint32_t lan_netmask_be, const t_mac *lan_mac, unsigned int lan_ifindex);
