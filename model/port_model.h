// SPDX-License-Identifier: MIT
// The one model of the router: its ports, protocols, reserved and banned ports and the current WAN port.
#pragma once

#include "model/records.h"

struct t_arp_entry;

constexpr size_t LAN_AGG_TABLES = 2; // the second is never filled

struct t_port_model {
    t_flag proto_detect_running; // a probe stage is in progress
    t_flag wan_detect_running;   // a cycle is in progress, from its first pass to its end
    t_flag enable;
    t_flag router_mode;
    uint8_t device_count;
    uint8_t protocol_count;
    t_device *dev_hashmap_head;            // owns every port of the network configuration
    t_device *priority_order[MAX_DEVICES]; // borrowed, highest first, null after the last
    t_device *fake_wan;                    // borrowed from the main table, or null
    t_device *wan_port_pool;               // owns
    t_device *lan_agg[LAN_AGG_TABLES];     // owns
    t_device *gaming;                      // owns
    t_device_list_head banned_list;        // under the banned lock
    t_protocol *proto_hashmap_head;        // owns
    t_shared<t_device *> wan_dev;          // current WAN port, borrowed; null when unknown
    t_protocol *wan_proto;                 // its connection type, borrowed; null when unknown
    t_arp_entry *arp_table_hashmap_head;   // owns, only during one refresh of the LAN hosts
    char wan_role[NAME_SIZE];              // the port that had the role when it was last taken over; loop thread
    t_flag role_is_away;                   // that port is none of the table, though one of the table had it before
};
static_assert(offsetof(t_port_model, proto_detect_running) == 0 && offsetof(t_port_model, wan_detect_running) == 1);
static_assert(offsetof(t_port_model, enable) == 2 && offsetof(t_port_model, router_mode) == 3);
static_assert(offsetof(t_port_model, device_count) == 4 && offsetof(t_port_model, protocol_count) == 5);
static_assert(offsetof(t_port_model, dev_hashmap_head) == 8);
static_assert(offsetof(t_port_model, priority_order) == offsetof(t_port_model, dev_hashmap_head) + sizeof(void *));
static_assert(offsetof(t_port_model, fake_wan) ==
              offsetof(t_port_model, priority_order) + MAX_DEVICES * sizeof(void *));
static_assert(offsetof(t_port_model, wan_port_pool) == offsetof(t_port_model, fake_wan) + sizeof(void *));
static_assert(offsetof(t_port_model, lan_agg) == offsetof(t_port_model, wan_port_pool) + sizeof(void *));
static_assert(offsetof(t_port_model, gaming) == offsetof(t_port_model, lan_agg) + LAN_AGG_TABLES * sizeof(void *));
static_assert(offsetof(t_port_model, banned_list) == offsetof(t_port_model, gaming) + sizeof(void *));
static_assert(offsetof(t_port_model, proto_hashmap_head) ==
              offsetof(t_port_model, banned_list) + sizeof(t_device_list_head));
static_assert(offsetof(t_port_model, wan_dev) == offsetof(t_port_model, proto_hashmap_head) + sizeof(void *));
static_assert(offsetof(t_port_model, wan_proto) == offsetof(t_port_model, wan_dev) + sizeof(void *));
static_assert(offsetof(t_port_model, arp_table_hashmap_head) == offsetof(t_port_model, wan_proto) + sizeof(void *));

// Zero-filled at start-up, before anything else.
extern t_port_model port_model;

// Frees every protocol with its list and every table of devices. The LAN ARP table is released by its own room. Silent
// about tables that are empty.
void release_port_model(t_port_model *model);

// --- recorded protocols: a port joins the list of its protocol, and leaves it

// Records a protocol on a port, or none. The port and the protocol are given as records or, when those are null, by
// name; both protocol arguments null means none. A recorded protocol only gives way to none or to one of smaller
// priority number. 0 done or ignored, ERR_INVALID_INPUT.
int set_dev_using_specific_proto(t_device *dev_hashmap_head, t_protocol *proto_hashmap_head, t_device *device,
                                 t_protocol *protocol, const char *dev_name, const char *proto_name);

// Every port loses its recorded protocol. Always 0.
int clear_all_dev_proto(t_port_model *model);

// Every port with this protocol loses it. Always 0. Nobody calls it in this program; it completes the one above.
int clear_dev_proto_by_proto(t_port_model *model, const t_protocol *protocol);
