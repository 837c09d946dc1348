// SPDX-License-Identifier: MIT
// The record of an Ethernet port and what one cycle learns of it.
#pragma once

#include <cstddef>
#include <cstdint>

#include <uthash.h>

#include "platform/shared.h"
#include "platform/text.h"

struct t_protocol;

constexpr size_t NAME_SIZE = 32;
constexpr size_t MAX_DEVICES = 16;
constexpr size_t MAC_SIZE = 6;

// Arguments for "%02X-%02X-%02X-%02X-%02X-%02X".
#define MAC_ARGS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]

// An address slot; only its first four bytes are used.
struct t_address_slot {
    uint32_t ipv4_be;
    uint8_t unused[12];
};

// What one cycle learned of a port, or what a static connection is configured to use.
struct t_detect_result {
    t_address_slot address;
    t_address_slot gateway;
    t_address_slot dns_server;
    uint8_t server_mac[MAC_SIZE];
};
static_assert(offsetof(t_detect_result, gateway) == 16 && offsetof(t_detect_result, dns_server) == 32);
static_assert(offsetof(t_detect_result, server_mac) == 48 && sizeof(t_detect_result) == 56);

constexpr uint8_t SUB_PORT_SFP = 0;
constexpr uint8_t SUB_PORT_PHY = 1;

constexpr int MINUTES_COUNTED = 60;

// What the daemon remembers of a port, for whoever asks why.
struct t_port_notes {
    t_shared<uint32_t> link_changes; // written under the device lock
    uint16_t lan_hosts;              // behind it when somebody looked last
    uint8_t was_asked;
    uint32_t lan_seen_s, asked_s, answered_s;   // on the clock of monotonic_s
    uint32_t told_link_changes, told_ban_end_s; // as the subscribers know them
    uint32_t minute;                            // of the newest count
    uint8_t questions[MINUTES_COUNTED];         // a ring
    const char *answer;                         // name of the protocol; null for none
    t_detect_result learned;
};

// One Ethernet port. Each table holds records of its own; ports of two tables are matched by name. Those of the main
// table live as long as the process.
struct t_device {
    uint8_t active;               // interface is up; nothing sets it
    t_flag link_active;           // written under the device lock
    uint8_t is_brlan_dev;         // a LAN host was seen behind it, this cycle
    int8_t port_num;              // switch port number
    int8_t brlan_index;           // port number on the LAN bridge, -1 for none
    int8_t priority;              // 1 is the highest; 0 when not in the order
    t_shared<t_protocol *> proto; // recorded protocol, borrowed from the protocol table
    uint8_t is_combo;
    t_flag phy_link; // combo port: copper side has a link
    t_flag sfp_link;
    t_flag sub_port;        // side in use, SUB_PORT_PHY or SUB_PORT_SFP
    int8_t port_addr;       // combo port: its address, else -1
    t_detect_result result; // volatile, zeroed at the end of a cycle
    char name[NAME_SIZE];   // table key
    char label[NAME_SIZE];  // on the front panel
    UT_hash_handle hh;
    t_port_notes notes; // in the main table only
    bool has_joined;    // the candidates, since a pass has looked for such ports; loop thread only
};
static_assert(offsetof(t_device, active) == 0 && offsetof(t_device, link_active) == 1);
static_assert(offsetof(t_device, is_brlan_dev) == 2 && offsetof(t_device, port_num) == 3);
static_assert(offsetof(t_device, brlan_index) == 4 && offsetof(t_device, priority) == 5);
static_assert(offsetof(t_device, is_combo) == offsetof(t_device, proto) + sizeof(void *));
static_assert(offsetof(t_device, phy_link) == offsetof(t_device, is_combo) + 1);
static_assert(offsetof(t_device, sfp_link) == offsetof(t_device, is_combo) + 2);
static_assert(offsetof(t_device, sub_port) == offsetof(t_device, is_combo) + 3);
static_assert(offsetof(t_device, port_addr) == offsetof(t_device, is_combo) + 4);
static_assert(offsetof(t_device, name) == offsetof(t_device, result) + sizeof(t_detect_result));
static_assert(offsetof(t_device, label) == offsetof(t_device, name) + NAME_SIZE);
static_assert(offsetof(t_device, hh) > offsetof(t_device, label));

// Copies a name into a field of a record: at most NAME_SIZE - 1 characters, the rest zero.
void copy_name(char (&field)[NAME_SIZE], const char *name);

// "null" for what is not there, as every log line writes it.
const char *device_name(const t_device *dev);

inline const char *sub_port_word(uint8_t sub_port)
{
    return phy_or_sfp(sub_port != SUB_PORT_SFP);
}
