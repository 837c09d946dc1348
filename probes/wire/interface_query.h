// SPDX-License-Identifier: MIT
// What the kernel says of a network interface. Tests replace it.
#pragma once

#include <cstdint>

#include "probes/wire/mac.h"

constexpr const char *LAN_BRIDGE = "br-lan";

struct t_interface_info {
    uint32_t address_be;
    uint32_t netmask_be;
    t_mac mac;
};

// IPv4 address, netmask and MAC of an interface, by name. 0, or -1 when any of them cannot be read.
int query_interface(const char *name, t_interface_info *info);

// Index and MAC of a port, asked through an open socket. 0, or -1; what could not be read is 0 then.
int query_port(int fd, const char *name, int *ifindex, t_mac *mac);
