// SPDX-License-Identifier: MIT
// What a Linux bridge knows: on which of its ports it learned each MAC, and which number each of our ports has on it.
// Loop thread only.
#pragma once

#include "probes/wire/mac.h"

// The kernel's forwarding record (struct __fdb_entry), in its own byte order.
struct t_bridge_record {
    t_mac mac;
    uint8_t port; // low 8 bits
    uint8_t is_local;
    uint32_t ageing_timer;
    uint8_t port_high;
    uint8_t padding;
    uint16_t unused;
};
static_assert(offsetof(t_bridge_record, port) == 6 && offsetof(t_bridge_record, ageing_timer) == 8);
static_assert(offsetof(t_bridge_record, port_high) == 12 && sizeof(t_bridge_record) == 16);

constexpr int BRIDGE_CHUNK_RECORDS = 64;
constexpr int BRIDGE_MAX_RECORDS = 65536; // nobody may keep us reading by inventing MACs
constexpr int BRIDGE_ERR_READ = -1;       // no channel to the kernel, or the read failed; errno says why

// The number of forwarding records; BRIDGE_ERR_READ or ERR_NO_MEMORY. `*records` comes in null and is the caller's to
// free, whatever the result.
int get_bridge_table(const char *bridge_name, t_bridge_record **records);

// The loop of get_bridge_table; `fd` is the ioctl channel.
int br_get_fdb(int fd, const char *bridge_name, t_bridge_record **records);

// Stores every port's number on the LAN bridge, -1 for a port of no bridge or of another one. Always 0.
int update_brlan_dev_index(t_device *dev_hashmap_head);

// The integer in a file, in any base; -1 when there is none.
int fetch_int(const char *dir, const char *file);
