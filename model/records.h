// SPDX-License-Identifier: MIT
// The records of the model: ports, lists of ports, and protocols, which keep a list each.
#pragma once

#include <cstddef>
#include <cstdint>

#include <uthash.h>

#include "model/device.h"
#include "model/lists.h"

// One way of being served addresses. Kept for the life of the process.
struct t_protocol {
    uint8_t is_ipv4;
    uint8_t state;
    int8_t priority;            // smaller is preferred; 0 when not in the order
    t_device_list_head devices; // ports on which it is recorded now
    t_detect_result static_config;
    char name[NAME_SIZE];     // table key
    char snd_conn[NAME_SIZE]; // secondary connection: "dynamic", "static", "none"
    UT_hash_handle hh;
};
static_assert(offsetof(t_protocol, state) == 1 && offsetof(t_protocol, priority) == 2);
static_assert(offsetof(t_protocol, static_config) == offsetof(t_protocol, devices) + sizeof(t_device_list_head));
static_assert(offsetof(t_protocol, name) == offsetof(t_protocol, static_config) + sizeof(t_detect_result));
static_assert(offsetof(t_protocol, snd_conn) == offsetof(t_protocol, name) + NAME_SIZE);

// "null" for what is not there, as every log line writes it.
const char *protocol_name(const t_protocol *protocol);
