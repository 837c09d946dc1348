// SPDX-License-Identifier: MIT
// The LAN ARP table: the complete entries of the kernel's ARP cache inside one subnet, keyed by MAC, in the cache's
// order. Loop thread only; a null head is an empty table.
#pragma once

#include "probes/wire/mac.h"

constexpr const char *ARP_CACHE_PATH = "/proc/net/arp";
constexpr int ARP_TABLE_ERR_OPEN = -86;

struct t_arp_entry {
    uint32_t hardware_type;
    uint32_t hardware_type_again; // the cache's flags only filter and are not kept
    uint32_t address_be;
    uint32_t unused[3];
    t_mac mac; // table key
    UT_hash_handle hh;
};
static_assert(offsetof(t_arp_entry, address_be) == 8 && offsetof(t_arp_entry, mac) == 24);

// Adds what the cache holds to the table. 0, or ARP_TABLE_ERR_OPEN. Lines that cannot be read are skipped one by one.
int update_filtered_arp_table(t_arp_entry **arp_table_hashmap_head, uint32_t lan_ip_be, uint32_t lan_netmask_be,
                              const char *cache_path = ARP_CACHE_PATH);

// A zero-filled entry with its fields set, the caller's until it is added; null when memory is short.
t_arp_entry *create_new_arp_entry(const t_mac &mac, uint32_t hardware_type, uint32_t address_be);

// Hands an entry to the table. False, and the entry stays the caller's, when its MAC is there already.
bool add_arp_entry(t_arp_entry **arp_table_hashmap_head, t_arp_entry *entry);
bool check_arp_already_add(t_arp_entry *arp_table_hashmap_head, const t_mac *mac);

// The entry, or null.
t_arp_entry *find_arp_entry(t_arp_entry *arp_table_hashmap_head, const t_mac *mac);

// 0; ERR_NOTHING_DONE when it is not there; ERR_INVALID_INPUT for an empty table or a null argument.
int remove_arp_entry(t_arp_entry **arp_table_hashmap_head, const t_mac *mac);

// Frees every entry and leaves the head null.
void release_arp_table(t_arp_entry **arp_table_hashmap_head);

// Number of entries.
unsigned int arp_table_count(t_arp_entry *arp_table_hashmap_head);
