// SPDX-License-Identifier: MIT
// Filling in link-layer addresses.
#include "probes/wire/packet_address.h"

#include <arpa/inet.h>
#include <cstring>
#include <sys/socket.h>

sockaddr_ll packet_address(uint16_t ether_type, int ifindex, const t_mac *mac)
{
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ether_type);
    address.sll_ifindex = ifindex;
    if (mac) {
        address.sll_halen = MAC_SIZE;
        memcpy(address.sll_addr, mac->bytes, MAC_SIZE);
    }
    return address;
}

sockaddr_ll packet_broadcast_address(uint16_t ether_type, int ifindex)
{
    sockaddr_ll address = packet_address(ether_type, ifindex, nullptr);
    address.sll_halen = MAC_SIZE;
    memset(address.sll_addr, 0xff, sizeof address.sll_addr);
    return address;
}
