// SPDX-License-Identifier: MIT
// Link-layer addresses of packet sockets. Any thread.
#pragma once

#include <cstdint>
#include <linux/if_packet.h>

#include "probes/wire/mac.h"

// A link-layer address: family AF_PACKET, `ether_type`, interface index and destination.
// Without a destination (`mac` null) its length is 0.
sockaddr_ll packet_address(uint16_t ether_type, int ifindex, const t_mac *mac);

// The same to everyone: all eight bytes of the address field are set, the two spare ones included.
sockaddr_ll packet_broadcast_address(uint16_t ether_type, int ifindex);
